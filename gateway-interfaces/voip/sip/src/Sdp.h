#pragma once

#include <cstdint>
#include <iosfwd>
#include <sstream>
#include <string>
#include <vector>

#include "LocalSdpInfo.h"
#include "SdpInfoVector.h"
#include "infra/CountedObjPtr.h"
#include "infra/Logger.h"
#include "sipstack/DsSdpMsg.h"

namespace Quorvex
{

class DsSipMessage;

/// The session descriptions of one call, ours and the far end's (RFC 3264). Copyable: a copy is a state that
/// can be gone back to. Task thread.
class Sdp
{
public:
    using LocalSdpInfoVector = std::vector<CountedObjPtr<LocalSdpInfo>>;

    /// Writes our offer, made of the local streams. False when there are none.
    bool generateSdpOffer(const std::string& in_strLocalAddress, std::ostream& out_stream);

    /// Writes our answer, one section per offered one. False when there is no offer to answer, or when every
    /// stream is rejected (the text has been written then).
    bool generateSdpAnswer(const std::string& in_strLocalAddress, std::ostream& out_stream);

    /// Takes the remote description out of a message. False, with the former one untouched, when there is
    /// none or it cannot be read.
    bool initRemoteSdp(const DsHandle<DsSipMessage>& in_hMsg);
    bool clearRemoteSdp();

    void setLocalSdp(LocalSdpInfoVector in_vLocalSdpInfo) { m_vLocalSdpInfo = std::move(in_vLocalSdpInfo); }
    const LocalSdpInfoVector& getLocalSdp() const { return m_vLocalSdpInfo; }
    const SdpInfoVector& getRemoteSdp() const { return m_vRemoteSdpInfo; }
    /// Nil when there is none, and once it was agreed on.
    const DsHandle<DsSdpMsg>& getRemoteSdpMsg() const { return m_hRemoteSdpMsg; }
    bool hasRemoteSdp() const { return m_bRemoteSdp; }

    /// Both sides have agreed: what only the negotiation needed of the remote description is given up.
    void agree();

    /// How long a host name in a remote connection line may take to resolve; 250 ms unless set.
    void setResolveTimeoutMs(int in_iTimeoutMs) { m_iResolveTimeoutMs = in_iTimeoutMs; }

    /// The audio codecs (static payload types) that a media line names, in its order; false when it names
    /// none or is not RTP audio.
    static bool isMediaKnown(const DsSdpMediaField& in_field, std::vector<unsigned>& out_vPayloadType);

    /// Where the outcomes that an operator looks for are logged, one line each.
    static const StaticLogger& getSummaryLogger();

    /// Copies the local streams, so that the copies made of this object before keep theirs as they are.
    void detachLocalSdp();
    /// Goes back to a former state. The version of the next description goes on from here: the far end may
    /// have seen the descriptions made since.
    void restore(const Sdp& in_former);

private:
    void writeLocalMsg(const std::string& in_strLocalAddress, std::ostream& out_stream);
    void addMediaDescriptions(DsSdpMsg& io_msg) const;

    DsHandle<DsSdpMsg> m_hRemoteSdpMsg;  // until it is agreed on
    bool m_bRemoteSdp = false;
    LocalSdpInfoVector m_vLocalSdpInfo;
    SdpInfoVector m_vRemoteSdpInfo;
    std::uint64_t m_uiSessionId = 0;
    std::uint64_t m_uiSessionVersion = 0;
    int m_iResolveTimeoutMs = 250;
};

}  // namespace Quorvex

/// One line, or a line with a description below it, for the operator.
#define QUORVEX_SDP_SUMMARY(in_level, in_expression)                                                  \
    do                                                                                                \
    {                                                                                                 \
        if (::Quorvex::Sdp::getSummaryLogger().isEnabled(in_level))                                   \
        {                                                                                             \
            std::ostringstream quorvexText_;                                                          \
            /* NOLINTNEXTLINE(bugprone-macro-parentheses): a chain of << */                           \
            quorvexText_ << "SDP : " << in_expression;                                                \
            ::Quorvex::Sdp::getSummaryLogger().log(in_level, quorvexText_.str(), __FILE__, __LINE__); \
        }                                                                                             \
    } while (false)
