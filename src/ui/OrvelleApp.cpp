#include "ui/OrvelleApp.h"

#include "playback/NowPlaying.h"
#include "services/MetadataService.h"
#include "services/UpdateChecker.h"
#include "store/LibraryStore.h"
#include "ui/MainWindow.h"

#include <QApplication>

OrvelleApp::OrvelleApp(QSettings& settings, AudioPlayerFactory audio, FileDialogs dialogs, QObject* parent)
    : QObject(parent) {
    // The store asks for a save destination through the window's dialog; the window comes later.
    auto chooser = [this, choose = dialogs.chooseSaveDestination](const QString& name) {
        return choose(m_window.get(), name);
    };
    m_store = std::make_unique<LibraryStore>(&settings, std::move(audio), chooser);
    m_updater = std::make_unique<UpdateChecker>(&settings);
    m_nowPlaying = std::make_unique<NowPlaying>(m_store->engine());
    m_window = std::make_unique<MainWindow>(*m_store, *m_updater, MetadataService::shared(),
                                            std::move(dialogs), settings);

    connect(m_nowPlaying.get(), &NowPlaying::raiseRequested, this, &OrvelleApp::raise);
    connect(m_nowPlaying.get(), &NowPlaying::quitRequested, m_window.get(), &QWidget::close);
    connect(m_nowPlaying.get(), &NowPlaying::openRequested, this, [this](const QUrl& url) { open({url}); });
    connect(m_window.get(), &MainWindow::firstShown, this, [this] {
        m_store->restoreSession().then(this, [this] {
            m_restored = true;
            emit sessionRestored();
            if (!m_waiting.isEmpty())
                m_window->openUrls(std::exchange(m_waiting, {}));
        });
        m_updater->checkIfDue();
    });
    // Closing the window ends the program; the files it reached stop being accessed.
    connect(qApp, &QCoreApplication::aboutToQuit, m_store.get(), &LibraryStore::stopAccessingAll);
}

OrvelleApp::~OrvelleApp() = default;

void OrvelleApp::start() {
    m_window->show();
}

void OrvelleApp::open(const QList<QUrl>& urls) {
    if (m_restored)
        m_window->openUrls(urls);
    else
        m_waiting << urls;
}

void OrvelleApp::raise() {
    m_window->showNormal();
    m_window->raise();
    m_window->activateWindow();
}
