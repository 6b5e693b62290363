#!/usr/bin/env bash
# Installs the amd64 package from dist/, browses the simulator on 127.0.0.1 through
# /usr/bin/discover, checks the result against the schema and removes the package again
# (also when a step fails). Needs the release build's opcua_sim and root.
#
#   scripts/package-check.sh [PACKAGE.deb] [OPCUA_SIM]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
version=$(dpkg-parsechangelog -l debian/changelog -S Version)
deb=${1:-$root/dist/discover_${version}_$(dpkg --print-architecture).deb}
sim=${2:-$root/build/release/sim/opcua_sim}
deb=$(realpath -e "$deb" 2>/dev/null) || { echo "package-check.sh: no package $deb (make package)" >&2; exit 1; }
[ -x "$sim" ] || { echo "package-check.sh: no simulator $sim (build the release first)" >&2; exit 1; }
if dpkg-query -W -f='${Status}' discover 2>/dev/null | grep -q 'install ok installed'; then
  echo "package-check.sh: discover is already installed; it is left alone" >&2
  exit 1
fi

fail() { echo "package-check.sh: $*" >&2; exit 1; }
work=$(mktemp -d)
sim_pid=""
cleanup() {
  [ -z "$sim_pid" ] || { kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; }
  dpkg --purge discover >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

apt-get install -y --no-install-recommends "$deb" >"$work/install.log" 2>&1 ||
  { cat "$work/install.log" >&2; exit 1; }
[ "$(readlink -f /usr/bin/discover)" = /usr/libexec/discover/discover ] || fail "/usr/bin/discover is no link to libexec"
[ "$(readlink /usr/libexec/discover/files)" = /etc/discover/files ] || fail "files/ is no link to /etc/discover/files"
[ "$(stat -c %a:%U /etc/discover/files)" = 700:root ] || fail "/etc/discover/files is not root's alone"
version_line=$(/usr/bin/discover --version)
[ "$version_line" = "discover 1.0" ] || fail "--version printed: $version_line"
echo "package-check.sh: installed; $version_line"

# The simulator on a free loopback port: it prints "ready <port>" once it listens.
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
mkfifo "$work/ready"
"$sim" --scenario sim/scenarios/types.json --listen 127.0.0.1 --port "$port" >"$work/ready" 2>"$work/sim.log" &
sim_pid=$!
read -r -t 15 line <"$work/ready" || true
[ "$line" = "ready $port" ] || { cat "$work/sim.log" >&2; fail "the simulator did not start: $line"; }

cat >"$work/request.json" <<JSON
{"mode": "discover_items", "job_id": "package-check", "timeout_ms": 10000,
 "device": {"id": 7, "address": "opc.tcp://127.0.0.1:$port", "security_mode": "1",
            "security_policies": "http://opcfoundation.org/UA/SecurityPolicy#None"}}
JSON
/usr/bin/discover --mode discover_items --request "$work/request.json" --output "$work/result.json"
python3 tests/schema/check_documents.py --request "$work/request.json" --result "$work/result.json"
items=$(jq '.items | length' "$work/result.json")
[ "$items" -gt 20 ] || fail "only $items items"
echo "package-check.sh: /usr/bin/discover browsed $items items"

dpkg --purge discover >/dev/null
for path in /usr/bin/discover /usr/libexec/discover /etc/discover; do
  [ ! -e "$path" ] && [ ! -L "$path" ] || fail "$path is left after the package was removed"
done
echo "package-check.sh: removed cleanly"
