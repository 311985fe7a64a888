#!/usr/bin/env bash
# Installs the build into a scratch prefix and checks the desktop integration it installs: the launcher
# entry, the D-Bus activation file, the AppStream metadata and the icon, all named by the application id,
# with the entry and the metadata passing the freedesktop validators.
# Usage: validate-desktop-files.sh BUILD_DIR
set -euo pipefail
build_dir=$1
app_id=org.orvelle.Orvelle
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build_dir" --prefix "$prefix" > /dev/null
share=$prefix/share
for file in applications/$app_id.desktop dbus-1/services/$app_id.service metainfo/$app_id.metainfo.xml \
    icons/hicolor/scalable/apps/$app_id.svg; do
    [ -s "$share/$file" ] || { echo "not installed: $file"; exit 1; }
done
grep -qx "Exec=/.*/bin/orvelle" "$share/dbus-1/services/$app_id.service" # the configured prefix
grep -qx "Name=$app_id" "$share/dbus-1/services/$app_id.service"

# desktop-file-validate 0.26 (Debian 12) predates the SingleMainWindow key of the entry format 1.5;
# that complaint alone is allowed.
complaints=$(desktop-file-validate "$share/applications/$app_id.desktop" | grep -v '"SingleMainWindow"' || true)
[ -z "$complaints" ] || { echo "$complaints"; exit 1; }
appstreamcli validate --no-net --pedantic --explain "$share/metainfo/$app_id.metainfo.xml" |
    grep -v 'cid-contains-uppercase-letter' | grep -E '^[EW]:' && exit 1
echo "desktop files valid"
