#!/usr/bin/env bash
# The client core's walk against a simulator that stops answering mid-walk (it holds every
# request after the first AFTER for ten minutes): per fetch strategy and run the wall time and
# peak resident memory of browse_bench (/usr/bin/time -v) and its items and warnings; then the
# medians. All on 127.0.0.1.
#
#   bench/stall_bench.sh [--runs N] [--after N] [--count N] [--timeout-ms MS]
#                        [--sources "batched reference"] [BUILD_DIR]
#
# Defaults: 3 runs, AFTER 20 requests, 50 000 synthetic variables in folders of 100, a 1000 ms
# time-out. BUILD_DIR defaults to build/release.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
runs=3 after=20 count=50000 timeout=1000 sources="batched reference" build=""
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --after) after=$2; shift 2 ;;
    --count) count=$2; shift 2 ;;
    --timeout-ms) timeout=$2; shift 2 ;;
    --sources) sources=$2; shift 2 ;;
    *) build=$1; shift ;;
  esac
done
build=${build:-$here/build/release}
sim=$build/sim/opcua_sim
bench=$build/bench/browse_bench
for program in "$sim" "$bench"; do
  [ -x "$program" ] || { echo "stall_bench.sh: missing $program" >&2; exit 2; }
done

work=$(mktemp -d)
sim_pid=""
cleanup() {
  [ -n "$sim_pid" ] && kill -9 "$sim_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

printf '{"address_space": {"synthetic_count": %d, "synthetic_folder_size": 100, "hide_server_object": true}, "misbehaviour": {"delay_ms": 600000, "delay_after": %d}}\n' \
  "$count" "$after" >"$work/scenario.json"

# Sets port and sim_pid (not in a subshell, so that the cleanup knows the simulator).
start_sim() {
  for _ in $(seq 20); do
    port=$((20000 + RANDOM % 30000))
    "$sim" --scenario "$work/scenario.json" --port "$port" >"$work/ready" 2>/dev/null &
    sim_pid=$!
    for _ in $(seq 50); do
      grep -q '^ready' "$work/ready" 2>/dev/null && return
      kill -0 "$sim_pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -9 "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
  done
  echo "stall_bench.sh: the simulator did not start" >&2
  exit 1
}

median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }

printf '%-10s %-6s %9s %9s %7s %9s\n' source run wall_ms rss_kb items warnings
for source in $sources; do
  : >"$work/$source.times"
  for run in $(seq "$runs"); do
    start_sim
    start=$(date +%s%N)
    /usr/bin/time -v -o "$work/time.txt" "$bench" --source "$source" --timeout-ms "$timeout" \
      --url "opc.tcp://127.0.0.1:$port" >"$work/out.txt" 2>&1 || true
    wall=$(( ($(date +%s%N) - start) / 1000000 ))
    kill -9 "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
    sim_pid=""
    rss=$(awk -F': ' '/Maximum resident/ {print $2}' "$work/time.txt")
    read -r items warnings < <(sed -n 's/^result [a-z]*, items \([0-9]*\), warnings \([0-9]*\).*/\1 \2/p' "$work/out.txt")
    printf '%-10s %-6s %9s %9s %7s %9s\n' "$source" "$run" "$wall" "$rss" "${items:--}" "${warnings:--}"
    echo "$wall $rss" >>"$work/$source.times"
  done
  printf '%-10s %-6s %9s %9s\n' "$source" median "$(cut -d' ' -f1 "$work/$source.times" | median)" \
    "$(cut -d' ' -f2 "$work/$source.times" | median)"
done
