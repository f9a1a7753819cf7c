#include "media/MediaEndpoint.h"

#include <array>
#include <ostream>

#include "media/MediaEndpointCallback.h"
#include "media/MediaEndpointConfig.h"

namespace Quorvex
{

namespace
{

template <std::size_t Size>
const char* nameOf(const std::array<const char*, Size>& in_names, int in_iValue)
{
    return in_iValue >= 0 && static_cast<std::size_t>(in_iValue) < Size
               ? in_names[static_cast<std::size_t>(in_iValue)]
               : "???";
}

}  // namespace

const char* MediaEndpoint::getDirectionString(Direction in_direction)
{
    static constexpr std::array<const char*, 4> s_names = {"RX", "TX", "RXTX", "NONE"};
    return nameOf(s_names, in_direction);
}

const char* MediaEndpointCallback::getOpStatusString(EptOpStatus in_status)
{
    static constexpr std::array<const char*, 4> s_names = {
        "SUCCESS", "INVALID_CONFIG", "INVALID_STATE", "RESOURCE"};
    return nameOf(s_names, in_status);
}

std::ostream& MediaEndpointConfig::write(std::ostream& out_stream) const
{
    out_stream << "direction=" << MediaEndpoint::getDirectionString(m_direction)
               << (begin() == end() ? "" : ", ");
    return writeValues(out_stream);
}

}  // namespace Quorvex
