#!/usr/bin/env bash
# Times the TCP scan of a whole /24 on the default twelve ports, inside a private
# namespace LAN: the gateway (eth0) and three hosts answering Hello on some ports.
# Run as root. Usage: bench/scan_bench.sh [BUILD_DIR]   (default build/release)
# Builds the two programs it needs (ninja targets scan_bench, ack_responder).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
netlan="$root/sim/support/netlan.sh"
lan="scanbench$$"

[ "$(id -u)" = 0 ] || { echo "scan_bench.sh: needs root (network namespaces)" >&2; exit 1; }
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
ninja -C "$build" scan_bench ack_responder >/dev/null

trap 'bash "$netlan" down "$lan"' EXIT
bash "$netlan" up "$lan" --subnet 10.99.7.0/24 --gateway gw=10.99.7.1/24 \
  --host s1=10.99.7.21/24 --host s2=10.99.7.87/24 --host s3=10.99.7.250/24
responder="$build/sim/support/ack_responder"
bash "$netlan" spawn "$lan" s1 -- "$responder" 4840 >/dev/null
bash "$netlan" spawn "$lan" s2 -- "$responder" 4841 4845 >/dev/null
bash "$netlan" spawn "$lan" s3 -- "$responder" 53530 >/dev/null
for host_port in s1:4840 s2:4845 s3:53530; do
  host=${host_port%:*}; hex=$(printf ':%04X' "${host_port#*:}")
  for _ in $(seq 1 100); do
    bash "$netlan" exec "$lan" "$host" -- cat /proc/net/tcp | awk '{print $2, $4}' | grep -q "$hex 0A" && break
    sleep 0.05
  done
done

echo "design bound: ceil(253/48) * 12 * 80 ms = $(( (253 + 47) / 48 * 12 * 80 )) ms"
bash "$netlan" exec "$lan" gw -- "$build/bench/scan_bench" --interface eth0
