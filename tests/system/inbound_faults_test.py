#!/usr/bin/env python3
"""Faults around calls that arrive: a media engine that fails, ports that run out, commands that cannot be. Each gets its status
and one line in the log, and no other call is disturbed."""
import contextlib
import os
import random
import re
import socket
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Gateway, check, run  # noqa: E402
from inbound_states_test import ROUTES  # noqa: E402
from ladder import Ladder  # noqa: E402


def complaints(gateway):
    """The log's lines of a fault, without their times and calls."""
    return [re.sub(r"^\S+ (\S+) +\[\d+\] ", r"\1 ", line) for line in gateway.log().splitlines()
            if re.match(r"\S+ (WARN|ERROR) ", line)]


def the_media_engine_fails(build):
    # What fails, who is called, the ladder, status and side of the record, what the log says.
    cases = [
        ("create", "echo", ">INVITE 500 >ACK", (500, "local"), "Capacity not available"),
        ("configure", "rings-early", ">INVITE 180+ 480 >ACK", (480, "local"), "media event"),
        ("start", "rings-early", ">INVITE 180+ 480 >ACK", (480, "local"), "media event"),
        ("start", "progress", ">INVITE 183+ 480 >ACK", (480, "local"), "media event"),
        ("configure", "echo", ">INVITE 180 200+ >ACK BYE >200", (200, "local"), "media event"),
        ("start", "echo", ">INVITE 180 200+ >ACK BYE >200", (200, "local"), "media event"),
        ("stop", "echo", ">INVITE 180 200+ >ACK >BYE 200", (200, "remote"), None),
    ]
    library = Path(build).resolve() / "lib/libtest_media_breaking.so"
    check(library.exists(), f"{library} is not built")
    with Gateway(build, {"quorvex.sip": {"mediaLibName": str(library)}}, ROUTES) as gateway:
        fault = Path(os.environ["QUORVEX_TEST_MEDIA_FAULT"])
        with Ladder(gateway, "echo") as witness:
            witness.run(">INVITE 180 200+ >ACK")
            for operation, user, ladder, _, text in cases:
                before = len(complaints(gateway))
                fault.write_text(operation, encoding="utf-8")
                with Ladder(gateway, user) as caller:
                    caller.run(ladder)
                fault.write_text("", encoding="utf-8")
                lines = complaints(gateway)[before:]
                check(text is None or (0 < len(lines) < 5 and any(text in line for line in lines)),
                      f"{operation} fails, {user}: the log says {lines}")
                witness.run(">INFO 200")
            witness.run(">BYE 200")
        gateway.stop()
        found = [(record["status"], record["endedBy"]) for record in gateway.records()]
        check(sorted(found) == sorted([case[3] for case in cases] + [(200, "remote")]), f"recorded: {found}")
        gateway.check_accounts_are_zero()


def two_pairs_of_ports():
    """Four ports that are free, below those that other tests take theirs from."""
    while True:
        first = random.randrange(2000, 5900, 4)
        with contextlib.ExitStack() as stack, contextlib.suppress(OSError):
            for port in range(first, first + 4):
                stack.enter_context(socket.socket(socket.AF_INET, socket.SOCK_DGRAM)).bind(("127.0.0.1", port))
            return first


def ports_run_out(build):
    first = two_pairs_of_ports()

    def free_pairs():
        return re.search(r"quorvex_rtp_free_port_pairs (\d)", gateway.http("/metrics")[1])[1]

    with Gateway(build, {"quorvex.rtp": {"portRange": f"{first}-{first + 3}"}}) as gateway:
        with Ladder(gateway, "echo") as one, Ladder(gateway, "echo") as two, Ladder(gateway, "echo") as three:
            one.run(">INVITE 180 200+ >ACK")
            two.run(">INVITE 180 200+ >ACK")
            three.run(">INVITE 500 >ACK")
            lines = [line for line in complaints(gateway) if "no RTP port for an endpoint" in line]
            check(len(lines) == 1 and "0 of 2 pairs are free" in lines[0], f"the log says {complaints(gateway)}")
            two.run(">BYE 200")
            # The media engine lets go of the ports when the call's end has come to it.
            deadline = time.monotonic() + 10
            while free_pairs() != "1":
                check(time.monotonic() < deadline, f"{free_pairs()} pairs are free after a call's end")
                time.sleep(0.01)
            with Ladder(gateway, "echo") as four:
                four.run(">INVITE 180 200+ >ACK >BYE 200")
            one.run(">INFO 200 >BYE 200")
        gateway.stop()
        statuses = sorted((record["status"], record["endedBy"]) for record in gateway.records())
        check(statuses == [(200, "remote")] * 3 + [(500, "local")], f"recorded: {statuses}")
        gateway.check_accounts_are_zero()


if __name__ == "__main__":
    import tempfile
    with tempfile.TemporaryDirectory() as folder:
        os.environ["QUORVEX_TEST_MEDIA_FAULT"] = str(Path(folder) / "fault")
        sys.exit(run([the_media_engine_fails, ports_run_out], sys.argv[1]))
