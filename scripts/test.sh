#!/usr/bin/env bash
# Installs dependencies, builds with AddressSanitizer/UBSan and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
build=${MV_BUILD_DIR:-build/asan}
cmake --preset asan -B "$build" ${CI:+-DMV_WERROR=ON} >/dev/null
cmake --build "$build" -j"$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0}
export QT_QPA_PLATFORM=offscreen
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" --timeout 600
