#!/usr/bin/env python3
"""Calls of every kind through a gateway at a steady rate, sipp at both ends: most are answered, one in a hundred each is
refused, redirected, challenged, cancelled, left ringing, not answered at all, ... Every call ends, with the records and
the figures that its kind has, and nothing is left. QUORVEX_MIXED_CALLS: how many (1,000), QUORVEX_MIXED_RATE: per second."""
import collections
import json
import os
import re
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Gateway, bound_socket, check, free_port, run, wait_until_bound  # noqa: E402

SIPP = Path(__file__).resolve().parent / "sipp"
CALLS = int(os.environ.get("QUORVEX_MIXED_CALLS", "1000"))
RATE = int(os.environ.get("QUORVEX_MIXED_RATE", "100"))

# By the user that is called: status and "ended by" of the caller's leg, then of each leg that is placed.
KINDS = {
    "ok": [(200, "remote"), (200, "local")],
    "theirs": [(200, "local"), (200, "remote")],
    "s404": [(404, "local"), (404, "remote")],
    "s408": [(408, "local"), (408, "remote")],
    "s480": [(480, "local"), (480, "remote")],
    "s486": [(486, "local"), (486, "remote")],
    "s488": [(488, "local"), (488, "remote")],
    "s500": [(500, "local"), (500, "remote")],
    "s503": [(503, "local"), (503, "remote")],
    "s603": [(603, "local"), (603, "remote")],
    "cancel": [(487, "remote"), (487, "local")],
    "noanswer": [(480, "timeout"), (487, "local")],
    "badsdp": [(488, "local"), (200, "local")],
    "redirect": [(200, "remote"), (302, "remote"), (200, "local")],
    "challenge": [(200, "remote"), (200, "local")],
    "silent": [(480, "local"), (480, "timeout")],
    "nowhere": [(500, "local"), (500, "local")],
}


def kinds_of_calls():
    """The kind of each call: one in a hundred of each failure, spread evenly."""
    special = [kind for kind in KINDS if kind != "ok"]
    return [special[number % 100] if number % 100 < len(special) else "ok" for number in
            (number * 37 for number in range(CALLS))]


def routes(callee, silent):
    uri = {"silent": f"sip:silent@127.0.0.1:{silent}", "nowhere": "sip:x@no-such-host.invalid"}
    return [{"name": user, "match": {"sip.in.requestUri": f"^sip:{user}@"}, "leg": {"sip.out.requestUri": uri[user]}}
            for user in uri] + [{"name": "callee", "match": {"sip.in.requestUri": "^sip:([a-z0-9]+)@"},
                                 "leg": {"sip.out.requestUri": f"sip:$1@127.0.0.1:{callee}"}}]


def sipp(scenario, port, folder, *arguments):
    """A sipp with the scenario, in which what stands for each status is written out."""
    statuses = [kind[1:] for kind in KINDS if kind[1:].isdigit()]
    text = re.sub("<!-- for each STATUS -->(.*?)<!-- end -->",
                  lambda match: "".join(match.group(1).replace("STATUS", status) for status in statuses),
                  (SIPP / scenario).read_text(encoding="utf-8"), flags=re.DOTALL)
    (folder / scenario).write_text(text, encoding="utf-8")
    return subprocess.Popen(["sipp", "-sf", str(folder / scenario), "-i", "127.0.0.1", "-p", str(port), "-nostdin",
                             "-trace_err", "-error_file", str(folder / f"{scenario}.errors"), *arguments],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=folder)


def samples(gateway):
    """The metrics without labels, and those with labels as {name: {(value of each label): number}}."""
    plain, labelled = {}, collections.defaultdict(dict)
    for name, labels, value in re.findall(r"^([a-z_]+)(\{.*\})? (\S+)$", gateway.http("/metrics")[1], re.MULTILINE):
        if labels:
            labelled[name][tuple(re.findall(r'="([^"]*)"', labels))] = float(value)
        else:
            plain[name] = float(value)
    return plain, labelled


def check_records(records, kinds):
    """As many calls as were made, each with exactly the records of its kind, which say what there is to say."""
    calls = collections.defaultdict(list)
    for record in records:
        calls[record["call"]].append(record)
    seen = collections.Counter()
    for legs in calls.values():
        legs.sort(key=lambda record: record["leg"])
        kind = re.match("sip:([a-z0-9]+)@", legs[0]["to"]).group(1)
        seen[kind] += 1
        ends = [(leg["status"], leg["endedBy"]) for leg in legs]
        # Both legs of a call that nobody answers run into timer C at nearly one moment.
        check(ends == KINDS[kind] or (kind == "noanswer" and ends == [(480, "local"), (487, "timeout")]), f"{kind}: {json.dumps(legs, indent=1)}")
        for leg in legs:
            answered = leg["status"] == 200 and kind != "badsdp"
            check(bool(leg["sipCallId"]) == (kind != "nowhere" or leg["direction"] == "in") and
                  (leg["answered"] is not None) == answered and (leg["codec"] == "PCMU") == answered and
                  (leg["rtp"] is not None) == answered and (answered or leg["reason"] or leg["direction"] == "in"),
                  f"{kind}: {json.dumps(legs, indent=1)}")
        check(len({leg["sipCallId"] for leg in legs}) == len(legs), f"{kind}: legs share a Call-ID")
    check(seen == collections.Counter(kinds), f"calls recorded: {seen}, calls made: {collections.Counter(kinds)}")


def check_metrics(gateway, kinds):
    plain, labelled = samples(gateway)
    expected = collections.Counter((leg["direction"], str(leg["status"]), leg["endedBy"]) for leg in gateway.records())
    check(labelled["quorvex_legs_ended_total"] == expected, f"ended legs: {labelled['quorvex_legs_ended_total']}")
    check(set(labelled["quorvex_calls_by_state"]) == {("arrived",), ("ringing",), ("answered",), ("ending",)} and
          not any(labelled["quorvex_calls_by_state"].values()), f"by state: {labelled['quorvex_calls_by_state']}")
    answered = sum(1 for kind in kinds if KINDS[kind][0][0] == 200)
    placed = len(kinds) - kinds.count("nowhere")
    for name, value in {"quorvex_calls": 0, "quorvex_calls_stuck": 0, "quorvex_calls_total": len(kinds),
                        "quorvex_engine_queue_length": 0, "quorvex_assertions_failed_total": 0,
                        "quorvex_rtp_free_port_pairs": plain["quorvex_rtp_port_pairs"],
                        "quorvex_routing_seconds_count": placed, "quorvex_answer_seconds_count": 2 * answered,
                        "quorvex_post_dial_delay_seconds_count":
                            answered + kinds.count("cancel") + kinds.count("noanswer")}.items():
        check(plain.get(name) == value, f"{name} is {plain.get(name)}, {value} expected")
    bad_streams = plain["quorvex_streams_silent_total"] + plain["quorvex_streams_one_way_total"]
    check(bad_streams == 2 * answered, f"{bad_streams} streams without audio from both, {2 * answered} expected")
    check(labelled["quorvex_queue_length"] and not any(labelled["quorvex_queue_length"].values()),
          f"queues: {labelled['quorvex_queue_length']}")
    alive = {account: count for account, count in labelled["quorvex_memory_objects"].items()
             if count and account[0] in ("GatewayCall", "OutboundParty", "CallerLeg", "OutSipLeg", "InSipLeg")}
    check(not alive, f"alive: {alive}")


def calls_of_every_kind(build):
    kinds = kinds_of_calls()
    callee_port, caller_port = free_port(), free_port()
    timers = {"t1Ms": 40, "timerCMs": 3000, "credential": [{"realm": "callee.test", "user": "gw", "password": "secret"}]}
    with bound_socket() as silent:
        with Gateway(build, {"quorvex.sip": timers}, routes(callee_port, silent.getsockname()[1]), level="WARN") as gateway:
            users = gateway.folder / "users.csv"
            users.write_text("SEQUENTIAL\n" + "".join(f"{kind};\n" for kind in kinds), encoding="utf-8")
            callee = sipp("mixed-callee.xml", callee_port, gateway.folder)
            wait_until_bound(callee, callee_port)
            caller = sipp("mixed-caller.xml", caller_port, gateway.folder, f"127.0.0.1:{gateway.port}", "-inf", str(users),
                          "-m", str(CALLS), "-r", str(RATE), "-l", str(20 * RATE))
            try:
                code = caller.wait(60 + 2 * CALLS / RATE)
                errors = [line for file in gateway.folder.glob("*.errors") for line in file.read_text().splitlines()[:20]]
                check(code == 0, f"sipp ended with {code}; {errors}")
                gateway.wait_until_idle(30)
                deadline = time.monotonic() + 5
                while len(gateway.records()) < sum(len(KINDS[kind]) for kind in kinds) and time.monotonic() < deadline:
                    time.sleep(0.05)
                check_records(gateway.records(), kinds)
                check_metrics(gateway, kinds)
            finally:
                for process in (caller, callee):
                    process.kill()
                    process.wait()
            gateway.stop()
            gateway.check_accounts_are_zero()


if __name__ == "__main__":
    sys.exit(run([calls_of_every_kind], sys.argv[1]))
