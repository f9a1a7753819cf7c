#pragma once

#include <string>
#include <utility>

#include "infra/MemAccount.h"
#include "infra/Object.h"
#include "media/MediaStatistics.h"

namespace Quorvex
{

/// Something that happened on an endpoint's stream by itself.
class MediaNotificationEvent : public virtual Cloneable, public virtual OutputStreamable
{
public:
    QUORVEX_MEM_ACCOUNT("MediaNotificationEvent");
    MediaNotificationEvent* clone() const override = 0;
};

/// A digit has come in, as a telephone event or as a tone.
class DtmfNotificationEvent final : public MediaNotificationEvent
{
public:
    DtmfNotificationEvent(char in_cDigit, unsigned in_uiDurationMs)
        : m_cDigit(in_cDigit), m_uiDurationMs(in_uiDurationMs)
    {
    }
    /// '0' to '9', '*', '#', 'A' to 'D'.
    char getDigit() const { return m_cDigit; }
    unsigned getDurationMs() const { return m_uiDurationMs; }
    DtmfNotificationEvent* clone() const override { return new DtmfNotificationEvent(*this); }
    /// "DTMF digit=5, duration=120ms".
    std::ostream& write(std::ostream& out_stream) const override;

private:
    char m_cDigit;
    unsigned m_uiDurationMs;
};

/// Call-progress analysis says that the call is to be connected.
class CPASuccessNotificationEvent final : public MediaNotificationEvent
{
public:
    /// The connection type is a number of the call engine's table of connection types; the text says what was
    /// heard.
    CPASuccessNotificationEvent(int in_iConnectionType, std::string in_strResult)
        : m_iConnectionType(in_iConnectionType), m_strResult(std::move(in_strResult))
    {
    }
    int getConnectionType() const { return m_iConnectionType; }
    const std::string& getResult() const { return m_strResult; }
    CPASuccessNotificationEvent* clone() const override { return new CPASuccessNotificationEvent(*this); }
    /// "CPA success, connection type=1 (voice)".
    std::ostream& write(std::ostream& out_stream) const override;

private:
    int m_iConnectionType;
    std::string m_strResult;
};

/// Call-progress analysis says that nobody was reached.
class CPAFailureNotificationEvent final : public MediaNotificationEvent
{
public:
    /// The failure code is a number of the call engine's table of failures; the text says what was heard.
    CPAFailureNotificationEvent(int in_iFailureCode, std::string in_strResult)
        : m_iFailureCode(in_iFailureCode), m_strResult(std::move(in_strResult))
    {
    }
    int getFailureCode() const { return m_iFailureCode; }
    const std::string& getResult() const { return m_strResult; }
    CPAFailureNotificationEvent* clone() const override { return new CPAFailureNotificationEvent(*this); }
    /// "CPA failure, code=1 (busy)".
    std::ostream& write(std::ostream& out_stream) const override;

private:
    int m_iFailureCode;
    std::string m_strResult;
};

/// The figures of the endpoint's stream, sent when both of its directions have stopped, unless the engine has
/// a MediaObserver, which gets them in any case.
class StreamStatisticsNotificationEvent final : public MediaNotificationEvent
{
public:
    explicit StreamStatisticsNotificationEvent(StreamStatistics in_statistics)
        : m_statistics(std::move(in_statistics))
    {
    }
    const StreamStatistics& getStatistics() const { return m_statistics; }
    StreamStatisticsNotificationEvent* clone() const override
    {
        return new StreamStatisticsNotificationEvent(*this);
    }
    /// "Stream statistics: codec=PCMU, sent=10, received=10, lost=0, jitter=0.1ms, MOS=4.4".
    std::ostream& write(std::ostream& out_stream) const override;

private:
    StreamStatistics m_statistics;
};

}  // namespace Quorvex
