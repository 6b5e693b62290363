#!/usr/bin/env bash
# Times discover_devices against a discovery server that floods it (opcua_flood_peer): a private
# LAN of network namespaces (sim/support/netlan.sh) with the gateway at 10.79.0.1 on eth0 and the
# peer at 10.79.0.20:4840, the built discover run on the gateway. Reports per case and run the
# wall time, the peak resident memory of discover (/usr/bin/time -v), the number of records and
# of warnings and the longest external_id; then the medians.
#
# Run as root. Usage:
#   bench/flood_bench.sh [--discover BIN] [--runs N] [--budget MS] [--cases "fs fson caps dup long eps"]
#                        [BUILD_DIR]
#   --discover BIN  the discover binary to time (default BUILD_DIR/app/discover), e.g. one built
#                   from an older commit, for a before/after comparison
# Cases: fs   FindServers lists 10 000 servers (at a port where nothing listens)
#        fson FindServersOnNetwork lists 10 000 records (the same)
#        caps its own FindServersOnNetwork record carries 200 000 capabilities
#        dup  FindServers lists 50 servers whose endpoints all move to the peer's own address
#        long FindServers and GetEndpoints name 64 KiB URLs, the name has 100 000 characters
#        eps  GetEndpoints offers 20 001 endpoints
# BUILD_DIR defaults to build/release. The LAN is removed again, also on failure or interrupt.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
discover="" runs=3 budget=5000 cases="fs fson caps dup long eps" build=""
while [ $# -gt 0 ]; do
  case $1 in
    --discover) discover=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --budget) budget=$2; shift 2 ;;
    --cases) cases=$2; shift 2 ;;
    -h|--help) sed -n '2,/^set -euo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) build=$1; shift ;;
  esac
done
build=${build:-$root/build/release}
[ "$(id -u)" = 0 ] || { echo "flood_bench.sh: needs root (network namespaces)" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "flood_bench.sh: needs /usr/bin/time (GNU time)" >&2; exit 1; }
# Built when missing; an existing build is timed as it stands.
[ -x "$build/app/discover" ] && [ -x "$build/sim/opcua_flood_peer" ] || ninja -C "$build" discover opcua_flood_peer >/dev/null
discover=${discover:-$build/app/discover}
peer="$build/sim/opcua_flood_peer"
netlan="$root/sim/support/netlan.sh"
lan="floodb$$"
work=$(mktemp -d /tmp/flood_bench.XXXXXX)
cleanup() {
  "$netlan" down "$lan" >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

"$netlan" up "$lan" --subnet 10.79.0.0/24 --gateway gw=10.79.0.1 --host flood=10.79.0.20 >/dev/null
printf '{"tcp_ports": "4840", "timeout_ms": %d}\n' "$budget" >"$work/request.json"

peer_options() {
  case $1 in
    fs) echo "--find-servers 10000 --listed-port 4841" ;;
    fson) echo "--on-network 10000 --listed-port 4841" ;;
    caps) echo "--capabilities 200000" ;;
    dup) echo "--find-servers 50 --endpoint-url opc.tcp://10.79.0.20:4840" ;;
    long) echo "--long-url 65536 --long-name 100000" ;;
    eps) echo "--endpoints 20000" ;;
    *) echo "flood_bench.sh: unknown case $1" >&2; exit 2 ;;
  esac
}

median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }

printf '%-5s %-4s %10s %10s %8s %8s %10s %10s\n' case run wall_ms rss_kb devices warnings max_id_len max_desc_len
for case in $cases; do
  # shellcheck disable=SC2046
  pid=$("$netlan" spawn "$lan" flood -- "$peer" 10.79.0.20 4840 $(peer_options "$case"))
  for _ in $(seq 100); do
    "$netlan" exec "$lan" gw -- bash -c 'exec 3<>/dev/tcp/10.79.0.20/4840' 2>/dev/null && break
    sleep 0.1
  done
  : >"$work/$case.times"
  for run in $(seq "$runs"); do
    start=$(date +%s%N)
    "$netlan" exec "$lan" gw -- /usr/bin/time -v -o "$work/time.txt" "$discover" --mode discover_devices \
      --request "$work/request.json" --output "$work/result.json" 2>"$work/stderr.txt" || true
    wall=$(( ($(date +%s%N) - start) / 1000000 ))
    rss=$(awk -F': ' '/Maximum resident/ {print $2}' "$work/time.txt")
    read -r devices warnings maxid maxdesc < <(python3 - "$work/result.json" <<'PY'
import json, sys
try:
    d = json.load(open(sys.argv[1]))
except Exception:
    print("- - - -"); sys.exit()
ids = [len(r["external_id"]) for r in d["devices"]]
descs = [len(r.get("description", "")) for r in d["devices"]]
print(len(d["devices"]), len(d["warnings"]), max(ids) if ids else 0, max(descs) if descs else 0)
PY
)
    rm -f "$work/result.json"
    printf '%-5s %-4s %10s %10s %8s %8s %10s %10s\n' "$case" "$run" "$wall" "$rss" "$devices" "$warnings" "$maxid" "$maxdesc"
    echo "$wall $rss" >>"$work/$case.times"
  done
  kill "$pid" 2>/dev/null || true
  printf '%-5s %-4s %10s %10s\n' "$case" median "$(cut -d' ' -f1 "$work/$case.times" | median)" \
    "$(cut -d' ' -f2 "$work/$case.times" | median)"
done
