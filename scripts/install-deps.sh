#!/usr/bin/env bash
# Installs everything the build, the tests and the demo plant need on Debian 12.
# Run as root; running it again changes nothing.
set -euo pipefail

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps.sh must run as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive

# open62541 1.4 exists only in trixie. The suite is added with a low pin so that
# nothing else is taken from it unless it exists nowhere else (the stack itself
# and its mbedTLS libraries).
trixie_list=/etc/apt/sources.list.d/discover-trixie.sources
trixie_pin=/etc/apt/preferences.d/discover-trixie
if [ ! -f "$trixie_list" ]; then
  cat > "$trixie_list" <<'SRC'
Types: deb
URIs: http://deb.debian.org/debian
Suites: trixie
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC
fi
if [ ! -f "$trixie_pin" ]; then
  cat > "$trixie_pin" <<'PIN'
Package: *
Pin: release n=trixie
Pin-Priority: 100
PIN
fi

packages=(
  build-essential cmake ninja-build ccache pkg-config
  qtbase5-dev
  libgtest-dev libgmock-dev googletest
  iproute2 procps python3 jq
  nodejs npm
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}" libopen62541-1.4-dev libopen62541-1.4-tools; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
# nodejs may come from another repository that already ships npm inside it.
if command -v npm >/dev/null 2>&1; then
  missing=("${missing[@]/npm}")
fi
need=()
for p in "${missing[@]}"; do [ -n "$p" ] && need+=("$p"); done

if [ "${#need[@]}" -gt 0 ]; then
  apt-get update
  apt-get install -y --no-install-recommends "${need[@]}"
fi
