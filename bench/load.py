"""Servers to measure and the load to put on them: sipp at both ends, everything on 127.0.0.1."""
import csv
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "tests" / "system"))
from harness import Failure, Gateway, bound_socket, check, free_port, wait_until_bound  # noqa: E402

PORT_RANGE = "20000-65000"


def cpu_us(pids):
    """User and system time of the processes' threads, in microseconds."""
    total = 0
    for pid in pids:
        for task in Path(f"/proc/{pid}/task").iterdir():
            try:
                total += int((task / "schedstat").read_text(encoding="ascii").split()[0])
            except OSError:
                pass
    return total / 1000


def resident_kib(pids):
    """Proportional resident memory: what processes share counts once."""
    total = 0
    for pid in pids:
        rollup = Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="ascii")
        total += int(re.search(r"^Pss: +(\d+)", rollup, re.MULTILINE).group(1))
    return total


class Sipp:
    """One sipp, in a folder of its own."""

    def __init__(self, scenario, *arguments):
        self.folder = tempfile.TemporaryDirectory(prefix="quorvex-bench-")
        self.port = free_port()
        self.process = subprocess.Popen(
            ["sipp", *arguments, "-sf", str(HERE / "sipp" / scenario), "-i", "127.0.0.1", "-mi", "127.0.0.1", "-p", str(self.port),
             "-buff_size", "4000000", "-trace_stat", "-stf", "stat.csv", "-fd", "1", "-nostdin"],
            cwd=self.folder.name, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def figures(self):
        """The last line of its statistics, {column: text}."""
        try:
            with open(Path(self.folder.name) / "stat.csv", encoding="ascii") as file:
                rows = [row for row in csv.reader(file, delimiter=";") if row]
        except OSError:
            return {}
        return dict(zip(rows[0], rows[-1])) if len(rows) > 1 else {}

    def count(self, name):
        return int(self.figures().get(f"{name}(C)") or 0)

    def wait(self, seconds):
        try:
            self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.end()
        return self

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGUSR1)
            try:
                self.process.wait(5)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.folder.cleanup()


class Server:
    """What is measured; `with` runs it, with a sipp that answers its calls."""
    name = ""
    legs = 2

    def __init__(self, build):
        self.build = build
        self.probe = bound_socket()

    def __enter__(self):
        self.callee = Sipp("uas.xml")
        wait_until_bound(self.callee.process, self.callee.port)
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()
        self.callee.close()
        self.probe.close()

    def pids(self):
        raise NotImplementedError

    def caller(self, rate, calls, hold_s, scenario="uac.xml"):
        return Sipp(scenario, f"127.0.0.1:{self.port}", "-s", "1000", "-r", str(rate), "-m", str(calls),
                    "-l", str(calls + 10), "-d", str(int(hold_s * 1000)), "-recv_timeout", "40000",
                    "-timeout", str(int(calls / rate + hold_s + 60)))

    def load(self, rate, seconds, hold_s=1.0):
        """Offers calls; CPU per completed call, and whether all went without failures and retransmissions."""
        calls = int(rate * seconds)
        before, resent, began = cpu_us(self.pids()), self.callee.count("Retransmissions"), time.monotonic()
        sipp = self.caller(rate, calls, hold_s)
        try:
            sipp.wait(calls / rate + hold_s + 60)
            elapsed = time.monotonic() - began
            used = cpu_us(self.pids()) - before
            done, failed = sipp.count("SuccessfulCall"), sipp.count("FailedCall")
            again = sipp.count("Retransmissions")
            time.sleep(1.1)
            again += self.callee.count("Retransmissions") - resent
        finally:
            sipp.close()
        kept = done / max(0.1, elapsed - hold_s)
        return {"rate": rate, "done": done, "failed": failed, "resent": again, "us": used / max(1, done),
                "clean": done == calls and not failed and not again and kept > 0.9 * rate}


class QuorvexGateway(Server):
    name = "quorvex-gateway"
    role = "B2BUA, media endpoints open on both legs, INFO log to a file"

    def start(self):
        leg = {"sip.out.requestUri": f"sip:$1@127.0.0.1:{self.callee.port}", "media.rtp.audio": "sendrecv"}
        probe = {"sip.out.requestUri": f"sip:probe@127.0.0.1:{self.probe.getsockname()[1]}"}
        self.gateway = Gateway(self.build, {"quorvex.rtp": {"portRange": PORT_RANGE}}, routes=[
            {"name": "probe", "match": {"sip.in.requestUri": "^sip:probe@"}, "leg": probe},
            {"name": "across", "match": {"sip.in.requestUri": "^sip:([0-9]+)@"}, "leg": leg}])
        self.gateway.start()
        self.port = self.gateway.port

    def stop(self):
        self.gateway.__exit__(None)

    def pids(self):
        return [self.gateway.process.pid]


class Kamailio(Server):
    name = "kamailio"
    role = "stateful proxy, 2 workers, no media"

    def start(self):
        self.port = free_port()
        modules = next(iter(Path("/usr/lib").glob("*/kamailio/modules")), None)
        check(modules, "there are no modules of kamailio")
        self.folder = tempfile.TemporaryDirectory(prefix="quorvex-bench-")
        text = (HERE / "kamailio.cfg").read_text(encoding="ascii")
        for name, value in (("PROXY_PORT", self.port), ("MODULE_PATH", modules), ("PROBE_PORT", self.probe.getsockname()[1]),
                            ("CALLEE_PORT", self.callee.port)):
            text = text.replace(name, str(value))
        config = Path(self.folder.name) / "kamailio.cfg"
        config.write_text(text, encoding="ascii")
        self.process = subprocess.Popen(["kamailio", "-f", str(config), "-m", "2048", "-M", "64", "-DD", "-E",
                                         "-Y", self.folder.name, "-P", str(Path(self.folder.name) / "pid")],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until_bound(self.process, self.port)
        time.sleep(1)

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.folder.cleanup()

    def pids(self):
        """The main process and its children."""
        children = Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text(encoding="ascii").split()
        return [self.process.pid, *(int(child) for child in children)]


class SippAnswering(Server):
    name = "sipp"
    role = "answers by itself: one leg, no logic (the floor)"
    legs = 1

    def start(self):
        self.port = self.callee.port

    def stop(self):
        pass

    def pids(self):
        return [self.callee.process.pid]


SO_TIMESTAMPNS = 35


def latencies(server, calls, pause_s=0.02):
    """INVITEs to a party of ours through the server, refused there: milliseconds until its 100 and until its INVITE are in
    our sockets' queues, by the system's arrival stamps. Calls during which the system's clock was set do not count."""
    caller = bound_socket()
    for sock in (caller, server.probe):
        sock.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        sock.settimeout(2)
    trying, forwarded, lost = [], [], 0
    me = caller.getsockname()[1]
    body = (f"v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio {me} RTP/AVP 8 0\r\n")

    def arrival(sock):
        data, ancillary, _, source = sock.recvmsg(65536, 512)
        seconds, nanoseconds = struct.unpack("qq", ancillary[0][2][:16])
        return data.decode("latin-1"), seconds * 10 ** 9 + nanoseconds, source

    for number in range(calls):
        head = (f"Via: SIP/2.0/UDP 127.0.0.1:{me};branch=z9hG4bKlat{number}x{me}\r\nFrom: <sip:l{number}@127.0.0.1:{me}>;tag=l{number}\r\n"
                f"To: <sip:probe@127.0.0.1:{server.port}>{{tag}}\r\nCall-ID: lat{number}x{me}\r\nCSeq: 1 {{method}}\r\n"
                f"Max-Forwards: 70\r\n")
        uri = f"sip:probe@127.0.0.1:{server.port}"
        invite = (f"INVITE {uri} SIP/2.0\r\n{head.format(tag='', method='INVITE')}Contact: <sip:l@127.0.0.1:{me}>\r\n"
                  f"Content-Type: application/sdp\r\nContent-Length: {len(body)}\r\n\r\n{body}").encode()
        wall = time.time_ns() - time.monotonic_ns()
        to_trying = None
        try:
            sent = time.time_ns()
            caller.sendto(invite, ("127.0.0.1", server.port))
            text, stamp, source = arrival(server.probe)
            while not text.startswith("INVITE") or f"sip:l{number}@" not in text:
                text, stamp, source = arrival(server.probe)
            to_forwarded = (stamp - sent) / 1e6
            lines = [line for line in text.split("\r\n\r\n")[0].split("\r\n")[1:]
                     if line.split(":")[0] in ("Via", "Record-Route", "From", "Call-ID", "CSeq")]
            to = re.search(r"^To: (.*)$", text, re.MULTILINE).group(1).strip()
            server.probe.sendto(("SIP/2.0 486 Busy Here\r\n" + "\r\n".join(lines) + f"\r\nTo: {to};tag=p{number}\r\nContent-Length: 0"
                                 "\r\n\r\n").encode(), source)
            while True:
                text, stamp, _ = arrival(caller)
                if f"Call-ID: lat{number}x{me}\r\n" not in text:
                    continue  # late, of an earlier call
                status = int(text[8:11])
                if status == 100:
                    to_trying = (stamp - sent) / 1e6
                elif status >= 200:
                    tag = re.search(r"^To: .*?(;tag=\S+)", text, re.MULTILINE).group(1)
                    caller.sendto((f"ACK {uri} SIP/2.0\r\n{head.format(tag=tag, method='ACK')}Content-Length: 0\r\n\r\n").encode(),
                                  ("127.0.0.1", server.port))
                    break
            if to_trying is not None and abs(time.time_ns() - time.monotonic_ns() - wall) < 10 ** 5:
                trying.append(to_trying)
                forwarded.append(to_forwarded)
        except socket.timeout:
            lost += 1
        time.sleep(pause_s)
    caller.close()
    check(trying and forwarded, f"{server.name} answered none of the latency calls")
    return trying, forwarded, lost


def percentile(values, share):
    values = sorted(values)
    return values[min(len(values) - 1, int(share * len(values)))]


__all__ = ["Failure", "Kamailio", "QuorvexGateway", "SippAnswering", "Sipp", "check", "cpu_us", "latencies", "percentile",
           "resident_kib"]
