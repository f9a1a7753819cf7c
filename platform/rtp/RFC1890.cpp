#include "rtp/RFC1890.h"

#include <algorithm>
#include <array>

#include "rtp/NumberList.h"

namespace Quorvex
{

const char* RFC1890::getPayloadTypeString(unsigned in_uiPayloadType)
{
    static constexpr std::array<const char*, 35> s_names = {
        "PCMU",  "1016", "G721", "GSM",  "G723", "DVI4", "DVI4", "LPC",  "PCMA", "G722", "L16", "L16",
        "QCELP", "CN",   "MPA",  "G728", "DVI4", "DVI4", "G729", "",     "",     "",     "",    "",
        "",      "CelB", "JPEG", "",     "nv",   "",     "",     "H261", "MPV",  "MP2T", "H263"};
    return in_uiPayloadType < s_names.size() ? s_names[in_uiPayloadType] : "";
}

bool RFC1890::parsePayloadTypeListString(std::string_view in_list, std::vector<unsigned>& out_vPayloadType)
{
    return parseNumberList(in_list, 0, 127, out_vPayloadType);
}

}  // namespace Quorvex
