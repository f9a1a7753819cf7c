#pragma once

#include <string_view>
#include <vector>

/// RTP helpers that belong to no class. Any thread.
namespace Quorvex::Rtp
{

/// Reads a list of packet sizes in milliseconds (1 to 200) separated by blanks or commas, order of preference
/// kept. False, with the output cleared, when the list is empty or anything in it is no such number.
bool parsePacketSizeVector(std::string_view in_list, std::vector<unsigned>& out_vPacketSizeMs);

}  // namespace Quorvex::Rtp
