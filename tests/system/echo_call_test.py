#!/usr/bin/env python3
"""Calls to the echo service of a real gateway: what a caller sees, hears and may do at any moment."""
import signal
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from baresip import Baresip  # noqa: E402
from harness import Gateway, check, run  # noqa: E402
from sipua import Caller, RtpSocket, heard, sdp, sdp_port  # noqa: E402


def answered_call(gateway, rtp, caller):
    """Calls echo; returns the 200 after its ACK."""
    caller.invite(sdp("127.0.0.1", rtp.port))
    caller.expect(180)
    answer = caller.expect(200)
    check("application/sdp" == (answer.get("Content-Type") or "").lower(), "the 200 carries no SDP")
    caller.ack(answer)
    return answer


def a_call_is_answered_and_its_audio_comes_back(build):
    with Gateway(build) as gateway:
        with Caller(gateway.port) as caller, RtpSocket() as rtp:
            caller.invite(sdp("127.0.0.1", rtp.port))
            check(caller.receive().status == 100, "the first answer is not 100 Trying")
            ringing = caller.expect(180)
            check("tag=" in ringing.get("To"), "the 180 makes no early dialog")
            answer = caller.expect(200)
            caller.ack(answer)
            check(sdp_port(answer.body) % 2 == 0, "the RTP port is odd")
            share = heard(rtp, sdp_port(answer.body), rtp)
            # The first packets may come before the echo is attached; later ones may not be lost on loopback.
            check(share > 0.8, f"{share:.0%} of the audio came back unchanged")
            caller.send("BYE")
            caller.expect(200)
        gateway.stop()
        gateway.check_accounts_are_zero()
        gateway.check_log_is_clean()


def a_second_signal_kills(build):
    with Gateway(build) as gateway:
        with Caller(gateway.port) as caller, RtpSocket() as rtp:
            answered_call(gateway, rtp, caller)
            gateway.signal()
            caller.expect("BYE")  # never answered: the stop waits for it
            gateway.signal(signal.SIGINT)
            check(gateway.wait() == 1, "a forced end has exit code 1")


def a_call_while_stopping_is_refused(build):
    with Gateway(build) as gateway:
        with Caller(gateway.port) as caller, Caller(gateway.port) as late, RtpSocket() as rtp:
            answered_call(gateway, rtp, caller)
            gateway.signal()
            bye = caller.expect("BYE")
            late.invite(sdp("127.0.0.1", rtp.port))
            refusal = late.expect(503)
            late.ack(refusal)
            caller.answer(200, "OK", request=bye)
        check(gateway.wait() == 0, "the exit code is not 0")
        gateway.check_accounts_are_zero()


def what_names_nothing_is_refused(build):
    """Numbers without a route, and offers that cannot be met: the status says why, and the gateway goes on."""
    cases = [
        ("nobody", sdp("127.0.0.1"), 404),
        ("echo", sdp("127.0.0.1", payloads="18 97"), 488),
        ("echo", "v=0\r\nthis is no SDP\r\n", 400),
    ]
    with Gateway(build) as gateway:
        for user, body, expected in cases:
            with Caller(gateway.port, user) as caller:
                caller.invite(body)
                refusal = caller.expect(*(expected if isinstance(expected, tuple) else (expected,)))
                caller.ack(refusal)
        with Caller(gateway.port) as caller, RtpSocket() as rtp:
            answered_call(gateway, rtp, caller)
            caller.send("BYE")
            caller.expect(200)
        gateway.stop()
        gateway.check_accounts_are_zero()


def baresip_hears_its_echo(build):
    """A foreign user agent: what it plays comes back to it, measured on its own recording of the call."""
    with Gateway(build) as gateway:
        baresip = Baresip(gateway.folder / "baresip", 700)
        baresip.check_heard(baresip.start(4, f"/dial sip:echo@127.0.0.1:{gateway.port}"), 700)
        gateway.stop()
        gateway.check_accounts_are_zero()
        gateway.check_log_is_clean()


TESTS = [
    a_call_is_answered_and_its_audio_comes_back,
    a_second_signal_kills,
    a_call_while_stopping_is_refused,
    what_names_nothing_is_refused,
    baresip_hears_its_echo,
]

if __name__ == "__main__":
    sys.exit(run(TESTS, sys.argv[1]))
