"""The called party of a test: a scripted SIP user agent over UDP that waits for an INVITE."""
import socket
import time

from harness import Failure, bound_socket, check
from sipua import Message, unique


class Callee:
    """One call that comes from a gateway, at a port of its own."""

    def __init__(self):
        self.socket = bound_socket()
        self.port = self.socket.getsockname()[1]
        self.uri = f"sip:callee@127.0.0.1:{self.port}"
        self.tag = unique("callee")
        self.invite = None
        self.remote = None
        self.cseq = 0
        self.taken = set()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def expect(self, *wanted, seconds=5.0, skip=(100,)):
        """The next message that is one of `wanted` (status codes or methods); anything else fails, but for `skip`
        and retransmissions."""
        deadline = time.monotonic() + seconds
        while True:
            self.socket.settimeout(max(0.01, deadline - time.monotonic()))
            try:
                data, self.remote = self.socket.recvfrom(65536)
            except socket.timeout:
                raise Failure(f"the callee received none of {wanted} within {seconds} s") from None
            message = Message(data)
            if message.identity() in self.taken:
                continue
            self.taken.add(message.identity())
            what = message.status if message.is_response else message.method
            if what in wanted:
                if what == "INVITE":
                    self.invite = message
                return message
            check(what in skip, f"the callee received {what}, one of {wanted} was expected:\n{message.start}")

    def nothing(self, seconds=0.3):
        """Fails when anything comes within the time."""
        self.socket.settimeout(seconds)
        try:
            data = self.socket.recv(65536)
        except socket.timeout:
            return
        raise Failure(f"the callee received {Message(data).start}, nothing was expected")

    def answer(self, status, reason, body="", headers=(), request=None):
        """Answers the INVITE, or another request."""
        request = request or self.invite
        to_header = request.get("To")
        lines = [f"SIP/2.0 {status} {reason}"]
        lines += [f"Via: {value}" for value in request.all("Via")]
        lines += [f"{name}: {request.get(name)}" for name in ("From", "Call-ID", "CSeq")]
        lines += [f"To: {to_header if 'tag=' in to_header else to_header + ';tag=' + self.tag}", *headers]
        if not 300 <= status < 400:
            lines.append(f"Contact: <{self.uri}>")
        if body:
            lines.append("Content-Type: application/sdp")
        self.send_lines(lines, body)

    def send(self, method, body="", content_type="text/plain", headers=(), cseq=None):
        """A request in the dialog that the answer to the INVITE made; an ACK has the number of what it ends."""
        if cseq is None:
            self.cseq += 1
            cseq = self.cseq
        contact = self.invite.get("Contact")
        lines = [f"{method} {contact[contact.index('<') + 1:contact.index('>')]} SIP/2.0",
                 f"Via: SIP/2.0/UDP 127.0.0.1:{self.port};branch=z9hG4bK{unique('b')}",
                 f"From: {self.invite.get('To')};tag={self.tag}", f"To: {self.invite.get('From')}",
                 f"Call-ID: {self.invite.get('Call-ID')}", f"CSeq: {cseq} {method}", "Max-Forwards: 70",
                 f"Contact: <{self.uri}>", *headers]
        if body:
            lines.append(f"Content-Type: {content_type}")
        self.send_lines(lines, body)

    def send_lines(self, lines, body):
        lines = [*lines, f"Content-Length: {len(body)}"]
        self.socket.sendto(("\r\n".join(lines) + "\r\n\r\n" + body).encode(), self.remote)
