#!/usr/bin/env bash
# Runs examples/two_devices.c against two simulators of examples/plant.json on loopback
# port 502. Once the host has both devices ready, the first simulator stops and starts
# again on its address (a controller restarting), so device A's rounds fail and the host
# must bring it back by the reconnect recipe, to its own controller.
# Usage: scripts/run-two-devices-example.sh PLCSIM PANELHOST EMULATOR HOST LIBRARY
#   as scripts/run-host-example.sh. Binding port 502 needs root or a private network
#   namespace (unshare -rn).
set -euo pipefail
[ $# -eq 5 ] || { echo "usage: $0 PLCSIM PANELHOST EMULATOR HOST LIBRARY" >&2; exit 2; }
plcsim=$1 panelhost=$2 emulator=$3 host=$4 library=$5
root="$(cd "$(dirname "$0")/.." && pwd)"
work=$(mktemp -d)
pids=()
cleanup() {
  local p
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null && wait "$p" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT

"$panelhost" tags build "$root/examples/plant_tags.txt" "$work/plant.tags" >/dev/null
# shellcheck source=scripts/sim-lib.sh
. "$root/scripts/sim-lib.sh"
start_sim "$plcsim" "$root/examples/plant.json" "$work/sim-a.log"
pids+=("$sim_pid") address_a=$sim_address sim_a=$sim_pid
start_sim "$plcsim" "$root/examples/plant.json" "$work/sim-b.log"
pids+=("$sim_pid") address_b=$sim_address

# shellcheck disable=SC2086  # the emulator is a command with its arguments
$emulator "$host" "$library" "$address_a" "$address_b" "$work/plant.tags" \
  "$root/examples/plant_tags.txt" >"$work/host.log" 2>&1 &
host_pid=$!
pids+=("$host_pid")
for _ in $(seq 300); do
  grep -q "both ready" "$work/host.log" && break
  kill -0 "$host_pid" 2>/dev/null || break
  sleep 0.1
done
grep -q "both ready" "$work/host.log" || { cat "$work/host.log" >&2; exit 1; }
kill "$sim_a"
wait "$sim_a" 2>/dev/null || true
for _ in $(seq 50); do
  "$plcsim" --project "$root/examples/plant.json" --listen "$address_a:502" >"$work/sim-a.log" 2>&1 &
  sim_a=$!
  pids[0]=$sim_a
  sleep 0.2
  grep -q listening "$work/sim-a.log" && break
  wait "$sim_a" 2>/dev/null || true
done
grep -q listening "$work/sim-a.log" || { cat "$work/sim-a.log" >&2; exit 1; }
status=0
wait "$host_pid" || status=$?
pids=("${pids[@]:0:2}")
cat "$work/host.log"
grep -q "^A: round failed" "$work/host.log" || { echo "no failed round on A" >&2; exit 1; }
exit "$status"
