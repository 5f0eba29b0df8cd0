#!/usr/bin/env bash
# Installs what the build, the tests and the tools need on Debian 12 (only what is missing).
# --bench adds what scripts/bench.sh needs besides (the plot's matplotlib).
set -euo pipefail

packages=(
  gcc g++ cmake ninja-build pkg-config
  libboost-dev googletest libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libcli11-dev
  g++-arm-linux-gnueabihf qemu-user
  clang libclang-rt-14-dev
  libmodbus-dev valgrind iproute2
  tshark
  lintian dpkg-dev
)
[ "${1:-}" = "--bench" ] && packages+=(python3-matplotlib)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
