// A user agent on the SIP object layer, for sipp to drive: it answers every call, and hangs up what it is
// told to.
//
//   sip-useragent [--port N] [--transport udp|tcp] [--t1 MS] [--ring] [--early] [--reliable] [--hangup]
//                 [--reject CODE]
//
// Prints the port that it listens on, then one line of counters whenever it gets a line on standard input;
// ends with the end of standard input, when it prints what is left in its memory accounts.

#include <sys/resource.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <string>

#include "infra/MemAccount.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipPrackMessage.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/DsSipStack.h"

using namespace Quorvex;

namespace
{

const char* const kSdp =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 40000 RTP/AVP 0\r\n";

struct Settings
{
    bool m_bRing = false;
    bool m_bEarly = false;
    bool m_bReliable = false;
    bool m_bHangup = false;
    unsigned int m_uiReject = 0;
};

struct Counters
{
    std::atomic<unsigned long> m_called{0};
    std::atomic<unsigned long> m_confirmed{0};
    std::atomic<unsigned long> m_terminated{0};  // calls that had their last report
};

Settings s_settings;
Counters s_counters;

class Answerer final : public DsSipIncomingCallinterface
{
public:
    ~Answerer() override { ++s_counters.m_terminated; }

    void called(const DsHandle<DsSipIncomingCall>& in_hCall,
                const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        ++s_counters.m_called;
        if (s_settings.m_uiReject != 0)
        {
            in_hCall->answer(makeDs<DsSipResponse>(s_settings.m_uiReject, in_hInvite));
            return;
        }
        if (s_settings.m_bRing)
        {
            in_hCall->answer(makeDs<DsSipResponse>(180, in_hInvite));
        }
        if (s_settings.m_bEarly)
        {
            const auto early = makeDs<DsSipResponse>(183, in_hInvite, "", kSdp, "application/sdp");
            if (s_settings.m_bReliable)
            {
                in_hCall->sendReliableProvisionalResponse(early);
            }
            else
            {
                in_hCall->answer(early);
            }
        }
        in_hCall->answer(makeDs<DsSipResponse>(200, in_hInvite, "", kSdp, "application/sdp"));
    }
    void prack(const DsHandle<DsSipIncomingCall>&, const DsHandle<DsSipPrackMessage>&) override {}
    void callConfirmed(const DsHandle<DsSipIncomingCall>& in_hCall, const DsHandle<DsSipAckMessage>&) override
    {
        ++s_counters.m_confirmed;
        if (s_settings.m_bHangup)
        {
            in_hCall->hangup();
        }
    }
    void terminated(const DsHandle<DsSipIncomingCall>& in_hCall,
                    const DsHandle<DsSipMessage>& in_hMessage) override
    {
        if (const auto request = in_hMessage.dynamicCast<DsSipRequest>();
            !request.isNil() && request->getMethod() == "BYE")
        {
            in_hCall->respondToBye(makeDs<DsSipResponse>(200, request));
        }
    }
    void unknownRequest(const DsHandle<DsSipIncomingCall>&,
                        const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest) override
    {
        in_hTransaction->sendResponse(makeDs<DsSipResponse>(200, in_hRequest));
    }
    void referRequest(const DsHandle<DsSipIncomingCall>&,
                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                      const DsHandle<DsSipRequest>& in_hRefer) override
    {
        in_hTransaction->sendResponse(makeDs<DsSipResponse>(603, in_hRefer));
    }
    void notifyResponse(const DsHandle<DsSipIncomingCall>&, const DsHandle<DsSipResponse>&) override {}
    void reinviteRequest(const DsHandle<DsSipIncomingCall>& in_hCall,
                         const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        in_hCall->respondToReinvite(makeDs<DsSipResponse>(200, in_hInvite, "", kSdp, "application/sdp"));
    }
    void reinviteCancel(const DsHandle<DsSipIncomingCall>&, const DsHandle<DsSipRequest>&) override {}
    void reinviteResponse(const DsHandle<DsSipIncomingCall>&, const DsHandle<DsSipResponse>&) override {}
    void reinviteAck(const DsHandle<DsSipIncomingCall>&, const DsHandle<DsSipAckMessage>&) override {}
    void reinviteTimeOut(const DsHandle<DsSipIncomingCall>&, const DsHandle<DsSipInviteMessage>&) override {}
    void onSessionTimeOut(const DsHandle<DsSipIncomingCall>&) override {}
    void onSessionRefreshTime(const DsHandle<DsSipIncomingCall>&) override {}
    void replacesDialog(const DsHandle<DsSipIncomingCall>& in_hCall,
                        const DsHandle<DsSipDialog>& in_hReplaced,
                        const DsHandle<DsSipDialog>& in_hNew,
                        const DsHandle<DsSipInviteMessage>&) override
    {
        in_hCall->rejectReplaces(in_hReplaced, in_hNew);
    }
};

class Doorkeeper final : public DsSipNewCallinterface
{
    DsHandle<DsSipIncomingCall> newCall(const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        return makeDs<DsSipIncomingCall>(in_hInvite,
                                         DsHandle<DsSipIncomingCallinterface>(makeDs<Answerer>()));
    }
};

void printCounters(const DsSipStack& in_stack)
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto us = [](const timeval& in_time) { return in_time.tv_sec * 1000000L + in_time.tv_usec; };
    const DsSipStackStatistics statistics = in_stack.getStatistics();
    std::cout << "called=" << s_counters.m_called << " confirmed=" << s_counters.m_confirmed
              << " ended=" << s_counters.m_terminated << " alive=" << statistics.m_ulCalls
              << " cpu_us=" << us(usage.ru_utime) + us(usage.ru_stime) << " maxrss_kib=" << usage.ru_maxrss
              << std::endl;
}

}  // namespace

int main(int argc, char** argv)
{
    DsSipStackConfig config;
    DsSipListenPort port{DsSipTransport::eUDP, "127.0.0.1", 0};
    for (int i = 1; i < argc; ++i)
    {
        const std::string option = argv[i];
        const char* const value = i + 1 < argc ? argv[i + 1] : "";
        if (option == "--ring")
        {
            s_settings.m_bRing = true;
        }
        else if (option == "--early" || option == "--reliable")
        {
            s_settings.m_bEarly = true;
            s_settings.m_bReliable = s_settings.m_bReliable || option == "--reliable";
        }
        else if (option == "--hangup")
        {
            s_settings.m_bHangup = true;
        }
        else if (option == "--port" && ++i < argc)
        {
            port.m_uiPort = static_cast<std::uint16_t>(std::atoi(value));
        }
        else if (option == "--transport" && ++i < argc)
        {
            port.m_transport = std::string(value) == "tcp" ? DsSipTransport::eTCP : DsSipTransport::eUDP;
        }
        else if (option == "--t1" && ++i < argc)
        {
            config.m_uiT1Ms = static_cast<unsigned int>(std::atoi(value));
        }
        else if (option == "--reject" && ++i < argc)
        {
            s_settings.m_uiReject = static_cast<unsigned int>(std::atoi(value));
        }
        else
        {
            std::cerr << "sip-useragent: unknown option " << option << '\n';
            return 2;
        }
    }
    config.m_vListenPorts = {port};
    DsSipStack stack;
    std::string error;
    if (!stack.start(config, DsHandle<DsSipNewCallinterface>(new Doorkeeper), error))
    {
        std::cerr << "sip-useragent: " << error << '\n';
        return 1;
    }
    std::cout << stack.getListenPorts()[0].m_uiPort << std::endl;
    for (std::string line; std::getline(std::cin, line);)
    {
        printCounters(stack);
    }
    stack.stop(5000);
    printCounters(stack);
    int left = 0;
    for (const char* const account :
         {"DsSipIncomingCall", "DsSipDialog", "DsSipServerTransaction", "DsSipMessage"})
    {
        const auto live = MemAccounts::get(account).liveObjects();
        left += live != 0 ? 1 : 0;
        std::cout << account << "=" << live << std::endl;
    }
    return left == 0 ? 0 : 1;
}
