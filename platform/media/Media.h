#pragma once

#include <string_view>

/// Media notions that belong to no class. Any thread.
namespace Quorvex::Media
{

/// Which ways sound travels on a stream, seen from this side.
enum StreamMode
{
    SENDONLY_MODE = 0,
    RECVONLY_MODE = 1,
    SENDRECV_MODE = 2,
    INACTIVE_MODE = 3,
    UNKNOWN_MODE = 4
};

/// The mode of an SDP direction attribute (RFC 4566: sendonly, recvonly, sendrecv, inactive; case ignored);
/// UNKNOWN_MODE for any other text.
StreamMode parseMediaMode(std::string_view in_text);

/// The SDP direction attribute of a mode; "unknown" for a value that is none.
const char* getMediaModeString(StreamMode in_mode);

}  // namespace Quorvex::Media
