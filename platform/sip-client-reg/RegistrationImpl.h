#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "sip-client-reg/ClientRegistrationFactory.h"
#include "sip-client-reg/Registration.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "thread/TimerScheduler.h"

namespace Quorvex
{

class DsSipClientTransaction;

/// A registration on its factory's thread, which alone calls what is not an operation of Registration.
class RegistrationImpl final : public Registration,
                               public std::enable_shared_from_this<RegistrationImpl>,
                               private TimeoutProcessor
{
public:
    RegistrationImpl(ClientRegistrationFactory& in_factory,
                     std::shared_ptr<ClientRegistrationFactory::JobGate> in_pGate,
                     RegistrationConfig in_config);
    RegistrationImpl(const RegistrationImpl&) = delete;
    RegistrationImpl& operator=(const RegistrationImpl&) = delete;
    ~RegistrationImpl() override;

    void start() override;
    void stop() override;
    RegistrationState getState() const override { return m_state.load(std::memory_order_acquire); }
    const RegistrationConfig& getRegistrationConfig() const override { return m_config; }

    void doStop();
    /// No request of it is under way, and none will be without a start().
    bool isQuiet() const { return !m_bWanted && m_pTransaction == nullptr; }
    /// Drops timer and request.
    void abandon();

private:
    void doStart();
    bool processTimeout(const ACE_Time_Value& in_expiryTime, TimeoutData* in_pData) override;

    void send(unsigned int in_uiExpiresS);
    /// Gives the answer to a request to its registration, unless it waits for another one by now.
    static void deliver(const std::weak_ptr<RegistrationImpl>& in_pRegistration,
                        std::uint64_t in_ulTransaction,
                        const DsHandle<DsSipResponse>& in_hResponse);
    DsHandle<DsSipRequest> makeRequest(unsigned int in_uiExpiresS);
    DsHandle<DsSipContactHeader> makeContact(const DsSipURL& in_registrar) const;
    void onResponse(const DsHandle<DsSipResponse>& in_hResponse);
    void onRegistered(const DsSipResponse& in_response);
    /// True when the request was sent once more with an answer to the response.
    bool retryAtOnce(const DsSipResponse& in_response);
    void onFailure(const std::string& in_strWhy, unsigned int in_uiRetryAfterS);
    void onWithdrawn();
    void scheduleMs(std::uint64_t in_ulDelayMs);
    void cancelTimer();
    void setState(RegistrationState in_state) { m_state.store(in_state, std::memory_order_release); }

    ClientRegistrationFactory& m_factory;
    const std::shared_ptr<ClientRegistrationFactory::JobGate> m_pGate;
    const RegistrationConfig m_config;
    std::atomic<RegistrationState> m_state{RegistrationState::eIDLE};

    // Factory's thread.
    const std::string m_strCallID;
    const std::string m_strTag;
    std::string m_strContact;  // what was registered, to be withdrawn
    std::uint32_t m_uiCSeq = 0;
    bool m_bWanted = false;
    bool m_bBound = false;              // the registrar may know us
    unsigned int m_uiSentExpiresS = 0;  // of the request under way
    unsigned int m_uiExpiresS;          // what to ask for: the configured time, or the registrar's minimum
    unsigned int m_uiFailures = 0;
    bool m_bAnsweredChallenge = false;
    std::string m_strRealm;  // of the challenge that was answered
    bool m_bRaisedExpires = false;
    std::string m_strAuthorizationName;
    std::string m_strAuthorization;
    std::unique_ptr<DsSipClientTransaction> m_pTransaction;
    std::uint64_t m_ulTransaction = 0;  // tells a late answer from the one waited for
    TimerScheduler::TimerId m_timer = TimerScheduler::NO_TIMER;
};

}  // namespace Quorvex
