"""The test user agent, run by a test: its ports, its commands, and whether it ended clean."""
import re
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from harness import Failure, check  # noqa: E402


class Agent:
    """A running sip-useragent. Used with `with`: leaving it stops the agent and fails unless everything was clean."""

    def __init__(self, build, t1=20, options=()):
        self.t1 = t1
        self.process = subprocess.Popen([str(Path(build) / "bin" / "sip-useragent"), "--t1", str(t1), *options],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        ports = self.process.stdout.readline().split()
        check(ports and ports[0] == "ports", "the user agent did not start")
        self.udp = int(ports[1])
        self.tcp = int(ports[-1])
        self.last = {}

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if kind is not None:
            self.process.kill()
            self.process.communicate()
            return
        self.stop()

    def command(self, text):
        try:
            self.process.stdin.write(text + "\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            pass
        answer = self.process.stdout.readline()
        check(answer, f"the user agent died with {self.process.poll()}")
        return answer.strip()

    def status(self):
        return {key: int(value) for key, value in re.findall(r"(\w+)=(\d+)", self.command("status"))}

    def call(self, uri, script, count=1, rate=0):
        answer = self.command(f"call {uri} {script} {count} {rate}")
        check(answer == "ok", f"the user agent did not take the script {script}: {answer}")

    def wait_until(self, condition, what, seconds=30):
        """Asks for the counters until the condition holds for them."""
        deadline = time.monotonic() + seconds
        while True:
            status = self.status()
            if condition(status):
                return status
            check(time.monotonic() < deadline, f"{what} did not come within {seconds} s: {status}")
            time.sleep(0.02)

    def wait_until_idle(self, seconds=30):
        """Until every call has ended. Fails when one was not reported as it must be."""
        status = self.wait_until(lambda s: s["ended"] == s["inbound"] + s["outbound"] and s["calls"] == 0,
                                 "the end of every call", seconds)
        check(status["misreported"] == 0, f"calls without exactly one closing report: {status}")
        return status

    def resident_kib(self):
        text = Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return int(re.search(r"VmRSS:\s+(\d+) kB", text).group(1))

    def cpu_us(self):
        """User and system time of the process."""
        text = Path(f"/proc/{self.process.pid}/schedstat").read_text(encoding="ascii")
        tasks = Path(f"/proc/{self.process.pid}/task").iterdir()
        return sum(int((task / "schedstat").read_text(encoding="ascii").split()[0]) for task in tasks) / 1000 or \
            int(text.split()[0]) / 1000

    def stop(self, seconds=30):
        """The last counters; fails unless every call had its one closing report and nothing is left."""
        try:
            output, _ = self.process.communicate(timeout=seconds)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise Failure(f"the user agent did not end within {seconds} s") from None
        check(self.process.returncode == 0, f"the user agent ended with {self.process.returncode}:\n{output}")
        self.last = {key: int(value) for key, value in re.findall(r"(\w+)=(\d+)", output)}
        return self.last
