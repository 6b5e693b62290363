#!/usr/bin/env bash
# Installs what the Debian packages, their check and the arm64 cross build need: debhelper
# and lintian, the arm64 cross compiler, Qt, OpenSSL and GoogleTest for arm64
# (multiarch), qemu to run arm64 programs, and open62541 built for arm64 (static, from
# Debian's source package, see build-open62541.sh). Run as root; running it again changes
# nothing.
set -euo pipefail

if [ "$(id -u)" -ne 0 ]; then
  echo "install-cross-deps.sh must run as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=scripts/apt-common.sh
. "$here/apt-common.sh"

# The native side first, open62541 for amd64 included.
bash "$here/install-deps.sh"

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  dpkg --add-architecture arm64
  apt-get update
  APT_UPDATED=1
fi

packages=(
  debhelper dpkg-dev fakeroot lintian file
  crossbuild-essential-arm64 qemu-user-static
  qtbase5-dev:arm64 libssl-dev:arm64
  libgtest-dev:arm64 libgmock-dev:arm64
)
need=()
for p in "${packages[@]}"; do
  installed "$p" || need+=("$p")
done
if [ "${#need[@]}" -gt 0 ]; then
  apt_update_once
  apt-get install -y --no-install-recommends "${need[@]}"
fi

bash "$here/build-open62541.sh" arm64
