#!/usr/bin/env bash
# Checks that the test suite catches real faults. Each fault below is a one-line change a real bug would
# make (an off-by-one, a flipped comparison, a dropped check …). For each one in turn the script puts it
# into a scratch copy of the tree, rebuilds only the test programs that cover that code, runs them the way
# scripts/run-tests.sh does, and records whether a test failed (caught) or all passed (missed). The
# repository itself is never changed.
#
# Usage: scripts/fault-check.sh [--list] [--no-baseline] [NAME-PATTERN…]
#   NAME-PATTERN   run only the faults whose names match one of these shell patterns (e.g. 'playlist-*')
#   --list         print the faults and the test programs each one runs, then exit
#   --no-baseline  skip the first run of the chosen test programs on the unchanged tree
# Environment: FAULT_SCRATCH (default /tmp/orvelle-faults) holds the copy and its build folder, reused
# between runs (files are copied by content, so a changed file always gets a new time and is rebuilt);
# ccache is used when present. Prints "N caught, M missed"; exits non-zero if any missed.
#
# A fault is one line of the list: name @@ file @@ test programs @@ exact original text @@ replacement.
# The original text must occur exactly once in the file, so that a changed source makes the fault fail
# loudly ("no longer applies") instead of testing nothing.
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
scratch=${FAULT_SCRATCH:-/tmp/orvelle-faults}
tree=$scratch/tree
build=$scratch/build

faults=$(
    cat <<'EOF'
atomic-mode-not-kept @@ src/tags/AtomicFile.cpp @@ atomic_file_test @@ if (::fchmod(fd, target.mode) != 0) @@ if (::fchmod(fd, 0600) != 0)
atomic-old-file-left @@ src/tags/AtomicFile.cpp @@ atomic_file_test @@ ::unlink(temporary.constData()); // now the old file @@ // swapped
atomic-fifo-replaced @@ src/tags/AtomicFile.cpp @@ atomic_file_test @@ if (!S_ISREG(info.st_mode)) @@ if (false)
atomic-relative-link @@ src/tags/AtomicFile.cpp @@ atomic_file_test @@ current = link.startsWith('/') ? link : directoryOf(current) + '/' + link; @@ current = link;
atomic-new-file-private @@ src/tags/AtomicFile.cpp @@ atomic_file_test @@ target.exists ? 0600 : 0666); @@ target.exists ? 0600 : 0600);
artwork-large-bonus @@ src/tags/FolderArtwork.cpp @@ folder_artwork_test @@ score += 15; @@ score += 5;
artwork-hidden-files @@ src/tags/FolderArtwork.cpp @@ folder_artwork_test @@ if (name.startsWith(u'.') || !entry.isFile() @@ if (!entry.isFile()
artwork-smaller-first @@ src/tags/FolderArtwork.cpp @@ folder_artwork_test @@ a.rank > b.rank : a.size > b.size; @@ a.rank > b.rank : a.size < b.size;
artwork-no-parent @@ src/tags/FolderArtwork.cpp @@ folder_artwork_test @@ const QString parent = QFileInfo(folder).path(); @@ const QString parent = folder;
artwork-black-background @@ src/tags/FolderArtwork.cpp @@ folder_artwork_test @@ flat.fill(Qt::white); @@ flat.fill(Qt::black);
id3-syncsafe-shift @@ src/tags/ID3TagWriter.cpp @@ id3_tag_writer_test id3_tag_writer_readers_test @@ char((n >> 14) & 0x7F) @@ char((n >> 15) & 0x7F)
id3-old-v1-kept @@ src/tags/ID3TagWriter.cpp @@ id3_tag_writer_test id3_tag_writer_readers_test @@ == "TAG" ? @@ == "TAX" ?
id3-footer-ignored @@ src/tags/ID3TagWriter.cpp @@ id3_tag_writer_test id3_tag_writer_readers_test @@ start += headerSize; @@ start += 0;
id3-latin1-ascii-only @@ src/tags/ID3TagWriter.cpp @@ id3_tag_writer_test id3_tag_writer_readers_test @@ codePoint <= 0xFF ? char(codePoint) @@ codePoint <= 0x7F ? char(codePoint)
id3-track-cap @@ src/tags/ID3TagWriter.cpp @@ id3_tag_writer_test id3_tag_writer_readers_test @@ std::min<qint64>(*number, 255) @@ std::min<qint64>(*number, 127)
id3-genre-index @@ src/tags/ID3TagWriter.cpp @@ id3_tag_writer_test id3_tag_writer_readers_test @@ return quint8(i); @@ return quint8(i + 1);
id3-v1-comment-width @@ src/tags/ID3TagWriter.cpp @@ id3_tag_writer_test id3_tag_writer_readers_test @@ latin1Field(metadata.comment, 28) @@ latin1Field(metadata.comment, 30)
compare-suggests-case-change @@ src/tags/MusicMetadata.cpp @@ metadata_comparison_test @@ if (TextRules::equalIgnoringCaseAndDiacritics(value, TextRules::trimmed(local))) @@ if (TextRules::canonicallyEqual(value, TextRules::trimmed(local)))
compare-ignores-confidence @@ src/tags/MusicMetadata.cpp @@ metadata_comparison_test @@ && a.confidence == b.confidence; @@ ;
compare-sharp-s @@ src/tags/TextRules.cpp @@ metadata_comparison_test @@ {u'\u00DF', u"ss"}, @@ {u'\u00DF', u"s"},
natural-digits-flipped @@ src/library/NaturalOrder.cpp @@ playable_files_test @@ return a[valueStartA + k] < b[valueStartB + k] ? -1 : 1; @@ return a[valueStartA + k] < b[valueStartB + k] ? 1 : -1;
natural-folder-separator @@ src/library/NaturalOrder.cpp @@ playable_files_test @@ if (ca == u'/') @@ if (ca == u'\\')
natural-zeros-tie @@ src/library/NaturalOrder.cpp @@ playable_files_test @@ tieBreak = sign((valueStartA - zerosStartA) - (valueStartB - zerosStartB)); @@ tieBreak = sign((valueStartB - zerosStartB) - (valueStartA - zerosStartA));
collect-reverse-order @@ src/library/PlayableFiles.cpp @@ playable_files_test @@ return naturalLess(QStringView(paths[a]).sliced(cut), QStringView(paths[b]).sliced(cut)); @@ return naturalLess(QStringView(paths[b]).sliced(cut), QStringView(paths[a]).sliced(cut));
decode-no-windows1252 @@ src/library/TextDecoding.cpp @@ playlist_file_test @@ text = windows1252(bytes); @@ text = std::nullopt;
decode-trailing-blanks @@ src/library/TextDecoding.cpp @@ playlist_file_test @@ while (end > begin && blank(text[end - 1])) @@ while (false && blank(text[end - 1]))
playlist-extinf-attributes @@ src/library/PlaylistFile.cpp @@ playlist_file_test @@ const qsizetype end = seconds.indexOf(u' ', first); @@ const qsizetype end = seconds.indexOf(u'\t', first);
playlist-artist-dash @@ src/library/PlaylistFile.cpp @@ playlist_file_test @@ pending.title = display.sliced(dash + 3).toString(); @@ pending.title = display.sliced(dash + 2).toString();
playlist-pls-negative-length @@ src/library/PlaylistFile.cpp @@ playlist_file_test @@ length != lengths.end() && length->second > 0) @@ length != lengths.end())
playlist-root-shared @@ src/library/PlaylistWriter.cpp @@ playlist_file_test @@ if (shared == 0) @@ if (shared < 0)
playlist-pls-numbering @@ src/library/PlaylistWriter.cpp @@ playlist_file_test @@ const QString n = QString::number(i + 1); @@ const QString n = QString::number(i);
playlist-zero-duration @@ src/library/PlaylistWriter.cpp @@ playlist_file_test @@ const bool known = track.duration > 0 @@ const bool known = track.duration >= 0
track-hour-boundary @@ src/library/Track.cpp @@ track_test @@ if (t < 3600) @@ if (t <= 3600)
loader-genre-trailing-blank @@ src/library/MetadataLoader.cpp @@ metadata_loader_test @@ rest.chop(1); @@ break;
engine-restart-threshold @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ constexpr double restartThreshold = 3.0; @@ constexpr double restartThreshold = 2.0;
loader-genre-past-table @@ src/library/MetadataLoader.cpp @@ metadata_loader_test @@ value >= Id3Genres::names().size()) @@ value > Id3Genres::names().size())
loader-album-artist-order @@ src/library/MetadataLoader.cpp @@ metadata_loader_test @@ firstValue(items, {&id::id3Band, &id::iTunesAlbumArtist}) @@ firstValue(items, {&id::iTunesAlbumArtist, &id::id3Band})
engine-failure-limit @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ constexpr int failureLimit = 4; @@ constexpr int failureLimit = 5;
engine-back-from-first @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ position = count - 1; @@ position = 0;
engine-no-reshuffle @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ reshufflePlayOrder(); @@ ;
engine-biased-shuffle @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ order.swapItemsAt(i, i + j); @@ order.swapItemsAt(i, j);
engine-current-not-first @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ order.swapItemsAt(0, current); @@ ;
engine-repeat-one-after-error @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ if (successfully && m_repeatMode == RepeatMode::One @@ if (m_repeatMode == RepeatMode::One
engine-seek-past-end @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ std::max(std::min(seconds, m_player->duration()), 0.0) @@ std::max(seconds, 0.0)
engine-volume-not-kept @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ m_settings->setValue(volumeKey, m_volume); @@ ;
engine-default-volume @@ src/playback/PlayerEngine.cpp @@ player_engine_test @@ m_volume = ok ? storedVolume : 0.7f; @@ m_volume = ok ? storedVolume : 1.0f;
mpris-loop-playlist @@ src/playback/MprisPlayer.cpp @@ mpris_test @@ return QStringLiteral("Playlist"); @@ return QStringLiteral("Track");
mpris-position-past-end @@ src/playback/MprisPlayer.cpp @@ mpris_test @@ seconds = std::min(seconds, m_info->duration); @@ ;
mpris-stale-set-position @@ src/playback/MprisPlayer.cpp @@ mpris_test @@ if (current && mprisTrackId(current->id) == trackId) @@ if (current)
mpris-can-seek-unknown-length @@ src/playback/MprisPlayer.cpp @@ mpris_test @@ .canSeek = m_info && m_info->duration > 0}; @@ .canSeek = m_info.has_value()};
mpris-double-seeked @@ src/playback/MprisPlayer.cpp @@ mpris_test @@ if (sameSong && !m_jumpAnnounced && @@ if (sameSong &&
mpris-length-milliseconds @@ src/playback/MprisMetadata.cpp @@ mpris_test @@ return std::llround(std::min(seconds, longest) * 1e6); @@ return std::llround(std::min(seconds, longest) * 1e3);
mpris-quit-raises @@ src/playback/NowPlaying.cpp @@ mpris_test @@ [this] { emit quitRequested(); }); @@ [this] { emit raiseRequested(); });
artfile-extension @@ src/playback/ArtworkFileCache.cpp @@ artwork_file_cache_test @@ return QStringLiteral("jpg"); @@ return QStringLiteral("jpeg");
http-downgrade-redirect @@ src/services/HttpClient.cpp @@ http_client_test @@ return target == QLatin1String("http") && from.scheme().toLower() == QLatin1String("http"); @@ return target == QLatin1String("http");
http-redirect-count @@ src/services/HttpClient.cpp @@ http_client_test @@ if (++transfer->redirects > maxRedirects) @@ if (++transfer->redirects >= maxRedirects)
http-cap-off-by-one @@ src/services/HttpClient.cpp @@ http_client_test @@ if (transfer.body.size() > HttpClient::maxBodyBytes) @@ if (transfer.body.size() >= HttpClient::maxBodyBytes)
update-interval @@ src/services/UpdateChecker.cpp @@ update_checker_test @@ < checkIntervalSeconds * 1000) @@ < checkIntervalSeconds * 100)
update-older-is-newer @@ src/services/UpdateChecker.cpp @@ update_checker_test @@ return left > right; @@ return left < right;
update-shorter-version @@ src/services/UpdateChecker.cpp @@ update_checker_test @@ i < std::max(a.size(), b.size()); @@ i < std::min(a.size(), b.size());
update-manual-skips @@ src/services/UpdateChecker.cpp @@ update_checker_test @@ if (!userInitiated && skipped.metaType() @@ if (skipped.metaType()
update-null-is-wrong-type @@ src/services/UpdateChecker.cpp @@ update_checker_test @@ if (value.isUndefined() || value.isNull()) @@ if (value.isUndefined())
mb-result-limit @@ src/services/MusicBrainzRecording.cpp @@ metadata_service_test @@ "&fmt=json&limit=5"; @@ "&fmt=json&limit=10";
mb-quotes-kept @@ src/services/MusicBrainzRecording.cpp @@ musicbrainz_recording_test metadata_service_test @@ return text.remove(QLatin1Char('"')); @@ return text;
mb-lowest-score @@ src/services/MusicBrainzRecording.cpp @@ musicbrainz_recording_test metadata_service_test @@ return key(a) > key(b); }); @@ return key(a) < key(b); });
mb-undated-first @@ src/services/MusicBrainzRecording.cpp @@ musicbrainz_recording_test metadata_service_test @@ return a.date.value_or(QStringLiteral("9999")) < b.date.value_or(QStringLiteral("9999")); @@ return a.date.value_or(QString()) < b.date.value_or(QString());
mb-genre-case-kept @@ src/services/MusicBrainzRecording.cpp @@ musicbrainz_recording_test metadata_service_test @@ codePoint = inWord ? QChar::toLower(codePoint) : QChar::toTitleCase(codePoint); @@ codePoint = inWord ? codePoint : QChar::toTitleCase(codePoint);
mb-fraction-is-integer @@ src/services/MusicBrainzRecording.cpp @@ musicbrainz_recording_test metadata_service_test @@ if (std::trunc(number) != number || number >= limit @@ if (number >= limit
store-move-past-target @@ src/store/LibraryStore.cpp @@ library_store_test @@ if (i < toOffset) @@ if (i <= toOffset)
store-drop-after-target @@ src/store/LibraryStore.cpp @@ library_store_test @@ tracks.insert(std::min<qsizetype>(target, tracks.size()), dragged); @@ tracks.insert(std::min<qsizetype>(target + 1, tracks.size()), dragged);
store-import-at-front @@ src/store/LibraryStore.cpp @@ library_store_test @@ std::clamp<qsizetype>(*index, 0, tracks.size()) : tracks.size(); @@ std::clamp<qsizetype>(*index, 0, tracks.size()) : 0;
store-clear-unasked @@ src/store/LibraryStore.cpp @@ library_store_test @@ if (m_hasUnsavedChanges) @@ if (!m_hasUnsavedChanges)
store-open-unasked @@ src/store/LibraryStore.cpp @@ library_store_test @@ if (m_hasUnsavedChanges && !m_tracks.isEmpty()) { @@ if (!m_hasUnsavedChanges && !m_tracks.isEmpty()) {
store-reveals-missing @@ src/store/LibraryStore.cpp @@ library_store_test @@ if (ids.contains(track.id) && !track.isMissing) @@ if (ids.contains(track.id))
store-stale-session @@ src/store/LibraryStore.cpp @@ session_test @@ m_sessionCopy = m_tracks; @@ ;
store-bookmarks-not-saved @@ src/store/LibraryStore.cpp @@ session_test @@ m_bookmarks.save(); @@ ;
ui-subtitle-edited-untitled @@ src/ui/MainWindow.cpp @@ main_window_test @@ if (store.hasUnsavedChanges() && !store.playlistURL().isEmpty()) @@ if (store.hasUnsavedChanges())
ui-search-case @@ src/ui/TrackFilterModel.cpp @@ track_list_model_test song_list_area_test @@ m_query = text.toLower(); @@ m_query = text;
ui-row-number-filtered @@ src/ui/TrackRowDelegate.cpp @@ song_list_area_test @@ QString::number(index.data(TrackListModel::NumberRole).toInt()) @@ QString::number(index.row() + 1)
ui-transport-always-enabled @@ src/ui/TransportBar.cpp @@ transport_bar_test main_window_test @@ button->setEnabled(hasQueue); @@ button->setEnabled(true);
ui-actions-always-enabled @@ src/ui/WindowActions.cpp @@ main_window_test @@ item->setEnabled(hasSongs); @@ item->setEnabled(true);
ui-move-up-first-row @@ src/ui/SongListArea.cpp @@ song_list_area_test @@ canReorder && playlistRow > 0 @@ canReorder && playlistRow >= 0
ui-save-extension @@ src/ui/FileDialogs.cpp @@ file_dialogs_test @@ chosen.path() + QStringLiteral(".m3u8") @@ chosen.path() + QStringLiteral(".m3u")
ui-mute-never-unmutes @@ src/ui/TransportBar.cpp @@ transport_bar_test @@ m_engine.volume() > 0 ? 0.0f : 0.5f @@ m_engine.volume() >= 0 ? 0.0f : 0.5f
ui-repeat-cycle @@ src/ui/TransportBar.cpp @@ transport_bar_test main_window_test @@ return RepeatMode::One; @@ return RepeatMode::Off;
ui-save-while-saving @@ src/ui/InspectorRules.cpp @@ inspector_rules_test track_inspector_test @@ !track.isMissing && !isSaving && @@ !track.isMissing &&
ui-badge-for-no-score @@ src/ui/InspectorRules.cpp @@ inspector_rules_test track_inspector_test @@ if (confidence < 1) @@ if (confidence < 0)
ui-footer-missing-first @@ src/ui/InspectorRules.cpp @@ inspector_rules_test track_inspector_test @@ if (track.isMissing) @@ if (track.isMissing && isMP3(track.url()))
model-move-destination @@ src/ui/TrackListModel.cpp @@ track_list_model_test song_list_area_test @@ change.to > change.first ? change.to + 1 : change.to @@ change.to
model-insert-one-too-many @@ src/ui/TrackListModel.cpp @@ track_list_model_test song_list_area_test @@ change.first, change.first + change.count - 1); @@ change.first, change.first + change.count);
model-paused-is-playing @@ src/ui/TrackListModel.cpp @@ track_list_model_test song_list_area_test @@ return current && isPlaying(); @@ return current;
cache-stamp-ignored @@ src/library/MetadataCache.cpp @@ metadata_cache_test @@ if (!stamp.regular || stored.stamp != stamp) @@ if (!stamp.regular)
cache-seconds-only @@ src/library/FileStamp.cpp @@ metadata_cache_test @@ * 1000000000 + status.st_mtim.tv_nsec @@ * 1000000000
cache-newer-version-used @@ src/library/MetadataCache.cpp @@ metadata_cache_test @@ if (found > version) { @@ if (found > version + 1) {
cache-gone-kept @@ src/library/TrackBatchLoader.cpp @@ metadata_cache_test @@ gone.append(path); @@ (void)path;
store-insert-announced-late @@ src/store/LibraryStore.cpp @@ library_store_test @@ TrackListChange::inserted(int(at), int(added)) @@ TrackListChange::inserted(int(at) + 1, int(added))
EOF
)

list_only=false
baseline=true
patterns=()
for argument in "$@"; do
    case $argument in
    --list) list_only=true ;;
    --no-baseline) baseline=false ;;
    -h | --help)
        sed -n '2,/^set -euo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//'
        exit 0
        ;;
    *) patterns+=("$argument") ;;
    esac
done

trim() {
    local text=$1
    text=${text#"${text%%[![:space:]]*}"}
    printf '%s' "${text%"${text##*[![:space:]]}"}"
}

chosen=()
while IFS= read -r line; do
    [ -n "$line" ] || continue
    name=$(trim "${line%% @@ *}")
    if [ ${#patterns[@]} -gt 0 ]; then
        matched=false
        for pattern in "${patterns[@]}"; do
            # shellcheck disable=SC2053
            [[ $name == $pattern ]] && matched=true
        done
        $matched || continue
    fi
    chosen+=("$line")
done <<<"$faults"
[ ${#chosen[@]} -gt 0 ] || {
    echo "No fault matches ${patterns[*]}" >&2
    exit 2
}

# Splits a fault line into the globals name, file, tests, original and replacement.
parse() {
    local rest=$1
    name=$(trim "${rest%% @@ *}")
    rest=${rest#* @@ }
    file=$(trim "${rest%% @@ *}")
    rest=${rest#* @@ }
    tests=$(trim "${rest%% @@ *}")
    rest=${rest#* @@ }
    original=$(trim "${rest%% @@ *}")
    replacement=$(trim "${rest#* @@ }")
}

if $list_only; then
    for line in "${chosen[@]}"; do
        parse "$line"
        printf '%-32s %-40s %s\n' "$name" "$file" "$tests"
    done
    exit 0
fi

mkdir -p "$tree" "$build"
# Brings the copy up to date with the checkout; only files whose contents differ are copied.
(cd "$source_dir" && find . -path ./.git -prune -o -path './build*' -prune -o -type f -print) |
    while IFS= read -r path; do
        cmp -s "$source_dir/$path" "$tree/$path" || {
            mkdir -p "$(dirname "$tree/$path")"
            cp "$source_dir/$path" "$tree/$path"
        }
    done
(cd "$tree" && find . -type f -print) | while IFS= read -r path; do
    [ -e "$source_dir/$path" ] || rm "$tree/$path"
done
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
if [ ! -f "$build/build.ninja" ]; then
    cmake -S "$tree" -B "$build" -G Ninja -DORVELLE_BUILD_BENCH=OFF "${launcher[@]}" >"$scratch/configure.log"
fi

# Runs the named test programs one after the other, like scripts/run-tests.sh (headless, null audio
# output, private XDG folders, a private session bus); stops at the first that fails. Returns 0 when all pass.
run_tests() {
    local home
    home=$(mktemp -d)
    mkdir -p "$home"/{config,data,cache,runtime}
    chmod 700 "$home/runtime"
    local status=0 program
    for program in "$@"; do
        if ! (cd "$build" && env LANG=C.UTF-8 LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen ORVELLE_AUDIO_OUTPUT=null \
            XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data" XDG_CACHE_HOME="$home/cache" \
            XDG_RUNTIME_DIR="$home/runtime" timeout 300 dbus-run-session -- "tests/$program" \
            >"$scratch/last-$program.log" 2>&1); then
            status=1
            failed_program=$program
            break
        fi
    done
    rm -rf "$home"
    return $status
}

build_tests() {
    cmake --build "$build" -j2 --target "$@" >"$scratch/build.log" 2>&1
}

if $baseline; then
    mapfile -t all_tests < <(for line in "${chosen[@]}"; do
        parse "$line"
        tr ' ' '\n' <<<"$tests"
    done | sort -u)
    echo "Baseline: building and running ${all_tests[*]}"
    build_tests "${all_tests[@]}" || {
        echo "The unchanged tree does not build; see $scratch/build.log" >&2
        exit 2
    }
    for program in "${all_tests[@]}"; do
        run_tests "$program" || {
            echo "$program fails on the unchanged tree; see $scratch/last-$program.log" >&2
            exit 2
        }
    done
fi

caught=0
missed=0
missed_names=()
for line in "${chosen[@]}"; do
    parse "$line"
    target=$tree/$file
    started=$SECONDS
    # Exactly one occurrence, or the fault no longer describes the code.
    if ! /usr/bin/python3 - "$target" "$original" "$replacement" <<'PY'; then
import sys
path, original, replacement = sys.argv[1:]
text = open(path, encoding="utf-8").read()
count = text.count(original)
if count != 1:
    sys.exit(f"found {count} times")
open(path, "w", encoding="utf-8").write(text.replace(original, replacement))
PY
        echo "BROKEN  $name: the original text of $file no longer applies"
        missed=$((missed + 1))
        missed_names+=("$name")
        continue
    fi
    failed_program=""
    read -ra programs <<<"$tests"
    if ! build_tests "${programs[@]}"; then
        result="BROKEN  $name: does not build (see $scratch/build.log)"
        missed=$((missed + 1))
        missed_names+=("$name")
    elif run_tests "${programs[@]}"; then
        result="MISSED  $name ($tests all pass)"
        missed=$((missed + 1))
        missed_names+=("$name")
    else
        result="caught  $name by $failed_program"
        caught=$((caught + 1))
    fi
    # A fresh copy (new modification time), so the next build compiles the original again.
    cp "$source_dir/$file" "$target"
    echo "$result [$((SECONDS - started)) s]"
done

echo "$caught caught, $missed missed"
[ $missed -eq 0 ] || {
    echo "Missed: ${missed_names[*]}"
    exit 1
}
