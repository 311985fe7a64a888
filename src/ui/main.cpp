// The program: one window over the one playlist, one instance per desktop session.

#include "OrvelleVersion.h"
#include "playback/MpvAudioPlayer.h"
#include "ui/MainWindow.h"
#include "ui/OrvelleApp.h"
#include "ui/SingleInstance.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QIcon>
#include <QSettings>

namespace {

// Files and URIs from the command line (the desktop entry passes URIs), made absolute.
QList<QUrl> requestedUrls(const QStringList& arguments) {
    QList<QUrl> urls;
    for (const QString& argument : arguments)
        urls << QUrl::fromUserInput(argument, QDir::currentPath(), QUrl::AssumeLocalFile);
    return urls;
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Orvelle"));
    QApplication::setApplicationName(QStringLiteral("Orvelle"));
    QApplication::setApplicationVersion(QString::fromUtf8(orvelle::build::version));
    QApplication::setDesktopFileName(SingleInstance::appId);
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/org.orvelle.Orvelle.svg")));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A music player for your own files."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("files"),
                                 QStringLiteral("Songs, folders or playlists to open."),
                                 QStringLiteral("[FILE…]"));
    parser.process(app);
    const QList<QUrl> urls = requestedUrls(parser.positionalArguments());

    SingleInstance instance;
    if (!instance.claim())
        return SingleInstance::handOver(urls) ? 0 : 1;

    QSettings settings;
    OrvelleApp orvelle(settings, MpvAudioPlayer::factory(), FileDialogs::system());
    MainWindow& window = orvelle.window();
    QObject::connect(&instance, &SingleInstance::activateRequested, &orvelle, &OrvelleApp::raise);
    QObject::connect(&instance, &SingleInstance::openRequested, &orvelle,
                     [&orvelle](const QList<QUrl>& more) {
                         orvelle.open(more);
                         orvelle.raise();
                     });
    const auto publishStatus = [&instance, &window] { instance.setStatus(window.subtitle()); };
    QObject::connect(&window, &MainWindow::subtitleChanged, &instance, publishStatus);
    publishStatus();

    orvelle.start();
    if (!urls.isEmpty())
        orvelle.open(urls);
    return app.exec();
}
