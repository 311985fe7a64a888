#include "ui/InspectorRules.h"

#include <QFileInfo>
#include <QLocale>
#include <QStringList>

#include <limits>

FileDetails loadFileDetails(const Track& track) {
    const QFileInfo file(track.url().toLocalFile());
    return {file.suffix().toUpper(), file.exists() ? file.size() : 0, track.duration};
}

QString factsLine(const FileDetails& facts) {
    QStringList parts{facts.kind,
                      QLocale::c().formattedDataSize(facts.byteCount, 1, QLocale::DataSizeSIFormat)};
    if (facts.duration > 0) {
        parts.append(formatTime(facts.duration));
        const double kbps = double(facts.byteCount) * 8 / facts.duration / 1000;
        // A rate beyond 64 bits only comes from an absurdly short duration; it is left out.
        if (kbps >= 1 && kbps < double(std::numeric_limits<qint64>::max()))
            parts.append(QStringLiteral("≈%1 kbps").arg(qint64(kbps)));
    }
    return parts.join(QStringLiteral(" · "));
}

bool isMP3(const QUrl& url) {
    return QFileInfo(url.path()).suffix().toLower() == QLatin1String("mp3");
}

bool canSave(const Track& track, bool edited, bool embedFolderArtwork, bool isSaving) {
    return isMP3(track.url()) && !track.isMissing && !isSaving && (edited || embedFolderArtwork);
}

bool offersArtworkEmbedding(const Track& track) {
    return track.artworkSource().kind() == ArtworkSource::Kind::Folder && isMP3(track.url()) &&
           !track.isMissing;
}

FooterNote footerNote(const Track& track, const std::optional<QString>& saveError, bool edited) {
    if (track.isMissing)
        return {FooterNote::Kind::Info, QStringLiteral("File is missing — nothing can be saved.")};
    if (!isMP3(track.url()))
        return {FooterNote::Kind::Info, QStringLiteral("Saving supports MP3 files only. This is a .%1 file.")
                                            .arg(QFileInfo(track.url().path()).suffix().toLower())};
    if (saveError)
        return {FooterNote::Kind::Warning, *saveError};
    if (edited)
        return {FooterNote::Kind::Plain,
                QStringLiteral("Changes are written into the file's ID3 tags when you save.")};
    return {};
}

QString lookupSummary(const RemoteMetadata& remote, int differing) {
    if (differing == 0)
        return remote.sourceName + QStringLiteral(" agrees with your local metadata.");
    return QStringLiteral("%1 suggests %2 different %3, shown in grey below.")
        .arg(remote.sourceName)
        .arg(differing)
        .arg(differing == 1 ? QStringLiteral("value") : QStringLiteral("values"));
}

std::optional<QString> confidenceBadge(int confidence) {
    if (confidence < 1)
        return std::nullopt;
    return QStringLiteral("%1% match").arg(confidence);
}

QString useAllTitle(const RemoteMetadata& remote, int differing) {
    return QStringLiteral("Replace %1 local %2 with %3 data?")
        .arg(differing)
        .arg(differing == 1 ? QStringLiteral("field") : QStringLiteral("fields"))
        .arg(remote.sourceName);
}

QString useAllButtonText(int differing) {
    return QStringLiteral("Replace %1 %2")
        .arg(differing)
        .arg(differing == 1 ? QStringLiteral("Field") : QStringLiteral("Fields"));
}
