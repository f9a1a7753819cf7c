#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "quorvex/Fallible.h"

namespace Quorvex
{

/// Why a call, or a part of one, failed. Carried by ConnectionFailureType.
enum ConnectionFailureEnum : std::int32_t
{
    eNO_FAILURE = 0,
    eBUSY_FAILURE = 1,
    eMEDIA_FAILURE = 2,
    eSDP_FAILURE = 3,
    eNO_ANSWER_FAILURE = 4,
    eINVALID_NUMBER_FAILURE = 5,
    eUNAVAILABLE_FAILURE = 8,
    eOTHER_FAILURE = 21
};

/// What a caller is to hear while the called party is alerted.
enum RingType
{
    eRING_WITHOUT_EARLY_MEDIA = 1,
    eRING_WITH_EARLY_MEDIA = 2
};

namespace Call
{

/// How a call was connected, as far as call-progress analysis tells; or why it was not.
enum ConnectionType
{
    eCONNECTION_NONE = 0,
    eCONNECTION_VOICE = 1,
    eCONNECTION_MACHINE = 2,
    eCONNECTION_FAX = 3,
    eCONNECTION_BUSY = 4,
    eCONNECTION_REORDER = 5,
    eCONNECTION_SIT = 6,
    eCONNECTION_HUNG_UP_IN_ANALYSIS = 7,
    eCONNECTION_HUNG_UP_BEFORE_ANSWER = 8
};

/// One failure code: its name for routes and records, what it means, the SIP status that stands for it
/// towards a caller, and its text in a "CPD-Result" header.
struct FailureEntry
{
    ConnectionFailureEnum m_failure;
    std::string_view m_name;
    std::string_view m_meaning;
    unsigned int m_uiSipStatus;
    std::string_view m_cpdResult;
};

struct ConnectionTypeEntry
{
    ConnectionType m_type;
    std::string_view m_name;
    std::string_view m_meaning;
    unsigned int m_uiSipStatus;
    std::string_view m_cpdResult;
};

struct RingTypeEntry
{
    RingType m_type;
    std::string_view m_name;
    std::string_view m_meaning;
};

inline constexpr FailureEntry kFailures[] = {
    {eBUSY_FAILURE,           "busy",        "the called party is busy, or nobody takes the call", 486, "Busy"         },
    {eMEDIA_FAILURE,          "media",       "the media could not be configured",                  500, "MediaFailure" },
    {eSDP_FAILURE,            "sdp",         "the session description is not acceptable",          488, "NotAcceptable"},
    {eNO_ANSWER_FAILURE,      "noAnswer",    "nobody answered in time",                            480, "NoAnswer"     },
    {eINVALID_NUMBER_FAILURE,
     "invalidNumber",                        "the number is not one that can be reached",
     404,                                                                                               "InvalidNumber"},
    {eUNAVAILABLE_FAILURE,    "unavailable", "the gateway is stopping, or out of capacity",        503, "Unavailable"  },
    {eOTHER_FAILURE,          "other",       "any other failure",                                  500, "Failure"      },
};

inline constexpr ConnectionTypeEntry kConnectionTypes[] = {
    {eCONNECTION_NONE,                  "none",    "connected; no analysis was asked for",            200, "None"        },
    {eCONNECTION_VOICE,                 "voice",   "a person answered",                               200, "Voice"       },
    {eCONNECTION_MACHINE,               "machine", "an answering machine answered",                   200, "Machine"     },
    {eCONNECTION_FAX,                   "fax",     "a fax machine answered",                          200, "Fax"         },
    {eCONNECTION_BUSY,                  "busy",    "a busy tone was heard",                           486, "Busy"        },
    {eCONNECTION_REORDER,               "reorder", "a reorder (congestion) tone was heard",           503, "Reorder"     },
    {eCONNECTION_SIT,                   "sit",     "special information tones were heard",            404, "SIT"         },
    {eCONNECTION_HUNG_UP_IN_ANALYSIS,
     "hungUpInAnalysis",                           "the far end hung up while it was being analysed",
     480,                                                                                                  "RemoteHangUp"},
    {eCONNECTION_HUNG_UP_BEFORE_ANSWER,
     "hungUpBeforeAnswer",                         "the call was hung up before it was answered",
     403,                                                                                                  "HangUp"      },
};

inline constexpr RingTypeEntry kRingTypes[] = {
    {eRING_WITHOUT_EARLY_MEDIA, "ringing",    "the caller's own phone makes the ringing tone"},
    {eRING_WITH_EARLY_MEDIA,    "earlyMedia", "the caller hears what the gateway sends"      },
};

/// The entry of a failure code; that of eOTHER_FAILURE for a code without one.
constexpr const FailureEntry& getFailureEntry(std::int32_t in_iFailure)
{
    for (const FailureEntry& entry : kFailures)
    {
        if (entry.m_failure == in_iFailure)
        {
            return entry;
        }
    }
    return kFailures[std::size(kFailures) - 1];
}

/// The entry of a connection type; that of eCONNECTION_NONE for a value without one.
constexpr const ConnectionTypeEntry& getConnectionTypeEntry(ConnectionType in_type)
{
    for (const ConnectionTypeEntry& entry : kConnectionTypes)
    {
        if (entry.m_type == in_type)
        {
            return entry;
        }
    }
    return kConnectionTypes[0];
}

/// The failure of that name ("busy"), if there is one.
inline Fallible<ConnectionFailureEnum> parseFailureName(std::string_view in_name)
{
    for (const FailureEntry& entry : kFailures)
    {
        if (entry.m_name == in_name)
        {
            return entry.m_failure;
        }
    }
    return {};
}

}  // namespace Call

}  // namespace Quorvex
