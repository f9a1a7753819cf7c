#!/usr/bin/env python3
"""Every option of a service route, as the caller sees and hears it."""
import math
import struct
import sys
import time
import wave
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Gateway, check, run  # noqa: E402
from sipua import Caller, RtpSocket, sdp, sdp_port  # noqa: E402


def route(user, **options):
    return {"name": user, "match": {"sip.in.requestUri": f"^sip:{user}@"}, **options}


def mulaw(byte):
    """The linear value of a G.711 mu-law byte."""
    byte = ~byte & 0xff
    value = (((byte & 0x0f) << 3) + 0x84) << ((byte & 0x70) >> 4)
    return 0x84 - value if byte & 0x80 else value - 0x84


def share_of(samples, frequency):
    """How much of the samples' energy is at a frequency, 0 to 1."""
    real = sum(s * math.cos(2 * math.pi * frequency * i / 8000) for i, s in enumerate(samples))
    imaginary = sum(s * math.sin(2 * math.pi * frequency * i / 8000) for i, s in enumerate(samples))
    energy = sum(s * s for s in samples)
    return 2 * (real * real + imaginary * imaginary) / (len(samples) * energy) if energy else 0.0


def heard(rtp, frames=20):
    """What the caller hears in so many frames, as linear samples."""
    samples = []
    for _ in range(frames):
        packet = rtp.receive()
        check(packet is not None, "no audio comes")
        check(packet[0] == 0, f"payload type {packet[0]} comes")
        samples += [mulaw(byte) for byte in packet[3]]
    return samples


def write_wav(path, frequency):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(2)
        file.setframerate(8000)
        file.writeframes(b"".join(struct.pack("<h", int(8000 * math.sin(2 * math.pi * frequency * i / 8000)))
                                  for i in range(8000)))


def statuses(caller, last, seconds=5.0):
    """The status codes up to `last`, with whether they carried SDP; and the last response."""
    seen = []
    while True:
        message = caller.receive(seconds)
        seen.append((message.status, bool(message.body)))
        if message.status == last:
            return seen, message


def each_option_has_its_messages(build):
    cases = [
        (route("plain", service="echo"), [(100, False), (180, False), (200, True)]),
        (route("atonce", service="echo", ringing="none"), [(100, False), (200, True)]),
        (route("early", service="echo", ringing="earlyMedia"), [(100, False), (180, True), (200, True)]),
        (route("progress", service="echo", progress=True, ringing="none", answerAfterMs=50),
         [(100, False), (183, True), (200, True)]),
        (route("busy", service="reject"), [(100, False), (486, False)]),
        (route("decline", service="reject", reject=603), [(100, False), (603, False)]),
        (route("gone", service="reject", reject="invalidNumber"), [(100, False), (404, False)]),
        (route("latebusy", service="reject", reject="busy", answerAfterMs=50),
         [(100, False), (180, False), (486, False)]),
        (route("quietbusy", service="reject", ringing="none", answerAfterMs=50), [(100, False), (486, False)]),
        (route("ring", service="ring", hangupAfterMs=50), [(100, False), (180, False), (480, False)]),
    ]
    with Gateway(build, routes=[case[0] for case in cases]) as gateway:
        for one, expected in cases:
            with Caller(gateway.port, one["name"]) as caller, RtpSocket() as rtp:
                caller.invite(sdp("127.0.0.1", rtp.port))
                seen, last = statuses(caller, expected[-1][0])
                check(seen == expected, f"{one['name']}: {seen}, {expected} expected")
                caller.ack(last)
                if last.status == 200:
                    caller.send("BYE")
                    caller.expect(200)
        gateway.stop()
        records = gateway.records()
        check([r["status"] for r in records] == [case[1][-1][0] for case in cases], f"the records are {records}")
        check([r["route"] for r in records] == [case[0]["name"] for case in cases], f"the records are {records}")
        gateway.check_accounts_are_zero()
        gateway.check_log_is_clean()


def answers_and_ends_keep_their_times(build):
    routes = [route("timed", service="echo", answerAfterMs=300, hangupAfterMs=400)]
    with Gateway(build, routes=routes) as gateway:
        with Caller(gateway.port, "timed") as caller, RtpSocket() as rtp:
            caller.invite(sdp("127.0.0.1", rtp.port))
            caller.expect(180)
            ringing = time.monotonic()
            answer = caller.expect(200)
            waited = time.monotonic() - ringing
            check(waited > 0.25, f"answered after {waited:.3f} s, not after 0.3 s")
            caller.ack(answer)
            connected = time.monotonic()
            bye = caller.expect("BYE")
            waited = time.monotonic() - connected
            check(waited > 0.35, f"hung up after {waited:.3f} s, not after 0.4 s")
            caller.answer(200, "OK", request=bye)
        gateway.stop()
        gateway.check_accounts_are_zero()


def files_and_tones_are_heard(build):
    gateway = Gateway(build, routes=[route("music", service="play", file="music.wav"),
                                     route("dial", service="tone", tone="milliwatt"),
                                     route("early", service="tone", tone="milliwatt", ringing="earlyMedia",
                                           answerAfterMs=60000)])
    write_wav(gateway.folder / "music.wav", 700)
    with gateway:
        for user, frequency, status in [("music", 700, 200), ("dial", 1004, 200), ("early", 1004, 180)]:
            with Caller(gateway.port, user) as caller, RtpSocket() as rtp:
                caller.invite(sdp("127.0.0.1", rtp.port))
                _, answer = statuses(caller, status)
                if status == 200:
                    caller.ack(answer)
                # Symmetric media start with the caller's own.
                for _ in range(5):
                    rtp.send(sdp_port(answer.body), b"\xff" * 160)
                heard(rtp, 5)
                samples = heard(rtp)
                share = max(share_of(samples, f) for f in range(frequency - 6, frequency + 7))
                check(share > 0.9, f"{user}: {share:.0%} of what is heard is at {frequency} Hz")
                if status == 200:
                    caller.send("BYE")
                    caller.expect(200)
                else:
                    caller.cancel()
                    caller.ack(caller.expect(487, skip=(200,)))
        gateway.stop()
        gateway.check_accounts_are_zero()
        gateway.check_log_is_clean()


if __name__ == "__main__":
    sys.exit(run([each_option_has_its_messages, answers_and_ends_keep_their_times, files_and_tones_are_heard],
                 sys.argv[1]))
