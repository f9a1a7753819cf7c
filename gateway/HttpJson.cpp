#include "HttpJson.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

namespace Quorvex::HttpJson
{

namespace
{

using Json = nlohmann::ordered_json;

std::string print(const Json& in_json)
{
    return in_json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

double toSeconds(std::chrono::milliseconds in_age)
{
    return static_cast<double>(in_age.count()) / 1000.0;
}

/// The members that calls and legs share.
template <class View>
Json viewOf(const View& in_view)
{
    return {
        {"id",        in_view.m_strId         },
        {"direction", in_view.m_strDirection  },
        {"state",     in_view.m_strState      },
        {"from",      in_view.m_strFrom       },
        {"to",        in_view.m_strTo         },
        {"seconds",   toSeconds(in_view.m_age)}
    };
}

bool parseObject(const std::string& in_strBody, Json& out_json, std::string& out_strError)
{
    try
    {
        out_json = Json::parse(in_strBody);
    }
    catch (const Json::parse_error& error)
    {
        out_strError = "The body is not JSON (wrong at byte " + std::to_string(error.byte) + ").";
        return false;
    }
    if (!out_json.is_object())
    {
        out_strError = "The body must be a JSON object.";
        return false;
    }
    return true;
}

bool isPlainText(std::string_view in_text)
{
    return std::none_of(
        in_text.begin(), in_text.end(), [](unsigned char in_c) { return in_c < 0x20 || in_c == 0x7F; });
}

/// A header's name (RFC 3261, token).
bool isToken(std::string_view in_text)
{
    constexpr std::string_view kMarks = "-.!%*_+`'~";
    return !in_text.empty() &&
           std::all_of(in_text.begin(),
                       in_text.end(),
                       [kMarks](char in_c)
                       {
                           return (in_c >= '0' && in_c <= '9') || (in_c >= 'a' && in_c <= 'z') ||
                                  (in_c >= 'A' && in_c <= 'Z') || kMarks.find(in_c) != kMarks.npos;
                       });
}

/// A text, an integer or a truth as a parameter's value; false for anything else.
bool toValue(const Json& in_json, ParameterValue& out_value)
{
    if (in_json.is_string())
    {
        out_value = in_json.get<std::string>();
        return isPlainText(in_json.get_ref<const std::string&>());
    }
    if (in_json.is_boolean())
    {
        out_value = in_json.get<bool>();
        return true;
    }
    if (in_json.is_number_integer())
    {
        // An unsigned value above the range of int64 would come out negative.
        out_value = in_json.get<std::int64_t>();
        return !in_json.is_number_unsigned() || in_json.get<std::uint64_t>() <= std::uint64_t{INT64_MAX};
    }
    return false;
}

constexpr const char* kWrongValue =
    " must be a text without control characters, an integer, or true or false.";

bool parseLeg(const Json& in_json, CallLegInfo& out_leg, std::string& out_strError)
{
    const auto it = in_json.find("leg");
    if (it == in_json.end() || !it->is_object())
    {
        out_strError = "\"leg\" must be an object that holds the parameters of the outbound leg.";
        return false;
    }
    for (const auto& [key, json] : it->items())
    {
        ParameterValue value;
        if (key.empty() || !isPlainText(key) || !toValue(json, value))
        {
            out_strError = "\"leg\": \"" + key + "\"" + kWrongValue;
            return false;
        }
        out_leg.setParameter(key, std::move(value));
    }
    std::string strUri;
    if (!out_leg.getParameter("sip.out.requestUri", strUri) || strUri.empty())
    {
        out_strError = "\"leg\" must hold \"sip.out.requestUri\", the URI to call.";
        return false;
    }
    return true;
}

}  // namespace

bool parseCall(const std::string& in_strBody,
               CallLegInfo& out_leg,
               ParameterTrie& out_options,
               std::string& out_strError)
{
    Json json;
    if (!parseObject(in_strBody, json, out_strError) || !parseLeg(json, out_leg, out_strError))
    {
        return false;
    }
    for (const auto& [key, member] : json.items())
    {
        ParameterValue value;
        if (key == "leg")
        {
            continue;
        }
        if (key.empty() || !isPlainText(key) || !toValue(member, value))
        {
            out_strError = "\"" + key + "\"" + kWrongValue;
            return false;
        }
        out_options.set(key, std::move(value));
    }
    return true;
}

bool parseTransfer(const std::string& in_strBody, CallLegInfo& out_leg, std::string& out_strError)
{
    Json json;
    if (!parseObject(in_strBody, json, out_strError) || !parseLeg(json, out_leg, out_strError))
    {
        return false;
    }
    if (json.size() != 1)
    {
        out_strError = "A transfer takes nothing but \"leg\".";
        return false;
    }
    return true;
}

bool parseInfo(const std::string& in_strBody,
               std::vector<Parameter>& out_vParameters,
               std::string& out_strError)
{
    Json json;
    if (!parseObject(in_strBody, json, out_strError))
    {
        return false;
    }
    if (json.empty())
    {
        out_strError = "The object must hold at least one parameter: \"body\", \"Content-Type\" or a header.";
        return false;
    }
    for (const auto& [key, member] : json.items())
    {
        if (!isToken(key))
        {
            out_strError = "\"" + key + "\" is neither \"body\" nor the name of a header.";
            return false;
        }
        if (!member.is_string() || (key != "body" && !isPlainText(member.get_ref<const std::string&>())))
        {
            out_strError =
                "\"" + key + "\" must be a text" + (key == "body" ? "." : " without control characters.");
            return false;
        }
        out_vParameters.emplace_back(key, member.get<std::string>());
    }
    return true;
}

std::string calls(const std::vector<CallView>& in_vCalls)
{
    Json list = Json::array();
    for (const CallView& call : in_vCalls)
    {
        Json json = viewOf(call);
        json["legs"] = Json::array();
        for (const LegView& leg : call.m_vLegs)
        {
            Json& view = json["legs"].emplace_back(viewOf(leg));
            if (!leg.m_strCpa.empty())
            {
                view["cpa"] = leg.m_strCpa;
            }
        }
        list.push_back(std::move(json));
    }
    return print(list);
}

std::string id(const std::string& in_strId)
{
    return print({
        {"id", in_strId}
    });
}

std::string error(const std::string& in_strSentence)
{
    return print({
        {"error", in_strSentence}
    });
}

}  // namespace Quorvex::HttpJson
