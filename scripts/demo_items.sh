#!/usr/bin/env bash
# Browses one OPC UA server with discover_items and prints a short summary of the items.
#
#   scripts/demo_items.sh [--discover PATH] [--timeout MS] [--output FILE] DEVICES_RESULT.json [INDEX] [-- RUNNER...]
#   scripts/demo_items.sh [--discover PATH] [--timeout MS] [--output FILE] --address URL [-- RUNNER...]
#
# DEVICES_RESULT.json is a discover_devices result; its device record number INDEX (default 0)
# is the target, imported as it stands (address and user_defined_fields). With --address the
# target is that endpoint, unsecured and anonymous. RUNNER is a command prefix that discover
# runs under, e.g. "sim/plant exec --" to run it on the plant's gateway host. Progress
# snapshots go to a temporary file and are counted while the browse runs. Exits with
# discover's status. Needs jq.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
discover="$root/build/release/app/discover"
timeout_ms=30000
output=""
address=""
devices=""
index=0
runner=()

while [ $# -gt 0 ]; do
  case "$1" in
    --discover) discover=$2; shift 2 ;;
    --timeout) timeout_ms=$2; shift 2 ;;
    --output) output=$2; shift 2 ;;
    --address) address=$2; shift 2 ;;
    --) shift; runner=("$@"); break ;;
    -h|--help) sed -n '2,13p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *)
      if [ -z "$devices" ]; then devices=$1; else index=$1; fi
      shift ;;
  esac
done

command -v jq >/dev/null || { echo "demo_items.sh: jq is needed" >&2; exit 1; }
[ -x "$discover" ] || { echo "demo_items.sh: no discover at $discover (build it first)" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
[ -n "$output" ] || output="$work/items.json"

if [ -n "$address" ]; then
  device=$(jq -n --arg a "$address" \
    '{address: $a, security_mode: "1", security_policies: "http://opcfoundation.org/UA/SecurityPolicy#None"}')
elif [ -n "$devices" ]; then
  device=$(jq -e --argjson i "$index" '.devices[$i]' "$devices") || {
    echo "demo_items.sh: $devices has no device record number $index" >&2; exit 1; }
else
  echo "demo_items.sh: give a discover_devices result or --address URL (see --help)" >&2
  exit 1
fi
jq -n --argjson d "$device" --argjson t "$timeout_ms" \
  '{mode: "discover_items", job_id: "demo-items", timeout_ms: $t, device: $d}' >"$work/request.json"

echo "Browsing $(jq -r '.name // .address' <<<"$device") at $(jq -r .address <<<"$device") ..." >&2
snapshot="$work/progress.json"
started=$(date +%s%N)
"${runner[@]}" env OVRIN_DISCOVERY_OUTPUT_FILE="$snapshot" "$discover" --mode discover_items \
  --request "$work/request.json" --output "$output" 2>"$work/stderr" &
pid=$!
seen=0; last=""
while kill -0 "$pid" 2>/dev/null; do
  if [ -s "$snapshot" ]; then
    stamp=$(stat -c %Y.%i "$snapshot" 2>/dev/null || true)
    if [ -n "$stamp" ] && [ "$stamp" != "$last" ]; then last=$stamp; seen=$((seen + 1)); fi
  fi
  sleep 0.1
done
status=0
wait "$pid" || status=$?
finished=$(date +%s%N)
if [ "$status" -ne 0 ]; then
  echo "discover_items ended with status $status: $(tail -n 1 "$work/stderr")" >&2
  exit "$status"
fi

elapsed_ms=$(( (finished - started) / 1000000 ))
jq -r '"\(.items | length) items, \(.warnings | length) warnings", "",
  (.items[:15][] | "  \(.name)  [\(.data_type), \(.read_write)]  \(.external_id)"),
  (if (.items | length) > 15 then "  ..." else empty end)' "$output"
printf '\nbrowse took %d.%03d s; the reader saw %d progress snapshot(s); result in %s\n' \
  $((elapsed_ms / 1000)) $((elapsed_ms % 1000)) "$seen" \
  "$( [ "$output" = "$work/items.json" ] && echo "(temporary, pass --output to keep it)" || echo "$output")" >&2
