#!/usr/bin/env bash
# Builds the release preset's benchmarks, runs them with JSON output into
# build/release/bench-results/, counts the instructions of one 100-tag read cycle under
# callgrind (when valgrind is installed) and plots cycle time against tag count.
# The simulator binds loopback addresses at port 502: run as root.
set -euo pipefail
cd "$(dirname "$0")/.."

out=build/release/bench-results
micro=$(for f in bench/micro_*.cpp; do basename "$f" .cpp; done)

cmake --preset release
# shellcheck disable=SC2086
cmake --build --preset release --target e2e_bench $micro
mkdir -p "$out"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)" | tee "$out/load.txt"

for name in $micro; do
  "build/release/bench/$name" --benchmark_out="$out/$name.json" --benchmark_out_format=json
done
build/release/bench/e2e_bench --benchmark_out="$out/e2e_bench.json" --benchmark_out_format=json

if command -v valgrind >/dev/null; then
  rm -f "$out"/callgrind.out*
  valgrind --tool=callgrind --instr-atstart=no --separate-threads=yes \
    --callgrind-out-file="$out/callgrind.out" build/release/bench/e2e_bench --callgrind \
    2>/dev/null
  # One file per dump and thread; the dumps of the calling thread hold the two cycles.
  for f in "$out"/callgrind.out.*-01; do
    echo "$(sed -n 's/^desc: Trigger: Client Request: //p' "$f"): $(sed -n 's/^totals: //p' "$f") instructions"
  done | tee "$out/callgrind.txt"
fi

echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)" | tee -a "$out/load.txt"
python=python3
[ -x /usr/bin/python3 ] && python=/usr/bin/python3
"$python" scripts/plot_bench.py "$out/e2e_bench.json" "$out/read_cycle.png"
