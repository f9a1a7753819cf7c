#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "CallRecord.h"

namespace Quorvex
{

/// Writes call records to a file, one JSON object per line, on a thread of its own, so that a slow disk holds
/// up no call. A record is in the file within a tenth of a second. What cannot be kept is counted, and
/// reported once per trouble. A record that a full disk has cut is completed when there is room again; the
/// next one begins a line of its own in any case.
///
/// open() and close() belong to one thread; the rest may be called on any.
class CdrWriter
{
public:
    /// Records that wait for a disk that does not keep up; more are dropped.
    static constexpr std::size_t kMaxWaiting = 100'000;

    CdrWriter() = default;
    CdrWriter(const CdrWriter&) = delete;
    CdrWriter& operator=(const CdrWriter&) = delete;
    ~CdrWriter() { close(); }

    /// Opens the file for appending and starts writing. An empty name turns records off. False, with the
    /// system's reason, when the file cannot be written.
    bool open(const std::string& in_strFile, std::string& out_strError);

    /// Writes what is waiting, then closes the file. May be called twice.
    void close();

    /// Takes a record; returns at once. A record that comes while the writer is closed is ignored.
    void write(CallRecord in_record);

    /// From the next record on the file is opened anew, so that a rotated file is let go.
    void reopen();

    /// Records in the file, and records that were lost.
    std::uint64_t getWrittenCount() const { return m_ui64Written.load(std::memory_order_relaxed); }
    std::uint64_t getLostCount() const { return m_ui64Lost.load(std::memory_order_relaxed); }

private:
    void run();
    bool openFile(std::string& out_strError);
    void closeFile();
    /// Writes whole lines, after what is left of a cut one.
    void writeLines(const std::string& in_strLines);
    /// How much of the text the file has taken; the reason, when not all of it.
    std::size_t append(std::string_view in_strText);
    void dropRest();
    void reportTrouble(const std::string& in_strReason);

    std::string m_strFile;
    std::atomic<std::uint64_t> m_ui64Written{0};
    std::atomic<std::uint64_t> m_ui64Lost{0};

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<CallRecord> m_vWaiting;
    bool m_bOpen = false;
    bool m_bReopen = false;

    // The writer's thread alone, while it runs.
    int m_iFile = -1;
    bool m_bInTrouble = false;
    bool m_bBeginLine = false;
    // What is still to come of a record that was cut.
    std::string m_strRest;
    std::thread m_thread;
};

}  // namespace Quorvex
