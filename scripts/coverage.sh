#!/usr/bin/env bash
# Line and branch coverage of the library (driver/, tag_index/, dictionary/, unity/, net/, wire/, trace/, guard/) by the whole
# test suite (the end-to-end suite also with the trace on): builds the coverage preset, runs
# every test and prints gcovr's summary.
# Usage: scripts/coverage.sh
set -euo pipefail
cd "$(dirname "$0")/.."

command -v gcovr >/dev/null || {
  sudo=""; [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq gcovr
}
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage
# The end-to-end and fault suites once more with the trace on, in both modes, as
# scripts/check.sh runs them: the trace's branches in the entry points are taken only in the
# loaded library.
trace_log=$(mktemp)
UNITYDRV_TRACE="$trace_log" UNITYDRV_TRACE_WIRE=1 \
  ctest --preset coverage -R '^test_(e2e|faults)(_guarded)?\.' >/dev/null
rm -f "$trace_log"
gcovr --root . --object-directory build/coverage \
  --filter 'driver/' --filter 'tag_index/' --filter 'unity/' --filter 'net/' --filter 'wire/' --filter 'trace/' --filter 'guard/' --filter 'dictionary/' \
  --exclude 'build/' --exclude-throw-branches --exclude-unreachable-branches \
  --txt build/coverage/coverage.txt --print-summary
