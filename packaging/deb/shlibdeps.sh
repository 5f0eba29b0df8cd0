#!/usr/bin/env bash
# Prints the Depends that dpkg-shlibdeps computes for the binaries of one package, as
# Debian packages get them. Natively it reads the installed runtimes' symbols files.
# Cross-built, the runtimes are the cross compiler's (RUNTIME_LIBDIR), whose packages ship
# shlibs files only (which would ask for the newest libc6); so each runtime library gets a
# symbols file made here: every versioned symbol it defines, at the release that introduced
# the symbol's version node as the build machine's symbols file of that package dates it.
# dpkg-shlibdeps reads those through a scratch package tree (-S), as it reads a package
# being built.
# Usage: shlibdeps.sh WORK_DIR ARCH BINARY...   (env: RUNTIME_LIBDIR when cross-built)
set -euo pipefail
[ $# -ge 3 ] || { echo "usage: $0 WORK_DIR ARCH BINARY..." >&2; exit 2; }
work=$1 arch=$2
shift 2
mkdir -p "$work/debian"
printf 'Source: unitydrv\n\nPackage: unitydrv\nArchitecture: any\n' >"$work/debian/control"
files=() bins=()
for b in "$@"; do files+=("$(readlink -f "$b")"); bins+=("-e$(readlink -f "$b")"); done
OBJDUMP=${OBJDUMP:-$(dpkg-architecture -a"$arch" -qDEB_HOST_GNU_TYPE 2>/dev/null)-objdump}

# symbols file of PACKAGE for the build architecture, if dpkg has one
host_symbols() {
  local f
  for f in "/var/lib/dpkg/info/$1:$(dpkg --print-architecture).symbols" "/var/lib/dpkg/info/$1.symbols"; do
    [ -f "$f" ] && { echo "$f"; return; }
  done
  return 0
}

# " SYMBOL@NODE MINVER" for every versioned symbol LIBRARY defines (dpkg-shlibdeps looks
# symbols up by name and version; it does not match symbols files' patterns)
symbol_lines() {  # LIBRARY PACKAGE CROSS_PACKAGE
  local dated p f
  dated=$(for p in "$2" "$3"; do
            f=$(host_symbols "$p")
            [ -z "$f" ] || sed -n 's/^ \([A-Z][A-Z_]*_[0-9.]*\)@\1 \([^ ]*\).*/\1 \2/p' "$f"
          done | sort -u)
  # A node no symbols file dates (an ARM-only one) asks for no particular release.
  "$OBJDUMP" -T "$1" | awk -v dated="$dated" '
    BEGIN { n = split(dated, l, "\n"); for (i = 1; i <= n; i++) { split(l[i], f, " "); v[f[1]] = f[2] } }
    $0 ~ /\*UND\*/ || NF < 4 { next }
    { node = $(NF - 1); gsub(/[()]/, "", node) }
    node ~ /_/ && node != "Base" { print " " $NF "@" node " " (node in v ? v[node] : 0) }' | sort -u
}

cross_tree() {  # TREE BINARY...: the runtime libraries the binaries need, with made symbols files
  local tree=$1 multiarch lib soname owner pkg
  shift
  multiarch=$(dpkg-architecture -a"$arch" -qDEB_HOST_MULTIARCH 2>/dev/null)
  mkdir -p "$tree/DEBIAN" "$tree/usr/lib/$multiarch"
  : >"$tree/DEBIAN/symbols"
  for soname in $("$OBJDUMP" -p "$@" 2>/dev/null | awk '$1 == "NEEDED" {print $2}' | sort -u); do
    lib="$RUNTIME_LIBDIR/$soname"
    [ -e "$lib" ] || continue
    # A copy: dpkg-shlibdeps looks the owner of a link's target up, and that has no symbols file.
    cp "$(readlink -f "$lib")" "$tree/usr/lib/$multiarch/$soname"
    owner=$(dpkg -S "$(readlink -f "$lib")" | cut -d: -f1)
    # The package a panel installs: the cross package's shlibs names it (libc6:armhf).
    pkg=$(awk -v s="${soname%%.so*}" '$1 == s {print $3; exit}' "/var/lib/dpkg/info/$owner.shlibs")
    pkg=${pkg%%:*}
    [ -n "$pkg" ] || { echo "shlibdeps.sh: no package known for $soname ($owner)" >&2; exit 1; }
    echo "$soname $pkg #MINVER#" >>"$tree/DEBIAN/symbols"
    symbol_lines "$lib" "$pkg" "$owner" >>"$tree/DEBIAN/symbols"
  done
}

cd "$work"
if [ "$arch" = "$(dpkg --print-architecture)" ]; then
  out=$(dpkg-shlibdeps -O "${bins[@]}")
else
  : "${RUNTIME_LIBDIR:?cross-built packages need RUNTIME_LIBDIR}"
  rm -rf "$work/runtime"
  cross_tree "$work/runtime" "${files[@]}"
  out=$(DEB_HOST_ARCH=$arch dpkg-shlibdeps -O -S"$work/runtime" "${bins[@]}")
fi
sed -n 's/^shlibs:Depends=//p' <<<"$out"
