#pragma once

#include <string_view>
#include <vector>

namespace Quorvex
{

/// The static RTP payload types of RFC 1890 (kept by RFC 3551). Any thread.
class RFC1890
{
public:
    /// The encoding name of a static payload type ("PCMU" for 0, "G729" for 18); "" for a type that has none.
    static const char* getPayloadTypeString(unsigned in_uiPayloadType);

    /// Reads a list of payload types (0 to 127) separated by blanks or commas. False, with the output
    /// cleared, when the list is empty or anything in it is no such number; a type that comes twice is kept
    /// once.
    static bool parsePayloadTypeListString(std::string_view in_list, std::vector<unsigned>& out_vPayloadType);
};

}  // namespace Quorvex
