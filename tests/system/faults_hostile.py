#!/usr/bin/env python3
"""Hostile SIP messages: valid traffic with one or more faults of the classes that have brought SIP stacks down.

usage: faults_hostile.py GATEWAY_PORT COUNT [SEED (1) [MESSAGES PER SECOND (3000)]]

Everything goes to, and names, 127.0.0.1 or hosts below `.invalid`. The same seed sends the same messages."""
import random
import socket
import struct
import sys
import time

from harness import bound_socket

NUMBERS = ["-1", "0", "1", "255", "256", "65535", "65536", "99999", "2147483647", "2147483648", "4294967295", "4294967296",
           "18446744073709551616", "9" * 400, "1e9", "0x10", "", " ", "+5", "１"]
SDP = ("v=0\r\no=h 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 5998 RTP/AVP 0 8 101\r\n"
       "a=rtpmap:0 PCMU/8000\r\na=rtpmap:101 telephone-event/8000\r\na=fmtp:101 0-15\r\na=ptime:20\r\na=sendrecv\r\n")
REQUESTS = ["INVITE"] * 6 + ["ACK", "BYE", "CANCEL", "OPTIONS", "PRACK", "REFER", "INFO", "NOTIFY", "UPDATE", "REGISTER",
                             "SUBSCRIBE", "MESSAGE", "PUBLISH", "XYZZY"]
EXTRA = {
    "PRACK": ["RAck: 1 1 INVITE"], "REFER": ["Refer-To: <sip:echo@127.0.0.1>", "Referred-By: <sip:a@127.0.0.1>"],
    "NOTIFY": ["Event: refer", "Subscription-State: active;expires=60", "Content-Type: message/sipfrag"],
    "REGISTER": ["Expires: 60", 'Authorization: Digest username="a",realm="b",nonce="c",uri="sip:d",response="e"'],
    "INVITE": ["Supported: 100rel, replaces, timer", "Session-Expires: 1800;refresher=uac", "Min-SE: 90",
               "Replaces: 1@a;to-tag=b;from-tag=c"],
    "INFO": ["Content-Type: application/dtmf-relay"], "SUBSCRIBE": ["Event: presence", "Expires: 1"],
}


class Generator:
    def __init__(self, gateway_port, own_port, seed):
        self.random = random.Random(seed)
        self.gateway_port, self.own_port = gateway_port, own_port
        self.number = 0
        self.seen = []  # Call-ID, tags and branches of messages sent, for messages that meet what is alive

    def one(self):
        pick = self.random.random()
        if pick < 0.03:
            return self.not_sip()
        data = self.base()
        for _ in range(self.random.choice((0, 1, 1, 1, 2, 2, 4))):
            data = self.random.choices((self.extreme_number, self.header_games, self.long_things, self.bytes_changed,
                                        self.description, self.start_line, self.address_games, self.credentials),
                                       (20, 14, 6, 22, 14, 8, 10, 6))[0](data)
        return data[:65000]

    def base(self):
        self.number += 1
        host = f"127.0.0.1:{self.own_port}"
        call_id, tag, branch = f"h{self.number}", f"t{self.number}", f"z9hG4bKh{self.number}"
        method = self.random.choice(REQUESTS)
        to_tag = ""
        if self.seen and self.random.random() < 0.4:  # meets an earlier message: same dialog, transaction or half of it
            old = self.random.choice(self.seen)
            call_id = old[0]
            tag = self.random.choice((old[1], tag))
            branch = self.random.choice((old[2], branch))
            to_tag = self.random.choice(("", ";tag=x", f";tag={old[1]}"))
        self.seen.append((call_id, tag, branch))
        if len(self.seen) > 200:
            self.seen.pop(0)
        user = self.random.choice(("echo", "ring", "busy", f"x{self.number}h-callee", "nobody"))
        uri = f"sip:{user}@127.0.0.1:{self.gateway_port}"
        cseq = self.random.choice((1, 1, 1, 2, 3))
        common = [f"Via: SIP/2.0/UDP {host};branch={branch}", f"From: <sip:h@{host}>;tag={tag}", f"To: <{uri}>{to_tag}",
                  f"Call-ID: {call_id}"]
        if self.random.random() < 0.2:  # an answer that nobody asked for
            status = self.random.choice((100, 180, 183, 200, 202, 302, 401, 407, 481, 486, 487, 503, 600, 699, 99, 700, 1000))
            lines = [f"SIP/2.0 {status} Whatever", *common, f"CSeq: {cseq} {method}", f"Contact: <sip:h@{host}>"]
            if status in (401, 407):
                lines.append('WWW-Authenticate: Digest realm="r",nonce="n",algorithm=MD5,qop="auth"')
        else:
            lines = [f"{method} {uri} SIP/2.0", *common, f"CSeq: {cseq} {method}", f"Contact: <sip:h@{host}>",
                     "Max-Forwards: 70", *EXTRA.get(method, ())[:self.random.randint(0, 3)]]
        body = ""
        if method in ("INVITE", "UPDATE", "PRACK") and self.random.random() < 0.8:
            body = SDP
            lines.append("Content-Type: application/sdp")
        elif method == "NOTIFY":
            body = "SIP/2.0 200 OK\r\n"
        lines.append(f"Content-Length: {len(body)}")
        return ("\r\n".join(lines) + "\r\n\r\n" + body).encode()

    # classes of faults

    def extreme_number(self, data):
        """One of the decimal numbers of the message takes a value from the edges."""
        spots = []
        start = None
        for index, byte in enumerate(data):
            if 48 <= byte <= 57:
                start = index if start is None else start
            elif start is not None:
                spots.append((start, index))
                start = None
        # addresses stay what they are: nothing may leave the machine
        spots = [(a, b) for a, b in spots if data[a - 1:a] != b"." and data[b:b + 1] != b"." and data[a - 4:a] != b"SIP/"]
        if not spots:
            return data
        a, b = self.random.choice(spots)
        return data[:a] + self.random.choice(NUMBERS).encode() + data[b:]

    def header_games(self, data):
        """A header doubled, missing, moved, empty, folded, without a colon, in compact form."""
        head, _, body = data.partition(b"\r\n\r\n")
        lines = head.split(b"\r\n")
        if len(lines) < 3:
            return data
        at = self.random.randrange(1, len(lines))
        game = self.random.randrange(8)
        if game == 0:
            del lines[at]
        elif game == 1:
            lines.insert(at, lines[at])
        elif game == 2:
            lines.append(lines.pop(at))
        elif game == 3:
            lines[at] = lines[at].split(b":")[0] + b":"
        elif game == 4:
            lines[at] = lines[at].replace(b" ", b"\r\n ", 1)
        elif game == 5:
            lines[at] = lines[at].replace(b":", b"", 1)
        elif game == 6:
            lines[at] = lines[at].replace(b"Via", b"v").replace(b"From", b"f").replace(b"Call-ID", b"i").replace(b"To", b"t")
        else:
            lines[at] += self.random.choice((b",", b";", b";=", b',"', b"\\", b"<", b">", b"%", b";a=\"b", b" ,,,,"))
        return b"\r\n".join(lines) + b"\r\n\r\n" + body

    def long_things(self, data):
        """Tokens and lists that are far too long."""
        head, _, body = data.partition(b"\r\n\r\n")
        lines = head.split(b"\r\n")
        at = self.random.randrange(len(lines))
        many = self.random.choice((129, 300, 1025, 5000, 20000))
        game = self.random.randrange(5)
        if game == 0:
            lines[at] = lines[at].replace(b"=", b"=" + b"a" * many, 1)
        elif game == 1:
            lines[at] = lines[at].replace(b":", b": " + b"A" * many, 1)
        elif game == 2:
            lines[1:1] = [b"Via: SIP/2.0/UDP 127.0.0.1:9;branch=z9hG4bK%d" % n for n in range(min(many, 900))]
        elif game == 3:
            lines.append(b"Contact: " + b", ".join([b"<sip:a@127.0.0.1>;q=0.1"] * min(many, 900)))
        else:
            body += b"a=x:1\r\n" * min(many, 3000)
        return b"\r\n".join(lines) + b"\r\n\r\n" + body

    def bytes_changed(self, data):
        """Bits flipped, bytes put in or taken out, cut off."""
        if not data:
            return data
        data = bytearray(data)
        for _ in range(self.random.choice((1, 1, 2, 8))):
            at = self.random.randrange(len(data))
            game = self.random.randrange(5)
            if game == 0:
                data[at] ^= 1 << self.random.randrange(8)
            elif game == 1:
                data[at:at] = self.random.choice((b"\0", b"\xff", b"\r", b"\n", b"\r\n", b"%00", b"\xc3\x28", b"\"", b"%", b"\t"))
            elif game == 2:
                del data[at:at + self.random.choice((1, 2, 20))]
            elif game == 3:
                data[at] = self.random.randrange(256)
            elif self.random.random() < 0.3:
                del data[at:]
            if not data:
                break
        return bytes(data)

    def description(self, data):
        """Session descriptions that contradict themselves or the grammar."""
        change = self.random.choice((
            (b"c=IN IP4 127.0.0.1\r\n", b""), (b"c=IN IP4 127.0.0.1", b"c=IN IP6 ::1"), (b"c=IN IP4", b"c="),
            (b"m=audio 5998", b"m=audio"), (b"m=audio", b"m="), (b"m=audio", b"m=video"), (b"RTP/AVP", b"RTP/SAVP"),
            (b"RTP/AVP 0 8 101", b"RTP/AVP"), (b"RTP/AVP 0", b"RTP/AVP 4294967296"), (b"0 8 101", b"0 " * 2000),
            (b"v=0\r\n", b""), (b"v=0", b"v=1"), (b"t=0 0\r\n", b""), (b"o=h 1 1", b"o="), (b"a=fmtp:101 0-15", b"a=fmtp:101 0-\x0015"),
            (b"a=fmtp:101", b"a=fmtp:"), (b"a=rtpmap:0 PCMU/8000", b"a=rtpmap:0 PCMU/0"), (b"a=rtpmap:0", b"a=rtpmap:999999999999"),
            (b"a=ptime:20", b"a=ptime:0"), (b"a=ptime:20", b"a=ptime:-20"), (b"a=ptime:20", b"a=ptime:99999999999"),
            (b"a=sendrecv", b"a=sendrecv\r\na=inactive\r\na=sendonly"), (b"\r\nm=audio", b"\r\nm=audio 9 RTP/AVP 0" * 300 + b"\r\nm=audio"),
            (b"/8000", b""), (b"\r\na=", b"\na=")))
        return data.replace(*change, 1)

    def start_line(self, data):
        change = self.random.choice((
            (b"SIP/2.0\r\n", b"SIP/3.0\r\n"), (b"SIP/2.0\r\n", b"\r\n"), (b"SIP/2.0\r\n", b"SIP/2.0 \r\n"), (b" sip:", b" sips:"), (b" sip:", b" tel:+"),
            (b" sip:", b" http://"), (b" sip:", b"  sip:"), (b" sip:", b" "), (b"@127", b"@@127"), (b"sip:", b"sip:a%00b:%ff@"),
            (b"@127.0.0.1", b"@[::1"), (b"@127.0.0.1", b"@"), (b" sip:", b" <sip:"), (b"INVITE", b"invite"), (b"INVITE", b"INVITE\0"),
            (b"SIP/2.0 ", b"SIP/2.0  "), (b" SIP/2.0\r\n", b";method=\"\";transport=sctp;lr;maddr= SIP/2.0\r\n")))
        return data.replace(*change, 1)

    def address_games(self, data):
        change = self.random.choice((
            (b"From: <", b'From: "unfinished <'), (b"From: <", b"From: "), (b"To: <sip:", b"To: <"), (b"Contact: <sip:", b"Contact: *;<sip:"),
            (b"Contact: <", b"Contact: *\r\nX: <"), (b";tag=", b";tag"), (b";tag=", b";tag=;tag="), (b";branch=", b";branch"),
            (b";branch=z9hG4bK", b";branch="), (b";branch=", b";received=;rport=99999;branch="), (b"SIP/2.0/UDP", b"SIP/2.0/XYZ"),
            (b"SIP/2.0/UDP", b"SIP/2.0/TCP"), (b"Via: SIP/2.0/UDP 127.0.0.1", b"Via: SIP/2.0/UDP host.invalid"),
            (b"Contact: <sip:h@127.0.0.1", b"Contact: <sip:h@host.invalid"), (b"Contact:", b"Record-Route: <sip:127.0.0.1:9;lr>, <sip:\r\nContact:"),
            (b"Contact:", b"Route: <sip:127.0.0.1:9;lr>, garbage\r\nContact:"), (b"Max-Forwards: 70", b"Max-Forwards: 0"),
            (b"Contact:", b"Require: 100rel, unheard-of\r\nContact:"), (b"Contact:", b"Content-Encoding: gzip\r\nContact:"),
            (b"application/sdp", b"multipart/mixed;boundary=\""), (b"application/sdp", b"/"), (b"Refer-To: <", b"Refer-To: <<"),
            (b"Replaces: ", b"Replaces: ;;;"), (b"Event: refer", b"Event:"), (b"CSeq: 1 ", b"CSeq: 1 X"), (b"RAck: 1 1", b"RAck: 1")))
        return data.replace(*change, 1)

    def credentials(self, data):
        value = self.random.choice((
            b"Digest", b"Digest username=", b'Digest username="a', b"Basic ====", b"Digest " + b"a=b," * 500, b"\0", b'Digest realm="%s%s%n",nonce=""',
            b'Digest nonce="' + b"n" * 5000 + b'"', b"Digest nc=-1,qop=auth-int,algorithm=ROT13"))
        name = self.random.choice((b"Authorization", b"Proxy-Authorization", b"WWW-Authenticate", b"Identity", b"P-Asserted-Identity"))
        return data.replace(b"\r\nContact:", b"\r\n" + name + b": " + value + b"\r\nContact:", 1)

    def not_sip(self):
        return self.random.choice((
            b"", b"\0", b"\r\n\r\n", b"\r\n", struct.pack("!HHI", 1, 0, 0x2112A442) + bytes(12),
            bytes([0x80, 0, 0, 1]) + bytes(168), b"GET / HTTP/1.1\r\n\r\n", b"SIP/2.0", b"SIP/2.0 200\r\n\r\n", b"A" * 60000,
            b"INVITE", b" ", b":\r\n:\r\n\r\n", b"\xff" * 1500, self.random.randbytes(self.random.randrange(1, 1500))))


PING_EVERY = 200


def ping(wire, gateway_port, number, seconds=2.0):
    """Asks with OPTIONS and waits for the answer, so that the gateway is never more than some messages behind: what is
    tried is what the messages say, not how many fit into a second. Whether the answer came."""
    me = wire.getsockname()[1]
    wire.sendto((f"OPTIONS sip:127.0.0.1:{gateway_port} SIP/2.0\r\nVia: SIP/2.0/UDP 127.0.0.1:{me};branch=z9hG4bKping{number}\r\n"
                 f"From: <sip:p@127.0.0.1:{me}>;tag=p{number}\r\nTo: <sip:127.0.0.1>\r\nCall-ID: ping{number}\r\n"
                 "CSeq: 1 OPTIONS\r\nMax-Forwards: 70\r\nContent-Length: 0\r\n\r\n").encode(), ("127.0.0.1", gateway_port))
    wire.settimeout(0.2)
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            data = wire.recv(65536)
        except (socket.timeout, ConnectionRefusedError):
            continue
        if b"ping%d" % number in data:
            return True
    return False


def send(gateway_port, count, seed=1, rate=3000):
    """Sends the messages, at most so many per second; answers are thrown away. How many pings had no answer in time."""
    with bound_socket() as wire, bound_socket() as probe:
        wire.setblocking(False)
        generator = Generator(gateway_port, wire.getsockname()[1], seed)
        unanswered = 0
        for number in range(count):
            try:
                wire.sendto(generator.one(), ("127.0.0.1", gateway_port))
            except OSError:
                pass  # an answer to an earlier one found no port, or the datagram is empty
            if number % PING_EVERY == 0:
                began = time.monotonic()
                unanswered += not ping(probe, gateway_port, number)
                try:
                    while wire.recv(65536) is not None:
                        pass
                except OSError:
                    pass
                time.sleep(max(0.0, PING_EVERY / rate - (time.monotonic() - began)))
        return unanswered


if __name__ == "__main__":
    print(send(int(sys.argv[1]), int(sys.argv[2]), *(int(argument) for argument in sys.argv[3:5])), "pings without an answer")
