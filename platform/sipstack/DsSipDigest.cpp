#include "sipstack/DsSipDigest.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>

#include "sipstack/DsException.h"
#include "sipstack/DsSipText.h"

namespace Quorvex
{

namespace
{

enum class Hash
{
    eNONE = 0,
    eMD5 = 1,
    eSHA256 = 2
};

struct Algorithm
{
    Hash m_hash = Hash::eNONE;
    bool m_bSession = false;
};

Algorithm algorithmOf(std::string_view in_name)
{
    Algorithm algorithm;
    std::string name = SipText::toLower(in_name);
    if (name.size() > 5 && name.ends_with("-sess"))
    {
        algorithm.m_bSession = true;
        name.resize(name.size() - 5);
    }
    algorithm.m_hash = name == "md5" ? Hash::eMD5 : name == "sha-256" ? Hash::eSHA256 : Hash::eNONE;
    return algorithm;
}

std::string hexHash(Hash in_hash, const std::string& in_strText)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int length = 0;
    const EVP_MD* const type = in_hash == Hash::eSHA256 ? EVP_sha256() : EVP_md5();
    if (EVP_Digest(in_strText.data(), in_strText.size(), bytes.data(), &length, type, nullptr) != 1)
    {
        throw DsException("the system's cryptography refuses the hash that a digest challenge asks for");
    }
    constexpr std::string_view kHex = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i)
    {
        text.push_back(kHex[bytes[i] >> 4U]);
        text.push_back(kHex[bytes[i] & 15U]);
    }
    return text;
}

std::string newClientNonce()
{
    constexpr std::string_view kHex = "0123456789abcdef";
    std::random_device random;
    std::string text;
    for (int i = 0; i < 4; ++i)
    {
        std::uint32_t value = random();
        for (int digit = 0; digit < 8; ++digit, value >>= 4U)
        {
            text.push_back(kHex[value & 15U]);
        }
    }
    return text;
}

const DsSipCredential* findCredential(const std::vector<DsSipCredential>& in_vCredentials,
                                      const std::string& in_strRealm)
{
    const auto find = [&](const std::string& in_strWanted) -> const DsSipCredential*
    {
        const auto found = std::find_if(in_vCredentials.begin(),
                                        in_vCredentials.end(),
                                        [&](const DsSipCredential& in_entry)
                                        { return in_entry.m_strRealm == in_strWanted; });
        return found == in_vCredentials.end() ? nullptr : &*found;
    };
    const DsSipCredential* const exact = find(in_strRealm);
    return exact != nullptr ? exact : find(std::string());
}

}  // namespace

bool DsSipDigest::Challenge::parse(std::string_view in_value, Challenge& out_challenge)
{
    const std::string_view value = SipText::trim(in_value);
    const std::size_t blank = std::min(value.find_first_of(" \t"), value.size());
    if (!SipText::equalsIgnoreCase(value.substr(0, blank), "Digest"))
    {
        return false;
    }
    Challenge challenge;
    challenge.m_strAlgorithm = "MD5";
    bool realm = false;
    for (const std::string_view item : SipText::splitList(value.substr(blank)))
    {
        const std::size_t equals = item.find('=');
        if (equals == std::string_view::npos)
        {
            continue;
        }
        const std::string name = SipText::toLower(SipText::trim(item.substr(0, equals)));
        const std::string text = SipText::unquote(SipText::trim(item.substr(equals + 1)));
        if (name == "realm")
        {
            realm = true;
            challenge.m_strRealm = text;
        }
        else if (name == "nonce")
        {
            challenge.m_strNonce = text;
        }
        else if (name == "opaque")
        {
            challenge.m_bOpaque = true;
            challenge.m_strOpaque = text;
        }
        else if (name == "algorithm")
        {
            challenge.m_strAlgorithm = text;
        }
        else if (name == "stale")
        {
            challenge.m_bStale = SipText::equalsIgnoreCase(text, "true");
        }
        else if (name == "qop")
        {
            challenge.m_bQopGiven = true;
            for (const std::string_view quality : SipText::splitList(text))
            {
                challenge.m_bQopAuth = challenge.m_bQopAuth || SipText::equalsIgnoreCase(quality, "auth");
            }
        }
    }
    if (!realm || challenge.m_strNonce.empty())
    {
        return false;
    }
    out_challenge = std::move(challenge);
    return true;
}

std::string DsSipDigest::makeValue(const Challenge& in_challenge,
                                   std::string_view in_method,
                                   std::string_view in_requestURI,
                                   const DsSipCredential& in_credential,
                                   std::string_view in_clientNonce)
{
    const Algorithm algorithm = algorithmOf(in_challenge.m_strAlgorithm);
    if (algorithm.m_hash == Hash::eNONE || (in_challenge.m_bQopGiven && !in_challenge.m_bQopAuth))
    {
        return {};
    }
    const auto hash = [&](const std::string& in_strText) { return hexHash(algorithm.m_hash, in_strText); };
    constexpr const char* kCount = "00000001";
    const std::string& nonce = in_challenge.m_strNonce;
    const std::string uri(in_requestURI);
    std::string ha1 =
        hash(in_credential.m_strUser + ":" + in_challenge.m_strRealm + ":" + in_credential.m_strPassword);
    if (algorithm.m_bSession)
    {
        ha1 = hash(ha1.append(":").append(nonce).append(":").append(in_clientNonce));
    }
    const std::string ha2 = hash(std::string(in_method) + ":" + uri);
    std::string middle = nonce;
    if (in_challenge.m_bQopAuth)
    {
        middle.append(":").append(kCount).append(":").append(in_clientNonce).append(":auth");
    }
    std::string value = "Digest username=" + SipText::quote(in_credential.m_strUser) +
                        ", realm=" + SipText::quote(in_challenge.m_strRealm) +
                        ", nonce=" + SipText::quote(nonce) + ", uri=" + SipText::quote(uri) +
                        ", response=\"" + hash(ha1 + ":" + middle + ":" + ha2) +
                        "\", algorithm=" + in_challenge.m_strAlgorithm;
    if (in_challenge.m_bQopAuth || algorithm.m_bSession)
    {
        value.append(", cnonce=").append(SipText::quote(in_clientNonce));
    }
    if (in_challenge.m_bQopAuth)
    {
        value.append(", qop=auth, nc=").append(kCount);
    }
    if (in_challenge.m_bOpaque)
    {
        value.append(", opaque=").append(SipText::quote(in_challenge.m_strOpaque));
    }
    return value;
}

std::vector<DsSipDigest::Answer> DsSipDigest::answer(const DsSipResponse& in_response,
                                                     std::string_view in_method,
                                                     std::string_view in_requestURI,
                                                     const std::vector<DsSipCredential>& in_vCredentials)
{
    const bool proxy = in_response.getStatusCode() == 407;
    std::vector<Challenge> best;
    const int id = proxy ? DsSipHeaderID::ePROXY_AUTHENTICATE : DsSipHeaderID::eWWW_AUTHENTICATE;
    for (auto header = in_response.getHeaderByID(id); !header.isNil(); header = header->getNext())
    {
        Challenge challenge;
        if (!Challenge::parse(header->getValueText(), challenge))
        {
            continue;
        }
        const Hash hash = algorithmOf(challenge.m_strAlgorithm).m_hash;
        const auto known = std::find_if(best.begin(),
                                        best.end(),
                                        [&](const Challenge& in_other)
                                        { return in_other.m_strRealm == challenge.m_strRealm; });
        if (known == best.end())
        {
            best.push_back(std::move(challenge));
        }
        else if (hash > algorithmOf(known->m_strAlgorithm).m_hash)
        {
            *known = std::move(challenge);
        }
    }
    std::vector<Answer> answers;
    for (const Challenge& challenge : best)
    {
        const DsSipCredential* const credential = findCredential(in_vCredentials, challenge.m_strRealm);
        std::string value =
            credential == nullptr
                ? std::string()
                : makeValue(challenge, in_method, in_requestURI, *credential, newClientNonce());
        if (!value.empty())
        {
            answers.push_back({proxy ? "Proxy-Authorization" : "Authorization",
                               std::move(value),
                               challenge.m_strRealm,
                               challenge.m_strNonce,
                               challenge.m_bStale});
        }
    }
    return answers;
}

}  // namespace Quorvex
