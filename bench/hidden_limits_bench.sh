#!/usr/bin/env bash
# The items walk against a server that enforces small operation limits without publishing them
# (the simulator with "publish_limits": false): for each address space and each contender, the
# requests the server refused with BadTooManyOperations, the nodes asked (nodes of every Browse,
# continuation points of every BrowseNext, ReadValueIds of every Read) and the supertype browses
# (Browse descriptions asking a data type for its supertype: in all, type nodes, most of one
# node), all counted by the simulator (its --stats-file), and the items listed.
#
#   bench/hidden_limits_bench.sh [--build DIR] [--before PATH] [--before-reference PATH]
#                                [--browse N] [--read N] [--spaces "types unsupported derived many synthetic:3000"]
#
# Contenders:
#   reference   the walk with its one-request-per-call source (bench/browse_bench --source reference)
#   job         discover_items of this build (batched source)
#   before      --before's discover binary (a build of an older tree), when given
#   reference_before  --before-reference's browse_bench (of an older tree), when given
# Spaces: a preset name of the simulator (types, many, ...; "many" with 1000 children), or
# synthetic:N (N synthetic variables in folders of 100, and the types preset). Every run gets a
# simulator of its own, on 127.0.0.1 only.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/release
before=""
before_reference=""
browse_limit=5
read_limit=7
spaces="types unsupported derived many synthetic:3000"
while [ $# -gt 0 ]; do
  case "$1" in
    --build) build=$2; shift 2 ;;
    --before) before=$2; shift 2 ;;
    --before-reference) before_reference=$2; shift 2 ;;
    --browse) browse_limit=$2; shift 2 ;;
    --read) read_limit=$2; shift 2 ;;
    --spaces) spaces=$2; shift 2 ;;
    *) echo "hidden_limits_bench.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done

if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C "$build" discover opcua_sim browse_bench >/dev/null
sim=$build/sim/opcua_sim

work=$(mktemp -d)
sim_pid=""
stop_sim() {
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; sim_pid=""; fi
}
cleanup() { stop_sim; rm -rf "$work"; }
trap cleanup EXIT

space_json() {   # space_json SPACE
  case "$1" in
    synthetic:*) printf '{"presets": ["types"], "synthetic_count": %d, "synthetic_folder_size": 100, "hide_server_object": true}' "${1#synthetic:}" ;;
    many) printf '{"presets": ["many"], "many_children": 1000, "hide_server_object": true}' ;;
    *) printf '{"presets": ["%s"], "hide_server_object": true}' "$1" ;;
  esac
}

start_sim() {   # start_sim SPACE; sets port
  stop_sim
  printf '{"address_space": %s, "limits": {"max_nodes_per_browse": %d, "max_nodes_per_read": %d, "publish_limits": false}}\n' \
    "$(space_json "$1")" "$browse_limit" "$read_limit" >"$work/scenario.json"
  rm -f "$work/stats.json"
  for _ in 1 2 3 4 5; do
    port=$(shuf -i 20000-60000 -n 1)
    ss -ltn | awk '{print $4}' | grep -q ":$port\$" && continue
    "$sim" --scenario "$work/scenario.json" --port "$port" --stats-file "$work/stats.json" >"$work/sim.out" 2>"$work/sim.err" &
    sim_pid=$!
    for _ in $(seq 1 300); do
      grep -q "^ready $port" "$work/sim.out" 2>/dev/null && return 0
      kill -0 "$sim_pid" 2>/dev/null || break
      sleep 0.05
    done
    wait "$sim_pid" 2>/dev/null || true; sim_pid=""
  done
  echo "hidden_limits_bench.sh: opcua_sim did not start: $(cat "$work/sim.err")" >&2
  exit 1
}

# The stats file is one line of compact JSON with numbers only.
stat_of() { grep -o "\"$1\":[0-9]*" "$work/stats.json" | cut -d: -f2; }

run_contender() {   # run_contender NAME; prints the items listed
  local url="opc.tcp://127.0.0.1:$port"
  case "$1" in
    reference | reference_before)
      local bench=$build/bench/browse_bench
      [ "$1" = reference_before ] && bench=$before_reference
      "$bench" --source reference --url "$url" --timeout-ms 10000 2>/dev/null |
        sed -n 's/.*items \([0-9]*\).*/\1/p' | head -1 ;;
    job | before)
      local discover=$build/app/discover
      [ "$1" = before ] && discover=$before
      printf '{"device": {"address": "%s", "security_mode": "1", "security_policies": "http://opcfoundation.org/UA/SecurityPolicy#None"}, "timeout_ms": 10000}\n' \
        "$url" >"$work/request.json"
      "$discover" --mode discover_items --request "$work/request.json" --output "$work/result.json" >/dev/null 2>&1 || true
      { grep -o '"external_id"' "$work/result.json" || true; } | wc -l ;;
  esac
}

contenders="reference"
[ -n "$before_reference" ] && contenders="$contenders reference_before"
[ -n "$before" ] && contenders="$contenders before"
contenders="$contenders job"
echo "Server enforcing Browse $browse_limit / Read $read_limit (ReadValueIds), publishing no limits ($(nproc) cores)"
printf '%-16s %-16s %7s %8s %9s %12s %11s %7s %9s %9s %10s %12s\n' space contender items refused browses \
  browse_nodes next_points reads read_ops supertype type_nodes max_per_type
for space in $spaces; do
  for contender in $contenders; do
    start_sim "$space"
    items=$(run_contender "$contender")
    sleep 0.2
    printf '%-16s %-16s %7s %8s %9s %12s %11s %7s %9s %9s %10s %12s\n' "$space" "$contender" "$items" \
      "$(stat_of refused)" "$(stat_of Browse)" "$(stat_of browse_nodes)" "$(stat_of browse_next_points)" \
      "$(stat_of Read)" "$(stat_of read_operations)" "$(stat_of supertype_browses)" \
      "$(stat_of supertype_nodes)" "$(stat_of supertype_browses_per_node_max)"
  done
done
