#!/usr/bin/env bash
# Builds Orvelle and runs every test: once in a normal build, then once under AddressSanitizer and
# UndefinedBehaviorSanitizer. Tests run headless, decode audio for real with mpv's null output, talk
# to a private session D-Bus and keep their XDG folders in a temporary directory.
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
cd "$source_dir"

run_suite() {
    local build_dir=$1
    shift
    scripts/setup.sh "$build_dir" "$@"
    local scratch
    scratch=$(mktemp -d)
    # shellcheck disable=SC2064
    trap "rm -rf '$scratch'" RETURN
    mkdir -p "$scratch"/{config,data,cache,runtime}
    chmod 700 "$scratch/runtime"
    env LANG=C.UTF-8 LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen ORVELLE_AUDIO_OUTPUT=null \
        XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data" XDG_CACHE_HOME="$scratch/cache" \
        XDG_RUNTIME_DIR="$scratch/runtime" \
        dbus-run-session -- ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
}

run_suite build
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:strict_string_checks=1"
export LSAN_OPTIONS="suppressions=$source_dir/tests/sanitizers/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
run_suite build-asan -DORVELLE_SANITIZE=ON -DORVELLE_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
