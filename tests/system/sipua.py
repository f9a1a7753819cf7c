"""A scripted SIP user agent over UDP: says exactly what a test wants, and nothing by itself but the ACK of a failure."""
import re
import socket
import struct
import time

from harness import NO_RTP, Failure, bound_socket, check

_number = 0


def unique(prefix):
    global _number
    _number += 1
    return f"{prefix}{_number}x{time.monotonic_ns():x}"


class Message:
    """A parsed SIP message."""

    def __init__(self, data):
        self.data = data
        head, _, self.body = data.decode("utf-8", "replace").partition("\r\n\r\n")
        lines = head.split("\r\n")
        self.start = lines[0]
        self.headers = []
        for line in lines[1:]:
            name, _, value = line.partition(":")
            self.headers.append((name.strip(), value.strip()))
        words = self.start.split(" ", 2)
        self.is_response = words[0] == "SIP/2.0"
        self.status = int(words[1]) if self.is_response else 0
        self.method = (self.get("CSeq") or " ").split()[-1] if self.is_response else words[0]

    def get(self, name):
        for key, value in self.headers:
            if key.lower() == name.lower():
                return value
        return None

    def identity(self):
        """The same for a message and its retransmissions, for nothing else."""
        return self.start, self.get("Via"), self.get("CSeq"), self.get("To"), self.get("RSeq")

    def contact(self):
        """The URI of the Contact; None where there is none."""
        found = re.search("<(.*?)>", self.get("Contact") or "")
        return found and found[1]

    def all(self, name):
        return [value for key, value in self.headers if key.lower() == name.lower()]


def sdp(address, port=NO_RTP, payloads="0 8", extra=""):
    return (f"v=0\r\no=test 1 1 IN IP4 {address}\r\ns=-\r\nc=IN IP4 {address}\r\nt=0 0\r\n"
            f"m=audio {port} RTP/AVP {payloads}\r\n{extra}")


def sdp_port(body):
    for line in body.splitlines():
        if line.startswith("m=audio "):
            return int(line.split()[1])
    raise Failure(f"no audio line in the SDP:\n{body}")


class UserAgent:
    """One party of one call, at a port of its own."""

    def __init__(self, user):
        self.socket = bound_socket()
        self.port = self.socket.getsockname()[1]
        self.contact = f"sip:{user}@127.0.0.1:{self.port}"
        self.tag = unique(user)
        self.remote = self.invitation = self.call_id = self.from_header = self.to_header = self.target = None
        self.cseq = 0
        self.taken = set()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, method, body="", content_type=None, cseq=None, branch=None, headers=(), target=None):
        """A request in the dialog, or the one that begins it; an ACK has the number of what it ends."""
        if cseq is None:
            self.cseq += 1
            cseq = self.cseq
        branch = branch or "z9hG4bK" + unique("b")
        self.send_lines([f"{method} {target or self.target} SIP/2.0",
                         f"Via: SIP/2.0/UDP 127.0.0.1:{self.port};branch={branch}",
                         f"From: {self.from_header}", f"To: {self.to_header}", f"Call-ID: {self.call_id}",
                         f"CSeq: {cseq} {method}", f"Contact: <{self.contact}>", "Max-Forwards: 70",
                         *headers], body, content_type)
        return branch

    def answer(self, status, reason, body="", headers=(), request=None):
        """Answers the INVITE that came, or another request."""
        request = request or self.invitation
        lines = [f"SIP/2.0 {status} {reason}", *(f"Via: {value}" for value in request.all("Via"))]
        lines += [f"{name}: {request.get(name)}" for name in ("From", "Call-ID", "CSeq")]
        lines += [f"To: {self.tagged(request.get('To'))}", *headers]
        if not 300 <= status < 400:
            lines.append(f"Contact: <{self.contact}>")
        self.send_lines(lines, body)

    def tagged(self, to_header):
        return to_header if "tag=" in to_header else f"{to_header};tag={self.tag}"

    def send_lines(self, lines, body, content_type=None):
        if body:
            content_type = content_type or ("application/sdp" if body.startswith("v=") else "text/plain")
            lines.append(f"Content-Type: {content_type}")
        lines.append(f"Content-Length: {len(body)}")
        self.socket.sendto(("\r\n".join(lines) + "\r\n\r\n" + body).encode(), self.remote)

    def receive(self, seconds=5.0):
        """The next message; fails when none comes in time."""
        self.socket.settimeout(max(0.01, seconds))
        try:
            data, source = self.socket.recvfrom(65536)
        except socket.timeout:
            raise Failure(f"{self.contact} received nothing within {seconds:.1f} s") from None
        self.remote = self.remote or source
        return Message(data)

    def expect(self, *wanted, seconds=5.0, skip=(100,)):
        """The next message that is one of `wanted` (status codes or methods); anything else fails, but for `skip`
        and retransmissions."""
        deadline = time.monotonic() + seconds
        while True:
            message = self.receive(deadline - time.monotonic())
            what = message.status if message.is_response else message.method
            if message.identity() in self.taken:
                continue
            self.taken.add(message.identity())
            if what in wanted:
                if what == "INVITE":
                    self.take_invite(message)
                return message
            check(what in skip, f"{what} received at {self.contact}, one of {wanted} expected:\n{message.start}")

    def nothing(self, seconds=0.3):
        """Fails when anything comes within the time."""
        self.socket.settimeout(seconds)
        try:
            data = self.socket.recv(65536)
        except socket.timeout:
            return
        raise Failure(f"{Message(data).start} received, nothing was expected")

    def take_invite(self, invite):
        """The dialog is the one that the answer to this INVITE makes, or has made."""
        self.invitation = invite
        self.call_id = invite.get("Call-ID")
        self.from_header, self.to_header = self.tagged(invite.get("To")), invite.get("From")
        self.target = invite.contact()

    def take_dialog(self, response):
        self.to_header = response.get("To")
        self.target = response.contact() or self.target

    def invite(self, body, headers=()):
        self.invite_target = self.target
        self.invite_branch = self.send("INVITE", body, headers=headers)

    def ack(self, response, body=""):
        """The ACK of a final response: in the transaction for a failure, in the dialog for a success."""
        number = int(response.get("CSeq").split()[0])
        if response.status >= 300:
            to_header, self.to_header = self.to_header, response.get("To")
            self.send("ACK", cseq=number, branch=self.invite_branch, target=self.invite_target)
            self.to_header = to_header
        else:
            self.take_dialog(response)
            self.send("ACK", body, cseq=number)

    def cancel(self):
        self.send("CANCEL", cseq=self.cseq, branch=self.invite_branch, target=self.invite_target)


class Caller(UserAgent):
    """One outgoing call towards a gateway."""

    def __init__(self, gateway_port, user="echo"):
        super().__init__("tester")
        self.remote = ("127.0.0.1", gateway_port)
        self.uri = self.target = f"sip:{user}@127.0.0.1:{gateway_port}"
        self.call_id = unique("call")
        self.from_header = f"<{self.contact}>;tag={self.tag}"
        self.to_header = f"<{self.uri}>"


class Callee(UserAgent):
    """One call that comes from a gateway."""

    def __init__(self):
        super().__init__("callee")
        self.uri = self.contact


class RtpSocket:
    """An RTP port: sends G.711 frames and reads what comes."""

    def __init__(self):
        self.socket = bound_socket()  # RTCP goes to the port above, which nobody else is given
        self.socket.settimeout(2)
        self.port = self.socket.getsockname()[1]
        self.sequence = 1000
        self.timestamp = 160
        self.ssrc = 0x51520000 + self.port

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, port, payload, payload_type=0):
        header = struct.pack("!BBHII", 0x80, payload_type, self.sequence & 0xffff, self.timestamp & 0xffffffff, self.ssrc)
        self.socket.sendto(header + payload, ("127.0.0.1", port))
        self.sequence += 1
        self.timestamp += len(payload)

    def receive(self):
        """(payload type, sequence, timestamp, payload) of the next RTP packet, or None when none comes."""
        while True:
            try:
                data = self.socket.recv(4096)
            except socket.timeout:
                return None
            if len(data) >= 12 and data[0] >> 6 == 2 and not 200 <= data[1] <= 211:
                _, kind, sequence, timestamp, _ = struct.unpack("!BBHII", data[:12])
                return kind & 0x7f, sequence, timestamp, data[12:]


# Every payload byte value, so that a codec step in the path would show.
FRAMES = [bytes((frame * 7 + i * 3) & 0xff for i in range(160)) for frame in range(25)]


def heard(sender, port, receiver):
    """Sends the frames at their pace; the share of them that the receiver gets, the last within half a second."""
    got = set()

    def listen(seconds):
        receiver.socket.settimeout(seconds)
        packet = receiver.receive()
        if packet and packet[3] in FRAMES:
            got.add(packet[3])

    next_at = time.monotonic()
    for frame in FRAMES:
        sender.send(port, frame)
        next_at += 0.02
        while (left := next_at - time.monotonic()) > 0:
            listen(left)
    deadline = time.monotonic() + 0.5
    while len(got) < len(FRAMES) and (left := deadline - time.monotonic()) > 0:
        listen(left)
    return len(got) / len(FRAMES)
