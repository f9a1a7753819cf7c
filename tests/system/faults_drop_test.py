#!/usr/bin/env python3
"""Every single message of the main flows lost once, in either direction, on either side of the gateway; and each party
gone for good after each message. All calls end as the protocol says, with their records, and nothing is left."""
import asyncio
import json
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Gateway, check, free_port, run  # noqa: E402
from soak_flows import FLOWS, T1_MS, Call, route  # noqa: E402
from soak_party import CALL_ENDED_S, Cut, Party  # noqa: E402

TIMERS = {"t1Ms": T1_MS, "timerCMs": int(1000 * CALL_ENDED_S), "state.Disconnecting.timeoutMs": int(2000 * CALL_ENDED_S)}


async def play(calls):
    """Plays the calls a few milliseconds apart and waits for their ends."""
    for call in calls:
        call.begin()
        await asyncio.sleep(0.008)
    await asyncio.wait_for(asyncio.gather(*(call.finished() for call in calls)), 60)


async def gone(gateway, seconds):
    """The calls that the gateway still has after so many seconds."""
    loop = asyncio.get_running_loop()
    deadline = loop.time() + seconds
    while True:
        left = json.loads((await loop.run_in_executor(None, gateway.http, "/api/calls"))[1])
        if not left or loop.time() > deadline:
            return left
        await asyncio.sleep(0.1)


def by_call(records):
    """{number of the call: {role: [status, ...]}}, by the user part that the called URIs carry."""
    found = {}
    for record in records:
        number, role = re.search(r"sip:x([0-9]+)-([a-z]+)@", record["to"]).groups()
        found.setdefault(int(number), {}).setdefault("caller" if record["direction"] == "in" else role,
                                                      []).append(record["status"])
    return found


def single(statuses):
    """{role: status} when each leg has one record; otherwise as it is."""
    return {role: some[0] if len(some) == 1 else some for role, some in statuses.items()}


async def drive(build, make_cases, judge):
    callee_port = free_port()
    with Gateway(build, {"quorvex.sip": TIMERS}, routes=[route(callee_port)]) as gateway:
        caller, callee = Party(gateway.port), Party(gateway.port, port=callee_port)
        await caller.open()
        await callee.open()
        clean = [Call(flow, number, caller, callee, {role: Cut() for role in flow.statuses}) for number, flow in enumerate(FLOWS)]
        await play(clean)
        cases = []
        for flow, model in zip(FLOWS, clean):
            cases += [(flow, *case) for case in make_cases(model)]
        calls = []
        for number, (flow, role, direction, count, dead) in enumerate(cases, len(clean)):
            calls.append(Call(flow, number, caller, callee, {role: Cut(direction, count, dead)}))
        await play(calls)
        left = await gone(gateway, 4 * CALL_ENDED_S)
        gateway.stop()
        recorded = by_call(gateway.records())
        faults = [f"the gateway still has {len(left)} calls: {left[:3]}"] if left else []
        for call in clean:
            if call.outcomes != call.flow.statuses or single(recorded.get(call.number, {})) != call.flow.statuses:
                faults.append(f"{call.flow.name}, undisturbed: {call.outcomes}, records {recorded.get(call.number)}")
        for call, (flow, role, direction, count, dead) in zip(calls, cases):
            fault = judge(call, single(recorded.get(call.number, {})))
            if fault:
                faults.append(f"{flow.name}, {role} {direction} {count} ({call.cuts[role].hit}): {fault}")
        missed = [case for call, case in zip(calls, cases) if not call.cuts[case[1]].hit]
        if len(missed) > len(cases) / 20:  # crossing messages come in one order or the other
            faults.append(f"{len(missed)} losses never happened: {missed[:5]}")
        print(f"{len(cases)} calls with losses, {len(gateway.records())} records")
        check(not faults, f"{len(faults)} faults:\n" + "\n".join(faults[:40]))
        gateway.check_accounts_are_zero()
        check("Assertion failed" not in gateway.log(), "an assertion failed")
        caller.close()
        callee.close()


def every_message_may_be_lost_once(build):
    def cases(model):
        return [(role, direction, number, False) for role in model.cuts for direction in ("in", "out")
                for number in range(1, model.cuts[role].seen[direction] + 1)]

    def judge(call, recorded):
        if call.outcomes != call.flow.statuses:
            return f"the parties saw {call.outcomes}, {call.flow.statuses} expected"
        if recorded != call.flow.statuses:
            return f"the records say {recorded}, {call.flow.statuses} expected"
        return None

    asyncio.run(drive(build, cases, judge))


def either_party_may_vanish_after_any_message(build):
    def cases(model):
        return [(role, "any", number, True) for role in model.cuts
                for number in range(2, sum(model.cuts[role].seen.values()) + 1)]

    def judge(call, recorded):
        """Whoever is left gets a proper end; each leg that began has its record."""
        missing = set(call.call_ids) - set(recorded)
        if missing:
            return f"no record of {missing}; the parties saw {call.outcomes}"
        waiting = [role for role, outcome in call.outcomes.items()
                   if role not in call.cuts and (outcome == 0 or str(outcome).startswith("silence"))]
        return f"{waiting} waits in vain: {call.outcomes}, records {recorded}" if waiting else None

    asyncio.run(drive(build, cases, judge))


if __name__ == "__main__":
    sys.exit(run([every_message_may_be_lost_once, either_party_may_vanish_after_any_message], sys.argv[1]))
