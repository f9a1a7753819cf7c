#!/usr/bin/env python3
"""The figures of the benchmark programs as a table of docs/performance.md, between its markers.

usage: parts.py FOLDER_OF_RESULTS PAGE

The folder holds what the programs wrote with --benchmark_out."""
import json
import sys
from pathlib import Path

BEGIN, END = "<!-- parts of `make bench` -->", "<!-- end of the parts -->"


def results(folder):
    """{name without arguments of the run: the run}, the last of repeated ones."""
    found = {}
    for file in sorted(Path(folder).glob("*.json")):
        for run in json.loads(file.read_text(encoding="utf-8"))["benchmarks"]:
            found[run["name"].replace("/manual_time", "").replace("/real_time", "").split("/iterations")[0]] = run
    return found


def nanoseconds(run):
    return run["real_time"] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]


def rows(runs):
    for calls in (100, 500):
        run = runs.get(f"BM_relay/{calls}")
        if run:
            beside = "rtpengine_cpu_us_per_packet" in run
            yield (f"CPU us per relayed RTP packet, {calls} two-party calls", "4.5" if calls == 100 else "",
                   f"{run['cpu_us_per_packet']:.1f}",
                   f"rtpengine {run['rtpengine_cpu_us_per_packet']:.1f}" if beside else "")
            yield (f"delay of a relayed packet, us, median / 99 %, {calls} calls", "60 / 500" if calls == 100 else "",
                   f"{run['delay_p50_us']:.0f} / {run['delay_p99_us']:.0f}",
                   f"rtpengine {run['rtpengine_delay_p50_us']:.0f} / {run['rtpengine_delay_p99_us']:.0f}" if beside else "")
    for calls in (1, 1000):
        run = runs.get(f"callbackToMachine/calls:{calls}")
        if run:
            yield (f"SIP callback to its event in the machine, us, median / 99 %, {calls} live calls", "",
                   f"{run['median_us']:.1f} / {run['p99_us']:.1f}", "")
    for name, what, budget, unit in (("eventWithTransition", "machine event with a transition, ns", "150", 1),
                                     ("queueRoundTrip", "queue round trip between sleeping threads, us", "2", 1000),
                                     ("disabledTraceScope", "disabled trace scope, ns", "3", 1)):
        if name in runs:
            bare = runs.get("bareRoundTrip") if name == "queueRoundTrip" else None
            yield (what, budget, f"{nanoseconds(runs[name]) / unit:.1f}",
                   f"condition variables alone {nanoseconds(bare) / unit:.1f}" if bare else "")


def main(folder, page):
    runs = results(folder)
    failed = [f"{name}: {run['error_message']}" for name, run in runs.items() if run.get("error_occurred")]
    if failed:
        print("parts.py: not measured: " + "; ".join(failed), file=sys.stderr)
        return 1
    table = ["| part | budget | measured | beside it |", "|---|---|---|---|"]
    table += [f"| {' | '.join(row)} |" for row in rows(runs)]
    if len(table) == 2:
        print(f"parts.py: {folder} holds no results of the benchmark programs", file=sys.stderr)
        return 1
    old = Path(page).read_text(encoding="utf-8")
    if BEGIN not in old or END not in old:
        print(f"parts.py: {page} lacks the markers {BEGIN} and {END}", file=sys.stderr)
        return 1
    text = "\n".join(table)
    Path(page).write_text(old[:old.index(BEGIN) + len(BEGIN)] + "\n\n" + text + "\n\n" + old[old.index(END):],
                          encoding="utf-8")
    print(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
