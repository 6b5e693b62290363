#!/usr/bin/env bash
# Builds open62541 from Debian's own source package as a static library for one
# architecture and installs it into a cache outside the repository:
#
#   /var/cache/discover/open62541/VERSION/ARCH      the installation (include/, lib/, ...)
#   /var/cache/discover/open62541/ARCH              link to the one CMake uses by default
#
#   scripts/build-open62541.sh [ARCH]     (default: the machine's own, e.g. amd64; or arm64)
#
# The source comes with apt-get source from Debian's unstable suite (a deb-src entry only,
# so no binary package of unstable can reach the machine); apt checks every file against
# the suite's signed index, and dpkg-source applies Debian's patches. The highest version
# from 1.4.18 up to, not including, 1.5 is taken: the tool needs the decoding fixes of
# 1.4.18 and uses the 1.4 API. A stamp in the installation records the version and the
# options; a run with the same inputs changes nothing and needs no network.
# Run as root.
set -euo pipefail

if [ "$(id -u)" -ne 0 ]; then
  echo "build-open62541.sh must run as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=scripts/apt-common.sh
. "$here/apt-common.sh"

native=$(dpkg --print-architecture)
arch=${1:-$native}
case $arch in
  "$native") toolchain=() ;;
  arm64) toolchain=(-DCMAKE_TOOLCHAIN_FILE="$here/../cmake/aarch64-linux-gnu.cmake") ;;
  *) echo "build-open62541.sh: no cross build set up for $arch" >&2; exit 1 ;;
esac

cache=$OPEN62541_CACHE
mkdir -p "$cache/src"
# Clones in other folders may run this at the same time; one build at a time.
exec 9>"$cache/.lock"
flock 9

write_open62541_source_entry

# Debian's version of the source package (upstream-revision) to build: the highest one in
# [OPEN62541_MIN, OPEN62541_BELOW) that apt knows.
pick_version() {
  apt-cache showsrc open62541 2>/dev/null | sed -n 's/^Version: //p' | sort -u | while read -r v; do
    if dpkg --compare-versions "$v" ge "$OPEN62541_MIN" && dpkg --compare-versions "$v" lt "$OPEN62541_BELOW"; then
      echo "$v"
    fi
  done | sort -V | tail -n 1
}

# What the build depends on besides the source: a change here builds again.
# Nothing of the project uses the PubSub protocol, JSON encoding or the discovery
# semaphore file, so they are left out. Everything else is as in Debian's own build
# (debian/rules of the source package): the simulator's server and the address space
# it serves, namespace zero included, stay the ones the tests were written against.
# The library holds client and server; the linker takes into discover only the objects
# it uses, so no server code ends up in the tool. Without link-time optimization (which
# open62541 turns on by default) the objects are plain machine code: every program of the
# project would otherwise optimize the whole stack again when it links, and the clang
# builds (fuzzing) could not read gcc's intermediate code.
options=(
  -DBUILD_SHARED_LIBS=OFF
  -DCMAKE_POSITION_INDEPENDENT_CODE=ON
  -DCMAKE_BUILD_TYPE=RelWithDebInfo
  -DCMAKE_INSTALL_LIBDIR=lib
  -DCMAKE_INTERPROCEDURAL_OPTIMIZATION=OFF
  -DUA_ENABLE_ENCRYPTION=OPENSSL
  -DUA_NAMESPACE_ZERO=FULL
  -DUA_ENABLE_DATATYPES_ALL=ON
  -DUA_ENABLE_HARDENING=ON
  -DUA_ENABLE_HISTORIZING=ON
  -DUA_ENABLE_DISCOVERY=ON
  -DUA_ENABLE_DISCOVERY_MULTICAST=OFF
  -DUA_ENABLE_DISCOVERY_SEMAPHORE=OFF
  -DUA_ENABLE_PUBSUB=OFF
  -DUA_ENABLE_PUBSUB_ENCRYPTION=OFF
  -DUA_ENABLE_PUBSUB_INFORMATIONMODEL=OFF
  -DUA_ENABLE_JSON_ENCODING=OFF
  -DUA_MULTITHREADING=100
  -DUA_BUILD_EXAMPLES=OFF
  -DUA_BUILD_UNIT_TESTS=OFF
  -DUA_BUILD_TOOLS=OFF
  -DUA_ENABLE_AMALGAMATION=OFF
  -DUA_ENABLE_NODESETLOADER=OFF
)
# The flags Debian builds packages with (hardening on), for the target architecture. Their
# file prefix map names the folder they are asked in, so they are asked in a fixed one.
cc=gcc
[ "$arch" = "$native" ] || cc=aarch64-linux-gnu-gcc
buildflags() {
  (cd "$cache/src" && DEB_BUILD_MAINT_OPTIONS=hardening=+all CC=$cc dpkg-architecture -a "$arch" -c dpkg-buildflags --get "$1")
}

# The toolchain file is named by its content: every clone has it in another folder, and
# a clone's path must not make the cached build look out of date.
stamp_text() {
  local toolchain_id=""
  [ "$arch" = "$native" ] || toolchain_id=$(sha256sum <"$here/../cmake/aarch64-linux-gnu.cmake" | cut -d' ' -f1)
  printf 'source=open62541 %s\narch=%s\ncompiler=%s\ncflags=%s %s\noptions=%s\ntoolchain=%s\n' \
    "$1" "$arch" "$("$cc" --version 2>/dev/null | head -n 1)" "$(buildflags CFLAGS)" "$(buildflags CPPFLAGS)" \
    "${options[*]}" "$toolchain_id"
}

# Ready when the installation of this version was built with exactly these inputs.
up_to_date() {
  local version=$1 prefix
  prefix=$cache/$(dir_name "$version")/$arch
  [ -f "$prefix/$OPEN62541_STAMP" ] && [ "$(cat "$prefix/$OPEN62541_STAMP")" = "$(stamp_text "$version")" ]
}
dir_name() { echo "${1//:/_}"; }

link_current() {
  ln -sfn "$(dir_name "$1")/$arch" "$cache/$arch.new"
  mv -T "$cache/$arch.new" "$cache/$arch"
}

version=$(pick_version)
if [ -n "$version" ] && up_to_date "$version"; then
  link_current "$version"
  echo "build-open62541.sh: open62541 $version for $arch is up to date in $cache/$(dir_name "$version")/$arch"
  exit 0
fi

# The index may be missing or old: ask the archive once.
apt-get update >/dev/null
version=$(pick_version)
if [ -z "$version" ]; then
  echo "build-open62541.sh: Debian's unstable suite offers no open62541 source from $OPEN62541_MIN up to" \
    "$OPEN62541_BELOW (it offers: $(apt-cache showsrc open62541 2>/dev/null | sed -n 's/^Version: //p' | sort -u | tr '\n' ' '))" >&2
  exit 1
fi
if up_to_date "$version"; then
  link_current "$version"
  echo "build-open62541.sh: open62541 $version for $arch is up to date in $cache/$(dir_name "$version")/$arch"
  exit 0
fi

need=()
for p in dpkg-dev cmake ninja-build python3 libssl-dev:"$arch"; do
  installed "$p" || need+=("$p")
done
[ "$arch" = "$native" ] || installed crossbuild-essential-"$arch" || need+=(crossbuild-essential-"$arch")
if [ "${#need[@]}" -gt 0 ]; then
  apt-get install -y --no-install-recommends "${need[@]}"
fi

started=$SECONDS
upstream=${version#*:}
upstream=${upstream%-*}
src=$cache/src/$(dir_name "$version")
if [ ! -f "$src/.unpacked" ]; then
  rm -rf "$src"
  mkdir "$src"
  # apt downloads as its own user _apt; dpkg-source then unpacks and applies the patches.
  chown _apt "$src"
  (cd "$src" && apt-get source -q "open62541=$version") >"$cache/src/apt-get-source.log" 2>&1 || {
    cat "$cache/src/apt-get-source.log" >&2
    echo "build-open62541.sh: apt-get source open62541=$version failed" >&2
    exit 1
  }
  touch "$src/.unpacked"
fi
tree=$(find "$src" -mindepth 1 -maxdepth 1 -type d -name 'open62541-*' | head -n 1)
[ -n "$tree" ] || { echo "build-open62541.sh: no source tree in $src" >&2; exit 1; }

prefix=$cache/$(dir_name "$version")/$arch
build=$cache/build-$arch
rm -rf "$build" "$prefix.new"
launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache)
echo "build-open62541.sh: building open62541 $version for $arch"
(
  cd "$tree"
  # The version text comes from git when the source is in a repository, which it is not;
  # naming it keeps the stack's own version macros exact.
  cmake -S . -B "$build" -G Ninja "${toolchain[@]}" "${launcher[@]}" "${options[@]}" \
    -DOPEN62541_VERSION="v${upstream%%[+~]*}" \
    -DUA_NODESET_DIR="$tree/nodeset" \
    -DCMAKE_C_FLAGS="$(buildflags CFLAGS) $(buildflags CPPFLAGS)" \
    -DCMAKE_INSTALL_PREFIX="$prefix.new"
  ninja -C "$build" -j "$(nproc)"
  ninja -C "$build" install
) >"$cache/build-$arch.log" 2>&1 || {
  tail -n 40 "$cache/build-$arch.log" >&2
  echo "build-open62541.sh: the $arch build of open62541 $version failed; log in $cache/build-$arch.log" >&2
  exit 1
}
echo "$version" >"$prefix.new/$OPEN62541_SOURCE_VERSION_FILE"
stamp_text "$version" >"$prefix.new/$OPEN62541_STAMP"
rm -rf "$prefix" "$build"
mv "$prefix.new" "$prefix"
link_current "$version"
echo "build-open62541.sh: open62541 $version for $arch built in $((SECONDS - started)) s into $prefix"
