#!/usr/bin/env bash
# Times discover_devices on plants of opcua_sim servers (sim/plant): one /24 of namespaces,
# the gateway at .1 on eth0, N server hosts on port 4840, the built discover run on the
# gateway. Reports per run the scan time (from the start until the scan's "OPC UA discovery
# importable=N" debug line), the time of the queries after the scan (until the result file is
# written: its modification time), that per server, the whole run (until the process has
# ended) and the peak resident memory of discover (/usr/bin/time -v); then the medians.
#
# Run as root. Usage:
#   bench/devices_bench.sh [--discover BIN] [--runs N] [--sizes "1 10 30 60"] [--budget MS]
#                          [--hung] [--keep DIR] [BUILD_DIR]
#   --discover BIN  the discover binary to time (default BUILD_DIR/app/discover), e.g. one
#                   built from an older commit, for a before/after comparison
#   --hung          plants of SIZE good servers plus one server that acknowledges the Hello
#                   and then never answers (opcua_hung_peer); also counts the records that
#                   got their endpoints ("Offered:" in the description)
#   --keep DIR      keeps every run's result and stderr in DIR
# BUILD_DIR defaults to build/release; discover, opcua_sim and opcua_hung_peer are built there.
# Every plant is taken down again, also on failure or interrupt.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
discover="" runs=3 sizes="1 10 30 60" budget=120000 hung=0 keep="" build=""
while [ $# -gt 0 ]; do
  case $1 in
    --discover) discover=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --sizes) sizes=$2; shift 2 ;;
    --budget) budget=$2; shift 2 ;;
    --hung) hung=1; shift ;;
    --keep) keep=$2; shift 2 ;;
    -h|--help) sed -n '2,/^set -euo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) build=$1; shift ;;
  esac
done
build=${build:-$root/build/release}
[ "$(id -u)" = 0 ] || { echo "devices_bench.sh: needs root (network namespaces)" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "devices_bench.sh: needs /usr/bin/time (GNU time)" >&2; exit 1; }
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C "$build" discover opcua_sim opcua_hung_peer >/dev/null
discover=${discover:-$build/app/discover}
[ -x "$discover" ] || { echo "devices_bench.sh: no discover at $discover" >&2; exit 1; }
export OPCUA_SIM="$build/sim/opcua_sim" OPCUA_HUNG_PEER="$build/sim/opcua_hung_peer"

plant="$root/sim/plant"
name="devbench$$"
work=$(mktemp -d /tmp/devices_bench.XXXXXX)
[ -n "$keep" ] && mkdir -p "$keep"
cleanup() {
  "$plant" --name "$name" down >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# plant.json with SIZE simulator hosts at .11, .12, ... (and the hung peer at .200).
write_plant() { # SIZE DIR
  python3 - "$1" "$2" "$hung" <<'PY'
import json, sys
size, folder, hung = int(sys.argv[1]), sys.argv[2], sys.argv[3] == "1"
with open(folder + "/server.json", "w") as f:
    json.dump({"application": {"name": "Bench server", "uri": "urn:bench:server",
                               "product_uri": "urn:bench:product"}}, f)
hosts = [{"name": "s%d" % i, "ip": "10.78.0.%d" % (11 + i), "kind": "sim", "scenario": "server.json"}
         for i in range(size)]
if hung:
    hosts.insert(0, {"name": "hung", "ip": "10.78.0.200", "kind": "hung"})
with open(folder + "/plant.json", "w") as f:
    json.dump({"subnet": "10.78.0.0/24", "gateway": {"ip": "10.78.0.1"}, "hosts": hosts}, f)
PY
}

results="$work/results.txt"
: >"$results"
printf '%-6s %-4s %10s %10s %10s %12s %10s %8s %8s\n' servers run scan_ms query_ms total_ms query/server rss_kb devices offered
for size in $sizes; do
  dir="$work/plant$size"
  mkdir -p "$dir"
  write_plant "$size" "$dir"
  "$plant" --name "$name" up "$dir" >/dev/null
  printf '{"tcp_ports": "4840", "timeout_ms": %d}\n' "$budget" >"$dir/request.json"
  for run in $(seq 1 "$runs"); do
    out="$dir/result.$run.json" err="$dir/stderr.$run.txt" timing="$dir/time.$run.txt"
    start=$(date +%s%N)
    # Each stderr line is stamped when it arrives (no process per line: no lag); the scan ends
    # with its debug line.
    { "$plant" --name "$name" exec -- /usr/bin/time -v -o "$timing" env OVRIN_DISCOVERY_DEBUG=1 \
        "$discover" --mode discover_devices --request "$dir/request.json" --output "$out" 2>&1 >/dev/null |
        while IFS= read -r line; do echo "${EPOCHREALTIME/./}000 $line"; done >"$err"; }
    end=$(date +%s%N)
    scan_end=$(awk '/OPC UA discovery importable=/ {print $1; exit}' "$err")
    [ -n "$scan_end" ] || { echo "devices_bench.sh: no scan debug line in run $run of $size servers" >&2; cat "$err" >&2; exit 1; }
    rss=$(awk -F': ' '/Maximum resident set size/ {print $2}' "$timing")
    read -r devices offered < <(python3 -c '
import json, sys
d = json.load(open(sys.argv[1]))["devices"]
print(len(d), sum(1 for r in d if "Offered:" in r["description"]))' "$out")
    written=$(stat -c %.9Y "$out" | tr -d .)
    scan_ms=$(( (scan_end - start) / 1000000 ))
    query_ms=$(( (written - scan_end) / 1000000 ))
    total_ms=$(( (end - start) / 1000000 ))
    per=$(awk -v q="$query_ms" -v n="$size" 'BEGIN {printf "%.1f", q / (n > 0 ? n : 1)}')
    printf '%-6s %-4s %10s %10s %10s %12s %10s %8s %8s\n' "$size" "$run" "$scan_ms" "$query_ms" "$total_ms" "$per" "$rss" "$devices" "$offered"
    echo "$size $scan_ms $query_ms $total_ms $per $rss" >>"$results"
    [ -n "$keep" ] && cp "$out" "$keep/result.$size.$run.json" && cp "$err" "$keep/stderr.$size.$run.txt"
  done
  "$plant" --name "$name" down >/dev/null
done

echo
echo "medians over $runs runs ($(basename "$discover"), budget $budget ms$([ "$hung" = 1 ] && echo ", plus one hung server")):"
python3 - "$results" <<'PY'
import statistics, sys
rows = {}
for line in open(sys.argv[1]):
    f = line.split()
    rows.setdefault(int(f[0]), []).append([float(x) for x in f[1:]])
print("%-8s %10s %10s %10s %12s %10s" % ("servers", "scan_ms", "query_ms", "total_ms", "query/server", "rss_kb"))
for size in sorted(rows):
    cols = list(zip(*rows[size]))
    med = [statistics.median(c) for c in cols]
    print("%-8d %10.0f %10.0f %10.0f %12.1f %10.0f" % (size, med[0], med[1], med[2], med[3], med[4]))
PY
