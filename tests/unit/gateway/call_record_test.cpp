#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "gateway/CallRecord.h"

namespace Quorvex
{
namespace
{

using Json = nlohmann::json;
using std::chrono::milliseconds;

CallRecord::Time at(std::int64_t in_iMilliseconds)
{
    return CallRecord::Time(milliseconds(in_iMilliseconds));
}

CallRecord::TimeOfDay timeOfDay(std::int64_t in_iMilliseconds)
{
    return CallRecord::TimeOfDay(milliseconds(in_iMilliseconds));
}

CallRecord makeRecord()
{
    CallRecord record;
    record.m_strCall = "call-1";
    record.m_invited = at(1'000);
    record.m_invitedAt = timeOfDay(1'709'251'199'000);
    record.m_ended = at(2'000);
    return record;
}

TEST(CallRecordTest, TimesAreUtcWithMilliseconds)
{
    const struct
    {
        std::int64_t m_iMilliseconds;
        const char* m_szText;
    } cases[] = {
        {0,                 "1970-01-01T00:00:00.000Z"},
        {1'709'251'199'999, "2024-02-29T23:59:59.999Z"},
        {1'709'251'200'007, "2024-03-01T00:00:00.007Z"},
        {-1,                "1969-12-31T23:59:59.999Z"},
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(toRfc3339(timeOfDay(test.m_iMilliseconds)), test.m_szText);
    }
}

TEST(CallRecordTest, WhatIsNotKnownIsNullAndNothingIsLeftOut)
{
    const Json json = Json::parse(makeRecord().toJson());
    for (const char* szNull : {"sipCallId",
                               "from",
                               "to",
                               "route",
                               "ringing",
                               "answered",
                               "status",
                               "reason",
                               "codec",
                               "rtp",
                               "cpa"})
    {
        ASSERT_TRUE(json.contains(szNull)) << szNull;
        EXPECT_TRUE(json[szNull].is_null()) << szNull;
    }
    EXPECT_EQ(json["call"], "call-1");
    EXPECT_EQ(json["leg"], 0);
    EXPECT_EQ(json["direction"], "in");
    EXPECT_EQ(json["endedBy"], "remote");
    EXPECT_EQ(json.size(), 17U);
}

TEST(CallRecordTest, AnAnsweredCallTellsItsMedia)
{
    CallRecord record = makeRecord();
    record.m_uiLeg = 1;
    record.m_direction = CallRecord::Direction::OUT;
    record.m_ringing = at(1'100);
    record.m_answered = at(1'200);
    record.m_endedBy = CallRecord::EndedBy::STOP;
    record.m_uiStatus = 200;
    record.m_strCodec = "PCMU";
    record.m_rtp = CallRecord::Rtp{50, 49, 1, 0.12345, 4.40987};
    const Json json = Json::parse(record.toJson());
    EXPECT_EQ(json["direction"], "out");
    EXPECT_EQ(json["ringing"], "2024-02-29T23:59:59.100Z");
    EXPECT_EQ(json["answered"], "2024-02-29T23:59:59.200Z");
    EXPECT_EQ(json["endedBy"], "stop");
    EXPECT_EQ(json["status"], 200);
    EXPECT_EQ(json["rtp"],
              Json({
                  {"sent",     50  },
                  {"received", 49  },
                  {"lost",     1   },
                  {"jitterMs", 0.12},
                  {"mos",      4.41}
    }));

    record.m_rtp->m_fMos = 0;
    EXPECT_TRUE(Json::parse(record.toJson())["rtp"]["mos"].is_null()) << "nothing was received";
}

TEST(CallRecordTest, TextFromTheWireStaysOneLineOfJson)
{
    CallRecord record = makeRecord();
    record.m_strFrom = "sip:\"a\\b\n\xff\xfe\x01@x";
    const std::string strLine = record.toJson();
    EXPECT_EQ(strLine.find('\n'), std::string::npos);
    EXPECT_NE(Json::parse(strLine)["from"].get<std::string>().find("sip:\"a\\b\n"), std::string::npos);
}

}  // namespace
}  // namespace Quorvex
