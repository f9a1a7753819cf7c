#!/usr/bin/env python3
"""Every mistake in a configuration is told in one line that names the file, the key and what was expected."""
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from harness import check, run  # noqa: E402

GOOD = """
[quorvex.gateway]
httpListen = ""
cdrFile = ""
[quorvex.sip]
mediaLibName = "libquorvex-rtp-media.so"
listen = ["udp:127.0.0.1:5060"]
[quorvex.rtp]
encodingList = "0 8"
localAddress = "127.0.0.1"
portRange = "16384-32767"
[[route]]
name = "echo"
match = { "sip.in.requestUri" = "^sip:echo@" }
service = "echo"
"""

# What is changed (old -> new), and what the one line must hold.
CASES = [
    ("listen = [", "listen = \n[", ["gateway.toml:", "TOML syntax"]),
    ("[quorvex.sip]", "[quorvex.sip]\nlisten = 1", ["gateway.toml:", "TOML syntax"]),
    ("encodingList", "encodinglist", ["quorvex.rtp.encodinglist", "quorvex.rtp.encodingList"]),
    ("[quorvex.rtp]", "[quorvex.rtpp]", ["quorvex.rtpp", "quorvex.rtp"]),
    ('mediaLibName = "libquorvex-rtp-media.so"\n', "", ["quorvex.sip.mediaLibName", "string"]),
    ('"libquorvex-rtp-media.so"', "7", ["quorvex.sip.mediaLibName", "string"]),
    ('"libquorvex-rtp-media.so"', '"libnot-there.so"', ["quorvex.sip.mediaLibName", "libnot-there.so"]),
    ('"libquorvex-rtp-media.so"', '"libace-not.so.1"', ["quorvex.sip.mediaLibName"]),
    ("[quorvex.gateway]", '[quorvex.gateway]\nnetIfLib = "libnot-there.so"', ["quorvex.gateway.netIfLib", "libnot-there.so"]),
    ("[quorvex.gateway]", '[quorvex.gateway]\nnetIfLib = "libquorvex-infra.so"', ["quorvex.gateway.netIfLib", "LoadMethod"]),
    ("[quorvex.gateway]", '[quorvex.gateway]\nstopTimeoutS = "long"', ["quorvex.gateway.stopTimeoutS", "integer"]),
    ("[quorvex.gateway]", "[quorvex.gateway]\nstopTimeoutS = -1", ["quorvex.gateway.stopTimeoutS"]),
    ('"udp:127.0.0.1:5060"', '"udp:127.0.0.1:99999"', ["quorvex.sip.listen", "99999"]),
    ('"udp:127.0.0.1:5060"', '"sctp:127.0.0.1:5060"', ["quorvex.sip.listen", "sctp"]),
    ('"16384-32767"', '"32767-16384"', ["quorvex.rtp.portRange"]),
    ('"0 8"', '"zero"', ["quorvex.rtp.encodingList"]),
    ('"^sip:echo@"', '"^sip:(echo@"', ["route", "echo", "regular expression"]),
    ('service = "echo"', 'service = "ecko"', ["route", "ecko", "echo"]),
    ('service = "echo"', 'service = "echo"\nringing = "loud"', ["route", "ringing", "loud"]),
    ('service = "echo"', "", ["route", "echo", "service"]),
    ("[quorvex.sip]", '[quorvex.log]\nlevel = "LOUD"\n[quorvex.sip]', ["quorvex.log.level", "LOUD"]),
]


def checked(build, arguments):
    return subprocess.run([str(Path(build) / "bin" / "quorvex-gateway"), *arguments], capture_output=True, text=True,
                          timeout=30)


def a_good_configuration_passes(build):
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "gateway.toml"
        path.write_text(GOOD, encoding="utf-8")
        done = checked(build, ["--config", str(path), "--check"])
        check(done.returncode == 0, f"exit code {done.returncode}: {done.stderr}")
        check(done.stderr == "", f"something on standard error: {done.stderr}")


def every_mistake_is_one_line(build):
    faults = []
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "gateway.toml"
        for old, new, wanted in CASES:
            assert old in GOOD, old
            path.write_text(GOOD.replace(old, new, 1), encoding="utf-8")
            done = checked(build, ["--config", str(path), "--check"])
            what = f"{old!r} -> {new!r}"
            if done.returncode != 2:
                faults.append(f"{what}: exit code {done.returncode}: {done.stderr.strip()}")
            elif len(done.stderr.strip().splitlines()) != 1:
                faults.append(f"{what}: not one line:\n{done.stderr.strip()}")
            else:
                missing = [word for word in wanted if word not in done.stderr]
                if missing:
                    faults.append(f"{what}: {missing} not in: {done.stderr.strip()}")
    check(not faults, "\n" + "\n".join(faults))


def a_missing_file_and_bad_options_are_told(build):
    for arguments, wanted in ((["--config", "/nonexistent/x.toml", "--check"], "/nonexistent/x.toml"),
                              (["--config", "/", "--check"], "directory"),
                              (["--confg", "x"], "--confg"), ([], "--config")):
        done = checked(build, arguments)
        check(done.returncode == 2, f"{arguments}: exit code {done.returncode}")
        check(wanted in done.stderr, f"{arguments}: {wanted} not in: {done.stderr}")
        check(len(done.stderr.strip().splitlines()) == 1, f"{arguments}: not one line:\n{done.stderr}")


def a_start_without_a_free_port_fails_in_one_line(build):
    import socket
    with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", 0))
        port = taken.getsockname()[1]
        path = Path(folder) / "gateway.toml"
        path.write_text(GOOD.replace("5060", str(port)) + f'[quorvex.log]\nfile = "{folder}/x.log"\n', encoding="utf-8")
        done = checked(build, ["--config", str(path)])
        check(done.returncode == 1, f"exit code {done.returncode}: {done.stderr}")
        check(str(port) in done.stderr, f"the port is not named: {done.stderr}")
        check(len(done.stderr.strip().splitlines()) == 1, f"not one line:\n{done.stderr}")


TESTS = [
    a_good_configuration_passes,
    every_mistake_is_one_line,
    a_missing_file_and_bad_options_are_told,
    a_start_without_a_free_port_fails_in_one_line,
]

if __name__ == "__main__":
    sys.exit(run(TESTS, sys.argv[1]))
