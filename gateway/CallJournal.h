#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "CallMetrics.h"
#include "CallRecord.h"
#include "CdrWriter.h"
#include "EngineLoop.h"
#include "media/MediaStatistics.h"

namespace Quorvex
{

/// Brings what the call engine and what the media engine know of a leg together in one record. A leg's stream
/// ends on another thread than its call, before it or after it: a record waits for the figures for a short
/// time. On the engine's thread.
class CallJournal
{
public:
    /// How long a record waits for its stream's figures.
    static constexpr unsigned int kPatienceMs = 1000;

    explicit CallJournal(EngineLoop& in_loop) : m_loop(in_loop) {}
    CallJournal(const CallJournal&) = delete;
    CallJournal& operator=(const CallJournal&) = delete;

    /// A leg begins: from now on its stream's figures are kept.
    void opened(const std::string& in_strCall, unsigned int in_uiLeg);
    /// A stream has ended. Figures of legs that are not open are ignored.
    void streamEnded(const StreamStatistics& in_statistics);
    /// A leg has ended. The record is written when the figures are there; at once when none are expected.
    void closed(CallRecord in_record, bool in_bExpectFigures);
    /// Writes what still waits.
    void flush();

    CdrWriter& getWriter() { return m_writer; }
    CallMetrics& getMetrics() { return m_metrics; }

private:
    using Key = std::pair<std::string, unsigned int>;
    struct Entry
    {
        // What comes at the end only: a call that stands pays for two pointers.
        std::unique_ptr<StreamStatistics> m_pFigures;
        std::unique_ptr<CallRecord> m_pRecord;
        EngineLoop::TimerId m_timer = EngineLoop::kNoTimer;
    };
    using Entries = std::map<Key, Entry>;

    void write(Entries::iterator in_it);

    EngineLoop& m_loop;
    CdrWriter m_writer;
    CallMetrics m_metrics;
    Entries m_entries;
};

}  // namespace Quorvex
