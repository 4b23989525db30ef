#!/usr/bin/env bash
# Installs dependencies, builds, and runs Mailvane's main job on the
# embedded default store (a local Maildir in the data folder).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
source scripts/build-env.sh
build=${MV_BUILD_DIR:-build/release}
cmake --preset release -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)"
exec "$build/host/mailvane" demo "$@"
