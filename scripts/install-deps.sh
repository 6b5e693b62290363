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

# open62541 is not part of Debian 12. It comes from Debian's unstable suite, because
# the stack decodes what untrusted servers send and only 1.4.18 and newer carry the
# decoding fixes. Unstable is pinned to -1 (never) except for the three open62541
# packages, named with :any so that every installed architecture is pinned.
# trixie stays at 100 for the mbedTLS 3.6 libraries the stack links.
write_if_changed /etc/apt/sources.list.d/discover-trixie.sources <<'SRC'
Types: deb
URIs: http://deb.debian.org/debian
Suites: trixie
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
write_if_changed /etc/apt/preferences.d/discover-trixie <<'PIN'
Package: *
Pin: release n=trixie
Pin-Priority: 100
PIN
write_if_changed /etc/apt/sources.list.d/discover-sid.sources <<'SRC'
Types: deb
URIs: http://deb.debian.org/debian
Suites: sid
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
write_if_changed /etc/apt/preferences.d/discover-sid <<'PIN'
Package: *
Pin: release n=sid
Pin-Priority: -1

Package: libopen62541-1.4:any libopen62541-1.4-dev:any libopen62541-1.4-tools:any
Pin: release n=sid
Pin-Priority: 500
PIN

packages=(
  build-essential cmake ninja-build ccache pkg-config
  qtbase5-dev
  libgtest-dev libgmock-dev googletest
  iproute2 procps python3 python3-jsonschema jq
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

# open62541 of the native architecture, and of every other architecture where it is
# installed (the -tools package is arch-independent).
native=$(dpkg --print-architecture)
stack=(libopen62541-1.4-tools "libopen62541-1.4:$native" "libopen62541-1.4-dev:$native")
for arch in $(dpkg --print-foreign-architectures); do
  for p in "libopen62541-1.4:$arch" "libopen62541-1.4-dev:$arch"; do
    if installed "$p"; then stack+=("$p"); fi
  done
done
for p in "${stack[@]}"; do
  recent_open62541 "$p" || need+=("$p")
done

if [ "${#need[@]}" -gt 0 ]; then
  apt_update_once
  apt-get install -y --no-install-recommends "${need[@]}"
fi

for p in "${stack[@]}"; do
  if ! recent_open62541 "$p"; then
    echo "install-deps.sh: $p is older than $OPEN62541_MIN or missing" >&2
    exit 1
  fi
done
