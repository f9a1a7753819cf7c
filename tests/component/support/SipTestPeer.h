#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "Waiting.h"

namespace Quorvex::Test
{

/// The far end of calls, as bare text over UDP on the loopback: sends what the test writes, shows what comes
/// back. One thread.
class SipTestPeer
{
public:
    /// Binds a free port of a loopback address.
    explicit SipTestPeer(const char* in_szAddress = "127.0.0.1");
    SipTestPeer(const SipTestPeer&) = delete;
    SipTestPeer& operator=(const SipTestPeer&) = delete;
    ~SipTestPeer();

    std::uint16_t getPort() const { return m_uiPort; }

    void send(std::uint16_t in_uiPort, const std::string& in_strMessage);
    /// The next message whose first line contains the text (a status, a method), dropping others; empty when
    /// none comes in time; without a time, of what has come.
    std::string receive(const std::string& in_strFirstLine, std::chrono::milliseconds in_time = kDeadline);

    /// A free UDP port at this moment.
    static std::uint16_t findFreePort();

    /// The values of a header, in any case; the first, empty when there is none.
    static std::vector<std::string> headers(const std::string& in_strMessage, const std::string& in_strName);
    static std::string header(const std::string& in_strMessage, const std::string& in_strName);

private:
    std::uint16_t m_uiPort = 0;
    const int m_iSocket;  // binding it finds the port
};

}  // namespace Quorvex::Test
