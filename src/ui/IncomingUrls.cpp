#include "ui/IncomingUrls.h"

#include "library/PlaylistFile.h"
#include "store/LibraryStore.h"

#include <algorithm>

void handleIncomingURLs(LibraryStore& store, const QList<QUrl>& urls) {
    const auto playlist = std::find_if(urls.begin(), urls.end(), PlaylistFile::isPlaylist);
    if (playlist == urls.end()) {
        if (!urls.isEmpty())
            store.addURLs(urls);
        return;
    }
    const bool onlyPlaylists = std::all_of(urls.begin(), urls.end(), PlaylistFile::isPlaylist);
    store.openPlaylist(*playlist, store.tracks().isEmpty() || onlyPlaylists);
}
