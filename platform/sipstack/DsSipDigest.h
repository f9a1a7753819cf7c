#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipStack.h"

namespace Quorvex
{

/// The client's side of digest authentication (RFC 7616; RFC 3261 section 22).
class DsSipDigest
{
public:
    /// One parsed challenge of a WWW-Authenticate or Proxy-Authenticate header.
    struct Challenge
    {
        std::string m_strRealm;
        std::string m_strNonce;
        std::string m_strOpaque;
        std::string m_strAlgorithm;  ///< as written, "MD5" when absent
        bool m_bOpaque = false;
        bool m_bStale = false;     ///< the credentials were right, the nonce too old
        bool m_bQopAuth = false;   ///< "auth" is among the qualities of protection offered
        bool m_bQopGiven = false;  ///< there was a qop at all (older servers send none)

        /// False when it is no digest challenge, or one without realm or nonce.
        static bool parse(std::string_view in_value, Challenge& out_challenge);
    };

    /// A header that answers a challenge, and the nonce that it uses.
    struct Answer
    {
        std::string m_strName;  ///< "Authorization" or "Proxy-Authorization"
        std::string m_strValue;
        std::string m_strRealm;
        std::string m_strNonce;
        bool m_bStale = false;
    };

    /// Answers the challenges of a 401 or 407, one for each realm for which there are credentials, SHA-256
    /// before MD5. Empty when none can be answered.
    static std::vector<Answer> answer(const DsSipResponse& in_response,
                                      std::string_view in_method,
                                      std::string_view in_requestURI,
                                      const std::vector<DsSipCredential>& in_vCredentials);

    /// One answer with a client nonce of the caller's; the nonce count is 1. Empty when the challenge asks
    /// for what is not known here.
    static std::string makeValue(const Challenge& in_challenge,
                                 std::string_view in_method,
                                 std::string_view in_requestURI,
                                 const DsSipCredential& in_credential,
                                 std::string_view in_clientNonce);
};

}  // namespace Quorvex
