#pragma once

#include <string>

#include "infra/Object.h"

namespace Quorvex
{

/// What one direction of an RTP stream runs with. A plain value.
class RtpMediaConfigData : public virtual OutputStreamable
{
public:
    /// Empty address, everything else 0, no telephone events.
    RtpMediaConfigData() = default;

    /// The end of the stream that the values belong to: the local one for receiving, the far one for
    /// transmitting. Dotted IPv4 text.
    const std::string& getIPAddress() const { return m_strIPAddress; }
    unsigned getUDPPort() const { return m_uiUDPPort; }
    unsigned getPayloadType() const { return m_uiPayloadType; }
    /// Milliseconds of sound in a packet.
    unsigned getPacketSizeMs() const { return m_uiPacketSizeMs; }
    /// Whether digits travel as telephone events (RFC 4733, first RFC 2833), and as which payload type.
    bool getRfc2833Support() const { return m_bRfc2833Support; }
    unsigned getRfc2833PayloadType() const { return m_uiRfc2833PayloadType; }

    void setIPAddress(const std::string& in_strIPAddress) { m_strIPAddress = in_strIPAddress; }
    void setUDPPort(unsigned in_uiUDPPort) { m_uiUDPPort = in_uiUDPPort; }
    void setPayloadType(unsigned in_uiPayloadType) { m_uiPayloadType = in_uiPayloadType; }
    void setPacketSizeMs(unsigned in_uiPacketSizeMs) { m_uiPacketSizeMs = in_uiPacketSizeMs; }
    void setRfc2833Support(bool in_bSupport) { m_bRfc2833Support = in_bSupport; }
    void setRfc2833PayloadType(unsigned in_uiPayloadType) { m_uiRfc2833PayloadType = in_uiPayloadType; }

    /// Whether a stream that runs with one runs with the other: the telephone-event type only counts when
    /// such events are supported.
    bool isEqualTo(const RtpMediaConfigData& in_other) const;
    friend bool operator==(const RtpMediaConfigData& in_a, const RtpMediaConfigData& in_b)
    {
        return in_a.isEqualTo(in_b);
    }

    /// "IP=10.0.0.5, port=40000, payload type=0, packet size=20ms, RFC 2833=101" ("RFC 2833=no" without
    /// events).
    std::ostream& write(std::ostream& out_stream) const override;

private:
    std::string m_strIPAddress;
    unsigned m_uiUDPPort = 0;
    unsigned m_uiPayloadType = 0;
    unsigned m_uiPacketSizeMs = 0;
    unsigned m_uiRfc2833PayloadType = 0;
    bool m_bRfc2833Support = false;
};

}  // namespace Quorvex
