#include "CallRecord.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace Quorvex
{

namespace
{

/// The members of one JSON object, one after the other. Not by a JSON library's document: this is done for
/// each leg, and takes a tenth of the time.
class ObjectWriter
{
public:
    explicit ObjectWriter(std::string& io_strText) : m_strText(io_strText) { m_strText += '{'; }
    ~ObjectWriter() { m_strText += '}'; }
    ObjectWriter(const ObjectWriter&) = delete;
    ObjectWriter& operator=(const ObjectWriter&) = delete;

    /// What stands for itself: a number, "null", an object.
    std::string& name(const char* in_szName)
    {
        m_strText.append(m_bFirst ? "\"" : ",\"").append(in_szName).append("\":");
        m_bFirst = false;
        return m_strText;
    }
    void add(const char* in_szName, std::uint64_t in_ui64Number)
    {
        name(in_szName) += std::to_string(in_ui64Number);
    }
    /// Null when it is empty.
    void add(const char* in_szName, const std::string& in_strText)
    {
        name(in_szName);
        if (in_strText.empty())
        {
            m_strText += "null";
        }
        else if (std::all_of(in_strText.begin(), in_strText.end(), standsForItself))
        {
            m_strText.append("\"").append(in_strText).append("\"");
        }
        else
        {
            using Json = nlohmann::json;
            m_strText += Json(in_strText).dump(-1, ' ', false, Json::error_handler_t::replace);
        }
    }
    void addHundredths(const char* in_szName, double in_fNumber)
    {
        name(in_szName) += nlohmann::json(std::round(in_fNumber * 100) / 100).dump();
    }

private:
    static bool standsForItself(char in_char)
    {
        return in_char >= ' ' && in_char < 0x7F && in_char != '"' && in_char != '\\';
    }

    std::string& m_strText;
    bool m_bFirst = true;
};

void writeRtp(std::string& io_strText, const CallRecord::Rtp& in_rtp)
{
    ObjectWriter object(io_strText);
    object.add("sent", in_rtp.m_ui64Sent);
    object.add("received", in_rtp.m_ui64Received);
    object.add("lost", in_rtp.m_ui64Lost);
    object.addHundredths("jitterMs", in_rtp.m_fJitterMs);
    if (in_rtp.m_fMos > 0)
    {
        object.addHundredths("mos", in_rtp.m_fMos);
    }
    else
    {
        object.name("mos") += "null";
    }
}

}  // namespace

const char* toText(CallRecord::Direction in_direction)
{
    return in_direction == CallRecord::Direction::IN ? "in" : "out";
}

const char* toText(CallRecord::EndedBy in_endedBy)
{
    switch (in_endedBy)
    {
        case CallRecord::EndedBy::LOCAL:
            return "local";
        case CallRecord::EndedBy::REMOTE:
            return "remote";
        case CallRecord::EndedBy::TIMEOUT:
            return "timeout";
        case CallRecord::EndedBy::UNREACHABLE:
            return "unreachable";
        case CallRecord::EndedBy::STOP:
            return "stop";
    }
    return "remote";
}

std::string toRfc3339(CallRecord::TimeOfDay in_time)
{
    using namespace std::chrono;
    const auto seconds = floor<std::chrono::seconds>(in_time);
    const auto milliseconds = duration_cast<std::chrono::milliseconds>(in_time - seconds).count();
    const std::time_t time = system_clock::to_time_t(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char szDate[32];
    char szText[40];
    const std::size_t length = std::strftime(szDate, sizeof szDate, "%Y-%m-%dT%H:%M:%S", &parts);
    const int printed = std::snprintf(szText,
                                      sizeof szText,
                                      "%.*s.%03dZ",
                                      static_cast<int>(length),
                                      szDate,
                                      static_cast<int>(milliseconds));
    return {szText, static_cast<std::size_t>(printed)};
}

std::string CallRecord::toJson() const
{
    const auto stamp = [this](Time in_time)
    { return toRfc3339(m_invitedAt + std::chrono::duration_cast<TimeOfDay::duration>(in_time - m_invited)); };
    std::string strText;
    strText.reserve(640);
    {
        ObjectWriter object(strText);
        object.add("call", m_strCall);
        object.add("leg", m_uiLeg);
        object.add("direction", std::string(toText(m_direction)));
        object.add("sipCallId", m_strSipCallId);
        object.add("from", m_strFrom);
        object.add("to", m_strTo);
        object.add("route", m_strRoute);
        object.add("invited", stamp(m_invited));
        object.add("ringing", m_ringing ? stamp(*m_ringing) : "");
        object.add("answered", m_answered ? stamp(*m_answered) : "");
        object.add("ended", stamp(m_ended));
        object.add("endedBy", std::string(toText(m_endedBy)));
        if (m_uiStatus == 0)
        {
            object.name("status") += "null";
        }
        else
        {
            object.add("status", m_uiStatus);
        }
        object.add("reason", m_strReason);
        object.add("codec", m_strCodec);
        if (m_rtp)
        {
            writeRtp(object.name("rtp"), *m_rtp);
        }
        else
        {
            object.name("rtp") += "null";
        }
        object.add("cpa", m_strCpa);
    }
    return strText;
}

}  // namespace Quorvex
