#include <gtest/gtest.h>

#include <future>

#include "gateway/CallJournal.h"
#include "gateway/Metrics.h"

namespace Quorvex
{
namespace
{

class CallJournalTest : public testing::Test
{
protected:
    void SetUp() override { m_loop.start(); }

    /// Runs on the loop's thread, and waits for it.
    void run(const std::function<void()>& in_job)
    {
        std::promise<void> done;
        ASSERT_TRUE(m_loop.post(
            [&]
            {
                in_job();
                done.set_value();
            }));
        done.get_future().wait();
    }

    static CallRecord makeRecord(const std::string& in_strCall)
    {
        CallRecord record;
        record.m_strCall = in_strCall;
        record.m_uiStatus = 200;
        record.m_answered = record.m_invited;
        return record;
    }

    static StreamStatistics makeFigures(const std::string& in_strCall, std::uint64_t in_ui64Received)
    {
        StreamStatistics figures;
        figures.m_strCallId = in_strCall;
        figures.m_strCodec = "PCMA";
        figures.m_ui64Sent = 10;
        figures.m_ui64Received = in_ui64Received;
        return figures;
    }

    /// How many records of ended legs there are by now.
    int writtenCount()
    {
        MetricsPage page;
        m_journal.getMetrics().collect(page);
        const std::string strSample = "status=\"200\",ended_by=\"remote\"} ";
        const std::size_t at = page.getText().find(strSample);
        return at == std::string::npos ? 0 : std::stoi(page.getText().substr(at + strSample.size()));
    }

    bool pageHolds(const std::string& in_strText)
    {
        MetricsPage page;
        m_journal.getMetrics().collect(page);
        return page.getText().find(in_strText) != std::string::npos;
    }

    EngineLoop m_loop;
    CallJournal m_journal{m_loop};
};

TEST_F(CallJournalTest, ARecordIsWrittenOnceWhicheverEndsFirst)
{
    run(
        [this]
        {
            m_journal.opened("stream first", 0);
            m_journal.streamEnded(makeFigures("stream first", 10));
            EXPECT_EQ(writtenCount(), 0);
            m_journal.closed(makeRecord("stream first"), true);
            EXPECT_EQ(writtenCount(), 1);

            m_journal.opened("call first", 0);
            m_journal.closed(makeRecord("call first"), true);
            EXPECT_EQ(writtenCount(), 1) << "its figures are still to come";
            m_journal.streamEnded(makeFigures("call first", 0));
            EXPECT_EQ(writtenCount(), 2);
            m_journal.streamEnded(makeFigures("call first", 0));

            m_journal.opened("no media", 0);
            m_journal.closed(makeRecord("no media"), false);
            EXPECT_EQ(writtenCount(), 3);

            m_journal.streamEnded(makeFigures("never heard of", 7));
            m_journal.flush();
            EXPECT_EQ(writtenCount(), 3);
        });
    EXPECT_TRUE(pageHolds("quorvex_streams_one_way_total 1\n"));
    EXPECT_TRUE(pageHolds("quorvex_streams_silent_total 0\n"));
}

TEST_F(CallJournalTest, AnEndWritesWhatStillWaits)
{
    run(
        [this]
        {
            m_journal.opened("waits", 0);
            m_journal.closed(makeRecord("waits"), true);
            m_journal.opened("never closed", 0);
            m_journal.flush();
            EXPECT_EQ(writtenCount(), 1);
        });
    m_loop.stop();
    EXPECT_EQ(writtenCount(), 1) << "the timer of a record that was written must not write it again";
}

TEST_F(CallJournalTest, FiguresThatNeverComeDoNotHoldARecordForEver)
{
    std::promise<void> late;
    run(
        [this, &late]
        {
            m_journal.opened("lost figures", 0);
            m_journal.closed(makeRecord("lost figures"), true);
            m_loop.schedule(CallJournal::kPatienceMs + 1, [&late] { late.set_value(); });
        });
    ASSERT_EQ(late.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(writtenCount(), 1);
}

}  // namespace
}  // namespace Quorvex
