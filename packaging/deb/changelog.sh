#!/usr/bin/env bash
# Writes the Debian changelog of the packages from CHANGELOG.md: one entry per "## VERSION"
# section, its paragraphs and list items as "*" items wrapped at 78 columns. The newest
# entry carries the packages' Debian revision. Each entry is dated by its heading
# ("## 0.2.0 - 2026-11-25"), so the changelog needs no checkout's history; a heading
# without a date takes SOURCE_DATE_EPOCH, and without that it is an error.
# Usage: changelog.sh CHANGELOG.md REVISION MAINTAINER > changelog.Debian
set -euo pipefail
[ $# -eq 3 ] || { echo "usage: $0 CHANGELOG.md REVISION MAINTAINER" >&2; exit 2; }
changelog=$1 revision=$2 maintainer=$3

entry_date() {  # VERSION DAY ("" when the heading has none)
  if [ -n "$2" ]; then
    LC_ALL=C date -u -R -d "$2 00:00:00 UTC" 2>/dev/null ||
      { echo "$changelog: '## $1 - $2': not a date (YYYY-MM-DD)" >&2; return 1; }
  elif [ -n "${SOURCE_DATE_EPOCH:-}" ]; then
    LC_ALL=C date -u -R -d "@$SOURCE_DATE_EPOCH"
  else
    echo "$changelog: '## $1' has no date: write '## $1 - YYYY-MM-DD' or set SOURCE_DATE_EPOCH" >&2
    return 1
  fi
}

dates=""
while read -r v day; do
  dates+="$v=$(entry_date "$v" "$day");"
done < <(sed -n 's/^## \([0-9][^ ]*\)\( - \([^ ]*\)\)\{0,1\}.*/\1 \3/p' "$changelog")

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
