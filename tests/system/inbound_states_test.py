#!/usr/bin/env python3
"""Every state of a call that arrives, and in each of them everything that a caller, an operator or the clock may cause: the
messages of the call, which sipp plays, and its record."""
import sys
import threading
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Gateway, check, run  # noqa: E402
from sipp_ladder import call, operator, perform  # noqa: E402


def route(user, service="echo", **options):
    return {"name": user, "match": {"sip.in.requestUri": f"^sip:{user}@"}, "service": service, **options}


NEVER = 600000
UNHURRIED = {"t1Ms": 2000}  # what is sent again when a caller is late would not be what its ladder has next
LATER = 1000  # when what came first is over: a reliable 183 has its PRACK
ROUTES = [
    route("echo"), route("atonce", ringing="none"), route("rings", answerAfterMs=NEVER),
    route("rings-early", answerAfterMs=NEVER, ringing="earlyMedia"), route("silent", ringing="none", answerAfterMs=NEVER),
    route("progress", progress=True, ringing="none", answerAfterMs=NEVER), route("progress-rings", progress=True, answerAfterMs=LATER),
    route("progress-atonce", progress=True, ringing="none", answerAfterMs=LATER),
    route("busy", "reject"), route("busy-later", "reject", answerAfterMs=60), route("hangs-up", hangupAfterMs=60),
    route("progress-at-once", progress=True, ringing="none"),
    route("progress-busy-unheard", "reject", progress=True, ringing="none", answerAfterMs=LATER),
    route("progress-busy", "reject", progress=True, answerAfterMs=LATER), route("early", ringing="earlyMedia"),
]

# Who is called, the ladder, and the call's record: final status, who ended it, whether it was answered.
INVITING_OUT = [
    ("atonce", ">INVITE 200+ >ACK >BYE 200", (200, "remote", True)),
    ("silent", ">INVITE !hangup 480 >ACK", (480, "local", False)),
    ("silent", ">INVITE !seen >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("silent", ">INVITE >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("silent", ">INVITEalien 488 >ACK", (488, "local", False)),
    ("silent", ">INVITEgarbage 400 >ACK", (400, "local", False)),
    ("busy", ">INVITE 486 >ACK", (486, "local", False)),
    ("nobody", ">INVITE 404 >ACK", (404, "local", False)),
    ("progress", ">INVITE 183+ >BYE 200&487 >ACK", (487, "remote", False)),
    ("progress", ">INVITE 183+ >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("progress", ">INVITE 183+ >INFO 200|481|500 >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("progress", ">INVITElate 183 !hangup 480 >ACK", (480, "local", False)),
    ("progress", ">INVITErequire 183+ >PRACK0 200 !hangup 480 >ACK", (480, "local", False)),
]
ACCEPTING = [
    ("echo", ">INVITE 180 200+ >ACK >BYE 200", (200, "remote", True)),
    ("rings", ">INVITE 180 !hangup 480 >ACK", (480, "local", False)),
    ("busy-later", ">INVITE 180 486 >ACK", (486, "local", False)),
    ("rings", ">INVITE 180 >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("rings", ">INVITE 180 >BYE 200&487 >ACK", (487, "remote", False)),
    ("rings", ">INVITErequire 180 >PRACK0 200 !hangup 480 >ACK", (480, "local", False)),
    ("echo", ">INVITErequire 180 >PRACK0 200 200+ >ACK >BYE 200", (200, "remote", True)),
    ("rings", ">INVITE 180 >PRACK0 481 >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("early", ">INVITE 180+ 200+ >ACK >BYE 200", (200, "remote", True)),
    ("early", ">INVITElate 180 200+ >ACK+ >BYE 200", (200, "remote", True)),
    ("rings-early", ">INVITE 180+ !hangup 480 >ACK", (480, "local", False)),
    ("progress-rings", ">INVITE 183+ 180 200+ >ACK >BYE 200", (200, "remote", True)),
]
ANSWERING = [
    ("echo", ">INVITElate 180 200+ >ACK+ >BYE 200", (200, "remote", True)),
    ("echo", ">INVITElate 180 200+ >ACKbad BYE >200", (200, "local", True)),
    ("echo", ">INVITElate 180 200+ >ACKnone BYE >200", (200, "local", True)),
    ("echo", ">INVITElate 180 200+ >ACK BYE >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >CANCEL 200 >ACK >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ !info >ACK INFO >200 >BYE 200", (200, "remote", True)),
    ("hangs-up", ">INVITE 180 200+ >ACK BYE >200", (200, "local", True)),
]
# A late offer that is made in a reliable 183.
PROGRESSING_AND_EARLY_DIALOG = [
    ("progress", ">INVITErel 183+ >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("progress", ">INVITErel 183+ >PRACKbad 200 480 >ACK", (480, "local", False)),
    ("progress", ">INVITErel 183+ >PRACK 200 >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("progress", ">INVITErel 183+ >PRACK 200 !hangup 480 >ACK", (480, "local", False)),
    ("progress-rings", ">INVITErel 183+ >PRACK 200 180 200+ >ACK >BYE 200", (200, "remote", True)),
    ("progress-atonce", ">INVITErel 183+ >PRACK 200 200+ >ACK >BYE 200", (200, "remote", True)),
    ("progress-busy", ">INVITErel 183+ >PRACK 200 180 486 >ACK", (486, "local", False)),
    # What is decided before the PRACK holds after it, and a hang-up needs none.
    ("progress-atonce", ">INVITErel 183+ !answered >PRACK 200 200+ >ACK >BYE 200", (200, "remote", True)),
    ("progress-atonce", ">INVITErel 183+ !answered !hangup 480 >ACK", (480, "local", False)),
    ("progress-atonce", ">INVITErel 183+ !answered >CANCEL 200&487 >ACK", (487, "remote", False)),
    ("progress-busy-unheard", ">INVITErel 183+ !ending >PRACK 200 486 >ACK", (486, "local", False)),
    ("progress", ">INVITErel 183+ !hangup >PRACK 200 480 >ACK", (480, "local", False)),
    ("progress", ">INVITErel 183+ >BYE 487 >ACK 200", (487, "remote", False)),
    ("progress", ">INVITErel 183+ >PRACK 200 >BYE 487 >ACK 200", (487, "remote", False)),
]
ENDINGS = [
    # Hung up between the answer and its ACK: the BYE waits for it.
    ("echo", ">INVITE 180 200+ !hangup >ACK BYE >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ !hangup !hangup >BYE 200", (200, "local", True)),
    # The BYE is out: whatever answers it ends the call, and so does one that crosses it.
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >481", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >500", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >603", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >BYE 200 >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >100 >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >INFO 200|481|500 >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >INVITE 481|488|491|500 >ACK >200", (200, "local", True)),
]
CONNECTED = [
    ("echo", ">INVITE 180 200+ >ACK >INFO 200 >OPTIONS 200 >MESSAGE 200|405|415|501 >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >UPDATE 200|405|488 >PRACK0 481 >OLD 500 >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >SUBSCRIBE 405|489|501 >PUBLISH 405|501 >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK !info INFO >200 !info INFO >500 >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITE 200+ >ACK >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITEhold 200+ >ACK >INVITE 200+ >ACK >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITEhold 200+ >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITElate 200+ >ACK+ >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITElate 200+ >ACKbad BYE >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITEalien 488 >ACK >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITEtwo 200+|488 >ACK >BYE 200", (200, "remote", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITEgarbage 488&BYE >ACK >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK >INVITE 200+ !hangup BYE >ACK >200", (200, "local", True)),
]
# With short timers: what ends when nothing comes.
CLOCK = [
    ("silent", ">INVITE 480 >ACK", (480, "timeout", False)),
    ("rings", ">INVITE 180 480 >ACK", (480, "timeout", False)),
    ("echo", ">INVITE 180 200+ BYE >200", (200, "timeout", True)),
    ("echo", ">INVITE 180 200+ !hangup BYE >200", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE", (200, "local", True)),
    ("echo", ">INVITE 180 200+ >ACK !hangup BYE >302", (200, "local", True)),
    ("progress", ">INVITErel 183+ 503 >ACK", (503, "timeout", False)),
    ("progress-at-once", ">INVITErel 183+ 503 >ACK", (503, "timeout", False)),
    ("progress", ">INVITErel 183+ >PRACK 200 480 >ACK", (480, "timeout", False)),
]


def go(build, cases, **sip):
    """Runs the cases on one gateway, all their faults reported; then it must stop clean."""
    with Gateway(build, {"quorvex.sip": {"state.Disconnecting.timeoutMs": 1500, **UNHURRIED, **sip}}, ROUTES) as gateway:
        plays = [call(gateway, number, user, ladder, operator(gateway)) for number, (user, ladder, _) in enumerate(cases)]
        faults = perform(plays, gateway.stop)
        records = {record["sipCallId"]: record for record in gateway.records()}
        for play, (_, _, expected) in zip(plays, cases):
            record = records.get(play.call_id)
            found = record and (record["status"], record["endedBy"], record["answered"] is not None)
            caller = play.parties[-1]
            parties = (f"sip:tester@127.0.0.1:{caller.port}", caller.uri)
            if found != expected or (record["from"], record["to"]) != parties:
                faults.append(f"{play.title}: recorded as {found}, {expected} expected: {record}")
        check(not faults, "\n        " + "\n        ".join(faults))
        gateway.check_accounts_are_zero()


def invited(build):
    go(build, INVITING_OUT)


def accepted(build):
    go(build, ACCEPTING)


def answered(build):
    go(build, ANSWERING)


def offered_reliably(build):
    go(build, PROGRESSING_AND_EARLY_DIALOG)


def no_ringing_after_early_media(build):
    go(build, [("progress-rings", ">INVITE 183+ 200+ >ACK >BYE 200", (200, "remote", True)),
               ("echo", ">INVITE 180 200+ >ACK >BYE 200", (200, "remote", True))], **{"in.doNotSend180After183": True})


def ending(build):
    go(build, ENDINGS)


def connected(build):
    go(build, CONNECTED)


def nothing_comes(build):
    go(build, CLOCK, t1Ms=10, timerCMs=3000)


def stopped(build):
    """A stop in every state: the caller gets its final response or BYE at once, and the gateway ends clean."""
    cases = [("silent", ">INVITE !seen !stop 503 >ACK"), ("progress", ">INVITE 183+ !stop 503 >ACK"),
             ("rings", ">INVITE 180 !stop 503 >ACK"), ("progress", ">INVITErel 183+ !stop 503 >ACK"),
             ("progress", ">INVITErel 183+ >PRACK 200 !stop 503 >ACK"), ("echo", ">INVITE 180 200+ !stop >ACK BYE >200"),
             ("echo", ">INVITE 180 200+ >ACK !stop BYE >200"), ("echo", ">INVITE 180 200+ >ACK >INVITEhold 200+ !stop BYE >200")]
    with Gateway(build, {"quorvex.sip": UNHURRIED}, ROUTES) as gateway:
        stop = threading.Barrier(len(cases), gateway.signal)
        commands = {**operator(gateway), "stop": lambda _: stop.wait(20)}
        faults = perform([call(gateway, number, *case, commands) for number, case in enumerate(cases)], gateway.wait)
        check(not faults, "\n        " + "\n        ".join(faults))
        check(gateway.wait() == 0, "the exit code is not 0")
        found = sorted((record["status"], record["endedBy"]) for record in gateway.records())
        check(found == [(200, "stop")] * 3 + [(503, "stop")] * 5, f"recorded: {found}")
        gateway.check_accounts_are_zero()


if __name__ == "__main__":
    sys.exit(run([stopped, invited, accepted, answered, offered_reliably, no_ringing_after_early_media, ending, connected, nothing_comes], sys.argv[1]))
