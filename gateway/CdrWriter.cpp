#include "CdrWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
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

std::size_t countLines(std::string_view in_strText)
{
    return static_cast<std::size_t>(std::count(in_strText.begin(), in_strText.end(), '\n'));
}

/// Whether it is a regular file whose last line has no end.
bool lacksLineEnd(const std::string& in_strFile)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(in_strFile, error))
    {
        return false;
    }
    std::ifstream file(in_strFile, std::ios::ate | std::ios::binary);
    return file.tellg() > 0 && file.seekg(-1, std::ios::end) && file.get() != '\n';
}

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
    dropRest();
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
            // A cut record belongs where it began.
            writeLines("");
            closeFile();
            dropRest();
        }
        strLines.clear();
        for (const CallRecord& record : vRecords)
        {
            strLines += record.toJson();
            strLines += '\n';
        }
        writeLines(strLines);
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
    // A process that was killed, or a disk that stayed full, may have left half a record.
    m_bBeginLine = lacksLineEnd(m_strFile);
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

void CdrWriter::writeLines(const std::string& in_strLines)
{
    std::string strError;
    if (m_iFile < 0 && !openFile(strError))
    {
        reportTrouble(strError);
        m_ui64Lost.fetch_add(countLines(in_strLines), std::memory_order_relaxed);
        return;
    }
    m_bBeginLine = m_bBeginLine && append("\n") == 0;
    const bool bWasCut = !m_strRest.empty();
    m_strRest.erase(0, m_bBeginLine ? 0 : append(m_strRest));
    if (m_bBeginLine || !m_strRest.empty())
    {
        m_ui64Lost.fetch_add(countLines(in_strLines), std::memory_order_relaxed);
        return;
    }
    const std::size_t done = append(in_strLines);
    const std::size_t begun =
        done == 0 || in_strLines[done - 1] == '\n' ? done : in_strLines.find('\n', done) + 1;
    m_strRest = in_strLines.substr(done, begun - done);
    const std::string_view strLeft = std::string_view(in_strLines).substr(begun);
    const std::size_t written = countLines(std::string_view(in_strLines).substr(0, done)) + (bWasCut ? 1 : 0);
    m_ui64Written.fetch_add(written, std::memory_order_relaxed);
    m_ui64Lost.fetch_add(countLines(strLeft), std::memory_order_relaxed);
    if (m_bInTrouble && written > 0 && done == in_strLines.size())
    {
        m_bInTrouble = false;
        QLOG_INFO(s_logger, "call records are written to " << m_strFile << " again");
    }
}

std::size_t CdrWriter::append(std::string_view in_strText)
{
    std::size_t done = 0;
    while (done < in_strText.size())
    {
        const ssize_t written = ::write(m_iFile, in_strText.data() + done, in_strText.size() - done);
        if (written < 0 && errno != EINTR)
        {
            reportTrouble(reasonOf(errno));
            break;
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return done;
}

void CdrWriter::dropRest()
{
    m_ui64Lost.fetch_add(m_strRest.empty() ? 0 : 1, std::memory_order_relaxed);
    m_strRest.clear();
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
