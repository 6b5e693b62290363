#!/usr/bin/env bash
# The items walk side by side in one run: for each address-space size (the simulator's
# synthetic variables, folders of 100) and each network (loopback, and behind a delaying proxy
# that adds a round-trip time), every contender's wall time (median of --runs), peak resident
# memory (/usr/bin/time -v, largest of the runs), result size and the bytes the contender passed
# to write calls (wchar, bench/written_bytes.py; of the last run): with a snapshot file, that
# less the result size is what the snapshots wrote.
#
#   bench/walk_bench.sh [--build DIR] [--counts "50000 500000 1000000"] [--rtt-ms "0 1"] [--runs 3]
#                       [--contenders "reference job job_snapshots bare node"] [--today PATH]
#                       [--limit-s 900] [--slow-runs 1] [--node-heap-mb 8192]
#
# --node-heap-mb: node's --max-old-space-size for the node contender (0: node's own default,
# under which node-opcua's crawler runs out of heap on large address spaces).
#
# Contenders:
#   reference       the walk with its one-request-per-call source (browse_bench --source reference)
#   job             discover_items (batched source), no snapshot file
#   job_snapshots   discover_items with OVRIN_DISCOVERY_OUTPUT_FILE set
#   today           --today's discover binary (a build of an older tree), no snapshot file
#   today_snapshots the same with the snapshot file set
#   bare            bench/batched_walk: a plain open62541 client that only browses and reads
#   node            bench/node_crawler.js: node-opcua (needs `npm ci` in sim/node)
# Contenders whose one run takes long (reference and today behind a round-trip time, today
# with snapshots) run --slow-runs times; any run is stopped after --limit-s seconds and
# reported as "stopped". Everything talks to 127.0.0.1 only.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/release
counts="50000 500000"
rtts="0 1"
runs=3
slow_runs=1
limit_s=900
node_heap_mb=8192
contenders="reference job job_snapshots bare node"
today=""
while [ $# -gt 0 ]; do
  case "$1" in
    --build) build=$2; shift 2 ;;
    --counts) counts=$2; shift 2 ;;
    --rtt-ms) rtts=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --slow-runs) slow_runs=$2; shift 2 ;;
    --limit-s) limit_s=$2; shift 2 ;;
    --contenders) contenders=$2; shift 2 ;;
    --today) today=$2; shift 2 ;;
    --node-heap-mb) node_heap_mb=$2; shift 2 ;;
    *) echo "walk_bench.sh: unknown option $1" >&2; exit 2 ;;
  esac
done

if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C "$build" discover opcua_sim delay_proxy batched_walk browse_bench >/dev/null
discover=$build/app/discover
sim=$build/sim/opcua_sim
proxy=$build/bench/delay_proxy
bare=$build/bench/batched_walk
browse_bench=$build/bench/browse_bench

work=$(mktemp -d)
sim_pid=""
proxy_pid=""
stop_pid() {   # stop_pid PID
  [ -n "$1" ] || return 0
  kill "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}
cleanup() {
  stop_pid "$proxy_pid"
  stop_pid "$sim_pid"
  rm -rf "$work"
}
trap cleanup EXIT

wait_ready() {   # wait_ready PID FILE SECONDS -> prints the port
  local pid=$1 file=$2 seconds=$3 i
  for i in $(seq 1 $((seconds * 20))); do
    if grep -q '^ready ' "$file" 2>/dev/null; then sed -n 's/^ready \([0-9]*\).*/\1/p' "$file" | head -1; return 0; fi
    kill -0 "$pid" 2>/dev/null || return 1
    sleep 0.05
  done
  return 1
}

sim_port=""
start_sim() {   # start_sim COUNT
  stop_pid "$sim_pid"; sim_pid=""
  printf '{"address_space": {"hide_server_object": true, "synthetic_count": %d, "synthetic_folder_size": 100}}\n' \
    "$1" >"$work/scenario.json"
  local attempt port
  for attempt in 1 2 3 4 5; do
    port=$(shuf -i 20000-60000 -n 1)
    ss -ltn | awk '{print $4}' | grep -q ":$port\$" && continue
    "$sim" --scenario "$work/scenario.json" --port "$port" >"$work/sim.out" 2>"$work/sim.err" &
    sim_pid=$!
    if wait_ready "$sim_pid" "$work/sim.out" 300 >/dev/null; then sim_port=$port; return 0; fi
    stop_pid "$sim_pid"; sim_pid=""
  done
  echo "walk_bench.sh: opcua_sim did not start: $(cat "$work/sim.err")" >&2
  exit 1
}

url_port=""
start_network() {   # start_network RTT_MS: sets url_port to the port clients use
  stop_pid "$proxy_pid"; proxy_pid=""
  if [ "$1" = 0 ]; then url_port=$sim_port; return 0; fi
  local one_way
  one_way=$(awk -v r="$1" 'BEGIN { printf "%.3f", r / 2 }')
  "$proxy" --target "$sim_port" --delay-ms "$one_way" --max-seconds 86400 >"$work/proxy.out" 2>&1 &
  proxy_pid=$!
  url_port=$(wait_ready "$proxy_pid" "$work/proxy.out" 10) || { echo "walk_bench.sh: delay_proxy did not start" >&2; exit 1; }
}

request_file() {
  printf '{"device": {"address": "opc.tcp://127.0.0.1:%d", "security_mode": "1", "security_policies": "http://opcfoundation.org/UA/SecurityPolicy#None"}, "timeout_ms": 60000}\n' \
    "$url_port" >"$work/request.json"
}

# run_once CONTENDER: one run; prints "SECONDS RSS_KB RESULT_BYTES WRITTEN_BYTES" or "stopped".
run_once() {
  local contender=$1 url="opc.tcp://127.0.0.1:$url_port"
  local snapshot="" node_options="${NODE_OPTIONS:-}" cmd=()
  rm -f "$work/result.json" "$work/snapshot.json" "$work/written.txt"
  if [ "$contender" = node ] && [ "$node_heap_mb" != 0 ]; then
    node_options="--max-old-space-size=$node_heap_mb"
  fi
  case "$contender" in
    reference) cmd=("$browse_bench" --url "$url" --source reference --timeout-ms 60000) ;;
    job) cmd=("$discover" --request "$work/request.json" --output "$work/result.json") ;;
    job_snapshots) snapshot=$work/snapshot.json; cmd=("$discover" --request "$work/request.json" --output "$work/result.json") ;;
    today) cmd=("$today" --request "$work/request.json" --output "$work/result.json") ;;
    today_snapshots) snapshot=$work/snapshot.json; cmd=("$today" --request "$work/request.json" --output "$work/result.json") ;;
    bare) cmd=("$bare" "$url" --timeout-ms 60000) ;;
    node) cmd=(node "$root/bench/node_crawler.js" "$url" --timeout-ms 60000) ;;
    *) echo "walk_bench.sh: unknown contender $contender" >&2; exit 2 ;;
  esac
  local start end status=0
  start=$(date +%s.%N)
  OVRIN_DISCOVERY_OUTPUT_FILE="$snapshot" NODE_OPTIONS="$node_options" timeout "$limit_s" \
    python3 "$root/bench/written_bytes.py" "$work/written.txt" /usr/bin/time -v "${cmd[@]}" \
    >"$work/out.txt" 2>"$work/time.txt" || status=$?
  end=$(date +%s.%N)
  if [ "$status" != 0 ]; then echo "stopped"; return 0; fi
  local rss bytes=0 written=0
  rss=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time.txt")
  [ -f "$work/result.json" ] && bytes=$(stat -c %s "$work/result.json")
  [ -f "$work/written.txt" ] && written=$(cat "$work/written.txt")
  awk -v s="$start" -v e="$end" -v r="$rss" -v b="$bytes" -v w="$written" 'BEGIN { printf "%.3f %d %d %d\n", e - s, r, b, w }'
}

slow() {   # slow CONTENDER RTT: true when one run takes long
  case "$1" in
    today_snapshots) return 0 ;;
    reference|today) [ "$2" != 0 ] ;;
    *) return 1 ;;
  esac
}

echo "walk_bench: contenders '$contenders', counts '$counts', round trips '$rtts' ms, $runs runs ($(nproc) cores)"
printf '%-8s %-4s %-16s %10s %10s %12s %12s %13s %s\n' count rtt contender median_s min_s peak_rss_kb result_bytes written_bytes runs
for count in $counts; do
  start_sim "$count"
  for rtt in $rtts; do
    start_network "$rtt"
    request_file
    for contender in $contenders; do
      case "$contender" in today|today_snapshots) [ -n "$today" ] || continue ;; esac
      n=$runs
      slow "$contender" "$rtt" && n=$slow_runs
      times=(); peak=0; size=0; written=0; stopped=0
      for _ in $(seq 1 "$n"); do
        line=$(run_once "$contender")
        if [ "$line" = stopped ]; then stopped=$((stopped + 1)); break; fi
        read -r secs rss bytes written <<<"$line"
        times+=("$secs")
        [ "$rss" -gt "$peak" ] && peak=$rss
        size=$bytes
      done
      if [ "${#times[@]}" = 0 ]; then
        printf '%-8s %-4s %-16s %10s %10s %12s %12s %13s %s\n' "$count" "$rtt" "$contender" stopped - - - - "failed or limit ${limit_s}s"
        continue
      fi
      median=$(printf '%s\n' "${times[@]}" | sort -n | awk '{ a[NR] = $1 } END { print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }')
      minimum=$(printf '%s\n' "${times[@]}" | sort -n | head -1)
      printf '%-8s %-4s %-16s %10s %10s %12s %12s %13s %s\n' "$count" "$rtt" "$contender" "$median" "$minimum" "$peak" "$size" "$written" "${#times[@]}"
    done
  done
done
