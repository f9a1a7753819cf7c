#!/usr/bin/env python3
"""What becomes of the audio of an answered call: held, resumed, moved, taken over by another caller; and two thousand calls that
a stop ends."""
import resource
import socket
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Failure, Gateway, bound_socket, check, run  # noqa: E402
from ladder import Ladder  # noqa: E402
from sipua import FRAMES, Message, RtpSocket, heard, sdp, sdp_port, unique  # noqa: E402


def answered_port(caller):
    return sdp_port(caller.final["INVITE"].body)


def check_share(rtp, port, low, high, what):
    heard(rtp, port, rtp)  # what is on its way, and the way's beginning
    share = heard(rtp, port, rtp)
    check(low <= share <= high, f"{what}: {share:.0%} of the audio comes back")


def held_resumed_and_moved(build):
    with Gateway(build) as gateway, RtpSocket() as rtp, RtpSocket() as other:
        with Ladder(gateway, "echo", rtp.port) as caller:
            caller.run(">INVITE 180 200+ >ACK")
            port = answered_port(caller)
            check_share(rtp, port, 0.9, 1, "answered")
            for ladder, low, high in ((">INVITEhold 200+ >ACK", 0, 0), (">INVITE 200+ >ACK", 0.9, 1),
                                      (">INVITEalien 488 >ACK", 0.9, 1), (">INVITEtwo 200+|488 >ACK", 0.9, 1),
                                      (">INVITElate 200+ >ACK+", 0.9, 1)):
                caller.run(ladder)
                check_share(rtp, port, low, high, ladder)
            caller.rtp_port = other.port
            caller.run(">INVITE 200+ >ACK")
            check_share(other, port, 0.9, 1, "moved to another port")
            caller.run(">BYE 200")
        gateway.stop()
        gateway.check_accounts_are_zero()


def taken_over_by_another_caller(build):
    """INVITE with Replaces (RFC 3891): the old dialog ends, the audio goes to the new caller."""
    with Gateway(build) as gateway, RtpSocket() as rtp, RtpSocket() as other:
        with Ladder(gateway, "echo", rtp.port) as first, Ladder(gateway, "echo", other.port) as second:
            first.run(">INVITE 180 200+ >ACK")
            check_share(rtp, answered_port(first), 0.9, 1, "answered")
            tags = [value.split("tag=")[1].split(";")[0] for value in (first.to_header, first.from_header)]
            second.headers = (f"Replaces: {first.call_id};to-tag={tags[0]};from-tag={tags[1]}",)
            second.run(">INVITEreplaces 200+ >ACK")
            first.run("BYE >200")
            check_share(other, answered_port(second), 0.9, 1, "taken over")
            check(heard(rtp, answered_port(first), rtp) == 0, "the first caller still hears something")
            second.run(">INFO 200 >BYE 200")

        # What cannot be replaced, and what of it says why (RFC 3891 section 3).
        with Ladder(gateway, "echo") as call, Ladder(gateway, "echo") as ringing:
            call.run(">INVITE 180 200+ >ACK")
            to_tag, from_tag = (value.split("tag=")[1].split(";")[0] for value in (call.to_header, call.from_header))
            for replaces, status in (("nobody@x;to-tag=1;from-tag=2", 481), (f"{call.call_id};to-tag=1;from-tag={from_tag}", 481),
                                     (f"{call.call_id};to-tag={to_tag};from-tag={from_tag};early-only", 486),
                                     (f"{call.call_id};to-tag={to_tag}", 400), (f"{call.call_id};from-tag={from_tag}", 400),
                                     ("", 400), (f";to-tag={to_tag};from-tag={from_tag}", 400)):
                with Ladder(gateway, "echo") as other:
                    other.headers = (f"Replaces: {replaces}",)
                    other.run(f">INVITEreplaces {status} >ACK")
            call.run(">INFO 200 >BYE 200")
            with Ladder(gateway, "echo") as other:
                other.headers = (f"Replaces: {call.call_id};to-tag={to_tag};from-tag={from_tag}",)
                other.run(">INVITEreplaces 481|603 >ACK")
            ringing.socket.close()
        gateway.stop()
        statuses = [(record["status"], record["endedBy"]) for record in gateway.records()]
        check(statuses.count((200, "remote")) == 2 and len(statuses) == 2, f"recorded: {statuses}")
        gateway.check_accounts_are_zero()


class Crowd:
    """Many calls of one caller, all answered and held, on one socket."""

    def __init__(self, gateway_port, calls):
        self.remote = ("127.0.0.1", gateway_port)
        self.socket = bound_socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self.port = self.socket.getsockname()[1]
        self.calls = calls
        self.answered, self.ended = set(), set()

    def request(self, method, call_id, to_header, cseq, body=""):
        head = [f"{method} sip:echo@127.0.0.1:{self.remote[1]} SIP/2.0",
                f"Via: SIP/2.0/UDP 127.0.0.1:{self.port};branch=z9hG4bK{unique('b')}", f"From: <sip:c@127.0.0.1>;tag={call_id}",
                f"To: {to_header}", f"Call-ID: {call_id}", f"CSeq: {cseq} {method}",
                f"Contact: <sip:c@127.0.0.1:{self.port}>", "Max-Forwards: 70"]
        head += (["Content-Type: application/sdp"] if body else []) + [f"Content-Length: {len(body)}"]
        self.socket.sendto(("\r\n".join(head) + "\r\n\r\n" + body).encode(), self.remote)

    def take(self, seconds):
        self.socket.settimeout(seconds)
        message = Message(self.socket.recv(65536))
        call_id = message.get("Call-ID")
        if message.status == 200 and message.method == "INVITE":
            self.request("ACK", call_id, message.get("To"), 1)
            self.answered.add(call_id)
        elif message.method == "BYE" and not message.is_response:
            lines = ["SIP/2.0 200 OK"] + [f"{name}: {message.get(name)}" for name in ("Via", "From", "To", "Call-ID", "CSeq")]
            self.socket.sendto(("\r\n".join([*lines, "Content-Length: 0"]) + "\r\n\r\n").encode(), self.remote)
            self.ended.add(call_id)
        elif message.status > 200:
            raise Failure(f"a call of the crowd got {message.start}")

    def call(self):
        """Places the calls, a few unanswered at a time."""
        for number in range(self.calls):
            self.request("INVITE", unique("crowd"), f"<sip:echo@127.0.0.1:{self.remote[1]}>", 1, sdp("127.0.0.1"))
            while number - len(self.answered) > 20:
                self.take(10)
        self.until(lambda: len(self.answered) == self.calls)

    def until(self, condition):
        try:
            while not condition():
                self.take(20)
        except TimeoutError:
            raise Failure(f"{len(self.answered)} calls answered, {len(self.ended)} ended, {self.calls} expected") from None


def two_thousand_held_calls_are_ended_by_a_stop(build):
    held, talking = 1950, 50
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    with Gateway(build, level="WARN", levels={"quorvex.gateway.Host": "INFO"}) as gateway:
        crowd = Crowd(gateway.port, held)
        crowd.call()
        callers = [(Ladder(gateway, "echo", rtp.port), rtp) for rtp in (RtpSocket() for _ in range(talking))]
        for caller, _ in callers:
            caller.run(">INVITE 180 200+ >ACK")
        back = [0] * talking
        due = time.monotonic()
        for number in range(50):
            for index, (caller, rtp) in enumerate(callers):
                rtp.send(answered_port(caller), FRAMES[number % len(FRAMES)])
            due += 0.02
            while time.monotonic() < due:
                for index, (_, rtp) in enumerate(callers):
                    rtp.socket.setblocking(False)
                    try:
                        back[index] += len(rtp.socket.recv(4096)) == 172
                    except BlockingIOError:
                        pass
        check(min(back) > 40, f"of 50 frames, as few as {min(back)} came back on a call")

        gateway.signal()
        callers[0][0].run("BYE")
        with Ladder(gateway, "echo") as late:
            late.run(">INVITE 503 >ACK")
        callers[0][0].run(">200")
        for caller, _ in callers[1:]:
            caller.run("BYE >200")
        crowd.until(lambda: len(crowd.ended) == held)
        check(gateway.wait() == 0, "the exit code is not 0")
        records = gateway.records()
        check(len(records) in (2000, 2001), f"{len(records)} records")
        check(sum(record["status"] == 200 and record["endedBy"] == "stop" for record in records) == 2000,
              "not every call is recorded as ended by the stop")
        heard = sum(record["rtp"] is not None and record["rtp"]["received"] >= 40 for record in records)
        check(heard == talking, f"{heard} records with audio, {talking} expected")
        gateway.check_accounts_are_zero()


if __name__ == "__main__":
    sys.exit(run([held_resumed_and_moved, taken_over_by_another_caller, two_thousand_held_calls_are_ended_by_a_stop],
                 sys.argv[1]))
