#include "infra/Logger.h"

#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <log4cplus/thread/threads.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <utility>

namespace Quorvex
{

namespace
{

std::atomic<bool> s_bClosed{false};

/// The thread's stream while no LogText uses it. Itself trivial, so that what is logged while the thread's
/// other objects are destroyed finds it null.
thread_local std::ostringstream* s_pFreeStream = nullptr;
thread_local bool s_bThreadEnds = false;

/// The texts before the records that this thread made last.
struct RecentPrefixes
{
    std::array<std::shared_ptr<const std::string>, 4> m_texts;
    std::size_t m_oldest = 0;
};
thread_local RecentPrefixes* s_pRecentPrefixes = nullptr;

struct ThreadEnd
{
    ~ThreadEnd()
    {
        s_bThreadEnds = true;
        delete std::exchange(s_pFreeStream, nullptr);
        delete std::exchange(s_pRecentPrefixes, nullptr);
    }
    /// Makes sure that it lives.
    void use() const {}
};

thread_local const ThreadEnd s_threadEnd;

/// Appends a text that a far end may have written: it must neither move an operator's terminal nor pass for a
/// record. Lines after the first begin with a tab; control characters become "?".
void appendHarmless(std::string& io_strLine, const std::string& in_strText)
{
    const auto isControl = [](char in_char) { return (in_char >= 0 && in_char < ' ') || in_char == '\x7f'; };
    // Counts, as a search that may end early is not done in wide steps.
    if (std::count_if(in_strText.begin(), in_strText.end(), isControl) == 0)
    {
        io_strLine.append(in_strText);
        return;
    }
    for (std::size_t i = 0; i < in_strText.size(); ++i)
    {
        const char c = in_strText[i];
        if (c == '\n')
        {
            io_strLine.append("\n\t");
        }
        else if (c != '\r' || in_strText[i + 1] != '\n')
        {
            io_strLine.append(1, isControl(c) && c != '\t' ? '?' : c);
        }
    }
}

/// "2031-05-04T10:00:00.123 INFO  [sip-stack] quorvex.gateway.Host: text". Used under its appender's lock.
class LineLayout final : public log4cplus::Layout
{
public:
    void formatAndAppend(log4cplus::tostream& out_stream,
                         const log4cplus::spi::InternalLoggingEvent& in_event) override
    {
        using namespace std::chrono;
        const auto time = in_event.getTimestamp().time_since_epoch();
        const auto second = floor<seconds>(time);
        if (m_strSecond.empty() || second != m_second)
        {
            m_second = second;
            const std::time_t stamp = second.count();
            std::tm parts{};
            ::localtime_r(&stamp, &parts);
            char szText[64];
            m_strSecond.assign(szText, std::strftime(szText, sizeof szText, "%Y-%m-%dT%H:%M:%S", &parts));
        }
        const auto iMs = static_cast<unsigned>(duration_cast<milliseconds>(time - second).count());
        m_strLine.assign(m_strSecond).append(1, '.');
        m_strLine.append(1, static_cast<char>('0' + iMs / 100))
            .append(1, static_cast<char>('0' + iMs / 10 % 10));
        m_strLine.append(1, static_cast<char>('0' + iMs % 10)).append(1, ' ');
        const std::size_t level = m_strLine.size();
        m_strLine.append(llmCache.toString(in_event.getLogLevel()));
        m_strLine.resize(std::max(m_strLine.size(), level + 5), ' ');
        m_strLine.append(" [").append(in_event.getThread()).append("] ").append(in_event.getLoggerName());
        m_strLine.append(": ");
        appendHarmless(m_strLine, in_event.getMessage());
        m_strLine.append(1, '\n');
        out_stream.write(m_strLine.data(), static_cast<std::streamsize>(m_strLine.size()));
    }

private:
    std::chrono::seconds m_second{};
    std::string m_strSecond;
    std::string m_strLine;
};

struct CaptureSlot
{
    std::mutex m_mutex;
    Logging::Capture m_capture = nullptr;
    void* m_pContext = nullptr;
    std::atomic<bool> m_bActive{false};
};

CaptureSlot& captureSlot()
{
    static auto* s_pSlot = new CaptureSlot;
    return *s_pSlot;
}

/// All nodes and configured levels. Never destroyed, so that loggers work until the process is gone.
class LoggerTree
{
public:
    static LoggerTree& instance()
    {
        static auto* s_pTree = new LoggerTree;
        return *s_pTree;
    }

    LoggerNode* node(std::string_view in_name)
    {
        const std::lock_guard guard(m_mutex);
        auto it = m_nodes.find(in_name);
        if (it == m_nodes.end())
        {
            std::string name(in_name);
            auto* pNode = new LoggerNode(name, levelOf(name));
            it = m_nodes.emplace(std::move(name), pNode).first;
        }
        return it->second;
    }

    void setRootLevel(int in_iLevel)
    {
        const std::lock_guard guard(m_mutex);
        m_iRootLevel = in_iLevel;
        apply();
    }

    void setLevel(std::string_view in_name, int in_iLevel)
    {
        const std::lock_guard guard(m_mutex);
        m_levels[std::string(in_name)] = in_iLevel;
        apply();
    }

    void clearLevels()
    {
        const std::lock_guard guard(m_mutex);
        m_levels.clear();
        apply();
    }

private:
    LoggerTree()
    {
        static log4cplus::Initializer s_initializer;
        // The first logger is made before main().
        log4cplus::thread::setCurrentThreadName("main");
        log4cplus::Logger root = log4cplus::Logger::getRoot();
        root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
        log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(true, true));
        appender->setLayout(std::make_unique<LineLayout>());
        root.addAppender(appender);
        // Runs before the back end's own end, so that what is logged after it goes nowhere instead of wrong.
        std::atexit([] { s_bClosed.store(true); });
    }

    int levelOf(std::string_view in_name) const
    {
        while (true)
        {
            const auto it = m_levels.find(in_name);
            if (it != m_levels.end())
            {
                return it->second;
            }
            const std::size_t dot = in_name.rfind('.');
            if (dot == std::string_view::npos)
            {
                return m_iRootLevel;
            }
            in_name = in_name.substr(0, dot);
        }
    }

    void apply()
    {
        for (const auto& [name, pNode] : m_nodes)
        {
            pNode->setLevel(levelOf(name));
        }
    }

    std::mutex m_mutex;
    std::map<std::string, LoggerNode*, std::less<>> m_nodes;
    std::map<std::string, int, std::less<>> m_levels;
    int m_iRootLevel = eINFO_LEVEL;
};

}  // namespace

struct LoggerNode::BackEnd
{
    log4cplus::Logger m_logger;
};

LoggerNode::LoggerNode(std::string in_strName, int in_iLevel)
    : m_strName(std::move(in_strName)),
      m_iLevel(in_iLevel),
      m_pBackEnd(new BackEnd{log4cplus::Logger::getInstance(m_strName)})
{
}

LoggerNode::~LoggerNode() = default;

void LoggerNode::append(int in_iLevel,
                        const std::string& in_strText,
                        const char* in_szFile,
                        int in_iLine) const
{
    if (s_bClosed.load(std::memory_order_relaxed))
    {
        return;
    }
    CaptureSlot& slot = captureSlot();
    if (slot.m_bActive.load(std::memory_order_acquire))
    {
        const std::lock_guard guard(slot.m_mutex);
        if (slot.m_capture != nullptr)
        {
            slot.m_capture(slot.m_pContext, in_iLevel, m_strName, in_strText);
        }
    }
    m_pBackEnd->m_logger.forcedLog(in_iLevel, in_strText, in_szFile, in_iLine);
}

LogText::LogText()
{
    s_threadEnd.use();
    m_pStream = std::exchange(s_pFreeStream, nullptr);
    if (m_pStream == nullptr)
    {
        m_pStream = new std::ostringstream;
    }
}

LogText::~LogText()
{
    // As new, whatever was streamed into it, and not for ever as long as the longest text.
    constexpr std::size_t kLongest = 4096;
    if (s_bThreadEnds || s_pFreeStream != nullptr || m_pStream->view().size() > kLongest)
    {
        delete m_pStream;
        return;
    }
    static const std::ios s_asNew(nullptr);
    static const std::string s_strNothing;
    m_pStream->str(s_strNothing);
    m_pStream->clear();
    m_pStream->copyfmt(s_asNew);
    s_pFreeStream = m_pStream;
}

Logger::Logger(std::string_view in_name) : m_pNode(LoggerTree::instance().node(in_name))
{
}

void LoggingIdLogger::addLoggingId(std::string_view in_id)
{
    setPrefix(m_leadingLength, {getPrefix(), "[", in_id, "] "});
}

void LoggingIdLogger::clearLoggingIds()
{
    setPrefix(m_leadingLength, {getLeading()});
}

void LoggingIdLogger::setLeadingId(std::string_view in_name, std::string_view in_id)
{
    setPrefix(in_name.size() + in_id.size() + 3, {"[", in_name, in_id, "] ", getIds()});
}

void LoggingIdLogger::clearLeadingId()
{
    setPrefix(0, {getIds()});
}

// The loggers of a call are set one soon after another to the same text: it is made once.
void LoggingIdLogger::setPrefix(std::size_t in_leadingLength,
                                std::initializer_list<std::string_view> in_parts)
{
    std::size_t length = 0;
    for (const std::string_view part : in_parts)
    {
        length += part.size();
    }
    std::string strText;
    strText.reserve(length);
    for (const std::string_view part : in_parts)
    {
        strText.append(part);
    }
    m_leadingLength = in_leadingLength;
    if (strText.empty())
    {
        m_pPrefix = nullptr;
        return;
    }
    if (s_pRecentPrefixes == nullptr && !s_bThreadEnds)
    {
        s_threadEnd.use();
        s_pRecentPrefixes = new RecentPrefixes;
    }
    if (s_pRecentPrefixes == nullptr)
    {
        m_pPrefix = std::make_shared<const std::string>(std::move(strText));
        return;
    }
    RecentPrefixes& recent = *s_pRecentPrefixes;
    for (const auto& pText : recent.m_texts)
    {
        if (pText != nullptr && *pText == strText)
        {
            m_pPrefix = pText;
            return;
        }
    }
    m_pPrefix = std::make_shared<const std::string>(std::move(strText));
    recent.m_texts[recent.m_oldest] = m_pPrefix;
    recent.m_oldest = (recent.m_oldest + 1) % recent.m_texts.size();
}

void LoggingIdLogger::log(int in_iLevel,
                          const std::string& in_strText,
                          const char* in_szFile,
                          int in_iLine) const
{
    if (m_pPrefix == nullptr)
    {
        m_logger.log(in_iLevel, in_strText, in_szFile, in_iLine);
    }
    else
    {
        m_logger.log(in_iLevel, *m_pPrefix + in_strText, in_szFile, in_iLine);
    }
}

void CallLogger::callStart(std::string_view in_callId)
{
    setLeadingId(kCall, in_callId);
}

void CallLogger::callEnd()
{
    clearLeadingId();
}

void CallLogger::refreshLevel() const
{
}

bool Logging::setOutput(const std::string& in_strFile, std::string& out_strError)
{
    static_cast<void>(LoggerTree::instance());
    log4cplus::SharedAppenderPtr appender;
    if (in_strFile.empty())
    {
        appender = new log4cplus::ConsoleAppender(true, true);
    }
    else
    {
        // The back end reports an unwritable file to standard error only: find out first.
        errno = 0;
        if (!std::ofstream(in_strFile, std::ios::app))
        {
            out_strError =
                std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): its text is not shared on glibc
            return false;
        }
        appender = new log4cplus::FileAppender(in_strFile, std::ios_base::app, true);
    }
    appender->setLayout(std::make_unique<LineLayout>());
    // The new one first: what is logged meanwhile may stand in both, but is not lost.
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    const log4cplus::SharedAppenderPtrList former = root.getAllAppenders();
    root.addAppender(appender);
    for (const auto& pFormer : former)
    {
        root.removeAppender(pFormer);
    }
    return true;
}

void Logging::setRootLevel(int in_iLevel)
{
    LoggerTree::instance().setRootLevel(in_iLevel);
}

void Logging::setLevel(std::string_view in_name, int in_iLevel)
{
    LoggerTree::instance().setLevel(in_name, in_iLevel);
}

void Logging::clearLevels()
{
    LoggerTree::instance().clearLevels();
}

bool Logging::parseLevel(std::string_view in_text, int& out_iLevel)
{
    static constexpr std::pair<std::string_view, int> kLevels[] = {
        {"TRACE", eTRACE_LEVEL},
        {"DEBUG", eDEBUG_LEVEL},
        {"INFO",  eINFO_LEVEL },
        {"WARN",  eWARN_LEVEL },
        {"ERROR", eERROR_LEVEL},
        {"OFF",   eOFF_LEVEL  },
    };
    std::string text(in_text);
    std::transform(text.begin(),
                   text.end(),
                   text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    for (const auto& [name, level] : kLevels)
    {
        if (name == text)
        {
            out_iLevel = level;
            return true;
        }
    }
    return false;
}

void Logging::setCapture(Capture in_capture, void* in_pContext)
{
    CaptureSlot& slot = captureSlot();
    const std::lock_guard guard(slot.m_mutex);
    slot.m_capture = in_capture;
    slot.m_pContext = in_pContext;
    slot.m_bActive.store(in_capture != nullptr, std::memory_order_release);
}

void Logging::shutdown()
{
    s_bClosed.store(true);
    log4cplus::Logger::shutdown();
}

}  // namespace Quorvex
