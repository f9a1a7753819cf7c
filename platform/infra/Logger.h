#pragma once

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Quorvex
{

/// Log levels: the numbers of the logging library.
enum LogLevel : int
{
    eTRACE_LEVEL = 0,
    eDEBUG_LEVEL = 10000,
    eINFO_LEVEL = 20000,
    eWARN_LEVEL = 30000,
    eERROR_LEVEL = 40000,
    eOFF_LEVEL = 60000
};

/// One name of the logger hierarchy: the level in force, and the way to the back end. Nodes are shared by all
/// loggers of a name, are made on first use and live as long as the process. Levels may be changed at any
/// time.
class LoggerNode
{
public:
    LoggerNode(std::string in_strName, int in_iLevel);
    LoggerNode(const LoggerNode&) = delete;
    LoggerNode& operator=(const LoggerNode&) = delete;
    ~LoggerNode();

    const std::string& getName() const { return m_strName; }
    int getLevel() const { return m_iLevel.load(std::memory_order_relaxed); }
    void setLevel(int in_iLevel) { m_iLevel.store(in_iLevel, std::memory_order_relaxed); }
    void append(int in_iLevel, const std::string& in_strText, const char* in_szFile, int in_iLine) const;

private:
    struct BackEnd;
    const std::string m_strName;
    std::atomic<int> m_iLevel;
    const std::unique_ptr<BackEnd> m_pBackEnd;
};

/// A named logger: a cheap value, copied freely. Loggers form a hierarchy by the dots of their names; a
/// logger without a level of its own takes that of the nearest configured ancestor ("quorvex.voip" for
/// "quorvex.voip.SipLeg"). Safe on any thread, at any moment of the process's life, static initialisation and
/// exit included.
class Logger
{
public:
    explicit Logger(std::string_view in_name);

    bool isEnabled(int in_iLevel) const { return in_iLevel >= m_pNode->getLevel(); }

    /// Writes one record, whatever the level in force: ask isEnabled() first (the QLOG_ macros do).
    /// `in_szFile` must be a literal.
    void log(int in_iLevel, const std::string& in_strText, const char* in_szFile, int in_iLine) const
    {
        m_pNode->append(in_iLevel, in_strText, in_szFile, in_iLine);
    }

    const std::string& getName() const { return m_pNode->getName(); }

private:
    LoggerNode* m_pNode;
};

/// A logger with a namespace-scope or class-scope life: the same as Logger, named for how it is used.
using StaticLogger = Logger;

/// A logger whose records begin with identifiers ("sip_call_id=abc"), so that every line tells what it
/// belongs to. One thread at a time.
class LoggingIdLogger
{
public:
    explicit LoggingIdLogger(const Logger& in_logger) : m_logger(in_logger) {}
    explicit LoggingIdLogger(std::string_view in_name) : m_logger(in_name) {}

    /// Adds one identifier to the beginning of every later record.
    void addLoggingId(std::string_view in_id);
    void clearLoggingIds();

    bool isEnabled(int in_iLevel) const { return m_logger.isEnabled(in_iLevel); }
    void log(int in_iLevel, const std::string& in_strText, const char* in_szFile, int in_iLine) const;
    const std::string& getName() const { return m_logger.getName(); }
    const Logger& getPlainLogger() const { return m_logger; }

protected:
    /// The identifier of the call, which stands before all others.
    void setLeadingId(std::string_view in_name, std::string_view in_id);
    void clearLeadingId();
    std::string_view getLeadingId() const
    {
        // Between "[" and "] ".
        return m_leadingLength == 0 ? std::string_view() : getPrefix().substr(1, m_leadingLength - 3);
    }

private:
    void setPrefix(std::size_t in_leadingLength, std::initializer_list<std::string_view> in_parts);
    std::string_view getLeading() const { return getPrefix().substr(0, m_leadingLength); }
    std::string_view getIds() const { return getPrefix().substr(m_leadingLength); }
    std::string_view getPrefix() const
    {
        return m_pPrefix == nullptr ? std::string_view() : std::string_view(*m_pPrefix);
    }

    Logger m_logger;
    // The leading identifier, then the others. Shared: each call has a dozen loggers.
    std::shared_ptr<const std::string> m_pPrefix;
    std::size_t m_leadingLength = 0;
};

/// The logger of one call: between callStart() and callEnd() every record begins with the call's identifier.
class CallLogger : public LoggingIdLogger
{
public:
    explicit CallLogger(const Logger& in_logger) : LoggingIdLogger(in_logger) {}
    explicit CallLogger(std::string_view in_name) : LoggingIdLogger(in_name) {}

    void callStart(std::string_view in_callId);
    void callEnd();
    /// The identifier of the call that runs, empty when none does; valid until the next change.
    std::string_view getCallId() const
    {
        return getLeadingId().substr(getLeadingId().empty() ? 0 : kCall.size());
    }
    /// Takes the level in force for the logger's name from its chain again. Levels are shared by name and
    /// followed at once, so this only matters to a back end that was configured behind our back.
    void refreshLevel() const;

private:
    static constexpr std::string_view kCall = "call=";
};

/// Base of the objects that log under their own logger.
template <class L>
class ObjectWithLogger
{
public:
    explicit ObjectWithLogger(L in_logger) : m_logger(std::move(in_logger)) {}
    ObjectWithLogger(const ObjectWithLogger&) = default;
    ObjectWithLogger& operator=(const ObjectWithLogger&) = default;
    virtual ~ObjectWithLogger() = default;

    const L& getLogger() const { return m_logger; }
    L& getLogger() { return m_logger; }
    void setLogger(const L& in_logger) { m_logger = in_logger; }

private:
    L m_logger;
};

template <class L>
using ObjectWithLoggerImpl = ObjectWithLogger<L>;

/// The text of one record, while it is streamed together. Lends the thread's own stream, since making one
/// costs more than most texts; what is streamed may itself log. One thread.
class LogText
{
public:
    LogText();
    LogText(const LogText&) = delete;
    LogText& operator=(const LogText&) = delete;
    ~LogText();

    std::ostream& stream() { return *m_pStream; }
    std::string text() const { return std::string(m_pStream->view()); }

private:
    std::ostringstream* m_pStream;
};

/// Where records go and from which level on; process-wide. Every operation may be called on any thread.
class Logging
{
public:
    /// Sends records to a file (appended to), or to standard error when the name is empty. False, with the
    /// reason in `out_strError`, when the file cannot be written; the former output then stays.
    static bool setOutput(const std::string& in_strFile, std::string& out_strError);

    /// Sets the level of everything that has none of its own.
    static void setRootLevel(int in_iLevel);
    /// Sets the level of a name and what stands below it.
    static void setLevel(std::string_view in_name, int in_iLevel);
    /// Takes all levels set by setLevel() back.
    static void clearLevels();

    /// "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "OFF" in any case; false when it is none of them.
    static bool parseLevel(std::string_view in_text, int& out_iLevel);

    /// Also hands every record to `in_capture` (tests look at records this way); null ends it. The capture is
    /// called on the thread that logs, one record at a time.
    using Capture = void (*)(void* io_pContext,
                             int in_iLevel,
                             const std::string& in_strLogger,
                             const std::string& in_strText);
    static void setCapture(Capture in_capture, void* in_pContext);

    /// Flushes and closes the back end; later records go nowhere.
    static void shutdown();
};

}  // namespace Quorvex

/// Streams an expression into a record when the level is enabled, and does nothing else:
/// QLOG_INFO(getLogger(), "n=" << n).
#define QUORVEX_LOG(in_logger, in_level, in_expression)                                      \
    do                                                                                       \
    {                                                                                        \
        const auto& quorvexLogger_ = (in_logger);                                            \
        if (quorvexLogger_.isEnabled(in_level)) [[unlikely]]                                 \
        {                                                                                    \
            ::Quorvex::LogText quorvexText_;                                                 \
            quorvexText_.stream() << in_expression; /* NOLINT(bugprone-macro-parentheses) */ \
            quorvexLogger_.log(in_level, quorvexText_.text(), __FILE__, __LINE__);           \
        }                                                                                    \
    } while (false)

#define QLOG_TRACE(in_logger, in_expression) QUORVEX_LOG(in_logger, ::Quorvex::eTRACE_LEVEL, in_expression)
#define QLOG_DEBUG(in_logger, in_expression) QUORVEX_LOG(in_logger, ::Quorvex::eDEBUG_LEVEL, in_expression)
#define QLOG_INFO(in_logger, in_expression) QUORVEX_LOG(in_logger, ::Quorvex::eINFO_LEVEL, in_expression)
#define QLOG_WARN(in_logger, in_expression) QUORVEX_LOG(in_logger, ::Quorvex::eWARN_LEVEL, in_expression)
#define QLOG_ERROR(in_logger, in_expression) QUORVEX_LOG(in_logger, ::Quorvex::eERROR_LEVEL, in_expression)
