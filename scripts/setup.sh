#!/usr/bin/env bash
# Installs what a fresh Debian 12 machine lacks to build and test zove.
# Does nothing (and needs no network) when everything is already present.
set -euo pipefail

packages=(
  build-essential cmake make pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libsqlite3-dev liblua5.4-dev libicu-dev
  clang libclang-rt-14-dev clang-format
  graphviz
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
