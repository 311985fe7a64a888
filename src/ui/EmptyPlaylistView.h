#pragma once

#include <QWidget>

class LibraryStore;
struct FileDialogs;

// What the list area shows while the playlist is empty: an illustration, "Drop music here", the kinds of
// files it takes, and the "Add Music…" and "Open Playlist…" buttons. Highlights itself while files are
// dragged over it.
class EmptyPlaylistView : public QWidget {
    Q_OBJECT
public:
    EmptyPlaylistView(LibraryStore& store, const FileDialogs& dialogs, QWidget* parent = nullptr);

    void setDropTargeted(bool targeted);
    bool isDropTargeted() const { return m_dropTargeted; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool m_dropTargeted = false;
};

// A centred title with a message below it, such as "No matches".
class ContentUnavailableMessage : public QWidget {
    Q_OBJECT
public:
    explicit ContentUnavailableMessage(QWidget* parent = nullptr);

    void setMessage(const QString& title, const QString& message);
    QString title() const;
    QString message() const;

private:
    class QLabel* m_title;
    class QLabel* m_message;
};
