#include "playback/MprisRoot.h"

MprisRoot::MprisRoot(QObject* parent, Requests requests)
    : QDBusAbstractAdaptor(parent)
    , m_requests(std::move(requests)) {}

QStringList MprisRoot::supportedMimeTypes() const {
    // The types of the playable extensions and of the playlists, as the desktop file lists them.
    return {"audio/mpeg",  "audio/mp4",  "audio/x-m4a", "audio/x-m4b",   "audio/aac",     "audio/x-aiff",
            "audio/x-wav", "audio/x-caf", "audio/flac", "audio/basic",   "audio/x-mpegurl", "audio/x-scpls"};
}

void MprisRoot::Raise() {
    m_requests.raise();
}

void MprisRoot::Quit() {
    m_requests.quit();
}

void MprisRoot::OpenUri(const QString& uri) {
    m_requests.openUri(uri);
}
