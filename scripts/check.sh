#!/usr/bin/env bash
# Installs what is missing, builds and runs every test: natively, under
# AddressSanitizer + UBSan, and cross-built for 32-bit ARM under qemu-user (the suites
# against the simulator talk to the native simulator of build/dev). After the dev tests the
# end-to-end tests run again with the driver trace on, the Wireshark dissector decodes
# simulator and real captures, and the end-to-end tests run once more under valgrind
# memcheck. The package step builds the release presets' Debian packages, runs lintian on
# them, installs both architectures side by side into a scratch root and runs the C host
# example against each installed library.
# The fuzz preset runs every fuzz target for a short while. The chaos step runs the chaos
# soak of build/dev for two minutes per mode with a fixed seed.
# Usage: scripts/check.sh [preset ...]   (default: dev asan armhf package fuzz chaos)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(dev asan armhf package fuzz chaos)

# The armhf suites and the package check need the native simulator and host tool.
native_tools() {
  [ -x build/dev/tests/plcsim_remote ] && [ -x build/dev/tools/host/panelhost ] && return
  cmake --preset dev >/dev/null
  cmake --build --preset dev --target plcsim_remote plcsim panelhost
}

# The end-to-end and fault suites once more with the driver trace on (to a file, with the
# wire bytes), in both modes: tracing must change nothing that a host sees.
trace_rerun() {
  local log
  log=$(mktemp)
  UNITYDRV_TRACE="$log" UNITYDRV_TRACE_WIRE=1 ctest --preset dev -R '^test_(e2e|faults)(_guarded)?\.'
  grep -q ' dictionary types=' "$log" || { echo "the traced run wrote no trace to $log" >&2; exit 1; }
  echo "trace of the end-to-end suite: $(wc -l <"$log") lines"
  rm -f "$log"
}

for preset in "${presets[@]}"; do
  echo "=== ${preset} ==="
  start=$SECONDS
  case "$preset" in
    package)
      scripts/package-check.sh
      ;;
    chaos)
      cmake --preset dev >/dev/null
      cmake --build --preset dev --target chaossoak
      scripts/chaos.sh 2 20261125
      ;;
    *)
      [ "$preset" = armhf ] && native_tools
      cmake --preset "$preset" >/dev/null
      cmake --build --preset "$preset"
      case "$preset" in
        fuzz)
          # The campaign mutates in the fast build and replays its corpus under ASan.
          cmake --preset fuzz-fast >/dev/null
          cmake --build --preset fuzz-fast
          scripts/fuzz.sh 20
          ;;
        dev)
          ctest --preset dev
          trace_rerun
          tests/wireshark/test_dissector.sh build/dev
          scripts/leakcheck.sh build/dev
          ;;
        *) ctest --preset "$preset" ;;
      esac
      ;;
  esac
  echo "=== ${preset}: $((SECONDS - start)) s"
done
echo "All checks passed: ${presets[*]}"
