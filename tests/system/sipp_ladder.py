"""Plays calls written as ladders with sipp: each party of a ladder is a sipp whose scenario is made from the ladder's words.

A word of the caller is "180" (received next: "+" with SDP, else without), "INFO" (a request, received next), ">BYE" (sent) or
"!hangup" (an operator's command over HTTP). "a&b" takes both in either order, "a|b" takes one of them. 100 and retransmissions
are passed over. After its last word a party listens until the gateway has stopped: whatever else comes fails the ladder.

A sipp tells over its 3PCC connection how far it is. So a command is given when the ladder has come to it, and a party that
speaks after others waits until they have heard and said what the ladder has before.

What sipp cannot do: send a request while it awaits the answer to another one (the answer may come between the two), and pass
over a retransmission that is not of the last two messages it received. So ladders hear what they have asked for before they go
on, and a gateway's timers are slow where nothing has to run out. Audio in mid-ladder needs the scripted caller of ladder.py."""
import itertools
import json
import re
import selectors
import socket
import subprocess
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from xml.sax.saxutils import escape

from harness import Failure, check
from sipua import sdp
from siplayer.scenario import scenario, send

OFFER, ANSWER, ALIEN = (sdp("127.0.0.1", payloads=payloads).replace("\r", "") for payloads in ("0 8", "0", "18 97"))
BODIES = {
    "INVITE": OFFER, "INVITErequire": OFFER, "INVITEalien": ALIEN, "INVITEgarbage": "v=0\nthis is no SDP\n",
    "INVITEhold": OFFER + "a=sendonly\n", "INVITEtwo": OFFER + OFFER[OFFER.index("m="):], "PRACK": ANSWER, "PRACKbad": ALIEN,
    "ACK+": ANSWER, "ACKbad": ALIEN, "ACKnone": "v=0\n", "INFO": "hello", "MESSAGE": "hello",
}
HEADERS = {"INVITErel": ["Supported: 100rel"], "INVITErequire": ["Require: 100rel"], "INFO": ["X-Note: 7"]}
SECONDS = 10  # within which the next message must come
STARTING = threading.Lock()  # a child has all our sockets until it is another program


class Party:
    """The scenario of one sipp, made word by word."""

    def __init__(self):
        # Holds a port until sipp takes it: one of the kernel's, as other tests that look for ports in turn would take it before.
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.steps = []
        self.variables = set()
        self.numbers = itertools.count(1)

    def keep(self, header, variable, pattern="[^ ].*", check_it=' check_it="true"'):
        """An action of a received message: keeps what matches of its header, which it must have."""
        self.variables.add(variable)
        return f'<ereg regexp="{escape(pattern)}" search_in="hdr" header="{header}:"{check_it} assign_to="{variable}"/>'

    def body(self, has_sdp):
        self.variables.add("sdp")
        inverse = "" if has_sdp else "_inverse"
        return f'<ereg regexp="m=audio" search_in="body" check_it{inverse}="true" assign_to="sdp"/>'

    def header(self, expected):
        """Of "Name:value" or "": the header must have this value, or be missing."""
        name, _, value = expected.partition(":")
        if not name:
            return []
        if value:
            return [self.keep(name, "header", f"^ *{value} *$")]
        return [self.keep(name, "header", check_it=' check_it_inverse="true"')]

    def receive(self, what, actions=(), optional=False, label=None, condition=""):
        kind = "response" if what.isdigit() else "request"
        self.steps.append(f'<recv {kind}="{what}" timeout="{SECONDS * 1000}"' + ' optional="true"' * optional +
                          (f' next="{label}"{condition}' if label else "") + f'><action>{"".join(actions)}</action></recv>')

    def keep_request(self, kept):
        return [self.keep(header, f"{kept}{header}") for header in ("Via", "From", "To", "CSeq")]

    def respond(self, status, kept, tag="", headers=(), body=""):
        lines = [f"{header}: [${kept}{header}]" for header in ("Via", "From", "To", "CSeq")]
        lines[2] += tag
        self.steps.append(send([f"SIP/2.0 {status} Whatever", *lines, "Call-ID: [call_id]", *headers], body))

    def tell(self, text, wait=False):
        """Tells the play, and waits for its word."""
        self.steps.append(f"<sendCmd><![CDATA[\nCall-ID: [call_id]\nSay: {text}{' and wait' if wait else ''}\n\n]]></sendCmd>")
        if wait:
            self.steps.append("<recvCmd/>")

    def scenario(self):
        self.tell("end", wait=True)
        return scenario(*self.steps, f'<Reference variables="{",".join(sorted(self.variables))}"/>')


class Caller(Party):
    """Who calls the gateway."""

    def __init__(self, gateway, user):
        super().__init__()
        self.uri = self.target = f"sip:{user}@127.0.0.1:{gateway.port}"
        self.to = f"<{self.uri}>"
        self.cseq = 0
        self.pending = []
        self.invite = None
        self.is_trying = False

    def word(self, word, wait=False):
        if word[0] == "!":
            self.tell(word[1:], wait)
        elif word[0] == ">":
            self.say(word[1:])
        else:
            self.hear(word)

    def tell(self, text, wait=False):
        self.proceed()
        super().tell(text, wait)

    def proceed(self):
        """A sipp that does not listen takes what comes for unexpected, so the call's own 100, which has a Contact, must have come:
        before it comes that of the transaction if the call is late."""
        if self.is_trying:
            here = next(self.numbers)
            self.receive("100", [self.keep("Contact", "proceeding", check_it="")], label=here, condition=' test="proceeding"')
            self.receive("100")
            self.steps.append(f'<label id="{here}"/>')
            self.is_trying = False

    def hear(self, word, passed_over=(), header=""):
        if self.is_trying:
            passed_over = ("100", *passed_over)
        for status in passed_over:
            self.receive(status, optional=True)
        both = []
        for choice in word.split("&"):
            whats = choice.split("|")
            answers = whats[0][0].isdigit() and self.answered_by(int(whats[0].rstrip("+")))
            both.append([(what.rstrip("+"), self.actions(what, answers) + self.header(header)) for what in whats])
        end, other = next(self.numbers), next(self.numbers)
        if len(both) == 1:
            *choices, last = both[0]
            for what, actions in choices:
                self.receive(what, actions, optional=True, label=end)
            self.receive(*last)
        else:
            (first,), (second,) = both
            self.receive(*first, optional=True, label=other)
            self.receive(*second)
            self.receive(*first, label=end)
            self.steps.append(f'<label id="{other}"/>')
            self.receive(*second)
        self.steps.append(f'<label id="{end}"/>')
        return answers

    def answered_by(self, status):
        """The request that a response answers, method and number: the INVITE if it can be no other."""
        invites, others = ([request for request in self.pending if (request[0] == "INVITE") == is_invite]
                           for is_invite in (True, False))
        request = invites[-1] if invites and (status < 200 or status == 487 or not others) else others[-1]
        if request[0] == "INVITE":
            self.is_trying = False
            self.invite["status"] = status
        if status >= 200:
            self.pending.remove(request)
        return request

    def actions(self, what, answers):
        """What a received message must be, and what is kept of it."""
        if not answers:
            return self.keep_request("request")
        method, cseq = answers
        status, has_sdp = int(what.rstrip("+")), what[-1] == "+"
        actions = [self.keep("CSeq", "number", f"^ *{cseq} {method}"), self.body(has_sdp)]
        if method != "INVITE":
            return actions
        if status >= 300:
            return [*actions, self.keep("To", "failedTo")]
        headers = self.invite["headers"]
        if status == 183 and headers or status == 180 and headers == HEADERS["INVITErequire"]:
            actions.append(self.keep("RSeq", "rseq", "[0-9]+"))
        self.to, self.target = "[$to]", "[$contact]"
        return [*actions, self.keep("To", "to"), self.keep("Contact", "contact", "sip:[^>]*")]

    def say(self, word):
        self.proceed()
        method, variant = re.fullmatch("([A-Z]+|[0-9]+)(.*)", word).groups()
        if method.isdigit():
            self.respond(method, "request")
        elif method == "INVITE":
            headers = HEADERS.get(word, [])
            self.invite = {"to": self.to, "target": self.target, "headers": headers}
            self.invite.update(branch=self.request(method, word, headers=headers), cseq=self.cseq)
            self.is_trying = True
        elif method == "CANCEL":
            self.request(method, word, **{key: self.invite[key] for key in ("to", "target", "branch", "cseq")})
        elif method == "ACK" and self.invite["status"] >= 300:
            self.request(method, word, to="[$failedTo]", **{key: self.invite[key] for key in ("target", "branch", "cseq")})
        elif method == "ACK":
            self.request(method, word, cseq=self.invite["cseq"])
        elif method == "PRACK":
            rseq = "[$rseq]" if "rseq" in self.variables else "1"
            self.request(method, word, headers=[f"RAck: {rseq} {self.invite['cseq']} INVITE"])
        elif method == "OLD":
            self.request("INFO", "", cseq=1)
        else:
            self.request(method, word, headers=HEADERS.get(word, []))

    def request(self, method, word, to=None, target=None, branch=None, cseq=None, headers=()):
        if cseq is None:
            cseq = self.cseq = self.cseq + 1
        if method != "ACK":
            self.pending.append((method, cseq))
        branch = branch or f"z9hG4bK[pid]x{next(self.numbers)}"
        self.steps.append(send(
            [f"{method} {target or self.target} SIP/2.0", f"Via: SIP/2.0/UDP 127.0.0.1:[local_port];branch={branch}",
             "From: <sip:tester@127.0.0.1:[local_port]>;tag=[pid]a", f"To: {to or self.to}", "Call-ID: [call_id]",
             f"CSeq: {cseq} {method}", "Contact: <sip:tester@127.0.0.1:[local_port]>", "Max-Forwards: 70", *headers],
            BODIES.get(word, ""), content_type="text/plain" if method in ("INFO", "MESSAGE") else "application/sdp"))
        return branch


class Called(Party):
    """Whom the gateway calls."""

    def __init__(self):
        super().__init__()
        self.uri = f"sip:callee@127.0.0.1:{self.port}"
        self.cseq = 0

    def hear(self, what, status="", header=""):
        """Receives a response, or a request, of which BYE, CANCEL and NOTIFY are answered."""
        actions = self.header(header)
        if what.isdigit():
            self.receive("100", optional=True)
        elif what == "INVITE":
            actions += [*self.keep_request("invite"), self.keep("Contact", "contact", "sip:[^>]*")]
        else:
            actions += self.keep_request("request")
        self.receive(what, actions)
        if what in ("BYE", "CANCEL", "NOTIFY"):
            self.respond(status or "200", "request", ";tag=[pid]b" if what == "CANCEL" else "")

    def say(self, what, body="", headers=(), tag=";tag=[pid]b"):
        """Answers the INVITE, or sends a request in the dialog."""
        contact = [] if what[0] == "3" else [f"Contact: <{self.uri}>"]
        if what.isdigit():
            self.respond(what, "invite", tag, [*headers, *contact], body)
            return
        self.cseq += what != "ACK"
        self.steps.append(send(
            [f"{what} [$contact] SIP/2.0", f"Via: SIP/2.0/UDP 127.0.0.1:[local_port];branch=z9hG4bK[pid]x{next(self.numbers)}",
             f"From: [$inviteTo]{tag}", "To: [$inviteFrom]", "Call-ID: [call_id]", f"CSeq: {self.cseq} {what}", "Max-Forwards: 70",
             *contact, *headers], body))


class Play:
    """The sipps of one ladder, and what they wait for. The caller is the last of its parties."""

    def __init__(self, gateway, number, title, parties, commands=(), before=()):
        """`before[n]`: the numbers of the words that must be done before word n."""
        self.gateway, self.number, self.title, self.parties = gateway, number, title, parties
        self.commands, self.before = dict(commands), dict(before)
        self.call_id = f"ladder{number}-1"
        self.connections, self.processes, self.faults = [], [], []
        self.ended, self.done, self.turns = {}, set(), {}

    def file(self, index, suffix):
        return self.gateway.folder / f"ladder{self.number}-{index}.{suffix}"

    def start(self, index, party):
        """Starts a sipp; it has its port when it connects."""
        self.file(index, "xml").write_text(party.scenario(), encoding="latin-1")
        with socket.create_server(("127.0.0.1", 0)) as listener:
            listener.settimeout(SECONDS)
            command = ["sipp", "-sf", self.file(index, "xml"), "-i", "127.0.0.1", "-p", str(party.port), "-m", "1", "-nostdin",
                       "-3pcc", f"127.0.0.1:{listener.getsockname()[1]}", "-cid_str", f"ladder{self.number}-%u",
                       "-mi", f"127.0.{index + 1}.{self.number + 1}",  # it takes media ports that it never uses
                       "-timeout", "100", "-timeout_error", "-trace_err", "-error_file", self.file(index, "errors"),
                       "-trace_msg", "-message_file", self.file(index, "messages"), f"127.0.0.1:{self.gateway.port}"]
            with STARTING:
                party.socket.close()
                self.processes.append(subprocess.Popen(command, cwd=self.gateway.folder, stdout=subprocess.DEVNULL,
                                                       stderr=subprocess.DEVNULL))
            try:
                self.connections.append(listener.accept()[0])
            except TimeoutError:
                raise Failure("a sipp does not connect") from None

    def run(self):
        """Until each party has come to its end."""
        try:
            for index, party in enumerate(self.parties):
                self.start(index, party)
            self.listen()
        except (Failure, OSError, threading.BrokenBarrierError) as failure:
            self.faults.append(f"{type(failure).__name__} {failure}")

    def listen(self):
        unread = {connection: b"" for connection in self.connections}
        with selectors.DefaultSelector() as selector:
            for connection in self.connections:
                selector.register(connection, selectors.EVENT_READ)
            deadline = time.monotonic() + 6 * SECONDS
            while len(self.ended) < len(self.parties):
                ready = selector.select(max(0, deadline - time.monotonic()))
                check(ready, "the ladder does not come to its end")
                for key, _ in ready:
                    data = key.fileobj.recv(65536)
                    if not data or b"abort_call" in data:  # the reason is in what sipp wrote
                        return
                    *messages, unread[key.fileobj] = (unread[key.fileobj] + data).split(b"\x1b")
                    for message in messages:
                        self.told(key.fileobj, *re.findall(r"^Call-ID:.*|(?<=^Say: ).*", message.decode(), re.M))

    def told(self, connection, call_id, text):
        text, _, wait = text.strip().partition(" and ")
        if text == "end":
            self.ended[connection] = call_id
            return
        word, _, number = text.partition(" ")
        if word == "done":
            self.done.add(int(number))
        elif word == "turn":
            self.turns[int(number)] = (connection, call_id)
        else:
            self.commands[word](self)
            if wait:
                self.reply(connection, call_id)
        for number in [number for number in self.turns if self.before[number] <= self.done]:
            self.reply(*self.turns.pop(number))

    def reply(self, connection, call_id):
        connection.sendall(f"{call_id.strip()}\r\nSay: on\r\n\r\n\x1b".encode())

    def finish(self):
        """Ends the sipps; notes what went wrong."""
        is_over = len(self.ended) == len(self.parties)
        for connection in self.connections:
            if is_over:
                self.reply(connection, self.ended[connection])
        for index, process in enumerate(self.processes):
            try:
                code = process.wait(SECONDS if is_over or process.poll() is not None else 0.1)
            except subprocess.TimeoutExpired:
                process.kill()
                code = process.wait()
            errors, messages = (path.read_text(encoding="latin-1") if (path := self.file(index, suffix)).exists() else ""
                                for suffix in ("errors", "messages"))
            if code or "Failed regexp" in errors:
                lines = re.findall(r"^(?:UDP message (sent|received).*\n\n|)(SIP/2.0 .*|[A-Z]+ sip:.* SIP/2.0)$", messages, re.M)
                self.faults.append(f"sipp {index} ended with {code}; {[' '.join(line) for line in lines]}; {errors[:1500]}")
        for connection in self.connections:
            connection.close()


def perform(plays, stop):
    """Plays ladders side by side, then stops their gateway. What went wrong."""
    with ThreadPoolExecutor(16) as pool:
        list(pool.map(Play.run, plays))
    faults = []
    try:
        stop()
    except Failure as failure:
        faults.append(str(failure))
    for play in plays:
        play.finish()
        faults += [f"{play.title}: {fault}" for fault in play.faults]
    return faults


def turns(words):
    """Of words, each with its party and whether the party speaks: the numbers of the words that must be done before word n, where
    it is another party's turn."""
    before, latest, known = {}, {}, {}
    for number, (party, speaks) in enumerate(words):
        needed = {at for other, at in latest.items() if other != party} - known.setdefault(party, set())
        if speaks and needed:
            before[number] = needed
            known[party] |= needed
        latest[party] = number
    return before


def operator(gateway):
    """What an operator does to the call of a play over HTTP."""
    def listed(play, states=()):
        """The call's identifier, found by the caller's port; the gateway may list it, and that it is decided, a moment later."""
        deadline = time.monotonic() + SECONDS
        while time.monotonic() < deadline:
            for call in json.loads(gateway.http("/api/calls")[1]):
                if f":{play.parties[-1].port}" in call["from"] and (not states or call["state"] in states):
                    return call["id"]
            time.sleep(0.01)
        raise Failure("the call is not listed so")

    def command(path, *request):
        def give(play):
            status, text = gateway.http(f"/api/calls/{listed(play)}{path}", *request)
            check(status == 200, f"{request[0]} {path} answered {status} {text}")
        return give

    return {"seen": listed, "answered": lambda play: listed(play, ["answered"]), "ending": lambda play: listed(play, ["ending"]),
            "hangup": command("", "DELETE"), "info": command("/info", "POST", {"body": "hi"})}


def call(gateway, number, user, ladder, commands):
    """The play of a ladder between one caller and the gateway."""
    caller = Caller(gateway, user)
    words = ladder.split()
    for word, after in zip(words, words[1:] + [""]):
        caller.word(word, wait=after[:1] in ("!", ">"))
    return Play(gateway, number, f'{user} "{ladder}"', [caller], commands)
