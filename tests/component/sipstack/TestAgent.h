#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipDialog.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipInviteMessage.h"
#include "sipstack/DsSipNewCallinterface.h"
#include "sipstack/DsSipOutgoingCall.h"
#include "sipstack/DsSipOutgoingCallinterface.h"
#include "sipstack/DsSipPrackMessage.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "sipstack/DsSipStack.h"

namespace Quorvex
{

/// One report of the stack, with whatever it carried.
struct Report
{
    std::string m_strName;
    DsHandle<DsSipIncomingCall> m_hIn;
    DsHandle<DsSipOutgoingCall> m_hOut;
    DsHandle<DsSipMessage> m_hMessage;
    DsHandle<DsSipDialog> m_hDialog;
    DsHandle<DsSipDialog> m_hNewDialog;
    DsHandle<DsSipServerTransaction> m_hTransaction;

    DsHandle<DsSipRequest> request() const { return m_hMessage.dynamicCast<DsSipRequest>(); }
    DsHandle<DsSipResponse> response() const { return m_hMessage.dynamicCast<DsSipResponse>(); }
};

/// The reports of all calls of an agent, in order.
class Reports
{
public:
    void add(Report in_report);
    /// The next report; with an empty name and a test failure when none comes.
    Report next(std::chrono::milliseconds in_timeout = std::chrono::seconds(10));
    /// The next report, which must bear this name.
    Report expect(const std::string& in_strName,
                  std::chrono::milliseconds in_timeout = std::chrono::seconds(10));
    /// True when nothing has been reported that was not taken.
    bool empty();

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::deque<Report> m_vReports;
};

/// A user agent on the layer, for tests: it records what is reported and does nothing by itself.
class TestAgent
{
public:
    explicit TestAgent(DsSipStackConfig in_config = defaults());
    ~TestAgent();
    TestAgent(const TestAgent&) = delete;
    TestAgent& operator=(const TestAgent&) = delete;

    /// UDP on a free port of 127.0.0.1, T1 of 20 ms.
    static DsSipStackConfig defaults();

    std::uint16_t port(std::size_t in_iPort = 0) const
    {
        return m_stack.getListenPorts().at(in_iPort).m_uiPort;
    }
    DsSipStack& stack() { return m_stack; }
    Reports& reports() { return m_reports; }

    /// An INVITE to a target, placed.
    DsHandle<DsSipOutgoingCall> call(const std::string& in_strUri,
                                     const std::function<void(DsSipInviteMessage&)>& in_change = nullptr);

    static DsHandle<DsSipResponse> response(unsigned int in_uiStatus,
                                            const DsHandle<DsSipRequest>& in_hRequest,
                                            const std::string& in_strSdp = std::string());

    /// Waits until no call, dialog or transaction of the user's is alive, and checks the memory accounts.
    void expectEmpty();

private:
    DsSipStack m_stack;
    Reports m_reports;
};

}  // namespace Quorvex
