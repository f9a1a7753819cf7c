#include "CallJournal.h"

namespace Quorvex
{

void CallJournal::opened(const std::string& in_strCall, unsigned int in_uiLeg)
{
    m_entries.try_emplace({in_strCall, in_uiLeg});
}

void CallJournal::streamEnded(const StreamStatistics& in_statistics)
{
    const auto it = m_entries.find({in_statistics.m_strCallId, in_statistics.m_uiIndex});
    if (it == m_entries.end())
    {
        return;
    }
    it->second.m_pFigures = std::make_unique<StreamStatistics>(in_statistics);
    if (it->second.m_pRecord)
    {
        write(it);
    }
}

void CallJournal::closed(CallRecord in_record, bool in_bExpectFigures)
{
    const Key key(in_record.m_strCall, in_record.m_uiLeg);
    const auto it = m_entries.try_emplace(key).first;
    it->second.m_pRecord = std::make_unique<CallRecord>(std::move(in_record));
    if (it->second.m_pFigures || !in_bExpectFigures)
    {
        write(it);
        return;
    }
    it->second.m_timer = m_loop.schedule(kPatienceMs,
                                         [this, key]
                                         {
                                             const auto waiting = m_entries.find(key);
                                             if (waiting != m_entries.end())
                                             {
                                                 waiting->second.m_timer = EngineLoop::kNoTimer;
                                                 write(waiting);
                                             }
                                         });
}

void CallJournal::flush()
{
    while (!m_entries.empty())
    {
        write(m_entries.begin());
    }
}

void CallJournal::write(Entries::iterator in_it)
{
    Entry entry = std::move(in_it->second);
    m_entries.erase(in_it);
    m_loop.cancel(entry.m_timer);
    if (!entry.m_pRecord)
    {
        return;
    }
    // A port that was reserved for a leg that never had a codec was no stream.
    if (entry.m_pFigures && !entry.m_pFigures->m_strCodec.empty())
    {
        const StreamStatistics& figures = *entry.m_pFigures;
        entry.m_pRecord->m_strCodec = figures.m_strCodec;
        entry.m_pRecord->m_rtp = CallRecord::Rtp{figures.m_ui64Sent,
                                                 figures.m_ui64Received,
                                                 figures.m_ui64Lost,
                                                 figures.m_fJitterMs,
                                                 figures.m_fMos};
    }
    m_metrics.ended(*entry.m_pRecord);
    m_writer.write(std::move(*entry.m_pRecord));
}

}  // namespace Quorvex
