#include "CallRecord.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace Quorvex
{

namespace
{

using Json = nlohmann::ordered_json;

Json orNull(const std::string& in_strText)
{
    return in_strText.empty() ? Json() : Json(in_strText);
}

Json orNull(const std::optional<CallRecord::Time>& in_time)
{
    return in_time ? Json(toRfc3339(*in_time)) : Json();
}

double hundredths(double in_fValue)
{
    return std::round(in_fValue * 100) / 100;
}

Json toJsonObject(const CallRecord::Rtp& in_rtp)
{
    return {
        {"sent",     in_rtp.m_ui64Sent                                           },
        {"received", in_rtp.m_ui64Received                                       },
        {"lost",     in_rtp.m_ui64Lost                                           },
        {"jitterMs", hundredths(in_rtp.m_fJitterMs)                              },
        {"mos",      in_rtp.m_fMos > 0 ? Json(hundredths(in_rtp.m_fMos)) : Json()}
    };
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
        case CallRecord::EndedBy::STOP:
            return "stop";
    }
    return "remote";
}

std::string toRfc3339(CallRecord::Time in_time)
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
    const Json record = {
        {"call",      m_strCall                                  },
        {"leg",       m_uiLeg                                    },
        {"direction", toText(m_direction)                        },
        {"sipCallId", orNull(m_strSipCallId)                     },
        {"from",      orNull(m_strFrom)                          },
        {"to",        orNull(m_strTo)                            },
        {"route",     orNull(m_strRoute)                         },
        {"invited",   toRfc3339(m_invited)                       },
        {"ringing",   orNull(m_ringing)                          },
        {"answered",  orNull(m_answered)                         },
        {"ended",     toRfc3339(m_ended)                         },
        {"endedBy",   toText(m_endedBy)                          },
        {"status",    m_uiStatus == 0 ? Json() : Json(m_uiStatus)},
        {"reason",    orNull(m_strReason)                        },
        {"codec",     orNull(m_strCodec)                         },
        {"rtp",       m_rtp ? toJsonObject(*m_rtp) : Json()      },
        {"cpa",       orNull(m_strCpa)                           }
    };
    return record.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Quorvex
