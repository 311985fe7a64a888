#include "ui/SingleInstance.h"

#include "ui/UiLog.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace {

const QString applicationInterface = QStringLiteral("org.freedesktop.Application");

// The desktop hands a window-activation token along; Qt's Wayland support reads it from here.
void takeActivationToken(const QVariantMap& platformData) {
    const QString token = platformData.value(QStringLiteral("activation-token")).toString();
    if (!token.isEmpty())
        qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
}

} // namespace

SingleInstance::SingleInstance(QObject* parent)
    : QObject(parent)
    , m_bus(QDBusConnection::sessionBus()) {}

SingleInstance::~SingleInstance() {
    if (m_owned) {
        m_bus.unregisterService(appId);
        m_bus.unregisterObject(objectPath);
    }
}

bool SingleInstance::claim() {
    if (!m_bus.isConnected()) {
        qCDebug(lcUi) << "No session bus; running as a lone instance";
        return true;
    }
    new ApplicationAdaptor(this);
    new WindowAdaptor(this);
    if (!m_bus.registerObject(objectPath, this, QDBusConnection::ExportAdaptors)) {
        qCWarning(lcUi) << "Cannot export" << objectPath << m_bus.lastError().message();
        return true;
    }
    const auto reply = m_bus.interface()->registerService(appId, QDBusConnectionInterface::DontQueueService,
                                                          QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered) {
        m_owned = true;
        return true;
    }
    m_bus.unregisterObject(objectPath);
    return !reply.isValid(); // a bus that cannot answer leaves this program on its own
}

bool SingleInstance::handOver(const QList<QUrl>& urls) {
    QDBusMessage call;
    if (urls.isEmpty()) {
        call = QDBusMessage::createMethodCall(appId, objectPath, applicationInterface,
                                              QStringLiteral("Activate"));
        call << QVariantMap();
    } else {
        call =
            QDBusMessage::createMethodCall(appId, objectPath, applicationInterface, QStringLiteral("Open"));
        QStringList uris;
        for (const QUrl& url : urls)
            uris << url.toString(QUrl::FullyEncoded);
        call << uris << QVariantMap();
    }
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        qCWarning(lcUi) << "The running Orvelle did not take the request:" << reply.errorMessage();
        return false;
    }
    return true;
}

void SingleInstance::setStatus(const QString& status) {
    m_status = status;
}

ApplicationAdaptor::ApplicationAdaptor(SingleInstance* instance)
    : QDBusAbstractAdaptor(instance)
    , m_instance(instance) {}

void ApplicationAdaptor::Activate(const QVariantMap& platformData) {
    takeActivationToken(platformData);
    emit m_instance->activateRequested();
}

void ApplicationAdaptor::Open(const QStringList& uris, const QVariantMap& platformData) {
    takeActivationToken(platformData);
    QList<QUrl> urls;
    for (const QString& uri : uris)
        urls << QUrl(uri, QUrl::StrictMode);
    emit m_instance->openRequested(urls);
}

void ApplicationAdaptor::ActivateAction(const QString&, const QVariantList&,
                                        const QVariantMap& platformData) {
    // The program offers no actions of its own; showing the window is the closest answer.
    Activate(platformData);
}

WindowAdaptor::WindowAdaptor(SingleInstance* instance)
    : QDBusAbstractAdaptor(instance)
    , m_instance(instance) {}
