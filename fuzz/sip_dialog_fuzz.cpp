// A far end that does whatever the bytes say: messages of one or two calls in any order, with any tags and
// CSeq numbers, late, repeated, damaged, while the user agent follows its scripts. Whatever happens, every
// call ends in bounded time with its one closing report, and leaves nothing behind.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>

#include "infra/Logger.h"
#include "useragent/UserAgent.h"

namespace
{

using namespace Quorvex;
using namespace std::chrono_literals;

constexpr std::size_t kAllCalls = std::numeric_limits<std::size_t>::max();
constexpr std::array<const char*, 16> kScripts = {"answer",
                                                  "ring.answer",
                                                  "reliable.answer",
                                                  "answer.bye",
                                                  "ring",
                                                  "early.after3.answer",
                                                  "answer.reinvite.bye",
                                                  "reliable.reliable.answer",
                                                  "answer.after3.bye",
                                                  "refuse486",
                                                  "redirect",
                                                  "slow4.answer",
                                                  "answer.info",
                                                  "ring.after3.bye",
                                                  "answer.reinvite",
                                                  "nobody"};
constexpr std::array<const char*, 8> kOwnScripts = {"answered.bye",
                                                    "bye",
                                                    "ringing.bye",
                                                    "answered.reinvite.bye",
                                                    "answered",
                                                    "answered.after3.bye",
                                                    "follow.answered",
                                                    "answered.info.reinvite"};
constexpr std::array<const char*, 12> kMethods = {"BYE",
                                                  "ACK",
                                                  "INVITE",
                                                  "CANCEL",
                                                  "PRACK",
                                                  "INFO",
                                                  "UPDATE",
                                                  "REFER",
                                                  "NOTIFY",
                                                  "OPTIONS",
                                                  "MESSAGE",
                                                  "ODD"};
constexpr std::array<int, 16> kStatuses = {
    100, 180, 183, 200, 200, 200, 302, 401, 408, 422, 481, 486, 487, 491, 500, 699};
const char* const kSdp =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 40000 RTP/AVP 0\r\n";

/// The agent under test: one for all inputs, as in life.
class Rig
{
public:
    Rig()
    {
        Logging::setRootLevel(eOFF_LEVEL);
        DsSipStackConfig config;
        config.m_vListenPorts = {
            {DsSipTransport::eUDP, "127.0.0.1", 0}
        };
        config.m_uiT1Ms = 1;
        config.m_uiTimerCMs = 100;
        config.m_vCredentials = {
            {"", "user", "secret"}
        };
        std::string error;
        if (!m_agent.start(config, error))
        {
            fail(error);
        }
    }

    UserAgent& agent() { return m_agent; }
    std::uint16_t port() { return m_agent.stack().getListenPorts().front().m_uiPort; }

    /// Everything that the inputs so far began has to end by itself.
    void expectEnd()
    {
        m_agent.hangup(kAllCalls);
        const auto deadline = std::chrono::steady_clock::now() + 15s;
        std::string left;
        for (;;)
        {
            const Counters& counters = m_agent.counters();
            if (counters.m_misreported != 0)
            {
                fail("a call without exactly one closing report");
            }
            const auto statistics = m_agent.stack().getStatistics();
            if (counters.m_ended == counters.m_inbound + counters.m_outbound && statistics.m_ulCalls == 0 &&
                statistics.m_ulDialogs == 0 && statistics.m_ulServerTransactions == 0)
            {
                return;
            }
            if (std::chrono::steady_clock::now() > deadline)
            {
                fail("a call did not end: " + m_agent.describe());
            }
            std::this_thread::sleep_for(1ms);
        }
    }

    [[noreturn]] static void fail(const std::string& in_strWhat)
    {
        std::fprintf(stderr, "does not hold: %s\n", in_strWhat.c_str());
        std::abort();
    }

private:
    UserAgent m_agent;
};

class FarEnd
{
public:
    explicit FarEnd(Rig& in_rig) : m_rig(in_rig), m_fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        static unsigned long s_ulNumber = 0;
        m_strCallId = "fuzz" + std::to_string(++s_ulNumber);
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), size);
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &size);
        m_strMe = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        const sockaddr_in agent = loopback(in_rig.port());
        ::connect(m_fd, reinterpret_cast<const sockaddr*>(&agent), sizeof agent);
        m_strTarget = "sip:answer@127.0.0.1:" + std::to_string(in_rig.port());
    }
    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;
    ~FarEnd() { ::close(m_fd); }

    void act(std::uint8_t in_uiWhat, std::uint8_t in_uiHow)
    {
        switch (in_uiWhat % 10)
        {
            case 0:
                m_strTarget = std::string("sip:") + kScripts[in_uiHow % kScripts.size()] +
                              "@127.0.0.1:" + std::to_string(m_rig.port());
                m_strToTag.clear();
                m_strCallId += 'x';
                request("INVITE", (in_uiHow & 0x10) != 0 ? "Supported: 100rel, timer\r\n" : "");
                break;
            case 1:
            case 2:
                m_uiCSeq += (in_uiHow >> 4U) - 1U;
                request(kMethods[in_uiHow % kMethods.size()],
                        "RAck: " + std::to_string(m_uiRSeq) + " " + std::to_string(m_uiInviteCSeq) +
                            " INVITE\r\nRefer-To: <sip:ring.answer@127.0.0.1>\r\nEvent: refer\r\n");
                break;
            case 3:
            case 4:
                respond(kStatuses[in_uiHow % kStatuses.size()], in_uiHow >> 4U);
                break;
            case 5:
                transmit(m_strLast);
                break;
            case 6:
                std::this_thread::sleep_for(std::chrono::milliseconds(in_uiHow % 8));
                break;
            case 7:
                m_rig.agent().placeCalls(
                    "sip:far@" + m_strMe, kOwnScripts[in_uiHow % kOwnScripts.size()], 1, 0);
                break;
            case 8:
                m_uiDamage = in_uiHow;
                break;
            default:
                (in_uiHow & 1U) != 0 ? m_rig.agent().hangup(kAllCalls) : m_strToTag.push_back('z');
                break;
        }
        m_rig.agent().stack().ping(1000);
        receive();
    }

private:
    static sockaddr_in loopback(std::uint16_t in_uiPort)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(in_uiPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    void transmit(std::string in_strText)
    {
        m_strLast = in_strText;
        if (m_uiDamage != 0 && !in_strText.empty())
        {
            in_strText[m_uiDamage * 7U % in_strText.size()] = static_cast<char>(m_uiDamage);
            m_uiDamage = 0;
        }
        static_cast<void>(::send(m_fd, in_strText.data(), in_strText.size(), MSG_DONTWAIT));
    }

    void request(const std::string& in_strMethod, const std::string& in_strExtra)
    {
        const bool ofInvite = in_strMethod == "ACK" || in_strMethod == "CANCEL";
        if (!ofInvite)
        {
            ++m_uiCSeq;
        }
        if (in_strMethod == "INVITE")
        {
            m_uiInviteCSeq = m_uiCSeq;
        }
        const unsigned int cseq = ofInvite ? m_uiInviteCSeq : m_uiCSeq;
        const std::string body = in_strMethod == "INVITE" ? kSdp : "";
        transmit(in_strMethod + " " + m_strTarget + " SIP/2.0\r\nVia: SIP/2.0/UDP " + m_strMe +
                 ";branch=z9hG4bK" + m_strCallId + std::to_string(cseq) + (ofInvite ? "" : in_strMethod) +
                 "\r\nFrom: <sip:far@" + m_strMe + ">;tag=far\r\nTo: <" + m_strTarget + ">" +
                 (m_strToTag.empty() ? "" : ";tag=" + m_strToTag) + "\r\nCall-ID: " + m_strCallId +
                 "\r\nCSeq: " + std::to_string(cseq) + " " + in_strMethod + "\r\nContact: <sip:far@" +
                 m_strMe + ">\r\nMax-Forwards: 70\r\n" + in_strExtra +
                 (body.empty() ? "" : "Content-Type: application/sdp\r\n") +
                 "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }

    void respond(int in_iStatus, unsigned int in_uiTag)
    {
        if (m_strRequest.empty())
        {
            return;
        }
        std::string text = "SIP/2.0 " + std::to_string(in_iStatus) + " Any\r\n";
        for (const char* const name : {"Via:", "From:", "To:", "Call-ID:", "CSeq:"})
        {
            const std::string value = header(m_strRequest, name);
            text += name + value;
            if (std::string(name) == "To:" && value.find("tag=") == std::string::npos && in_iStatus > 100)
            {
                text += ";tag=t" + std::to_string(in_uiTag % 3);
            }
            text += "\r\n";
        }
        text += "Contact: <sip:far@" + m_strMe + ">\r\n";
        if (in_iStatus == 183)
        {
            text += "Require: 100rel\r\nRSeq: " + std::to_string(in_uiTag + 1) + "\r\n";
        }
        else if (in_iStatus == 401)
        {
            text += "WWW-Authenticate: Digest realm=\"r\", nonce=\"" + std::to_string(in_uiTag) + "\"\r\n";
        }
        else if (in_iStatus == 422)
        {
            text += "Min-SE: " + std::to_string(in_uiTag * 600) + "\r\n";
        }
        transmit(text + "Content-Length: 0\r\n\r\n");
    }

    void receive()
    {
        std::array<char, 4096> buffer{};
        for (;;)
        {
            const ssize_t size = ::recv(m_fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (size <= 0)
            {
                return;
            }
            const std::string text(buffer.data(), static_cast<std::size_t>(size));
            if (text.rfind("SIP/2.0", 0) != 0)
            {
                m_strRequest = text;
                continue;
            }
            const std::string to = header(text, "To:");
            if (const std::size_t tag = to.find("tag="); tag != std::string::npos)
            {
                m_strToTag = to.substr(tag + 4);
            }
            if (const std::string rseq = header(text, "RSeq:"); !rseq.empty())
            {
                m_uiRSeq = static_cast<unsigned int>(std::strtoul(rseq.c_str(), nullptr, 10));
            }
        }
    }

    static std::string header(const std::string& in_strText, const std::string& in_strName)
    {
        const std::size_t at = in_strText.find("\r\n" + in_strName);
        if (at == std::string::npos)
        {
            return std::string();
        }
        const std::size_t begin = at + 2 + in_strName.size();
        return in_strText.substr(begin, in_strText.find("\r\n", begin) - begin);
    }

    Rig& m_rig;
    int m_fd;
    std::string m_strMe;
    std::string m_strTarget;
    std::string m_strCallId;
    std::string m_strToTag;
    std::string m_strLast;
    std::string m_strRequest;
    unsigned int m_uiCSeq = 0;
    unsigned int m_uiInviteCSeq = 0;
    unsigned int m_uiRSeq = 0;
    unsigned int m_uiDamage = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* in_pData, std::size_t in_size)
{
    static Rig* const s_pRig = new Rig;  // lives as long as the program
    {
        FarEnd far(*s_pRig);
        for (std::size_t i = 0; i + 1 < in_size && i < 60; i += 2)
        {
            far.act(in_pData[i], in_pData[i + 1]);
        }
    }
    s_pRig->expectEnd();
    return 0;
}
