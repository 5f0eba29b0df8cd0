#!/usr/bin/python3
"""Writes the figures of one scripts/bench.sh run as Markdown tables, from the files that run
left in its results directory (e2e_bench.json, micro_*.json, callgrind.txt,
handshake_functions.txt, run.txt).

usage: bench_report.py build/release/bench-results
"""
import glob
import json
import os
import re
import sys


def load(path):
    with open(path) as f:
        return json.load(f)["benchmarks"]


def rows_named(runs, prefix):
    return [r for r in runs if r["name"].startswith(prefix) and r.get("error_occurred") is not True]


def us(value):
    return f"{value:.1f} µs"


def ratio(a, b):
    return f"{a / b:.2f}"


def read_cycle_table(runs):
    out = ["| tags | request bytes | driver min | floor min | **driver / floor, min** | "
           "driver median | floor median | driver / floor, median | libmodbus min | "
           "libmodbus median | allocations per cycle |",
           "|---|---|---|---|---|---|---|---|---|---|---|"]
    for r in sorted(rows_named(runs, "BM_read_cycle/"), key=lambda r: r["tags"]):
        modbus_min = us(r["libmodbus_min_us"]) if "libmodbus_min_us" in r else "n/a (> 125)"
        modbus_med = us(r["libmodbus_us"]) if "libmodbus_us" in r else "n/a"
        out.append(
            f"| {int(r['tags'])} | {int(r['request_bytes'])} | {us(r['driver_min_us'])} | "
            f"{us(r['floor_min_us'])} | **{ratio(r['driver_min_us'], r['floor_min_us'])}** | "
            f"{us(r['driver_us'])} | {us(r['floor_us'])} | "
            f"{ratio(r['driver_us'], r['floor_us'])} | {modbus_min} | {modbus_med} | "
            f"{r['driver_allocations_per_cycle']:g} |")
    return out


def callgrind_counts(path):
    counts = {}
    if os.path.exists(path):
        for line in open(path):
            m = re.match(r"(\S+): (\d+) instructions", line.strip())
            if m:
                counts[m.group(1)] = int(m.group(2))
    return counts


def instruction_table(counts, runs, functions):
    out = ["| Callgrind, calling thread only | instructions | per unit |", "|---|---|---|"]
    if "driver_cycle_100" in counts:
        c = counts["driver_cycle_100"]
        out.append(f"| warm 100-tag INT read cycle (`OutputFilterEx` + `InputFilterEx`) | "
                   f"**{c:,}** | {c / 100:.0f} per tag |")
    if "driver_cycle_100_trace_on" in counts:
        c = counts["driver_cycle_100_trace_on"]
        out.append(f"| the same cycle with the driver trace on (`UNITYDRV_TRACE`, to a file) | "
                   f"{c:,} | {c / 100:.0f} per tag |")
    if "driver_cycle_100_guarded" in counts:
        c = counts["driver_cycle_100_guarded"]
        more = ""
        if "driver_cycle_100" in counts:
            more = f" ({(c / counts['driver_cycle_100'] - 1) * 100:+.1f}% against the default)"
        out.append(f"| the same cycle in guarded mode (`UNITYDRV_GUARD=1`){more} | "
                   f"{c:,} | {c / 100:.0f} per tag |")
    if "floor_cycle_100" in counts:
        out.append(f"| bare-socket exchange of the same bytes | {counts['floor_cycle_100']:,} | |")
    mixed = rows_named(runs, "BM_mixed_cycle")
    if "mixed_cycle" in counts and mixed:
        n = int(mixed[0]["tags"])
        c = counts["mixed_cycle"]
        out.append(f"| warm mixed read cycle, {n} requests | {c:,} | **{c / n:.0f} per tag** |")
    if "handshake_50000" in counts:
        c = counts["handshake_50000"]
        out.append(f"| `GetInitCmdEx2`, 50,000 variables and tags | {c:,} | "
                   f"**{c / 50000:,.0f} per variable** |")
        if functions:
            # The steps are disjoint (none calls another), so their sum is the decoding and
            # resolution cost, against the goal of 2,000 per variable.
            total = sum(cost for _, cost in functions)
            out.append(f"| of which decoding and tag resolution, the steps below | {total:,} | "
                       f"**{total / 50000:,.0f} per variable** |")
        for name, cost in functions:
            out.append(f"| of which {name} (inclusive) | {cost:,} | {cost / 50000:,.0f} per variable |")
    return out


def handshake_functions(path):
    """Inclusive costs of the handshake's decode and resolve steps, as bench.sh extracted them."""
    rows = []
    if os.path.exists(path):
        for line in open(path):
            name, _, cost = line.rstrip("\n").rpartition(" ")
            if name and cost.isdigit():
                rows.append((name, int(cost)))
    return rows


def handshake_table(runs):
    out = ["| Handshake (`GetInitCmdEx2`) | wall | exchanges | user | sys |", "|---|---|---|---|---|"]
    labels = {"0": "plant.json, 25 tags", "1": "50,000 variables / 2,000 types, 50,000 tags"}
    for r in rows_named(runs, "BM_GetInitCmdEx2/"):
        arg = r["name"].split("/")[1]
        out.append(f"| {labels.get(arg, arg)} | {r['real_time']:.1f} ms | {int(r['exchanges']):,} | "
                   f"{r['user_ms']:.1f} ms | {r['sys_ms']:.1f} ms |")
    return out


def memory_table(runs):
    out = ["| Memory | |", "|---|---|"]
    for r in rows_named(runs, "BM_memory_per_device"):
        out.append(f"| VmRSS per device, 50,000 tags | {r['rss_kb'] / 1024:.1f} MB |")
        out.append(f"| heap in use per device | {r['heap_kb'] / 1024:.1f} MB, "
                   f"{r['heap_bytes_per_tag']:.0f} bytes per tag |")
    for r in rows_named(runs, "BM_rss_over_cycles"):
        out.append(f"| growth over 100,000 cycles of 100 tags | VmRSS {r['rss_growth_kb']:g} kB, "
                   f"heap {r['heap_growth_bytes']:g} bytes |")
    return out


def guarded_table(results, runs):
    """The 100-tag read cycle of the default run beside the same cycle in guarded mode."""
    path = os.path.join(results, "e2e_bench_guarded.json")
    if not os.path.exists(path):
        return []
    out = ["| 100-tag read cycle | driver min | driver median | allocations per cycle |",
           "|---|---|---|---|"]
    for label, rows in (("default", rows_named(runs, "BM_read_cycle/100")),
                        ("guarded (`UNITYDRV_GUARD=1`)", rows_named(load(path), "BM_read_cycle/100"))):
        for r in rows:
            if int(r["tags"]) == 100:
                out.append(f"| {label} | {us(r['driver_min_us'])} | {us(r['driver_us'])} | "
                           f"{r['driver_allocations_per_cycle']:g} |")
    return out


def mixed_table(runs):
    out = []
    for r in rows_named(runs, "BM_mixed_cycle"):
        out = ["| Mixed read cycle | requests | driver min | driver median | allocations per cycle |",
               "|---|---|---|---|---|",
               f"| REAL, DINT, UDINT, INT, WORD, DWORD, LINT, BOOL/EBOOL, members, array runs, "
               f"STRING, BitArray element | {int(r['tags'])} | {us(r['driver_min_us'])} | "
               f"{us(r['driver_us'])} | {r['driver_allocations_per_cycle']:g} |"]
    return out


def micro_table(results):
    out = ["| Micro-benchmark | CPU time |", "|---|---|"]
    for path in sorted(glob.glob(os.path.join(results, "micro_*.json"))):
        for r in load(path):
            if r.get("run_type", "iteration") != "iteration":
                continue
            out.append(f"| `{r['name']}` | {r['cpu_time']:,.0f} {r['time_unit']} |")
    return out


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    results = sys.argv[1]
    runs = load(os.path.join(results, "e2e_bench.json"))
    counts = callgrind_counts(os.path.join(results, "callgrind.txt"))
    functions = handshake_functions(os.path.join(results, "handshake_functions.txt"))
    with open(os.path.join(results, "run.txt")) as f:
        run = f.read().strip()
    sections = [
        [run],
        instruction_table(counts, runs, functions),
        read_cycle_table(runs),
        guarded_table(results, runs),
        mixed_table(runs),
        handshake_table(runs),
        memory_table(runs),
        micro_table(results),
    ]
    print("\n\n".join("\n".join(s) for s in sections if s))


if __name__ == "__main__":
    main()
