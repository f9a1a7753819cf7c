#!/usr/bin/env python3
"""sipp and the user agent call each other in every flow, over UDP and TCP: every flow ends as it must, every call
with its one closing report, and nothing is left in the memory accounts.

usage: flows_test.py BUILD [caller|callee [udp|tcp [NAME]]]
"""
import socket
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import callee_flows
import caller_flows
from agent import Agent
from harness import Failure, check, free_port, wait_until_bound

CALLS = 5
LOSSY_CALLS = 60
# In these the layer repeats what sipp takes for a new message over TCP.
NOT_OVER_TCP = {"lost ACK", "lost ACK of a re-INVITE", "never PRACKed", "re-INVITE without an ACK"}
OPTIONS = ["--user", "agent", "--password", "secret", "--timer-c", "2500"]


def sipp(folder, number, scenario, transport, *options):
    path = Path(folder) / f"{number}.xml"
    path.write_text(scenario, encoding="latin-1")
    errors = Path(folder) / f"{number}.errors"
    command = ["sipp", "-sf", str(path), "-t", "t1" if transport == "tcp" else "u1", "-i", "127.0.0.1", "-nostdin",
               "-timeout", "20", "-trace_err", "-error_file", str(errors), "-max_retrans", "9", *options]
    return command, errors


def report(result, errors, what):
    text = errors.read_text(encoding="utf-8", errors="replace")[:1500] if errors.exists() else ""
    check(result == 0, f"sipp ended with {result} in '{what}': {text}")


def run_caller(build, transport, number, flow, folder, lossy):
    name, script, scenario = flow
    with Agent(build, options=OPTIONS) as agent:
        port = agent.tcp if transport == "tcp" else agent.udp
        calls = LOSSY_CALLS if lossy else CALLS
        extra = ["-lost", "20", "-timeout_error"] if lossy else ["-timeout_error"]
        command, errors = sipp(folder, f"a{transport}{number}", scenario, transport, "-m", str(calls), "-r", "50",
                               "-p", str(free_port(both=True)), "-s", script, *extra, f"127.0.0.1:{port}")
        result = subprocess.run(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                timeout=60, check=False).returncode
        if not lossy:
            report(result, errors, name)
        if lossy:
            agent.command("hangup")  # the calls whose BYE got lost every time
        status = agent.wait_until_idle()
        if lossy:
            check(status["answered"] >= calls * 0.9, f"{status['answered']} of {calls} calls were answered")


def run_callee(build, transport, number, flow, folder, lossy):
    name, script, scenario = flow
    with Agent(build, options=OPTIONS) as agent:
        port = free_port(both=True)
        calls = LOSSY_CALLS if lossy else CALLS
        extra = ["-lost", "20"] if lossy else []
        suffix = ";transport=tcp" if transport == "tcp" else ""
        own = f"127.0.0.1:{agent.tcp};transport=tcp" if transport == "tcp" else f"127.0.0.1:{agent.udp}"
        command, errors = sipp(folder, f"b{transport}{number}", scenario.replace("AGENT", own), transport, "-m",
                               str(calls), "-p", str(port), *extra)
        process = subprocess.Popen(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            wait_until_bound(process, port, socket.SOCK_STREAM if transport == "tcp" else socket.SOCK_DGRAM)
            agent.call(f"sip:user@127.0.0.1:{port}{suffix}", script, calls, 50)
            if not lossy:
                report(process.wait(40), errors, name)
            placed = calls * (2 if script.startswith("follow") else 1)
            agent.wait_until(lambda s: s["outbound"] >= placed, "the calls")
            if lossy:
                process.wait(40)
                agent.command("hangup")  # the calls whose BYE got lost every time
            status = agent.wait_until_idle()
            if lossy:
                check(status["answered"] >= calls * 0.9, f"{status['answered']} of {calls} calls were answered")
        except subprocess.TimeoutExpired:
            raise Failure(f"sipp did not end in '{name}'") from None
        finally:
            process.kill()
            process.wait()


def main():
    build = sys.argv[1]
    direction = sys.argv[2] if len(sys.argv) > 2 else None
    only_transport = sys.argv[3] if len(sys.argv) > 3 else None
    only = sys.argv[4] if len(sys.argv) > 4 else None
    jobs = []
    failures = []
    with tempfile.TemporaryDirectory(prefix="quorvex-flows-") as folder, ThreadPoolExecutor(6) as pool:
        for kind, run, flows in (("caller", run_caller, caller_flows), ("callee", run_callee, callee_flows)):
            if direction and kind != direction:
                continue
            for transport in ("udp", "tcp"):
                if only_transport and transport != only_transport:
                    continue
                chosen = [(flow, False) for flow in flows.FLOWS
                          if transport == "udp" or flow[0] not in NOT_OVER_TCP]
                chosen += [(flow, True) for flow in flows.LOSSY if transport == "udp"]
                for number, (flow, lossy) in enumerate(chosen):
                    if only and only not in flow[0]:
                        continue
                    jobs.append((f"sipp as {kind}, {transport}: {flow[0]}",
                                 pool.submit(run, build, transport, number, flow, folder, lossy)))
        for name, job in jobs:
            try:
                job.result()
                print(f"ok      {name}", flush=True)
            except (Failure, subprocess.TimeoutExpired) as failure:
                failures.append(name)
                print(f"FAILED  {name}: {failure}", flush=True)
    print(f"{len(jobs) - len(failures)} passed, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
