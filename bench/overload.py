#!/usr/bin/env python3
"""Three times as many calls as the gateway can take: how many are completed, how the others are refused, and how soon all
is well again.

usage: overload.py BUILD [--maximum CALLS_PER_SECOND] [--seconds 120] [--factor 3]

Without --maximum the highest clean rate is measured first. What is completed at this rate, before and after the overload, is the
maximum to hold: a virtual machine does not go as fast in one minute as in the next. Exit code 1 when fewer than 90 % of it are
completed, when anything is refused otherwise than by a 503 with Retry-After, or when calls are not well again within 10 s. sipp needs
the same cores as the gateway here: part of what is lost is lost to it."""
import argparse
import signal
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from gateway_bench import HELD, LADDER, allow_sockets, highest_clean, tell  # noqa: E402
from load import Failure, QuorvexGateway, check  # noqa: E402

SENDERS = 2
STEADY_S = 20
RECOVERY_S = 10


def counter(sipp, name):
    """One of the scenario's own counters."""
    return next((int(value or 0) for column, value in sipp.figures().items()
                 if column.startswith(name) and column.endswith("(C)")), 0)


def steadily_completed(build, rate):
    """Completed calls a second when this rate is offered for some time."""
    with QuorvexGateway(build) as server:
        server.load(50, 1, 0.2)
        completed = server.load(rate, STEADY_S)["done"] / STEADY_S
    tell(f"  quorvex-gateway: {rate}/s for {STEADY_S} s: {completed:.0f}/s completed")
    return completed


def recovered_after(server):
    """Seconds until ten calls in a row go well, in trains of ten a second."""
    began = time.monotonic()
    while time.monotonic() - began < 60:
        started = time.monotonic()
        if server.load(10, 1, 0.2)["failed"] == 0:
            return started - began
    raise Failure("calls still fail a minute after the overload")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", type=lambda text: Path(text).resolve())
    parser.add_argument("--maximum", type=int, default=0)
    parser.add_argument("--seconds", type=int, default=120)
    parser.add_argument("--factor", type=float, default=3)
    options = parser.parse_args()
    allow_sockets(HELD)
    maximum = options.maximum or highest_clean(QuorvexGateway, options.build, {"ladder": LADDER, "ladder_seconds": 6})
    check(maximum, "there is no clean rate to triple")
    before = steadily_completed(options.build, maximum)
    rate = int(maximum * options.factor / SENDERS)
    with QuorvexGateway(options.build) as server:
        server.load(50, 1, 0.2)
        began = time.monotonic()
        senders = [server.caller(rate, rate * options.seconds, 1.0, "uac_overload.xml") for _ in range(SENDERS)]
        try:
            time.sleep(options.seconds)
            completed = sum(counter(sipp, "completed") for sipp in senders)
            refused = sum(counter(sipp, "refused") for sipp in senders)
            elapsed = time.monotonic() - began
            offered = sum(int(sipp.figures().get("TotalCallCreated") or 0) for sipp in senders)
            failed = sum(sipp.count("FailedCall") for sipp in senders)
            wrong = sum(sipp.count("FailedRegexpDoesntMatch") + sipp.count("FailedRegexpHdrNotFound")
                        + sipp.count("FailedUnexpectedMessage") for sipp in senders)
            for sipp in senders:  # no new calls; those under way come to their end
                sipp.process.send_signal(signal.SIGUSR1)
            recovery = recovered_after(server)
        finally:
            for sipp in senders:
                sipp.close()
        check(server.gateway.process.poll() is None, "the gateway is gone")
    after = steadily_completed(options.build, maximum)
    share = completed / elapsed / ((before + after) / 2)
    print(f"maximum {before:.0f} calls/s before, {after:.0f} after; offered {offered / elapsed:.0f}/s for {elapsed:.0f} s: "
          f"completed {completed / elapsed:.0f}/s ({share:.0%} of the maximum), refused with 503 and Retry-After {refused / elapsed:.0f}/s, failed otherwise "
          f"{failed / elapsed:.0f}/s, of them by a wrong answer {wrong}; well again after {recovery:.1f} s")
    check(share >= 0.9, f"{share:.0%} of the maximum are completed, 90 % expected")
    check(not wrong, f"{wrong} calls were answered by neither 200 nor a 503 with Retry-After")
    check(recovery <= RECOVERY_S, f"well again only after {recovery:.1f} s")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        print(f"overload.py: {failure}", file=sys.stderr)
        sys.exit(1)
