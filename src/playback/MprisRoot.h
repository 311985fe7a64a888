#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>

#include <functional>

// org.mpris.MediaPlayer2: who the player is and the window requests (raise, quit).
//
// The requests go to the callbacks given at construction, on the main thread; the window decides what
// they do. Local files can be opened (through the player interface's OpenUri).
class MprisRoot : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ canQuit CONSTANT)
    Q_PROPERTY(bool CanRaise READ canRaise CONSTANT)
    Q_PROPERTY(bool HasTrackList READ hasTrackList CONSTANT)
    Q_PROPERTY(QString Identity READ identity CONSTANT)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry CONSTANT)
    Q_PROPERTY(QStringList SupportedUriSchemes READ supportedUriSchemes CONSTANT)
    Q_PROPERTY(QStringList SupportedMimeTypes READ supportedMimeTypes CONSTANT)

public:
    // `parent` is the object exported at /org/mpris/MediaPlayer2.
    MprisRoot(QObject* parent, std::function<void()> onRaise, std::function<void()> onQuit);

    bool canQuit() const { return true; }
    bool canRaise() const { return true; }
    bool hasTrackList() const { return false; }
    QString identity() const { return QStringLiteral("Orvelle"); }
    // The desktop file's name without ".desktop": the application id (data/org.orvelle.Orvelle.desktop).
    QString desktopEntry() const { return QStringLiteral("org.orvelle.Orvelle"); }
    QStringList supportedUriSchemes() const { return {QStringLiteral("file")}; }
    QStringList supportedMimeTypes() const;

public slots:
    void Raise();
    void Quit();

private:
    std::function<void()> m_onRaise;
    std::function<void()> m_onQuit;
};
