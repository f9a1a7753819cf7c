#!/usr/bin/env python3
"""What a called party can do in each state of an outbound call, written as ladders between a caller and the parties that the
gateway calls for it.

A word alone is what the caller receives next ("183+": with SDP); ">CANCEL" is what it sends. "b:INVITE" is what party b
receives next, "b>183+" what it answers its INVITE with, "b>BYE" a request of its own: "+" with SDP, "-" with SDP that nobody
can use, ":name" with the headers of that name. What comes may have to carry a header: "b:INVITE=Subject:moved". The caller
begins with an INVITE and acknowledges failures by itself; parties answer BYE, CANCEL and NOTIFY, with 200 or as in
"b:CANCEL>481". "!TERM" stops the gateway."""
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from callee import Callee  # noqa: E402
from harness import Failure, Gateway, check, run  # noqa: E402
from sipua import Caller, sdp, unique  # noqa: E402

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
    "moved to garbage": ("b:INVITE b>302:garbage 480", (480, "local"), [(480, "timeout")], {}),
    "moved to no host": ("b:INVITE b>302:nowhere b:ACK 500", (500, "local"), [(302, "remote"), (500, "local")], {}),
    "305": ("b:INVITE b>305:c b:ACK c:INVITE c>486 c:ACK 486", (486, "local"), [(305, "remote"), (486, "remote")], {}),
}
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
        self.parties = {letter: Callee() for letter in "bcde"}

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
            "method": (f"Contact: <{c};method=SUBSCRIBE>",), "garbage": ("Contact: <<<<",),
            "nowhere": ("Contact: <sip:x@no-such-host.invalid>",), "headers": (f"Contact: <{c}?Subject=moved&Call-ID=mine>",),
            "challenge": ("WWW-Authenticate: " + digest.format("callee.test"),),
            "proxy": ("Proxy-Authenticate: " + digest.format("callee.test"),),
            "elsewhere": ("WWW-Authenticate: " + digest.format("elsewhere.test"),),
            "cpd": ("CPD-Result: machine",), "cpdbusy": ("CPD-Result: Busy",), "nocpd": ("CPD-Result: an elephant",), "fork": (),
            "nobody": ("Refer-To: <sip:nobody@127.0.0.1>",),
        }[name]

    def say(self, party, what, variant, name):
        body = {"+": sdp("127.0.0.1", 40002, "0"), "-": "v=0\r\n", "": ""}[variant]
        own = party.tag
        party.tag = unique("fork") if name == "fork" else own
        if what.isdigit():
            party.answer(int(what), "Whatever", body, self.headers(name))
        else:
            party.send(what, body, "application/sdp", self.headers(name), party.cseq if what == "ACK" else None)
        party.tag = own

    def hear(self, party, what, status, header):
        message = party.expect(int(what) if what.isdigit() else what, skip=(100,) if what == "INVITE" else (100, "INVITE"))
        if what in ("BYE", "CANCEL", "NOTIFY"):
            party.answer(int(status or 200), "Whatever", request=message)
        self.check_header(message, header)

    def check_header(self, message, header):
        if header:
            name, value = header.split(":")
            check((message.get(name) or "") == value, f"{name} is {message.get(name)}")

    def caller_hears(self, caller, status, has_sdp, header):
        if status == "BYE":
            caller.answer(caller.expect("BYE"), 200, "OK")
            return
        message = caller.expect(int(status), seconds=10, skip=(100, 180) if int(status) >= 200 else (100,))
        check(not has_sdp or "m=audio" in message.body, f"the {status} carries no SDP")
        self.check_header(message, header)
        if int(status) >= 300:
            caller.ack(message)
        elif int(status) == 200 and message.method == "INVITE":
            caller.ack(message)

    def run(self, gateway):
        with Caller(gateway.port, f"r{self.number}") as caller:
            caller.invite(sdp("127.0.0.1"))
            for word in self.ladder.split():
                try:
                    said = re.fullmatch(r"([b-e])>(\w+)([-+]?):?(\w*)", word)
                    heard = re.fullmatch(r"([b-e]):(\w+)>?(\d*)=?(\S*)", word)
                    if said:
                        self.say(self.parties[said[1]], *said.groups()[1:])
                    elif heard:
                        self.hear(self.parties[heard[1]], *heard.groups()[1:])
                    elif word == ">CANCEL":
                        caller.cancel()
                    elif word == "!TERM":
                        gateway.signal()
                    elif word[0] == ">":
                        caller.send(word[1:])
                    else:
                        status, _, header = word.partition("=")
                        self.caller_hears(caller, status.rstrip("+"), status.endswith("+"), header)
                except Failure as failure:
                    raise Failure(f"{self.name}: at {word} of \"{self.ladder}\": {failure}") from None
            for letter, party in self.parties.items():
                if letter + ":" not in self.ladder:
                    party.nothing(0.01)

    def check(self, records):
        legs = sorted((record for record in records if record["route"] == f"r{self.number}"), key=lambda record: record["leg"])
        ends = [(leg["status"], leg["endedBy"]) + ((leg["cpa"],) if leg["cpa"] else ()) for leg in legs]
        check(ends == [self.incoming, *self.outgoing], f"{self.name}: recorded as {ends}")
        silent = [leg for leg in legs[1:] if not leg["answered"] and not leg["reason"]]
        check(not silent, f"{self.name}: no reason in {silent}")


def play(build, rows, stop):
    """The rows against a gateway, which `stop` then ends."""
    overrides = {"quorvex.sip": {"t1Ms": 100, "credential": [CREDENTIAL]}, "quorvex.media": {"cpaMaxTimeMs": 2000}}
    with Gateway(build, overrides, [row.route() for row in rows]) as gateway:
        failures = []
        for row in rows:
            try:
                row.run(gateway)
            except Failure as failure:
                failures.append(str(failure))
        stop(gateway)
        for row in rows:
            try:
                row.check(gateway.records())
            except Failure as failure:
                failures.append(str(failure))
        check(not failures, "\n  ".join(failures))
        gateway.check_accounts_are_zero()
        check("Assertion failed" not in gateway.log(), "an assertion failed")


def each_state_and_what_can_happen_in_it(build):
    play(build, [Row(number, name, ROWS) for number, name in enumerate(ROWS)], Gateway.stop)


def the_gateway_is_stopped_in_each_state(build):
    for name in STOPPED:
        play(build, [Row(0, name, STOPPED)], Gateway.check_end)


if __name__ == "__main__":
    sys.exit(run([each_state_and_what_can_happen_in_it, the_gateway_is_stopped_in_each_state], sys.argv[1]))
