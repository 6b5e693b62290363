#!/usr/bin/env bash
# Installs everything the build, the tests and the demo plant need on Debian 12.
# Run as root; running it again changes nothing.
set -euo pipefail

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps.sh must run as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=scripts/apt-common.sh
. "$here/apt-common.sh"

# open62541 1.4.18 or newer is not part of Debian 12 (13 has 1.4.11.1). build-open62541.sh builds
# it at the end from Debian's source package into /var/cache/discover, as a static library;
# the only apt entry it adds is a deb-src entry for unstable, so that every package this
# machine installs comes from its own release. No test needs a packaged open62541 tool.
packages=(
  build-essential cmake ninja-build ccache pkg-config dpkg-dev
  qtbase5-dev libssl-dev
  libgtest-dev libgmock-dev googletest
  iproute2 procps python3 python3-jsonschema jq debootstrap
  nodejs npm
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  installed "$p" || missing+=("$p")
done
# nodejs may come from another repository that already ships npm inside it.
if command -v npm >/dev/null 2>&1; then
  missing=("${missing[@]/npm}")
fi
need=()
for p in "${missing[@]}"; do [ -n "$p" ] && need+=("$p"); done

if [ "${#need[@]}" -gt 0 ]; then
  apt_update_once
  apt-get install -y --no-install-recommends "${need[@]}"
fi

bash "$here/build-open62541.sh" "$(dpkg --print-architecture)"
