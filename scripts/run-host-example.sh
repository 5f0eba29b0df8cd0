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
# shellcheck source=scripts/sim-lib.sh
. "$root/scripts/sim-lib.sh"
start_sim "$plcsim" "$root/examples/plant.json" "$work/sim.log"
address=$sim_address
# shellcheck disable=SC2086  # the emulator is a command with its arguments
$emulator "$host" "$library" "$address" "$work/plant.tags" "$root/examples/plant_tags.txt"
# The host tool finds the driver without --lib: the one installed beside it (the unpacked
# packages), or the one of its build tree.
"$panelhost" read --plc "$address" --tags "$work/plant.tags" Counter >/dev/null
