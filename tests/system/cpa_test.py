#!/usr/bin/env python3
"""Call-progress analysis of parties that answer with sounds: what it hears decides the call, and shows in the call's record,
over HTTP and to the caller."""
import json
import math
import random
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Gateway, check, run  # noqa: E402
from sipua import Callee, Caller, RtpSocket, sdp, sdp_port  # noqa: E402

MAX_TIME_MS = 6000


def to_mulaw(value):
    """The G.711 mu-law byte of a 16-bit sample."""
    sign, value = (0x80, -value) if value < 0 else (0, value)
    value = min(value, 32635) + 0x84
    exponent = value.bit_length() - 8
    return ~(sign | exponent << 4 | value >> exponent + 3 & 0x0f) & 0xff


def voice(milliseconds):
    """Syllables: a gliding pitch whose harmonics two formants shape."""
    chance, samples, phase = random.Random(1), [], 0.0
    while len(samples) < 8 * milliseconds:
        length = int(8 * chance.uniform(90, 250))
        pitch, glide, low, high = (chance.uniform(*span) for span in ((100, 180), (-20, 20), (300, 800), (900, 2200)))
        strengths = [1 / (1 + ((h * pitch - low) / 90) ** 2) + 0.6 / (1 + ((h * pitch - high) / 120) ** 2) + 0.03
                     for h in range(1, int(3400 / pitch))]
        for i in range(length):
            phase += 2 * math.pi * (pitch + glide * i / length) / 8000
            samples.append(3000 * math.sin(math.pi * i / length)
                           * sum(strength * math.sin((h + 1) * phase) for h, strength in enumerate(strengths)))
        samples += [0] * int(8 * chance.uniform(30, 90))
    return samples[:8 * milliseconds]


def sound(*segments):
    """Segments of (milliseconds, frequencies), "voice" instead of frequencies, as mu-law."""
    samples = []
    for milliseconds, frequencies in segments:
        samples += voice(milliseconds) if frequencies == "voice" else [
            sum(5000 * math.sin(2 * math.pi * f * i / 8000) for f in frequencies) for i in range(8 * milliseconds)]
    return bytes(to_mulaw(int(sample)) for sample in samples)


BUSY = sound(*[(500, (480, 620)), (500, ())] * 6)
REORDER = sound(*[(250, (480, 620)), (250, ())] * 12)
SIT = sound((330, (950,)), (330, (1400,)), (330, (1800,)), (1000, ()))
RINGBACK = sound((2000, (440, 480)), (4000, ()), (2000, (440, 480)))
FAX = sound((500, ()), (3500, (2100,)))
VOICE = sound((300, ()), (800, "voice"))
MACHINE = sound((300, ()), (5000, "voice"))


class Sounding(Callee):
    """A party that plays a sound once it has answered, and then is silent."""

    def __init__(self, samples):
        super().__init__()
        self.rtp = RtpSocket()
        self.frames = [samples[i:i + 160] for i in range(0, len(samples), 160)]
        self.over = threading.Event()
        self.thread = None

    def take(self):
        """Answers the INVITE that comes, and begins."""
        invite = self.expect("INVITE")
        self.answer(200, "OK", sdp("127.0.0.1", self.rtp.port, "0"))
        self.expect("ACK", skip=("INVITE",))
        self.thread = threading.Thread(target=self.play, args=(sdp_port(invite.body),))
        self.thread.start()

    def play(self, port):
        due, number = time.monotonic(), 0
        while not self.over.wait(max(0.0, due - time.monotonic())):
            self.rtp.send(port, self.frames[number] if number < len(self.frames) else b"\xff" * 160)
            due, number = due + 0.02, number + 1

    def end(self):
        self.over.set()
        if self.thread:
            self.thread.join()
        self.rtp.socket.close()
        self.socket.close()


# What is heard, its name in records, the status that the caller gets with it, and its "CPD-Result".
ROWS = [
    (BUSY, "busy", 486, "Busy"),
    (REORDER, "reorder", 503, "Unavailable"),
    (SIT, "sit", 404, "InvalidNumber"),
    (RINGBACK, "ringback", 480, "NoAnswer"),
    (FAX, "fax", 200, "Fax"),
    (VOICE, "voice", 200, "Voice"),
    (MACHINE, "machine", 200, "Machine"),
    (b"", "none", 200, None),
]


def analysed(build):
    """A gateway that analyses all parties that it calls for others, and the parties, by what they play."""
    parties = {name: Sounding(samples) for samples, name, _, _ in ROWS}
    routes = [{"name": name, "match": {"sip.in.requestUri": f"^sip:{name}@"},
               "leg": {"sip.out.requestUri": party.uri, "sip.out.cpa.enabled": "true"}} for name, party in parties.items()]
    return Gateway(build, {"quorvex.media": {"cpaMaxTimeMs": MAX_TIME_MS},
                           "quorvex.sip": {"state.Disconnecting.timeoutMs": 30000}}, routes), parties


def check_records(gateway, ends):
    """`ends`: by the name of what was heard, the status and who ended each leg of the call that was placed."""
    legs = {leg["cpa"]: leg for leg in gateway.records() if leg["direction"] == "out"}
    check(sorted(legs) == sorted(name for _, name, _, _ in ROWS), f"recorded as heard: {sorted(legs)}")
    for _, name, status, _ in ROWS:
        leg = legs[name]
        end = leg["status"], leg["answered"] is not None, leg["endedBy"]
        check(end == ends(status), f"{name}: the leg ended as {end}")
        check(status == 200 or name in leg["reason"], f"{name}: the reason is {leg['reason']}")
    gateway.check_accounts_are_zero()


def what_is_heard_reaches_the_caller(build):
    gateway, parties = analysed(build)
    with gateway:
        callers = {name: Caller(gateway.port, name) for name in parties}
        for name, party in parties.items():
            callers[name].invite(sdp("127.0.0.1"))
            party.take()
        for _, name, status, result in ROWS:
            answer = callers[name].expect(status, seconds=20)
            callers[name].ack(answer)
            check(answer.get("CPD-Result") == result, f"{name}: the caller is told {answer.get('CPD-Result')}")
            if status == 200:
                callers[name].send("BYE")
                callers[name].expect(200)
            party = parties[name]
            party.answer(200, "OK", request=party.expect("BYE"))
            party.end()
        gateway.stop()
        check_records(gateway, lambda status: (200, status == 200, "local"))


def what_is_heard_shows_over_http(build):
    gateway, parties = analysed(build)
    with gateway:
        calls = {}
        for name, party in parties.items():
            status, body = gateway.http("/api/calls", "POST", {
                "leg": {"sip.out.requestUri": party.uri, "sip.out.cpa.enabled": "true"}, "service": "echo"})
            check(status == 201, f"POST /api/calls: {status} {body}")
            calls[name] = json.loads(body)["id"]
            party.take()
        shown = json.loads(gateway.http("/api/calls")[1])
        check(any("cpa" not in leg for call in shown for leg in call["legs"]), f"heard at once: {shown}")
        for _, name, status, _ in ROWS:
            deadline = time.monotonic() + 20
            while status == 200:
                check(time.monotonic() < deadline, f"{name}: nothing is seen of it")
                leg = next(call for call in json.loads(gateway.http("/api/calls")[1]) if call["id"] == calls[name])["legs"][0]
                if "cpa" in leg:
                    check(leg["cpa"] == name, f"{name}: shown as {leg}")
                    break
                time.sleep(0.05)
            party = parties[name]
            if status == 200:
                party.send("BYE")
                party.expect(200)
            else:
                party.answer(200, "OK", request=party.expect("BYE"))
            party.end()
        gateway.stop()
        check_records(gateway, lambda status: (200, status == 200, "remote" if status == 200 else "local"))


if __name__ == "__main__":
    sys.exit(run([what_is_heard_reaches_the_caller, what_is_heard_shows_over_http], sys.argv[1]))
