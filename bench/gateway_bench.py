#!/usr/bin/env python3
"""The gateway beside other servers, one after the other in one run: CPU time per two-party call at several rates, the highest
clean rate, resident memory per held call, how a call's cost grows with held calls, and latencies.

usage: gateway_bench.py BUILD [--quick] [--write FOLDER]

--write puts the table into FOLDER/performance.md between its markers and draws FOLDER/performance.svg. --quick takes
short steps that show only that everything works. sipp runs at both ends on the same machine: compare within a run."""
import argparse
import os
import platform
import resource
import shutil
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from load import Failure, Kamailio, QuorvexGateway, SippAnswering, check, latencies, percentile, resident_kib  # noqa: E402
from plot import plot  # noqa: E402

RATES = [100, 400, 1000]
LADDER = [600, 1000, 1500, 2000, 2500, 3200, 4000]
HELD = [100, 1000, 10000]
LATENCY_RATE = 750  # half of the clean rate that a gateway of this kind should reach: the same load for every server
SETTLED_S = 34  # after this the transactions of the calls' INVITEs are gone (64*T1)


def tell(text):
    print(text, flush=True)


def cost_at_rates(kind, build, plan):
    """{rate: CPU us per call}, None where it was not clean."""
    found = {}
    with kind(build) as server:
        server.load(50, 2, 0.2)
        for rate in plan["rates"]:
            result = server.load(rate, plan["seconds"])
            found[rate] = result
            tell(f"  {kind.name}: {rate}/s: {result['us']:.0f} us per call, {result['failed']} failed, {result['resent']} resent")
            time.sleep(1)
    return found


def highest_clean(kind, build, plan):
    """The last rate of the ladder before two steps in a row are not clean."""
    best, missed = 0, 0
    for rate in plan["ladder"]:
        with kind(build) as server:
            server.load(50, 1, 0.2)
            result = server.load(rate, plan["ladder_seconds"])
        tell(f"  {kind.name}: {rate}/s: {'clean' if result['clean'] else 'not clean'}: {result['done']} done, "
             f"{result['failed']} failed, {result['resent']} resent")
        if result["clean"]:
            best, missed = rate, 0
        else:
            missed += 1
            if missed == 2:
                break
    return best


def with_held_calls(kind, build, plan):
    """{held: {"kib": resident KiB per held call, "us": CPU per further call}}"""
    found = {}
    for held in plan["held"]:
        with kind(build) as server:
            server.load(100, 2, 0.2)
            time.sleep(plan["settled"])  # or these calls' transactions would be missed later, and count as saved
            before = resident_kib(server.pids())
            fill_rate = min(400, max(100, held / 10))
            stays = held / fill_rate + plan["settled"] + 8 + plan["seconds"] + 8
            holder = server.caller(fill_rate, held, stays)
            try:
                deadline = time.monotonic() + held / fill_rate + 15
                while int(holder.figures().get("CurrentCall") or 0) < held and time.monotonic() < deadline:
                    time.sleep(0.5)
                current = int(holder.figures().get("CurrentCall") or 0)
                time.sleep(plan["settled"])
                kib = (resident_kib(server.pids()) - before) / max(1, current)
                result = server.load(plan["held_rate"], plan["seconds"])
            finally:
                holder.close()
        found[held] = {"held": current, "kib": kib, "us": result["us"], "failed": result["failed"]}
        tell(f"  {kind.name}: {current} held: {kib:.1f} KiB each; {result['us']:.0f} us per further call, {result['failed']} failed")
    return found


def latency_under_load(kind, build, plan, rate):
    """Milliseconds from the INVITE sent, median and 99th percentile, beside `rate` calls a second."""
    with kind(build) as server:
        server.load(50, 1, 0.2)
        calls = plan["latency_calls"]
        background = server.caller(rate, int(rate * (calls * 0.03 + 4)), 1.0)
        try:
            time.sleep(3)
            trying, forwarded, lost = latencies(server, calls)
        finally:
            background.close()
    found = {"trying": (percentile(trying, 0.5), percentile(trying, 0.99)),
             "forwarded": (percentile(forwarded, 0.5), percentile(forwarded, 0.99)), "lost": lost}
    tell(f"  {kind.name}: at {rate}/s: 100 after {found['trying'][0]:.2f} / {found['trying'][1]:.2f} ms, "
         f"INVITE after {found['forwarded'][0]:.2f} / {found['forwarded'][1]:.2f} ms, {lost} lost")
    return found


def measure(kind, build, plan):
    tell(f"{kind.name}: {kind.role}")
    results = {"name": kind.name, "role": kind.role, "legs": kind.legs, "rates": cost_at_rates(kind, build, plan)}
    results["clean"] = highest_clean(kind, build, plan)
    if kind.legs == 2:
        results["held"] = with_held_calls(kind, build, plan)
        results["latency"] = {"half the clean rate": latency_under_load(kind, build, plan, max(50, results["clean"] // 2)),
                              f"{plan['latency_rate']} calls/s": latency_under_load(kind, build, plan, plan["latency_rate"])}
    return results


def allow_sockets(plan_held):
    """Raises the limit of open files as far as this user may; the numbers of held calls, the last lowered when a call's four
    sockets (RTP and RTCP on both legs) would go beyond it."""
    wanted = 4 * plan_held[-1] + 1000
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    try:
        resource.setrlimit(resource.RLIMIT_NOFILE, (max(wanted, most), max(wanted, most)))
        return plan_held
    except (ValueError, PermissionError):
        resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    can = (most - 1000) // 4 // 100 * 100
    if can >= plan_held[-1]:
        return plan_held
    tell(f"only {most} open files are allowed here: {can} calls are held at most, not {plan_held[-1]}")
    return [*plan_held[:-1], can]


def machine():
    model = "unknown processor"
    for line in Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    return f"{os.cpu_count()} cores ({model}), Linux {platform.release()}, sipp on the same cores, load average {os.getloadavg()[0]:.1f} at the end"


def table(results, plan):
    """The Markdown table, a column for each server."""
    base = results[0]

    def row(title, value):
        return "| " + " | ".join([title] + [value(result) for result in results]) + " |"

    def cost(result, rate):
        step = result["rates"][rate]
        mark = "" if step["clean"] else " (not clean)"
        ratio = "" if result is base else f" ({step['us'] / base['rates'][rate]['us']:.2f})"
        return f"{step['us']:.0f}{ratio}{mark}"

    def held(result, key, count):
        return f"{result['held'][count][key]:.{1 if key == 'kib' else 0}f}" if "held" in result else ""

    def latency(result, load, key):
        return "{:.2f} / {:.2f}".format(*result["latency"][load][key]) if "latency" in result else ""

    def growth(result):
        if "held" not in result:
            return ""
        return f"{result['held'][plan['held'][-1]]['us'] / result['held'][plan['held'][0]]['us']:.2f}"

    lines = [row("", lambda result: result["name"]), "|---" * (len(results) + 1) + "|", row("role", lambda result: result["role"])]
    lines += [row(f"CPU us per call at {rate} calls/s", lambda result, r=rate: cost(result, r)) for rate in plan["rates"]]
    lines.append(row("highest clean rate tried, calls/s", lambda result: str(result["clean"])))
    lines += [row(f"KiB per held call, {count} held", lambda result, c=count: held(result, "kib", c)) for count in plan["held"]]
    lines += [row(f"CPU us per call at {plan['held_rate']} calls/s beside {count} held calls", lambda result, c=count: held(result, "us", c))
              for count in plan["held"]]
    lines.append(row(f"growth of that from {plan['held'][0]} to {plan['held'][-1]} held", growth))
    for load in base["latency"]:
        lines.append(row(f"INVITE received to 100 sent, ms, median / 99 %, at {load}", lambda result, l=load: latency(result, l, "trying")))
        lines.append(row(f"INVITE received to INVITE forwarded, the same, at {load}", lambda result, l=load: latency(result, l, "forwarded")))
    return "\n".join(lines)


BEGIN, END = "<!-- figures of `make bench` -->", "<!-- end of the figures -->"


def write(folder, text):
    page = folder / "performance.md"
    old = page.read_text(encoding="utf-8")
    check(BEGIN in old and END in old, f"{page} lacks the markers {BEGIN} and {END}")
    page.write_text(old[:old.index(BEGIN) + len(BEGIN)] + "\n\n" + text + "\n\n" + old[old.index(END):], encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=lambda text: Path(text).resolve())
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--write", type=Path)
    options = parser.parse_args()
    plan = {"rates": RATES, "seconds": 8, "ladder_seconds": 6, "ladder": LADDER, "held": HELD, "held_rate": 200, "settled": SETTLED_S, "latency_calls": 500,
            "latency_rate": LATENCY_RATE}
    if options.quick:
        plan = {"rates": [50, 100], "seconds": 2, "ladder_seconds": 2, "ladder": [100, 200], "held": [50, 100], "held_rate": 50, "settled": 1, "latency_calls": 50,
                "latency_rate": 75}
    plan["held"] = allow_sockets(plan["held"])
    kinds = [QuorvexGateway, Kamailio, SippAnswering]
    if shutil.which("kamailio") is None:
        tell("kamailio is not installed (apt-get install kamailio): measured without it")
        kinds.remove(Kamailio)
    check(shutil.which("sipp"), "sipp is not installed")
    began = time.monotonic()
    results = [measure(kind, options.build, plan) for kind in kinds]
    text = table(results, plan)
    text += (f"\n\nIn parentheses: the ratio to {results[0]['name']}. Taken on {time.strftime('%Y-%m-%d', time.gmtime())} in "
             f"{(time.monotonic() - began) / 60:.0f} minutes on {machine()}.")
    print("\n" + text)
    if options.write:
        write(options.write, text + "\n\n![CPU time per call by rate](performance.svg)")
        plot(options.write / "performance.svg", "CPU time per call", "calls per second", "us",
             {result["name"]: [(rate, step["us"]) for rate, step in result["rates"].items()] for result in results})
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        print(f"gateway_bench.py: {failure}", file=sys.stderr)
        sys.exit(1)
