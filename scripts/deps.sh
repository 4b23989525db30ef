#!/usr/bin/env bash
# Installs what Mailvane needs to build, run and test on Debian 12.
# Runs apt-get only when a package is missing; uses sudo when not root.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config ccache
  qt6-base-dev libsqlite3-dev sqlite3
  libetpan-dev libgmime-3.0-dev
  libgtest-dev libgmock-dev
  dovecot-imapd imapfilter openssl ca-certificates xvfb xauth
  mdbtools
  fonts-dejavu-core fonts-wqy-microhei
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "Installing: ${missing[*]}"
$SUDO apt-get update -qq
# The package scripts must not start the system's Dovecot: tests run their own.
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
