#!/usr/bin/env bash
# Builds libunitydrv0, libunitydrv-dev and unitydrv-tools from a build tree: each package is
# its install component (cmake --install --component into a staging root) with the control
# file of packaging/deb, md5sums, and in /usr/share/doc/PACKAGE the copyright file and the
# Debian changelog made from CHANGELOG.md. Depends are computed by dpkg-shlibdeps
# (shlibdeps.sh). libunitydrv0 adds its symbols file (checked by dpkg-gensymbols against
# libunitydrv0.symbols: the 14 entry points, no more, no fewer), its shlibs entry and the
# ldconfig trigger instead of maintainer scripts. SOURCE_DATE_EPOCH, when not set, is the
# newest changelog entry's date: it clamps the files' times in the packages. Run by the
# `deb` target, which sets SOURCE_DIR ARCH MULTIARCH VERSION UPSTREAM_VERSION REVISION
# SONAME_MAJOR MAINTAINER OBJDUMP RUNTIME_LIBDIR (see cmake/packaging.cmake).
# Usage: build-debs.sh BUILD_DIR OUT_DIR
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: $0 BUILD_DIR OUT_DIR" >&2; exit 2; }
build=$1 out=$2
deb_dir="$SOURCE_DIR/packaging/deb"
rm -rf "$out"
mkdir -p "$out/debian"
"$deb_dir/changelog.sh" "$SOURCE_DIR/CHANGELOG.md" "$REVISION" "$MAINTAINER" >"$out/changelog.Debian"
if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
  SOURCE_DATE_EPOCH=$(date -d "$(sed -n 's/^ -- .*  //p' "$out/changelog.Debian" | head -n 1)" +%s)
fi
export SOURCE_DATE_EPOCH
RUNTIME_DEPENDS="" TOOLS_DEPENDS=""

fill() {  # TEMPLATE: the control template with this build's fields
  sed -e "s|@VERSION@|$VERSION|g" -e "s|@ARCH@|$ARCH|g" -e "s|@MAINTAINER@|$MAINTAINER|g" \
      -e "s|@RUNTIME_DEPENDS@|$RUNTIME_DEPENDS|g" -e "s|@TOOLS_DEPENDS@|$TOOLS_DEPENDS|g" \
      -e "s|@INSTALLED_SIZE@|$installed_size|g" "$1"
}

# The entry points exported, as the symbols file lists them; -c4 fails on any difference.
symbols() {  # STAGE LIBRARY
  DEB_HOST_ARCH=$ARCH dpkg-gensymbols -plibunitydrv0 -v"$VERSION" -P"$1" -e"$2" -c4 \
    -I"$deb_dir/libunitydrv0.symbols" -O"$1/DEBIAN/symbols"
}

package() {  # PACKAGE COMPONENT
  local pkg=$1 stage="$out/debian/$1" lib
  DESTDIR="$stage" cmake --install "$build" --component "$2" >/dev/null
  if [ -d "$stage/usr/share/man" ]; then
    find "$stage/usr/share/man" -type f -name '*.[1-9]' -exec gzip -9n {} +
  fi
  install -D -m 644 "$deb_dir/copyright" "$stage/usr/share/doc/$pkg/copyright"
  gzip -9n -c "$out/changelog.Debian" >"$stage/usr/share/doc/$pkg/changelog.Debian.gz"
  if [ -f "$deb_dir/$pkg.lintian-overrides" ]; then
    install -D -m 644 "$deb_dir/$pkg.lintian-overrides" "$stage/usr/share/lintian/overrides/$pkg"
  fi
  chmod -R u+rwX,go+rX,go-w "$stage"
  mkdir -p "$stage/DEBIAN"
  lib="$stage/usr/lib/$MULTIARCH/libunitydrv.so.$SONAME_MAJOR"
  case "$pkg" in
    libunitydrv0) RUNTIME_DEPENDS=$("$deb_dir/shlibdeps.sh" "$out" "$ARCH" "$lib") ;;
    unitydrv-tools) TOOLS_DEPENDS=$("$deb_dir/shlibdeps.sh" "$out" "$ARCH" "$stage"/usr/bin/*) ;;
  esac
  installed_size=$(du -k -s --apparent-size "$stage" | cut -f1)
  fill "$deb_dir/$pkg.control" >"$stage/DEBIAN/control"
  (cd "$stage" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | LC_ALL=C sort -z |
     xargs -0 md5sum >DEBIAN/md5sums)
  if [ "$pkg" = "libunitydrv0" ]; then
    test -f "$lib" ||
      { echo "build-debs.sh: no /usr/lib/$MULTIARCH/libunitydrv.so.$SONAME_MAJOR" >&2; exit 1; }
    # Packages built against the library depend on this release or a later one.
    echo "libunitydrv $SONAME_MAJOR libunitydrv0 (>= $UPSTREAM_VERSION)" >"$stage/DEBIAN/shlibs"
    install -m 644 "$deb_dir/libunitydrv0.triggers" "$stage/DEBIAN/triggers"
    symbols "$stage" "$lib"
  fi
  chmod 644 "$stage"/DEBIAN/*
  dpkg-deb --root-owner-group -Zxz --build "$stage" "$out/${pkg}_${VERSION}_${ARCH}.deb" >/dev/null
  echo "$out/${pkg}_${VERSION}_${ARCH}.deb"
}

package libunitydrv0 runtime
package libunitydrv-dev dev
package unitydrv-tools tools
