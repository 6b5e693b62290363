#!/usr/bin/env bash
# Installs the packages from dist/ as a user does on stock Debian 12 (bookworm) and Debian 13
# (trixie): in minimal root file systems (debootstrap --variant=minbase, amd64) whose apt knows
# only that release's own archive (main, updates, security), with
#
#   apt-get install ./discover_VERSION_amd64.deb
#
# then runs /usr/bin/discover --version and a discover_items against the simulator on
# 127.0.0.1 (the root shares the machine's network), checks the result against the schema
# and removes the package. Then the same root takes arm64 as a foreign architecture, apt
# installs the arm64 package from the same archive, and its program runs under
# qemu-aarch64-static, --version and discover_items alike. Every result document must be
# the same as the first one. A failure names the release, the architecture and apt's own
# message.
#
#   scripts/package-check.sh [RELEASE...]              (default: bookworm trixie)
#   scripts/package-check.sh --prepare [RELEASE...]    only make the cached root file systems
#
# DIST names another folder of packages than dist/.
#
# The root file systems are made once and kept, with apt's lists and downloaded packages, in
# /var/cache/discover/roots; each check unpacks a fresh copy. Making them waits mostly on
# the network and the disk, so scripts/test.sh does it with --prepare while it builds. Needs the release build's
# opcua_sim (or OPCUA_SIM), debootstrap (scripts/install-deps.sh), qemu-user-static
# (scripts/install-cross-deps.sh) and root.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
prepare_only=""
if [ "${1:-}" = --prepare ]; then
  prepare_only=1
  shift
fi
releases=("$@")
[ "${#releases[@]}" -gt 0 ] || releases=(bookworm trixie)
version=$(dpkg-parsechangelog -l debian/changelog -S Version)
sim=${OPCUA_SIM:-$root/build/release/sim/opcua_sim}
dist=$(realpath "${DIST:-$root/dist}")
mirror=http://deb.debian.org/debian
security=http://deb.debian.org/debian-security
cache=/var/cache/discover/roots
archs=(amd64 arm64)

fail() { echo "package-check.sh: $*" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || fail "must run as root"
if [ -z "$prepare_only" ]; then
  [ -x "$sim" ] || fail "no simulator $sim (build the release first)"
  for arch in "${archs[@]}"; do
    [ -f "$dist/discover_${version}_$arch.deb" ] || fail "no package $dist/discover_${version}_$arch.deb (make package)"
  done
fi
command -v debootstrap >/dev/null || fail "debootstrap is missing (scripts/install-deps.sh)"
[ -n "$prepare_only" ] || command -v qemu-aarch64-static >/dev/null ||
  fail "qemu-aarch64-static is missing (scripts/install-cross-deps.sh)"

mkdir -p "$cache"
# Clones in other folders may check at the same time; the cached roots are shared.
exec 9>"$cache/.lock"
flock 9

work=$(mktemp -d /var/tmp/discover-package-check.XXXXXX)
sim_pid=""
# Unmounts whatever is mounted below the work folder, deepest first, and removes the folder
# only when nothing is mounted there any more.
unmount_all() {
  local target
  findmnt -rn -o TARGET | awk -v w="$work/" 'index($0, w) == 1' | sort -r | while read -r target; do
    umount "$target" 2>/dev/null || umount -l "$target" || true
  done
}
cleanup() {
  [ -z "$sim_pid" ] || { kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; }
  unmount_all
  if findmnt -rn -o TARGET | awk -v w="$work/" 'index($0, w) == 1' | grep -q .; then
    echo "package-check.sh: mounts are left below $work; it is not removed" >&2
  else
    rm -rf --one-file-system "$work"
  fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

release_name() {
  case $1 in
    bookworm) echo "Debian 12 (bookworm)" ;;
    trixie) echo "Debian 13 (trixie)" ;;
    *) echo "Debian $1" ;;
  esac
}

# The release's own archive and nothing else.
sources_of() {
  printf 'deb %s %s main\ndeb %s %s-updates main\ndeb %s %s-security main\n' \
    "$mirror" "$1" "$mirror" "$1" "$security" "$1"
}

# The cached minimal root of a release, made with debootstrap when it is missing or was
# made with other inputs.
prepare_root() {
  local release=$1 tarball=$cache/$1-amd64.tar stamp new started
  stamp="debootstrap $(dpkg-query -W -f='${Version}' debootstrap) --variant=minbase --arch=amd64 $release $mirror
$(sources_of "$release")"
  if [ -f "$tarball" ] && [ -f "$tarball.stamp" ] && [ "$(cat "$tarball.stamp")" = "$stamp" ]; then
    return
  fi
  started=$SECONDS
  new=$work/debootstrap-$release
  mkdir -p "$new"
  debootstrap --variant=minbase --arch=amd64 "$release" "$new" "$mirror" >"$work/debootstrap-$release.log" 2>&1 || {
    tail -n 30 "$work/debootstrap-$release.log" >&2
    [ ! -f "$new/debootstrap/debootstrap.log" ] || tail -n 30 "$new/debootstrap/debootstrap.log" >&2
    fail "$(release_name "$release"): debootstrap failed"
  }
  sources_of "$release" >"$new/etc/apt/sources.list"
  rm -f "$new"/var/cache/apt/archives/*.deb
  tar -C "$new" --numeric-owner -cf "$tarball.new" .
  rm -rf --one-file-system "$new"
  mv "$tarball.new" "$tarball"
  echo "$stamp" >"$tarball.stamp"
  echo "package-check.sh: $(release_name "$release"): minimal root made with debootstrap in $((SECONDS - started)) s"
}

# A fresh copy of the release's root with /proc, a minimal /dev, the name service of the
# machine, and apt's lists and downloads kept between runs.
enter_root() {
  local release=$1 dir=$2 node
  mkdir -p "$dir" "$cache/$release-apt/lists/partial" "$cache/$release-apt/archives/partial"
  tar -C "$dir" --numeric-owner -xf "$cache/$release-amd64.tar"
  mount -t proc proc "$dir/proc"
  mount -t tmpfs -o mode=0755,nosuid dev "$dir/dev"
  for node in null zero full random urandom tty; do
    touch "$dir/dev/$node"
    mount --bind "/dev/$node" "$dir/dev/$node"
  done
  mount --bind "$cache/$release-apt/lists" "$dir/var/lib/apt/lists"
  mount --bind "$cache/$release-apt/archives" "$dir/var/cache/apt/archives"
  cp /etc/resolv.conf "$dir/etc/resolv.conf"
}

# Runs apt-get in the root; a failure shows apt's own message.
apt_in() {
  local dir=$1 what=$2; shift 2
  if ! chroot "$dir" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 sh -c 'cd /tmp && "$@"' apt \
    apt-get -q -o Dpkg::Use-Pty=0 "$@" >"$work/apt.log" 2>&1; then
    cat "$work/apt.log" >&2
    fail "$what: apt-get $* failed"
  fi
}

# What the last apt-get install took from the archive.
new_packages() {
  sed -n '/^The following NEW packages will be installed:/,/^[^ ]/p' "$work/apt.log" | sed '1d;$d' | xargs
}

first_result=""
# discover --version and discover_items in the root, through COMMAND (the program or qemu).
use_program() {
  local dir=$1 what=$2; shift 2
  local out lines
  out=$(chroot "$dir" "$@" --version) || fail "$what: discover --version failed"
  lines=$(printf '%s\n' "$out" | head -n 1)
  [ "$lines" = "discover $version" ] || fail "$what: discover --version printed: $out"
  printf '%s\n' "$out" | grep -qx "open62541 1\.4\.[0-9]* (Debian source package open62541 .*)" ||
    fail "$what: no open62541 line in: $out"
  echo "package-check.sh: $what: discover --version:"
  printf '%s\n' "$out" | sed 's/^/    /'
  sed "s/@PORT@/$port/" "$work/request.json" >"$dir/tmp/request.json"
  rm -f "$dir/tmp/result.json"
  chroot "$dir" "$@" --mode discover_items --request /tmp/request.json --output /tmp/result.json ||
    fail "$what: discover_items exited with status $?"
  python3 tests/schema/check_documents.py --request "$dir/tmp/request.json" --result "$dir/tmp/result.json" >/dev/null ||
    fail "$what: the result does not match the schema"
  local items
  items=$(jq '.items | length' "$dir/tmp/result.json")
  [ "$items" -gt 20 ] || fail "$what: only $items items"
  if [ -z "$first_result" ]; then
    first_result=$work/first-result.json
    cp "$dir/tmp/result.json" "$first_result"
  else
    cmp -s "$first_result" "$dir/tmp/result.json" ||
      { diff "$first_result" "$dir/tmp/result.json" | head -n 20 >&2; fail "$what: the result differs from the first one"; }
  fi
  echo "package-check.sh: $what: discover_items browsed $items items; the result matches the schema"
}

# The releases side by side: each waits mostly on the network and the disk.
if [ -n "$prepare_only" ]; then
  pids=()
  for release in "${releases[@]}"; do
    prepare_root "$release" &
    pids+=("$!")
  done
  status=0
  for pid in "${pids[@]}"; do
    wait "$pid" || status=1
  done
  exit "$status"
fi

# The simulator on a free loopback port: it prints "ready <port>" once it listens. Every preset
# of the types scenario, without the stack's Server object, whose session diagnostics differ
# from connection to connection, so that every run gives the same document.
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
mkfifo "$work/ready"
jq '.address_space.hide_server_object = true' sim/scenarios/types.json >"$work/scenario.json"
"$sim" --scenario "$work/scenario.json" --listen 127.0.0.1 --port "$port" >"$work/ready" 2>"$work/sim.log" &
sim_pid=$!
read -r -t 15 line <"$work/ready" || true
[ "${line:-}" = "ready $port" ] || { cat "$work/sim.log" >&2; fail "the simulator did not start: ${line:-nothing}"; }
cat >"$work/request.json" <<'JSON'
{"mode": "discover_items", "job_id": "package-check", "timeout_ms": 10000,
 "device": {"id": 7, "address": "opc.tcp://127.0.0.1:@PORT@", "security_mode": "1",
            "security_policies": "http://opcfoundation.org/UA/SecurityPolicy#None"}}
JSON

for arch in "${archs[@]}"; do
  echo "package-check.sh: discover_${version}_$arch.deb depends on: $(dpkg-deb -f "$dist/discover_${version}_$arch.deb" Depends)"
done

for release in "${releases[@]}"; do
  name=$(release_name "$release")
  started=$SECONDS
  prepare_root "$release"
  dir=$work/$release
  enter_root "$release" "$dir"
  apt_in "$dir" "$name" update
  echo "package-check.sh: $name: root ready in $((SECONDS - started)) s"

  # amd64: installed, used and removed as a user does.
  what="$name amd64"
  started=$SECONDS
  deb=discover_${version}_amd64.deb
  cp "$dist/$deb" "$dir/tmp/"
  apt_in "$dir" "$what" install -y "./$deb"
  echo "package-check.sh: $what: apt installed $(new_packages)"
  [ "$(chroot "$dir" readlink -f /usr/bin/discover)" = /usr/libexec/discover/discover ] || fail "$what: /usr/bin/discover is no link to libexec"
  [ "$(chroot "$dir" stat -c %a:%U /etc/discover/files)" = 700:root ] || fail "$what: /etc/discover/files is not root's alone"
  ! chroot "$dir" dpkg-query -W 'libopen62541*' >/dev/null 2>&1 || fail "$what: an open62541 package was installed"
  use_program "$dir" "$what" /usr/bin/discover
  apt_in "$dir" "$what" remove -y discover
  for path in /usr/bin/discover /usr/libexec/discover; do
    [ ! -e "$dir$path" ] && [ ! -L "$dir$path" ] || fail "$what: $path is left after apt-get remove"
  done
  apt_in "$dir" "$what" purge -y discover
  [ ! -e "$dir/etc/discover" ] || fail "$what: /etc/discover is left after apt-get purge"
  echo "package-check.sh: $what: installed, used and removed in $((SECONDS - started)) s"

  # arm64: the same root with arm64 as a foreign architecture; apt must find every
  # dependency in the release's archive. The program runs under qemu.
  what="$name arm64"
  started=$SECONDS
  deb=discover_${version}_arm64.deb
  cp "$dist/$deb" "$dir/tmp/"
  chroot "$dir" dpkg --add-architecture arm64
  apt_in "$dir" "$what" update
  apt_in "$dir" "$what" install -y "./$deb"
  echo "package-check.sh: $what: apt installed $(new_packages)"
  cp "$(command -v qemu-aarch64-static)" "$dir/usr/bin/qemu-aarch64-static"
  use_program "$dir" "$what" /usr/bin/qemu-aarch64-static /usr/libexec/discover/discover
  apt_in "$dir" "$what" remove -y discover:arm64
  [ ! -e "$dir/usr/libexec/discover/discover" ] || fail "$what: the program is left after apt-get remove"
  echo "package-check.sh: $what: installed, used under qemu and removed in $((SECONDS - started)) s"

  unmount_all
  rm -rf --one-file-system "$dir"
done
echo "package-check.sh: the packages install, run and uninstall on ${releases[*]}"
