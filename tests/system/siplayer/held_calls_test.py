#!/usr/bin/env python3
"""Calls held at once and ended, round after round: what each costs in resident memory, and that no round needs more
than the first.

usage: held_calls_test.py BUILD [CALLS (1000) [ROUNDS (2)]]
"""
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from agent import Agent  # noqa: E402
from caller_flows import ESTABLISHED  # noqa: E402
from flows_test import sipp  # noqa: E402
from harness import check, run  # noqa: E402
from scenario import scenario, take_bye  # noqa: E402

CALLS = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
ROUNDS = int(sys.argv[3]) if len(sys.argv) > 3 else 2


def settled(agent, transactions_s):
    """Resident memory once the transactions are gone and free memory is given back."""
    time.sleep(transactions_s)  # the time that their timers take, which nothing reports
    agent.command("trim")
    return agent.resident_kib()


def held_calls(build):
    with Agent(build) as agent, tempfile.TemporaryDirectory(prefix="quorvex-held-") as folder:
        over = 64 * agent.t1 / 1000 + 1
        before = settled(agent, 0)
        rounds = []
        for number in range(1, ROUNDS + 1):
            command, errors = sipp(folder, number, scenario(ESTABLISHED, take_bye()), "udp", "-m", str(CALLS), "-l",
                                   str(CALLS + 100), "-r", "400", "-s", "answer", f"127.0.0.1:{agent.udp}")
            command[command.index("-timeout") + 1] = "120"
            process = subprocess.Popen(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                agent.wait_until(lambda s: s["confirmed"] == number * CALLS, "the calls", 100)
                held = settled(agent, over)
                check(agent.status()["calls"] == CALLS, f"not all calls are held: {agent.status()}")
                # At the rate at which they came: the base library's tables of requests grow with what is under way
                # at once, for good, and would make the second round look larger.
                while agent.status()["calls"]:
                    agent.command("hangup 40")
                    time.sleep(0.1)
                agent.wait_until_idle(60)
                code = process.wait(60)
                check(code == 0, f"sipp ended with {code}: " + (errors.read_text(errors="replace")[:500]
                                                              if errors.exists() else ""))
            finally:
                process.kill()
                process.wait()
            after = settled(agent, over)
            rounds.append((held, after))
            print(f"round {number}: {CALLS} calls held: {held} KiB, {(held - before) / CALLS:.1f} KiB per call; "
                  f"after their end {after} KiB (before all: {before} KiB)", flush=True)
        held_1, after_1 = rounds[0]
        for number, (held, after) in enumerate(rounds[1:], 2):
            # Pages come in fours of KiB; a heap of another shape may hold a little more or less.
            check(held <= held_1 * 1.005 + 128, f"round {number} held {held} KiB, the first {held_1}")
            check(after <= after_1 * 1.01 + 128, f"{after} KiB after round {number}, {after_1} after the first")


if __name__ == "__main__":
    sys.exit(run([held_calls], sys.argv[1]))
