"""What calls through a gateway do: the scripts of caller and called parties for each kind of call."""
import asyncio

from soak_party import CALL_ENDED_S, Ended, Silent, T1_S, sdp

TALK_S = 0.2
PATIENCE_S = 2 * CALL_ENDED_S  # how long a party waits for what the other one should do before it does it itself


class Call:
    """One call: a number that all its user parts carry, its legs, and what became of each."""

    def __init__(self, flow, number, caller_party, callee_party, cuts=None, talk=TALK_S):
        self.flow, self.number = flow, number
        self.caller_party, self.callee_party = caller_party, callee_party
        self.cuts = cuts or {}  # by role
        self.talk = talk
        self.outcomes = {}
        self.call_ids = {}
        self.tasks = []

    def user(self, role="callee"):
        return f"x{self.number}-{role}"

    def uri(self, role="callee"):
        """A user of the gateway, for the caller."""
        return f"sip:{self.user(role)}@127.0.0.1:{self.caller_party.gateway[1]}"

    def direct_uri(self, role):
        return f"sip:{self.user(role)}@127.0.0.1:{self.callee_party.port}"

    def begin(self):
        for role, script in self.flow.callees.items():
            self.callee_party.expected[self.user(role)] = lambda message, r=role, s=script: self.joined(message, r, s)
        leg = self.caller_party.leg(f"caller{self.number}x{self.caller_party.port}", self.cuts.get("caller"))
        self.follow("caller", self.caller_party, leg, self.flow.caller(self, leg))
        return self

    def joined(self, message, role, script):
        leg = self.callee_party.leg(message.call_id, self.cuts.get(role))
        self.follow(role, self.callee_party, leg, script(self, leg))
        return leg

    def follow(self, role, party, leg, script):
        self.call_ids[role] = leg.call_id

        async def told():
            try:
                self.outcomes[role] = await script
            except Ended as end:
                self.outcomes[role] = f"ended by {end}"
                await asyncio.sleep(0)
            except Silent as silence:
                self.outcomes[role] = f"silence: {silence}"
                if not leg.ended and leg.target:
                    await leg.hang_up()
        self.tasks.append(party.run(leg, told()))

    async def finished(self):
        """Waits for every script that has begun; forgets those that will not."""
        while any(not task.done() for task in self.tasks):
            await asyncio.wait(self.tasks)
        for role in self.flow.callees:
            self.callee_party.expected.pop(self.user(role), None)
        return self.outcomes


# Callers

async def call_answered(call, leg, headers=(), body=None):
    """Dials; the final status, 0 when there was none."""
    invite = leg.dial(call.uri(), sdp(leg.media_port) if body is None else body, headers)
    final = await leg.answered(invite)
    return final.status if final else 0


async def caller_hangs_up(call, leg):
    status = await call_answered(call, leg)
    if status == 200:
        await leg.rest(call.talk)
        await leg.hang_up()
    return status


async def caller_waits(call, leg):
    status = await call_answered(call, leg)
    if status == 200:
        try:
            await leg.expect("BYE", seconds=PATIENCE_S)
        except Silent:
            await leg.hang_up()
    return status


async def caller_gives_up(call, leg):
    invite = leg.dial(call.uri(), sdp(leg.media_port))
    await invite.provisional.wait()
    try:
        await asyncio.wait_for(invite.ringing.wait(), 10 * T1_S)
    except asyncio.TimeoutError:
        pass
    if invite.final.done():
        final = await leg.answered(invite)
        return final.status if final else 0
    leg.cancel()
    final = await leg.answered(invite, PATIENCE_S)
    if final is not None and final.status == 200:
        await leg.hang_up()
    return final.status if final else 0


async def caller_wants_reliable_ringing(call, leg):
    status = await call_answered(call, leg, headers=("Require: 100rel",))
    if status == 200:
        await leg.rest(call.talk)
        await leg.hang_up()
    return status


async def caller_offers_late(call, leg):
    status = await call_answered(call, leg, body="")
    if status == 200:
        await leg.rest(call.talk)
        await leg.hang_up()
    return status


async def reinvite(leg, direction, version):
    """Offers again, more than once when both do at the same time; the final status."""
    for _ in range(6):
        final = await leg.answered(leg.start("INVITE", sdp(leg.media_port, direction, version)), PATIENCE_S)
        if final is None or final.status not in (491, 500):
            break
        await leg.rest(4 * T1_S)
    return final.status if final else 0


async def caller_holds_and_resumes(call, leg):
    status = await call_answered(call, leg)
    if status == 200:
        for version, direction in ((2, "sendonly"), (3, "sendrecv")):
            status = await reinvite(leg, direction, version)
            await leg.rest(call.talk / 2)
        await leg.hang_up()
    return status


async def caller_sends_info(call, leg):
    status = await call_answered(call, leg)
    if status == 200:
        final = await leg.request("INFO", "from the caller")
        status = final.status if final else 0
        await leg.rest(call.talk)
        await leg.hang_up()
    return status


async def caller_transfers(call, leg):
    status = await call_answered(call, leg)
    if status == 200:
        await leg.rest(call.talk)
        final = await leg.request("REFER", headers=(f"Refer-To: <{call.uri('target')}>",))
        if final is None or final.status != 202:
            await leg.hang_up()
            return f"REFER {final.status if final else 0}"
        try:
            while "terminated" not in (await leg.expect("NOTIFY", "BYE", seconds=PATIENCE_S)).get("subscription-state"):
                if leg.ended:
                    return status
        except Silent:
            pass
        if not leg.ended:
            await leg.hang_up()
    return status


# Called parties

async def ring(leg):
    invite = await leg.expect("INVITE")
    leg.respond(invite, 180, "Ringing")
    await asyncio.sleep(T1_S)
    return invite


async def answer(leg, invite):
    """Answers and waits for the ACK; what came instead, when something did."""
    leg.respond(invite, 200, "OK", sdp(leg.media_port))
    await leg.expect("ACK", seconds=PATIENCE_S)


async def until_hung_up(leg):
    try:
        await leg.expect("BYE", seconds=PATIENCE_S)
    except Silent:
        await leg.hang_up()
    return 200


async def callee_answers(call, leg):
    await answer(leg, await ring(leg))
    return await until_hung_up(leg)


async def callee_hangs_up(call, leg):
    await answer(leg, await ring(leg))
    await leg.rest(call.talk)
    await leg.hang_up()
    return 200


async def callee_rings(call, leg):
    invite = await leg.expect("INVITE")
    leg.respond(invite, 180, "Ringing")
    try:
        await leg.expect("CANCEL", seconds=PATIENCE_S)
    except Silent:
        leg.respond(invite, 480, "Temporarily Unavailable")
        return 480
    leg.respond(invite, 487, "Request Terminated")
    await leg.expect("ACK", seconds=PATIENCE_S)
    return 487


async def callee_refuses(call, leg):
    leg.respond(await leg.expect("INVITE"), 486, "Busy Here")
    await leg.expect("ACK", seconds=PATIENCE_S)
    return 486


async def callee_redirects(call, leg):
    leg.respond(await leg.expect("INVITE"), 302, "Moved", headers=(f"Contact: <{call.direct_uri('target')}>",))
    await leg.expect("ACK", seconds=PATIENCE_S)
    return 302


async def callee_sends_early_media(call, leg):
    invite = await leg.expect("INVITE")
    leg.respond(invite, 183, "Session Progress", sdp(leg.media_port))
    await asyncio.sleep(2 * T1_S)
    await answer(leg, invite)
    return await until_hung_up(leg)


async def callee_rings_reliably(call, leg):
    invite = await leg.expect("INVITE")
    leg.respond(invite, 180, "Ringing", reliable="100rel" in invite.get("supported") + invite.get("require"))
    while leg.provisional_timer:
        await asyncio.sleep(T1_S / 2)
    await answer(leg, invite)
    return await until_hung_up(leg)


async def callee_offers_again(call, leg):
    await answer(leg, await ring(leg))
    status = await reinvite(leg, "sendrecv", 2)
    await until_hung_up(leg)
    return status


async def callee_sends_info(call, leg):
    await answer(leg, await ring(leg))
    final = await leg.request("INFO", "from the callee")
    await until_hung_up(leg)
    return final.status if final else 0


async def target_answers(call, leg):
    await answer(leg, await ring(leg))
    await leg.rest(2 * call.talk)
    await leg.hang_up()
    return 200


class Flow:
    """A kind of call: its scripts by role, and what each role and record must end with when no more is lost than
    the protocol makes good."""

    def __init__(self, name, caller, callees, statuses):
        self.name, self.caller, self.callees, self.statuses = name, caller, callees, statuses


def both(caller, callee=200, **others):
    return {"caller": caller, "callee": callee, **others}


FLOWS = [
    Flow("the caller hangs up", caller_hangs_up, {"callee": callee_answers}, both(200)),
    Flow("the callee hangs up", caller_waits, {"callee": callee_hangs_up}, both(200)),
    Flow("abandoned while ringing", caller_gives_up, {"callee": callee_rings}, both(487, 487)),
    Flow("refused", caller_hangs_up, {"callee": callee_refuses}, both(486, 486)),
    Flow("redirected", caller_hangs_up, {"callee": callee_redirects, "target": callee_answers}, both(200, 302, target=200)),
    Flow("early media", caller_hangs_up, {"callee": callee_sends_early_media}, both(200)),
    Flow("reliable ringing", caller_wants_reliable_ringing, {"callee": callee_rings_reliably}, both(200)),
    Flow("late offer", caller_offers_late, {"callee": callee_answers}, both(200)),
    Flow("re-INVITEs from both", caller_holds_and_resumes, {"callee": callee_offers_again}, both(200)),
    Flow("INFO from both", caller_sends_info, {"callee": callee_sends_info}, both(200)),
    Flow("transferred by REFER", caller_transfers, {"callee": callee_answers, "target": target_answers},
         both(200, 200, target=200)),
]

ROUTE = {"name": "across", "match": {"sip.in.requestUri": "^sip:(x[0-9a-z-]+)@"}}


def route(callee_port):
    return {**ROUTE, "leg": {"sip.out.requestUri": f"sip:$1@127.0.0.1:{callee_port}"}}


T1_MS = int(T1_S * 1000)
