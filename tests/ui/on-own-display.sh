#!/usr/bin/env bash
# Runs a command on an X server (Xvfb) and a session bus of its own, so no other test's player answers
# to playerctl or takes the program's bus names. The XDG folders live in a temporary folder, named by
# ORVELLE_E2E_SCRATCH, that goes when the command ends; audio goes to mpv's null output and the online
# services point at a closed port of 127.0.0.1 unless the command says otherwise.
# Usage: on-own-display.sh COMMAND [ARGUMENT…]   (exits 77, skipped, without Xvfb or D-Bus)
set -euo pipefail

for tool in xvfb-run dbus-run-session; do
    command -v "$tool" > /dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch"/{config,data,cache,runtime}
chmod 700 "$scratch/runtime"
# Under AddressSanitizer: libxkbcommon-x11 (Debian 12) reads a keymap name with strndup past its
# buffer's end, which only the strict string check reports; the X server path needs it off.
[ -z "${ASAN_OPTIONS:-}" ] || export ASAN_OPTIONS="$ASAN_OPTIONS:strict_string_checks=0"
env -u DBUS_SESSION_BUS_ADDRESS QT_QPA_PLATFORM=xcb ORVELLE_E2E_SCRATCH="$scratch" \
    XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data" XDG_CACHE_HOME="$scratch/cache" \
    XDG_RUNTIME_DIR="$scratch/runtime" ORVELLE_AUDIO_OUTPUT=null \
    ORVELLE_UPDATE_FEED_URL=http://127.0.0.1:9/appcast.json \
    ORVELLE_MUSICBRAINZ_ENDPOINT=http://127.0.0.1:9/ws/2/recording \
    xvfb-run -a -s "-screen 0 1280x900x24" dbus-run-session -- "$@"
