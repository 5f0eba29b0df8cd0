#!/usr/bin/env bash
# Line and branch coverage of the library (driver/, tag_index/, unity/, net/, wire/) by the whole
# test suite: builds the coverage preset, runs every test and prints gcovr's summary.
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
gcovr --root . --object-directory build/coverage \
  --filter 'driver/' --filter 'tag_index/' --filter 'unity/' --filter 'net/' --filter 'wire/' \
  --exclude 'build/' --exclude-throw-branches --exclude-unreachable-branches \
  --txt build/coverage/coverage.txt --print-summary
