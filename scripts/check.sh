#!/usr/bin/env bash
# Installs what is missing, builds and runs every test: natively, under
# AddressSanitizer + UBSan, and cross-built for 32-bit ARM under qemu-user.
# The fuzz preset runs every fuzz target for a short while; after the dev tests the
# Wireshark dissector decodes simulator and real captures, and the end-to-end tests
# run once more under valgrind memcheck.
# Usage: scripts/check.sh [preset ...]   (default: dev asan armhf fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(dev asan armhf fuzz)

for preset in "${presets[@]}"; do
  echo "=== ${preset} ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  case "$preset" in
    fuzz) scripts/fuzz.sh 20 ;;
    dev)
      ctest --preset dev
      tests/wireshark/test_dissector.sh build/dev
      scripts/leakcheck.sh build/dev
      ;;
    *) ctest --preset "$preset" ;;
  esac
done
echo "All checks passed: ${presets[*]}"
