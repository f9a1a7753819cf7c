#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "sipstack/DsHandle.h"
#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

/// A registrar on a UDP port of the loopback, whose every answer the test writes.
class Registrar
{
public:
    /// Gives the lines of the answer to a request: the status line, and headers beside those that every
    /// answer copies. Empty: no answer. Called on the registrar's thread, for retransmissions too.
    using Answer = std::function<std::string(const DsSipRequest&)>;

    explicit Registrar(Answer in_answer);
    ~Registrar();
    Registrar(const Registrar&) = delete;
    Registrar& operator=(const Registrar&) = delete;

    std::uint16_t getPort() const { return m_uiPort; }

    /// The next request that arrived, retransmissions left out; nil after the time-out.
    DsHandle<DsSipRequest> next(unsigned int in_uiTimeoutMs = 5000);

private:
    void run();

    const Answer m_answer;
    int m_fd = -1;
    std::uint16_t m_uiPort = 0;
    std::atomic<bool> m_bStop{false};
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::deque<DsHandle<DsSipRequest>> m_requests;
    std::string m_strLastBranch;
    std::thread m_thread;
};

}  // namespace Quorvex
