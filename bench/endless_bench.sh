#!/usr/bin/env bash
# discover_items against a node-opcua server whose folder Plant.Endless pages for ever
# (sim/node/peer_server.js --endless-continuation MODE, on 127.0.0.1): per mode and run the
# wall time and peak resident memory of discover (/usr/bin/time -v), its exit status, the item
# count and the Plant.Endless variables among them; then the medians.
#
#   bench/endless_bench.sh [--discover BIN] [--runs N] [--modes "repeat grow cycle"] [BUILD_DIR]
#
# Modes: repeat  every BrowseNext answers the same page with the same continuation point
#        grow    every BrowseNext answers one new variable and a new point
#        cycle   every BrowseNext answers a new variable, with two points in turn
# BUILD_DIR defaults to build/release; --discover times another binary (e.g. an older build).
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
discover="" runs=3 modes="repeat grow cycle" build=""
while [ $# -gt 0 ]; do
  case $1 in
    --discover) discover=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --modes) modes=$2; shift 2 ;;
    *) build=$1; shift ;;
  esac
done
build=${build:-$here/build/release}
discover=${discover:-$build/app/discover}
[ -x "$discover" ] || { echo "endless_bench.sh: no discover at $discover" >&2; exit 2; }

work=$(mktemp -d)
peer_pid=""
cleanup() {
  [ -n "$peer_pid" ] && kill "$peer_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }

printf '%-7s %-6s %9s %9s %6s %7s %8s\n' mode run wall_ms rss_kb status items endless
for mode in $modes; do
  mkfifo "$work/ready"
  node "$here/sim/node/peer_server.js" --port 0 --endless-continuation "$mode" >"$work/ready" 2>"$work/peer.err" &
  peer_pid=$!
  read -r word port <"$work/ready" || true
  rm -f "$work/ready"
  [ "$word" = ready ] || { echo "endless_bench.sh: the peer did not start" >&2; cat "$work/peer.err" >&2; exit 1; }
  printf '{"device": {"address": "opc.tcp://127.0.0.1:%s", "security_mode": "1", "security_policies": "http://opcfoundation.org/UA/SecurityPolicy#None"}, "timeout_ms": 10000}\n' \
    "$port" >"$work/request.json"
  : >"$work/$mode.times"
  for run in $(seq "$runs"); do
    start=$(date +%s%N)
    status=0
    OVRIN_DISCOVERY_OUTPUT_FILE="$work/snapshot.json" /usr/bin/time -v -o "$work/time.txt" "$discover" \
      --mode discover_items --request "$work/request.json" --output "$work/result.json" 2>/dev/null || status=$?
    wall=$(( ($(date +%s%N) - start) / 1000000 ))
    rss=$(awk -F': ' '/Maximum resident/ {print $2}' "$work/time.txt")
    read -r items endless < <(python3 - "$work/result.json" <<'PY'
import json, sys
try:
    d = json.load(open(sys.argv[1]))
except Exception:
    print("- -"); sys.exit()
ids = [r.get("external_id", "") for r in d["items"]]
print(len(ids), sum(1 for i in ids if "Plant.Endless.V" in i))
PY
)
    rm -f "$work/result.json" "$work/snapshot.json"
    printf '%-7s %-6s %9s %9s %6s %7s %8s\n' "$mode" "$run" "$wall" "$rss" "$status" "$items" "$endless"
    echo "$wall $rss" >>"$work/$mode.times"
  done
  kill "$peer_pid" 2>/dev/null || true
  wait "$peer_pid" 2>/dev/null || true
  peer_pid=""
  printf '%-7s %-6s %9s %9s\n' "$mode" median "$(cut -d' ' -f1 "$work/$mode.times" | median)" \
    "$(cut -d' ' -f2 "$work/$mode.times" | median)"
done
