#include "ui/FileDialogs.h"

#include "library/MetadataLoader.h"
#include "library/PlaylistFile.h"

#include <QFileDialog>

#include <algorithm>

namespace {

QString patterns(const QSet<QString>& extensions) {
    QStringList sorted(extensions.begin(), extensions.end());
    std::sort(sorted.begin(), sorted.end());
    for (QString& extension : sorted)
        extension.prepend(QStringLiteral("*."));
    return sorted.join(' ');
}

// Each dialog is made anew at every use, as the desktop's dialogs expect.
QList<QUrl> runOpen(QWidget* parent, const QString& title, const QString& accept, QFileDialog::FileMode mode,
                    const QStringList& filters) {
    QFileDialog dialog(parent, title);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(mode);
    dialog.setLabelText(QFileDialog::Accept, accept);
    if (mode == QFileDialog::Directory)
        dialog.setOption(QFileDialog::ShowDirsOnly);
    else
        dialog.setNameFilters(filters);
    if (dialog.exec() != QDialog::Accepted)
        return {};
    return dialog.selectedUrls();
}

} // namespace

QUrl playlistSaveUrl(const QUrl& chosen) {
    if (PlaylistFile::isPlaylist(chosen))
        return chosen;
    QUrl extended = chosen;
    extended.setPath(chosen.path() + QStringLiteral(".m3u8"));
    return extended;
}

QStringList audioNameFilters() {
    return {QStringLiteral("Audio files (%1)").arg(patterns(MetadataLoader::playableExtensions()))};
}

QStringList playlistNameFilters() {
    return {QStringLiteral("Playlists (%1)").arg(patterns(PlaylistFile::playlistExtensions())),
            QStringLiteral("All files (*)")};
}

FileDialogs FileDialogs::system() {
    FileDialogs dialogs;
    // Songs and folders can't be chosen in one desktop dialog, so "Add Music…" takes files and the
    // folders come through "Add Folder…".
    dialogs.chooseMusicFiles = [](QWidget* parent) {
        return runOpen(parent, QStringLiteral("Add Music"), QStringLiteral("Add"), QFileDialog::ExistingFiles,
                       audioNameFilters());
    };
    dialogs.chooseFolders = [](QWidget* parent) {
        return runOpen(parent, QStringLiteral("Add Folder"), QStringLiteral("Add"), QFileDialog::Directory,
                       {});
    };
    dialogs.choosePlaylistFile = [](QWidget* parent) -> std::optional<QUrl> {
        const QList<QUrl> chosen = runOpen(parent, QStringLiteral("Open Playlist"), QStringLiteral("Open"),
                                           QFileDialog::ExistingFile, playlistNameFilters());
        if (chosen.isEmpty())
            return std::nullopt;
        return chosen.first();
    };
    dialogs.chooseSaveDestination = [](QWidget* parent, const QString& suggestedName) -> std::optional<QUrl> {
        QFileDialog dialog(parent, QStringLiteral("Save Playlist"));
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setFileMode(QFileDialog::AnyFile);
        dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Save"));
        dialog.setNameFilters(playlistNameFilters());
        dialog.selectFile(suggestedName + QStringLiteral(".m3u8"));
        if (dialog.exec() != QDialog::Accepted || dialog.selectedUrls().isEmpty())
            return std::nullopt;
        return playlistSaveUrl(dialog.selectedUrls().first());
    };
    return dialogs;
}
