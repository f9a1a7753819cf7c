#!/usr/bin/env python3
"""Transfers through a real gateway: by REFER from either side, by an operator, with every party leaving at every moment."""
import contextlib
import json
import select
import sys
import time
import urllib.parse
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import DEADLINE_S, ECHO_ROUTE, Failure, Gateway, check, run  # noqa: E402
from sipua import Callee, Caller, RtpSocket, heard, sdp, sdp_port  # noqa: E402


def wait_until(condition, text):
    deadline = time.monotonic() + DEADLINE_S
    while not condition():
        check(time.monotonic() < deadline, text)
        time.sleep(0.01)


class Stage:
    """A gateway, a caller A that talks to a party B or a service, and parties C and D to transfer to."""

    def __init__(self, build, first="b", connected=True, **gateway):
        self.build, self.first, self.connected, self.options = build, first, connected, gateway

    def __enter__(self):
        self.stack = contextlib.ExitStack()
        enter = self.stack.enter_context
        self.b, self.c, self.d = (enter(Callee()) for _ in range(3))
        self.rtp = {party: enter(RtpSocket()) for party in ("a", "b", "c", "d")}
        ways = [{"name": name, "match": {"sip.in.requestUri": f"^sip:{name}@"},
                 "leg": {"sip.out.requestUri": f"sip:{name}@127.0.0.1:{party.port}"}}
                for name, party in (("b", self.b), ("c", self.c), ("d", self.d))]
        services = [ECHO_ROUTE,
                    {"name": "busy", "match": {"sip.in.requestUri": "^sip:busy@"}, "service": "reject", "reject": 486},
                    {"name": "ring", "match": {"sip.in.requestUri": "^sip:ring@"}, "service": "ring", "hangupAfterMs": 200}]
        self.gateway = enter(Gateway(self.build, routes=[*ways, *services], **self.options))
        self.a = enter(Caller(self.gateway.port, self.first))
        self.ports = {}
        if self.connected:
            self.connect()
        return self

    def __exit__(self, *how):
        return self.stack.__exit__(*how)

    def connect(self):
        self.a.invite(sdp("127.0.0.1", self.rtp["a"].port))
        if self.first == "b":
            self.answer("b")
        answer = self.a.expect(200, skip=(100, 180))
        self.a.ack(answer)
        self.ports["a"] = sdp_port(answer.body)

    def ring(self, name):
        party = getattr(self, name)
        # An ACK that was sent again may still be on its way from the call before.
        self.ports[name] = sdp_port(party.expect("INVITE", skip=(100, "ACK")).body)
        party.answer(180, "Ringing")

    def answer(self, name):
        party = getattr(self, name)
        if name not in self.ports:
            self.ports[name] = sdp_port(party.expect("INVITE", skip=(100, "ACK")).body)
        party.answer(200, "OK", sdp("127.0.0.1", self.rtp[name].port))
        party.expect("ACK")

    def refer(self, who, target, headers=()):
        """Sends a REFER whose Refer-To is a user of the gateway, or a whole URI; the status that answers it."""
        uri = target if ":" in target else f"sip:{target}@127.0.0.1:{self.gateway.port}"
        getattr(self, who).send("REFER", headers=(f"Refer-To: <{uri}>", *headers))
        return getattr(self, who).expect(202, 400, 484, 500, skip=(100, "NOTIFY")).status

    def refer_rings(self, who, party, target=None):
        """A REFER that is accepted, and whose party rings."""
        check(self.refer(who, target or party) == 202, "refused")
        self.notified(who, 100)
        self.ring(party)
        self.notified(who, 180)

    def notified(self, who, *codes):
        """The progress of the transfer that was asked for: these status codes, one NOTIFY each, in their order."""
        party = getattr(self, who)
        for code in codes:
            notify = party.expect("NOTIFY")
            check(notify.body.startswith(f"SIP/2.0 {code} "), f"NOTIFY says {notify.body!r}, {code} expected")
            state = notify.get("Subscription-State")
            check(state == ("active;expires=60" if code < 200 else "terminated;reason=noresource"), f"{code}: {state}")
            check(notify.get("Event") == "refer" and "message/sipfrag" in notify.get("Content-Type"), f"{notify.headers}")
            self.ok(who, notify)

    def ok(self, who, request):
        party = getattr(self, who) if isinstance(who, str) else who
        party.answer(200, "OK", request=request)

    def talk(self, one, other):
        """Both hear each other, both at once; what comes before the way is known does not count."""
        got = {one: set(), other: set()}

        def listen(seconds):
            ready = select.select([self.rtp[name].socket for name in got], [], [], seconds)[0]
            for name in (name for name in got if self.rtp[name].socket in ready):
                packet = self.rtp[name].receive()
                if packet and packet[3][0] >= 10:
                    got[name].add((packet[3][0], chr(packet[3][1])))

        next_at = time.monotonic()
        for number in range(40):
            frames = {name: bytes([number, ord(name)]) * 80 for name in got}
            for name, frame in frames.items():
                self.rtp[name].send(self.ports[name], frame)
            next_at += 0.02
            while (left := next_at - time.monotonic()) > 0:
                listen(left)
        deadline = time.monotonic() + 0.5
        while min(len(numbers) for numbers in got.values()) < 30 and (left := deadline - time.monotonic()) > 0:
            listen(left)
        for here, there in ((one, other), (other, one)):
            share = sum(who == there for _, who in got[here]) / 30
            check(share > 0.9, f"{here} hears {share:.0%} of {there}")

    def declines(self, name, status, reason):
        getattr(self, name).answer(status, reason)
        getattr(self, name).expect("ACK")

    def cancelled(self, name):
        self.ok(name, getattr(self, name).expect("CANCEL"))
        self.declines(name, 487, "Request Terminated")

    def bye_comes(self, *who):
        for name in who:
            self.ok(name, getattr(self, name).expect("BYE", skip=(100, "NOTIFY")))

    def bye(self, who):
        getattr(self, who).send("BYE")
        getattr(self, who).expect(200, skip=(100, "NOTIFY"))

    def goes_through(self, who, stays, party):
        """The party answers, who asked leaves, the others talk and hang up."""
        self.answer(party)
        self.notified(who, 200)
        self.bye(who)
        self.talk(stays, party)
        self.bye(stays)
        self.bye_comes(party)

    def finish(self, errors=False, drained=False, **endings):
        """Stops the gateway: a record for each leg, named by its party; who ended it and its status."""
        self.gateway.check_end() if drained else self.gateway.stop()
        records = {("a" if r["direction"] == "in" else r["to"].split(":")[1].split("@")[0]): r
                   for r in self.gateway.records()}
        got = {name: (record["endedBy"], record["status"]) for name, record in records.items()}
        check(got == endings, f"the records say {got}, expected {endings}")
        check(len({record["call"] for record in records.values()}) == 1, "the legs are not of one call")
        self.gateway.check_accounts_are_zero()
        if not errors:
            self.gateway.check_log_is_clean()

    def calls(self):
        return json.loads(self.gateway.http("/api/calls")[1])

    def transfer(self, uri, call=None):
        """An operator transfers a call, the only one unless it is told; how that is answered."""
        call = call or self.calls()[0]["id"]
        return self.gateway.http(f"/api/calls/{call}/transfer", "POST", {"leg": {"sip.out.requestUri": uri}})


def either_party_transfers_the_other(build):
    """The new party is asked as a call from the one who stays; the one who leaves has two seconds for it."""
    for leaves, stays, endings in (("a", "b", {"a": ("local", 200), "b": ("remote", 200), "c": ("local", 200)}),
                                   ("b", "a", {"a": ("remote", 200), "b": ("local", 200), "c": ("local", 200)})):
        with Stage(build) as stage:
            stage.talk("a", "b")
            check(stage.refer(leaves, "c", headers=("Referred-By: <sip:boss@127.0.0.1>",)) == 202, "refused")
            stage.notified(leaves, 100)
            stage.ring("c")
            stage.notified(leaves, 180)
            caller = "tester@" if stays == "a" else "b@"
            check(f"sip:{caller}" in stage.c.invitation.get("From"), f"From is {stage.c.invitation.get('From')}")
            check(stage.c.invitation.get("Referred-By") == "<sip:boss@127.0.0.1>", "Referred-By is not carried over")
            stage.answer("c")
            stage.notified(leaves, 200)
            stage.bye_comes(leaves)
            stage.talk(stays, "c")
            check([len(call["legs"]) for call in stage.calls()] == [2], f"/api/calls: {stage.calls()}")
            getattr(stage, stays).send("INFO", "still there?", "text/plain")
            getattr(stage, stays).expect(200)
            info = stage.c.expect("INFO")
            check(info.body == "still there?", info.body)
            stage.ok("c", info)
            stage.bye(stays)
            stage.bye_comes("c")
            stage.finish(**endings)


def who_asked_leaves_by_itself(build):
    """A phone hangs up as soon as it hears of the success, or even before: the others talk all the same."""
    for early in (False, True):
        with Stage(build) as stage:
            stage.refer_rings("a", "c")
            if early:
                stage.bye("a")
            stage.answer("c")
            if not early:
                stage.notified("a", 200)
                stage.bye("a")
            stage.talk("b", "c")
            stage.bye("c")
            stage.bye_comes("b")
            stage.finish(a=("remote", 200), b=("local", 200), c=("remote", 200))


def a_failed_transfer_brings_the_parties_back_together(build):
    with Stage(build) as stage:
        for who in ("a", "b"):
            for target, codes in (("busy", (486,)), ("nobody", (404,)), ("ring", (180, 480))):
                check(stage.refer(who, target) == 202, f"{target}: refused")
                stage.notified(who, 100, *codes)
                stage.talk("a", "b")
            # The party that stays hears what the new one sends before it declines.
            check(stage.refer(who, "c") == 202, "refused")
            stage.notified(who, 100)
            stage.ports["c"] = sdp_port(stage.c.expect("INVITE").body)
            stage.c.answer(183, "Session Progress", sdp("127.0.0.1", stage.rtp["c"].port))
            stage.c.answer(180, "Ringing")
            stage.notified(who, 180)
            stays = stage.rtp["b" if who == "a" else "a"]
            share = max(heard(stage.rtp["c"], stage.ports["c"], stays) for _ in range(2))
            check(share > 0.9, f"{share:.0%} of the early media are heard")
            stage.declines("c", 603, "Decline")
            stage.notified(who, 603)
            stage.ports.pop("c")
            stage.talk("a", "b")
        metrics = stage.gateway.http("/metrics")[1]
        check('quorvex_transfers_total{asked_by="party",outcome="failed"} 8' in metrics, "/metrics do not count 8 failures")
        stage.bye("a")
        stage.bye_comes("b")
        stage.finish(a=("remote", 200), b=("local", 200), c=("remote", 603))


def refers_that_cannot_be(build):
    with Stage(build) as stage:
        for who in ("a", "b"):
            for uri, status in (("tel:12345", 400), ("sip:x@no-such-host.invalid", 400), ("sip:", 484)):
                got = stage.refer(who, uri)
                check(got == status, f"{who}, {uri}: {got}, {status} expected")
            getattr(stage, who).send("REFER")
            getattr(stage, who).expect(400)
            stage.talk("a", "b")
        stage.gateway.http("/api/drain", "POST", {})
        stage.refer("a", "c")
        stage.notified("a", 100, 503)
        stage.talk("a", "b")
        stage.bye("b")
        stage.bye_comes("a")
        stage.finish(errors=True, drained=True, a=("local", 200), b=("remote", 200))


def one_transfer_at_a_time(build):
    """A second REFER of the same party gets no transaction of its own; the other party's fails at once, and it talks on."""
    with Stage(build) as stage:
        stage.refer_rings("a", "c")
        check(stage.refer("a", "d") == 500, "a second REFER was taken")
        check(stage.refer("b", "d") == 202, "the other party's REFER was refused")
        stage.notified("b", 100, 491)
        status, text = stage.transfer("sip:d@127.0.0.1")
        check(status == 409 and "under way" in text, f"{status} {text}")
        stage.answer("c")
        stage.notified("a", 200)
        stage.bye("a")
        stage.talk("b", "c")
        # The new party may transfer, too, and so may who was left.
        stage.refer_rings("c", "d")
        stage.answer("d")
        stage.notified("c", 200)
        stage.bye("c")
        stage.talk("b", "d")
        stage.refer("b", "echo")
        stage.notified("b", 100, 180, 200)
        stage.bye("b")
        share = heard(stage.rtp["d"], stage.ports["d"], stage.rtp["d"])
        check(share > 0.8, f"the last party hears {share:.0%} of its echo")
        stage.bye("d")
        stage.d.nothing()
        stage.finish(a=("remote", 200), b=("remote", 200), c=("remote", 200), d=("remote", 200))


def parties_that_leave_while_the_new_one_rings(build):
    def the_other(stage):
        stage.bye("b")
        stage.notified("a", 487)
        stage.bye_comes("a")
        stage.cancelled("c")
        return {"a": ("local", 200), "b": ("remote", 200), "c": ("local", 487)}

    def both(stage):
        stage.bye("a")
        stage.bye("b")
        stage.cancelled("c")
        return {"a": ("remote", 200), "b": ("remote", 200), "c": ("local", 487)}

    def who_asked_and_then_it_fails(stage):
        stage.bye("a")
        stage.declines("c", 486, "Busy Here")
        stage.bye_comes("b")
        return {"a": ("remote", 200), "b": ("local", 200), "c": ("remote", 486)}

    def an_operator(stage):
        check(stage.gateway.http(f"/api/calls/{stage.calls()[0]['id']}", "DELETE")[0] == 200, "not hung up")
        stage.notified("a", 487)
        stage.bye_comes("a", "b")
        stage.cancelled("c")
        return {"a": ("local", 200), "b": ("local", 200), "c": ("local", 487)}

    def the_new_one_after_its_answer(stage):
        stage.answer("c")
        stage.bye("c")
        stage.notified("a", 200)
        stage.bye_comes("a", "b")
        return {"a": ("local", 200), "b": ("local", 200), "c": ("remote", 200)}

    for leave in (the_other, both, who_asked_and_then_it_fails, an_operator, the_new_one_after_its_answer):
        try:
            with Stage(build) as stage:
                stage.refer_rings("a", "c")
                stage.finish(**leave(stage))
        except Failure as failure:
            raise Failure(f"{leave.__name__}: {failure}") from None


def a_service_makes_way_for_a_party(build):
    """Who talks to a service has nobody to leave to: the new party, or service, takes the place of the service."""
    with Stage(build, first="echo") as stage:
        heard(stage.rtp["a"], stage.ports["a"], stage.rtp["a"])
        stage.refer("a", "busy")
        stage.notified("a", 100, 486)
        check(heard(stage.rtp["a"], stage.ports["a"], stage.rtp["a"]) > 0.8, "the echo is gone after a failure")
        stage.refer("a", "echo")
        stage.notified("a", 100, 180, 200)
        check(heard(stage.rtp["a"], stage.ports["a"], stage.rtp["a"]) > 0.8, "the new service is not heard")
        stage.refer_rings("a", "c")
        stage.answer("c")
        stage.notified("a", 200)
        stage.talk("a", "c")
        stage.bye("a")
        stage.bye_comes("c")
        stage.finish(a=("remote", 200), c=("local", 200))


def a_party_that_was_called_by_an_operator_transfers(build):
    with Stage(build, connected=False) as stage:
        leg = {"sip.out.requestUri": stage.b.uri}
        status, text = stage.gateway.http("/api/calls", "POST", {"leg": leg, "service": "echo"})
        check(status == 201, text)
        stage.answer("b")
        stage.refer_rings("b", "c")
        stage.answer("c")
        stage.notified("b", 200)
        stage.talk("b", "c")
        # The one who stays takes the first one's place, and may be transferred by an operator, too.
        stage.transfer(f"sip:d@127.0.0.1:{stage.d.port}", json.loads(text)["id"])
        stage.answer("d")
        stage.bye_comes("c")
        stage.talk("b", "d")
        stage.bye("b")
        stage.bye_comes("d")
        stage.finish(callee=("remote", 200), c=("local", 200), d=("local", 200))


def an_operator_transfers(build):
    for first in ("b", "echo"):
        with Stage(build, first=first) as stage:
            number, uri = stage.calls()[0]["id"], f"sip:c@127.0.0.1:{stage.c.port}"
            status, text = stage.transfer(uri)
            check(status == 200 and json.loads(text)["id"] == number, f"{status} {text}")
            stage.ring("c")
            stage.declines("c", 486, "Busy Here")
            if first == "b":
                stage.talk("a", "b")
            stage.ports.pop("c")
            failed = 'quorvex_transfers_total{asked_by="operator",outcome="failed"} 1'
            wait_until(lambda: failed in stage.gateway.http("/metrics")[1], "the failure is not counted")
            stage.transfer(uri)
            stage.ring("c")
            check("tester@" in stage.c.invitation.get("From"), stage.c.invitation.get("From"))
            stage.answer("c")
            if first == "b":
                stage.bye_comes("b")
            stage.talk("a", "c")
            status, text = stage.transfer(uri, "none")
            check(status == 404 and "error" in json.loads(text), f"{status} {text}")
            stage.bye("c")
            stage.bye_comes("a")
            stage.finish(a=("local", 200), c=("remote", 200), **({"b": ("local", 200)} if first == "b" else {}))
    with Stage(build, first="ring", connected=False) as stage:
        stage.a.invite(sdp("127.0.0.1", stage.rtp["a"].port))
        stage.a.expect(180)
        status, text = stage.transfer("sip:c@h")
        check(status == 409 and "ringing" in text, f"{status} {text}")
        stage.a.ack(stage.a.expect(480))
        stage.finish(a=("local", 480))


def headers_of_a_refer_to(build):
    """What the URI carries for the INVITE goes into it, but for what is the dialog's own."""
    with Stage(build) as stage:
        replaces = "call-7@127.0.0.1;to-tag=t1;from-tag=f1"
        uri = (f"sip:c@127.0.0.1:{stage.gateway.port}?Replaces={urllib.parse.quote(replaces, safe='')}"
               "&X-Why=consulted&From=sip%3Athief%40127.0.0.1&Call-ID=mine")
        check(stage.refer("a", uri) == 202, "refused")
        stage.notified("a", 100)
        stage.ring("c")
        invite = stage.c.invitation
        check(invite.get("Replaces") == replaces, f"Replaces is {invite.get('Replaces')}")
        check(invite.get("X-Why") == "consulted", "X-Why is missing")
        check("thief" not in invite.get("From") and len(invite.all("Call-ID")) == 1, f"{invite.headers}")
        stage.notified("a", 180)
        stage.goes_through("a", "b", "c")
        stage.finish(a=("remote", 200), b=("remote", 200), c=("local", 200))


def who_has_consulted_another_joins_the_two(build):
    """A talks to B, calls C for advice, and joins them: the INVITE with Replaces takes the place of A's second call."""
    for answers in (True, False):
        with Stage(build) as stage, Caller(stage.gateway.port, "c") as second, RtpSocket() as rtp:
            second.invite(sdp("127.0.0.1", rtp.port))
            stage.answer("c")
            answer = second.expect(200, skip=(100, 180))
            second.ack(answer)
            tags = [header.split("tag=")[1] for header in (second.to_header, second.from_header)]
            if not answers:
                tags[0] = "another"
            replaces = urllib.parse.quote(f"{second.call_id};to-tag={tags[0]};from-tag={tags[1]}", safe="")
            check(stage.refer("a", f"{second.target}?Replaces={replaces}") == 202, "refused")
            if not answers:
                stage.notified("a", 100, 481)
                stage.talk("a", "b")
                stage.bye("a")
                stage.bye_comes("b")
            else:
                stage.notified("a", 100, 200)
                stage.ok(second, second.expect("BYE"))
                stage.bye("a")
                stage.talk("b", "c")
                stage.bye("b")
            if not answers:
                second.send("BYE")
                second.expect(200)
            stage.bye_comes("c")
            stage.gateway.stop()
            check(len(stage.gateway.records()) == 5, f"{stage.gateway.records()}")
            stage.gateway.check_accounts_are_zero()
            stage.gateway.check_log_is_clean()


def hold_and_resume_while_the_other_stays_up(build):
    with Stage(build) as stage:
        for holds, stays in (("a", "b"), ("b", "a")):
            party = getattr(stage, holds)
            for direction, hears in (("sendonly", False), ("sendrecv", True)):
                party.invite(sdp("127.0.0.1", stage.rtp[holds].port, extra=f"a={direction}\r\n"))
                answer = party.expect(200)
                check(("a=recvonly" in answer.body) != hears, answer.body)
                party.ack(answer)
                # INFO goes both ways whatever the media do.
                for one, other in ((holds, stays), (stays, holds)):
                    getattr(stage, one).send("INFO", "hello", "text/plain")
                    getattr(stage, one).expect(200)
                    stage.ok(other, getattr(stage, other).expect("INFO"))
                heard(stage.rtp[stays], stage.ports[stays], stage.rtp[holds])
                share = heard(stage.rtp[stays], stage.ports[stays], stage.rtp[holds])
                check(share > 0.9 if hears else share == 0, f"{direction}: {holds} hears {share:.0%} of {stays}")
            stage.talk("a", "b")
        # On hold by its own wish, as phones do before they transfer.
        stage.a.invite(sdp("127.0.0.1", stage.rtp["a"].port, extra="a=sendonly\r\n"))
        stage.a.ack(stage.a.expect(200))
        stage.refer("a", "busy")
        stage.notified("a", 100, 486)
        stage.refer_rings("a", "c")
        stage.goes_through("a", "b", "c")
        stage.finish(a=("remote", 200), b=("remote", 200), c=("local", 200))


def a_stop_in_the_middle_of_a_transfer(build):
    with Stage(build) as stage:
        stage.refer_rings("a", "c")
        stage.gateway.signal()
        stage.bye_comes("a", "b")
        stage.cancelled("c")
        check(stage.gateway.wait() == 0, "the exit code is not 0")
        stage.gateway.check_accounts_are_zero()
        check(len(stage.gateway.records()) == 3, f"{stage.gateway.records()}")


def subscriptions_that_are_forgotten(build):
    """A 481 to a NOTIFY is the end of the news, not of the call."""
    def forgotten(stage, *codes):
        for code in codes:
            notify = stage.a.expect("NOTIFY")
            check(f" {code} " in notify.body, f"{notify.body}, {code} expected")
            stage.a.answer(481, "Subscription Does Not Exist", request=notify)

    with Stage(build) as stage:
        stage.refer("a", "busy")
        forgotten(stage, 100, 486)
        stage.talk("a", "b")
        stage.refer("a", "c")
        stage.ring("c")
        forgotten(stage, 100, 180)
        stage.answer("c")
        forgotten(stage, 200)
        stage.bye_comes("a")
        stage.talk("b", "c")
        stage.bye("b")
        stage.bye_comes("c")
        stage.finish(a=("local", 200), b=("remote", 200), c=("local", 200))


def two_things_at_once_in_a_transfer(build):
    """Every two of these, in either order and without waiting for what the first one brings: all ends, with records."""
    def call(stage, method, path, body=None):
        for running in stage.calls()[:1]:
            stage.gateway.http(f"/api/calls/{running['id']}{path}", method, body)

    actions = {
        "a hangs up": lambda stage: stage.a.send("BYE"),
        "b hangs up": lambda stage: stage.b.send("BYE"),
        "c answers": lambda stage: stage.c.answer(200, "OK", sdp("127.0.0.1")),
        "c declines": lambda stage: stage.c.answer(603, "Decline"),
        "c answers and hangs up": lambda stage: (stage.c.answer(200, "OK", sdp("127.0.0.1")), stage.c.send("BYE")),
        "a refers again": lambda stage: stage.a.send("REFER", headers=(f"Refer-To: <sip:d@127.0.0.1:{stage.gateway.port}>",)),
        "b refers": lambda stage: stage.b.send("REFER", headers=(f"Refer-To: <sip:d@127.0.0.1:{stage.gateway.port}>",)),
        "a holds": lambda stage: stage.a.invite(sdp("127.0.0.1", extra="a=sendonly\r\n")),
        "the operator transfers": lambda stage: call(stage, "POST", "/transfer", {"leg": {"sip.out.requestUri": stage.d.uri}}),
        "the operator hangs up": lambda stage: call(stage, "DELETE", ""),
    }

    legs = set()

    def take(stage, party, message):
        if message.is_response:
            if message.method == "INVITE" and message.status >= 200:
                party.ack(message)
            return
        if message.method == "INVITE":
            party.take_invite(message)
            legs.add(message.get("Call-ID"))
        elif message.method != "ACK":
            stage.ok(party, message)
        if message.method == "CANCEL":
            party.answer(487, "Request Terminated")

    def serve(stage, until, what):
        """Answers what comes until the condition holds."""
        parties = {party.socket: party for party in (stage.a, stage.b, stage.c, stage.d)}
        deadline = time.monotonic() + DEADLINE_S
        while not until():
            check(time.monotonic() < deadline, f"{what}: {stage.calls()}")
            for ready in select.select(list(parties), [], [], 0.02)[0]:
                take(stage, parties[ready], parties[ready].receive())

    with Stage(build, connected=False, overrides={"quorvex.sip": {"t1Ms": 50}}, level="WARN") as stage:
        for first in actions:
            for second in actions:
                what = f"{first}, {second}"
                stage.a.__exit__()
                stage.a = Caller(stage.gateway.port, "b")
                for party in (stage.b, stage.c, stage.d):
                    party.cseq = 0
                stage.ports.clear()
                stage.connect()
                stage.refer("a", "c")
                stage.ring("c")
                stage.notified("a", 100, 180)
                legs.update((stage.a.call_id, stage.b.invitation.get("Call-ID"), stage.c.invitation.get("Call-ID")))
                actions[first](stage)
                actions[second](stage)
                quiet = time.monotonic() + 0.06
                serve(stage, lambda end=quiet: time.monotonic() > end, what)
                call(stage, "DELETE", "")
                serve(stage, lambda: not stage.calls(), what)
        stage.gateway.stop()
        check(len(stage.gateway.records()) == len(legs), f"{len(stage.gateway.records())} records of {len(legs)} legs")
        stage.gateway.check_accounts_are_zero()
        stage.gateway.check_log_is_clean()


TESTS = [either_party_transfers_the_other, who_asked_leaves_by_itself, a_failed_transfer_brings_the_parties_back_together,
         refers_that_cannot_be, one_transfer_at_a_time, parties_that_leave_while_the_new_one_rings,
         a_service_makes_way_for_a_party, a_party_that_was_called_by_an_operator_transfers, an_operator_transfers,
         headers_of_a_refer_to, who_has_consulted_another_joins_the_two,
         hold_and_resume_while_the_other_stays_up, subscriptions_that_are_forgotten,
         a_stop_in_the_middle_of_a_transfer, two_things_at_once_in_a_transfer]

if __name__ == "__main__":
    sys.exit(run(TESTS, sys.argv[1]))
