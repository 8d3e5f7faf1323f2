#!/usr/bin/env bash
# Installs what building and testing Kestrel needs (Debian 12 packages) and builds it.
# Safe to run again: packages already present are not installed twice.
#   scripts/setup.sh [BUILD_DIR] [extra cmake options...]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  build-essential cmake ninja-build pkg-config clang clang-format
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libfmt-dev libinih-dev
  unixodbc-dev libsqliteodbc odbc-postgresql postgresql
  dcmtk orthanc python3-pydicom python3-numpy time
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

build="${1:-build}"
shift || true
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$build" -j "$(nproc)"
