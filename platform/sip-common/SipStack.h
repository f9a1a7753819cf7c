#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "infra/Handle.h"
#include "infra/ROConfiguration.h"
#include "sip-common/SipStackSettings.h"
#include "sip/Sip.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipHeaders.h"
#include "sipstack/DsSipStack.h"
#include "thread/Stoppable.h"

namespace Quorvex
{

class DsSipNewCallinterface;

/// The process's SIP stack, configured from "quorvex.sip": what it listens on, its Contacts, its product
/// strings.
///
/// Threads: initialize(), stop() and waitUntilDone() belong to the one that runs the network interface.
/// Between initialize() and stop() what the getters give does not change, so any thread may call them.
// One for the process, so nobody else makes or destroys it.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor)
class SipStack : public Stoppable
{
public:
    /// A port that the stack listens on, with the Contact for the calls that use it.
    class ListenAddrPort : public Sip::AddressPortTransport
    {
    public:
        ListenAddrPort() = default;
        explicit ListenAddrPort(const Sip::AddressPortTransport& in_address)
            : Sip::AddressPortTransport(in_address)
        {
        }

        /// Makes the Contact of the present address, port and transport,
        /// "<sip:user@address:port;transport=tcp>" (no transport for UDP, no user when it is empty). Nil, and
        /// none kept, for the any-address.
        DsHandle<DsSipContactHeader> createContactHeader(std::string_view in_user);

        /// Nil for a port bound to the any-address: its calls make their own.
        DsHandle<DsSipContactHeader> m_hContact;
    };

    SipStack(const SipStack&) = delete;
    SipStack& operator=(const SipStack&) = delete;

    static SipStack* instance();

    /// Reads the configuration, binds the ports and starts to take calls. False, logged at ERROR with the key
    /// at fault, when the configuration cannot be used or a port cannot be bound; false also while it runs
    /// already. After stop() it can be called again.
    bool initialize(const TSHandle<ROConfiguration>& in_hConfig,
                    const DsHandle<DsSipNewCallinterface>& in_hNewCall);

    /// Checks everything that initialize() reads, without binding anything. False, with one line that names
    /// the key and what was expected.
    static bool checkConfiguration(const ROConfiguration& in_config, std::string& out_strError);

    /// Stoppable: begins the end. False when the stack does not run.
    bool stop() override;
    /// Waits until the stack has ended (a few seconds at most).
    bool waitUntilDone() override;

    bool isRunning() const { return m_bRunning.load(std::memory_order_acquire); }

    /// No new calls in either direction from here on.
    void drain();
    /// As DsSipStack::refuseUnanswered().
    void refuseUnanswered();
    /// Runs a job on the SIP stack thread; false when it does not run.
    bool post(std::function<void()> in_job);

    std::size_t getNumListenPorts() const { return m_vListenPorts.size(); }
    /// In their configured order.
    const ListenAddrPort& getListenPort(std::size_t in_index) const { return m_vListenPorts[in_index]; }
    const std::vector<ListenAddrPort>& getListenPorts() const { return m_vListenPorts; }

    /// "quorvex.sip.contactUser".
    const std::string& getContactUser() const { return m_settings.m_stack.m_strContactUser; }

    bool hasOutboundProxy() const { return !getOutboundProxy().empty(); }
    /// A SIP URI; empty for none.
    const std::string& getOutboundProxy() const { return m_settings.m_stack.m_strOutboundProxy; }

    /// "quorvex.sip.productName" and "quorvex.sip.productVersion".
    const std::string& getProductName() const { return m_settings.m_strProductName; }
    const std::string& getProductVersion() const { return m_settings.m_strProductVersion; }
    /// The header that names the gateway in its messages: User-Agent, from the product strings. Shared by all
    /// messages; a message takes a copy.
    const DsHandle<DsSipHeader>& getIdentificationHeader() const { return m_hIdentification; }

    /// RFC 3261 timer C in ms: how long an INVITE may stay unanswered ("quorvex.sip.timerCMs").
    unsigned int getTimerCMs() const { return m_settings.m_stack.m_uiTimerCMs; }

    /// Asked on the SIP stack thread for every new INVITE: true refuses it with 503. Set before initialize().
    void setOverloadCheck(std::function<bool()> in_overloaded) { m_overloaded = std::move(in_overloaded); }

    /// What the stack has counted since its start; false while there is none. Any thread, at any moment.
    bool getStatistics(DsSipStackStatistics& out_statistics) const;

    /// The object layer's stack; null while it does not run. For those who end before the stack does.
    DsSipStack* getStack() const { return m_pStack.get(); }

private:
    SipStack();
    ~SipStack() override;

    mutable std::mutex m_mutex;  // guards m_pStack's making and end
    std::unique_ptr<DsSipStack> m_pStack;
    std::atomic<bool> m_bRunning{false};
    std::function<bool()> m_overloaded;
    SipStackSettings m_settings;
    std::vector<ListenAddrPort> m_vListenPorts;
    DsHandle<DsSipHeader> m_hIdentification;
};

}  // namespace Quorvex
