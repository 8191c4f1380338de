# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""performance.md: the tables of what was measured, in the places that the template has for them."""

import re
import statistics

import plots
from results import cpu_microseconds, peak_mib
from server import ROOT
from workloads import FAMILIES

TEMPLATE = ROOT / "bench/performance.md.in"
NOTHING = "–"


def table(header, rows):
    """A table whose first column is text and whose others are numbers."""
    lines = [header, ["---"] + ["--:"] * (len(header) - 1), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def number(value, form="{:.2f}"):
    return NOTHING if value is None else form.format(value)


def spread(values):
    """The median of the values, with the least and the largest."""
    if not values:
        return NOTHING
    return f"{statistics.median(values):,.0f} ({min(values):,.0f} – {max(values):,.0f})"


def variant_name(workload, variant):
    return f"{workload}, {FAMILIES[workload]}: {variant:,}" if variant else workload


def ratios(results):
    """The throughput of everything beside plain libpq's."""
    wanted = [(placement, workload, variant) for placement in results.placements
              for workload, variant in measured(results)]
    return table(["", "", *results.clients], [
        [placement, variant_name(workload, variant),
         *(number(results.ratio(client, placement=placement, workload=workload, variant=variant))
           for client in results.clients)]
        for placement, workload, variant in wanted])


def measured(results):
    return sorted({(run["workload"], run["variant"]) for run in results.raw["runs"]})


def workload_table(results, workload):
    """One line for each client; throughput, its ratio to libpq's, processor time, memory."""
    clients = [client for client in results.clients
               if results.select(workload=workload, client=client)]
    header = ["", "operations"]
    for placement in results.placements:
        header += [f"{placement}: per second", "to libpq", "client CPU, µs each"]
    return table(header + ["peak MiB"],
                 [workload_line(results, workload, client) for client in clients])


def workload_line(results, workload, client):
    line = [client, f"{results.select(workload=workload, client=client)[0]['operations']:,}"]
    for placement in results.placements:
        wanted = {"workload": workload, "placement": placement}
        line += [spread(results.rates(client=client, **wanted)),
                 number(results.ratio(client, **wanted)),
                 number(results.median(cpu_microseconds, client=client, **wanted))]
    return line + [number(results.median(peak_mib, workload=workload, client=client), "{:,.1f}")]


def family_table(results, workload, placement, cell):
    """One line for each client, one column for each member of the family."""
    variants = results.variants(workload)
    return table([placement, *(f"{variant:,}" for variant in variants)], [
        [client, *(cell(workload=workload, variant=variant, client=client, placement=placement)
                   for variant in variants)]
        for client in results.clients])


def family_tables(results, workload, cell):
    return "\n\n".join(family_table(results, workload, placement, cell)
                       for placement in results.placements)


def facts(values):
    return "\n".join(["| | |", "|---|---|", *(f"| {name} | {value} |" for name, value in values)])


def contents(results):
    """What stands in the template's places."""
    raw = results.raw
    load = ", ".join(f"{value:.2f}" for value in raw["load"])
    return {
        "ratios": ratios(results),
        **{workload: workload_table(results, workload)
           for workload, variant in measured(results) if not variant},
        "W7": family_tables(results, "W7", lambda **wanted: spread(results.rates(**wanted))),
        "W8": family_tables(results, "W8", lambda **wanted: spread(results.rates(**wanted))),
        "W8-memory": family_tables(
            results, "W8", lambda **wanted: number(results.median(peak_mib, **wanted), "{:,.1f}")),
        "rounds": str(raw["rounds"]),
        "scale": f"{raw['scale']:g}",
        "machine": facts([*raw["machine"].items(), ("Load before the run", load)]),
        "versions": facts(raw["versions"].items()),
        "settings": facts(raw["settings"].items()),
    }


def write(results, folder):
    """Writes performance.md and its plots into a folder; tells its path."""
    plots.draw(results, folder / "performance")
    values = contents(results)
    text = re.sub(r"@([\w-]+)@", lambda place: values.get(place.group(1), "Not measured."),
                  TEMPLATE.read_text(encoding="utf-8"))
    path = folder / "performance.md"
    path.write_text(text, encoding="utf-8")
    return path
