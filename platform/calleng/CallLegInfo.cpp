#include "calleng/CallLegInfo.h"

#include <strings.h>

#include <ostream>

namespace Quorvex
{

bool CallLegInfo::getParameter(std::string_view in_key, std::string& out_strValue) const
{
    const ParameterValue* pValue = m_trie.findValue(in_key);
    if (pValue == nullptr)
    {
        return false;
    }
    out_strValue = pValue->toText();
    return true;
}

std::string CallLegInfo::getParameterOr(std::string_view in_key, std::string in_strDefault) const
{
    getParameter(in_key, in_strDefault);
    return in_strDefault;
}

bool CallLegInfo::isTrue(std::string_view in_key) const
{
    const ParameterValue* pValue = m_trie.findValue(in_key);
    return pValue != nullptr && strcasecmp(pValue->toText().c_str(), "true") == 0;
}

void CallLegInfo::addStream(unsigned int in_uiStream, const char* in_szMode)
{
    const std::string strName = in_uiStream == 0 ? "audio" : "audio" + std::to_string(in_uiStream + 1);
    m_trie.set("media.rtp." + strName, in_szMode);
}

void CallLegInfo::addRtpSendReceiveParameters(unsigned int in_uiStream)
{
    addStream(in_uiStream, "sendrecv");
}

void CallLegInfo::addRtpRecvOnlyParameters(unsigned int in_uiStream)
{
    addStream(in_uiStream, "recvonly");
}

void CallLegInfo::addRtpInactiveParameters(unsigned int in_uiStream)
{
    addStream(in_uiStream, "inactive");
}

std::ostream& CallLegInfo::write(std::ostream& out_stream) const
{
    m_trie.forEach([&out_stream](const ParameterTrieNode& in_node)
                   { out_stream << ' ' << in_node.getFullName() << '=' << in_node.getValue(); });
    return out_stream;
}

}  // namespace Quorvex
