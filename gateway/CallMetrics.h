#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>

#include "CallRecord.h"
#include "Metrics.h"

namespace Quorvex
{

/// What the records of ended calls add up to. Any thread.
class CallMetrics : public MetricsSource
{
public:
    void ended(const CallRecord& in_record);
    /// A transfer has an outcome; whether a party asked for it (else an operator), and whether it succeeded.
    void transferEnded(bool in_bByParty, bool in_bDone);
    void collect(MetricsPage& io_page) override;

private:
    /// Direction, SIP status, who ended it.
    using Outcome = std::tuple<CallRecord::Direction, unsigned int, CallRecord::EndedBy>;

    std::mutex m_mutex;
    std::map<Outcome, std::uint64_t> m_outcomes;
    /// By who asked and the outcome, as transferEnded() says them.
    std::map<std::pair<bool, bool>, std::uint64_t> m_transfers;
    std::uint64_t m_ui64OneWay = 0;
    std::uint64_t m_ui64Silent = 0;
    Histogram m_routingSeconds{0.0005, 0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.25, 0.5, 1};
    Histogram m_postDialSeconds{0.01, 0.05, 0.1, 0.25, 0.5, 1, 2, 3, 5, 10, 20};
    Histogram m_answerSeconds{0.01, 0.05, 0.1, 0.5, 1, 2, 5, 10, 20, 30, 60, 120};
    Histogram m_talkSeconds{1, 5, 10, 30, 60, 180, 600, 1800, 3600};
    Histogram m_mos{1.5, 2, 2.5, 3, 3.5, 3.8, 4, 4.2, 4.4};
};

/// The media engine's figures, and how many RTP ports are free; none while no media engine is published.
class MediaMetrics : public MetricsSource
{
public:
    void collect(MetricsPage& io_page) override;
};

/// What the SIP stack counts; none while it does not run.
class SipMetrics : public MetricsSource
{
public:
    void collect(MetricsPage& io_page) override;
};

}  // namespace Quorvex
