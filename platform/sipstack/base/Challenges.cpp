#include "sipstack/base/Challenges.h"

#include "sipstack/DsSipDigest.h"
#include "sipstack/DsSipResponse.h"

namespace Quorvex
{

bool Challenges::answer(const DsHandle<DsSipResponse>& in_hResponse,
                        const std::string& in_strMethod,
                        const std::string& in_strUri,
                        const std::vector<DsSipCredential>& in_vCredentials)
{
    const auto status = in_hResponse.isNil() ? 0 : in_hResponse->getStatusCode();
    if ((status != 401 && status != 407) || in_vCredentials.empty())
    {
        return false;
    }
    if (!m_pAnswered)
    {
        m_pAnswered = std::make_unique<Answered>();
    }
    if (++m_pAnswered->m_uiAttempts > kMostAttempts)
    {
        return false;
    }
    const auto answers = DsSipDigest::answer(*in_hResponse, in_strMethod, in_strUri, in_vCredentials);
    bool fresh = false;
    std::string headers;
    for (const auto& answer : answers)
    {
        fresh = m_pAnswered->m_nonces.insert(answer.m_strRealm + '\n' + answer.m_strNonce).second || fresh;
        headers += answer.m_strName + ": " + answer.m_strValue + "\r\n";
    }
    if (!fresh)
    {
        return false;  // these credentials were refused already
    }
    m_pAnswered->m_strHeaders = headers;
    return true;
}

const std::string& Challenges::getHeaders() const
{
    static const std::string s_strNone;
    return m_pAnswered ? m_pAnswered->m_strHeaders : s_strNone;
}

}  // namespace Quorvex
