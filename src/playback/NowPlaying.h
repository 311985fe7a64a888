#pragma once

#include "playback/NowPlayingPublisher.h"

#include <QDBusConnection>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

class MprisPlayer;
class PlayerEngine;

// The desktop's view of the player: MPRIS 2 on the session bus, under the name
// org.mpris.MediaPlayer2.orvelle at /org/mpris/MediaPlayer2 (interfaces org.mpris.MediaPlayer2 and
// org.mpris.MediaPlayer2.Player). Media keys, sound menus and playerctl read the song from it and drive
// the engine through it.
//
// Attaches itself to the engine as its now-playing publisher for its whole life. When the name is already
// taken (another Orvelle is running) it registers org.mpris.MediaPlayer2.orvelle.instance<pid>, as MPRIS
// asks. Without a session bus it does nothing and says nothing; the engine plays on regardless.
// Main thread only.
class NowPlaying : public QObject, public NowPlayingPublisher {
    Q_OBJECT

public:
    explicit NowPlaying(PlayerEngine* engine, QObject* parent = nullptr);
    ~NowPlaying() override;

    // The bus name owned, or an empty string when there is no session bus.
    QString serviceName() const { return m_serviceName; }

    void publish(const NowPlayingInfo& info, NowPlayingState state) override;
    void clear() override;

signals:
    // A desktop client asked to show the window, to quit the program, or to open a file.
    void raiseRequested();
    void quitRequested();
    void openRequested(const QUrl& url);

private:
    QString registerOnBus();

    QPointer<PlayerEngine> m_engine;
    QDBusConnection m_bus;
    MprisPlayer* m_player;
    QString m_serviceName;
};
