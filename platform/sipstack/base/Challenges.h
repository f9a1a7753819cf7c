#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "sipstack/DsHandle.h"
#include "sipstack/DsSipStack.h"

namespace Quorvex
{

class DsSipResponse;

/// Answers the digest challenges to one request, once for each nonce.
class Challenges
{
public:
    /// True when the response asks for credentials that we have: the header lines of the next attempt are in
    /// getHeaders() then.
    bool answer(const DsHandle<DsSipResponse>& in_hResponse,
                const std::string& in_strMethod,
                const std::string& in_strUri,
                const std::vector<DsSipCredential>& in_vCredentials);

    /// "" or header lines, each with its line end.
    const std::string& getHeaders() const;

private:
    // A far end that makes a new nonce for every attempt would never be done with.
    static constexpr unsigned int kMostAttempts = 4;

    struct Answered
    {
        std::set<std::string> m_nonces;
        std::string m_strHeaders;
        unsigned int m_uiAttempts = 0;
    };
    std::unique_ptr<Answered> m_pAnswered;  // with the first challenge: few calls meet one
};

}  // namespace Quorvex
