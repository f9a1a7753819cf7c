#!/usr/bin/env python3
"""Bad input on the wire: RFC 4475, pieces of messages, garbage, bombs, scanners. Each message gets the answer that it
deserves, or none, and a good call goes through after each."""
import os
import random
import re
import socket
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from agent import Agent  # noqa: E402
from harness import Failure, bound_socket, check, run  # noqa: E402
from sipua import Caller, sdp  # noqa: E402
from torture_messages import INVALID, VALID  # noqa: E402


def good_call(agent, after):
    """A whole call over UDP."""
    try:
        with Caller(agent.udp, "answer") as call:
            call.invite(sdp("127.0.0.1"))
            call.ack(call.expect(200))
            call.send("BYE")
            call.expect(200)
    except Failure as failure:
        raise Failure(f"no good call after {after}: {failure}") from None


def statuses(peer, seconds):
    """The status codes that come back until one is final and `seconds` have passed without another."""
    found = []
    peer.settimeout(seconds)
    while True:
        try:
            data = peer.recv(65536)
        except (socket.timeout, ConnectionError):
            return found
        if data.startswith(b"SIP/2.0 ") and data[8:11].isdigit():
            code = int(data[8:11])
            if code >= 200 and code not in found:
                found.append(code)
                peer.settimeout(0.03)
        elif not data:
            return found


def rfc_4475_over_udp(build):
    problems = []
    with Agent(build) as agent:
        for name, text, expected in VALID + INVALID:
            with bound_socket() as peer:
                me = f"127.0.0.1:{peer.getsockname()[1]}"
                data = text.replace("NAME", name)
                data = re.sub(r"\bME\b", me, data)
                data = re.sub(r"(?<![-\w])ID\b", f"{name}{peer.getsockname()[1]}", data)
                peer.sendto(data.encode("latin-1"), ("127.0.0.1", agent.udp))
                got = statuses(peer, 0.15 if expected == {None} else 2) or [None]
                if not (len(got) == 1 and got[0] in expected):
                    problems.append(f"{name}: {got}, one of {expected} expected")
            good_call(agent, name)
        agent.wait_until_idle()
    check(not problems, "\n  ".join(["", *problems]))


def invite_text(me, agent_port, transport="UDP", extra=""):
    body = sdp("127.0.0.1")
    return (f"INVITE sip:answer@127.0.0.1:{agent_port} SIP/2.0\r\nVia: SIP/2.0/{transport} {me};branch=z9hG4bK{time.monotonic_ns()}\r\n"
            f"From: \"A, \\\"B\\\"\" <sip:a@{me}>;tag=1\r\nTo: <sip:answer@127.0.0.1:{agent_port}>\r\n"
            f"Call-ID: piece-{time.monotonic_ns()}\r\nCSeq: 1 INVITE\r\nContact: <sip:a@{me}>\r\nMax-Forwards: 70\r\n{extra}"
            f"Content-Type: application/sdp\r\nContent-Length: {len(body)}\r\n\r\n{body}").encode()


def pieces_and_mutations(build):
    # A mutation may leave no word of what the user agent shall do: then timer C ends the call.
    with Agent(build, options=["--timer-c", "2500"]) as agent:
        with bound_socket() as peer:
            me = f"127.0.0.1:{peer.getsockname()[1]}"
            text = invite_text(me, agent.udp)
            for length in range(0, len(text), 5):
                peer.sendto(text[:length], ("127.0.0.1", agent.udp))
        good_call(agent, "truncated datagrams")
        generator = random.Random(4475)
        with bound_socket() as peer:
            me = f"127.0.0.1:{peer.getsockname()[1]}"
            for number in range(1500):
                data = bytearray(invite_text(me, agent.udp).replace(b"answer@", b"refuse486@"))
                for _ in range(generator.randint(1, 6)):
                    data[generator.randrange(len(data))] = generator.randrange(256)
                peer.sendto(bytes(data), ("127.0.0.1", agent.udp))
                if number % 100 == 0:
                    good_call(agent, f"mutation {number}")
        agent.wait_until_idle()


def oversized_datagrams(build):
    with Agent(build) as agent:
        with bound_socket() as peer:
            me = f"127.0.0.1:{peer.getsockname()[1]}"
            for extra in ("X-Long: " + "x" * 60000 + "\r\n", "X-Many: 1\r\n" * 5000,
                          "".join(f"Via: SIP/2.0/UDP h{n}.example.com;branch=z9hG4bK{n}\r\n" for n in range(1000)),
                          "Supported: " + ",".join(f"t{n}" for n in range(8000)) + "\r\n",
                          "Contact: " + ",".join(f"<sip:c{n}@127.0.0.1>" for n in range(2000)) + "\r\n"):
                text = invite_text(me, agent.udp, extra=extra).replace(b"answer@", b"refuse486@")
                if len(text) < 65507:
                    peer.sendto(text, ("127.0.0.1", agent.udp))
                good_call(agent, f"a datagram of {len(text)} bytes with {extra[:10]}")
            for size in (1, 2, 3, 20, 1500, 65507):
                peer.sendto(os.urandom(size), ("127.0.0.1", agent.udp))
                peer.sendto(b"\x00" * size, ("127.0.0.1", agent.udp))
                peer.sendto(b"\r\n" * (size // 2), ("127.0.0.1", agent.udp))
                good_call(agent, f"{size} bytes of garbage")
        agent.wait_until_idle()


def tcp(agent):
    return socket.create_connection(("127.0.0.1", agent.tcp), timeout=5)


def good_call_over_tcp(agent, after):
    with tcp(agent) as peer:
        me = f"127.0.0.1:{peer.getsockname()[1]}"
        peer.sendall(invite_text(me, agent.tcp, "TCP").replace(b"answer@", b"refuse486@"))
        check(486 in statuses(peer, 2), f"no answer over TCP after {after}")


def half_messages_over_tcp(build):
    with Agent(build, options=["--tcp-idle", "400"]) as agent:
        whole = invite_text("127.0.0.1:9", agent.tcp, "TCP").replace(b"answer@", b"refuse486@")
        for cut in (1, 20, 200, len(whole) - 1):
            with tcp(agent) as peer:
                peer.sendall(whole[:cut])
            good_call_over_tcp(agent, f"{cut} bytes and the end of the connection")
        with tcp(agent) as peer:
            for number in range(len(whole)):
                peer.sendall(whole[number:number + 1])
            check(486 in statuses(peer, 2), "a message that came byte by byte was not answered")
        with tcp(agent) as peer:
            second = whole.replace(b"piece-", b"other-").replace(b"branch=z9hG4bK", b"branch=z9hG4bKo")
            peer.sendall(whole + second[:100])
            check(486 in statuses(peer, 2), "the first of two messages in one piece was not answered")
            peer.sendall(second[100:])
            check(486 in statuses(peer, 2), "the second of two messages in one piece was not answered")
        with tcp(agent) as peer:
            peer.sendall(whole[:100])
            peer.settimeout(6)
            check(peer.recv(100) == b"", "a connection with half a message that never ends stays open")
        good_call(agent, "half messages")
        agent.wait_until_idle()


def bombs_over_tcp(build):
    with Agent(build) as agent:
        start = b"OPTIONS sip:a@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/TCP 127.0.0.1;branch=z9hG4bKbomb\r\n"
        for name, data in (
                ("1 MiB of random bytes", random.Random(1).randbytes(1 << 20)),
                ("1 MiB without a line end", start + b"X: " + b"x" * (1 << 20)),
                ("1 MiB of headers", start + b"X-Bomb: 1\r\n" * 95000),
                ("1 MiB of folds", start + b"X: 1\r\n" + b" f\r\n" * 260000),
                ("a body of 4 GiB announced", start + b"From: <sip:a@b>;tag=1\r\nTo: <sip:a@b>\r\nCall-ID: b\r\nCSeq: 1 OPTIONS\r\n"
                 b"Content-Length: 4294967295\r\n\r\n" + b"x" * (1 << 20)),
                ("zeros", b"\x00" * (1 << 20)), ("line ends", b"\r\n" * (1 << 19)),
                ("TLS", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + b"\x5a" * 505),
                ("HTTP", b"GET / HTTP/1.1\r\nHost: x\r\n\r\n")):
            with tcp(agent) as peer:
                peer.settimeout(3)
                try:
                    peer.sendall(data)
                    peer.recv(65536)
                except (ConnectionError, socket.timeout):
                    pass
            good_call_over_tcp(agent, name)
            good_call(agent, name)
        check(agent.resident_kib() < 100 * 1024, f"{agent.resident_kib()} KiB resident after the bombs")
        agent.wait_until_idle()


def stun_and_scanners(build):
    with Agent(build) as agent:
        with bound_socket() as peer:
            for kind in (b"\x00\x01", b"\x00\x03", b"\x01\x01", b"\x01\x11"):
                for length in (b"\x00\x00", b"\x00\x08", b"\xff\xff"):
                    peer.sendto(kind + length + b"\x21\x12\xa4\x42" + os.urandom(12) + os.urandom(8),
                                ("127.0.0.1", agent.udp))
            good_call(agent, "STUN")
            me = f"127.0.0.1:{peer.getsockname()[1]}"
            for number in range(300):
                for method, user in (("OPTIONS", "100"), ("REGISTER", str(number)), ("INVITE", f"900{number}")):
                    peer.sendto((f"{method} sip:{user}@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/UDP {me};branch=z9hG4bK-{method}{number};rport\r\n"
                                 f"From: \"sipvicious\"<sip:100@1.1.1.1>;tag={number:x}0313\r\nTo: \"sipvicious\"<sip:100@1.1.1.1>\r\n"
                                 f"Call-ID: {method}{number}\r\nCSeq: 1 {method}\r\nMax-Forwards: 70\r\nUser-Agent: friendly-scanner\r\n"
                                 f"Contact: sip:100@{me}\r\nAccept: application/sdp\r\nContent-Length: 0\r\n\r\n").encode(),
                                ("127.0.0.1", agent.udp))
            for text in (b"BYE", b"CANCEL", b"INFO", b"NOTIFY", b"PRACK", b"UPDATE", b"REFER", b"ACK"):
                peer.sendto(text + (f" sip:x@127.0.0.1 SIP/2.0\r\nVia: SIP/2.0/UDP {me};branch=z9hG4bK-{text.decode()}\r\n"
                                    "From: <sip:a@b>;tag=1\r\nTo: <sip:c@d>;tag=nobody\r\nCall-ID: stray\r\nCSeq: 1 ").encode()
                            + text + b"\r\nMax-Forwards: 70\r\nContent-Length: 0\r\n\r\n", ("127.0.0.1", agent.udp))
        good_call(agent, "scanners")
        agent.wait_until_idle()


if __name__ == "__main__":
    sys.exit(run([rfc_4475_over_udp, pieces_and_mutations, oversized_datagrams, half_messages_over_tcp, bombs_over_tcp,
                  stun_and_scanners], sys.argv[1]))
