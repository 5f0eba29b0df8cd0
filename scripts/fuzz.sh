#!/usr/bin/env bash
# Runs every fuzz target for SECONDS, starting from a scratch copy of its seed corpus
# (fuzz/corpus/<target>/), in two passes:
#  1. the fast build (build/fuzz-fast: UBSan and checked containers, no ASan) mutates for
#     SECONDS, several times as many executions a second as under ASan;
#  2. every input of the corpus it grew runs once more under ASan and UBSan (build/fuzz).
# Fails on the first finding of either pass. Builds nothing: configure and build the fuzz and
# fuzz-fast presets first.
# Usage: scripts/fuzz.sh SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:?usage: scripts/fuzz.sh SECONDS}"
for dir in build/fuzz-fast build/fuzz; do
  if ! ls "$dir"/fuzz/fuzz_* >/dev/null 2>&1; then
    echo "no fuzz targets in $dir: run 'cmake --preset ${dir#build/} && cmake --build --preset ${dir#build/}'" >&2
    exit 1
  fi
done

# Prints stat::NAME of a libFuzzer log.
stat() { grep -o "stat::$1: *[0-9]*" "$2" | grep -o '[0-9]*$' || echo '?'; }

finding() {
  echo "fuzz: $1: FINDING in the $2 (log and reproducer in $3)" >&2
  grep -E 'ERROR|SUMMARY|runtime error|Test unit written' "$3/$4" >&2 || tail -n 30 "$3/$4" >&2
}

scratch="$(mktemp -d "${TMPDIR:-/tmp}/unitydrv-fuzz.XXXXXX")"
status=0
for target in build/fuzz-fast/fuzz/fuzz_*; do
  name="$(basename "$target")"
  work="$scratch/$name"
  mkdir -p "$work/corpus" "$work/artifacts"
  if [ -d "fuzz/corpus/$name" ]; then cp -r "fuzz/corpus/$name/." "$work/corpus/"; fi
  # Per-input limit well above the slowest legitimate input (one session run: milliseconds).
  if ! "$target" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
      -artifact_prefix="$work/artifacts/" "$work/corpus" >"$work/fast.log" 2>&1; then
    finding "$name" "fast build" "$work" fast.log
    status=1
    continue
  fi
  if ! "build/fuzz/fuzz/$name" -runs=0 -timeout=20 -print_final_stats=1 \
      -artifact_prefix="$work/artifacts/" "$work/corpus" >"$work/asan.log" 2>&1; then
    finding "$name" "ASan replay" "$work" asan.log
    status=1
    continue
  fi
  runs="$(stat number_of_executed_units "$work/fast.log")"
  rate="$(stat average_exec_per_sec "$work/fast.log")"
  inputs="$(find "$work/corpus" -type f | wc -l)"
  echo "fuzz: $name: $runs executions in ${seconds}s ($rate/s), $inputs inputs replayed under ASan, no finding"
done
[ "$status" -eq 0 ] && rm -rf "$scratch"
exit "$status"
