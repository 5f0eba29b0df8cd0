#!/usr/bin/env bash
# Runs examples/host.c against the simulator of examples/plant.json on loopback port 502.
# Usage: scripts/run-host-example.sh PLCSIM PANELHOST EMULATOR HOST LIBRARY
#   PLCSIM, PANELHOST: native simulator and host tool; EMULATOR: "" or the command that
#   runs HOST (e.g. "qemu-arm -L /usr/arm-linux-gnueabihf"); LIBRARY: the driver HOST loads.
# Binding port 502 needs root or a private network namespace (unshare -rn).
set -euo pipefail
[ $# -eq 5 ] || { echo "usage: $0 PLCSIM PANELHOST EMULATOR HOST LIBRARY" >&2; exit 2; }
plcsim=$1 panelhost=$2 emulator=$3 host=$4 library=$5
root="$(cd "$(dirname "$0")/.." && pwd)"
work=$(mktemp -d)
sim_pid=""
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

"$panelhost" tags build "$root/examples/plant_tags.txt" "$work/plant.tags" >/dev/null
# Tests running alongside take loopback addresses too: use the first one that is free.
for x in $(seq 201 220); do
  address=127.0.0.$x
  "$plcsim" --project "$root/examples/plant.json" --listen "$address:502" >"$work/sim.log" 2>&1 &
  sim_pid=$!
  for _ in $(seq 50); do
    grep -q listening "$work/sim.log" && break
    kill -0 "$sim_pid" 2>/dev/null || break
    sleep 0.1
  done
  grep -q listening "$work/sim.log" && break
  wait "$sim_pid" 2>/dev/null || true
  sim_pid=""
done
[ -n "$sim_pid" ] || { echo "no simulator could listen" >&2; cat "$work/sim.log" >&2; exit 1; }
# shellcheck disable=SC2086  # the emulator is a command with its arguments
$emulator "$host" "$library" "$address" "$work/plant.tags" "$root/examples/plant_tags.txt"
# The host tool finds the driver without --lib: the one installed beside it (the unpacked
# packages), or the one of its build tree.
"$panelhost" read --plc "$address" --tags "$work/plant.tags" Counter >/dev/null
