#!/usr/bin/env bash
# discover_items against a server that goes away in the middle of a large walk, as a PLC that
# reboots while it is browsed: the simulator is killed (SIGKILL), frozen (SIGSTOP) or killed and
# started again on the same port as soon as the snapshot file exists. Per kind and run: the time
# from the fault to the end of discover, its exit status, peak resident memory (/usr/bin/time -v),
# the items of the result and its last warning; then the medians. A run that has not ended after
# --cap seconds is killed and counted as the cap. All on 127.0.0.1.
#
#   bench/server_gone_bench.sh [--runs N] [--count N] [--timeout-ms MS] [--cap S]
#                              [--kinds "kill freeze restart"] [BUILD_DIR]
#
# Defaults: 3 runs, 200 000 synthetic variables in folders of 100, "timeout_ms" 3000, a cap of
# 180 s. BUILD_DIR defaults to build/release (its simulator is used too).
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
runs=3 count=200000 timeout=3000 cap=180 kinds="kill freeze restart" build=""
while [ $# -gt 0 ]; do
  case $1 in
    --runs) runs=$2; shift 2 ;;
    --count) count=$2; shift 2 ;;
    --timeout-ms) timeout=$2; shift 2 ;;
    --cap) cap=$2; shift 2 ;;
    --kinds) kinds=$2; shift 2 ;;
    *) build=$1; shift ;;
  esac
done
build=${build:-$here/build/release}
sim=$build/sim/opcua_sim
discover=$build/app/discover
for program in "$sim" "$discover"; do
  [ -x "$program" ] || { echo "server_gone_bench.sh: missing $program" >&2; exit 2; }
done

work=$(mktemp -d)
sim_pid="" job_pid=""
cleanup() {
  [ -n "$job_pid" ] && kill -9 "$job_pid" 2>/dev/null || true
  [ -n "$sim_pid" ] && { kill -CONT "$sim_pid" 2>/dev/null; kill -9 "$sim_pid" 2>/dev/null; } || true
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

printf '{"address_space": {"synthetic_count": %d, "synthetic_folder_size": 100, "hide_server_object": true}}\n' \
  "$count" >"$work/scenario.json"

# Starts the simulator on PORT (a random free one when empty); sets port and sim_pid.
start_sim() {
  local wanted=${1:-}
  for _ in $(seq 20); do
    port=${wanted:-$((20000 + RANDOM % 30000))}
    "$sim" --scenario "$work/scenario.json" --port "$port" >"$work/ready" 2>/dev/null &
    sim_pid=$!
    for _ in $(seq 300); do
      grep -q '^ready' "$work/ready" 2>/dev/null && return
      kill -0 "$sim_pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -9 "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
  done
  echo "server_gone_bench.sh: the simulator did not start" >&2
  exit 1
}

stop_sim() {
  kill -CONT "$sim_pid" 2>/dev/null || true
  kill -9 "$sim_pid" 2>/dev/null || true
  wait "$sim_pid" 2>/dev/null || true
  sim_pid=""
}

now_ms() { echo $(( $(date +%s%N) / 1000000 )); }
median() { sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'; }

printf '%-8s %-4s %12s %6s %9s %7s  %s\n' kind run after_ms status rss_kb items last_warning
for kind in $kinds; do
  : >"$work/$kind.times"
  for run in $(seq "$runs"); do
    start_sim
    rm -f "$work/snapshot.json" "$work/result.json"
    printf '{"device": {"address": "opc.tcp://127.0.0.1:%d", "security_mode": "1", "security_policies": "http://opcfoundation.org/UA/SecurityPolicy#None"}, "timeout_ms": %d}\n' \
      "$port" "$timeout" >"$work/request.json"
    rm -f "$work/end"
    (
      OVRIN_DISCOVERY_OUTPUT_FILE=$work/snapshot.json /usr/bin/time -v -o "$work/time.txt" \
        "$discover" --mode discover_items --request "$work/request.json" --output "$work/result.json" \
        >/dev/null 2>"$work/stderr.txt" && echo 0 >"$work/status" || echo $? >"$work/status"
      now_ms >"$work/end"
    ) &
    job_pid=$!
    until [ -s "$work/snapshot.json" ] || ! kill -0 "$job_pid" 2>/dev/null; do sleep 0.01; done
    fault=$(now_ms)
    case $kind in
      kill) stop_sim ;;
      freeze) kill -STOP "$sim_pid" ;;
      restart) old=$port; stop_sim; start_sim "$old" ;;
    esac
    status=""
    while [ -z "$status" ]; do
      if [ -s "$work/end" ]; then
        wait "$job_pid" 2>/dev/null || true
        status=$(cat "$work/status")
        after=$(( $(cat "$work/end") - fault ))
      elif [ $(( $(now_ms) - fault )) -ge $(( cap * 1000 )) ]; then
        pkill -9 -P "$job_pid" 2>/dev/null || true
        pkill -9 -f "$discover --mode discover_items --request $work/request.json" 2>/dev/null || true
        wait "$job_pid" 2>/dev/null || true
        status=killed
        after=$(( cap * 1000 ))
      else
        sleep 0.01
      fi
    done
    job_pid=""
    [ -n "$sim_pid" ] && stop_sim
    rss=$(awk -F': ' '/Maximum resident/ {print $2}' "$work/time.txt" 2>/dev/null || true)
    items=- last=-
    if [ -s "$work/result.json" ]; then
      items=$(python3 -c 'import json,sys; print(len(json.load(open(sys.argv[1]))["items"]))' "$work/result.json")
      last=$(python3 -c 'import json,sys; w=json.load(open(sys.argv[1])).get("warnings",[]); print(w[-1] if w else "-")' \
        "$work/result.json")
    fi
    printf '%-8s %-4s %12s %6s %9s %7s  %s\n' "$kind" "$run" "$after" "$status" "${rss:--}" "$items" "$last"
    echo "$after ${rss:-0}" >>"$work/$kind.times"
  done
  printf '%-8s %-4s %12s %6s %9s\n' "$kind" median "$(cut -d' ' -f1 "$work/$kind.times" | median)" "" \
    "$(cut -d' ' -f2 "$work/$kind.times" | median)"
done
