"""The messages of RFC 4475, written from its descriptions, under the names that it gives them.

Each is (name, message, statuses): the first final status that may come back; None among them stands for no answer.
ME is the sender's address and port, so that an answer can find its way. A request that reaches the user agent as a
call is answered 404 there: its user is no script. REGISTER and other methods outside dialogs are 405 to a gateway.
"""

CALL = 404  # what a call to nobody gets from the user agent

SDP = "v=0\r\no=mhandley 29739 7272939 IN IP4 192.0.2.3\r\ns=-\r\nc=IN IP4 192.0.2.4\r\nt=0 0\r\nm=audio 49217 RTP/AVP 0 12\r\n"
VIA = "Via: SIP/2.0/UDP ME;branch=z9hG4bKNAME"
FROM = "From: sip:caller@example.net;tag=938"
TO = "To: sip:user@example.com"
CONTACT = "Contact: <sip:caller@ME>"


def m(start, *headers, body="", length=True):
    lines = [start, *headers]
    if length:
        lines.append(f"Content-Length: {len(body)}")
    return "\r\n".join(lines) + "\r\n\r\n" + body


def plain(method, number=1):
    return ["Call-ID: NAME.ID@example.net", f"CSeq: {number} {method}", "Max-Forwards: 70"]


VALID = [
    ("wsinv", m("INVITE sip:vivekg@chair-dnrc.example.com;unknownparam SIP/2.0",
                "TO :\r\n sip:vivekg@chair-dnrc.example.com ;   tag    = 1918181833n",
                "from   : \"J Rosenberg \\\\\\\"\"       <sip:jdrosen@example.com>\r\n  ;\r\n  tag = 98asjd8",
                "MaX-fOrWaRdS: 0068", "Call-ID: NAME.ID@192.0.2.1", "Content-Length   : 151",
                "cseq: 0009\r\n  INVITE", "Via  : SIP  /   2.0\r\n /UDP\r\n    ME;branch=390skdjuw",
                "s :", "NewFangledHeader:   newfangled value\r\n continued newfangled value",
                "UnknownHeaderWithUnusualValue: ;;,,;;,;", "Content-Type: application/sdp",
                "Route:\r\n <sip:services.example.com;lr;unknownwith=value;unknown-no-value>",
                "v:  SIP  / 2.0  / TCP     spindle.example.com   ;\r\n  branch  =   z9hG4bK9ikj8  ,\r\n SIP  /    2.0   "
                "/ UDP  192.168.255.111   ; branch=\r\n z9hG4bK30239",
                "m:\"Quoted string \\\"\\\"\" <sip:jdrosen@example.com> ; newparam =\r\n      newvalue ;\r\n"
                "  secondparam ; q = 0.33", length=False,
                body=(SDP + " " * 151)[:151]), {481}),
    ("intmeth", m("!interesting-Method0123456789_*+`.%indeed'~ sip:1_unusual.URI~(to-be!sure)&isn't+it$/crazy?,/;;*:"
                  "&it+has=1,weird!*pas$wo~d_too.(doesn't-it)@example.com SIP/2.0",
                  "Via: SIP/2.0/UDP ME;branch=z9hG4bK-.!%66*_+`'~NAME",
                  "To: \"BEL:\\\x07 NUL:\\\x01 DEL:\\\x7f\" <sip:1_unusual.URI~(to-be!sure)&isn't+it$/crazy?,/;;*@example.com>",
                  "From: token1~` token2'+_ token3*%!.- <sip:mundane@example.com>;fromParam''~+*_!.-%="
                  "\"\xd1\x80\xd0\xb0\xd0\xb1\xd0\xbe\xd1\x82\xd0\xb0\xd1\x8e\xd1\x89\xd0\xb8\xd0\xb9\";tag=_token~1'+`*%!-.",
                  "Call-ID: intmeth.word%ZK-!.*_+'@word`~)(><:\\/\"][?}{ID",
                  "CSeq: 139122385 !interesting-Method0123456789_*+`.%indeed'~", "Max-Forwards: 255",
                  "extensionHeader-!.%*+_`'~:\xef\xbb\xbf\xe5\xa4\xa7\xe5\x81\x9c\xe9\x9b\xbb"), {400, 405}),
    ("esc01", m("INVITE sip:sips%3Auser%40example.com@example.net SIP/2.0", "To: sip:%75se%72@example.com",
                "From: <sip:I%20have%20spaces@example.net>;tag=938", VIA, *plain("INVITE", 234234),
                "C%6Fntact: <sip:cal%6Cer@host5.example.net;%6C%72;n%61me=v%61lue%25%34%31>", CONTACT), {CALL}),
    ("escnull", m("REGISTER sip:example.com SIP/2.0", "To: sip:null-%00-null@example.com",
                  "From: sip:null-%00-null@example.com;tag=839923423", VIA, *plain("REGISTER", 39203),
                  "Contact: <sip:%00@host5.example.com>", "Contact: <sip:%00%00@host5.example.com>",
                  "L:0", length=False), {405}),
    ("esc02", m("RE%47IST%45R sip:registrar.example.com SIP/2.0", "To: \"%Z%45\" <sip:resource@example.com>",
                "From: \"%Z%45\" <sip:resource@example.com>;tag=f232jadfj23", VIA, *plain("RE%47IST%45R", 29344),
                "Contact: <sip:alias1@host1.example.com>", "C%6Fntact: <sip:alias2@host2.example.com>",
                "Contact: <sip:alias3@host3.example.com>", "l: 0", length=False), {405}),
    ("lwsdisp", m("OPTIONS sip:user@example.com SIP/2.0", TO, "From: caller<sip:caller@example.com>;tag=323", VIA,
                  *plain("OPTIONS", 60), "l: 0", length=False), {200}),
    ("longreq", m("INVITE sip:user@example.com SIP/2.0",
                  "To: \"I have a user name of " + "extreme" * 10 + " proportion\"<sip:user@example.com:6000;"
                  "unknownparam1=very" + "long" * 20 + "value;longparam" + "name" * 25 + "=shortvalue;very"
                  + "long" * 25 + "ParameterNameWithNoValue>",
                  "F: sip:" + "amazinglylongcallername" * 5 + "@example.net;tag=12" + "982" * 50 + "424;unknownheader"
                  "param" + "name" * 20 + "=unknowheaderparam" + "value" * 15, "Call-ID: NAME.one" + "really" * 20 + "longcallid",
                  "CSeq: 3882340 INVITE", "Unknown-" + "Long" * 20 + "-Name: unknown-" + "long" * 20 + "-value; unknown-"
                  + "long" * 20 + "-parameter-name = unknown-" + "long" * 20 + "-parameter-value",
                  "Via: SIP/2.0/UDP ME;branch=z9hG4bKNAME" + "long" * 60,
                  *[f"v: SIP/2.0/TCP sip{n}.example.com;branch=z9hG4bK" + "very" * 10 + f"{n}" for n in range(33, 0, -1)],
                  "Max-Forwards: 70", "Contact: <sip:" + "amazinglylongcallername" * 5 + "@ME>",
                  "Content-Type: application/sdp", body=SDP), {CALL}),
    ("dblreq", m("REGISTER sip:example.com SIP/2.0", "To: sip:j.user@example.com",
                 "From: sip:j.user@example.com;tag=43251j3j324", VIA, "Max-Forwards: 8", "I: NAME.ID@example.com",
                 "CSeq: 8 REGISTER", CONTACT) +
     m("INVITE sip:joe@example.com SIP/2.0", "t: sip:joe@example.com", "From: sip:caller@example.net;tag=141334",
       "Via: SIP/2.0/UDP ME;branch=z9hG4bKkdjuwsecond", "Max-Forwards: 8", "I: second.ID@example.com",
       "CSeq: 8 INVITE", CONTACT), {405}),
    ("semiuri", m("OPTIONS sip:user;par=u%40example.net@example.com SIP/2.0", "To: sip:j_user@example.com", FROM, VIA,
                  *plain("OPTIONS", 8), "Accept: application/sdp, application/pkcs7-mime,\r\n  multipart/mixed, "
                  "multipart/signed,\r\n  message/sip, message/sipfrag"), {200}),
    ("transports", m("OPTIONS sip:user@example.com SIP/2.0", TO, FROM, *plain("OPTIONS", 60), VIA,
                     *[f"Via: SIP/2.0/{t} t{n}.example.com;branch=z9hG4bK{n}" for n, t in
                       enumerate(("SCTP", "TLS", "UNKNOWN", "TCP"))], "l: 0", length=False), {200}),
    ("mpart01", m("MESSAGE sip:kumiko@example.org SIP/2.0", VIA, "Route: <sip:127.0.0.1;lr>", "Max-Forwards: 70",
                  "From: sip:fluffy@example.com;tag=2fb0dcc9", "To: sip:kumiko@example.org", "Call-ID: NAME.ID",
                  "CSeq: 1 MESSAGE", "Content-Transfer-Encoding: binary",
                  "Content-Type: multipart/mixed;boundary=7a9cbec02ceef655",
                  body="--7a9cbec02ceef655\r\nContent-Type: text/plain\r\nContent-Transfer-Encoding: binary\r\n\r\n"
                       "Hello\r\n--7a9cbec02ceef655\r\nContent-Type: application/pkcs7-signature\r\n\r\n"
                       "\x01\x82\xff\x00\xfe binary \x00\x01\r\n--7a9cbec02ceef655--\r\n"), {405}),
    ("unreason", m("SIP/2.0 200 = 2**3 * 5**2 \xd0\xbd\xd0\xbe \xd1\x81\xd1\x82\xd0\xbe \xd0\xb4\xd0\xb5\xd0\xb2", VIA,
                   *plain("INVITE", 35), FROM, TO + ";tag=2229", CONTACT), {None}),
    ("noreason", m("SIP/2.0 100 ", VIA, *plain("INVITE", 35), FROM, TO, CONTACT), {None}),
    ("badbranch", m("OPTIONS sip:user@example.com SIP/2.0", TO, FROM, *plain("OPTIONS", 8),
                    "Via: SIP/2.0/UDP ME;branch=z9hG4bK", "l: 0", length=False), {200}),
    ("invut", m("INVITE sip:user@example.com SIP/2.0", CONTACT, TO, FROM, *plain("INVITE", 8), VIA,
                "Content-Type: application/unknownformat", body="<audio><pcmu port=\"443\"/></audio>"), {CALL}),
    ("regaut01", m("REGISTER sip:example.com SIP/2.0", "To: sip:j.user@example.com", FROM, VIA, *plain("REGISTER", 9323),
                   "Authorization: NoOneKnowsThisScheme opaque-data=here"), {405}),
    ("zeromf", m("OPTIONS sip:user@example.com SIP/2.0", TO, FROM, VIA, "Call-ID: NAME.ID", "CSeq: 39234321 OPTIONS",
                 "Max-Forwards: 0"), {200, 483}),
    ("cparam01", m("REGISTER sip:example.com SIP/2.0", VIA, "To: sip:watson@example.com", FROM, *plain("REGISTER", 9),
                   "Contact: sip:+19725552222@gw1.example.net;unknownparam"), {405}),
    ("cparam02", m("REGISTER sip:example.com SIP/2.0", VIA, "To: sip:watson@example.com", FROM, *plain("REGISTER", 3),
                   "Contact: <sip:+19725552222@gw1.example.net;unknownparam>"), {405}),
    ("regescrt", m("REGISTER sip:example.com SIP/2.0", "To: sip:user@example.com", FROM, VIA, *plain("REGISTER", 14398),
                   "Contact: <sip:user@example.com?Route=%3Csip:sip.example.com%3E>"), {405}),
    ("sdp01", m("INVITE sip:user@example.com SIP/2.0", TO, FROM, CONTACT, *plain("INVITE", 8), VIA,
                "Accept: text/nobodyKnowsThis", "Content-Type: application/sdp", body=SDP), {CALL}),
    ("inv2543", m("INVITE sip:UserB@example.com SIP/2.0", "Via: SIP/2.0/UDP ME",
                  "From: <sip:+13035551111@ift.client.example.net;user=phone>",
                  "Record-Route: <sip:UserB@example.com;maddr=127.0.0.1>",
                  "To: sip:+16505552222@ss1.example.net;user=phone", "Call-ID: NAME.ID@example.com", "CSeq: 56 INVITE",
                  "Content-Type: application/sdp", length=False, body=SDP), {CALL}),
]

INVALID = [
    ("badinv01", m("INVITE sip:user@example.com SIP/2.0", TO, "From: sip:caller@example.net;tag=134161461246",
                   *plain("INVITE", 8), "Via: SIP/2.0/UDP ME;;,;,,", "Contact: \"\" <> ;,<sip:a@ME>,,;;,;,<>"), {400, None}),
    ("clerr", m("INVITE sip:user@example.com SIP/2.0", "Max-Forwards: 80", TO, FROM, CONTACT, "Call-ID: NAME.ID",
                "CSeq: 8 INVITE", VIA, "Content-Type: application/sdp", "Content-Length: 9999", length=False, body=SDP),
     {400}),
    ("ncl", m("INVITE sip:user@example.com SIP/2.0", "Max-Forwards: 254", TO, FROM, CONTACT, "Call-ID: NAME.ID",
              "CSeq: 8 INVITE", VIA, "Content-Type: application/sdp", "Content-Length: -999", length=False, body=SDP),
     {400}),
    ("scalar02", m("REGISTER sip:example.com SIP/2.0", VIA, "To: <sip:user@example.com>", FROM, "Call-ID: NAME.ID",
                   "CSeq: 36893488147419103232 REGISTER", "Max-Forwards: 300", "Expires: 10000000000000000000000000000000",
                   "Contact: <sip:user@host129.example.com>;expires=280297596632815"), {400}),
    ("scalarlg", m("SIP/2.0 503 Service Unavailable", VIA, TO, FROM, "Call-ID: NAME.ID",
                   "CSeq: 9292394834772304023312 OPTIONS", "Retry-After: 949302838503028349304023988",
                   "Warning: 1812 overture \"In Progress\""), {None}),
    ("quotbal", m("INVITE sip:user@example.com SIP/2.0", "To: \"Mr. J. User <sip:j.user@example.com>", FROM, CONTACT,
                  *plain("INVITE", 8), VIA, "Content-Type: application/sdp", body=SDP), {400}),
    ("ltgtruri", m("INVITE <sip:user@example.com> SIP/2.0", TO, FROM, *plain("INVITE", 1), VIA, CONTACT,
                   "Content-Type: application/sdp", body=SDP), {400, 416}),
    ("lwsruri", m("INVITE sip:user@example.com; lr SIP/2.0", TO, FROM, *plain("INVITE", 1), VIA, CONTACT,
                  "Content-Type: application/sdp", body=SDP), {400}),
    ("lwsstart", m("INVITE  sip:user@example.com  SIP/2.0", TO, FROM, *plain("INVITE", 8), VIA, CONTACT,
                   "Content-Type: application/sdp", body=SDP), {400, CALL}),
    ("trws", m("OPTIONS sip:remote-target@example.com SIP/2.0  ", VIA, TO, FROM, *plain("OPTIONS", 238923)), {400, 200}),
    ("escruri", m("INVITE sip:user@example.com?Route=%3Csip:example.com%3E SIP/2.0", TO, FROM, CONTACT, *plain("INVITE", 8),
                  VIA, "Content-Type: application/sdp", body=SDP), {400, CALL}),
    ("baddate", m("INVITE sip:user@example.com SIP/2.0", TO, FROM, *plain("INVITE", 8), VIA, CONTACT,
                  "Date: Fri, 01 Jan 2010 16:00:00 EST", "Content-Type: application/sdp", body=SDP), {400, CALL}),
    ("regbadct", m("REGISTER sip:example.com SIP/2.0", TO, FROM, *plain("REGISTER", 8), VIA,
                   "Contact: sip:user@example.com?Route=%3Csip:sip.example.com%3E"), {400, 405}),
    ("badaspec", m("OPTIONS sip:user@example.org SIP/2.0", VIA, FROM,
                   "To: \"Watson, Thomas\" < sip:t.watson@example.org >", *plain("OPTIONS", 8)), {400, 200}),
    ("baddn", m("OPTIONS sip:t.watson@example.org SIP/2.0", VIA, "To: \"T. Watson\" <sip:t.watson@example.org>",
                "From: Bell, Alexander <sip:a.g.bell@example.com>;tag=43", *plain("OPTIONS", 8)), {400, 200}),
    ("badvers", m("OPTIONS sip:t.watson@example.org SIP/7.0", "Via: SIP/7.0/UDP ME;branch=z9hG4bKNAME", TO, FROM,
                  *plain("OPTIONS", 31417)), {505}),
    ("mismatch01", m("OPTIONS sip:user@example.com SIP/2.0", TO, FROM, *plain("INVITE", 8), VIA), {400}),
    ("mismatch02", m("NEWMETHOD sip:user@example.com SIP/2.0", TO, FROM, *plain("INVITE", 8), VIA, CONTACT,
                     "Content-Type: application/sdp", body=SDP), {400, 501}),
    ("bigcode", m("SIP/2.0 4294967301 better not break the receiver", VIA, TO, FROM, *plain("OPTIONS", 239)), {None}),
    ("insuf", m("INVITE sip:user@example.com SIP/2.0", "CSeq: 193942 INVITE", VIA, "Content-Type: application/sdp",
                "l: 152", length=False, body=(SDP + " " * 152)[:152]), {400}),
    ("unkscm", m("OPTIONS nobodyKnowsThisScheme:totallyopaquecontent SIP/2.0", TO, FROM, *plain("OPTIONS", 3923423), VIA),
     {416, 400}),
    ("novelsc", m("OPTIONS soap.beep://192.0.2.103:3002 SIP/2.0", TO, FROM, *plain("OPTIONS", 3923423), VIA), {416, 400}),
    ("unksm2", m("REGISTER sip:example.com SIP/2.0", "To: isbn:2983792873", "From: <http://www.example.com>;tag=3234233",
                 *plain("REGISTER", 234902), VIA, "Contact: <name:John_Smith>"), {400, 404, 405}),
    ("bext01", m("OPTIONS sip:user@example.com SIP/2.0", TO, FROM, *plain("OPTIONS", 8), VIA,
                 "Require: nothingSupportsThis, nothingSupportsThisEither",
                 "Proxy-Require: noProxiesSupportThis, norDoAnyProxiesSupportThis"), {420}),
    ("multi01", m("INVITE sip:user@company.com SIP/2.0", "Contact: <sip:caller@ME>", VIA, "CSeq: 5 INVITE",
                  "Call-ID: NAME.ID@one", "CSeq: 59 INVITE", "Call-ID: NAME.ID@two", "From: sip:caller@example.com;tag=3413415",
                  "To: sip:user@example.com", "To: sip:other@example.net", "From: sip:caller@example.net;tag=2923420123",
                  "Content-Type: application/sdp", "Contact: <sip:caller@ME>", "Max-Forwards: 70", body=SDP), {400}),
    ("mcl01", m("OPTIONS sip:user@example.com SIP/2.0", VIA, TO, FROM, "Max-Forwards: 70", "Call-ID: NAME.ID",
                "CSeq: 8 OPTIONS", "Content-Type: text/plain", "Content-Length: 13", "Content-Length: 5", length=False,
                body="There's no way to know how many octets are supposed to be here."), {400}),
    ("bcast", m("SIP/2.0 200 OK", "Via: SIP/2.0/UDP 192.0.2.198;branch=z9hG4bK1324923",
                "Via: SIP/2.0/UDP 255.255.255.255;branch=z9hG4bK1saber23", "Call-ID: NAME.ID", "CSeq: 35 INVITE", FROM,
                TO + ";tag=2229", CONTACT, "Content-Type: application/sdp", body=SDP), {None}),
]
