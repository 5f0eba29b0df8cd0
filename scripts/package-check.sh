#!/usr/bin/env bash
# Builds the release presets and their Debian packages (libunitydrv0, libunitydrv-dev,
# unitydrv-tools per architecture), runs lintian on every package (an error, or a warning
# that no override file explains, fails), then installs the runtime and -dev packages of
# every architecture side by side into one scratch root with dpkg --root. For each
# architecture it compiles examples/host.c against the installed -dev package through
# pkg-config and runs it (armhf under qemu) with the installed library, found by the loader,
# against the simulator of the amd64 tools package; it removes the -dev packages and runs
# the hosts again on the runtime packages alone. Also prints what each library needs from
# the C and C++ runtimes.
# Usage: scripts/package-check.sh [PRESET ...]   (default: amd64-release armhf-release)
# Needs root (dpkg --root, port 502) or a private namespace (unshare -rn).
set -euo pipefail
cd "$(dirname "$0")/.."
root_dir=$(pwd)

presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(amd64-release armhf-release)
out=build/packages
rm -rf "$out"
mkdir -p "$out"

arch_of() { dpkg-deb -f "$1" Architecture; }
debs=()
for preset in amd64-release "${presets[@]}"; do
  [ -d "$out/$preset" ] && continue
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target deb
  mkdir -p "$out/$preset"
  cp "build/$preset"/debs/*.deb "$out/$preset/"
  for deb in "$out/$preset"/*.deb; do
    echo "--- $(basename "$deb")"
    dpkg-deb -f "$deb" Package Version Architecture Multi-Arch Depends
    debs+=("$deb")
  done
  dpkg-deb -c "$out/$preset"/libunitydrv0_*.deb
  # The symbols file lists the 14 entry points (dpkg-gensymbols checked them at build).
  dpkg-deb --info "$out/$preset"/libunitydrv0_*.deb symbols | tee "$out/$preset/symbols"
  test "$(grep -c '^ ORMAND_DRV_[A-Za-z0-9]*@Base ' "$out/$preset/symbols")" = 14
done

echo "=== lintian"
lintian --version
# lintian fails on errors; every warning kept is overridden, with its reason, in the
# package's override file (packaging/deb), so one that is not fails too.
lintian --show-overrides "${debs[@]}" 2>&1 | { grep -v "root privileges" || true; } |
  tee "$out/lintian.log"
if grep -q '^[EW]:' "$out/lintian.log"; then
  echo "lintian: errors or warnings without an override" >&2
  exit 1
fi

echo "=== scratch root: side by side"
root="$root_dir/$out/root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/log"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
dpkg --root="$root" --add-architecture armhf
dpkg --root="$root" --print-foreign-architectures
# The C and C++ runtimes the packages depend on are not in the scratch root.
install_debs() { dpkg --root="$root" --force-depends --install "$@"; }
# One install of the first preset of each architecture, and the amd64 tools.
declare -A installed
side_by_side=("$out"/amd64-release/unitydrv-tools_*.deb)
for preset in "${presets[@]}"; do
  arch=$(arch_of "$out/$preset"/libunitydrv0_*.deb)
  [ -n "${installed[$arch]:-}" ] && continue
  installed[$arch]=$preset
  side_by_side+=("$out/$preset"/libunitydrv0_*.deb "$out/$preset"/libunitydrv-dev_*.deb)
done
[ -n "${installed[amd64]:-}" ] || side_by_side+=("$out"/amd64-release/libunitydrv0_*.deb)
install_debs "${side_by_side[@]}"
tools="$root/usr/bin"

multiarch_of() { case "$1" in armhf) echo arm-linux-gnueabihf ;; *) echo x86_64-linux-gnu ;; esac; }
declare -A emulator_of
for preset in "${presets[@]}"; do
  arch=$(arch_of "$out/$preset"/libunitydrv0_*.deb)
  # A further preset of an architecture (the static runtime) replaces the first one.
  if [ "${installed[$arch]}" != "$preset" ]; then
    install_debs "$out/$preset"/libunitydrv0_*.deb "$out/$preset"/libunitydrv-dev_*.deb
    installed[$arch]=$preset
  fi
  libdir="$root/usr/lib/$(multiarch_of "$arch")"
  lib="$libdir/libunitydrv.so.0"
  case "$arch" in
    armhf) cc=arm-linux-gnueabihf-gcc emulator="qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=$libdir" ;;
    *) cc=gcc emulator="env LD_LIBRARY_PATH=$libdir" ;;
  esac
  emulator_of[$arch]=$emulator
  echo "=== $preset ($arch): $(readelf -d "$lib" | grep -o 'soname: \[.*\]')"
  cflags=$(PKG_CONFIG_LIBDIR="$libdir/pkgconfig" pkg-config --cflags unitydrv)
  # The installed header compiles on its own, with nothing of the source or build tree.
  for lang in c c++; do
    # shellcheck disable=SC2086  # pkg-config prints several flags
    echo '#include <unitydrv/unitydrv.h>' | $cc -x $lang -fsyntax-only -Wall -Wextra -Werror $cflags -
  done
  examples="$root/usr/share/doc/libunitydrv-dev/examples"
  for example in host two_devices; do
    # shellcheck disable=SC2086
    $cc -std=c11 -Wall -Wextra -Werror $cflags "$examples/$example.c" -o "$out/$example-$arch" -ldl
  done
  # -lunitydrv finds the link of the -dev package.
  libs=$(PKG_CONFIG_LIBDIR="$libdir/pkgconfig" pkg-config --libs unitydrv)
  test "$(readlink -f "$(echo "$libs" | sed -n 's/^-L\([^ ]*\) .*/\1/p')/libunitydrv.so")" = "$(readlink -f "$lib")"
  echo "needs: $(readelf -V "$lib" | grep -o '\(GLIBC[A-Z]*\|CXXABI[A-Z_]*\|GCC\)_[0-9.]*' | sort -uV | tr '\n' ' ')"
  echo "size: $(stat -L -c %s "$lib") bytes"
  strings "$lib" | grep "libunitydrv [0-9]"
  # The host finds the library by its soname, through the loader, in the scratch root.
  scripts/run-host-example.sh "$tools/plcsim" "$tools/panelhost" "$emulator" "$out/host-$arch" libunitydrv.so.0
  scripts/run-two-devices-example.sh "$tools/plcsim" "$tools/panelhost" "$emulator" \
    "$out/two_devices-$arch" libunitydrv.so.0
done
dpkg --root="$root" --list 'libunitydrv*' 'unitydrv*' | grep '^ii'
# The installed panelhost loads the library installed beside it, and says which.
"$tools/panelhost" --version | tee "$out/panelhost-version"
grep -qF "($root/usr/lib/x86_64-linux-gnu/libunitydrv.so.0)" "$out/panelhost-version"
"$tools/plcsim" --version
# The armhf tools, unpacked with their library, do the same under qemu.
for deb in "$out"/armhf-release/{libunitydrv0,unitydrv-tools}_*.deb; do
  [ -f "$deb" ] && dpkg -x "$deb" "$out/armhf-tools"
done
if [ -d "$out/armhf-tools" ]; then
  qemu-arm -L /usr/arm-linux-gnueabihf "$out/armhf-tools/usr/bin/panelhost" --version |
    tee "$out/panelhost-version"
  grep -qF "/armhf-tools/usr/lib/arm-linux-gnueabihf/libunitydrv.so.0)" "$out/panelhost-version"
fi

echo "=== without the -dev packages"
dev_packages=()
for arch in "${!emulator_of[@]}"; do dev_packages+=("libunitydrv-dev:$arch"); done
dpkg --root="$root" --remove "${dev_packages[@]}"
test ! -e "$root/usr/include/unitydrv/unitydrv.h"
for arch in "${!emulator_of[@]}"; do
  test ! -e "$root/usr/lib/$(multiarch_of "$arch")/libunitydrv.so"
  scripts/run-host-example.sh "$tools/plcsim" "$tools/panelhost" "${emulator_of[$arch]}" \
    "$out/host-$arch" libunitydrv.so.0
  echo "$arch: the runtime package alone serves the host"
done
dpkg --root="$root" --list 'libunitydrv*' | grep '^ii'
echo "Packages checked: ${presets[*]}"
