# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""The plots, as SVG files that are the same for the same results."""

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({
    "svg.hashsalt": "dorvy",
    "svg.fonttype": "none",  # text, in place of outlines
    "font.size": 9,
    "axes.spines.top": False,
    "axes.spines.right": False,
})

from matplotlib import pyplot  # noqa: E402, after the choice of what draws

from results import peak_mib, rate  # noqa: E402

# Okabe and Ito's colours, which everyone can tell apart.
COLOURS = {"libpq": "#000000", "dorvy": "#d55e00", "odbc": "#999999", "libpqxx": "#56b4e9",
           "pgjdbc": "#009e73", "psycopg2": "#cc79a7"}
WIDTH = 8
PANEL_HEIGHT = 3


def panels(results):
    """A figure with one panel for each placement."""
    return pyplot.subplots(len(results.placements), 1, squeeze=False, layout="constrained",
                           figsize=(WIDTH, PANEL_HEIGHT * len(results.placements)))


def save(figure, path):
    figure.axes[0].legend(ncols=len(COLOURS), loc="lower center", bbox_to_anchor=(0.5, 1.1))
    figure.savefig(path, metadata={"Date": None, "Creator": None})
    pyplot.close(figure)


def bars(results, placement, axes):
    """Throughput beside plain libpq's, of the workloads that have no family."""
    workloads = sorted({run["workload"] for run in results.raw["runs"] if not run["variant"]})
    width = 0.8 / len(results.clients)
    for i, client in enumerate(results.clients):
        heights = [results.ratio(client, workload=workload, placement=placement) or 0
                   for workload in workloads]
        axes.bar([x + i * width for x in range(len(workloads))], heights, width,
                 color=COLOURS[client], label=client)
    axes.set_xticks([x + 0.4 - width / 2 for x in range(len(workloads))], workloads)
    axes.set(title=placement, ylabel="throughput, libpq = 1")


def lines(results, placement, axes, workload, value):
    """What value tells of the runs, for each member of a family of workloads."""
    for client in results.clients:
        points = [(variant, value(workload=workload, variant=variant, client=client,
                                  placement=placement))
                  for variant in results.variants(workload)]
        points = [point for point in points if point[1] is not None]
        if points:
            axes.plot(*zip(*points), marker="o", markersize=3, color=COLOURS[client], label=client)
    axes.set_title(placement)


def draw_ratios(results, path):
    figure, axes = panels(results)
    for placement, panel in zip(results.placements, axes.flat):
        bars(results, placement, panel)
    save(figure, path)


def draw_threads(results, path):
    figure, axes = panels(results)
    for placement, panel in zip(results.placements, axes.flat):
        lines(results, placement, panel, "W7",
              lambda **wanted: results.median(rate, **wanted))
        panel.set_xscale("log", base=2)
        panel.set_xticks(results.variants("W7"), results.variants("W7"))
        panel.set(xlabel="threads", ylabel="executions per second")
        panel.set_ylim(bottom=0)
    save(figure, path)


def draw_memory(results, path):
    figure, axes = panels(results)
    for placement, panel in zip(results.placements, axes.flat):
        lines(results, placement, panel, "W8",
              lambda **wanted: results.median(peak_mib, **wanted))
        panel.set_xscale("log")
        panel.set_yscale("log")
        panel.set(xlabel="rows", ylabel="peak memory, MiB")
    save(figure, path)


def draw(results, folder):
    """Draws what there are results for."""
    folder.mkdir(parents=True, exist_ok=True)
    if any(not run["variant"] for run in results.raw["runs"]):
        draw_ratios(results, folder / "ratios.svg")
    if results.variants("W7"):
        draw_threads(results, folder / "threads.svg")
    if results.variants("W8"):
        draw_memory(results, folder / "memory.svg")
