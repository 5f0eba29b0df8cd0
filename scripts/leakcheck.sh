#!/usr/bin/env bash
# Runs the end-to-end tests (the driver loaded with dlopen, talking to the simulator) under
# valgrind memcheck: any invalid access or leak fails. Builds nothing; nothing of the
# driver's own is suppressed.
# Usage: scripts/leakcheck.sh [BUILD_DIR]   (default: build/dev)
set -euo pipefail
cd "$(dirname "$0")/.."

build="${1:-build/dev}"
test_exe="$build/tests/test_e2e"
if [ ! -x "$test_exe" ]; then
  echo "no $test_exe: configure and build the dev preset first" >&2
  exit 1
fi

valgrind --tool=memcheck --error-exitcode=1 --leak-check=full --show-leak-kinds=definite,indirect,possible \
  --errors-for-leak-kinds=definite,indirect,possible --track-fds=no --quiet \
  "$test_exe" --gtest_brief=1
echo "leakcheck: $test_exe clean under memcheck"
