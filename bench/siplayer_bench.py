#!/usr/bin/env python3
"""CPU time per complete answered call (INVITE, 180, 200, ACK, BYE, 200) of the test user agent on the SIP object
layer, of the bare base library doing the same, and of sipp's own answering scenario, one after the other in one run.

usage: siplayer_bench.py BUILD [CALLS (6000) [CALLS PER SECOND (300)]]
"""
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "system"))
from harness import Failure, check, free_port  # noqa: E402


def cpu_us(pid):
    """User and system time of all threads of a process, in microseconds."""
    return sum(int((task / "schedstat").read_text(encoding="ascii").split()[0])
               for task in Path(f"/proc/{pid}/task").iterdir()) / 1000


def load(port, calls, rate, folder):
    """Calls from sipp; the number that failed."""
    result = subprocess.run(["sipp", "-sn", "uac", "-m", str(calls), "-r", str(rate), "-d", "0", "-i", "127.0.0.1", "-p",
                             str(free_port()), "-s", "ring.answer", "-l", "5000", "-nostdin", "-trace_stat", "-fd",
                             "600", "-stf", str(Path(folder) / "stat.csv"), f"127.0.0.1:{port}"],
                            cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False, timeout=600)
    lines = (Path(folder) / "stat.csv").read_text(encoding="ascii").splitlines()
    columns = dict(zip(lines[0].split(";"), lines[-1].split(";")))
    check(result.returncode in (0, 1), f"sipp ended with {result.returncode}")
    return int(columns["FailedCall(C)"])


def measure(name, command, calls, rate, port=None):
    with tempfile.TemporaryDirectory(prefix="quorvex-bench-") as folder:
        process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd=folder)
        try:
            if port is None:
                port = int(process.stdout.readline().split()[1])
            else:
                deadline = time.monotonic() + 10
                while f"0100007F:{port:04X} " not in Path("/proc/net/udp").read_text(encoding="ascii"):
                    check(time.monotonic() < deadline, f"{name} did not open its port")
                    time.sleep(0.05)
            load(port, rate, rate, folder)  # a second of calls to warm up
            before = cpu_us(process.pid)
            failed = load(port, calls, rate, folder)
            return name, (cpu_us(process.pid) - before) / calls, failed
        finally:
            process.kill()
            process.communicate()


def main():
    build = Path(sys.argv[1]).resolve()
    calls = int(sys.argv[2]) if len(sys.argv) > 2 else 6000
    rate = int(sys.argv[3]) if len(sys.argv) > 3 else 300
    port = free_port()
    rows = [measure("SIP object layer", [str(build / "bin" / "sip-useragent"), "--udp", "0"], calls, rate),
            measure("base library alone", [str(build / "bin" / "siplayer-nta-uas")], calls, rate),
            measure("sipp's answering scenario", ["sipp", "-sn", "uas", "-i", "127.0.0.1", "-p", str(port), "-nostdin"],
                    calls, rate, port)]
    base = rows[1][1]
    print(f"{calls} answered calls over UDP, {rate} per second")
    print(f"{'':28}{'us CPU per call':>16}{'ratio':>8}{'failed':>8}")
    for name, cost, failed in rows:
        print(f"{name:28}{cost:16.1f}{cost / base:8.2f}{failed:8}")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        print(f"siplayer_bench.py: {failure}", file=sys.stderr)
        sys.exit(1)
