#include "rtp/Rtp.h"

#include "rtp/NumberList.h"

namespace Quorvex
{

bool Rtp::parsePacketSizeVector(std::string_view in_list, std::vector<unsigned>& out_vPacketSizeMs)
{
    return parseNumberList(in_list, 1, 200, out_vPacketSizeMs);
}

}  // namespace Quorvex
