#pragma once

#include "ui/FileDialogs.h"

#include <QList>
#include <QMainWindow>
#include <QUrl>

#include <optional>

class CoverThumbnails;
class LibraryStore;
class MetadataService;
class QAction;
class QLabel;
class QLineEdit;
class QProgressBar;
class QSettings;
class QToolButton;
class SongListArea;
class TransportBar;
class UpdateChecker;
class WindowActions;
class WindowAlerts;

// The status line's text: the song count, the total time when known, "Edited" for a saved playlist
// with unsaved changes, and the store's status, joined by " · ".
QString subtitleText(const LibraryStore& store);

// The program's one window: its menus, toolbar and status line, the transport bar, the song list and
// every dialog the playlist and the update checker ask for. Closing it quits the program.
//
// The song list can be hidden: the window then shrinks to its fixed part (keeping its top edge where the
// window system allows) and grows back when the list returns. Whether it shows is kept under
// "ui.songListVisible" in `settings`.
class MainWindow : public QMainWindow {
    Q_OBJECT
    Q_PROPERTY(bool listVisible READ isListVisible WRITE setListVisible NOTIFY listVisibleChanged)
public:
    static inline const QString songListVisibleKey = QStringLiteral("ui.songListVisible");

    MainWindow(LibraryStore& store, UpdateChecker& updater, MetadataService& metadata, FileDialogs dialogs,
               QSettings& settings, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Files dropped or handed to the program: playlists open, other files are added.
    void openUrls(const QList<QUrl>& urls);

    bool isListVisible() const { return m_isListVisible; }
    // Shows or hides the song list and stores the choice.
    void setListVisible(bool visible);

    WindowActions& actions() const { return *m_actions; }
    QString subtitle() const;

signals:
    void listVisibleChanged();
    void subtitleChanged();
    // Emitted once, when the window is first shown.
    void firstShown();

protected:
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;
    // Files dropped anywhere on the window; the song list takes those dropped on it itself.
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildToolbar();
    QWidget* buildContent();
    void showTitle();
    void showSubtitle();
    void showListState();
    void searchTextChanged(const QString& text);
    void resizeWindowForList(bool collapsing);
    int chromeHeight() const;
    void showAbout();
    void showSaveIcon();

    LibraryStore& m_store;
    MetadataService& m_metadata;
    FileDialogs m_dialogs;
    QSettings& m_settings;
    CoverThumbnails* m_covers;
    WindowActions* m_actions;
    WindowAlerts* m_alerts;

    TransportBar* m_transport = nullptr;
    QWidget* m_content = nullptr;
    QWidget* m_handleRow = nullptr;
    QToolButton* m_listToggle = nullptr;
    QLabel* m_hiddenCaption = nullptr;
    QWidget* m_listDivider = nullptr;
    SongListArea* m_songList = nullptr;
    QLineEdit* m_search = nullptr;
    QAction* m_importIndicator = nullptr;
    QLabel* m_status = nullptr;

    bool m_isListVisible = true;
    bool m_autoExpandedForSearch = false;
    bool m_wasShown = false;
    int m_expandedRootHeight = 0;
    std::optional<int> m_restoreFrameHeight;
};
