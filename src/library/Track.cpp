#include "library/Track.h"

#include "tags/FileNames.h"

#include <QFileInfo>

#include <cmath>

QString ArtworkSource::label() const {
    switch (m_kind) {
    case Kind::Folder:
        return QStringLiteral("Folder: ") + QFileInfo(m_imageUrl.path()).fileName();
    case Kind::Embedded:
        return QStringLiteral("Embedded in file");
    case Kind::None:
        break;
    }
    return QStringLiteral("No artwork");
}

Track::Track()
    : d([] {
        static const QSharedDataPointer<TrackData> empty(new TrackData);
        return empty;
    }()) {}

QString fileNameWithoutExtension(const QUrl& url) {
    return FileNames::withoutExtension(url.fileName()).toString();
}

QString displayTitle(const Track& track) {
    return track.title().isEmpty() ? fileNameWithoutExtension(track.url()) : track.title();
}

QString displayArtist(const Track& track) {
    return track.artist().isEmpty() ? QStringLiteral("Unknown artist") : track.artist();
}

QString displayAlbum(const Track& track) {
    return track.album().isEmpty() ? QStringLiteral("Unknown album") : track.album();
}

QString formatTime(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0)
        return QString(QChar(0x2014));
    // std::round rounds halves away from zero; llround keeps huge values defined.
    const long long t = std::llround(std::min(seconds, 9.0e15));
    const auto pad = [](long long v) { return QString::number(v).rightJustified(2, QLatin1Char('0')); };
    if (t < 3600)
        return QString::number(t / 60) + QLatin1Char(':') + pad(t % 60);
    return QString::number(t / 3600) + QLatin1Char(':') + pad(t % 3600 / 60) + QLatin1Char(':') + pad(t % 60);
}
