#pragma once

#include <QHash>
#include <QMessageBox>
#include <QObject>
#include <QPointer>

#include <functional>

class LibraryStore;
class QWidget;
class UpdateChecker;

// The main window's five alerts, each shown while the state it presents is there and each setting that
// state back when it closes: the close and replace confirmations (the store's pending flags), the update
// offer and the manual check's result (the update checker), and the store's error message.
//
// Alerts are window-modal and opened without blocking (QMessageBox::open), so the window goes on
// drawing; a button's action runs once the alert closes. Each alert's object name says which it is:
// closeConfirmation, replaceConfirmation, updateAvailable, updateResult, error.
class WindowAlerts : public QObject {
    Q_OBJECT
public:
    WindowAlerts(LibraryStore& store, UpdateChecker& updater, QWidget* window);

    // The update offer's text for the release on offer; empty when there is none.
    QString updateMessage() const;

private:
    struct Button {
        QString text;
        QMessageBox::ButtonRole role;
        std::function<void()> action;
    };

    // Opens the alert `name`, replacing one of that name already open. `dismiss` runs after every way
    // of closing it, after the button's action.
    void present(const QString& name, const QString& title, const QString& message,
                 const QList<Button>& buttons, std::function<void()> dismiss);
    void close(const QString& name);

    void showCloseConfirmation();
    void showReplaceConfirmation();
    void showUpdateAvailable();
    void showUpdateResult();
    void showError();

    LibraryStore& m_store;
    UpdateChecker& m_updater;
    QWidget* m_window;
    QHash<QString, QPointer<QMessageBox>> m_open;
};
