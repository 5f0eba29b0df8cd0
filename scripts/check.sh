#!/usr/bin/env bash
# Installs what is missing, builds and runs every test: natively, under
# AddressSanitizer + UBSan, and cross-built for 32-bit ARM under qemu-user.
# Usage: scripts/check.sh [preset ...]   (default: dev asan armhf)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(dev asan armhf)

for preset in "${presets[@]}"; do
  echo "=== ${preset} ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  case "$preset" in
    fuzz) scripts/fuzz.sh 20 ;;
    *) ctest --preset "$preset" ;;
  esac
done
echo "All checks passed: ${presets[*]}"
