#!/usr/bin/env bash
# The real program on a real X server (Xvfb) and its own session bus: songs given on the command line,
# more handed over by a second launch (which must end at once), one more through MPRIS OpenUri, then
# driven with playerctl. The window's song count is read from its status line over D-Bus. Ends with a
# screenshot of the window playing a 20-song playlist.
# Usage: window-end-to-end.sh ORVELLE_BINARY SCREENSHOT.png
set -euo pipefail

if [ -z "${ORVELLE_E2E_SCRATCH:-}" ]; then
    for tool in playerctl ffmpeg xwd xwininfo gdbus; do
        command -v "$tool" > /dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
    done
    exec "$(dirname "$0")/on-own-display.sh" "$0" "$@"
fi

orvelle=$1
screenshot=$2
music=$ORVELLE_E2E_SCRATCH/music

# Four albums of five 30-second songs, each album with a cover, and one song more.
for album in 1 2 3 4; do
    folder="$music/Album $album"
    mkdir -p "$folder"
    ffmpeg -loglevel error -f lavfi -i "testsrc2=size=300x300" -frames:v 1 "$folder/cover.jpg"
    for song in 1 2 3 4 5; do
        ffmpeg -loglevel error -f lavfi -i "sine=frequency=$((200 + 40 * album + 10 * song)):duration=30" \
            -metadata title="Song $song of Album $album" -metadata artist="Artist $album" \
            -metadata album="Album $album" -metadata track="$song" "$folder/0$song.mp3"
    done
done
mv "$music/Album 4/05.mp3" "$music/extra.mp3"

status() {
    gdbus call --session --dest org.orvelle.Orvelle --object-path /org/orvelle/Orvelle \
        --method org.freedesktop.DBus.Properties.Get org.orvelle.Orvelle.Window Status 2>/dev/null || true
}
# Waits up to 20 s for the status line to start with $1.
await_status() {
    for _ in $(seq 100); do
        case "$(status)" in *"'$1"*) return 0 ;; esac
        sleep 0.2
    done
    echo "status line never read '$1': $(status)"
    exit 1
}
await_playerctl() {
    for _ in $(seq 100); do
        [ "$(playerctl -p orvelle "${@:2}" 2>/dev/null)" = "$1" ] && return 0
        sleep 0.2
    done
    echo "playerctl ${*:2} never answered '$1': $(playerctl -p orvelle "${@:2}" 2>&1)"
    exit 1
}

"$orvelle" "$music/Album 1/"*.mp3 &
first=$!
trap 'kill $first 2>/dev/null || true' EXIT
await_status "5 songs"

# A second launch hands its folders over and ends at once.
timeout 10 "$orvelle" "$music/Album 2" "$music/Album 3" "$music/Album 4"
await_status "19 songs"
kill -0 $first

playerctl -p orvelle open "file://$music/extra.mp3"
await_status "20 songs"

playerctl -p orvelle play
await_playerctl Playing status
await_playerctl "Song 1 of Album 1" metadata title
playerctl -p orvelle next
await_playerctl "Song 2 of Album 1" metadata title
playerctl -p orvelle pause
await_playerctl Paused status
playerctl -p orvelle play
await_playerctl Playing status
sleep 2 # let the position move on for the picture

window=$(xwininfo -root -children | awk '/\("orvelle" / { print $1; exit }')
[ -n "$window" ] || { echo "no Orvelle window on the display"; exit 1; }
mkdir -p "$(dirname "$screenshot")"
xwd -id "$window" -silent > "$ORVELLE_E2E_SCRATCH/window.xwd"
ffmpeg -loglevel error -y -i "$ORVELLE_E2E_SCRATCH/window.xwd" "$screenshot"
echo "screenshot: $screenshot"

playerctl -p orvelle stop || true
gdbus call --session --dest org.mpris.MediaPlayer2.orvelle --object-path /org/mpris/MediaPlayer2 \
    --method org.mpris.MediaPlayer2.Quit > /dev/null
for _ in $(seq 50); do kill -0 $first 2>/dev/null || break; sleep 0.2; done
if kill -0 $first 2>/dev/null; then
    echo "MPRIS Quit did not end the program"
    exit 1
fi
wait $first
echo "end to end: passed"
