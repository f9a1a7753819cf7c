#include "sip-common/SipStackSettings.h"

#include <algorithm>

#include "sip-common/ConfigReader.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

namespace
{

constexpr unsigned int kMaxMs = 86400000;

void readListen(ConfigReader& io_reader, std::vector<Sip::AddressPortTransport>& out_vListen)
{
    const std::string key = "quorvex.sip.listen";
    const ParameterTrieNode* const node = io_reader.getConfig().getNode(key);
    std::vector<std::string> texts;
    if (node == nullptr)
    {
        texts.emplace_back("udp:127.0.0.1:5060");
    }
    else if (node->hasValue())
    {
        io_reader.readString(key, texts.emplace_back());
    }
    else
    {
        for (const auto& child : node->getChildren())
        {
            io_reader.readString(child->getFullName(), texts.emplace_back());
        }
    }
    for (const std::string& text : texts)
    {
        Sip::AddressPortTransport address;
        std::string error;
        if (!address.parse(text, error))
        {
            io_reader.fail(key, error);
        }
        else if (address.getPort() != 0 &&
                 std::find(out_vListen.begin(), out_vListen.end(), address) != out_vListen.end())
        {
            io_reader.fail(key, address.getText() + " is there twice");
        }
        out_vListen.push_back(address);
    }
    if (out_vListen.empty())
    {
        io_reader.fail(key, "at least one \"udp:ADDRESS:PORT\" or \"tcp:ADDRESS:PORT\" was expected");
    }
}

void addUnlessKnown(const DsSipCredential& in_credential, std::vector<DsSipCredential>& io_vCredentials)
{
    const bool known = std::any_of(io_vCredentials.begin(),
                                   io_vCredentials.end(),
                                   [&](const DsSipCredential& in_other)
                                   { return in_other.m_strRealm == in_credential.m_strRealm; });
    if (!known)
    {
        io_vCredentials.push_back(in_credential);
    }
}

// A registration without a realm of its own answers for its registrar's host and its domain, which is what
// registrars name themselves.
void readRegistration(ConfigReader& io_reader,
                      const std::string& in_strKey,
                      std::vector<DsSipCredential>& io_vCredentials)
{
    DsSipCredential credential;
    io_reader.readString(in_strKey + ".user", credential.m_strUser);
    io_reader.readString(in_strKey + ".password", credential.m_strPassword);
    io_reader.readString(in_strKey + ".realm", credential.m_strRealm);
    if (credential.m_strUser.empty())
    {
        return;
    }
    if (!credential.m_strRealm.empty())
    {
        addUnlessKnown(credential, io_vCredentials);
        return;
    }
    for (const char* const name : {".registrar", ".aor"})
    {
        std::string uri;
        io_reader.readString(in_strKey + name, uri);
        if (const auto url = DsSipURL::parse(uri); !url.isNil())
        {
            credential.m_strRealm = url->getHost();
            addUnlessKnown(credential, io_vCredentials);
        }
    }
}

void readCredentials(ConfigReader& io_reader, std::vector<DsSipCredential>& out_vCredentials)
{
    if (const ParameterTrieNode* const node = io_reader.getConfig().getNode("quorvex.sip.credential"))
    {
        for (const auto& child : node->getChildren())
        {
            DsSipCredential& credential = out_vCredentials.emplace_back();
            io_reader.readString(child->getFullName() + ".realm", credential.m_strRealm);
            io_reader.requireString(child->getFullName() + ".user", credential.m_strUser);
            io_reader.readString(child->getFullName() + ".password", credential.m_strPassword);
        }
    }
    if (const ParameterTrieNode* const node = io_reader.getConfig().getNode("quorvex.sip.registration"))
    {
        for (const auto& child : node->getChildren())
        {
            readRegistration(io_reader, child->getFullName(), out_vCredentials);
        }
    }
}

}  // namespace

bool SipStackSettings::read(const ROConfiguration& in_config,
                            SipStackSettings& out_settings,
                            std::string& out_strError)
{
    SipStackSettings settings;
    DsSipStackConfig& stack = settings.m_stack;
    stack.m_strContactUser = "gateway";
    ConfigReader reader(in_config);
    readListen(reader, settings.m_vListen);
    for (const Sip::AddressPortTransport& address : settings.m_vListen)
    {
        stack.m_vListenPorts.push_back(
            {address.getTransport() == Sip::eTCP ? DsSipTransport::eTCP : DsSipTransport::eUDP,
             address.getHostAddress(),
             address.getPort()});
    }
    reader.readString("quorvex.sip.contactUser", stack.m_strContactUser);
    reader.readString("quorvex.sip.outboundProxy", stack.m_strOutboundProxy);
    if (!stack.m_strOutboundProxy.empty() && DsSipURL::parse(stack.m_strOutboundProxy).isNil())
    {
        reader.fail("quorvex.sip.outboundProxy",
                    "a SIP URI (\"sip:proxy.example.test\") was expected, found \"" +
                        stack.m_strOutboundProxy + "\"");
    }
    reader.readString("quorvex.sip.productName", settings.m_strProductName);
    reader.readString("quorvex.sip.productVersion", settings.m_strProductVersion);
    stack.m_strProduct = settings.m_strProductName;
    if (!settings.m_strProductName.empty() && !settings.m_strProductVersion.empty())
    {
        stack.m_strProduct += "/" + settings.m_strProductVersion;
    }
    reader.readUnsigned("quorvex.sip.getHostByNameTimeoutMs", 0, kMaxMs, stack.m_uiNameTimeoutMs);
    reader.readString("quorvex.sip.resolverFile", stack.m_strResolverSettings);
    reader.readUnsigned("quorvex.sip.t1Ms", 1, 10000, stack.m_uiT1Ms);
    reader.readUnsigned("quorvex.sip.timerCMs", 100, 3600000, stack.m_uiTimerCMs);
    reader.readUnsigned("quorvex.sip.tcpIdleMs", 1000, kMaxMs, stack.m_uiTcpIdleMs);
    unsigned int maxBytes = static_cast<unsigned int>(stack.m_uiMaxMessageBytes);
    reader.readUnsigned("quorvex.sip.maxMessageBytes", 1500, 16777216, maxBytes);
    stack.m_uiMaxMessageBytes = maxBytes;
    reader.readUnsigned("quorvex.sip.sessionExpiresS", 0, 86400, stack.m_uiSessionExpiresS);
    reader.readUnsigned("quorvex.sip.minSES", 1, 86400, stack.m_uiMinSES);
    reader.readUnsigned("quorvex.sip.retryAfterS", 1, 3600, stack.m_uiRetryAfterS);
    readCredentials(reader, stack.m_vCredentials);
    if (!reader.ok())
    {
        out_strError = reader.getError();
        return false;
    }
    out_settings = std::move(settings);
    return true;
}

}  // namespace Quorvex
