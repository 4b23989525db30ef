#!/usr/bin/env bash
# Takes the manual's pictures (docs/screenshots/*.png) from the real program.
#
#   bash docs/screenshots/take.sh [BUILD_DIR]     (default: build/asan)
#
# Builds mailvane and mv-screenshots, makes a throw-away profile in a
# temporary folder (the embedded Maildir store with generated mail, the
# sample rules, the rules run once so the other folders have mail too, then
# fresh mail in the Inbox so a preview has rows), and walks the windows on
# an X server of its own (xvfb-run, from scripts/deps.sh). Nothing of the
# user's own profile is read or written.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/../.." && pwd)"
build="${1:-$root/build/asan}"

command -v xvfb-run >/dev/null || { echo "take.sh: xvfb-run is missing (see scripts/deps.sh)" >&2; exit 2; }
cmake --build "$build" -j2 --target mailvane mv-corpus mv-screenshots >/dev/null

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_CACHE_HOME="$work/cache"
export XDG_RUNTIME_DIR="$work/run" ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=0}"
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"

# The store, the rules and one run of them; then new mail the rules have
# not seen yet. Fixed seeds and date: the same pictures every time.
"$build/host/mailvane" --yes demo >/dev/null
data="$("$build/host/mailvane" --help | sed -n 's/^data folder: *//p')"
"$build/tools/corpus/mv-corpus" --seed 8 --count 250 --now 2026-11-20T09:00:00Z --out "$data/Mail" >/dev/null

export LANG=C.UTF-8 QT_QPA_PLATFORM=xcb QT_SCALE_FACTOR=1 QT_STYLE_OVERRIDE=Fusion
xvfb-run -a -s "-screen 0 1280x800x24" "$build/tools/screenshots/mv-screenshots" --out "$here" \
    --preview-rule "Read mail older than a year"
