#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Quorvex
{

/// Where a transfer goes: a Refer-To URI taken apart (RFC 3261 19.1.1, RFC 3515).
struct ReferTo
{
    /// The URI without its headers.
    std::string m_strUri;
    /// What the INVITE to it is to carry ("Replaces"), without the headers that are not the transferring
    /// party's to say: those of the dialog, of the way and of the body.
    std::vector<std::pair<std::string, std::string>> m_vHeaders;

    /// Reads a URI whose escapes have been resolved.
    static ReferTo parse(const std::string& in_strText);

    bool hasReplaces() const;
};

}  // namespace Quorvex
