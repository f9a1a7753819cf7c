#include "CdrWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "infra/Logger.h"
#include "infra/ThreadName.h"

namespace Quorvex
{

namespace
{

const StaticLogger s_logger("quorvex.gateway.CdrWriter");

constexpr std::chrono::milliseconds kGatherTime{50};
constexpr std::size_t kGatherMost = 512;

std::string reasonOf(int in_iError)
{
    return std::error_code(in_iError, std::generic_category()).message();
}

}  // namespace

bool CdrWriter::open(const std::string& in_strFile, std::string& out_strError)
{
    close();
    if (in_strFile.empty())
    {
        return true;
    }
    m_strFile = in_strFile;
    if (!openFile(out_strError))
    {
        return false;
    }
    m_bInTrouble = false;
    m_bCutLine = false;
    {
        const std::lock_guard lock(m_mutex);
        m_bOpen = true;
        m_bReopen = false;
    }
    m_thread = std::thread([this] { run(); });
    return true;
}

void CdrWriter::close()
{
    {
        const std::lock_guard lock(m_mutex);
        m_bOpen = false;
    }
    m_wake.notify_one();
    if (m_thread.joinable())
    {
        m_thread.join();
    }
    closeFile();
}

void CdrWriter::write(CallRecord in_record)
{
    bool bWake = false;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_bOpen)
        {
            return;
        }
        if (m_vWaiting.size() >= kMaxWaiting)
        {
            m_ui64Lost.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        m_vWaiting.push_back(std::move(in_record));
        bWake = m_vWaiting.size() == 1 || m_vWaiting.size() == kGatherMost;
    }
    if (bWake)
    {
        m_wake.notify_one();
    }
}

void CdrWriter::reopen()
{
    {
        const std::lock_guard lock(m_mutex);
        m_bReopen = true;
    }
    m_wake.notify_one();
}

void CdrWriter::run()
{
    nameThisThread("cdr-writer");
    std::vector<CallRecord> vRecords;
    std::string strLines;
    bool bOpen = true;
    while (bOpen)
    {
        bool bReopen = false;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return !m_bOpen || m_bReopen || !m_vWaiting.empty(); });
            // One wake-up and one write serve what comes in the next moment too.
            m_wake.wait_for(lock,
                            kGatherTime,
                            [this] { return !m_bOpen || m_bReopen || m_vWaiting.size() >= kGatherMost; });
            vRecords.swap(m_vWaiting);
            bReopen = std::exchange(m_bReopen, false);
            bOpen = m_bOpen;
        }
        if (bReopen)
        {
            closeFile();
        }
        strLines.clear();
        for (const CallRecord& record : vRecords)
        {
            strLines += record.toJson();
            strLines += '\n';
        }
        const std::size_t written = writeLines(strLines);
        m_ui64Written.fetch_add(written, std::memory_order_relaxed);
        m_ui64Lost.fetch_add(vRecords.size() - written, std::memory_order_relaxed);
        vRecords.clear();
    }
}

bool CdrWriter::openFile(std::string& out_strError)
{
    m_iFile = ::open(m_strFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    if (m_iFile < 0)
    {
        out_strError = reasonOf(errno);
        return false;
    }
    return true;
}

void CdrWriter::closeFile()
{
    if (m_iFile >= 0)
    {
        ::close(m_iFile);
        m_iFile = -1;
    }
}

std::size_t CdrWriter::writeLines(const std::string& in_strLines)
{
    std::string strError;
    if (m_iFile < 0 && !openFile(strError))
    {
        reportTrouble(strError);
        return 0;
    }
    // What a failed write left of a line must not run into the next record.
    if (m_bCutLine && !in_strLines.empty() && ::write(m_iFile, "\n", 1) == 1)
    {
        m_bCutLine = false;
    }
    std::size_t done = 0;
    while (done < in_strLines.size())
    {
        const ssize_t written = ::write(m_iFile, in_strLines.data() + done, in_strLines.size() - done);
        if (written < 0 && errno != EINTR)
        {
            reportTrouble(reasonOf(errno));
            m_bCutLine = m_bCutLine || (done > 0 && in_strLines[done - 1] != '\n');
            break;
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    if (m_bInTrouble && done == in_strLines.size() && done > 0)
    {
        m_bInTrouble = false;
        QLOG_INFO(s_logger, "call records are written to " << m_strFile << " again");
    }
    const auto end = in_strLines.begin() + static_cast<std::ptrdiff_t>(done);
    return static_cast<std::size_t>(std::count(in_strLines.begin(), end, '\n'));
}

void CdrWriter::reportTrouble(const std::string& in_strReason)
{
    if (!std::exchange(m_bInTrouble, true))
    {
        QLOG_ERROR(s_logger,
                   "call records cannot be written to " << m_strFile << ": " << in_strReason
                                                        << "; they are dropped until it is writable again");
    }
}

}  // namespace Quorvex
