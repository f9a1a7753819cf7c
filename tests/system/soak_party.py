"""SIP parties that keep to the protocol over a link that does not: many calls at one UDP port, each with the
retransmissions of RFC 3261 section 17, so that what a test drops, doubles or delays is made good as in the field.
"""
import asyncio
import random
import socket

from harness import NO_RTP, bound_socket

T1_S = 0.05  # the gateway's quorvex.sip.t1Ms must say the same
CALL_ENDED_S = 64 * T1_S


class Ended(Exception):
    """The other side ended the dialog while the script waited for something else."""


class Silent(Exception):
    """What the script waited for did not come in its time."""


class Message:
    """A parsed SIP message; header names in lower case."""
    __slots__ = ("start", "headers", "body", "status", "method", "call_id", "branch", "cseq")

    def __init__(self, data):
        head, _, self.body = data.decode("utf-8", "replace").partition("\r\n\r\n")
        lines = head.split("\r\n")
        self.start = lines[0]
        self.headers = headers = {}
        for line in lines[1:]:
            name, _, value = line.partition(":")
            headers.setdefault(name.strip().lower(), []).append(value.strip())
        number, _, method = headers["cseq"][0].partition(" ")
        self.cseq = int(number)
        self.method = method.strip()
        self.status = int(self.start[8:11]) if self.start.startswith("SIP/2.0 ") else 0
        self.call_id = headers["call-id"][0]
        via = headers["via"][0]
        self.branch = via[via.index("branch=") + 7:].split(";")[0]

    def get(self, name, default=""):
        return self.headers.get(name, (default,))[0]


def sdp(port, direction="sendrecv", version=1):
    return (f"v=0\r\no=party 1 {version} IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
            f"m=audio {port} RTP/AVP 0 8\r\na={direction}\r\n")


class Link:
    """What happens to datagrams between a party and the gateway, each direction by itself: shares from 0 to 1."""

    def __init__(self, seed=1, loss=0.0, duplication=0.0, reordering=0.0):
        self.random = random.Random(seed).random
        self.loss, self.duplication, self.reordering = loss, duplication, reordering
        self.perfect = not (loss or duplication or reordering)
        self.lost = self.doubled = self.delayed = self.passed = 0

    def carry(self, loop, deliver, *arguments):
        if self.perfect:
            self.passed += 1
            deliver(*arguments)
            return
        if self.random() < self.loss:
            self.lost += 1
            return
        copies = 1
        if self.random() < self.duplication:
            self.doubled += 1
            copies = 2
        for _ in range(copies):
            if self.random() < self.reordering:
                self.delayed += 1
                loop.call_later(T1_S * self.random(), deliver, *arguments)
            else:
                self.passed += 1
                deliver(*arguments)


class Cut:
    """Takes the n-th message (from 1) of one party's side of a call out of the wire: once, or with all that follow.
    The direction is `in`, `out` or `any`; retransmissions count."""

    def __init__(self, direction="any", number=0, dead=False):
        self.direction, self.number, self.dead = direction, number, dead
        self.seen = {"in": 0, "out": 0}
        self.hit = None

    def takes(self, direction, message):
        self.seen[direction] += 1
        count = sum(self.seen.values()) if self.direction == "any" else self.seen[direction]
        if self.direction in ("any", direction) and (count == self.number or self.dead and count > self.number > 0):
            self.hit = self.hit or f"{direction} {message}"
            return True
        return False


class Transaction:
    """A request of ours, sent again until it is answered."""

    def __init__(self, leg, method, data, cseq, branch):
        self.leg, self.method, self.data, self.cseq, self.branch = leg, method, data, cseq, branch
        self.provisional = asyncio.Event()
        self.ringing = asyncio.Event()
        self.final = leg.party.loop.create_future()
        self.interval = T1_S
        self.ack_data = None
        self.transmit()
        self.timer = leg.party.loop.call_later(self.interval, self.again)
        self.end = leg.party.loop.call_later(64 * T1_S, self.timeout)

    def transmit(self):
        self.leg.send(self.data)

    def again(self):
        if self.final.done() or self.method == "INVITE" and self.provisional.is_set():
            return
        self.transmit()
        self.interval *= 2
        if self.method != "INVITE":
            self.interval = min(self.interval, 8 * T1_S)
        self.timer = self.leg.party.loop.call_later(self.interval, self.again)

    def timeout(self):
        if not self.final.done() and not (self.method == "INVITE" and self.provisional.is_set()):
            self.settle(None)

    def settle(self, message):
        if not self.final.done():
            self.final.set_result(message)
            self.provisional.set()
            self.ringing.set()
            self.timer.cancel()
            self.end.cancel()

    def response(self, message):
        if message.status < 200:
            self.provisional.set()
            if message.status > 100:
                self.ringing.set()
                if message.get("rseq"):
                    self.leg.acknowledge_provisional(message)
            return
        if self.method == "INVITE":
            if message.status >= 300 and not self.ack_data:
                self.ack_data = self.leg.build("ACK", self.cseq, self.branch, to=message.get("to"), target=self.leg.uri)
            if self.ack_data:
                self.leg.send(self.ack_data)
        self.settle(message)


class Leg:
    """One party's side of a call. Scripts send and wait; what the protocol asks for besides is done here."""

    def __init__(self, party, call_id, cut=None, media_port=NO_RTP):
        self.party, self.call_id, self.cut = party, call_id, cut
        self.media_port = media_port
        self.cseq = 0
        self.local_tag = f"t{party.port}x{party.next_number()}"
        self.from_header = self.to_header = self.target = self.uri = ""
        self.transactions = {}      # branch and method: our requests
        self.answers = {}           # branch and method: their requests, with what was answered last
        self.unacknowledged = {}    # CSeq number: [timer, ends at, data] of our answers that wait for an ACK
        self.inbox = asyncio.Queue()
        self.invitation = None
        self.provisionals_seen = set()
        self.provisional_timer = None
        self.rseq = 0
        self.ended = False
        self.closed = False

    # what goes out

    def send(self, data):
        if self.closed:
            return
        if self.cut and self.cut.takes("out", data.split(b"\r\n", 1)[0].decode()):
            return
        self.party.transmit(data)

    def build(self, method, cseq, branch, body="", headers=(), to=None, target=None):
        lines = [f"{method} {target or self.target} SIP/2.0",
                 f"Via: SIP/2.0/UDP 127.0.0.1:{self.party.port};branch={branch}",
                 f"From: {self.from_header}", f"To: {to or self.to_header}", f"Call-ID: {self.call_id}",
                 f"CSeq: {cseq} {method}", f"Contact: <sip:party@127.0.0.1:{self.party.port}>", "Max-Forwards: 70",
                 *headers]
        if body:
            lines.append(f"Content-Type: {'application/sdp' if body.startswith('v=0') else 'text/plain'}")
        lines.append(f"Content-Length: {len(body)}")
        return ("\r\n".join(lines) + "\r\n\r\n" + body).encode()

    def start(self, method, body="", headers=()):
        self.cseq += 1
        branch = f"z9hG4bK{self.party.port}x{self.party.next_number()}"
        data = self.build(method, self.cseq, branch, body, headers)
        transaction = Transaction(self, method, data, self.cseq, branch)
        self.transactions[branch, method] = transaction
        return transaction

    def dial(self, uri, body, headers=()):
        """Starts the INVITE of a new call."""
        self.uri = self.target = uri
        self.from_header = f"<sip:caller@127.0.0.1:{self.party.port}>;tag={self.local_tag}"
        self.to_header = f"<{uri}>"
        self.invitation = self.start("INVITE", body, headers)
        return self.invitation

    async def request(self, method, body="", headers=()):
        """Sends a request in the dialog; its final response, None when none comes."""
        return await self.start(method, body, headers).final

    def cancel(self):
        invite = self.invitation
        data = self.build("CANCEL", invite.cseq, invite.branch, target=self.uri)
        self.transactions[invite.branch, "CANCEL"] = Transaction(self, "CANCEL", data, invite.cseq, invite.branch)

    async def answered(self, invite, seconds=12):
        """The final response to an INVITE; a 200 is acknowledged and makes the dialog."""
        try:
            final = await asyncio.wait_for(asyncio.shield(invite.final), seconds)
        except asyncio.TimeoutError:
            raise Silent(f"no final response to the INVITE within {seconds} s") from None
        if final is not None and final.status < 300:
            self.take_dialog(final)
            body = "" if "m=audio" in invite.data.decode() else sdp(self.media_port)
            branch = f"z9hG4bK{self.party.port}x{self.party.next_number()}"
            invite.ack_data = self.build("ACK", invite.cseq, branch, body)
            self.send(invite.ack_data)
        return final

    def take_dialog(self, response):
        self.to_header = response.get("to")
        contact = response.get("contact")
        self.target = contact[contact.index("<") + 1:contact.index(">")]

    def acknowledge_provisional(self, message):
        rseq = message.get("rseq")
        if rseq in self.provisionals_seen:
            return
        self.provisionals_seen.add(rseq)
        self.take_dialog(message)
        self.start("PRACK", headers=(f"RAck: {rseq} {message.cseq} INVITE",))

    def respond(self, request, status, reason, body="", headers=(), reliable=False):
        to = request.get("to")
        if "tag=" not in to and status > 100:
            to += f";tag={self.local_tag}"
        lines = [f"SIP/2.0 {status} {reason}", *(f"Via: {value}" for value in request.headers["via"]),
                 f"From: {request.get('from')}", f"To: {to}", f"Call-ID: {self.call_id}",
                 f"CSeq: {request.get('cseq')}", *headers]
        if not 300 <= status < 400:
            lines.append(f"Contact: <sip:party@127.0.0.1:{self.party.port}>")
        if reliable:
            self.rseq += 1
            lines += ["Require: 100rel", f"RSeq: {self.rseq}"]
        if body:
            lines.append("Content-Type: application/sdp")
        lines.append(f"Content-Length: {len(body)}")
        data = ("\r\n".join(lines) + "\r\n\r\n" + body).encode()
        self.answers[request.branch, request.method] = data
        self.send(data)
        loop = self.party.loop
        if reliable:
            self.provisional_timer = loop.call_later(T1_S, self.provisional_again, data, T1_S, loop.time())
        if request.method == "INVITE" and status >= 200:
            self.from_header, self.to_header = to, request.get("from")
            self.stop_provisional()
            self.unacknowledged[request.cseq] = [loop.call_later(T1_S, self.final_again, request.cseq, T1_S),
                                                 loop.time() + 64 * T1_S, data]

    def provisional_again(self, data, interval, since):
        if self.party.loop.time() - since < 64 * T1_S:
            self.send(data)
            self.provisional_timer = self.party.loop.call_later(2 * interval, self.provisional_again, data, 2 * interval,
                                                                since)

    def stop_provisional(self):
        if self.provisional_timer:
            self.provisional_timer.cancel()
            self.provisional_timer = None

    def final_again(self, cseq, interval):
        waiting = self.unacknowledged.get(cseq)
        if not waiting:
            return
        if self.party.loop.time() > waiting[1]:
            del self.unacknowledged[cseq]
            self.inbox.put_nowait(None)
            return
        self.send(waiting[2])
        interval = min(2 * interval, 8 * T1_S)
        waiting[0] = self.party.loop.call_later(interval, self.final_again, cseq, interval)

    # what comes in

    def received(self, message):
        if self.closed or self.cut and self.cut.takes("in", message.start):
            return
        if message.status:
            transaction = self.transactions.get((message.branch, message.method))
            if transaction:
                transaction.response(message)
            return
        if message.method == "ACK":
            waiting = self.unacknowledged.pop(message.cseq, None)
            if waiting:
                waiting[0].cancel()
                self.inbox.put_nowait(message)
            return
        key = (message.branch, message.method)
        if key in self.answers:
            if self.answers[key]:
                self.send(self.answers[key])
            return
        self.answers[key] = None
        if message.method == "PRACK":
            self.stop_provisional()
            self.respond(message, 200, "OK")
        elif message.method == "CANCEL":
            self.respond(message, 200, "OK")
            self.inbox.put_nowait(message)
        elif message.method == "INVITE":
            if "tag=" in message.get("to"):
                self.respond(message, 200, "OK", sdp(self.media_port))
                return
            self.target = self.contact_of(message)
            self.inbox.put_nowait(message)
        elif message.method == "BYE":
            self.respond(message, 200, "OK")
            self.ended = True
            for cseq in list(self.unacknowledged):
                self.unacknowledged.pop(cseq)[0].cancel()
            self.inbox.put_nowait(message)
        else:
            self.respond(message, 200, "OK")
            self.inbox.put_nowait(message)

    @staticmethod
    def contact_of(message):
        contact = message.get("contact")
        return contact[contact.index("<") + 1:contact.index(">")]

    async def expect(self, *wanted, seconds=10.0):
        """The next request of the methods wanted. Others were answered already and are passed over, but for a BYE,
        a CANCEL and an answer that nobody acknowledged: they raise Ended."""
        deadline = self.party.loop.time() + seconds
        while True:
            try:
                message = await asyncio.wait_for(self.inbox.get(), max(0.001, deadline - self.party.loop.time()))
            except asyncio.TimeoutError:
                raise Silent(f"none of {wanted} within {seconds} s") from None
            method = message.method if message else "no ACK"
            if method in wanted:
                return message
            if method in ("BYE", "CANCEL", "no ACK"):
                raise Ended(method)

    async def rest(self, seconds):
        """Lets time pass; Ended when the dialog ends meanwhile."""
        try:
            await self.expect("nothing", seconds=seconds)
        except Silent:
            pass

    async def hang_up(self):
        self.ended = True
        return await self.request("BYE")


class Party(asyncio.DatagramProtocol):
    """One UDP port with any number of legs. Calls that come in go to the script expected for their user part."""

    def __init__(self, gateway_port, port=0, outward=None, inward=None):
        self.loop = asyncio.get_running_loop()
        self.gateway = ("127.0.0.1", gateway_port)
        self.outward, self.inward = outward or Link(), inward or Link()
        self.legs = {}
        self.expected = {}
        self.number = 0
        self.tasks = set()
        self.stray = 0
        self.received_count = 0
        self.socket = bound_socket(port=port)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
        self.socket.setblocking(False)
        self.port = self.socket.getsockname()[1]
        self.transport = None

    async def open(self):
        self.transport, _ = await self.loop.create_datagram_endpoint(lambda: self, sock=self.socket)
        return self

    def close(self):
        self.transport.close()

    def next_number(self):
        self.number += 1
        return self.number

    def transmit(self, data):
        self.outward.carry(self.loop, self.transport.sendto, data, self.gateway)

    def datagram_received(self, data, address):
        self.received_count += 1
        self.inward.carry(self.loop, self.arrived, data)

    def arrived(self, data):
        try:
            message = Message(data)
        except (KeyError, ValueError, IndexError):  # the answer to a malformed request lacks what that lacked
            self.stray += 1
            return
        leg = self.legs.get(message.call_id)
        if leg is None:
            if message.status or message.method == "ACK":
                self.stray += 1
                return
            user = message.start.partition("sip:")[2].partition("@")[0]
            script = self.expected.pop(user, None) if message.method == "INVITE" else None
            if script is None:
                self.stray += 1
                leg = Leg(self, message.call_id)
                leg.respond(message, 481, "Call/Transaction Does Not Exist")
                for waiting in leg.unacknowledged.values():
                    waiting[0].cancel()
                return
            leg = script(message)
        leg.received(message)

    def leg(self, call_id, cut=None):
        self.legs[call_id] = leg = Leg(self, call_id, cut)
        return leg

    def run(self, leg, script):
        """Runs a leg's script as a task; the leg stays for a while after it, for what is still under way."""
        async def whole():
            try:
                return await script
            finally:
                self.loop.call_later(70 * T1_S, self.forget, leg)
        task = self.loop.create_task(whole())
        self.tasks.add(task)
        task.add_done_callback(self.tasks.discard)
        return task

    def forget(self, leg):
        leg.closed = True
        leg.stop_provisional()
        for waiting in leg.unacknowledged.values():
            waiting[0].cancel()
        for transaction in leg.transactions.values():
            transaction.settle(None)
        self.legs.pop(leg.call_id, None)


