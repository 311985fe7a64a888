#include "ui/WindowActions.h"

#include "playback/PlayerEngine.h"
#include "services/UpdateChecker.h"
#include "store/LibraryStore.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QWidget>

WindowActions::WindowActions(LibraryStore& store, UpdateChecker& updater, FileDialogs dialogs,
                             QWidget* window, WindowHooks hooks)
    : QObject(window)
    , m_store(store)
    , m_engine(*store.engine())
    , m_updater(updater)
    , m_dialogs(std::move(dialogs))
    , m_window(window) {
    const auto chosenPlaylist = [this] { return m_dialogs.choosePlaylistFile(m_window); };

    closePlaylist = make("Close Playlist", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_W),
                         [this] { m_store.requestClear(); });
    // An empty choice still goes to addURLs, which does nothing with it.
    addMusic = make("Add Music…", QKeySequence(Qt::CTRL | Qt::Key_O),
                    [this] { m_store.addURLs(m_dialogs.chooseMusicFiles(m_window)); });
    addFolder = make("Add Folder…", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O),
                     [this] { m_store.addURLs(m_dialogs.chooseFolders(m_window)); });
    const auto requestOpen = [this, chosenPlaylist] {
        if (const std::optional<QUrl> url = chosenPlaylist())
            m_store.requestOpenPlaylist(*url);
    };
    openPlaylist = make("Open Playlist…", QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_O), requestOpen);
    openPlaylistReplacing = make("Open Playlist, Replacing This One…", {}, requestOpen);
    addSongsFromPlaylist = make("Add Songs from Playlist…", {}, [this, chosenPlaylist] {
        if (const std::optional<QUrl> url = chosenPlaylist())
            m_store.openPlaylist(*url, false);
    });
    savePlaylist = make("Save Playlist", QKeySequence(Qt::CTRL | Qt::Key_S), [this] { m_store.save(); });
    savePlaylistAs = make("Save Playlist As…", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S),
                          [this] { m_store.saveAs(); });
    quit = make("Quit", QKeySequence(Qt::CTRL | Qt::Key_Q), [this] { m_window->close(); });

    toggleSongList = make("Show/Hide Song List", QKeySequence(Qt::CTRL | Qt::Key_L), hooks.toggleSongList);

    // Space is a window shortcut: a text field that takes the space as text comes first.
    playPause = make("Play", QKeySequence(Qt::Key_Space), [this] { m_engine.togglePlayPause(); });
    next = make("Next", QKeySequence(Qt::CTRL | Qt::Key_Right), [this] { m_engine.advance(1, true); });
    previous = make("Previous", QKeySequence(Qt::CTRL | Qt::Key_Left), [this] { m_engine.previous(); });
    skipForward = make("Skip Forward 10 Seconds", QKeySequence(Qt::CTRL | Qt::Key_BracketRight),
                       [this] { m_engine.skip(10); });
    skipBack = make("Skip Back 10 Seconds", QKeySequence(Qt::CTRL | Qt::Key_BracketLeft),
                    [this] { m_engine.skip(-10); });
    // Ctrl+H: Ctrl+Meta+H would be taken by desktops that bind Meta.
    shuffle = make("Shuffle", QKeySequence(Qt::CTRL | Qt::Key_H), {});
    shuffle->setCheckable(true);
    connect(shuffle, &QAction::triggered, this, [this](bool on) { m_engine.setShuffling(on); });
    m_repeat = new QActionGroup(this);
    const std::pair<QAction**, std::pair<const char*, RepeatMode>> choices[] = {
        {&repeatOff, {"Off", RepeatMode::Off}},
        {&repeatAll, {"All", RepeatMode::All}},
        {&repeatOne, {"One", RepeatMode::One}}};
    for (const auto& [field, choice] : choices) {
        const RepeatMode mode = choice.second;
        *field = make(choice.first, {}, [this, mode] { m_engine.setRepeatMode(mode); });
        (*field)->setCheckable(true);
        m_repeat->addAction(*field);
    }
    volumeUp =
        make("Volume Up", QKeySequence(Qt::CTRL | Qt::Key_Up), [this] { m_engine.adjustVolume(0.1f); });
    volumeDown =
        make("Volume Down", QKeySequence(Qt::CTRL | Qt::Key_Down), [this] { m_engine.adjustVolume(-0.1f); });

    about = make("About Orvelle", {}, hooks.showAbout);
    checkForUpdates = make("Check for Updates…", {}, [this] { m_updater.checkNow(); });

    connect(&store, &LibraryStore::tracksChanged, this, &WindowActions::refresh);
    connect(&m_engine, &PlayerEngine::isPlayingChanged, this, &WindowActions::refresh);
    connect(&m_engine, &PlayerEngine::isShufflingChanged, this, &WindowActions::refresh);
    connect(&m_engine, &PlayerEngine::repeatModeChanged, this, &WindowActions::refresh);
    connect(&updater, &UpdateChecker::isCheckingChanged, this, &WindowActions::refresh);
    refresh();
}

QAction* WindowActions::make(const QString& text, const QKeySequence& shortcut,
                             std::function<void()> action) {
    auto* item = new QAction(text, m_window);
    item->setShortcut(shortcut);
    if (action)
        connect(item, &QAction::triggered, this, std::move(action));
    // Actions live on the window so their shortcuts work even where no menu shows them.
    m_window->addAction(item);
    return item;
}

void WindowActions::refresh() {
    const bool hasSongs = !m_store.tracks().isEmpty();
    for (QAction* item : {closePlaylist, savePlaylist, savePlaylistAs, playPause})
        item->setEnabled(hasSongs);
    playPause->setText(m_engine.isPlaying() ? QStringLiteral("Pause") : QStringLiteral("Play"));
    shuffle->setChecked(m_engine.isShuffling());
    const RepeatMode mode = m_engine.repeatMode();
    (mode == RepeatMode::Off ? repeatOff : mode == RepeatMode::All ? repeatAll : repeatOne)->setChecked(true);
    checkForUpdates->setEnabled(!m_updater.isChecking());
}

void WindowActions::fillMenuBar(QMenuBar* bar) const {
    QMenu* file = bar->addMenu(QStringLiteral("&File"));
    file->addAction(closePlaylist);
    file->addSeparator();
    file->addActions({addMusic, addFolder, openPlaylist, addSongsFromPlaylist});
    file->addSeparator();
    file->addActions({savePlaylist, savePlaylistAs});
    file->addSeparator();
    file->addAction(quit);

    bar->addMenu(QStringLiteral("&View"))->addAction(toggleSongList);

    QMenu* playback = bar->addMenu(QStringLiteral("&Playback"));
    playback->addActions({playPause, next, previous});
    playback->addSeparator();
    playback->addActions({skipForward, skipBack});
    playback->addSeparator();
    playback->addAction(shuffle);
    playback->addMenu(QStringLiteral("Repeat"))->addActions(m_repeat->actions());
    playback->addSeparator();
    playback->addActions({volumeUp, volumeDown});

    QMenu* help = bar->addMenu(QStringLiteral("&Help"));
    help->addActions({about, checkForUpdates});
}
