#!/usr/bin/env python3
"""What operators do with a running gateway: HTTP commands, drain, reload, call records, metrics."""
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import ECHO_ROUTE, Failure, Gateway, check, run, to_toml  # noqa: E402
from sipua import Caller, RtpSocket, sdp, sdp_port  # noqa: E402

RING_ROUTE = {"name": "ring", "match": {"sip.in.requestUri": "^sip:ring@"}, "service": "ring"}


def wait_for(what, condition, seconds=5.0):
    """Asks until the condition yields something true, and returns that."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        found = condition()
        if found:
            return found
        time.sleep(0.01)
    raise Failure(f"{what}: not within {seconds} s")


def answered(caller, rtp):
    caller.invite(sdp("127.0.0.1", rtp.port))
    caller.expect(180)
    answer = caller.expect(200)
    caller.ack(answer)
    return answer


def calls(gateway):
    status, text = gateway.http("/api/calls")
    check(status == 200, f"/api/calls answered {status}")
    return json.loads(text)


def metric(gateway, sample):
    _, text = gateway.http("/metrics")
    match = re.search(rf"^{re.escape(sample)} (\S+)$", text, re.MULTILINE)
    return float(match.group(1)) if match else None


def a_call_is_seen_commanded_and_recorded(build):
    with Gateway(build) as gateway:
        wait_for("the gateway is healthy", lambda: gateway.http("/healthz")[0] == 200)
        for loop in ("sip", "task", "media", "call engine"):
            wait_for(f"the {loop} loop is timed",
                     lambda name=loop: metric(gateway, f'quorvex_loop_round_trip_seconds{{loop="{name}"}}'))
        check("active VOIP IN" in gateway.http("/api/status")[1], "the status is no description")
        with Caller(gateway.port) as caller, RtpSocket() as rtp:
            answer = answered(caller, rtp)
            call = wait_for("the call is listed as answered",
                            lambda: [c for c in calls(gateway) if c["state"] == "answered"])[0]
            check(call["direction"] == "in" and caller.uri in call["to"], f"listed as {call}")
            check(len(call["legs"]) == 1, f"{len(call['legs'])} legs")
            check(metric(gateway, "quorvex_calls") == 1, "the metrics do not count the call")
            for frame in range(10):
                rtp.send(sdp_port(answer.body), bytes([frame]) * 160)
                rtp.receive()

            status, _ = gateway.http(f"/api/calls/{call['id']}/info", "POST",
                                     {"Content-Type": "text/plain", "body": "hello", "X-Note": "7"})
            check(status == 200, f"INFO answered {status}")
            info = caller.expect("INFO")
            check(info.body == "hello" and info.get("X-Note") == "7" and info.get("Content-Type") == "text/plain",
                  f"the INFO carries {info.headers} {info.body!r}")
            caller.answer(200, "OK", request=info)

            check(gateway.http(f"/api/calls/{call['id']}", "DELETE")[0] == 200, "DELETE refused")
            caller.answer(200, "OK", request=caller.expect("BYE"))
            record = wait_for("the record is written", gateway.records)[0]
            check(record["call"] == call["id"] and record["route"] == "echo" and record["status"] == 200 and
                  record["endedBy"] == "local" and record["codec"] == "PCMU", f"the record is {record}")
            check(record["invited"] <= record["ringing"] <= record["answered"] <= record["ended"],
                  f"the times are {record}")
            check(record["rtp"]["received"] == 10 and record["rtp"]["sent"] > 0, f"the figures are {record['rtp']}")
            check(calls(gateway) == [], "a call that has ended is listed")
            ended = 'quorvex_legs_ended_total{direction="in",status="200",ended_by="local"}'
            check(metric(gateway, ended) == 1, "the metrics do not count the end")
            check(metric(gateway, 'quorvex_memory_objects{account="GatewayCall"}') == 0, "the call is still alive")
        gateway.stop()
        gateway.check_accounts_are_zero()
        gateway.check_log_is_clean()


def a_drain_waits_for_the_last_call(build):
    with Gateway(build) as gateway:
        with Caller(gateway.port) as caller, Caller(gateway.port) as late, RtpSocket() as rtp:
            answered(caller, rtp)
            check(gateway.http("/api/drain", "POST")[0] == 200, "drain refused")
            check(gateway.http("/healthz")[0] == 503, "healthy while draining")
            late.invite(sdp("127.0.0.1", rtp.port))
            late.ack(late.expect(503))
            check(gateway.process.poll() is None, "ended with a call alive")
            caller.send("BYE")
            caller.expect(200)
        check(gateway.wait() == 0, "the exit code is not 0")
        check([r["status"] for r in gateway.records()] == [503, 200], f"the records are {gateway.records()}")
        gateway.check_accounts_are_zero()


def an_idle_gateway_drains_at_once(build):
    with Gateway(build) as gateway:
        check(gateway.http("/api/drain", "POST")[0] == 200, "drain refused")
        check(gateway.wait() == 0, "the exit code is not 0")


def a_reload_changes_routes_and_nothing_of_calls_that_run(build):
    with Gateway(build) as gateway:
        good = gateway.config_file.read_text(encoding="utf-8")
        with Caller(gateway.port) as caller, Caller(gateway.port, "ring") as ring, RtpSocket() as rtp:
            answered(caller, rtp)

            # The files are rotated although the configuration cannot be taken.
            gateway.cdr_file.rename(gateway.folder / "cdr.old")
            gateway.log_file.rename(gateway.folder / "log.old")
            gateway.config_file.write_text(good.replace('"echo"', '"ecko"'), encoding="utf-8")
            gateway.signal(signal.SIGHUP)
            wait_for("the mistake is reported", lambda: gateway.log_file.exists() and "not reloaded" in gateway.log())
            wait_for("the record file is opened anew", gateway.cdr_file.exists)

            routes = to_toml({}, [RING_ROUTE])
            gateway.config_file.write_text(good[:good.index("[[route]]")] + routes, encoding="utf-8")
            gateway.signal(signal.SIGHUP)
            wait_for("the reload is reported", lambda: "routes and log levels reloaded" in gateway.log())
            ring.invite(sdp("127.0.0.1", rtp.port))
            ring.expect(180)
            ring.cancel()
            caller.send("BYE")
            caller.expect(200)
            record = wait_for("both records are in the new file", lambda: len(gateway.records()) == 2 and
                              gateway.records())
            check({r["route"] for r in record} == {"echo", "ring"}, f"the records are {record}")
        gateway.stop()
        gateway.check_accounts_are_zero()


def a_service_manager_is_told_of_start_and_stop(build):
    with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
        os.environ["NOTIFY_SOCKET"] = str(Path(folder) / "notify")
        manager.bind(os.environ["NOTIFY_SOCKET"])
        manager.settimeout(5)
        try:
            with Gateway(build) as gateway:
                check(manager.recv(4096) == b"READY=1", "not told that it is ready")
                gateway.stop()
                check(manager.recv(4096) == b"STOPPING=1", "not told that it stops")
        except socket.timeout:
            raise Failure("the service manager was told nothing") from None
        finally:
            del os.environ["NOTIFY_SOCKET"]


def the_test_call_measures_the_echo(build):
    tool = [sys.executable, str(Path(__file__).resolve().parents[2] / "tools" / "call")]
    busy = {"name": "busy", "match": {"sip.in.requestUri": "^sip:busy@"}, "service": "reject"}
    with Gateway(build, routes=[ECHO_ROUTE, busy]) as gateway:
        done = subprocess.run([*tool, f"sip:echo@127.0.0.1:{gateway.port}"], capture_output=True, text=True, timeout=30)
        check(done.returncode == 0 and "sound came back" in done.stdout and "<--  200 OK with SDP" in done.stdout,
              f"exit code {done.returncode}:\n{done.stdout}{done.stderr}")
        done = subprocess.run([*tool, f"sip:busy@127.0.0.1:{gateway.port}"], capture_output=True, text=True, timeout=30)
        check(done.returncode == 1 and "refused with 486" in done.stdout, f"a refused call: {done.stdout}{done.stderr}")
        gateway.stop()


if __name__ == "__main__":
    sys.exit(run([a_call_is_seen_commanded_and_recorded, a_drain_waits_for_the_last_call, an_idle_gateway_drains_at_once,
                  a_reload_changes_routes_and_nothing_of_calls_that_run, a_service_manager_is_told_of_start_and_stop,
                  the_test_call_measures_the_echo], sys.argv[1]))
