#!/usr/bin/env bash
# The demo: installs what is missing, builds discover, brings up the demo plant
# (sim/plants/demo: OPC UA servers in private network namespaces), runs
# discover_devices on the plant's gateway host with the default ports and prints
# the result document, then browses the press line server it found with
# discover_items and prints that result document too. The plant is taken down
# again however the script ends. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

# Everything but the result document goes to standard error.
bash scripts/install-deps.sh >&2
if [ -f sim/node/package-lock.json ] && [ ! -f sim/node/node_modules/node-opcua/package.json ]; then
  (cd sim/node && npm ci --no-audit --no-fund --loglevel=error) >&2
fi

cmake -S "$root" -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build/release discover opcua_sim >&2

work=$(mktemp -d)
cleanup() {
  sim/plant down >/dev/null 2>&1 || sim/plant down || true
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

OPCUA_SIM="$root/build/release/sim/opcua_sim" sim/plant up sim/plants/demo >&2

# The gateway scans its eth0 subnet (10.77.0.0/24) on the default twelve ports.
cat >"$work/request.json" <<'JSON'
{
  "mode": "discover_devices",
  "job_id": "demo",
  "network_interface": "eth0",
  "timeout_ms": 60000
}
JSON

started=$(date +%s%N)
status=0
sim/plant exec -- "$root/build/release/app/discover" --mode discover_devices \
  --request "$work/request.json" --output "$work/result.json" || status=$?
finished=$(date +%s%N)

if [ "$status" -ne 0 ]; then
  echo "discover exited with status $status" >&2
  exit "$status"
fi
cat "$work/result.json"
elapsed_ms=$(( (finished - started) / 1000000 ))
printf 'discover_devices over 10.77.0.0/24 on the default ports took %d.%03d s\n' \
  $((elapsed_ms / 1000)) $((elapsed_ms % 1000)) >&2

# The gateway imports the press line as found and asks for its items, with progress snapshots.
device=$(jq -e '[.devices[] | select(.name | startswith("Press Line 1"))][0]' "$work/result.json") || {
  echo "the press line server was not found" >&2
  exit 1
}
jq -n --argjson d "$device" '{mode: "discover_items", job_id: "demo-items", timeout_ms: 10000, device: $d}' \
  >"$work/items_request.json"
echo "browsing $(jq -r .name <<<"$device") at $(jq -r .address <<<"$device")" >&2
status=0
sim/plant exec -- env OVRIN_DISCOVERY_OUTPUT_FILE="$work/progress.json" "$root/build/release/app/discover" \
  --mode discover_items --request "$work/items_request.json" --output "$work/items.json" || status=$?
if [ "$status" -ne 0 ]; then
  echo "discover exited with status $status" >&2
  exit "$status"
fi
cat "$work/items.json"
echo "discover_items listed $(jq '.items | length' "$work/items.json") items" >&2
