// Any bytes as a session description: as an offer that we answer, or (first byte odd) as the answer to an
// offer of ours. What we write must be readable, and an answer must have a section for each one offered.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "LocalSdpInfo.h"
#include "Sdp.h"
#include "infra/Logger.h"
#include "infra/ROConfiguration.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipMessage.h"

namespace
{

using namespace Quorvex;

MapConfiguration makeConfiguration()
{
    Logging::setRootLevel(eOFF_LEVEL);
    MapConfiguration config;
    config.set("quorvex.rtp.encodingList", "0 8");
    config.set("quorvex.media.rtp.packetSizeMs", "20");
    return config;
}

MediaEndpointCapacity makeCapacity()
{
    MediaEndpointCapacity capacity;
    capacity.set(MediaEndpointCapacity::IPV4_ADDRESS, "127.0.0.1");
    capacity.set(MediaEndpointCapacity::UDP_PORT, 40000U);
    capacity.set(MediaEndpointCapacity::PAYLOAD_TYPE, MediaValue(std::vector<unsigned>{0, 8}));
    capacity.set(MediaEndpointCapacity::PAYLOAD_SIZE, MediaValue(std::vector<unsigned>{20, 30}));
    capacity.set(MediaEndpointCapacity::RFC2833_SUPPORT, MediaValue(true));
    capacity.set(MediaEndpointCapacity::RFC2833_PAYLOAD_TYPE, 101U);
    return capacity;
}

void require(bool in_bHolds)
{
    if (!in_bHolds)
    {
        std::abort();
    }
}

/// Nothing is to leave the machine for a name that the fuzzer makes up.
bool namesHosts(const DsSdpMsg& in_msg)
{
    const auto isName = [](const DsSdpConnectionField* in_pField)
    {
        return in_pField != nullptr &&
               in_pField->getAddress().find_first_not_of("0123456789. \t") != std::string::npos;
    };
    bool bNames = isName(in_msg.getConnectionField());
    for (const auto& hMedia : in_msg.getMediaDescriptions())
    {
        bNames = bNames || isName(hMedia->getConnectionField());
    }
    return bNames;
}

void tryDescription(std::string_view in_text, bool in_bAsAnswer)
{
    static const MapConfiguration s_config = makeConfiguration();
    static const MediaEndpointCapacity s_capacity = makeCapacity();
    const auto hRemote = DsSdpMsg::parse(in_text);
    DsSdpMsg::parse(hRemote->toString());
    if (namesHosts(*hRemote))
    {
        return;
    }
    SdpInfoVector remote;
    remote.initFrom(*hRemote, 1);
    require(remote.size() == hRemote->getMediaDescriptions().size());
    for (const auto& pRemote : remote)
    {
        LocalSdpInfo local("127.0.0.1");
        if (in_bAsAnswer)
        {
            require(local.initLocalOffer(s_capacity, s_config, Media::SENDRECV_MODE));
            local.setRemoteAnswer(*pRemote);
        }
        else
        {
            require(local.initLocalAnswer(s_capacity, s_config, *pRemote));
        }
        std::string strSection;
        local.makeSection()->appendTo(strSection);
        require(DsSdpMsg::parse(strSection)->getMediaDescriptions().size() == 1);
        std::ostringstream shown;
        shown << local << *pRemote;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* in_pData, std::size_t in_size)
{
    if (in_size == 0)
    {
        return 0;
    }
    try
    {
        tryDescription({reinterpret_cast<const char*>(in_pData) + 1, in_size - 1}, (in_pData[0] & 1) != 0);
    }
    catch (const DsException&)
    {
        // What cannot be read is refused: nothing else may happen.
    }
    return 0;
}
