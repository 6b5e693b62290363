#!/usr/bin/env bash
# Installs what the Debian packages and the arm64 cross build need: debhelper and lintian,
# the arm64 cross compiler, Qt, open62541 and GoogleTest for arm64 (multiarch), and
# qemu to run arm64 programs. Run as root; running it again changes nothing.
set -euo pipefail

if [ "$(id -u)" -ne 0 ]; then
  echo "install-cross-deps.sh must run as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=scripts/apt-common.sh
. "$here/apt-common.sh"

# The native side first: sources, pins and open62541 of every installed architecture.
bash "$here/install-deps.sh"

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  dpkg --add-architecture arm64
  apt_update_once
fi

packages=(
  debhelper dpkg-dev fakeroot lintian file
  crossbuild-essential-arm64 qemu-user-static
  qtbase5-dev:arm64
  libopen62541-1.4:arm64 libopen62541-1.4-dev:arm64
  libgtest-dev:arm64 libgmock-dev:arm64
)
need=()
for p in "${packages[@]}"; do
  case $p in
    libopen62541*) recent_open62541 "$p" || need+=("$p") ;;
    *) installed "$p" || need+=("$p") ;;
  esac
done
if [ "${#need[@]}" -gt 0 ]; then
  apt_update_once
  apt-get install -y --no-install-recommends "${need[@]}"
fi

for p in libopen62541-1.4:arm64 libopen62541-1.4-dev:arm64; do
  if ! recent_open62541 "$p"; then
    echo "install-cross-deps.sh: $p is older than $OPEN62541_MIN or missing" >&2
    exit 1
  fi
done
