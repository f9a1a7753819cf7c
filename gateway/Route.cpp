#include "Route.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "Text.h"
#include "calleng/CallLegInfo.h"
#include "media/CTBusTonePlayerFactory.h"

namespace Quorvex
{

namespace
{

constexpr std::pair<const char*, Route::Service> kServices[] = {
    {"echo",   Route::Service::ECHO  },
    {"play",   Route::Service::PLAY  },
    {"tone",   Route::Service::TONE  },
    {"ring",   Route::Service::RING  },
    {"reject", Route::Service::REJECT},
};

constexpr std::pair<const char*, Route::Ringing> kRingings[] = {
    {"none",       Route::Ringing::NONE       },
    {"ringing",    Route::Ringing::RINGING    },
    {"earlyMedia", Route::Ringing::EARLY_MEDIA},
};

constexpr const char* kOptions[] = {"name",
                                    "match",
                                    "leg",
                                    "legs",
                                    "service",
                                    "ringing",
                                    "progress",
                                    "answerAfterMs",
                                    "hangupAfterMs",
                                    "reject",
                                    "file",
                                    "tone"};

/// The value that a name stands for; "" or what was expected.
template <class Value, std::size_t Size>
std::string choose(const std::pair<const char*, Value> (&in_choices)[Size],
                   const ParameterTrieNode& in_node,
                   Value& out_value)
{
    std::string text;
    std::vector<std::string> names;
    const bool bText = in_node.getValue().getString(text);
    for (const auto& [szName, value] : in_choices)
    {
        if (bText && text == szName)
        {
            out_value = value;
            return "";
        }
        names.emplace_back(szName);
    }
    return std::string(in_node.getName()) + ": " + Text::alternatives(names) + " is expected, not \"" +
           in_node.getValue().toText() + "\"";
}

/// Empty, or why the file cannot be a WAV file. The media engine looks closer.
std::string checkWavFile(const std::string& in_strFile)
{
    std::ifstream file(in_strFile, std::ios::binary);
    std::string strHead(12, '\0');
    if (!file.read(strHead.data(), static_cast<std::streamsize>(strHead.size())))
    {
        return "file: " + in_strFile + " cannot be read; a WAV file is expected";
    }
    return strHead.starts_with("RIFF") && strHead.ends_with("WAVE")
               ? ""
               : "file: " + in_strFile + " is no WAV file; one is expected";
}

std::string readMilliseconds(const ParameterTrieNode& in_node, unsigned int& out_uiMs)
{
    constexpr std::int64_t kDayMs = 86400000;
    std::int64_t number = 0;
    if (!in_node.getValue().getInteger(number) || number < 0 || number > kDayMs)
    {
        return std::string(in_node.getName()) +
               ": an integer from 0 to 86400000 (milliseconds) is expected, not " +
               in_node.getValue().toText();
    }
    out_uiMs = static_cast<unsigned int>(number);
    return "";
}

}  // namespace

bool Route::read(const ParameterTrieNode& in_node, const std::string& in_strFolder, std::string& out_strError)
{
    const ParameterTrieNode* pName = in_node.getChild("name");
    m_strName = pName != nullptr ? pName->getValue().toText() : "";
    // Routes are counted from 1 by people.
    const std::string place =
        "route " + (m_strName.empty() ? std::to_string(std::stoul(std::string(in_node.getName())) + 1)
                                      : '"' + m_strName + '"');
    std::string error = readMatches(in_node);
    if (error.empty())
    {
        error = readService(in_node);
    }
    if (error.empty())
    {
        error = checkOptions(in_node, in_strFolder);
    }
    out_strError = error.empty() ? "" : place + ": " + error;
    return error.empty();
}

bool Route::readPlaced(const ParameterTrieNode& in_node,
                       const std::string& in_strFolder,
                       std::string& out_strError)
{
    m_strName = "api";
    out_strError = in_node.getChild("service") != nullptr ? readService(in_node) : "";
    if (out_strError.empty() && in_node.getChild("service") == nullptr)
    {
        out_strError = "service: is missing; echo, play, tone or ring is expected";
    }
    if (out_strError.empty() && m_service == Service::REJECT)
    {
        out_strError = "service: echo, play, tone or ring is expected, not \"reject\"";
    }
    if (out_strError.empty())
    {
        out_strError = checkOptions(in_node, in_strFolder);
    }
    return out_strError.empty();
}

std::string Route::checkOptions(const ParameterTrieNode& in_node, const std::string& in_strFolder)
{
    std::string error;
    for (const auto& pChild : in_node.getChildren())
    {
        if (error.empty())
        {
            error = readOption(*pChild, in_strFolder);
        }
    }
    if (error.empty() && m_service == Service::PLAY && m_strFile.empty())
    {
        error = "file: is missing; service \"play\" expects the path of a WAV file";
    }
    if (error.empty() && m_service == Service::TONE && m_strTone.empty())
    {
        error = "tone: is missing; service \"tone\" expects the name of a tone (\"ringback\")";
    }
    return error;
}

std::string Route::readMatches(const ParameterTrieNode& in_node)
{
    const ParameterTrieNode* pMatch = in_node.getChild("match");
    if (pMatch == nullptr)
    {
        return "match: is missing; leg keys with regular expressions are expected "
               "({ \"sip.in.requestUri\" = \"^sip:echo@\" })";
    }
    std::string error;
    auto visitor = [this, &error, pMatch](const ParameterTrieNode& in_leaf)
    {
        if (!error.empty())
        {
            return;
        }
        const std::string key = in_leaf.getFullName().substr(pMatch->getFullName().size() + 1);
        std::string text;
        if (!in_leaf.getValue().getString(text))
        {
            error = "match: " + key + ": a regular expression (a string) is expected";
            return;
        }
        try
        {
            if (key == "sip.in.requestUri")
            {
                m_strUriExpression = text;
            }
            m_vMatches.push_back({key, std::regex(text, std::regex::ECMAScript | std::regex::optimize)});
        }
        catch (const std::regex_error& regexError)
        {
            error = "match: " + key + ": \"" + text + "\" is not a regular expression: " + regexError.what();
        }
    };
    if (pMatch->hasValue())
    {
        return "match: a table of leg keys is expected";
    }
    ParameterTrie::visit(*pMatch, visitor);
    return error;
}

std::string Route::readService(const ParameterTrieNode& in_node)
{
    if (in_node.getChild("leg") != nullptr || in_node.getChild("legs") != nullptr)
    {
        return readLegs(in_node);
    }
    const ParameterTrieNode* pService = in_node.getChild("service");
    if (pService == nullptr)
    {
        return "service: is missing; echo, play, tone, ring or reject, or a leg, is expected";
    }
    return choose(kServices, *pService, m_service);
}

std::string Route::readLegs(const ParameterTrieNode& in_node)
{
    const ParameterTrieNode* pLeg = in_node.getChild("leg");
    const ParameterTrieNode* pLegs = in_node.getChild("legs");
    if ((pLeg != nullptr && pLegs != nullptr) || in_node.getChild("service") != nullptr)
    {
        return "one of leg, legs and service is expected";
    }
    if (pLeg != nullptr)
    {
        return readLeg(*pLeg);
    }
    std::string error;
    for (const auto& pChild : pLegs->getChildren())
    {
        error = error.empty() ? readLeg(*pChild) : error;
    }
    return error.empty() && m_vLegs.empty() ? "legs: a list of tables of leg parameters is expected" : error;
}

std::string Route::readLeg(const ParameterTrieNode& in_node)
{
    if (in_node.hasValue())
    {
        return "leg: a table of leg parameters is expected ({ \"sip.out.requestUri\" = \"sip:$1@host\" })";
    }
    CallLegInfo leg;
    auto visitor = [&leg, &in_node](const ParameterTrieNode& in_leaf)
    { leg.setParameter(in_leaf.getFullName().substr(in_node.getFullName().size() + 1), in_leaf.getValue()); };
    ParameterTrie::visit(in_node, visitor);
    if (leg.getParameterOr("sip.out.requestUri", "").empty())
    {
        return "leg: \"sip.out.requestUri\" is missing; a SIP URI is expected";
    }
    if (leg.getNode("media.rtp") == nullptr)
    {
        leg.addRtpSendReceiveParameters(0);
    }
    m_vLegs.push_back(std::move(leg));
    return "";
}

std::vector<CallLegInfo> Route::makeLegs(const CallLegInfo& in_leg) const
{
    // What an incoming call says, and under which key a leg says it.
    static constexpr std::pair<const char*, const char*> kCarriedOver[] = {
        {"sip.in.from.uri",         "sip.out.from.uri"        },
        {"sip.in.from.displayName", "sip.out.from.displayName"},
        {"sip.in.to.displayName",   "sip.out.to.displayName"  },
    };
    const std::string strUri = in_leg.getParameterOr("sip.in.requestUri", "");
    std::smatch groups;
    for (const Match& match : m_vMatches)
    {
        if (match.m_strKey == "sip.in.requestUri")
        {
            std::regex_search(strUri, groups, match.m_expression);
        }
    }
    std::vector<CallLegInfo> vLegs;
    for (const CallLegInfo& pattern : m_vLegs)
    {
        CallLegInfo& leg = vLegs.emplace_back();
        for (const auto& [szIn, szOut] : kCarriedOver)
        {
            std::string strValue;
            if (in_leg.getParameter(szIn, strValue) && !strValue.empty())
            {
                leg.setParameter(szOut, strValue);
            }
        }
        pattern.getParameters().forEach(
            [&leg, &groups](const ParameterTrieNode& in_node)
            {
                std::string strValue;
                const bool bFill = !groups.empty() && in_node.getValue().getString(strValue);
                leg.setParameter(in_node.getFullName(),
                                 bFill ? ParameterValue(groups.format(strValue)) : in_node.getValue());
            });
    }
    return vLegs;
}

std::string Route::readOption(const ParameterTrieNode& in_node, const std::string& in_strFolder)
{
    const std::string_view name = in_node.getName();
    if (name == "ringing")
    {
        return choose(kRingings, in_node, m_ringing);
    }
    if (name == "progress")
    {
        return in_node.getValue().getBoolean(m_bProgress) ? "" : "progress: true or false is expected";
    }
    if (name == "answerAfterMs")
    {
        return readMilliseconds(in_node, m_uiAnswerAfterMs);
    }
    if (name == "hangupAfterMs")
    {
        return readMilliseconds(in_node, m_uiHangupAfterMs);
    }
    if (name == "reject")
    {
        return readReject(in_node);
    }
    if (name == "file")
    {
        m_strFile =
            (std::filesystem::path(in_strFolder) / in_node.getValue().toText()).lexically_normal().string();
        return checkWavFile(m_strFile);
    }
    if (name == "tone")
    {
        m_strTone = in_node.getValue().toText();
        ToneDescription tone;
        return ToneDescription::find(m_strTone, tone) ? ""
                                                      : "tone: the name of a tone is expected (dial, "
                                                        "ringback, busy, reorder, sit, beep), not \"" +
                                                            m_strTone + "\"";
    }
    std::vector<std::string> known(std::begin(kOptions), std::end(kOptions));
    return std::find(known.begin(), known.end(), name) != known.end()
               ? ""
               : std::string(name) + ": unknown option; the nearest known one is " +
                     Text::nearest(name, known);
}

std::string Route::readReject(const ParameterTrieNode& in_node)
{
    std::int64_t status = 0;
    std::string failure;
    if (in_node.getValue().getInteger(status) && status >= 400 && status <= 699)
    {
        m_uiRejectStatus = static_cast<unsigned int>(status);
        m_rejectFailure = eOTHER_FAILURE;
        return "";
    }
    if (in_node.getValue().getString(failure))
    {
        const auto named = Call::parseFailureName(failure);
        if (named.valid())
        {
            m_rejectFailure = named.value();
            m_uiRejectStatus = Call::getFailureEntry(named.value()).m_uiSipStatus;
            return "";
        }
    }
    std::vector<std::string> names;
    for (const Call::FailureEntry& entry : Call::kFailures)
    {
        names.emplace_back(entry.m_name);
    }
    return "reject: a status code from 400 to 699, or " + Text::alternatives(names) + " is expected, not " +
           in_node.getValue().toText();
}

std::string Route::describe() const
{
    if (hasLegs())
    {
        return "is connected to " + m_vLegs.front().getParameterOr("sip.out.requestUri", "");
    }
    switch (m_service)
    {
        case Service::ECHO:
            return "hears itself";
        case Service::PLAY:
            return "hears " + std::filesystem::path(m_strFile).filename().string();
        case Service::TONE:
            return "hears the tone \"" + m_strTone + '"';
        case Service::RING:
            return "rings and is not answered";
        case Service::REJECT:
            return "is refused with " + std::to_string(m_uiRejectStatus);
    }
    return "";
}

bool Route::matches(const CallLegInfo& in_leg) const
{
    // The library's matcher recurses once per character: a far end must not choose how deep.
    constexpr std::size_t kMaxLength = 1024;
    for (const Match& match : m_vMatches)
    {
        std::string value;
        if (!in_leg.getParameter(match.m_strKey, value) || value.size() > kMaxLength ||
            !std::regex_search(value, match.m_expression))
        {
            return false;
        }
    }
    return true;
}

bool RouteTable::read(const ParameterTrie& in_config,
                      const std::string& in_strFolder,
                      std::string& out_strError)
{
    m_vRoutes.clear();
    const ParameterTrieNode* pRoutes = in_config.find("route");
    if (pRoutes == nullptr)
    {
        return true;
    }
    // The elements of a list are numbered; anything else stands in a single table.
    if (pRoutes->hasValue() || (!pRoutes->getChildren().empty() && pRoutes->getChild("0") == nullptr))
    {
        out_strError = "route: a list of tables is expected ([[route]], with two brackets)";
        return false;
    }
    for (const auto& pNode : pRoutes->getChildren())
    {
        if (!m_vRoutes.emplace_back().read(*pNode, in_strFolder, out_strError))
        {
            return false;
        }
    }
    return true;
}

const Route* RouteTable::find(const CallLegInfo& in_leg) const
{
    for (const Route& route : m_vRoutes)
    {
        if (route.matches(in_leg))
        {
            return &route;
        }
    }
    return nullptr;
}

}  // namespace Quorvex
