#!/usr/bin/env bash
# Installs dependencies, builds with AddressSanitizer/UBSan and runs every test.
# In CI a compiler warning fails the run (checked on the build's output, so
# the compile flags, and with them ccache's entries, are the same as locally).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
source scripts/build-env.sh
build=${MV_BUILD_DIR:-build/asan}
cmake --preset asan -B "$build" >/dev/null
log=$(mktemp)
trap 'rm -f "$log"' EXIT
cmake --build "$build" -j"$(nproc)" 2>&1 | tee "$log"
if [ -n "${CI:-}" ] && grep -q 'warning:' "$log"; then
  echo "Build has compiler warnings:" >&2
  grep 'warning:' "$log" | sort -u >&2
  exit 1
fi
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0}
export QT_QPA_PLATFORM=offscreen
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" --timeout 600
