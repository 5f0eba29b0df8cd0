#!/usr/bin/env bash
# Runs every fuzz target of build/fuzz for SECONDS each, starting from a scratch copy of its
# seed corpus (fuzz/corpus/<target>/), and fails on the first finding. Builds nothing:
# configure and build the fuzz preset first.
# Usage: scripts/fuzz.sh SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:?usage: scripts/fuzz.sh SECONDS}"
targets=(build/fuzz/fuzz/fuzz_*)
if [ ! -x "${targets[0]}" ]; then
  echo "no fuzz targets in build/fuzz: run 'cmake --preset fuzz && cmake --build --preset fuzz'" >&2
  exit 1
fi

scratch="$(mktemp -d "${TMPDIR:-/tmp}/unitydrv-fuzz.XXXXXX")"
status=0
for target in "${targets[@]}"; do
  name="$(basename "$target")"
  work="$scratch/$name"
  mkdir -p "$work/corpus" "$work/artifacts"
  if [ -d "fuzz/corpus/$name" ]; then cp -r "fuzz/corpus/$name/." "$work/corpus/"; fi
  # Per-input limit well above the slowest legitimate input (one session run: milliseconds).
  if "$target" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
      -artifact_prefix="$work/artifacts/" "$work/corpus" >"$work/log" 2>&1; then
    runs="$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$work/log" | grep -o '[0-9]*$' || true)"
    echo "fuzz: $name: ${runs:-?} executions in ${seconds}s, no finding"
  else
    echo "fuzz: $name: FINDING (log and reproducer in $work)" >&2
    grep -E 'ERROR|SUMMARY|Test unit written' "$work/log" >&2 || tail -n 30 "$work/log" >&2
    status=1
  fi
done
[ "$status" -eq 0 ] && rm -rf "$scratch"
exit "$status"
