#include "playback/MprisRoot.h"

MprisRoot::MprisRoot(QObject* parent, std::function<void()> onRaise, std::function<void()> onQuit)
    : QDBusAbstractAdaptor(parent)
    , m_onRaise(std::move(onRaise))
    , m_onQuit(std::move(onQuit)) {}

QStringList MprisRoot::supportedMimeTypes() const {
    // The types of the playable extensions and of the playlists, as the desktop file lists them.
    return {"audio/mpeg",  "audio/mp4",   "audio/x-m4a", "audio/x-m4b", "audio/aac",       "audio/x-aiff",
            "audio/x-wav", "audio/x-caf", "audio/flac",  "audio/basic", "audio/x-mpegurl", "audio/x-scpls"};
}

void MprisRoot::Raise() {
    m_onRaise();
}

void MprisRoot::Quit() {
    m_onQuit();
}
