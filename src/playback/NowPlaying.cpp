#include "playback/NowPlaying.h"

#include "playback/MprisPlayer.h"
#include "playback/MprisRoot.h"
#include "playback/PlaybackLog.h"
#include "playback/PlayerEngine.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>

static const QString objectPath = QStringLiteral("/org/mpris/MediaPlayer2");
static const QString baseServiceName = QStringLiteral("org.mpris.MediaPlayer2.orvelle");

NowPlaying::NowPlaying(PlayerEngine* engine, QObject* parent)
    : QObject(parent)
    , m_engine(engine)
    , m_bus(QDBusConnection::sessionBus())
    , m_player(new MprisPlayer(this, engine, m_bus)) {
    new MprisRoot(
        this, [this] { emit raiseRequested(); }, [this] { emit quitRequested(); });
    m_player->setOpenHandler([this](const QUrl& url) { emit openRequested(url); });
    m_serviceName = registerOnBus();
    engine->setNowPlayingPublisher(this);
}

NowPlaying::~NowPlaying() {
    if (m_engine)
        m_engine->setNowPlayingPublisher(nullptr);
    if (!m_serviceName.isEmpty()) {
        m_bus.unregisterService(m_serviceName);
        m_bus.unregisterObject(objectPath);
    }
}

void NowPlaying::publish(const NowPlayingInfo& info, NowPlayingState state) {
    m_player->publish(info, state);
}

void NowPlaying::clear() {
    m_player->clear();
}

QString NowPlaying::registerOnBus() {
    if (!m_bus.isConnected()) {
        qCDebug(lcPlayback) << "No session bus; media controls are not offered";
        return {};
    }
    if (!m_bus.registerObject(objectPath, this, QDBusConnection::ExportAdaptors)) {
        qCDebug(lcPlayback) << "Cannot export" << objectPath << m_bus.lastError().message();
        return {};
    }
    for (const QString& name :
         {baseServiceName,
          baseServiceName + QStringLiteral(".instance%1").arg(QCoreApplication::applicationPid())}) {
        if (m_bus.registerService(name))
            return name;
    }
    qCDebug(lcPlayback) << "Cannot own an MPRIS name" << m_bus.lastError().message();
    m_bus.unregisterObject(objectPath);
    return {};
}
