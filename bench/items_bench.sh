#!/usr/bin/env bash
# discover_items over the simulator's synthetic address space on loopback: wall time and
# peak memory of the whole run (/usr/bin/time -v), once without and once with progress
# snapshots (OVRIN_DISCOVERY_OUTPUT_FILE), and with --profile a perf profile of a smaller
# run with snapshots, summarised by library and by function.
#
#   bench/items_bench.sh [BUILD_DIR] [--count N] [--snapshot-dir DIR] [--profile [N]]
#
# BUILD_DIR defaults to build/release (configured and built when missing); N defaults to
# 50000 variables (in folders of 100); snapshots go to DIR (default: a temporary directory
# next to the result; try /dev/shm to leave the disk out). The simulator runs without its
# statistics file, which would otherwise sync to disk after every request.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/release
count=50000
snapshot_dir=""
profile=0
profile_count=5000
while [ $# -gt 0 ]; do
  case "$1" in
    --count) count=$2; shift 2 ;;
    --snapshot-dir) snapshot_dir=$2; shift 2 ;;
    --profile)
      profile=1; shift
      if [ $# -gt 0 ] && [[ "$1" =~ ^[0-9]+$ ]]; then profile_count=$1; shift; fi ;;
    *) build=$1; shift ;;
  esac
done

if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C "$build" discover opcua_sim >/dev/null
discover=$build/app/discover
sim=$build/sim/opcua_sim

work=$(mktemp -d)
sim_pid=""
cleanup() {
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
[ -n "$snapshot_dir" ] || snapshot_dir=$work/snapshots
mkdir -p "$snapshot_dir"
snapshot=$snapshot_dir/items_bench_progress_$$.json

start_sim() {   # start_sim COUNT
  local n=$1 port
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; sim_pid=""; fi
  printf '{"address_space": {"hide_server_object": true, "synthetic_count": %d, "synthetic_folder_size": 100}}\n' \
    "$n" >"$work/scenario.json"
  for _ in 1 2 3 4 5; do
    port=$(shuf -i 20000-60000 -n 1)
    ss -ltn | awk '{print $4}' | grep -q ":$port\$" && continue
    "$sim" --scenario "$work/scenario.json" --port "$port" >"$work/sim.out" 2>"$work/sim.err" &
    sim_pid=$!
    for _ in $(seq 1 300); do
      grep -q "^ready $port" "$work/sim.out" 2>/dev/null && break
      kill -0 "$sim_pid" 2>/dev/null || break
      sleep 0.05
    done
    if grep -q "^ready $port" "$work/sim.out" 2>/dev/null; then
      printf '{"device": {"address": "opc.tcp://127.0.0.1:%d", "security_mode": "1", "security_policies": "http://opcfoundation.org/UA/SecurityPolicy#None"}, "timeout_ms": 60000}\n' \
        "$port" >"$work/request.json"
      return 0
    fi
    wait "$sim_pid" 2>/dev/null || true; sim_pid=""
  done
  echo "items_bench.sh: opcua_sim did not start: $(cat "$work/sim.err")" >&2
  exit 1
}

measure() {   # measure LABEL SNAPSHOT_PATH
  local label=$1 path=$2
  rm -f "$work/result.json" "$path"
  OVRIN_DISCOVERY_OUTPUT_FILE="$path" /usr/bin/time -v "$discover" --request "$work/request.json" \
    --output "$work/result.json" 2>"$work/time.txt" >/dev/null
  local wall rss user sys items
  wall=$(sed -n 's/.*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$work/time.txt")
  rss=$(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/time.txt")
  user=$(sed -n 's/.*User time (seconds): //p' "$work/time.txt")
  sys=$(sed -n 's/.*System time (seconds): //p' "$work/time.txt")
  items=$(grep -c '"external_id"' "$work/result.json" || true)
  printf '%-28s items %6d  wall %9s  user %6ss  sys %6ss  peak RSS %7d KB\n' "$label" "$items" "$wall" "$user" "$sys" "$rss"
  if [ -n "$path" ] && [ -f "$path" ]; then
    printf '%-28s last snapshot %d bytes, %d items\n' "" "$(stat -c %s "$path")" "$(grep -o '"external_id"' "$path" | wc -l)"
  fi
}

echo "discover_items over $count synthetic variables on loopback ($(nproc) cores, snapshots in $snapshot_dir)"
start_sim "$count"
measure "without snapshots" ""
measure "with snapshots" "$snapshot"

if [ "$profile" = 1 ]; then
  command -v perf >/dev/null || { echo "items_bench.sh: perf is not installed" >&2; exit 1; }
  start_sim "$profile_count"
  echo
  echo "profile of a run over $profile_count variables with snapshots (perf, on-CPU samples of discover):"
  OVRIN_DISCOVERY_OUTPUT_FILE="$snapshot" perf record -q -g -o "$work/perf.data" "$discover" \
    --request "$work/request.json" --output "$work/result.json" >/dev/null 2>&1
  perf report -i "$work/perf.data" --no-children --sort dso --stdio -g none 2>/dev/null | grep '%' | head -12 || true
  echo
  perf report -i "$work/perf.data" --no-children --sort sym --stdio -g none 2>/dev/null | grep '%' | head -25 || true
  if command -v strace >/dev/null; then
    echo
    echo "system calls of the same run by wall time spent in them (strace -c -w):"
    OVRIN_DISCOVERY_OUTPUT_FILE="$snapshot" strace -f -c -w -o "$work/strace.txt" "$discover" \
      --request "$work/request.json" --output "$work/result.json" >/dev/null 2>&1
    head -12 "$work/strace.txt"
  fi
fi
