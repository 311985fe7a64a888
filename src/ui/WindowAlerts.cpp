#include "ui/WindowAlerts.h"

#include "services/UpdateChecker.h"
#include "store/LibraryStore.h"

#include <QDesktopServices>
#include <QPushButton>

WindowAlerts::WindowAlerts(LibraryStore& store, UpdateChecker& updater, QWidget* window)
    : QObject(window)
    , m_store(store)
    , m_updater(updater)
    , m_window(window) {
    connect(&store, &LibraryStore::pendingClearConfirmationChanged, this,
            &WindowAlerts::showCloseConfirmation);
    connect(&store, &LibraryStore::pendingOpenURLChanged, this, &WindowAlerts::showReplaceConfirmation);
    connect(&store, &LibraryStore::errorMessageChanged, this, &WindowAlerts::showError);
    connect(&updater, &UpdateChecker::availableUpdateChanged, this, &WindowAlerts::showUpdateAvailable);
    connect(&updater, &UpdateChecker::manualCheckResultChanged, this, &WindowAlerts::showUpdateResult);
}

void WindowAlerts::present(const QString& name, const QString& title, const QString& message,
                           const QList<Button>& buttons, std::function<void()> dismiss) {
    close(name);
    auto* box = new QMessageBox(m_window);
    box->setObjectName(name);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(title);
    box->setText(title); // desktops may hide a dialog's title; the alert must not lose it
    box->setInformativeText(message);
    QHash<QAbstractButton*, std::function<void()>> actions;
    for (const Button& button : buttons) {
        QPushButton* pushButton = box->addButton(button.text, button.role);
        actions.insert(pushButton, button.action);
        if (button.role == QMessageBox::AcceptRole || buttons.size() == 1)
            box->setDefaultButton(pushButton);
    }
    connect(box, &QMessageBox::finished, this, [this, box, name, actions, dismiss] {
        if (m_open.value(name) != box)
            return; // replaced or closed because its state went away
        m_open.remove(name);
        if (const auto action = actions.value(box->clickedButton()))
            action();
        dismiss();
    });
    m_open.insert(name, box);
    box->open();
}

void WindowAlerts::close(const QString& name) {
    if (QPointer<QMessageBox> box = m_open.take(name))
        box->close();
}

void WindowAlerts::showCloseConfirmation() {
    if (!m_store.pendingClearConfirmation())
        return close(QStringLiteral("closeConfirmation"));
    present(
        QStringLiteral("closeConfirmation"), QStringLiteral("Close this playlist?"),
        QStringLiteral("This playlist has changes that haven't been saved to a file. Your music files "
                       "themselves aren't affected."),
        {{QStringLiteral("Save First…"), QMessageBox::AcceptRole,
          [this] {
              m_store.save();
              if (!m_store.hasUnsavedChanges())
                  m_store.clear();
          }},
         {QStringLiteral("Close Without Saving"), QMessageBox::DestructiveRole, [this] { m_store.clear(); }},
         {QStringLiteral("Cancel"), QMessageBox::RejectRole, {}}},
        [this] { m_store.setPendingClearConfirmation(false); });
}

void WindowAlerts::showReplaceConfirmation() {
    if (m_store.pendingOpenURL().isEmpty())
        return close(QStringLiteral("replaceConfirmation"));
    present(
        QStringLiteral("replaceConfirmation"), QStringLiteral("Replace the current playlist?"),
        QStringLiteral("The playlist you have open has unsaved changes. Opening another one discards "
                       "them. Your music files aren't affected."),
        {{QStringLiteral("Replace"), QMessageBox::DestructiveRole, [this] { m_store.confirmPendingOpen(); }},
         {QStringLiteral("Cancel"), QMessageBox::RejectRole, {}}},
        [this] { m_store.setPendingOpenURL({}); });
}

QString WindowAlerts::updateMessage() const {
    const std::optional<UpdateChecker::Release> release = m_updater.availableUpdate();
    if (!release)
        return {};
    QStringList paragraphs{QStringLiteral("Version %1 is available. You have %2.")
                               .arg(release->latestVersion, m_updater.installedVersion())};
    if (release->notes && !release->notes->isEmpty())
        paragraphs << *release->notes;
    if (const std::optional<QString> requirement = release->systemRequirement())
        paragraphs << *requirement;
    return paragraphs.join(QStringLiteral("\n\n"));
}

void WindowAlerts::showUpdateAvailable() {
    const std::optional<UpdateChecker::Release> release = m_updater.availableUpdate();
    if (!release)
        return close(QStringLiteral("updateAvailable"));
    QList<Button> buttons{{QStringLiteral("Download"), QMessageBox::AcceptRole,
                           [url = release->downloadURL] { QDesktopServices::openUrl(url); }}};
    if (release->releaseNotesURL) {
        buttons << Button{QStringLiteral("What's New"), QMessageBox::ActionRole,
                          [url = *release->releaseNotesURL] { QDesktopServices::openUrl(url); }};
    }
    buttons << Button{QStringLiteral("Skip This Version"), QMessageBox::DestructiveRole,
                      [this, release = *release] { m_updater.skipVersion(release); }}
            << Button{QStringLiteral("Later"), QMessageBox::RejectRole, {}};
    present(QStringLiteral("updateAvailable"), QStringLiteral("A new version is available"), updateMessage(),
            buttons, [this] { m_updater.setAvailableUpdate(std::nullopt); });
}

void WindowAlerts::showUpdateResult() {
    const std::optional<QString> result = m_updater.manualCheckResult();
    if (!result)
        return close(QStringLiteral("updateResult"));
    present(QStringLiteral("updateResult"), QStringLiteral("Check for Updates"), *result,
            {{QStringLiteral("OK"), QMessageBox::AcceptRole, {}}},
            [this] { m_updater.setManualCheckResult(std::nullopt); });
}

void WindowAlerts::showError() {
    if (m_store.errorMessage().isEmpty())
        return close(QStringLiteral("error"));
    present(QStringLiteral("error"), QStringLiteral("Something went wrong"), m_store.errorMessage(),
            {{QStringLiteral("OK"), QMessageBox::AcceptRole, {}}}, [this] { m_store.setErrorMessage({}); });
}
