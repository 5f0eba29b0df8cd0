#!/usr/bin/env bash
# Writes the Debian changelog of the packages from CHANGELOG.md: one entry per "## VERSION"
# section, its paragraphs and list items as "*" items wrapped at 78 columns. The newest
# entry carries the packages' Debian revision; an entry is dated by the commit that added
# its heading (SOURCE_DATE_EPOCH, when set, dates the newest one).
# Usage: changelog.sh CHANGELOG.md REVISION MAINTAINER > changelog.Debian
set -euo pipefail
[ $# -eq 3 ] || { echo "usage: $0 CHANGELOG.md REVISION MAINTAINER" >&2; exit 2; }
changelog=$1 revision=$2 maintainer=$3

entry_date() {  # VERSION NEWEST
  local epoch=""
  [ "$2" = 1 ] && epoch=${SOURCE_DATE_EPOCH:-}
  if [ -z "$epoch" ] && git -C "$(dirname "$changelog")" rev-parse >/dev/null 2>&1; then
    epoch=$(git -C "$(dirname "$changelog")" log --format=%ct -S"## $1" -- "$(basename "$changelog")" |
            tail -n 1)
  fi
  [ -n "$epoch" ] || epoch=$(stat -c %Y "$changelog")
  LC_ALL=C date -u -R -d "@$epoch"
}

dates=""
newest=1
while read -r v; do
  dates+="$v=$(entry_date "$v" "$newest");"
  newest=0
done < <(sed -n 's/^## \([0-9][^ ]*\).*/\1/p' "$changelog")

LC_ALL=C awk -v revision="$revision" -v maintainer="$maintainer" -v dates="$dates" '
function flush(   n, words, i, line, lead) {
  if (item == "") return
  gsub(/`/, "", item)
  n = split(item, words, " ")
  line = "  *"
  for (i = 1; i <= n; i++) {
    if (length(line) + 1 + length(words[i]) > 78 && line !~ /^ *\*?$/) { print line; line = "   " }
    line = line " " words[i]
  }
  print line
  item = ""
}
function close_entry() {
  if (version == "") return
  flush()
  print ""
  print " -- " maintainer "  " date[version]
  version = ""
}
BEGIN {
  n = split(dates, pairs, ";")
  for (i = 1; i <= n; i++) if (pairs[i] != "") { split(pairs[i], kv, "="); date[kv[1]] = kv[2] }
  rev = "-" revision
}
/^## [0-9]/ {
  close_entry()
  if (entries++) print ""
  version = $2
  print "unitydrv (" version rev ") unstable; urgency=medium"
  print ""
  rev = "-1"
  next
}
/^#/ { close_entry(); next }
version == "" { next }
/^[ \t]*$/ { flush(); next }
/^- / { flush(); item = substr($0, 3); next }
/^  / && item != "" { sub(/^ +/, ""); item = item " " $0; next }
{ if (item == "") item = $0; else item = item " " $0 }
END { close_entry() }
' "$changelog"
