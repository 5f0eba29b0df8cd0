#!/usr/bin/python3
"""Plots the end-to-end read cycle time against tag count for the driver, the bare-socket
floor and libmodbus, from the JSON that e2e_bench writes (--benchmark_out_format=json).

usage: plot_bench.py e2e_bench.json read_cycle.png
"""
import json
import sys


def load_matplotlib():
    """pyplot, or None when matplotlib is missing: the plot is then skipped, not installed."""
    try:
        import matplotlib
    except ImportError:
        return None
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    return plt


def read_cycles(path):
    with open(path) as f:
        runs = json.load(f)["benchmarks"]
    rows = [r for r in runs if r["name"].startswith("BM_read_cycle/") and "driver_min_us" in r]
    rows.sort(key=lambda r: r["tags"])
    if not rows:
        sys.exit(f"{path}: no BM_read_cycle results")
    return rows


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    rows = read_cycles(sys.argv[1])
    plt = load_matplotlib()
    if plt is None:
        print("plot skipped: matplotlib is missing (Debian: apt-get install python3-matplotlib,"
              " or scripts/install-deps.sh --bench)", file=sys.stderr)
        return
    fig, ax = plt.subplots(figsize=(8, 5.5))
    series = (("driver", "driver (OutputFilterEx + InputFilterEx)", "o", "C0"),
              ("floor", "bare socket, same request bytes", "s", "C1"),
              ("libmodbus", "libmodbus, as many registers", "^", "C2"))
    for key, label, marker, colour in series:
        # libmodbus reads at most 125 registers: its series stops there.
        have = [r for r in rows if key + "_min_us" in r]
        x = [r["tags"] for r in have]
        ax.plot(x, [r[key + "_min_us"] for r in have], marker + "-", color=colour,
                label=label + ", minimum")
        ax.plot(x, [r[key + "_us"] for r in have], marker + ":", color=colour, alpha=0.5,
                label=label + ", median")
    ax.set_xlabel("tags per read cycle")
    ax.set_ylabel("cycle time (µs)")
    ax.set_title("One host read cycle on loopback")
    ax.set_ylim(bottom=0)
    ax.grid(True, alpha=0.3)
    ax.legend(fontsize="small")
    fig.tight_layout()
    fig.savefig(sys.argv[2], dpi=100)
    print(f"wrote {sys.argv[2]}")


if __name__ == "__main__":
    main()
