#pragma once

#include "infra/MemAccount.h"
#include "infra/Object.h"
#include "media/MediaValueList.h"

namespace Quorvex
{

/// What the media engine can do on one endpoint and has set aside for it. An engine may also list keys of SIP
/// data that it wants in its configurations ("get.sip.invite").
class MediaEndpointCapacity final : public Cloneable, public OutputStreamable, public MediaValueList
{
public:
    QUORVEX_MEM_ACCOUNT("MediaEndpointCapacity");

    /// The local address, dotted text.
    static constexpr const char* IPV4_ADDRESS = "IPv4 Address";
    /// The local RTP port: even; RTCP is on the next one.
    static constexpr const char* UDP_PORT = "UDP Port";
    /// List of RTP payload types.
    static constexpr const char* PAYLOAD_TYPE = "Payload type";
    /// List of packet sizes in ms.
    static constexpr const char* PAYLOAD_SIZE = "Payload size";
    /// Whether telephone events are supported (bool), and under which payload type.
    static constexpr const char* RFC2833_SUPPORT = "Rfc 2833 support";
    static constexpr const char* RFC2833_PAYLOAD_TYPE = "Rfc 2833 payload type";

    MediaEndpointCapacity* clone() const override { return new MediaEndpointCapacity(*this); }
    std::ostream& write(std::ostream& out_stream) const override { return writeValues(out_stream); }
};

}  // namespace Quorvex
