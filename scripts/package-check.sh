#!/usr/bin/env bash
# Builds the release presets, packs their Debian packages, unpacks each into a scratch
# root (dpkg -x) and checks the installed files: the soname, the headers and pkg-config
# file (examples/host.c is compiled against them), and the library loaded by that host
# from the scratch root against the simulator of the amd64 tools package (the armhf host
# under qemu). Also prints what the armhf library needs from the C and C++ runtimes.
# Usage: scripts/package-check.sh [PRESET ...]   (default: amd64-release armhf-release)
# Binding port 502 needs root or a private network namespace (unshare -rn).
set -euo pipefail
cd "$(dirname "$0")/.."
root_dir=$(pwd)

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(amd64-release armhf-release)
out=build/packages
rm -rf "$out"
mkdir -p "$out"

for preset in amd64-release "${presets[@]}"; do
  [ -d "$out/$preset" ] && continue
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  (cd "build/$preset" && cpack -G DEB -B "$root_dir/$out/$preset" >/dev/null)
  for deb in "$out/$preset"/*.deb; do
    echo "--- $(basename "$deb")"
    dpkg-deb -f "$deb" Package Version Architecture Depends
    dpkg -x "$deb" "$out/$preset/root"
  done
  # cmake --install alone puts the same files in place.
  cmake --install "build/$preset" --prefix "$root_dir/$out/$preset/install" >/dev/null
  test -L "$out/$preset/install/lib/libunitydrv.so.0"
done

tools="$out/amd64-release/root/usr/bin"
"$tools/panelhost" --version
"$tools/plcsim" --version

for preset in "${presets[@]}"; do
  root="$out/$preset/root"
  lib="$root/usr/lib/libunitydrv.so.0"
  echo "=== $preset: $(readelf -d "$lib" | grep -o 'soname: \[.*\]')"
  for f in usr/include/unitydrv/unitydrv.h usr/include/unitydrv/version.h \
           usr/lib/pkgconfig/unitydrv.pc usr/lib/libunitydrv.so usr/bin/panelhost usr/bin/plcsim; do
    test -e "$root/$f" || { echo "missing in the packages: /$f" >&2; exit 1; }
  done
  case "$preset" in
    armhf*) cc=arm-linux-gnueabihf-gcc emulator="qemu-arm -L /usr/arm-linux-gnueabihf" ;;
    *) cc=gcc emulator="" ;;
  esac
  # shellcheck disable=SC2046  # pkg-config prints several flags
  $cc -std=c11 -Wall -Wextra -Werror $(PKG_CONFIG_PATH="$root/usr/lib/pkgconfig" pkg-config --cflags unitydrv) \
    examples/host.c -o "$out/$preset/host" -ldl
  $emulator "$root/usr/bin/panelhost" --version
  echo "needs: $(readelf -V "$lib" | grep -o '\(GLIBC[A-Z]*\|CXXABI[A-Z_]*\|GCC\)_[0-9.]*' | sort -uV | tr '\n' ' ')"
  ls -l "$(readlink -f "$lib")" | awk '{print "size:", $5, "bytes"}'
  scripts/run-host-example.sh "$tools/plcsim" "$tools/panelhost" "$emulator" "$out/$preset/host" "$lib"
done
echo "Packages checked: ${presets[*]}"
