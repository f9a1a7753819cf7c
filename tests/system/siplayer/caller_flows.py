"""Flows in which sipp calls the user agent: (name, the agent's script, the scenario)."""
from scenario import SDP, Caller, linger, receive, respond, scenario, send, take_bye, use

A = Caller()
TRYING = receive(100, optional=True)
ANSWERED = TRYING + receive(180, optional=True) + receive(183, optional=True) + receive(200, rrs=True)
ESTABLISHED = A.invite() + ANSWERED + A.request("ACK", 1, "a1")
RELIABLE = ("Supported: 100rel",)


def refused(status):
    return A.invite() + TRYING + receive(status) + A.first("ACK")


def take_reinvite():
    return receive("INVITE") + respond(200, "OK", SDP) + receive("ACK")


def keep(header, variable):
    return ((header, variable),)


# What a re-INVITE of the agent says, kept while something else is received: variables 5 to 8.
KEEP_REINVITE = (("Via", 5), ("From", 6), ("To", 7), ("CSeq", 8))


def answer_kept(status, reason):
    return send([f"SIP/2.0 {status} {reason}", "Via:[$5]", "From:[$6]", "To:[$7]", "Call-ID: [call_id]",
                 "CSeq:[$8]"])


FLOWS = [
    ("answered, ended by the caller", "ring.answer", scenario(ESTABLISHED, A.bye())),
    ("answered, ended by the called", "answer.bye", scenario(ESTABLISHED, take_bye())),
    ("early media", "early.after30.answer",
     scenario(A.invite(), TRYING, receive(183), receive(200, rrs=True), A.request("ACK", 1, "a1"), A.bye())),
    ("PRACK", "reliable.answer",
     scenario(A.invite(extra=RELIABLE), TRYING, receive(183, rrs=True, save=keep("RSeq", 1)),
              A.request("PRACK", 2, "p", extra=("RAck: [$1] 1 INVITE",)), receive(200), receive(200, rrs=True),
              A.request("ACK", 1, "a1"), A.bye(3))),
    ("two reliable responses", "reliable.reliable.answer",
     scenario(A.invite(extra=("Require: 100rel",)), TRYING, receive(183, rrs=True, save=keep("RSeq", 1)),
              A.request("PRACK", 2, "p", extra=("RAck: [$1] 1 INVITE",)), receive(200),
              receive(183, save=keep("RSeq", 2)),
              A.request("PRACK", 3, "q", extra=("RAck: [$2] 1 INVITE",)), receive(200), receive(200, rrs=True),
              A.request("ACK", 1, "a1"), A.bye(4))),
    ("CANCEL after 180", "ring",
     scenario(A.invite(), TRYING, receive(180), A.first("CANCEL"), receive(200), receive(487), A.first("ACK"))),
    ("CANCEL before 180", "after5000.answer",
     scenario(A.invite(), receive(100), A.first("CANCEL"), receive(200), receive(487), A.first("ACK"))),
    ("CANCEL of reliable early media", "reliable",
     scenario(A.invite(extra=RELIABLE), TRYING, receive(183, rrs=True, save=keep("RSeq", 1)),
              A.request("PRACK", 2, "p", extra=("RAck: [$1] 1 INVITE",)), receive(200),
              A.first("CANCEL"), receive(200), receive(487), A.first("ACK"))),
    # The INVITE's transaction is over with its 2xx (RFC 3261 13.3.1.4), so the CANCEL finds none.
    ("CANCEL crossing 200", "answer",
     scenario(A.invite(), TRYING, receive(200, rrs=True, save=keep("To", 1)), A.first("CANCEL"), receive(200),
              A.request("ACK", 1, "a1", to_line="To:[$1]"), A.request("BYE", 2, "b", to_line="To:[$1]"), receive(200))),
    ("BYE on an early dialog", "ring.after5000.answer",
     scenario(A.invite(), TRYING, receive(180, rrs=True), A.request("BYE", 2, "b"), receive(487), receive(200),
              A.first("ACK"))),
    ("re-INVITE by the caller", "answer",
     scenario(ESTABLISHED, A.request("INVITE", 2, "r", SDP), TRYING, receive(200), A.request("ACK", 2, "a2"), A.bye(3))),
    ("re-INVITE answered late", "slow300.answer",
     scenario(ESTABLISHED, A.request("INVITE", 2, "r", SDP), TRYING, receive(200), A.request("ACK", 2, "a2"), A.bye(3))),
    ("CANCEL of a re-INVITE", "slow5000.answer",
     scenario(ESTABLISHED, A.request("INVITE", 2, "r", SDP, retrans=0), receive(100),
              A.request("CANCEL", 2, "r", retrans=0), receive(200), receive(487), A.request("ACK", 2, "r"),
              A.bye(3))),
    ("second INVITE while the first is unanswered", "slow400.answer",
     scenario(ESTABLISHED, A.request("INVITE", 2, "r", SDP, retrans=0), receive(100),
              A.request("INVITE", 3, "s", SDP, retrans=0), receive(500), A.request("ACK", 3, "s"),
              receive(200), A.request("ACK", 2, "a2"), A.bye(4))),
    ("re-INVITE by the called", "answer.reinvite.bye", scenario(ESTABLISHED, take_reinvite(), take_bye())),
    ("glare", "answer.reinvite",
     scenario(ESTABLISHED, receive("INVITE", save=KEEP_REINVITE), use("5", "6", "7", "8"),
              A.request("INVITE", 2, "r", SDP), TRYING, receive(491), A.request("ACK", 2, "r"),
              answer_kept(491, "Request Pending"), receive("ACK"), take_reinvite(), A.bye(3))),
    ("INFO both ways", "answer.info",
     scenario(ESTABLISHED, receive("INFO"), respond(200, "OK"), A.request("INFO", 2, "i"), receive(200), A.bye(3))),
    ("redirected", "redirect", scenario(refused(302))),
    ("refused", "ring.refuse486",
     scenario(A.invite(), TRYING, receive(180), receive(486), A.first("ACK"))),
    ("no such user", "nobody", scenario(refused(404))),
    ("unknown extension required", "answer",
     scenario(A.invite(extra=("Require: nothing-of-ours",)), TRYING, receive(420), A.first("ACK"))),
    ("out-of-order CSeq", "answer",
     scenario(ESTABLISHED, A.request("INFO", 9, "i"), receive(200), A.request("INFO", 3, "j"), receive(500),
              A.bye(10))),
    ("lost ACK", "answer",
     scenario(A.invite(), TRYING, receive(200, rrs=True), take_bye())),
    ("lost ACK of a re-INVITE", "answer",
     scenario(ESTABLISHED, A.request("INVITE", 2, "r", SDP), TRYING, receive(200), take_bye())),
    ("lost BYE answer", "answer.bye", scenario(ESTABLISHED, receive("BYE"), linger(1500))),
    ("re-INVITE never answered", "answer.reinvite.bye",
     scenario(ESTABLISHED, receive("INVITE"), take_bye())),
    ("never PRACKed", "reliable.answer",
     scenario(A.invite(extra=RELIABLE), TRYING, receive(183), receive(503), A.first("ACK"))),
]

# Messages lost on the way: everything is repeated, on both sides.
LOSSY = [
    ("20 % lost, ended by the caller", "ring.answer", scenario(ESTABLISHED, A.bye(), linger(1500))),
    ("20 % lost, ended by the called", "early.answer.bye", scenario(ESTABLISHED, take_bye(1500))),
]
