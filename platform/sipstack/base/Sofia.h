#pragma once

// The one place that includes the SIP base library. Its context types are chosen by macros before the
// headers, and must be the same in every file of the program.

namespace Quorvex
{
class LegHandler;
class IncomingHandler;
class OutgoingHandler;
class ReliableHandler;
}  // namespace Quorvex

#define NTA_LEG_MAGIC_T ::Quorvex::LegHandler
#define NTA_INCOMING_MAGIC_T ::Quorvex::IncomingHandler
#define NTA_OUTGOING_MAGIC_T ::Quorvex::OutgoingHandler
#define NTA_RELIABLE_MAGIC_T ::Quorvex::ReliableHandler

#include <sofia-sip/msg_addr.h>
#include <sofia-sip/msg_mclass.h>
#include <sofia-sip/nta.h>
#include <sofia-sip/nta_tport.h>
#include <sofia-sip/sip.h>
#include <sofia-sip/sip_header.h>
#include <sofia-sip/sip_parser.h>
#include <sofia-sip/sip_status.h>
#include <sofia-sip/sip_tag.h>
#include <sofia-sip/sip_util.h>
#include <sofia-sip/su_log.h>
#include <sofia-sip/su_uniqueid.h>
#include <sofia-sip/su_wait.h>
#include <sofia-sip/tport.h>
#include <sofia-sip/tport_tag.h>

// The one header that forgets to say that it is C.
extern "C"
{
#include <sofia-sip/tport_plugins.h>
}

namespace Quorvex
{

/// Takes the requests of a leg. The result is a final status for the base library to send, or 0 when the
/// handler answers (now or later) itself.
class LegHandler
{
public:
    virtual int onLegRequest(nta_leg_t* in_pLeg, nta_incoming_t* in_pIrq, const sip_t* in_pSip) = 0;

    static int callback(LegHandler* in_pThis,
                        nta_leg_t* in_pLeg,
                        nta_incoming_t* in_pIrq,
                        const sip_t* in_pSip);

protected:
    ~LegHandler() = default;
};

/// Takes what follows an INVITE that was received: its ACK, its CANCEL, or null for a time-out.
class IncomingHandler
{
public:
    virtual void onIncoming(nta_incoming_t* in_pIrq, const sip_t* in_pSip) = 0;

    static int callback(IncomingHandler* in_pThis, nta_incoming_t* in_pIrq, const sip_t* in_pSip);

protected:
    ~IncomingHandler() = default;
};

/// Takes the responses to a request that was sent.
class OutgoingHandler
{
public:
    virtual void onOutgoing(nta_outgoing_t* in_pOrq, const sip_t* in_pSip) = 0;

    static int callback(OutgoingHandler* in_pThis, nta_outgoing_t* in_pOrq, const sip_t* in_pSip);

protected:
    ~OutgoingHandler() = default;
};

/// Takes the PRACK of a reliable provisional response; null when none came.
class ReliableHandler
{
public:
    virtual int onPrack(nta_reliable_t* in_pReliable, nta_incoming_t* in_pIrq, const sip_t* in_pSip) = 0;

    static int callback(ReliableHandler* in_pThis,
                        nta_reliable_t* in_pReliable,
                        nta_incoming_t* in_pIrq,
                        const sip_t* in_pSip);

protected:
    ~ReliableHandler() = default;
};

}  // namespace Quorvex
