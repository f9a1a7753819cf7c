#!/usr/bin/env python3
"""sipp drives the user agent of the SIP object layer: every call of every flow ends, and leaves nothing behind."""

import os
import re
import subprocess
import sys
import tempfile

BUILD = sys.argv[1]


class UserAgent:
    def __init__(self, *options):
        self.process = subprocess.Popen([os.path.join(BUILD, "bin", "sip-useragent"), *options], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def counters(self):
        self.process.stdin.write("\n")
        self.process.stdin.flush()
        return self.read()

    def read(self):
        return {key: int(value) for key, value in re.findall(r"(\w+)=(\d+)", self.process.stdout.readline())}

    def end(self):
        """The last counters, and whether nothing was left."""
        self.process.stdin.close()
        last = self.read()
        rest = self.process.stdout.read()
        return last, self.process.wait(30) == 0, rest


CALLER_HANGS_UP = """
<send><![CDATA[ACK [next_url] SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: <sip:sipp@[local_ip]:[local_port]>;tag=[call_number]
[last_To:]
Call-ID: [call_id]
CSeq: 1 ACK
Max-Forwards: 70
Content-Length: 0

]]></send>
<send retrans="500"><![CDATA[BYE [next_url] SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: <sip:sipp@[local_ip]:[local_port]>;tag=[call_number]
[last_To:]
Call-ID: [call_id]
CSeq: 2 BYE
Max-Forwards: 70
Content-Length: 0

]]></send>
<recv response="200"/>
"""

ANSWERER_HANGS_UP = CALLER_HANGS_UP[:CALLER_HANGS_UP.index("<send retrans")] + """
<recv request="BYE"/>
<send><![CDATA[SIP/2.0 200 OK
[last_Via:]
[last_From:]
[last_To:]
[last_Call-ID:]
[last_CSeq:]
Content-Length: 0

]]></send>
"""


def scenario(before, after, extra=""):
    return f"""<?xml version="1.0" encoding="ISO-8859-1" ?><scenario name="x">
<send retrans="500"><![CDATA[INVITE sip:a@[remote_ip]:[remote_port] SIP/2.0
Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
From: <sip:sipp@[local_ip]:[local_port]>;tag=[call_number]
To: <sip:a@[remote_ip]:[remote_port]>
Call-ID: [call_id]
CSeq: 1 INVITE
Contact: <sip:sipp@[local_ip]:[local_port];transport=[transport]>
Max-Forwards: 70
{extra}Content-Type: application/sdp
Content-Length: [len]

v=0
o=- 1 1 IN IP[local_ip_type] [local_ip]
s=-
c=IN IP[local_ip_type] [local_ip]
t=0 0
m=audio 40000 RTP/AVP 0
]]></send>
<recv response="100" optional="true"/>
{before}
{after}
</scenario>
"""


def check(name, options, text, calls, rate, sipp_options=()):
    agent = UserAgent(*options)
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "scenario.xml")
        with open(path, "w", encoding="ascii") as file:
            file.write(text)
        transport = "t1" if "tcp" in options else "u1"
        result = subprocess.run(["sipp", "-sf", path, "-m", str(calls), "-r", str(rate), "-t", transport, "-i",
                                 "127.0.0.1", "-nostdin", "-timeout", "60", *sipp_options,
                                 f"127.0.0.1:{agent.port}"], cwd=folder, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE, text=True, check=False)
    last, clean, rest = agent.end()
    print(f"{name}: sipp {result.returncode}, {last}, {'nothing left' if clean else rest}")
    ok = result.returncode == 0 and clean and last.get("called", 0) >= calls and last["ended"] == last["called"]
    if not ok:
        print(result.stderr[-2000:])
    return ok


RINGS = '<recv response="180"/>'
ANSWERS = '<recv response="200" rrs="true"/>'
REFUSES = """<recv response="486"/>
<send><![CDATA[ACK sip:a@[remote_ip]:[remote_port] SIP/2.0
[last_Via:]
From: <sip:sipp@[local_ip]:[local_port]>;tag=[call_number]
[last_To:]
Call-ID: [call_id]
CSeq: 1 ACK
Content-Length: 0

]]></send>
"""

RESULTS = [
    check("answered over UDP", ["--ring"], scenario(RINGS + ANSWERS, CALLER_HANGS_UP), 500, 250),
    check("answered over TCP", ["--ring", "--transport", "tcp"], scenario(RINGS + ANSWERS, CALLER_HANGS_UP), 500, 250),
    check("early media", ["--early"], scenario('<recv response="183"/>' + ANSWERS, CALLER_HANGS_UP), 200, 200),
    check("ended by us", ["--hangup"], scenario(ANSWERS, ANSWERER_HANGS_UP), 500, 250),
    check("refused", ["--reject", "486"], scenario(REFUSES, ""), 500, 250),
]
sys.exit(0 if all(RESULTS) else 1)
