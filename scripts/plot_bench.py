#!/usr/bin/python3
"""Plots the end-to-end read cycle time against tag count for the driver, the bare-socket
floor and libmodbus, from the JSON that e2e_bench writes (--benchmark_out_format=json).

usage: plot_bench.py e2e_bench.json read_cycle.png
"""
import json
import os
import subprocess
import sys


def load_matplotlib():
    try:
        import matplotlib
    except ImportError:
        # Debian's package, for Debian's interpreter: install it and start again under it.
        subprocess.run(["apt-get", "install", "-y", "python3-matplotlib"], check=True,
                       env=dict(os.environ, DEBIAN_FRONTEND="noninteractive"))
        if sys.executable != "/usr/bin/python3":
            os.execv("/usr/bin/python3", ["/usr/bin/python3"] + sys.argv)
        import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    return plt


def read_cycles(path):
    with open(path) as f:
        runs = json.load(f)["benchmarks"]
    rows = [r for r in runs if r["name"].startswith("BM_read_cycle/") and "driver_us" in r]
    rows.sort(key=lambda r: r["tags"])
    if not rows:
        sys.exit(f"{path}: no BM_read_cycle results")
    return rows


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    rows = read_cycles(sys.argv[1])
    plt = load_matplotlib()
    tags = [r["tags"] for r in rows]
    fig, ax = plt.subplots(figsize=(7, 4.5))
    for key, label, style in (("driver_us", "driver (OutputFilterEx + InputFilterEx)", "o-"),
                              ("floor_us", "bare socket, same request bytes", "s--"),
                              ("libmodbus_us", "libmodbus, as many registers", "^:")):
        ax.plot(tags, [r[key] for r in rows], style, label=label)
    ax.set_xlabel("tags per read cycle")
    ax.set_ylabel("median cycle time (µs)")
    ax.set_title("One host read cycle on loopback")
    ax.set_ylim(bottom=0)
    ax.grid(True, alpha=0.3)
    ax.legend()
    fig.tight_layout()
    fig.savefig(sys.argv[2], dpi=100)
    print(f"wrote {sys.argv[2]}")


if __name__ == "__main__":
    main()
