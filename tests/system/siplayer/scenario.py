"""Writes sipp scenarios from a few words."""

SDP = ("v=0\no=sipp 1 1 IN IP4 [local_ip]\ns=-\nc=IN IP4 [local_ip]\nt=0 0\nm=audio 5998 RTP/AVP 0\n")


def scenario(*steps):
    return ('<?xml version="1.0" encoding="ISO-8859-1" ?>\n<scenario name="flow">\n' + "\n".join(steps) +
            "\n</scenario>\n")


def message(lines, body="", content_type="application/sdp"):
    head = "\n".join(line for line in lines if line)
    if body:
        head += f"\nContent-Type: {content_type}"
    return f"<![CDATA[\n{head}\nContent-Length: [len]\n\n{body}]]>"


def send(lines, body="", retrans=0, content_type="application/sdp"):
    attribute = f' retrans="{retrans}"' if retrans else ""
    return f"<send{attribute}>{message(lines, body, content_type)}</send>"


def receive(what, optional=False, rrs=False, save=(), lookahead=""):
    """`what` is a status code or a method; `save` is a list of (header, variable)."""
    kind = "response" if isinstance(what, int) else "request"
    attributes = f'{kind}="{what}"'
    if optional:
        attributes += ' optional="true"'
    if rrs:
        attributes += ' rrs="true"'
    actions = "".join(f'<ereg regexp=".*" search_in="hdr" header="{header}:" assign_to="{variable}"/>'
                      for header, variable in save)
    return f"<recv {attributes}><action>{actions}{lookahead}</action></recv>" if actions or lookahead \
        else f"<recv {attributes}/>"


def pause(milliseconds):
    return f'<pause milliseconds="{milliseconds}"/>'


def linger(milliseconds):
    """Keeps the finished call for what is retransmitted."""
    return f'<timewait milliseconds="{milliseconds}"/>'


def use(*variables):
    return f'<Reference variables="{",".join(variables)}"/>'


class Caller:
    """What the calling side sends: sipp placed the call."""

    def __init__(self, retrans=100):
        self.retrans = retrans

    def request(self, method, cseq, branch, body="", extra=(), uri="[next_url]", to="[peer_tag_param]", retrans=None,
                to_line=None):
        if retrans is None:
            retrans = 0 if method == "ACK" else self.retrans
        return send([f"{method} {uri} SIP/2.0",
                     f"Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=z9hG4bK[pid]x[call_number]x{branch}",
                     "From: <sip:sipp@[local_ip]:[local_port]>;tag=[pid]c[call_number]",
                     to_line or f"To: <sip:[service]@[remote_ip]:[remote_port]>{to}",
                     "Call-ID: [call_id]", f"CSeq: {cseq} {method}",
                     "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>", "Max-Forwards: 70", *extra],
                    body, retrans)

    def first(self, method, branch=1, body="", extra=()):
        """The INVITE, its CANCEL, and the ACK of its failure: all have its branch."""
        to = "[peer_tag_param]" if method == "ACK" else ""
        return self.request(method, 1, branch, body, extra, "sip:[service]@[remote_ip]:[remote_port]", to,
                            None if method != "CANCEL" else 0)

    def invite(self, extra=()):
        return self.first("INVITE", body=SDP, extra=extra)

    def bye(self, cseq=2):
        return self.request("BYE", cseq, f"b{cseq}") + receive(200)


class Callee:
    """What the called side sends; `receive_invite` comes first and keeps the headers of the INVITE."""

    TAG = ";tag=[pid]s[call_number]"

    def __init__(self, retrans=100):
        self.retrans = retrans

    def receive_invite(self):
        return receive("INVITE", rrs=True,
                       save=(("Via", 1), ("From", 2), ("To", 3), ("CSeq", 4))) + use("1", "2", "3", "4")

    def answer(self, status, reason, body="", extra=(), tag=TAG, retrans=0):
        """A response to the INVITE that was kept."""
        return send([f"SIP/2.0 {status} {reason}", "Via:[$1]", "From:[$2]", f"To:[$3]{tag}", "Call-ID: [call_id]",
                     "CSeq:[$4]", "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>", *extra],
                    body, retrans)

    def accept(self, body=SDP):
        return self.answer(200, "OK", body, retrans=self.retrans)

    def request(self, method, cseq, branch, body="", retrans=None):
        if retrans is None:
            retrans = 0 if method == "ACK" else self.retrans
        return send([f"{method} [next_url] SIP/2.0",
                     f"Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=z9hG4bK[pid]x[call_number]x{branch}",
                     f"From:[$3]{self.TAG}", "To:[$2]", "Call-ID: [call_id]", f"CSeq: {cseq} {method}",
                     "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>", "Max-Forwards: 70"],
                    body, retrans)

    def bye(self, cseq=2):
        return self.request("BYE", cseq, f"b{cseq}") + receive(200)


def respond(status, reason, body="", extra=()):
    """To the request received last."""
    return send([f"SIP/2.0 {status} {reason}", "[last_Via:]", "[last_From:]", "[last_To:]", "[last_Call-ID:]",
                 "[last_CSeq:]", "Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>", *extra], body)


def take_bye(milliseconds=0):
    # Each copy of a 2xx that was sent again has an ACK of its own.
    return receive("ACK", optional=True) + receive("BYE") + respond(200, "OK") + (linger(milliseconds) if milliseconds else "")
