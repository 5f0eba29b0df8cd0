#!/usr/bin/env bash
# One benchmark run, all figures from the same release build: runs every bench/micro_*
# program and e2e_bench with JSON output into build/release/bench-results/, counts
# instructions under callgrind (read cycles, mixed cycle, handshake; the 100-tag cycle also
# with the trace on and in guarded mode, whose wall-clock cycle is timed too), writes the tables with
# the date, the machine and the load average to figures.md and draws read_cycle.png.
#
#   scripts/bench.sh            figures into build/release/bench-results/
#   scripts/bench.sh --update   also puts them into BENCHMARKS.md and bench/read_cycle.png
#
# Needs valgrind and, for the plot, python3-matplotlib (scripts/install-deps.sh --bench);
# without matplotlib the plot is skipped with a message. The simulator binds loopback
# addresses at port 502: run as root, and where others use port 502 too, in a network
# namespace of its own: unshare -n sh -c 'ip link set lo up && scripts/bench.sh'.
set -euo pipefail
cd "$(dirname "$0")/.."

update=0
[ "${1:-}" = "--update" ] && update=1
out=build/release/bench-results
micro=$(for f in bench/micro_*.cpp; do basename "$f" .cpp; done)
load() { cut -d' ' -f1-3 /proc/loadavg; }

cmake --preset release
# shellcheck disable=SC2086
cmake --build --preset release --target e2e_bench $micro
rm -rf "$out"
mkdir -p "$out"
started=$(date -u '+%Y-%m-%d %H:%M UTC')
load_before=$(load)

for name in $micro; do
  "build/release/bench/$name" --benchmark_out="$out/$name.json" --benchmark_out_format=json
done
build/release/bench/e2e_bench --benchmark_out="$out/e2e_bench.json" --benchmark_out_format=json
# The 100-tag read cycle once more in guarded mode, in the same run.
UNITYDRV_GUARD=1 build/release/bench/e2e_bench --benchmark_filter='BM_read_cycle/100/' \
  --benchmark_out="$out/e2e_bench_guarded.json" --benchmark_out_format=json

if command -v valgrind >/dev/null; then
  valgrind --tool=callgrind --instr-atstart=no --separate-threads=yes \
    --callgrind-out-file="$out/callgrind.out" build/release/bench/e2e_bench --callgrind \
    2>/dev/null | tee "$out/allocations.txt"
  # One file per dump and thread; the calling thread's dumps are the measured runs.
  for f in "$out"/callgrind.out.*-01; do
    name=$(sed -n 's/^desc: Trigger: Client Request: //p' "$f")
    echo "$name: $(sed -n 's/^totals: //p' "$f") instructions"
    if [ "$name" = handshake_50000 ]; then
      # Inclusive cost of decoding the dictionary replies and resolving the tags.
      callgrind_annotate --inclusive=yes --threshold=100 "$f" 2>/dev/null |
        sed -nE 's/^ *([0-9,]+) .*:(unity_process::save_table_info|unity_process::save_data_type_info|unity_process::save_struct_detail|response_strategy::get_commands_without_records|response_strategy::get_commands|unity_process::PRIVATE::get_strategy|offline_CTagTable_578::setup_memory_index_in_place)\(.*/`\2` \1/p' |
        tr -d , >"$out/handshake_functions.txt"
    fi
  done | tee "$out/callgrind.txt"
  # The same warm cycle with the driver trace on, to a file: nothing fails, so it writes
  # nothing, and the cycle still allocates nothing.
  trace_log=$(mktemp)
  UNITYDRV_TRACE="$trace_log" valgrind --tool=callgrind --instr-atstart=no --separate-threads=yes \
    --callgrind-out-file="$out/callgrind-trace.out" build/release/bench/e2e_bench --callgrind cycle \
    2>/dev/null | sed 's/driver_cycle_100/driver_cycle_100_trace_on/' | tee -a "$out/allocations.txt"
  rm -f "$trace_log"
  for f in "$out"/callgrind-trace.out.*-01; do
    echo "driver_cycle_100_trace_on: $(sed -n 's/^totals: //p' "$f") instructions"
  done | tee -a "$out/callgrind.txt"
  # And in guarded mode (UNITYDRV_GUARD=1): the same cycle with every request checked.
  UNITYDRV_GUARD=1 valgrind --tool=callgrind --instr-atstart=no --separate-threads=yes \
    --callgrind-out-file="$out/callgrind-guarded.out" build/release/bench/e2e_bench --callgrind cycle \
    2>/dev/null | sed 's/driver_cycle_100/driver_cycle_100_guarded/' | tee -a "$out/allocations.txt"
  for f in "$out"/callgrind-guarded.out.*-01; do
    echo "driver_cycle_100_guarded: $(sed -n 's/^totals: //p' "$f") instructions"
  done | tee -a "$out/callgrind.txt"
else
  echo "callgrind skipped: valgrind is missing (scripts/install-deps.sh)" >&2
fi
load_after=$(load)

{
  echo "Run of $started, $(uname -m), $(nproc) cores ($(sed -n 's/^model name\t: //p' /proc/cpuinfo | head -1)), Release build."
  echo "Load average (1, 5, 15 min) $load_before before and $load_after after the run."
} >"$out/run.txt"
python3 scripts/bench_report.py "$out" >"$out/figures.md"
cat "$out/figures.md"
python=python3
[ -x /usr/bin/python3 ] && python=/usr/bin/python3
"$python" scripts/plot_bench.py "$out/e2e_bench.json" "$out/read_cycle.png"

if [ "$update" = 1 ]; then
  # The figures go between the two markers of BENCHMARKS.md; the prose around them stays.
  python3 - "$out/figures.md" <<'EOF'
import sys
begin, end = "<!-- figures: begin -->", "<!-- figures: end -->"
text = open("BENCHMARKS.md").read()
head, rest = text.split(begin, 1)
_, tail = rest.split(end, 1)
figures = open(sys.argv[1]).read().strip()
open("BENCHMARKS.md", "w").write(f"{head}{begin}\n{figures}\n{end}{tail}")
EOF
  [ -f "$out/read_cycle.png" ] && cp "$out/read_cycle.png" bench/read_cycle.png
  echo "BENCHMARKS.md updated"
fi
