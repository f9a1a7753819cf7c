#pragma once

#include <string>
#include <vector>

#include "AudioSource.h"
#include "infra/MemAccount.h"

namespace Quorvex
{

class RtpEndpoint;

/// The endpoints of one call, and who hears whom. Media thread only.
class CallGroup
{
public:
    QUORVEX_MEM_ACCOUNT("MediaCallGroup");

    explicit CallGroup(std::string in_strCallId) : m_strCallId(std::move(in_strCallId)) {}
    CallGroup(const CallGroup&) = delete;
    CallGroup& operator=(const CallGroup&) = delete;
    ~CallGroup() = default;

    const std::string& getCallId() const { return m_strCallId; }

    void add(RtpEndpoint& in_endpoint);
    void remove(RtpEndpoint& in_endpoint);
    const std::vector<RtpEndpoint*>& getEndpoints() const { return m_vEndpoints; }
    /// Which of the call's parties an endpoint is, counted from 0 in the order of creation.
    unsigned nextPartyIndex() { return m_uiParties++; }

    void attachEcho();
    void attach(AudioRecipePtr in_pRecipe);
    void detach();
    bool hasService() const { return m_bEcho || m_pRecipe != nullptr; }

    /// Decides anew who hears whom, after any change. Parties hear one another: as packets come when there
    /// are two with the same packet size, else mixed on the clock. A party with nobody to hear gets what is
    /// attached, or silence. A redirect endpoint that receives speaks for the party that it names; a fork
    /// endpoint sends what its party sends.
    void replan();

    /// A party has heard the whole of what is attached; true the first time.
    bool playEnded();

private:
    RtpEndpoint* voiceOf(RtpEndpoint& in_party) const;
    void planParty(RtpEndpoint& io_party);

    const std::string m_strCallId;
    std::vector<RtpEndpoint*> m_vEndpoints;
    unsigned m_uiParties = 0;
    bool m_bEcho = false;
    bool m_bPlayEnded = false;
    AudioRecipePtr m_pRecipe;
};

}  // namespace Quorvex
