#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariantMap>

// One Orvelle per desktop session. The first program to start owns the session bus name of the
// application id and serves org.freedesktop.Application (Activate, Open) at the id's object path; a later
// launch hands its files to that one and ends. The desktop's D-Bus activation calls the same methods.
// Without a session bus every launch runs on its own.
//
// Main thread only. Requests arrive as signals, queued by the bus until the event loop runs.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    static inline const QString appId = QStringLiteral("org.orvelle.Orvelle");
    static inline const QString objectPath = QStringLiteral("/org/orvelle/Orvelle");

    explicit SingleInstance(QObject* parent = nullptr);
    ~SingleInstance() override;

    // Tries to become the one instance. False when another program owns the name.
    bool claim();
    // Hands `urls` (or, with none, a request to show itself) to the instance that owns the name.
    // False when there is none or it did not answer.
    static bool handOver(const QList<QUrl>& urls);

    // The window's status line, read-only on the bus (org.orvelle.Orvelle.Window.Status) for scripts.
    QString status() const { return m_status; }
    void setStatus(const QString& status);

signals:
    void activateRequested();
    void openRequested(const QList<QUrl>& urls);

private:
    QDBusConnection m_bus;
    bool m_owned = false;
    QString m_status;
};

// org.freedesktop.Application over a SingleInstance.
class ApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    explicit ApplicationAdaptor(SingleInstance* instance);

public slots:
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& name, const QVariantList& parameter, const QVariantMap& platformData);

private:
    SingleInstance* m_instance;
};

// org.orvelle.Orvelle.Window: what the window shows, for scripts and tests.
class WindowAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.orvelle.Orvelle.Window")
    Q_PROPERTY(QString Status READ status)
public:
    explicit WindowAdaptor(SingleInstance* instance);
    QString status() const { return m_instance->status(); }

private:
    SingleInstance* m_instance;
};
