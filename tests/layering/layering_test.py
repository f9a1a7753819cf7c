#!/usr/bin/env python3
"""Holds the arrows of docs/architecture.md: which part of the tree may include which.

Run with the build folder as argument (ctest does), or with --self-test to see that a broken arrow is found.
"""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

# A part may include itself and what stands here, and nothing else of the tree.
INFRA = {"infra"}
THREAD = INFRA | {"thread"}
SERVICES = THREAD | {"oam", "net", "sipstack"}
ALLOWED = {
    "infra": INFRA,
    "thread": THREAD,
    "oam": THREAD | {"oam"},
    "net": THREAD | {"net"},
    "sipstack": THREAD | {"sipstack", "net", "oam"},
    "rtp": SERVICES | {"rtp"},
    "sip": SERVICES | {"sip"},
    "sip-common": SERVICES | {"sip", "sip-common"},
    "calleng": SERVICES | {"rtp", "sip", "sip-common", "calleng"},
    "media": SERVICES | {"rtp", "sip", "sip-common", "media"},
    "sip-client-reg": SERVICES | {"rtp", "sip", "sip-common", "sip-client-reg"},
}
PLATFORM = set(ALLOWED)
ALLOWED["media-engine"] = {"infra", "thread", "rtp", "media", "media-engine"}
ALLOWED["plug-in"] = PLATFORM | {"plug-in"}
ALLOWED["gateway"] = PLATFORM | {"gateway"}

# The generic headers below include/quorvex: the part that each belongs to.
GENERIC = {
    "CloneableObjPtr.h": "infra",
    "CountedClass.h": "infra",
    "DynlibObjectFactory.h": "infra",
    "Fallible.h": "infra",
    "CallTypes.h": "infra",
    "ConnectionFailureType.h": "infra",
    "StateMachine.h": "thread",
    "StateTable.h": "thread",
    "TimeoutStateMachine.h": "thread",
    "StateMachineWithEventQueue.h": "thread",
    "InternalMachineStateImpl.h": "thread",
    "TaskObjectPool.h": "thread",
    "CallInterface.h": "calleng",
    "GatewayNetIf.h": "oam",
}

# Third-party headers that only some parts may see.
BASE_LIBRARY = re.compile(r"^(sofia-sip|sofia-resolv|su_|nta|tport|sres)")
RESTRICTED = [
    (BASE_LIBRARY, {"sipstack"}, "the SIP base library"),
    (re.compile(r"^spandsp"), {"media-engine"}, "the telephony DSP library"),
    (re.compile(r"^log4cplus/"), {"infra"}, "the logging back end"),
    (re.compile(r"^(CLI/|httplib|nlohmann/)"), {"gateway"}, "the host program's libraries"),
]

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')


def part_of(path):
    """The part a file of the tree belongs to, or None where the arrows do not reach (tests, benchmarks)."""
    parts = path.relative_to(ROOT).parts
    if parts[0] == "platform":
        return parts[1]
    if parts[0] == "include":
        return GENERIC.get(parts[-1], f"include/quorvex/{parts[-1]} (unknown to this test)")
    return {"gateway-interfaces": "plug-in", "media-engine": "media-engine", "gateway": "gateway"}.get(parts[0])


def target_of(source, name):
    """The part that an include names, or None for third-party and system headers."""
    first = name.split("/")[0]
    if first == "quorvex":
        return GENERIC.get(name.split("/", 1)[1], f"{name} (unknown to this test)")
    if first in PLATFORM and (ROOT / "platform" / name).exists():
        return first
    for part, folder in (("plug-in", "gateway-interfaces/voip/sip/src"), ("media-engine", "media-engine"),
                         ("gateway", "gateway")):
        if (ROOT / folder / name).exists() and not (source.parent / name).exists():
            return part
    beside = (source.parent / name).resolve()
    if beside.is_relative_to(ROOT) and (beside.exists() or ".." in name):
        return part_of(beside)
    return None


def faults(path, text):
    part = part_of(path)
    if part is None:
        return
    where = path.relative_to(ROOT)
    allowed = ALLOWED.get(part)
    if allowed is None:
        yield f"{where}: belongs to no known part"
        return
    for number, line in enumerate(text.splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        name = match.group(1)
        target = target_of(path, name)
        if target is not None and target not in allowed:
            yield f"{where}:{number}: {part} must not include {name} ({target})"
        for pattern, owners, what in RESTRICTED:
            if pattern.match(name) and part not in owners:
                yield f"{where}:{number}: {part} must not include {name} ({what})"


def self_test():
    cases = [
        ("platform/infra/X.h", '#include "thread/Task.h"', 1),
        ("platform/thread/X.h", '#include "infra/Logger.h"', 0),
        ("gateway-interfaces/voip/sip/src/X.cpp", "#include <sofia-sip/nta.h>", 1),
        ("gateway-interfaces/voip/sip/src/X.cpp", "#include <spandsp.h>", 1),
        ("platform/sipstack/X.cpp", "#include <sofia-sip/nta.h>", 0),
        ("gateway/X.cpp", '#include "../gateway-interfaces/voip/sip/src/VoipEvent.h"', 1),
        ("gateway/X.cpp", '#include "quorvex/NobodyKnows.h"', 1),
    ]
    bad = []
    for path, text, expected in cases:
        found = len(list(faults(ROOT / path, text)))
        if found != expected:
            bad.append(f"self-test: {path}: {text}: {found} faults, {expected} expected")
    return bad


def main():
    found = self_test()
    for folder in ("platform", "include", "gateway-interfaces", "media-engine", "gateway"):
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix in (".h", ".cpp"):
                found += faults(path, path.read_text(encoding="utf-8"))
    for line in found:
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
