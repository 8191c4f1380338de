# SPDX-FileCopyrightText: 2026 the DORVY driver developers
# SPDX-License-Identifier: MIT
"""performance.md: the tables of what was measured, in the places that the template has for them."""

import re
import statistics

import plots
from results import cpu_microseconds, peak_mib, rate
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


def spread(values, form="{:,.0f}"):
    """The median of the values, with the least and the largest."""
    if not values:
        return NOTHING
    return f"{form} ({form} – {form})".format(statistics.median(values), min(values), max(values))


def rates(results, **wanted):
    return spread(results.values(rate, **wanted))


def peaks(results, **wanted):
    return spread(results.values(peak_mib, **wanted), "{:,.1f}")


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


def tables(make, results, *arguments):
    """One table for each placement."""
    return "\n\n".join(make(results, placement, *arguments) for placement in results.placements)


def workload_table(results, placement, workload):
    """One line for each client; throughput, its ratio to libpq's, processor time, memory."""
    wanted = {"workload": workload, "placement": placement}
    return table(
        [placement, "operations", "per second", "to libpq", "client CPU, µs each", "peak, MiB"],
        [workload_line(results, client, wanted) for client in results.clients
         if results.select(client=client, **wanted)])


def workload_line(results, client, wanted):
    return [client,
            f"{results.select(client=client, **wanted)[0]['operations']:,}",
            rates(results, client=client, **wanted),
            spread(results.ratios(client, **wanted), "{:.2f}"),
            spread(results.values(cpu_microseconds, client=client, **wanted), "{:,.2f}"),
            peaks(results, client=client, **wanted)]


def family_table(results, placement, workload, cell):
    """One line for each client, one column for each member of the family."""
    variants = results.variants(workload)
    return table([placement, *(f"{variant:,}" for variant in variants)], [
        [client, *(cell(results, workload=workload, variant=variant, client=client,
                        placement=placement)
                   for variant in variants)]
        for client in results.clients])


def memory_spread(results, client):
    """How far apart the peaks of a client are, over all sizes and rounds of one placement."""
    peaks_of = [results.values(peak_mib, workload="W8", client=client, placement=placement)
                for placement in results.placements]
    return number(max((max(values) - min(values) for values in peaks_of if values), default=None))


def counted_rounds(results):
    rounds = results.rounds()
    return f"{rounds} round" if rounds == 1 else f"{rounds} rounds"


def share_of_work(scale):
    return "the full work" if scale == 1 else f"{scale:g} of the full work"


def facts(values):
    return "\n".join(["| | |", "|---|---|", *(f"| {name} | {value} |" for name, value in values)])


def contents(results):
    """What stands in the template's places."""
    raw = results.raw
    load = ", ".join(f"{value:.2f}" for value in raw["load"])
    return {
        "ratios": ratios(results),
        **{workload: tables(workload_table, results, workload)
           for workload, variant in measured(results) if not variant},
        "W7": tables(family_table, results, "W7", rates),
        "W8": tables(family_table, results, "W8", rates),
        "W8-memory": tables(family_table, results, "W8", peaks),
        "W8-spread": memory_spread(results, "dorvy"),
        "rounds": counted_rounds(results),
        "work": share_of_work(raw["scale"]),
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
