#!/usr/bin/env python3
"""Calls that a real gateway connects: a caller on one side, a called party on the other."""
import json
import socket
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from baresip import Baresip  # noqa: E402
from harness import Failure, Gateway, check, free_port, run, wait_until_bound  # noqa: E402
from sipua import Callee, Caller, Message, RtpSocket, heard, sdp, sdp_port  # noqa: E402


def route(*legs, **options):
    """A route to legs: URIs, or tables of parameters."""
    tables = [leg if isinstance(leg, dict) else {"sip.out.requestUri": leg} for leg in legs]
    way = {"leg": tables[0]} if len(tables) == 1 else {"legs": tables}
    return {"name": "carrier", "match": {"sip.in.requestUri": "^sip:([0-9a-z]+)@"}, **way, **options}


def finish(gateway, records):
    """Stops the gateway, which must leave that many call records and nothing else."""
    gateway.stop()
    check(len(gateway.records()) == records, f"{len(gateway.records())} records, {records} expected: "
                                             f"{json.dumps(gateway.records(), indent=1)}")
    gateway.check_accounts_are_zero()
    return sorted(gateway.records(), key=lambda record: record["leg"])


def connect(caller, callee, rtp_caller, rtp_callee):
    """Connects the two; the RTP ports of the gateway towards caller and callee."""
    caller.invite(sdp("127.0.0.1", rtp_caller.port))
    invite = callee.expect("INVITE")
    callee.answer(180, "Ringing")
    caller.expect(180)
    callee.answer(200, "OK", sdp("127.0.0.1", rtp_callee.port))
    answer = caller.expect(200)
    caller.ack(answer)
    callee.expect("ACK")
    return sdp_port(answer.body), sdp_port(invite.body)


def both_hear_each_other_and_the_caller_hangs_up(build):
    with Callee() as callee:
        leg = {"sip.out.requestUri": f"sip:$1@127.0.0.1:{callee.port}", "media.rtp.audio": "sendrecv",
               "sip.out.header.X-Trunk": "7"}
        with Gateway(build, routes=[route(leg)]) as gateway, Caller(gateway.port, "4711") as caller, \
                RtpSocket() as rtp_caller, RtpSocket() as rtp_callee:
            caller_port, callee_port = connect(caller, callee, rtp_caller, rtp_callee)
            check(callee.invitation.start.startswith(f"INVITE sip:4711@127.0.0.1:{callee.port}"), callee.invitation.start)
            check(callee.invitation.get("X-Trunk") == "7", "the route's header is missing")
            check("sip:tester@" in callee.invitation.get("From"), f"From is {callee.invitation.get('From')}")
            for way in ((rtp_caller, caller_port, rtp_callee), (rtp_callee, callee_port, rtp_caller)):
                heard(*way)  # the first packets make the way known
                share = heard(*way)
                check(share > 0.9, f"{share:.0%} of the audio came through")
            calls = json.loads(gateway.http("/api/calls")[1])
            check(len(calls) == 1 and len(calls[0]["legs"]) == 2, f"/api/calls: {calls}")
            caller.send("BYE")
            caller.expect(200)
            callee.answer(200, "OK", request=callee.expect("BYE"))
            incoming, outgoing = finish(gateway, 2)
            check(incoming["direction"] == "in" and outgoing["direction"] == "out", f"{incoming} {outgoing}")
            check(incoming["call"] == outgoing["call"], "two calls recorded")
            check((incoming["endedBy"], outgoing["endedBy"]) == ("remote", "local"), f"{incoming} {outgoing}")
            check(incoming["status"] == outgoing["status"] == 200, f"{incoming} {outgoing}")
            gateway.check_log_is_clean()


def early_media_are_carried_across(build):
    with Callee() as callee, Gateway(build, routes=[route(callee.uri)]) as gateway, \
            Caller(gateway.port, "1") as caller, RtpSocket() as rtp_caller, RtpSocket() as rtp_callee:
        caller.invite(sdp("127.0.0.1", rtp_caller.port))
        callee_port = sdp_port(callee.expect("INVITE").body)
        callee.answer(183, "Session Progress", sdp("127.0.0.1", rtp_callee.port))
        progress = caller.expect(183)
        check("m=audio" in progress.body, "the 183 carries no description")
        heard(rtp_callee, callee_port, rtp_caller)
        check(heard(rtp_callee, callee_port, rtp_caller) > 0.9, "the caller does not hear the early media")
        caller.cancel()
        callee.answer(200, "OK", request=callee.expect("CANCEL"))
        callee.answer(487, "Request Terminated")
        callee.expect("ACK")
        finish(gateway, 2)


def legs_are_tried_in_turn(build):
    with Callee() as busy, Callee() as free, Gateway(build, routes=[route(busy.uri, free.uri)]) as gateway, \
            Caller(gateway.port, "1") as caller, RtpSocket() as rtp_caller, RtpSocket() as rtp_callee:
        caller.invite(sdp("127.0.0.1", rtp_caller.port))
        busy.expect("INVITE")
        busy.answer(486, "Busy Here")
        busy.expect("ACK")
        free.expect("INVITE")
        free.answer(200, "OK", sdp("127.0.0.1", rtp_callee.port))
        caller.ack(caller.expect(200))
        free.expect("ACK")
        caller.send("BYE")
        caller.expect(200)
        free.answer(200, "OK", request=free.expect("BYE"))
        records = finish(gateway, 3)
        check([record["status"] for record in records] == [200, 486, 200], f"{records}")


def calls_are_placed_over_http(build):
    with Callee() as callee, Gateway(build) as gateway, RtpSocket() as rtp:
        status, text = gateway.http("/api/calls", "POST", {"leg": {"sip.out.requestUri": callee.uri}, "service": "echo"})
        check(status == 201, f"{status} {text}")
        port = sdp_port(callee.expect("INVITE").body)
        callee.answer(180, "Ringing")
        callee.answer(200, "OK", sdp("127.0.0.1", rtp.port))
        callee.expect("ACK")
        heard(rtp, port, rtp)
        check(heard(rtp, port, rtp) > 0.8, "the party does not hear itself")
        status, _ = gateway.http(f"/api/calls/{json.loads(text)['id']}", "DELETE")
        check(status in (200, 204), f"DELETE answered {status}")
        callee.answer(200, "OK", request=callee.expect("BYE"))
        for body in ({"leg": {}, "service": "echo"}, {"leg": {"sip.out.requestUri": callee.uri}, "service": "dance"}):
            status, text = gateway.http("/api/calls", "POST", body)
            check(status == 400, f"{body}: {status} {text}")
        (record,) = finish(gateway, 1)
        check(record["direction"] == "out" and record["endedBy"] == "local", f"{record}")


def two_gateways_in_a_row(build):
    with Gateway(build) as far, Gateway(build, routes=[route(f"sip:echo@127.0.0.1:{far.port}")]) as near, \
            Caller(near.port, "1") as caller, RtpSocket() as rtp:
        caller.invite(sdp("127.0.0.1", rtp.port))
        caller.expect(180)
        answer = caller.expect(200)
        caller.ack(answer)
        heard(rtp, sdp_port(answer.body), rtp)
        check(heard(rtp, sdp_port(answer.body), rtp) > 0.8, "the audio does not come back through both")
        caller.send("BYE")
        caller.expect(200)
        finish(near, 2)
        finish(far, 1)


SLOW_NAMES = """#define _GNU_SOURCE
#include <dlfcn.h>
#include <netdb.h>
#include <string.h>
#include <unistd.h>
int getaddrinfo(const char* host, const char* service, const struct addrinfo* hints, struct addrinfo** found)
{
    if (host != 0 && strstr(host, ".slow.test") != 0)
    {
        sleep(10);
        return EAI_AGAIN;
    }
    int (*real)(const char*, const char*, const struct addrinfo*, struct addrinfo**) = dlsym(RTLD_NEXT, "getaddrinfo");
    return real(host, service, hints, found);
}
"""


def names_that_are_slow_hold_up_no_other_call(build):
    """A name service that does not answer: named by a route, and by a redirection."""
    with tempfile.TemporaryDirectory() as folder, Callee() as moved, Callee() as quick:
        source, library = Path(folder) / "slow.c", Path(folder) / "slow.so"
        source.write_text(SLOW_NAMES, encoding="utf-8")
        subprocess.run(["cc", "-shared", "-fPIC", "-o", str(library), str(source), "-ldl"], check=True)
        routes = [{"name": user, "match": {"sip.in.requestUri": f"^sip:{user}@"}, "leg": {"sip.out.requestUri": uri}}
                  for user, uri in (("slow", "sip:x@one.slow.test"), ("moved", moved.uri), ("quick", quick.uri))]
        with Gateway(build, {"quorvex.sip": {"getHostByNameTimeoutMs": 2000}}, routes,
                     program=["env", f"LD_PRELOAD={library}", str(Path(build) / "bin" / "quorvex-gateway")]) as gateway:
            for user in ("slow", "moved"):
                with Caller(gateway.port, user) as waiting, Caller(gateway.port, "quick") as caller:
                    waiting.invite(sdp("127.0.0.1"))
                    if user == "moved":
                        moved.expect("INVITE")
                        moved.answer(302, "Moved", headers=("Contact: <sip:x@two.slow.test>",))
                        moved.expect("ACK")
                    caller.invite(sdp("127.0.0.1", 40002))
                    quick.expect("INVITE")
                    quick.answer(486, "Busy Here")
                    quick.expect("ACK")
                    caller.ack(caller.expect(486))
                    # Whoever would have waited for the name would have had an answer for its caller first.
                    waiting.socket.settimeout(0.05)
                    try:
                        while (message := Message(waiting.socket.recv(65536))).status == 100:
                            pass
                        raise Failure(f"{user}: {message.start} came before the other call was served")
                    except socket.timeout:
                        pass
                    waiting.ack(waiting.expect(500, seconds=10))
            finish(gateway, 9)


def baresip_calls_baresip(build):
    callee_port = free_port()
    with Gateway(build, routes=[route(f"sip:tester@127.0.0.1:{callee_port}")]) as gateway:
        callee, caller = Baresip(gateway.folder / "callee", 900, callee_port), Baresip(gateway.folder / "caller", 400)
        answering = callee.start(6)
        wait_until_bound(answering, callee_port)
        calling = caller.start(4, f"/dial sip:4711@127.0.0.1:{gateway.port}")
        caller.check_heard(calling, 900)
        callee.check_heard(answering, 400)
        for record in finish(gateway, 2):
            check(record["status"] == 200 and record["codec"] == "PCMU" and record["rtp"]["received"] > 100 and
                  record["rtp"]["lost"] == 0 and record["rtp"]["mos"] > 4, f"{record}")


TESTS = [both_hear_each_other_and_the_caller_hangs_up, early_media_are_carried_across,
         legs_are_tried_in_turn, calls_are_placed_over_http, two_gateways_in_a_row,
         names_that_are_slow_hold_up_no_other_call, baresip_calls_baresip]

if __name__ == "__main__":
    sys.exit(run(TESTS, sys.argv[1]))
