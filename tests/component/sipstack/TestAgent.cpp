#include "TestAgent.h"

#include <gtest/gtest.h>

#include <thread>

#include "infra/MemAccount.h"

namespace Quorvex
{

namespace
{

class IncomingRecorder final : public DsSipIncomingCallinterface
{
public:
    explicit IncomingRecorder(Reports& in_reports) : m_reports(in_reports) {}

    using Call = DsHandle<DsSipIncomingCall>;
    void called(const Call& c, const DsHandle<DsSipInviteMessage>& m) override { add("called", c, m); }
    void prack(const Call& c, const DsHandle<DsSipPrackMessage>& m) override { add("prack", c, m); }
    void callConfirmed(const Call& c, const DsHandle<DsSipAckMessage>& m) override
    {
        add("callConfirmed", c, m);
    }
    void terminated(const Call& c, const DsHandle<DsSipMessage>& m) override { add("terminated", c, m); }
    void unknownRequest(const Call& c,
                        const DsHandle<DsSipServerTransaction>& t,
                        const DsHandle<DsSipRequest>& m) override
    {
        add("unknownRequest", c, m, t);
    }
    void referRequest(const Call& c,
                      const DsHandle<DsSipServerTransaction>& t,
                      const DsHandle<DsSipRequest>& m) override
    {
        add("referRequest", c, m, t);
    }
    void notifyResponse(const Call& c, const DsHandle<DsSipResponse>& m) override
    {
        add("notifyResponse", c, m);
    }
    void reinviteRequest(const Call& c, const DsHandle<DsSipInviteMessage>& m) override
    {
        add("reinviteRequest", c, m);
    }
    void reinviteCancel(const Call& c, const DsHandle<DsSipRequest>& m) override
    {
        add("reinviteCancel", c, m);
    }
    void reinviteResponse(const Call& c, const DsHandle<DsSipResponse>& m) override
    {
        add("reinviteResponse", c, m);
    }
    void reinviteAck(const Call& c, const DsHandle<DsSipAckMessage>& m) override { add("reinviteAck", c, m); }
    void reinviteTimeOut(const Call& c, const DsHandle<DsSipInviteMessage>& m) override
    {
        add("reinviteTimeOut", c, m);
    }
    void onSessionTimeOut(const Call& c) override { add("onSessionTimeOut", c, nullptr); }
    void onSessionRefreshTime(const Call& c) override { add("onSessionRefreshTime", c, nullptr); }
    void replacesDialog(const Call& c,
                        const DsHandle<DsSipDialog>& d,
                        const DsHandle<DsSipDialog>& n,
                        const DsHandle<DsSipInviteMessage>& m) override
    {
        m_reports.add({"replacesDialog", c, nullptr, m, d, n, nullptr});
    }

private:
    void add(const char* in_szName,
             const Call& in_hCall,
             const DsHandle<DsSipMessage>& in_hMessage,
             const DsHandle<DsSipServerTransaction>& in_hTransaction = nullptr)
    {
        m_reports.add(
            {in_szName, in_hCall, nullptr, in_hMessage, in_hCall->getDialog(), nullptr, in_hTransaction});
    }

    Reports& m_reports;
};

class OutgoingRecorder final : public DsSipOutgoingCallinterface
{
public:
    explicit OutgoingRecorder(Reports& in_reports) : m_reports(in_reports) {}

    using Call = DsHandle<DsSipOutgoingCall>;
    using Dialog = DsHandle<DsSipDialog>;
    using Response = DsHandle<DsSipResponse>;
    using Transaction = DsHandle<DsSipServerTransaction>;
    using Request = DsHandle<DsSipRequest>;
    void reliableProvisionalResponse(const Call& c, const Dialog& d, const Response& m) override
    {
        add("reliableProvisionalResponse", c, d, m);
    }
    void provisionalResponse(const Call& c, const Dialog& d, const Response& m) override
    {
        add("provisionalResponse", c, d, m);
    }
    void failedToConnect(const Call& c, const Dialog& d, const Response& m) override
    {
        add("failedToConnect", c, d, m);
    }
    void redirect(const Call& c, const Dialog& d, const Response& m) override { add("redirect", c, d, m); }
    void succeeded(const Call& c, const Dialog& d, const Response& m) override { add("succeeded", c, d, m); }
    void dialogTerminated(const Call& c, const Dialog& d, const DsHandle<DsSipMessage>& m) override
    {
        add("dialogTerminated", c, d, m);
    }
    void terminated(const Call& c, const DsHandle<DsSipMessage>& m) override
    {
        add("terminated", c, nullptr, m);
    }
    void unknownRequest(const Call& c, const Dialog& d, const Transaction& t, const Request& m) override
    {
        add("unknownRequest", c, d, m, t);
    }
    void referRequest(const Call& c, const Dialog& d, const Transaction& t, const Request& m) override
    {
        add("referRequest", c, d, m, t);
    }
    void referResponse(const Call& c, const Dialog& d, const Response& m) override
    {
        add("referResponse", c, d, m);
    }
    void notifyRequest(const Call& c, const Dialog& d, const Transaction& t, const Request& m) override
    {
        add("notifyRequest", c, d, m, t);
    }
    void notifyResponse(const Call& c, const Dialog& d, const Response& m) override
    {
        add("notifyResponse", c, d, m);
    }
    void reinviteRequest(const Call& c, const Dialog& d, const DsHandle<DsSipInviteMessage>& m) override
    {
        add("reinviteRequest", c, d, m);
    }
    void reinviteCancel(const Call& c, const Dialog& d, const Request& m) override
    {
        add("reinviteCancel", c, d, m);
    }
    void reinviteResponse(const Call& c, const Dialog& d, const Response& m) override
    {
        add("reinviteResponse", c, d, m);
    }
    void reinviteAck(const Call& c, const Dialog& d, const DsHandle<DsSipAckMessage>& m) override
    {
        add("reinviteAck", c, d, m);
    }
    void reinviteTimeOut(const Call& c, const Dialog& d, const DsHandle<DsSipInviteMessage>& m) override
    {
        add("reinviteTimeOut", c, d, m);
    }
    void onSessionTimeOut(const Call& c, const Dialog& d) override { add("onSessionTimeOut", c, d, nullptr); }
    void onSessionRefreshTime(const Call& c, const Dialog& d) override
    {
        add("onSessionRefreshTime", c, d, nullptr);
    }
    void multipleResponse(const Call& c, const Dialog& d, const Response& m) override
    {
        add("multipleResponse", c, d, m);
    }
    void replacesDialog(const Call& c,
                        const Dialog& d,
                        const Dialog& n,
                        const DsHandle<DsSipInviteMessage>& m) override
    {
        m_reports.add({"replacesDialog", nullptr, c, m, d, n, nullptr});
    }

private:
    void add(const char* in_szName,
             const Call& in_hCall,
             const Dialog& in_hDialog,
             const DsHandle<DsSipMessage>& in_hMessage,
             const Transaction& in_hTransaction = nullptr)
    {
        m_reports.add({in_szName, nullptr, in_hCall, in_hMessage, in_hDialog, nullptr, in_hTransaction});
    }

    Reports& m_reports;
};

class NewCalls final : public DsSipNewCallinterface
{
public:
    explicit NewCalls(Reports& in_reports) : m_reports(in_reports) {}
    DsHandle<DsSipIncomingCall> newCall(const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        return makeDs<DsSipIncomingCall>(
            in_hInvite, DsHandle<DsSipIncomingCallinterface>(makeDs<IncomingRecorder>(m_reports)));
    }

private:
    Reports& m_reports;
};

}  // namespace

void Reports::add(Report in_report)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_vReports.push_back(std::move(in_report));
    m_condition.notify_all();
}

Report Reports::next(std::chrono::milliseconds in_timeout)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_condition.wait_for(lock, in_timeout, [&] { return !m_vReports.empty(); }))
    {
        ADD_FAILURE() << "nothing was reported in time";
        return Report();
    }
    Report report = std::move(m_vReports.front());
    m_vReports.pop_front();
    return report;
}

Report Reports::expect(const std::string& in_strName, std::chrono::milliseconds in_timeout)
{
    Report report = next(in_timeout);
    EXPECT_EQ(report.m_strName, in_strName)
        << (report.m_hMessage.isNil() ? std::string("without a message") : report.m_hMessage->getStartLine());
    return report;
}

bool Reports::empty()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_vReports.empty();
}

TestAgent::TestAgent(DsSipStackConfig in_config)
{
    std::string error;
    EXPECT_TRUE(m_stack.start(in_config, DsHandle<DsSipNewCallinterface>(makeDs<NewCalls>(m_reports)), error))
        << error;
}

TestAgent::~TestAgent()
{
    m_stack.stop();
}

DsSipStackConfig TestAgent::defaults()
{
    DsSipStackConfig config;
    config.m_vListenPorts = {
        {DsSipTransport::eUDP, "127.0.0.1", 0}
    };
    config.m_uiT1Ms = 20;
    config.m_strContactUser = "gateway";
    return config;
}

DsHandle<DsSipOutgoingCall> TestAgent::call(const std::string& in_strUri,
                                            const std::function<void(DsSipInviteMessage&)>& in_change)
{
    const auto invite = makeDs<DsSipInviteMessage>(in_strUri);
    invite->addHeader("From", "<sip:test@127.0.0.1>;tag=mine");
    invite->addHeader("To", "<" + in_strUri + ">");
    if (in_change)
    {
        in_change(*invite);
    }
    return DsSipOutgoingCall::create(
        invite, DsHandle<DsSipOutgoingCallinterface>(makeDs<OutgoingRecorder>(m_reports)), nullptr, &m_stack);
}

DsHandle<DsSipResponse> TestAgent::response(unsigned int in_uiStatus,
                                            const DsHandle<DsSipRequest>& in_hRequest,
                                            const std::string& in_strSdp)
{
    return makeDs<DsSipResponse>(in_uiStatus, in_hRequest, "", in_strSdp, "application/sdp");
}

void TestAgent::expectEmpty()
{
    const auto alive = [&]
    {
        const DsSipStackStatistics s = m_stack.getStatistics();
        std::int64_t objects = 0;
        for (const char* const account :
             {"DsSipIncomingCall", "DsSipOutgoingCall", "DsSipDialog", "DsSipServerTransaction"})
        {
            objects += static_cast<std::int64_t>(MemAccounts::get(account).liveObjects());
        }
        return static_cast<std::int64_t>(s.m_ulCalls + s.m_ulDialogs + s.m_ulServerTransactions) + objects;
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (alive() != 0 && std::chrono::steady_clock::now() < deadline)
    {
        m_stack.ping(1000);
        std::this_thread::yield();
    }
    const DsSipStackStatistics s = m_stack.getStatistics();
    EXPECT_EQ(s.m_ulCalls, 0U);
    EXPECT_EQ(s.m_ulDialogs, 0U);
    EXPECT_EQ(s.m_ulServerTransactions, 0U);
    for (const char* const account :
         {"DsSipIncomingCall", "DsSipOutgoingCall", "DsSipDialog", "DsSipServerTransaction"})
    {
        EXPECT_EQ(MemAccounts::get(account).liveObjects(), 0) << account;
    }
}

}  // namespace Quorvex
