#!/usr/bin/env python3
"""What a called party can do in each state of an outbound call, written as ladders between a caller and the parties that the
gateway calls for it: a sipp each.

A word alone is what the caller receives next ("183+": with SDP); ">CANCEL" is what it sends. "b:INVITE" is what party b
receives next, "b>183+" what it answers its INVITE with, "b>BYE" a request of its own: "+" with SDP, "-" with SDP that nobody
can use, ":name" with the headers of that name. What comes may have to carry a header: "b:INVITE=Subject:moved". The caller
begins with an INVITE and acknowledges failures by itself; parties answer BYE, CANCEL and NOTIFY, with 200 or as in
"b:CANCEL>481". "!TERM" stops the gateway."""
import re
import sys
import threading
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import Failure, Gateway, check, run  # noqa: E402
from sipp_ladder import ANSWER, Called, Caller, Play, perform, turns  # noqa: E402

TALK = " b:ACK >BYE 200 b:BYE"
GIVEN_UP = " b:CANCEL b>487 b:ACK 200 487"
OK, CALLED_OFF = (200, "local"), (487, "local")
CPA = {"sip.out.cpa.enabled": "true"}

# name: ladder, ends of the caller's leg and of each leg that is placed (status, who ended it, what analysis heard), parameters
# of the leg
ROWS = {
    "answered at once": ("b:INVITE b>200+ 200+" + TALK, (200, "remote"), [OK], {}),
    "ringing twice": ("b:INVITE b>100 b>180 180 b>180 b>200+ 200+" + TALK, (200, "remote"), [OK], {}),
    "ringing with media": ("b:INVITE b>180+ 180+ b>200+ 200+" + TALK, (200, "remote"), [OK], {}),
    "early media, then ringing": ("b:INVITE b>183+ 183+ b>180 180 b>200+ 200+" + TALK, (200, "remote"), [OK], {}),
    "180 ignored": ("b:INVITE b>180 b>200+ 200+" + TALK, (200, "remote"), [OK], {"sip.out.ignore180": "TRUE"}),
    "183 is ringing": ("b:INVITE b>183 180 b>200+ 200+" + TALK, (200, "remote"), [OK], {"sip.out.accept183": "true"}),
    "a storm of 1xx": ("b:INVITE" + 100 * " b>183 b>180 b>199" + " 180 b>486 b:ACK 486", (486, "local"), [(486, "remote")], {}),
    "media nobody can use, early": ("b:INVITE b>183- b:CANCEL b>487 b:ACK 488", (488, "local"), [(488, "local")], {}),
    "media nobody can use, answered": ("b:INVITE b>180 180 b>200- b:ACK b:BYE 488", (488, "local"), [OK], {}),
    "an answer without media": ("b:INVITE b>200 b:ACK b:BYE 488", (488, "local"), [OK], {}),
    "401 without credentials": ("b:INVITE b>401:elsewhere b:ACK 401", (401, "local"), [(401, "remote")], {}),
    "401": ("b:INVITE b>401:challenge b:ACK b:INVITE b>200+ 200+" + TALK, (200, "remote"), [OK], {}),
    "407": ("b:INVITE b>407:proxy b:ACK b:INVITE b>180 180 b>200+ 200+" + TALK, (200, "remote"), [OK], {}),
    "401, refused all the same": ("b:INVITE b>401:challenge b:ACK b:INVITE b>401:challenge b:ACK 401", (401, "local"),
                                  [(401, "remote")], {}),
    "487 unasked": ("b:INVITE b>487 b:ACK 487", (487, "local"), [(487, "remote")], {}),
    "487 unasked, ringing": ("b:INVITE b>180 180 b>487 b:ACK 487", (487, "local"), [(487, "remote")], {}),
    "an unheard-of failure": ("b:INVITE b>180 180 b>499 b:ACK 499", (499, "local"), [(499, "remote")], {}),
    "given up, ringing": ("b:INVITE b>180 180 >CANCEL" + GIVEN_UP, (487, "remote"), [CALLED_OFF], {}),
    "given up, early media": ("b:INVITE b>183+ 183+ >CANCEL" + GIVEN_UP, (487, "remote"), [CALLED_OFF], {}),
    "given up before a word": ("b:INVITE >CANCEL 200 487 b>100 b:CANCEL b>487 b:ACK", (487, "remote"), [CALLED_OFF], {}),
    "given up, then busy": ("b:INVITE b>180 180 >CANCEL b:CANCEL b>486 b:ACK 200 487", (487, "remote"), [(486, "local")], {}),
    "given up, then not found": ("b:INVITE b>180 180 >CANCEL b:CANCEL b>404 b:ACK 200 487", (487, "remote"), [(404, "local")], {}),
    "given up, then moved": ("b:INVITE b>180 180 >CANCEL b:CANCEL b>302:c b:ACK 200 487", (487, "remote"), [(302, "local")], {}),
    "given up, then ringing": ("b:INVITE b>180 180 >CANCEL b:CANCEL b>180 b>487 b:ACK 200 487", (487, "remote"), [CALLED_OFF], {}),
    "given up, answered": ("b:INVITE b>180 180 >CANCEL b:CANCEL b>200+ b:ACK b:BYE 200 487", (487, "remote"), [OK], {}),
    "answered twice": ("b:INVITE b>200+ b:ACK 200+ b>200+:fork b:ACK b:BYE >BYE 200 b:BYE", (200, "remote"), [OK], {}),
    "CPD-Result": ("b:INVITE b>200+:cpd b:ACK 200+=CPD-Result:Machine >BYE 200 b:BYE", (200, "remote"), [(*OK, "machine")], {}),
    "CPD-Result: busy": ("b:INVITE b>200+:cpdbusy b:ACK 486=CPD-Result:Busy b:BYE", (486, "local"), [(*OK, "busy")], {}),
    "a CPD-Result that is none": ("b:INVITE b>200+:nocpd b:ACK 200+=CPD-Result: >BYE 200 b:BYE", (200, "remote"), [OK], {}),
    "given up, unheard": ("b:INVITE b>180 180 >CANCEL b:CANCEL>481 200 487", (487, "remote"), [CALLED_OFF], {}),
    "BYE in analysis": ("b:INVITE b>200+ b:ACK b>BYE b:200 480=CPD-Result:RemoteHangUp", (480, "local"),
                        [(200, "remote", "hungUpInAnalysis")], CPA),
    "REFER in analysis": ("b:INVITE b>200+ b:ACK b>REFER:nobody 200+=CPD-Result: b:202 b:NOTIFY b:NOTIFY >BYE 200 b:BYE",
                          (200, "remote"), [(*OK, "none")], CPA),
    "re-INVITE in analysis": ("b:INVITE b>200+ b:ACK b>INVITE+ 200+ b:200 b>ACK >BYE 200 b:BYE", (200, "remote"),
                              [(*OK, "none")], CPA),
    "given up in analysis": ("b:INVITE b>200+ b:ACK >CANCEL b:BYE 200 487", (487, "remote"), [OK], CPA),
    "moved": ("b:INVITE b>302:c b:ACK c:INVITE c>200+ c:ACK 200+ >BYE 200 c:BYE", (200, "remote"), [(302, "remote"), OK], {}),
    "moved, ringing": ("b:INVITE b>180 180 b>301:c b:ACK c:INVITE c>200+ c:ACK 200+ >BYE 200 c:BYE", (200, "remote"),
                       [(301, "remote"), OK], {}),
    "moved by preference": ("b:INVITE b>300:choice b:ACK d:INVITE d>486 d:ACK c:INVITE c>486 c:ACK 486", (486, "local"),
                            [(300, "remote"), (486, "remote"), (486, "remote")], {}),
    "moved again": ("b:INVITE b>302:choice b:ACK d:INVITE d>302:again d:ACK c:INVITE c>486 c:ACK 486", (486, "local"),
                    [(302, "remote"), (302, "remote"), (486, "remote")], {}),
    "moved by one of two to nothing": ("b:INVITE b>302:choice b:ACK d:INVITE d>302 d:ACK c:INVITE c>302:e c:ACK e:INVITE e>486 e:ACK 486",
                                       (486, "local"), [(302, "remote")] * 3 + [(486, "remote")], {}),
    "moved with headers": ("b:INVITE b>302:headers b:ACK c:INVITE=Subject:moved c>486 c:ACK 486", (486, "local"),
                           [(302, "remote"), (486, "remote")], {}),
    "moved to itself": ("b:INVITE b>302:itself b:ACK 480", (480, "local"), [(302, "remote")], {}),
    "moved to nothing": ("b:INVITE b>302 b:ACK 480", (480, "local"), [(302, "remote")], {}),
    "moved to a star": ("b:INVITE b>302:star b:ACK 480", (480, "local"), [(302, "remote")], {}),
    "moved to a telephone": ("b:INVITE b>302:tel b:ACK 500", (500, "local"), [(302, "remote"), (500, "local")], {}),
    "moved to another method": ("b:INVITE b>302:method b:ACK 500", (500, "local"), [(302, "remote"), (500, "local")], {}),
    "moved to garbage": ("b:INVITE b>302:garbage b:ACK 480", (480, "local"), [(302, "remote")], {}),
    "busy, in garbage": ("b:INVITE b>180:garbage 180 b>486:garbage b:ACK 486", (486, "local"), [(486, "remote")], {}),
    "answered in garbage": ("b:INVITE b>180:garbage 180 b>200+:garbage 200+" + TALK, (200, "remote"), [OK], {}),
    "moved to no host": ("b:INVITE b>302:nowhere b:ACK 500", (500, "local"), [(302, "remote"), (500, "local")], {}),
    "305": ("b:INVITE b>305:c b:ACK c:INVITE c>486 c:ACK 486", (486, "local"), [(305, "remote"), (486, "remote")], {}),
}
ENDED_BY_TIMERS = {"given up, unheard"}
STOPPED = {
    "stopped before a word": ("b:INVITE !TERM 503 b>100 b:CANCEL b>487 b:ACK", (503, "stop"), [(487, "stop")], {}),
    "stopped, ringing": ("b:INVITE b>180 180 !TERM 503 b:CANCEL b>487 b:ACK", (503, "stop"), [(487, "stop")], {}),
    "stopped, early media": ("b:INVITE b>183+ 183+ !TERM 503 b:CANCEL b>487 b:ACK", (503, "stop"), [(487, "stop")], {}),
    "stopped, talking": ("b:INVITE b>200+ 200+ b:ACK !TERM BYE b:BYE", (200, "stop"), [(200, "stop")], {}),
    "stopped in analysis": ("b:INVITE b>200+ b:ACK !TERM 503 b:BYE", (503, "stop"), [(200, "stop")], CPA),
}
CREDENTIAL = {"realm": "callee.test", "user": "gw", "password": "secret"}


class Row:
    """One call: the caller and the parties that may be called for it."""

    def __init__(self, number, name, rows):
        self.number, self.name = number, name
        self.ladder, self.incoming, self.outgoing, self.parameters = rows[name]
        self.parties = {letter: Called() for letter in "bcde"}

    def route(self):
        return {"name": f"r{self.number}", "match": {"sip.in.requestUri": f"^sip:r{self.number}@"},
                "leg": {"sip.out.requestUri": self.parties["b"].uri, **self.parameters}}

    def headers(self, name):
        b, c, d, e = (self.parties[letter].uri for letter in "bcde")
        digest = 'Digest realm="{}", nonce="' + f"n{self.number}" + '", algorithm=MD5'
        return {
            "": (), "c": (f"Contact: <{c}>",), "e": (f"Contact: <{e}>",), "choice": (f"Contact: <{c}>;q=0.2, <{d}>;q=0.7",), "star": ("Contact: *",),
            "again": (f"Contact: <{b}>, <{d}>;q=1, <{c}>",),
            "itself": (f"Contact: <{b}>, <{b};transport=udp>",), "tel": ("Contact: <tel:+15551234>",),
            "method": (f"Contact: <{c};method=SUBSCRIBE>",), "garbage": ("Contact: <<<<", "Record-Route: <<<<", "Session-Expires: soon", "Require: ;;", "RSeq: x"),
            "nowhere": ("Contact: <sip:x@no-such-host.invalid>",), "headers": (f"Contact: <{c}?Subject=moved&Call-ID=mine>",),
            "challenge": ("WWW-Authenticate: " + digest.format("callee.test"),),
            "proxy": ("Proxy-Authenticate: " + digest.format("callee.test"),),
            "elsewhere": ("WWW-Authenticate: " + digest.format("elsewhere.test"),),
            "cpd": ("CPD-Result: machine",), "cpdbusy": ("CPD-Result: Busy",), "nocpd": ("CPD-Result: an elephant",), "fork": (),
            "nobody": ("Refer-To: <sip:nobody@127.0.0.1>",),
        }[name]

    def say(self, party, what, variant, name):
        body = {"+": ANSWER, "-": "v=0\n", "": ""}[variant]
        party.say(what, body, self.headers(name), ";tag=[pid]fork" if name == "fork" else ";tag=[pid]b")

    def caller_hears(self, caller, what, header):
        is_final = what[:1] in "23456"
        method, _ = caller.hear(what, ["180"] if is_final else [], header) or ("BYE", 0)
        if what == "BYE":
            caller.respond("200", "request")
        elif method == "INVITE" and is_final:
            caller.say("ACK")

    def play(self, gateway, commands):
        """The sipps of the call. Each tells what others wait for: what is said just before it, as the answer comes at once;
        an ACK, which has none, after it."""
        caller = Caller(gateway, f"r{self.number}")
        caller.say("INVITE")
        parties = {"a": caller, **{letter: party for letter, party in self.parties.items() if letter + ":" in self.ladder}}
        words = [re.fullmatch(r"(?:([b-e])(?=[>:]))?(:?([>!]?).*)", word).groups("a") for word in self.ladder.split()]
        before = turns([(letter, speaks in (">", "!")) for letter, _, speaks in words])
        awaited = set().union(*before.values())
        for number, (letter, word, speaks) in enumerate(words):
            party = parties[letter]
            if number in before:
                party.tell(f"turn {number}", wait=True)
            answered = speaks and not word.endswith("ACK")
            if number in awaited and answered:
                party.tell(f"done {number}")
            if letter != "a" and speaks:
                self.say(party, *re.fullmatch(r">(\w+)([-+]?):?(\w*)", word).groups())
            elif letter != "a":
                party.hear(*re.fullmatch(r":(\w+)>?(\d*)=?(\S*)", word).groups())
            elif speaks:
                party.word(word)
            else:
                what, _, header = word.partition("=")
                self.caller_hears(party, what, header)
            if number in awaited and not answered:
                party.tell(f"done {number}")
        return Play(gateway, self.number, f"{self.name}: {self.ladder[:120]}", [*list(parties.values())[1:], caller], commands,
                    before)

    def check_uncalled(self):
        for letter, party in self.parties.items():
            if letter + ":" not in self.ladder:
                party.socket.setblocking(False)
                try:
                    raise Failure(f"{self.name}: {letter} received {party.socket.recv(65536)}")
                except BlockingIOError:
                    party.socket.close()

    def check(self, records):
        legs = sorted((record for record in records if record["route"] == f"r{self.number}"), key=lambda record: record["leg"])
        ends = [(leg["status"], leg["endedBy"]) + ((leg["cpa"],) if leg["cpa"] else ()) for leg in legs]
        check(ends == [self.incoming, *self.outgoing], f"{self.name}: recorded as {ends}")
        silent = [leg for leg in legs[1:] if not leg["answered"] and not leg["reason"]]
        check(not silent, f"{self.name}: no reason in {silent}")


def play(build, rows, stop, commands, **sip):
    """The rows against a gateway, which `stop` then ends."""
    overrides = {"quorvex.sip": {"credential": [CREDENTIAL], **sip}, "quorvex.media": {"cpaMaxTimeMs": 2000}}
    with Gateway(build, overrides, [row.route() for row in rows]) as gateway:
        given = {name: lambda _, command=command: command(gateway) for name, command in commands.items()}
        faults = perform([row.play(gateway, given) for row in rows], lambda: stop(gateway))
        for row in rows:
            try:
                row.check(gateway.records())
                row.check_uncalled()
            except Failure as failure:
                faults.append(str(failure))
        check(not faults, "\n  ".join(faults))
        gateway.check_accounts_are_zero()
        check("Assertion failed" not in gateway.log(), "an assertion failed")


def each_state_and_what_can_happen_in_it(build):
    for names, t1 in ((ROWS.keys() - ENDED_BY_TIMERS, 2000), (ENDED_BY_TIMERS, 50)):
        garbage = sum(ROWS[name][0].count(":garbage") for name in names)

        def stop(gateway, garbage=garbage):
            counted = re.search(r"^quorvex_sip_unreadable_headers_total (\d+)$", gateway.http("/metrics")[1], re.MULTILINE)
            told = gateway.log().count("took a header that cannot be read for absent in a response from ")
            check(int(counted[1]) >= garbage and (told > 0) == (garbage > 0),
                  f"{counted[1]} unreadable responses are counted and {told} told, of {garbage}")
            gateway.stop()
        play(build, [Row(number, name, ROWS) for number, name in enumerate(sorted(names))], stop, {}, t1Ms=t1)


def the_gateway_is_stopped_in_each_state(build):
    barrier = threading.Barrier(len(STOPPED))

    def stop(gateway):
        if barrier.wait(20) == 0:
            gateway.signal()

    play(build, [Row(number, name, STOPPED) for number, name in enumerate(STOPPED)], Gateway.check_end, {"TERM": stop}, t1Ms=2000)


if __name__ == "__main__":
    sys.exit(run([each_state_and_what_can_happen_in_it, the_gateway_is_stopped_in_each_state], sys.argv[1]))
