#include "ConfigSchema.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <vector>

#include "Text.h"
#include "infra/Logger.h"
#include "rtp/RFC1890.h"
#include "rtp/Rtp.h"

namespace Quorvex
{

namespace
{

using Type = ParameterValue::Type;

/// Empty when the value is right, else what was expected.
using ValueCheck = std::string (*)(const ParameterValue&);

struct KeySpec
{
    /// "*" stands for the number of a list element, "**" at the end for anything.
    const char* m_szKey;
    Type m_type;
    /// For integers: the range.
    std::int64_t m_iMin;
    std::int64_t m_iMax;
    ValueCheck m_check;
    bool m_bRequired;
};

std::string checkHostPort(const ParameterValue& in_value)
{
    const std::string text = in_value.toText();
    const std::size_t colon = text.rfind(':');
    long port = 0;
    const bool bGood = text.empty() || (colon != std::string::npos && colon > 0 &&
                                        Text::parseNumber(text.substr(colon + 1), 1, 65535, port));
    return bGood ? "" : "an address and a port (\"127.0.0.1:8080\"), or \"\" for none";
}

std::string checkListen(const ParameterValue& in_value)
{
    const std::string text = in_value.toText();
    const std::size_t first = text.find(':');
    const std::size_t last = text.rfind(':');
    const std::string transport = text.substr(0, first);
    long port = 0;
    const bool bGood = first != std::string::npos && last > first + 1 &&
                       (transport == "udp" || transport == "tcp") &&
                       Text::parseNumber(text.substr(last + 1), 1, 65535, port);
    return bGood ? ""
                 : "a transport (udp or tcp), an address and a port from 1 to 65535 (\"udp:127.0.0.1:5060\")";
}

std::string checkPortRange(const ParameterValue& in_value)
{
    const std::string text = in_value.toText();
    const std::size_t dash = text.find('-');
    long first = 0;
    long last = 0;
    const bool bGood = dash != std::string::npos &&
                       Text::parseNumber(text.substr(0, dash), 1, 65535, first) &&
                       Text::parseNumber(text.substr(dash + 1), 1, 65535, last) && first < last;
    return bGood ? "" : "two ports from 1 to 65535, the lower one first (\"16384-32767\")";
}

std::string checkEncodingList(const ParameterValue& in_value)
{
    std::vector<unsigned> types;
    return RFC1890::parsePayloadTypeListString(in_value.toText(), types)
               ? ""
               : "RTP payload types (0 to 127) separated by blanks or commas (\"0 8\")";
}

std::string checkPacketSizes(const ParameterValue& in_value)
{
    std::vector<unsigned> sizes;
    return Rtp::parsePacketSizeVector(in_value.toText(), sizes)
               ? ""
               : "packet sizes in ms separated by blanks or commas (\"20\")";
}

std::string checkLevel(const ParameterValue& in_value)
{
    int level = 0;
    return Logging::parseLevel(in_value.toText(), level) ? "" : "TRACE, DEBUG, INFO, WARN, ERROR or OFF";
}

std::string checkNotEmpty(const ParameterValue& in_value)
{
    return in_value.toText().empty() ? "a text" : "";
}

std::string checkSipUri(const ParameterValue& in_value)
{
    const std::string text = in_value.toText();
    return text.empty() || (text.rfind("sip:", 0) == 0 && text.size() > 4)
               ? ""
               : "a SIP URI (\"sip:127.0.0.1:5080\")";
}

constexpr std::int64_t kNoMin = INT32_MIN;
constexpr std::int64_t kNoMax = INT32_MAX;
constexpr Type kText = ParameterValue::STRING_TYPE;
constexpr Type kNumber = ParameterValue::INTEGER_TYPE;
constexpr Type kFlag = ParameterValue::BOOLEAN_TYPE;

constexpr KeySpec kKeys[] = {
  // key                                          type     min     max       check              required
    {"quorvex.gateway.netIfLib",                  kText,   0,      0,        checkNotEmpty,     false},
    {"quorvex.gateway.httpListen",                kText,   0,      0,        checkHostPort,     false},
    {"quorvex.gateway.cdrFile",                   kText,   0,      0,        nullptr,           false},
    {"quorvex.gateway.stopTimeoutS",              kNumber, 1,      86400,    nullptr,           false},
    {"quorvex.sip.mediaLibName",                  kText,   0,      0,        checkNotEmpty,     true },
    {"quorvex.sip.listen.*",                      kText,   0,      0,        checkListen,       false},
    {"quorvex.sip.contactUser",                   kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.outboundProxy",                 kText,   0,      0,        checkSipUri,       false},
    {"quorvex.sip.productName",                   kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.productVersion",                kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.getHostByNameTimeoutMs",        kNumber, 1,      60000,    nullptr,           false},
    {"quorvex.sip.resolverFile",                  kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.t1Ms",                          kNumber, 1,      10000,    nullptr,           false},
    {"quorvex.sip.timerCMs",                      kNumber, 100,    3600000,  nullptr,           false},
    {"quorvex.sip.tcpIdleMs",                     kNumber, 1000,   86400000, nullptr,           false},
    {"quorvex.sip.maxMessageBytes",               kNumber, 1500,   16777216, nullptr,           false},
    {"quorvex.sip.sessionExpiresS",               kNumber, 0,      86400,    nullptr,           false},
    {"quorvex.sip.minSES",                        kNumber, 1,      86400,    nullptr,           false},
    {"quorvex.sip.retryAfterS",                   kNumber, 1,      3600,     nullptr,           false},
    {"quorvex.sip.maxQueueLength",                kNumber, 1,      kNoMax,   nullptr,           false},
    {"quorvex.sip.state.Disconnecting.timeoutMs", kNumber, kNoMin, kNoMax,   nullptr,           false},
    {"quorvex.sip.in.doNotSend180After183",       kFlag,   0,      0,        nullptr,           false},
    {"quorvex.sip.in.override1XXWithSDP",         kNumber, kNoMin, kNoMax,   nullptr,           false},
    {"quorvex.sip.out.acceptEarlyMedia",          kFlag,   0,      0,        nullptr,           false},
    {"quorvex.sip.registration.*.registrar",      kText,   0,      0,        checkSipUri,       false},
    {"quorvex.sip.registration.*.aor",            kText,   0,      0,        checkSipUri,       false},
    {"quorvex.sip.registration.*.user",           kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.registration.*.password",       kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.registration.*.realm",          kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.registration.*.expiresS",       kNumber, 1,      31536000, nullptr,           false},
    {"quorvex.sip.credential.*.realm",            kText,   0,      0,        nullptr,           false},
    {"quorvex.sip.credential.*.user",             kText,   0,      0,        checkNotEmpty,     false},
    {"quorvex.sip.credential.*.password",         kText,   0,      0,        nullptr,           false},
    {"quorvex.rtp.encodingList",                  kText,   0,      0,        checkEncodingList, true },
    {"quorvex.rtp.localAddress",                  kText,   0,      0,        checkNotEmpty,     false},
    {"quorvex.rtp.portRange",                     kText,   0,      0,        checkPortRange,    false},
    {"quorvex.rtp.rtcp",                          kFlag,   0,      0,        nullptr,           false},
    {"quorvex.media.rtp.packetSizeMs",            kText,   0,      0,        checkPacketSizes,  false},
    {"quorvex.media.recordingDir",                kText,   0,      0,        checkNotEmpty,     false},
    {"quorvex.media.cpaMaxTimeMs",                kNumber, 1000,   60000,    nullptr,           false},
    {"quorvex.log.file",                          kText,   0,      0,        nullptr,           false},
    {"quorvex.log.level",                         kText,   0,      0,        checkLevel,        false},
    {"quorvex.log.levels.**",                     kText,   0,      0,        checkLevel,        false},
};

constexpr const char* kPathKeys[] = {
    "quorvex.gateway.cdrFile", "quorvex.log.file", "quorvex.media.recordingDir", "quorvex.sip.resolverFile"};

bool isNumber(std::string_view in_part)
{
    return !in_part.empty() &&
           std::all_of(in_part.begin(), in_part.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string_view takePart(std::string_view& io_key)
{
    const std::size_t dot = io_key.find('.');
    const std::string_view part = io_key.substr(0, dot);
    io_key = dot == std::string_view::npos ? std::string_view() : io_key.substr(dot + 1);
    return part;
}

bool matches(std::string_view in_pattern, std::string_view in_key)
{
    while (!in_pattern.empty())
    {
        const std::string_view pattern = takePart(in_pattern);
        if (pattern == "**")
        {
            return !in_key.empty();
        }
        const std::string_view part = takePart(in_key);
        if (part.empty() || !(pattern == part || (pattern == "*" && isNumber(part))))
        {
            return false;
        }
    }
    return in_key.empty();
}

const KeySpec* findSpec(std::string_view in_key)
{
    const auto* it =
        std::find_if(std::begin(kKeys),
                     std::end(kKeys),
                     [in_key](const KeySpec& in_spec) { return matches(in_spec.m_szKey, in_key); });
    return it == std::end(kKeys) ? nullptr : it;
}

std::string typeName(const KeySpec& in_spec)
{
    std::string name = "a value of type ";
    name += ParameterValue::getTypeName(in_spec.m_type);
    if (in_spec.m_type == kNumber && (in_spec.m_iMin != kNoMin || in_spec.m_iMax != kNoMax))
    {
        name += " from " + std::to_string(in_spec.m_iMin) + " to " + std::to_string(in_spec.m_iMax);
    }
    return name;
}

std::string quoted(const ParameterValue& in_value)
{
    std::string text;
    return in_value.getString(text) ? '"' + text + '"' : in_value.toText();
}

/// Empty, or what is wrong with one value.
std::string checkValue(const ParameterTrieNode& in_node)
{
    const std::string& key = in_node.getFullName();
    const KeySpec* pSpec = findSpec(key);
    if (pSpec == nullptr)
    {
        return key + ": unknown key; the nearest known one is " + Text::nearest(key, ConfigSchema::getKeys());
    }
    const ParameterValue& value = in_node.getValue();
    std::int64_t number = 0;
    bool bGood = value.getType() == pSpec->m_type;
    if (bGood && value.getInteger(number))
    {
        bGood = number >= pSpec->m_iMin && number <= pSpec->m_iMax;
    }
    if (!bGood)
    {
        return key + ": " + typeName(*pSpec) + " is expected, not " + quoted(value);
    }
    const std::string expected = pSpec->m_check != nullptr ? pSpec->m_check(value) : "";
    return expected.empty() ? "" : key + ": " + expected + " is expected, not " + quoted(value);
}

}  // namespace

bool ConfigSchema::check(const MapConfiguration& in_config, std::string& out_strError)
{
    for (const auto& pTable : in_config.getTrie().root().getChildren())
    {
        if (pTable->getName() != "quorvex" && pTable->getName() != "route")
        {
            out_strError = pTable->getFullName() + ": unknown table; [quorvex...] and [[route]] are expected";
            return false;
        }
    }
    std::string error;
    const ParameterTrieNode* pRoot = in_config.getNode("quorvex");
    if (pRoot != nullptr)
    {
        auto visitor = [&error](const ParameterTrieNode& in_node)
        {
            if (error.empty())
            {
                error = checkValue(in_node);
            }
        };
        ParameterTrie::visit(*pRoot, visitor);
    }
    for (const KeySpec& spec : kKeys)
    {
        if (error.empty() && spec.m_bRequired && in_config.getValue(spec.m_szKey) == nullptr)
        {
            error = std::string(spec.m_szKey) + ": is missing; " + typeName(spec) + " is expected";
        }
    }
    out_strError = error;
    return error.empty();
}

std::vector<std::string> ConfigSchema::getKeys()
{
    std::vector<std::string> vKeys;
    for (const KeySpec& spec : kKeys)
    {
        vKeys.emplace_back(spec.m_szKey);
    }
    return vKeys;
}

void ConfigSchema::resolvePaths(MapConfiguration& io_config, const std::string& in_strConfigFile)
{
    const std::filesystem::path folder = std::filesystem::absolute(in_strConfigFile).parent_path();
    for (const char* szKey : kPathKeys)
    {
        const ParameterValue* pValue = io_config.getValue(szKey);
        std::string path;
        if (pValue != nullptr && pValue->getString(path) && !path.empty())
        {
            io_config.set(szKey, (folder / path).lexically_normal().string());
        }
    }
}

}  // namespace Quorvex
