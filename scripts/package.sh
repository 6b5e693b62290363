#!/usr/bin/env bash
# Builds the Debian packages of discover for amd64 and arm64 (cross-built) into dist/ and
# checks them with lintian. Run as root on Debian 12: it installs what the builds need.
#
#   scripts/package.sh [ARCH...]     (default: amd64 arm64)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
archs=("$@")
[ "${#archs[@]}" -gt 0 ] || archs=(amd64 arm64)
dist="$root/dist"
stage="$root/build/package"

bash scripts/install-cross-deps.sh

# dpkg-buildpackage writes next to the source tree, so the sources are copied into a
# folder of their own: every file git knows or would add, nothing that was built.
rm -rf "$stage"
mkdir -p "$stage/discover" "$dist"
git ls-files -z --cached --others --exclude-standard |
  (cd "$root" && tar --null --ignore-failed-read -T - -cf -) | tar -xf - -C "$stage/discover"

# debhelper gives the build a fresh HOME, so the compiler cache is named explicitly.
export CCACHE_DIR="${CCACHE_DIR:-$(ccache -k cache_dir)}"
export CCACHE_BASEDIR="$stage/discover" CCACHE_NOHASHDIR=true
export DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)"

version=$(dpkg-parsechangelog -l debian/changelog -S Version)
for arch in "${archs[@]}"; do
  echo "== discover $version for $arch"
  cross=()
  [ "$arch" = "$(dpkg --print-architecture)" ] || cross=(-a"$arch")
  (cd "$stage/discover" && dpkg-buildpackage -b -us -uc "${cross[@]}") >"$stage/build-$arch.log" 2>&1 || {
    tail -n 40 "$stage/build-$arch.log" >&2
    echo "package.sh: the $arch package did not build; log in $stage/build-$arch.log" >&2
    exit 1
  }
  rm -f "$dist"/discover*_"${version}"_"$arch".*
  mv "$stage"/discover*_"${version}"_"$arch".{deb,buildinfo,changes} "$dist"/
  lintian --fail-on error "$dist/discover_${version}_$arch.changes" >"$stage/lintian-$arch.log" 2>&1 ||
    lintian_failed=1
  grep -v '^running with root privileges' "$stage/lintian-$arch.log" || true
  [ -z "${lintian_failed:-}" ] || { echo "package.sh: lintian found errors in the $arch package" >&2; exit 1; }
  echo "lintian: $arch package has no errors"
done
ls -l "$dist"
