#!/usr/bin/env python3
"""What must not bring a gateway down, tried with calls under way: signals, a media engine that stands still, a registrar
that goes and comes back, a clock that jumps, a disk that fills, and a flood of hostile messages."""
import asyncio
import contextlib
import ctypes
import datetime
import itertools
import json
import multiprocessing
import os
import re
import resource
import signal
import struct
import sys
import threading
import time
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import faults_hostile  # noqa: E402
from harness import Gateway, bound_socket, check, free_port, run  # noqa: E402
from soak import SERVICES, Soak, recorded_roles  # noqa: E402
from soak_flows import FLOWS, T1_MS, Call, route  # noqa: E402
from soak_party import CALL_ENDED_S, Cut, Party  # noqa: E402
from sipua import Caller, Message, sdp  # noqa: E402

TIMERS = {"t1Ms": T1_MS, "timerCMs": int(2000 * CALL_ENDED_S), "state.Disconnecting.timeoutMs": int(2000 * CALL_ENDED_S)}
RING = {"name": "ring", "match": {"sip.in.requestUri": "^sip:ring@"}, "service": "ring", "hangupAfterMs": 500}


class Stage:
    """A gateway with a caller and a callee that place mixed calls through it."""

    def __init__(self, build, overrides=None, level="WARN", levels=None):
        self.callee_port = free_port()
        overrides = {**(overrides or {})}
        overrides["quorvex.sip"] = {**TIMERS, **overrides.get("quorvex.sip", {})}
        self.gateway = Gateway(build, overrides, routes=[route(self.callee_port), *SERVICES, RING], level=level, levels=levels)

    async def __aenter__(self):
        self.gateway.__enter__()
        self.caller = await Party(self.gateway.port).open()
        self.callee = await Party(self.gateway.port, self.callee_port).open()
        self.calls = Soak(self.gateway, self.caller, self.callee)
        return self

    async def __aexit__(self, *why):
        self.caller.close()
        self.callee.close()
        self.gateway.__exit__(*why)

    async def offer(self, rate, seconds):
        await self.calls.offer(rate, seconds, malformed=0)

    async def good_calls(self, count, rate=40):
        """Calls that must all go well."""
        self.calls.odd.clear()
        await self.offer(rate, count / rate)
        await self.calls.settle()
        check(not self.calls.odd, f"calls went wrong: {self.calls.odd.most_common(5)}")

    def metric(self, name):
        return int(re.search(rf"^quorvex_{name} (\d+)", self.gateway.http("/metrics")[1], re.MULTILINE)[1])

    async def nothing_is_left(self):
        left = await self.calls.listed(4 * CALL_ENDED_S)
        check(not left, f"{len(left)} calls are stuck: {left[:3]}")

    def check_records(self, skipped=0):
        recorded = recorded_roles(self.gateway.records(skipped))
        missing = {number: roles - set(recorded.get(number, ())) for number, roles in self.calls.legs.items()
                   if roles - set(recorded.get(number, ()))}
        check(not missing, f"{len(missing)} calls without their records: {list(missing.items())[:5]}")

    def check_end(self):
        self.gateway.check_accounts_are_zero()
        check("Assertion failed" not in self.gateway.log(), "an assertion failed")


async def until(what, condition, seconds=20):
    loop = asyncio.get_running_loop()
    deadline = loop.time() + seconds
    while not condition():
        check(loop.time() < deadline, f"{what}: not within {seconds} s")
        await asyncio.sleep(0.02)


async def ended(gateway, seconds=40):
    return await asyncio.get_running_loop().run_in_executor(None, gateway.wait, seconds)


async def sigterm(build):
    async with Stage(build) as stage:
        await stage.offer(60, 3)
        load = asyncio.create_task(stage.offer(60, 3))
        await asyncio.sleep(0.5)
        stage.gateway.signal(signal.SIGTERM)
        code = await ended(stage.gateway)
        check(code == 0, f"exit code {code}")
        await load
        await stage.calls.settle()
        # Calls placed after the end never reached anybody.
        recorded = recorded_roles(stage.gateway.records())
        stage.calls.legs = {n: roles for n, roles in stage.calls.legs.items() if n in recorded or len(roles) > 1}
        stage.check_records()
        stage.check_end()


async def sighup(build):
    async with Stage(build) as stage:
        load = asyncio.create_task(stage.good_calls(240, 60))
        for _ in range(20):
            await asyncio.sleep(0.15)
            stage.gateway.signal(signal.SIGHUP)
        await load
        await stage.nothing_is_left()
        stage.gateway.stop()
        stage.check_records()
        stage.check_end()


async def sigkill(build):
    async with Stage(build) as stage:
        load = asyncio.create_task(stage.offer(60, 3))
        await asyncio.sleep(2.5)
        stage.gateway.signal(signal.SIGKILL)
        stage.gateway.wait()
        lines = stage.gateway.cdr_file.read_text(encoding="utf-8").splitlines() if stage.gateway.cdr_file.exists() else []
        await asyncio.get_running_loop().run_in_executor(None, stage.gateway.start)
        await load
        await stage.calls.settle()
        before = len(stage.calls.legs)
        await stage.good_calls(80)
        await stage.nothing_is_left()
        stage.gateway.stop()
        stage.calls.legs = {n: roles for n, roles in stage.calls.legs.items() if n > before}
        stage.check_records(len(lines))
        stage.check_end()


class Stopped:
    """Threads of a process stand still inside the `with`, by their names, as under a debugger. To be used and left in
    one thread of the caller's."""
    SEIZE, INTERRUPT, DETACH, WALL = 0x4206, 0x4207, 17, 0x40000000

    def __init__(self, pid, name):
        self.pid = pid
        self.tids = [int(task.name) for task in Path(f"/proc/{pid}/task").iterdir()
                     if (task / "comm").read_text(encoding="ascii").strip().startswith(name)]
        check(self.tids, f"the gateway has no thread {name}")
        self.libc = ctypes.CDLL(None, use_errno=True)

    def ptrace(self, request, tid):
        check(self.libc.ptrace(request, tid, None, None) == 0, f"ptrace: {os.strerror(ctypes.get_errno())}")

    def __enter__(self):
        for tid in self.tids:
            # Stopped in the middle of its work it could hold a lock that another thread wants.
            deadline = time.monotonic() + 10
            while Path(f"/proc/{self.pid}/task/{tid}/stat").read_text(encoding="ascii").rsplit(")", 1)[1].split()[0] != "S":
                check(time.monotonic() < deadline, f"thread {tid} never rests")
            self.ptrace(self.SEIZE, tid)
            self.ptrace(self.INTERRUPT, tid)
            os.waitpid(tid, self.WALL)
        return self

    def __exit__(self, *_):
        for tid in self.tids:
            self.ptrace(self.DETACH, tid)


def wait_for_health(gateway, loops):
    """Until /healthz tells of these loops and no other: of none, 200."""
    deadline = time.monotonic() + 30
    while True:
        status, text = gateway.http("/healthz")
        told = dict(re.findall(r'the ([a-z ]+) loop stands still \(thread \\"([^"]*)\\"\)', text))
        if told.keys() == loops.keys() and status == (503 if loops else 200):
            return told
        check(time.monotonic() < deadline, f"/healthz says {status} {text}")
        time.sleep(0.1)


def check_reported(gateway, loops):
    """The loops that stand still, and no others, are told to whoever looks, with their threads: health, log and metrics."""
    told = wait_for_health(gateway, loops)
    check(all(told[loop].startswith(name) for loop, name in loops.items()), f"/healthz names {told}")
    stalled = re.findall(r'quorvex_loop_stalled\{loop="([^"]*)"\} 1', gateway.http("/metrics")[1])
    check(sorted(stalled) == sorted(loops), f"the metrics tell of {stalled}")
    deadline = time.monotonic() + 10
    for loop, thread in told.items():
        line = f'the {loop} loop stands still: thread "{thread}" has not answered'
        while line not in gateway.log():
            check(time.monotonic() < deadline, f"the log does not tell of the {loop} loop")
            time.sleep(0.1)
        check(gateway.log().count(line) == 1, f"the log tells more than once of the {loop} loop")


def loops_stand_still(build):
    """A signalling thread that is blocked is reported, and no other; calls then go on as before."""
    with Gateway(build) as gateway:
        for loops in ({"sip": "sip-stack"}, {"task": "Sip Gateway Net", "call engine": "call-engine"}):
            with contextlib.ExitStack() as stack, Caller(gateway.port) as caller:
                gateway.wait_until_idle()
                for name in loops.values():
                    stack.enter_context(Stopped(gateway.process.pid, name))
                check_reported(gateway, loops)
                stack.close()
                wait_for_health(gateway, {})
                caller.invite(sdp("127.0.0.1"))
                caller.ack(caller.expect(200, seconds=10, skip=(100, 180)))
                caller.send("BYE")
                caller.expect(200, seconds=10, skip=(200,))
        gateway.stop()
        gateway.check_accounts_are_zero()


async def media_stand_still(build):
    """Calls of that time fail or wait, and end; calls of before and after are well."""
    async with Stage(build) as stage:
        await stage.good_calls(40)
        with Stopped(stage.gateway.process.pid, "rtp-media"):
            await stage.offer(20, 4)
            await asyncio.sleep(2 * CALL_ENDED_S)
            await asyncio.get_running_loop().run_in_executor(None, check_reported, stage.gateway, {"media": "rtp-media"})
        await asyncio.get_running_loop().run_in_executor(None, wait_for_health, stage.gateway, {})
        await stage.calls.settle()
        print(f"calls meanwhile: {stage.calls.odd.most_common(5)}")
        await stage.nothing_is_left()
        await stage.good_calls(80)
        stage.gateway.stop()
        stage.check_records()
        stage.check_end()


class Registrar(threading.Thread):
    """Says 200 to REGISTER for two seconds each, or nothing while silent."""

    def __init__(self):
        super().__init__(daemon=True)
        self.socket = bound_socket()
        self.socket.settimeout(0.2)
        self.port = self.socket.getsockname()[1]
        self.silent = self.over = False
        self.answered = self.ignored = 0
        self.start()

    def run(self):
        while not self.over:
            try:
                data, source = self.socket.recvfrom(65536)
            except OSError:
                continue
            request = Message(data)
            if self.silent:
                self.ignored += 1
                continue
            lines = ["SIP/2.0 200 OK", *(f"Via: {via}" for via in request.all("Via")),
                     *(f"{name}: {request.get(name)}" for name in ("From", "Call-ID", "CSeq")), f"To: {request.get('To')};tag=r",
                     f"Contact: {request.get('Contact')};expires=2", "Content-Length: 0"]
            self.socket.sendto(("\r\n".join(lines) + "\r\n\r\n").encode(), source)
            self.answered += 1

    def overrides(self):
        """What lets a gateway register here."""
        return {"quorvex.sip": {"registration": [{"registrar": f"sip:127.0.0.1:{self.port}", "aor": "sip:gw@example.test",
                                                  "user": "gw", "password": "secret", "expiresS": 2}]}}


async def registrar_away(build):
    registrar = Registrar()
    async with Stage(build, registrar.overrides()) as stage:
        await until("registered and refreshed", lambda: registrar.answered >= 2)
        registrar.silent = True
        await until("tried while the registrar is away", lambda: registrar.ignored >= 2)
        await stage.good_calls(80)
        registrar.silent, answered = False, registrar.answered
        await until("registered again", lambda: registrar.answered > answered, 30)
        await stage.good_calls(40)
        await stage.nothing_is_left()
        stage.gateway.stop()
        stage.check_records()
        stage.check_end()
    registrar.over = True


class Clock:
    """The time of day of one gateway, through a library that it loads first."""

    def __init__(self, gateway):
        self.file = gateway.folder / "clock"
        self.jump_to(0)
        library = next(gateway.build.glob("lib/libquorvex-clock-shim*"))
        gateway.program = ["env", f"LD_PRELOAD={library}", f"QUORVEX_TEST_CLOCK={self.file}", *gateway.program]

    def jump_to(self, seconds):
        """So far from the true time."""
        with open(self.file, "r+b" if self.file.exists() else "xb") as file:
            file.write(struct.pack("=q", seconds))


async def clock_jumps(build):
    """Calls whose messages are lost are made good by timers: by none too early, and none never. Registrations are refreshed.
    What the records tell of a call's length has passed."""
    registrar = Registrar()
    stage = Stage(build, registrar.overrides())
    clock, number, jumps = Clock(stage.gateway), itertools.count(1), (3600, -3600, 86400, 0)
    async with stage:
        began = time.monotonic()
        for jump in jumps:
            calls = [Call(flow, next(number), stage.caller, stage.callee, {role: Cut("in", lost)}, talk=0.5).begin()
                     for flow in FLOWS for role in flow.statuses for lost in (1, 2, 3)]
            await asyncio.sleep(0.15)
            clock.jump_to(jump)
            refreshed = registrar.answered
            await asyncio.gather(*(call.finished() for call in calls))
            odd = [f"{call.flow.name}: {call.outcomes}" for call in calls if call.outcomes != call.flow.statuses]
            check(not odd, f"{len(odd)} of {len(calls)} calls went wrong with the clock at {jump} s: {odd[:5]}")
            await until("the registration is refreshed", lambda: registrar.answered > refreshed)
        await stage.nothing_is_left()
        passed = time.monotonic() - began
        stage.gateway.stop()
        stage.check_end()
        invited = []
        for record in stage.gateway.records():
            times = [datetime.datetime.fromisoformat(record[name].replace("Z", "+00:00")).timestamp()
                     for name in ("invited", "ringing", "answered", "ended") if record[name]]
            check(times == sorted(times) and times[-1] - times[0] < passed + 0.1, f"not within {passed:.1f} s: {record}")
            invited.append(times[0])
        check(max(invited) - min(invited) > 80000, "the clock did not jump")
    registrar.over = True


async def disk_fills(build):
    """The call records' disk is full for a while, in the middle of a record: calls go on, it is told once, and each record is
    either whole on a line of its own or counted as lost. A half record that an earlier process has left stays by itself."""
    stage = Stage(build, levels={"quorvex.gateway.CdrWriter": "INFO"})
    stage.gateway.cdr_file.write_text('{"call":"hal', encoding="utf-8")

    def legs():
        return sum(len(roles) for roles in stage.calls.legs.values())

    async with stage:
        pid, file = stage.gateway.process.pid, stage.gateway.cdr_file
        await stage.good_calls(20)
        await until("the first records are written", lambda: stage.metric("cdr_written_total") == legs())
        resource.prlimit(pid, resource.RLIMIT_FSIZE, (file.stat().st_size + 1000, resource.RLIM_INFINITY))
        await stage.good_calls(40)
        await stage.nothing_is_left()
        await until("records are lost", lambda: stage.metric("cdr_lost_total") > 0)
        check(not file.read_bytes().endswith(b"\n"), "no record was cut")
        resource.prlimit(pid, resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        before = len(stage.calls.legs)
        await stage.good_calls(40)
        await stage.nothing_is_left()
        stage.gateway.stop()
        stage.check_end()
        half, *lines = file.read_text(encoding="utf-8").splitlines()
        check(half == '{"call":"hal', f"the half record was changed: {half}")
        recorded = recorded_roles([json.loads(line) for line in lines])
        late = {number: roles for number, roles in stage.calls.legs.items() if number > before}
        check(all(set(recorded.get(number, ())) == roles for number, roles in late.items()), "records are missing after it")
        check(len(lines) < legs(), "no record was lost")
        told = [line for line in stage.gateway.log().splitlines() if "CdrWriter" in line]
        check(len(told) == 2 and " ERROR " in told[0] and "File too large" in told[0] and "again" in told[1], "\n".join(told))


async def hostile_messages(build, count=100000, rate=3000):
    async with Stage(build, level="OFF") as stage:
        with ProcessPoolExecutor(1, multiprocessing.get_context("spawn")) as attacker:
            attack = attacker.submit(faults_hostile.send, stage.gateway.port, count, 1, rate)
            await stage.good_calls(200, 6)
            check(stage.gateway.process.poll() is None, "the gateway is gone")
            unanswered = await asyncio.wait_for(asyncio.wrap_future(attack), 200)
        print(f"parties late by {stage.calls.lag * 1000:.0f} ms at most; {unanswered} of {count // faults_hostile.PING_EVERY} pings "
              "went unanswered")
        await until("a tenth of the messages is counted as malformed", lambda: stage.metric("sip_malformed_total") > count / 10)
        check(unanswered <= count / faults_hostile.PING_EVERY / 10, f"{unanswered} pings went unanswered")
        # A call of the attacker's own may stand: the gateway cannot know better. An operator ends it.
        def answered():
            return [call["id"] for call in json.loads(stage.gateway.http("/api/calls")[1]) if call["state"] == "answered"]
        for call_id in answered():
            stage.gateway.http(f"/api/calls/{call_id}", "DELETE")
        await stage.nothing_is_left()
        await stage.good_calls(40)
        stage.gateway.stop()
        stage.check_records()
        stage.check_end()


def test(story):
    def wrapped(build):
        asyncio.run(story(build))
    wrapped.__name__ = story.__name__
    return wrapped


if __name__ == "__main__":
    sys.exit(run([*(test(story) for story in (sigterm, sighup, sigkill, media_stand_still, registrar_away, clock_jumps,
                                              disk_fills, hostile_messages)), loops_stand_still], sys.argv[1]))
