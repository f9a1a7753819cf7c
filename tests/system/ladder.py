"""Calls written as ladders: one line says what the caller sends, what it must receive, and in which order.

    ">INVITE 180 200+ >ACK >BYE 200"

A word with ">" is sent, "!" is an operator's command over HTTP, anything else must be received next: a status code, with "+" when
it carries SDP, or a method. "a&b" takes both in either order, "a|b" takes one of them. 100 and retransmissions are passed over."""
import json
import re
import time

from harness import NO_RTP, Failure, check
from sipua import Caller, Message, sdp

LATE_OFFER = ("Supported: 100rel",)
STREAM = "m=audio {port} RTP/AVP 0\r\n"


class Ladder(Caller):
    """One call of a gateway, driven by a ladder."""

    def __init__(self, gateway, user, rtp_port=NO_RTP):
        super().__init__(gateway.port, user)
        self.gateway = gateway
        self.rtp_port = rtp_port
        self.seen = set()
        self.request = None
        self.headers = ()
        self.final = {}
        self.invite_cseq = 0
        self.log = []

    def offer(self, payloads="0 8", extra=""):
        return sdp("127.0.0.1", self.rtp_port, payloads, extra)

    def receive(self, seconds=5.0):
        deadline = time.monotonic() + seconds
        while True:
            self.socket.settimeout(max(0.01, deadline - time.monotonic()))
            try:
                data = self.socket.recv(65536)
            except TimeoutError:
                raise Failure(f"nothing received within {seconds} s") from None
            if data in self.seen:
                continue
            self.seen.add(data)
            message = Message(data)
            if message.status == 100:
                continue
            return message

    def take(self, message):
        """Notes a message for what is sent later; how it reads in a ladder."""
        self.log.append(message.start)
        if not message.is_response:
            self.request = message
            return message.method
        self.final[message.method] = message
        if message.method == "INVITE" and 100 < message.status < 300:
            self.take_dialog(message)
        return f"{message.status}{'+' if message.body else ''}"

    def left(self):
        """What has been received beside what was asked for."""
        found = []
        while True:
            try:
                found.append(self.receive(0.01).start)
            except Failure:
                return found

    def run(self, ladder):
        for word in ladder.split():
            try:
                if word[0] == ">":
                    self.say(word[1:])
                elif word[0] == "!":
                    self.command(word[1:])
                else:
                    self.hear(word)
            except Failure as failure:
                raise Failure(f"at {word} of \"{ladder}\": {failure}; so far {self.log}") from None

    def hear(self, word):
        wanted = word.split("&")
        while wanted:
            got = self.take(self.receive(seconds=8))
            match = next((w for w in wanted if got in w.split("|")), None)
            check(match is not None, f"{got} received")
            wanted.remove(match)

    def say(self, word):
        self.log.append(">" + word)
        method = re.match("[A-Z]+|[0-9]+", word).group()
        variant = word[len(method):]
        if method.isdigit():
            self.answer(self.request, int(method), "Whatever")
        elif method == "INVITE":
            self.say_invite(variant)
        elif method == "ACK":
            self.say_ack(variant)
        elif method == "CANCEL":
            own, self.to_header = self.to_header, self.invite_to
            self.send("CANCEL", cseq=self.invite_cseq, branch=self.invite_branch, target=self.invite_target)
            self.to_header = own
        elif method == "PRACK":
            rack = f"RAck: {self.final['INVITE'].get('RSeq') or 1} {self.invite_cseq} INVITE"
            self.send("PRACK", "" if variant == "0" else self.offer("18" if variant == "bad" else "0"), headers=(rack,))
        elif method == "INFO":
            self.send("INFO", "hello", "text/plain", headers=("X-Note: 7",))
        elif method == "MESSAGE":
            self.send("MESSAGE", "hello", "text/plain")
        elif method == "OLD":
            self.send("INFO", cseq=1)
        else:
            self.send(method)

    def say_invite(self, variant):
        bodies = {
            "": self.offer(), "late": "", "rel": "", "alien": self.offer("18 97"), "garbage": "v=0\r\nthis is no SDP\r\n",
            "hold": self.offer(extra="a=sendonly\r\n"), "two": self.offer() + STREAM.format(port=self.rtp_port + 2),
            "require": self.offer(), "replaces": self.offer(),
        }
        headers = {"rel": LATE_OFFER, "require": ("Require: 100rel",), "replaces": self.headers}.get(variant, ())
        self.invite_target = self.target
        self.invite_to = self.to_header
        self.invite_branch = self.send("INVITE", bodies[variant], headers=headers)
        self.invite_cseq = self.cseq

    def say_ack(self, variant):
        body = {"": "", "+": self.offer("0"), "bad": self.offer("18"), "none": "v=0\r\n"}[variant]
        response = self.final["INVITE"]
        if response.status < 300:
            self.send("ACK", body, cseq=self.invite_cseq)
        else:
            own, self.to_header = self.to_header, response.get("To")
            self.send("ACK", cseq=self.invite_cseq, branch=self.invite_branch, target=self.invite_target)
            self.to_header = own

    def command(self, word):
        call = self.id()
        if word == "seen":
            return
        if word == "answered":
            self.wait_until(call, word)
            return
        if word == "hangup":
            status, text = self.gateway.http(f"/api/calls/{call}", "DELETE")
        elif word == "info":
            status, text = self.gateway.http(f"/api/calls/{call}/info", "POST", {"body": "hi"})
        check(status == 200, f"{word} answered {status} {text}")

    def wait_until(self, call, state):
        """Until the gateway lists the call as decided so, which may be before the caller hears of it."""
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline:
            if any(c["id"] == call and c["state"] == state for c in json.loads(self.gateway.http("/api/calls")[1])):
                return
            time.sleep(0.01)
        raise Failure(f"the call is not listed as {state}")

    def id(self):
        """The call's identifier, found by the caller's port; the gateway may list it a moment later."""
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline:
            for call in json.loads(self.gateway.http("/api/calls")[1]):
                if f":{self.port}" in call["from"]:
                    return call["id"]
            time.sleep(0.01)
        raise Failure("the call is not listed")
