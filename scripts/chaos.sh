#!/usr/bin/env bash
# The chaos soak of build/dev: four devices on two simulated controllers behind fault
# proxies, MINUTES per mode under a random fault schedule drawn from SEED, every delivered
# value checked against the controller's value history. The default mode and guarded mode
# (UNITYDRV_GUARD=1, read when the library loads, hence a process of its own) run side by
# side, one per core; each prints its report. Fails when either run fails. Builds nothing:
# build the dev preset first.
# Usage: scripts/chaos.sh [MINUTES] [SEED]   (default: 2 minutes, seed 1)
set -euo pipefail
cd "$(dirname "$0")/.."

minutes="${1:-2}"
seed="${2:-1}"
soak=build/dev/tools/chaos/chaossoak
# UNITYDRV_CHAOS_LIB runs another build of the library (a planted fault, a release build).
library="${UNITYDRV_CHAOS_LIB:-build/dev/libunitydrv.so}"
if [ ! -x "$soak" ]; then
  echo "no $soak: run 'cmake --preset dev && cmake --build --preset dev'" >&2
  exit 1
fi
# A run that hangs is cut off well after its own end (quiet phases, watchdog included).
limit=$(awk -v m="$minutes" 'BEGIN { printf "%d", m * 60 + 180 }')
logs="$(mktemp -d "${TMPDIR:-/tmp}/unitydrv-chaos.XXXXXX")"

modes=(default guarded)
if ! grep -aqP 'UNITYDRV_GUARD\x00' "$(readlink -f "$library")"; then
  echo "chaos: this library has no guarded mode (it never reads UNITYDRV_GUARD): guarded run skipped"
  modes=(default)
fi

for mode in "${modes[@]}"; do
  guard=0
  [ "$mode" = guarded ] && guard=1
  (
    set +e
    if [ "$guard" = 1 ]; then export UNITYDRV_GUARD=1; else unset UNITYDRV_GUARD; fi
    # A network namespace of its own: a refusal frees a proxy's loopback address, which a
    # simulator of another process on this machine must not take meanwhile.
    timeout "$limit" unshare -rn sh -c 'ip link set lo up && exec "$@"' chaos \
      "$soak" --lib "$library" --minutes "$minutes" --seed "$seed" >"$logs/$mode.out" 2>"$logs/$mode.err"
    echo $? >"$logs/$mode.rc"
  ) &
done
wait

status=0
for mode in "${modes[@]}"; do
  rc=$(cat "$logs/$mode.rc")
  cat "$logs/$mode.out"
  if [ "$rc" != 0 ]; then
    [ "$rc" = 124 ] && echo "chaos: the $mode run did not end within ${limit} s"
    echo "chaos: $mode mode FAILED (exit $rc); the first failures, with seed and events:"
    head -n 120 "$logs/$mode.err"
    status=1
  fi
done
[ "$status" -eq 0 ] && rm -rf "$logs"
[ "$status" -eq 0 ] || echo "chaos: logs in $logs"
exit "$status"
