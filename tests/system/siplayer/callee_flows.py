"""Flows in which the user agent calls sipp: (name, the agent's script, the scenario)."""
from scenario import SDP, Callee, linger, pause, receive, respond, scenario, send, take_bye, use

A = Callee()
INVITED = A.receive_invite()
RING = A.answer(180, "Ringing")
ACK = receive("ACK")
ESTABLISHED = INVITED + RING + A.accept() + ACK


def reliable(number, tag=Callee.TAG):
    return A.answer(183, "Session Progress", SDP, ("Require: 100rel", f"RSeq: {number}"), tag, A.retrans)


def refused(status, reason, extra=()):
    return INVITED + A.answer(status, reason, extra=extra, retrans=A.retrans) + ACK


# A later request of the agent, kept while something else is received: variables 5 to 8.
KEEP = (("Via", 5), ("From", 6), ("To", 7), ("CSeq", 8))


def answer_kept(status, reason, retrans=0):
    return send([f"SIP/2.0 {status} {reason}", "Via:[$5]", "From:[$6]", "To:[$7]", "Call-ID: [call_id]",
                 "CSeq:[$8]"], retrans=retrans)


def take_reinvite():
    return receive("INVITE") + respond(200, "OK", SDP) + ACK


CHALLENGE = ('WWW-Authenticate: Digest realm="test", nonce="8f3c0a[call_number]", algorithm=MD5, qop="auth"',)
VERIFY = '<verifyauth assign_to="9" username="agent" password="secret"/>'

FLOWS = [
    ("answered, ended by the caller", "answered.after30.bye", scenario(ESTABLISHED, take_bye())),
    ("answered, ended by the called", "answered", scenario(ESTABLISHED, A.bye())),
    ("answered, ACK and BYE at once", "answered.bye", scenario(INVITED, A.accept(), ACK, take_bye())),
    ("early media", "answered.bye",
     scenario(INVITED, A.answer(183, "Session Progress", SDP), pause(30), A.accept(), ACK, take_bye())),
    ("PRACK", "answered.bye",
     scenario(INVITED, reliable(17), receive("PRACK"), respond(200, "OK"), A.accept(), ACK, take_bye())),
    ("two reliable responses, one repeated", "answered.bye",
     scenario(INVITED, reliable(17), receive("PRACK"), respond(200, "OK"), reliable(18), receive("PRACK"),
              respond(200, "OK"), A.accept(), ACK, take_bye())),
    ("CANCEL after 180", "ringing.bye",
     scenario(INVITED, RING, receive("CANCEL"), respond(200, "OK"),
              A.answer(487, "Request Terminated", retrans=A.retrans), ACK)),
    ("CANCEL before 180", "after30.bye",
     scenario(INVITED, pause(60), A.answer(100, "Trying", tag=""), receive("CANCEL"), respond(200, "OK"),
              A.answer(487, "Request Terminated", retrans=A.retrans), ACK)),
    ("CANCEL crossing 200", "ringing.bye",
     scenario(INVITED, RING, receive("CANCEL", save=KEEP), use("5", "6", "7", "8"), A.answer(200, "OK", SDP), ACK,
              take_bye(), answer_kept(200, "OK"))),
    ("CANCEL answered, then 200", "ringing.bye",
     scenario(INVITED, RING, receive("CANCEL"), respond(200, "OK"), A.accept(), ACK, take_bye())),
    ("CANCEL answered, no final response", "ringing.bye",
     scenario(INVITED, RING, receive("CANCEL"), respond(200, "OK"), linger(1500))),
    ("re-INVITE by the called", "answered",
     scenario(ESTABLISHED, A.request("INVITE", 1, "r", SDP), receive(100, optional=True), receive(200),
              A.request("ACK", 1, "a"), A.bye())),
    ("re-INVITE by the caller", "answered.reinvite.bye", scenario(ESTABLISHED, take_reinvite(), take_bye())),
    ("re-INVITE refused", "answered.reinvite.bye",
     scenario(ESTABLISHED, receive("INVITE"), respond(488, "Not Acceptable Here"), ACK, take_bye())),
    ("glare", "answered.reinvite",
     scenario(ESTABLISHED, receive("INVITE", save=KEEP), use("5", "6", "7", "8"),
              A.request("INVITE", 1, "r", SDP), receive(100, optional=True), receive(491),
              A.request("ACK", 1, "r"), answer_kept(491, "Request Pending"), ACK, take_reinvite(), A.bye())),
    ("redirected to the agent itself", "follow.answered.after30.bye",
     scenario(refused(302, "Moved Temporarily", ("Contact: <sip:ring.answer@AGENT>",)))),
    ("401 with digest", "answered.bye",
     scenario(refused(401, "Unauthorized", CHALLENGE),
              receive("INVITE", rrs=True, save=(("Via", 1), ("From", 2), ("To", 3), ("CSeq", 4)), lookahead=VERIFY),
              '<nop><action><test assign_to="10" variable="9" compare="equal" value="1"/></action></nop>',
              use("9", "10"), A.accept(), ACK, take_bye())),
    ("401 twice", "answered",
     scenario(refused(401, "Unauthorized", CHALLENGE), refused(401, "Unauthorized", CHALLENGE))),
    ("forked 200s", "answered.after300.bye",
     scenario(INVITED, A.accept(), ACK, A.answer(200, "OK", SDP, tag=";tag=other[call_number]"), ACK,
              receive("BYE"), respond(200, "OK"), take_bye())),
    ("forked 180s", "answered.bye",
     scenario(INVITED, A.answer(180, "Ringing", tag=";tag=one"), A.answer(183, "Session Progress", SDP, tag=";tag=two"),
              RING, A.accept(), ACK, take_bye())),
    ("refused", "answered", scenario(refused(486, "Busy Here"))),
    ("refused everywhere, after ringing", "answered",
     scenario(INVITED, RING, A.answer(603, "Decline", retrans=A.retrans), ACK)),
    ("lost BYE answer", "answered.bye", scenario(ESTABLISHED, receive("BYE"), linger(1500))),
    ("never answered", "ringing", scenario(INVITED, linger(1500))),
    ("re-INVITE without an ACK", "answered",
     scenario(ESTABLISHED, A.request("INVITE", 1, "r", SDP), receive(100, optional=True), receive(200),
              take_bye())),
    ("BYE crossing BYE", "answered.after30.bye",
     scenario(ESTABLISHED, receive("BYE", save=KEEP), use("5", "6", "7", "8"),
              A.bye(), answer_kept(200, "OK"))),
]

LOSSY = [
    ("20 % lost, ended by the caller", "answered.after30.bye", scenario(ESTABLISHED, take_bye(1500))),
    ("20 % lost, ended by the called", "answered", scenario(ESTABLISHED, A.bye(), linger(1500))),
]
