"""Runs a gateway for a system test: its own folder, free ports, a configuration made from overrides.

QUORVEX_GATEWAY names another program than that of the build folder, QUORVEX_LOG_LEVEL (TRACE) another level for every logger,
QUORVEX_TEST one function to run."""
import itertools
import json
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.request
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DEADLINE_S = 20


class Failure(Exception):
    """What a test found; its text is the report."""


def check(condition, text):
    if not condition:
        raise Failure(text)


# Ports of the tests: below the gateway's RTP range and the ones the kernel hands out. RTCP goes to the port above RTP's,
# so a port from the kernel beside somebody's RTP would hear it. The first thousands would meet the control ports of sipps.
_ports = itertools.cycle(range(9000, 16384, 2))
for _ in range(random.randrange(3692)):
    next(_ports)

NO_RTP = 5998
"""An RTP port at which nobody listens."""


def bound_socket(kind=socket.SOCK_DGRAM, port=None):
    """A socket on a port of 127.0.0.1: an even one whose upper neighbour nobody is given, or `port`."""
    for port in [port] if port else itertools.islice(_ports, 3692):
        taken = socket.socket(socket.AF_INET, kind)
        try:
            taken.bind(("127.0.0.1", port))
            return taken
        except OSError:
            taken.close()
    raise Failure("no free port on 127.0.0.1")


def free_port(kind=socket.SOCK_DGRAM, both=False):
    """An even port of 127.0.0.1 that nobody holds now and no other call gets soon; with `both`, for UDP and TCP."""
    while True:
        with bound_socket(kind) as first:
            port = first.getsockname()[1]
            if not both:
                return port
            other = socket.SOCK_STREAM if kind == socket.SOCK_DGRAM else socket.SOCK_DGRAM
            with socket.socket(socket.AF_INET, other) as second:
                try:
                    second.bind(("127.0.0.1", port))
                    return port
                except OSError:
                    continue


def wait_until_bound(process, port, kind=socket.SOCK_DGRAM):
    """Until somebody has taken the port of 127.0.0.1, by the kernel's tables: a message would count as a call, and a port bound
    to try it would be taken when the process wants it."""
    table = Path("/proc/net/udp" if kind == socket.SOCK_DGRAM else "/proc/net/tcp")
    deadline = time.monotonic() + 10
    while f"0100007F:{port:04X} " not in table.read_text(encoding="ascii"):
        check(process.poll() is None and time.monotonic() < deadline, f"{process.args[0]} does not take its port {port}")
        time.sleep(0.02)


def toml_value(value):
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, (int, float)):
        return str(value)
    if isinstance(value, list):
        return "[" + ", ".join(toml_value(v) for v in value) + "]"
    if isinstance(value, dict):
        return "{ " + ", ".join(f"{json.dumps(k)} = {toml_value(v)}" for k, v in value.items()) + " }"
    return json.dumps(value)


def to_toml(tables, routes=()):
    """{"quorvex.sip": {"t1Ms": 500}} and a list of routes as a configuration text."""
    lines = []
    for table, entries in tables.items():
        lines.append(f"[{table}]")
        lines += [f"{key} = {toml_value(value)}" for key, value in entries.items()]
        lines.append("")
    for route in routes:
        lines.append("[[route]]")
        lines += [f"{key} = {toml_value(value)}" for key, value in route.items()]
        lines.append("")
    return "\n".join(lines)


ECHO_ROUTE = {"name": "echo", "match": {"sip.in.requestUri": "^sip:echo@"}, "service": "echo"}


class Gateway:
    """A running gateway. Used with `with`: what is still running at the end is killed, the folder stays only after a failure."""

    def __init__(self, build, overrides=None, routes=(ECHO_ROUTE,), level="INFO", levels=None, program=None):
        self.build = Path(build)
        self.folder = Path(tempfile.mkdtemp(prefix="quorvex-test-"))
        self.port = free_port(both=True)
        self.http_port = free_port(socket.SOCK_STREAM)
        self.log_file = self.folder / "gateway.log"
        self.cdr_file = self.folder / "cdr.jsonl"
        tables = {
            "quorvex.gateway": {
                "netIfLib": "libquorvex-sip-netif.so",
                "httpListen": f"127.0.0.1:{self.http_port}",
                "cdrFile": str(self.cdr_file),
                "stopTimeoutS": 30,
            },
            "quorvex.sip": {
                "mediaLibName": "libquorvex-rtp-media.so",
                "listen": [f"udp:127.0.0.1:{self.port}", f"tcp:127.0.0.1:{self.port}"],
                "state.Disconnecting.timeoutMs": 5000,
            },
            "quorvex.rtp": {"encodingList": "0 8", "localAddress": "127.0.0.1", "portRange": "16384-32767"},
            "quorvex.media.rtp": {"packetSizeMs": "20"},
            "quorvex.log": {"file": str(self.log_file), "level": os.environ.get("QUORVEX_LOG_LEVEL", level),
                            "levels": {} if "QUORVEX_LOG_LEVEL" in os.environ else
                            {"quorvex.gateway.memory": "DEBUG", **(levels or {})}},
        }
        for table, entries in (overrides or {}).items():
            tables.setdefault(table, {}).update(entries)
        self.config_file = self.folder / "gateway.toml"
        self.config_file.write_text(to_toml(tables, routes), encoding="utf-8")
        self.program = program or [os.environ.get("QUORVEX_GATEWAY", str(self.build / "bin" / "quorvex-gateway"))]
        self.process = None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, kind, *_):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        if self.process:
            self.output.close()
        if kind is None:
            shutil.rmtree(self.folder, ignore_errors=True)  # a party that is just ending may still write there
        else:
            print(f"the gateway's log is {self.log_file}; its last lines:", file=sys.stderr)
            lines = [line for line in self.log().splitlines() if " memory account " not in line]
            print("\n".join(lines[-20:]), file=sys.stderr)

    def start(self):
        self.output = open(self.folder / "output.txt", "w+", encoding="utf-8")
        self.process = subprocess.Popen([*self.program, "--config", str(self.config_file)],
                                        stdout=self.output, stderr=subprocess.STDOUT)
        self.wait_until_it_answers()

    def wait_until_it_answers(self):
        """Asks with OPTIONS until a 200 comes, and until it is healthy: calls are taken then."""
        deadline = time.monotonic() + DEADLINE_S
        with bound_socket() as probe:
            probe.settimeout(0.1)
            me = probe.getsockname()[1]
            number = 0
            while time.monotonic() < deadline:
                check(self.process.poll() is None,
                      f"the gateway ended with {self.process.returncode} while starting:\n{self.printed()}\n{self.log()}")
                number += 1
                probe.sendto((f"OPTIONS sip:127.0.0.1:{self.port} SIP/2.0\r\n"
                              f"Via: SIP/2.0/UDP 127.0.0.1:{me};branch=z9hG4bKprobe{number}-{me}\r\n"
                              f"From: <sip:probe@127.0.0.1:{me}>;tag=probe{number}\r\nTo: <sip:127.0.0.1:{self.port}>\r\n"
                              f"Call-ID: probe-{number}-{me}\r\nCSeq: 1 OPTIONS\r\nMax-Forwards: 70\r\n"
                              "Content-Length: 0\r\n\r\n").encode(), ("127.0.0.1", self.port))
                try:
                    if probe.recv(65536).startswith(b"SIP/2.0 200") and self.is_healthy():
                        return
                except (socket.timeout, ConnectionRefusedError):
                    pass
        raise Failure(f"the gateway did not answer OPTIONS within {DEADLINE_S} s:\n{self.printed()}\n{self.log()}")

    def is_healthy(self):
        """SIP is answered a little before calls are taken."""
        try:
            return self.http("/healthz")[0] == 200
        except OSError:
            return False

    def signal(self, number=signal.SIGTERM):
        self.process.send_signal(number)

    def wait(self, seconds=DEADLINE_S):
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise Failure(f"the gateway did not end within {seconds} s") from None

    def stop(self, seconds=DEADLINE_S, expected=0):
        """Ends it once it has no calls: with one that is just ending, its record would tell of the stop."""
        self.wait_until_idle()
        self.signal()
        self.check_end(seconds, expected)

    def check_end(self, seconds=DEADLINE_S, expected=0):
        code = self.wait(seconds)
        check(code == expected, f"exit code {code}, {expected} expected\n{self.printed()}")
        self.check_printed()

    def wait_until_idle(self, seconds=DEADLINE_S):
        deadline = time.monotonic() + seconds
        while calls := json.loads(self.http("/api/calls")[1]):
            check(time.monotonic() < deadline, f"{len(calls)} calls are left, the first is {calls[0]}")
            time.sleep(0.02)

    def check_printed(self):
        """Sanitizers report there what does not end the program."""
        text = self.printed()
        check("Sanitizer" not in text and "runtime error:" not in text, text)

    def printed(self):
        return (self.folder / "output.txt").read_text(encoding="utf-8", errors="replace")

    def log(self):
        return self.log_file.read_text(encoding="utf-8", errors="replace") if self.log_file.exists() else ""

    def records(self, skipped=0):
        """The call records written so far, without the first ones: the last of a killed gateway may be half a record."""
        if not self.cdr_file.exists():
            return []
        return [json.loads(line) for line in self.cdr_file.read_text(encoding="utf-8").splitlines()[skipped:]]

    def http(self, path, method="GET", body=None):
        request = urllib.request.Request(f"http://127.0.0.1:{self.http_port}{path}", method=method,
                                         data=None if body is None else json.dumps(body).encode())
        try:
            with urllib.request.urlopen(request, timeout=5) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.read().decode()

    def check_accounts_are_zero(self):
        """After the end: every memory account that was ever used is back to zero."""
        accounts = re.findall(r"memory account (.+): (\d+) objects, (\d+) bytes", self.log())
        check(accounts, "the gateway logged no memory accounts at its end")
        left = [f"{name}: {objects} objects, {size} bytes" for name, objects, size in accounts if objects != "0"]
        check(not left, "memory accounts not back to zero: " + "; ".join(left))

    def check_log_is_clean(self):
        """No failed assertion and no error in the log."""
        bad = [line for line in self.log().splitlines() if " ERROR " in line or "Assertion failed" in line]
        check(not bad, "errors in the log:\n" + "\n".join(bad[:10]))


def run(tests, build):
    """Runs the functions with the build folder; prints what failed; the exit code."""
    failed = passed = 0
    only = os.environ.get("QUORVEX_TEST")
    for test in tests:
        if only and only != test.__name__:
            continue
        started = time.monotonic()
        try:
            test(build)
            passed += 1
            print(f"ok      {test.__name__} ({time.monotonic() - started:.1f} s)", flush=True)
        except Failure as failure:
            failed += 1
            print(f"FAILED  {test.__name__}: {failure}", flush=True)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0
