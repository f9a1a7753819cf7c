"""Ladders played word by word, by a scripted caller, for tests that do something else in mid-ladder: send audio, break the media
engine, take a call over. What plays whole ladders, and says what their words are, is sipp_ladder.py."""
import json
import re
import time

from harness import NO_RTP, Failure, check
from sipua import Caller, sdp

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
        self.log = []

    def offer(self, payloads="0 8", extra=""):
        return sdp("127.0.0.1", self.rtp_port, payloads, extra)

    def receive(self, seconds=5.0):
        """The next message that is neither a 100 nor one that came before."""
        deadline = time.monotonic() + seconds
        while True:
            message = super().receive(deadline - time.monotonic())
            if message.data not in self.seen and message.status != 100:
                self.seen.add(message.data)
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
        got = self.take(self.receive(seconds=8))
        check(got in word.split("|"), f"{got} received")

    def say(self, word):
        self.log.append(">" + word)
        method = re.match("[A-Z]+|[0-9]+", word).group()
        variant = word[len(method):]
        if method.isdigit():
            self.answer(int(method), "Whatever", request=self.request)
        elif method == "INVITE":
            self.say_invite(variant)
        elif method == "ACK":
            self.say_ack(variant)
        elif method == "INFO":
            self.send("INFO", "hello", "text/plain", headers=("X-Note: 7",))
        else:
            self.send(method)

    def say_invite(self, variant):
        bodies = {
            "": self.offer(), "late": "", "alien": self.offer("18 97"), "hold": self.offer(extra="a=sendonly\r\n"),
            "two": self.offer() + STREAM.format(port=self.rtp_port + 2), "replaces": self.offer(),
        }
        self.invite(bodies[variant], self.headers if variant == "replaces" else ())

    def say_ack(self, variant):
        self.ack(self.final["INVITE"], self.offer("0") if variant else "")

    def command(self, word):
        check(word == "hangup", f"an operator cannot {word}")
        status, text = self.gateway.http(f"/api/calls/{self.id()}", "DELETE")
        check(status == 200, f"{word} answered {status} {text}")

    def id(self):
        """The call's identifier, found by the caller's port; the gateway may list it a moment later."""
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline:
            for call in json.loads(self.gateway.http("/api/calls")[1]):
                if f":{self.port}" in call["from"]:
                    return call["id"]
            time.sleep(0.01)
        raise Failure("the call is not listed")
