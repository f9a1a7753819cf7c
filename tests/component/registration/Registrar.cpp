#include "Registrar.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace Quorvex
{

Registrar::Registrar(Answer in_answer)
    : m_answer(std::move(in_answer)), m_fd(::socket(AF_INET, SOCK_DGRAM, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    {
        throw std::runtime_error("the registrar has no port");
    }
    m_uiPort = ntohs(address.sin_port);
    m_thread = std::thread([this] { run(); });
}

Registrar::~Registrar()
{
    m_bStop = true;
    // A datagram to itself wakes the thread.
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(m_uiPort);
    ::sendto(m_fd, "x", 1, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    m_thread.join();
    ::close(m_fd);
}

void Registrar::run()
{
    std::array<char, 65536> buffer{};
    while (true)
    {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        const ssize_t bytes =
            ::recvfrom(m_fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&peer), &length);
        if (m_bStop)
        {
            return;
        }
        if (bytes <= 1)
        {
            continue;
        }
        const auto request =
            DsSipMessage::parse({buffer.data(), static_cast<std::size_t>(bytes)}).dynamicCast<DsSipRequest>();
        const std::string branch = request->getViaHeader()->getBranch();
        const std::string lines = m_answer(*request);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (branch != m_strLastBranch)
            {
                m_strLastBranch = branch;
                m_requests.push_back(request);
                m_arrived.notify_all();
            }
        }
        if (lines.empty())
        {
            continue;
        }
        const std::size_t statusEnd = lines.find("\r\n") + 2;
        std::string answer = lines.substr(0, statusEnd);
        for (const char* const name : {"Via", "From", "To", "Call-ID", "CSeq"})
        {
            answer.append(name).append(": ").append(request->getHeaderValue(name));
            answer.append(std::string(name) == "To" ? ";tag=r\r\n" : "\r\n");
        }
        answer.append(lines.substr(statusEnd)).append("Content-Length: 0\r\n\r\n");
        ::sendto(m_fd, answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&peer), length);
    }
}

DsHandle<DsSipRequest> Registrar::next(unsigned int in_uiTimeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_arrived.wait_for(
            lock, std::chrono::milliseconds(in_uiTimeoutMs), [this] { return !m_requests.empty(); }))
    {
        return nullptr;
    }
    const auto request = m_requests.front();
    m_requests.pop_front();
    return request;
}

}  // namespace Quorvex
