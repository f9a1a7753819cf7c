// The SIP base library by itself as an answering agent: what a call costs below the SIP object layer. Answers
// every INVITE with 180 and 200, every BYE with 200. Prints its port; ends with the end of standard input.

#include <poll.h>

#include <ctime>

struct Call;
#define NTA_LEG_MAGIC_T Call
#define NTA_INCOMING_MAGIC_T Call

#include <sofia-sip/nta.h>
#include <sofia-sip/nta_tport.h>
#include <sofia-sip/sip_status.h>
#include <sofia-sip/su_wait.h>
#include <sofia-sip/tport.h>
#include <sofia-sip/tport_tag.h>

#include <climits>
#include <iostream>
#include <string>

struct Call
{
    nta_leg_t* m_pLeg = nullptr;
    nta_incoming_t* m_pInvite = nullptr;
};

namespace
{

const char* const kSdp =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 40000 RTP/AVP 0\r\n";

nta_agent_t* s_pAgent = nullptr;
std::string s_strContact;
unsigned long s_ulEvents = 0;

int onDialog(Call* io_pCall, nta_leg_t*, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    ++s_ulEvents;
    if (in_pSip->sip_request->rq_method == sip_method_bye)
    {
        nta_incoming_treply(in_pIrq, SIP_200_OK, TAG_END());
        nta_incoming_destroy(in_pIrq);
        nta_leg_destroy(io_pCall->m_pLeg);
        if (io_pCall->m_pInvite != nullptr)
        {
            nta_incoming_destroy(io_pCall->m_pInvite);
        }
        delete io_pCall;
        return 0;
    }
    return 501;
}

int onAck(Call* io_pCall, nta_incoming_t* in_pIrq, const sip_t*)
{
    ++s_ulEvents;
    nta_incoming_destroy(in_pIrq);
    io_pCall->m_pInvite = nullptr;
    return 0;
}

int onRequest(Call*, nta_leg_t*, nta_incoming_t* in_pIrq, const sip_t* in_pSip)
{
    ++s_ulEvents;
    if (in_pSip->sip_request->rq_method != sip_method_invite || in_pSip->sip_to->a_tag != nullptr)
    {
        return 481;
    }
    auto* const call = new Call;
    call->m_pInvite = in_pIrq;
    call->m_pLeg = nta_leg_tcreate(s_pAgent,
                                   onDialog,
                                   call,
                                   SIPTAG_CALL_ID(in_pSip->sip_call_id),
                                   SIPTAG_FROM(in_pSip->sip_to),
                                   SIPTAG_TO(in_pSip->sip_from),
                                   TAG_END());
    nta_leg_tag(call->m_pLeg, nta_incoming_tag(in_pIrq, nullptr));
    nta_leg_server_route(call->m_pLeg, in_pSip->sip_record_route, in_pSip->sip_contact);
    nta_incoming_bind(in_pIrq, onAck, call);
    nta_incoming_treply(in_pIrq, SIP_180_RINGING, SIPTAG_CONTACT_STR(s_strContact.c_str()), TAG_END());
    nta_incoming_treply(in_pIrq,
                        SIP_200_OK,
                        SIPTAG_CONTACT_STR(s_strContact.c_str()),
                        SIPTAG_CONTENT_TYPE_STR("application/sdp"),
                        SIPTAG_PAYLOAD_STR(kSdp),
                        TAG_END());
    return 0;
}

}  // namespace

int main()
{
    su_init();
    su_root_t* const root = su_root_create(nullptr);
    s_pAgent = nta_agent_create(root,
                                URL_STRING_MAKE("sip:127.0.0.1:*;transport=udp"),
                                nullptr,
                                nullptr,
                                NTATAG_UA(1),
                                NTATAG_PROGRESS(UINT_MAX),
                                NTATAG_UDP_MTU(65535),
                                TPTAG_UDP_RMEM(4 * 1024 * 1024),
                                TAG_END());
    if (s_pAgent == nullptr)
    {
        std::cerr << "cannot open a port\n";
        return 1;
    }
    nta_leg_t* const leg = nta_leg_tcreate(s_pAgent, onRequest, nullptr, NTATAG_NO_DIALOG(1), TAG_END());
    const std::string port = tport_name(tport_primaries(nta_agent_tports(s_pAgent)))->tpn_port;
    s_strContact = "<sip:nta@127.0.0.1:" + port + ">";
    std::cout << "ports " << port << std::endl;
    for (;;)
    {
        // Step by step, as the layer does it: the library's own loop spins before each timer.
        const unsigned long seen = s_ulEvents;
        const su_duration_t next = su_root_step(root, 100);
        if (next <= 0 && seen == s_ulEvents)
        {
            const timespec rest = {0, 250000};
            ::nanosleep(&rest, nullptr);
        }
        pollfd input = {0, POLLIN, 0};
        if (::poll(&input, 1, 0) > 0)
        {
            break;
        }
    }
    nta_leg_destroy(leg);
    nta_agent_destroy(s_pAgent);
    su_root_destroy(root);
    su_deinit();
    return 0;
}
