#pragma once

#include <string>
#include <string_view>

#include "infra/MemAccount.h"
#include "infra/Object.h"
#include "infra/ParameterTrie.h"

namespace Quorvex
{

/// The description of one call leg: keys with values ("sip.in.requestUri", "media.rtp.audio"). The network
/// interface writes what an arriving call says; the routes of the call engine write what a call to be placed
/// shall be. A value: copies are independent. One thread at a time.
class CallLegInfo : public virtual OutputStreamable, public virtual Cloneable
{
public:
    QUORVEX_MEM_ACCOUNT("CallLegInfo");

    CallLegInfo* clone() const override { return new CallLegInfo(*this); }

    void setParameter(std::string_view in_key, ParameterValue in_value)
    {
        m_trie.set(in_key, std::move(in_value));
    }

    /// The value of a key as text; false, with the output untouched, when there is none.
    bool getParameter(std::string_view in_key, std::string& out_strValue) const;
    /// The value of a key as text, or the default.
    std::string getParameterOr(std::string_view in_key, std::string in_strDefault) const;
    /// The value of a key as a truth: a boolean, or a text that is "true" in any case; false when there is
    /// none.
    bool isTrue(std::string_view in_key) const;

    /// The node of a key ("media.rtp", with the streams as children), or null. Valid until the next change.
    const ParameterTrieNode* getNode(std::string_view in_key) const { return m_trie.find(in_key); }
    const ParameterTrie& getParameters() const { return m_trie; }
    void clear() { m_trie.clear(); }

    /// Describes stream `in_uiStream` of the far end: it sends and receives, only receives, or does neither.
    /// The stream's name is "audio" for the first, "audio2", "audio3", ... for further ones.
    void addRtpSendReceiveParameters(unsigned int in_uiStream);
    void addRtpRecvOnlyParameters(unsigned int in_uiStream);
    void addRtpInactiveParameters(unsigned int in_uiStream);

    /// " key=value" for every key.
    std::ostream& write(std::ostream& out_stream) const override;

private:
    void addStream(unsigned int in_uiStream, const char* in_szMode);

    ParameterTrie m_trie;
};

}  // namespace Quorvex
