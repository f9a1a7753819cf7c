#!/usr/bin/env python3
"""Mixed traffic over a bad link for as long as one likes: no call may stick, memory must not grow, every call must have its
records, and at the end every memory account must be back to zero.

usage: soak.py BUILD [--minutes N] [--rate CALLS_PER_SECOND] [--share 0.7] [--loss 0.1] [--duplication 0.1] [--reordering 0.1]

Without --rate the highest rate that these parties and the gateway sustain together on this machine is measured
first, over the same bad link, and the share of it is offered."""
import argparse
import asyncio
import json
import random
import sys
import time
from collections import Counter
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from faults_hostile import Generator  # noqa: E402
from harness import ECHO_ROUTE, Failure, Gateway, check, free_port  # noqa: E402
from soak_flows import FLOWS, T1_MS, Call, Flow, caller_hangs_up, caller_waits, route  # noqa: E402
from soak_party import CALL_ENDED_S, Link, Party  # noqa: E402

SERVICES = [ECHO_ROUTE,
            {"name": "busy", "match": {"sip.in.requestUri": "^sip:busy"}, "service": "reject", "ringing": "none"},
            {"name": "timed", "match": {"sip.in.requestUri": "^sip:timed"}, "service": "echo", "answerAfterMs": 100,
             "hangupAfterMs": 300}]


def service(user, expected, script):
    """A kind of call that a service of the gateway takes."""
    async def caller(call, leg):
        call.user = lambda role="callee": f"{user}.x{call.number}-caller"
        return await script(call, leg)
    return Flow(f"service {user}", caller, {}, {"caller": expected})


MIX = [*FLOWS, FLOWS[0], FLOWS[0], FLOWS[1], service("timed", 200, caller_waits), service("busy", 486, caller_hangs_up)]


class Soak:
    def __init__(self, gateway, caller, callee, seed=1):
        self.gateway, self.caller, self.callee = gateway, caller, callee
        self.random = random.Random(seed)
        self.hostile = Generator(gateway.port, caller.port + 1, seed)
        self.number = 0
        self.running = set()
        self.placed = Counter()
        self.odd = Counter()
        self.legs = {}  # call number: roles whose legs began
        self.lag = 0.0
        self.setup_s = []

    async def offer(self, rate, seconds, malformed=0.05):
        """Begins calls at their pace; some of the datagrams between are no proper messages."""
        loop = asyncio.get_running_loop()
        began = loop.time()
        for number in range(int(rate * seconds)):
            ahead = began + number / rate - loop.time()
            if ahead > 0:
                await asyncio.sleep(ahead)
            else:
                self.lag = max(self.lag, -ahead)
                if number % 8 == 0:
                    await asyncio.sleep(0)
            self.place(self.random.choice(MIX))
            if self.random.random() < malformed:
                self.caller.transport.sendto(self.hostile.one(), self.caller.gateway)

    def place(self, flow):
        self.number += 1
        call = Call(flow, self.number, self.caller, self.callee, talk=self.random.uniform(0.1, 1.5)).begin()
        self.placed[flow.name] += 1
        task = asyncio.get_running_loop().create_task(self.follow(call))
        self.running.add(task)
        task.add_done_callback(self.running.discard)

    async def follow(self, call):
        await call.finished()
        self.legs[call.number] = set(call.call_ids)
        if call.outcomes != call.flow.statuses:
            self.odd[f"{call.flow.name}: {json.dumps(call.outcomes, sort_keys=True)}"] += 1

    async def settle(self):
        if self.running:
            await asyncio.wait(set(self.running), timeout=60)
        check(not self.running, f"{len(self.running)} scripts of the parties have not ended")

    async def listed(self, seconds):
        """The calls that the gateway still lists after so long."""
        loop = asyncio.get_running_loop()
        deadline = loop.time() + seconds
        while True:
            left = json.loads((await loop.run_in_executor(None, self.gateway.http, "/api/calls"))[1])
            if not left or loop.time() > deadline:
                return left
            await asyncio.sleep(0.1)

    async def maximum(self):
        """The highest rate at which neither the parties nor the gateway fall behind."""
        rate = best = 20
        while rate < 2000:
            self.lag = 0.0
            cpu = time.process_time()
            await self.offer(rate, 4)
            used = (time.process_time() - cpu) / 4
            if self.lag > 0.1 or used > 0.85:
                break
            best = rate
            rate = int(rate * 1.3)
        await self.settle()
        return best


def resident_kib(pid):
    for line in Path(f"/proc/{pid}/status").read_text(encoding="ascii").splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1])
    return 0


def cpu_s(pid):
    fields = Path(f"/proc/{pid}/stat").read_text(encoding="ascii").rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / 100


def recorded_roles(records):
    """{number of the call: Counter of roles}, by the user part of the called URIs."""
    found = {}
    for record in records:
        user = (record["to"] or "").partition("sip:")[2].partition("@")[0]
        number, _, role = user.rpartition("x")[2].partition("-")
        if number.isdigit():
            found.setdefault(int(number), Counter())["caller" if record["direction"] == "in" else role] += 1
    return found


async def soak(build, options):
    callee_port = free_port()
    timers = {"t1Ms": T1_MS, "timerCMs": int(2000 * CALL_ENDED_S), "state.Disconnecting.timeoutMs": int(2000 * CALL_ENDED_S)}
    links = [Link(seed, options.loss, options.duplication, options.reordering) for seed in range(1, 5)]
    with Gateway(build, {"quorvex.sip": timers}, routes=[route(callee_port), *SERVICES], level="WARN") as gateway:
        caller = await Party(gateway.port, 0, links[0], links[1]).open()
        callee = await Party(gateway.port, callee_port, links[2], links[3]).open()
        run = Soak(gateway, caller, callee)
        rate = options.rate
        if not rate:
            highest = await run.maximum()
            rate = highest * options.share
            print(f"{highest} calls/s are the most that parties and gateway sustain here; {rate:.0f} are offered", flush=True)
        pid = gateway.process.pid
        await run.offer(rate, min(15, options.minutes * 15))  # pools and caches reach their size
        samples, slices = [], max(4, int(options.minutes * 6))
        cpu, before, began = cpu_s(pid), run.number, time.monotonic()
        for _ in range(slices):
            await run.offer(rate, options.minutes * 60 / slices)
            samples.append(resident_kib(pid))
        cost = 1e6 * (cpu_s(pid) - cpu) / max(1, run.number - before)
        minutes = (time.monotonic() - began) / 60
        await run.settle()
        left = await run.listed(4 * CALL_ENDED_S)
        gateway.stop(seconds=40)
        half = len(samples) // 2
        early, late = max(samples[:half]), max(samples[half:])
        odd = sum(run.odd.values())
        print(f"{run.number} calls ({(run.number - before) / minutes / 60:.0f}/s), "
              f"{sum(link.passed + link.delayed for link in links)} messages carried, {sum(link.lost for link in links)} lost, "
              f"{sum(link.doubled for link in links)} doubled, {sum(link.delayed for link in links)} delayed")
        print(f"gateway: {cost:.0f} us CPU per call; resident {samples[0]} KiB at first, {samples[-1]} KiB at last, "
              f"highest {early} KiB in the first half and {late} KiB in the second")
        print(f"{odd} calls ended otherwise than without losses; parties were late by {run.lag * 1000:.0f} ms at most")
        for what, count in run.odd.most_common(12):
            print(f"  {count:5} {what}")
        check(not left, f"{len(left)} calls are stuck: {left[:3]}")
        recorded = recorded_roles(gateway.records())
        missing = {number: roles - set(recorded.get(number, ())) for number, roles in run.legs.items()
                   if roles - set(recorded.get(number, ()))}
        # an INVITE that was lost every time never was a call
        check(not missing, f"{len(missing)} calls without their records: {list(missing.items())[:5]}")
        doubled = [number for number, roles in recorded.items() if max(roles.values()) > 1]
        check(not doubled, f"{len(doubled)} calls with two records of a leg: {doubled[:5]}")
        check(late <= early * 1.05 + 2048, f"resident memory grew from {early} to {late} KiB")
        check(odd <= run.number * 0.005 + 2, f"{odd} of {run.number} calls ended otherwise")
        gateway.check_accounts_are_zero()
        check("Assertion failed" not in gateway.log(), "an assertion failed")
        caller.close()
        callee.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--rate", type=float, default=0)
    parser.add_argument("--share", type=float, default=0.7)
    for name in ("loss", "duplication", "reordering"):
        parser.add_argument(f"--{name}", type=float, default=0.1)
    try:
        asyncio.run(soak(Path(parser.parse_args().build).resolve(), parser.parse_args()))
    except Failure as failure:
        print(f"FAILED: {failure}")
        return 1
    print("soak passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
