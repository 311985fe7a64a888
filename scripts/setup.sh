#!/usr/bin/env bash
# Installs the Debian 12 packages Orvelle builds, runs and tests with (only the missing ones),
# then configures and builds into the given folder. Usage: scripts/setup.sh BUILD_DIR [cmake options…]
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config clang-format
    qt6-base-dev qt6-svg-dev libqt6svg6 qt6-image-formats-plugins qt6-qpa-plugins libgl-dev libqt6sql6-sqlite
    libmpv-dev libtag1-dev libavformat-dev libavutil-dev libavcodec-dev libicu-dev libxxhash-dev libsqlite3-dev
    adwaita-icon-theme dbus dbus-x11
    python3 python3-mutagen eyed3 id3v2 ffmpeg playerctl xvfb xauth x11-apps x11-utils
    desktop-file-utils appstream qt6-wayland
)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

build_dir=${1:?usage: scripts/setup.sh BUILD_DIR [cmake options…]}
shift
source_dir=$(cd "$(dirname "$0")/.." && pwd)
cmake -S "$source_dir" -B "$build_dir" -G Ninja "$@"
cmake --build "$build_dir" -j "$(nproc)"
