#!/usr/bin/env bash
# Call circles between the source files of the library and the tools, and the direction of
# their includes: compiles them with GCC's call-graph dump (-fcallgraph-info) in build/callgraph
# and reads the dumps with scripts/call_circles.py. Fails on a call circle between files, an
# include cycle or an include that points up.
# Usage: scripts/call_circles.sh
set -euo pipefail
cd "$(dirname "$0")/.."

# No compiler cache: it would not give back the call-graph dumps.
cmake -S . -B build/callgraph -G Ninja -DCMAKE_BUILD_TYPE= -DCMAKE_CXX_COMPILER_LAUNCHER= \
  -DCMAKE_CXX_FLAGS='-fcallgraph-info' -DUNITYDRV_TESTS=OFF -DUNITYDRV_TOOLS=ON >/dev/null
cmake --build build/callgraph
python3 scripts/call_circles.py . build/callgraph
