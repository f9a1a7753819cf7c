#include "MediaThread.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>

#include "infra/Bell.h"
#include "infra/ThreadPriority.h"

namespace Quorvex
{

namespace
{

const StaticLogger s_logger("quorvex.media.MediaThread");

// A clock that was held up for longer starts anew instead of catching up with a burst.
constexpr std::int64_t MAX_CATCH_UP_NS = 200 * NS_PER_MS;
constexpr std::int64_t FAILURE_LOG_NS = 1000 * NS_PER_MS;
constexpr int EVENTS = 256;
// As a nice value.
constexpr int PRIORITY = -11;

// What an entry of the wheel is for; the rest of it is the endpoint's number.
enum TimerKind : unsigned
{
    REPORT_TIMER = 0,
    READ_AGAIN_TIMER = 1,
    ANALYSIS_TIMER = 2
};

constexpr unsigned KIND_BITS = 2;
constexpr std::uint64_t KIND_MASK = 3;
// How often call-progress analysis looks whether anything comes.
constexpr unsigned ANALYSIS_TICKS = 2;

std::uint64_t makeEntry(TimerKind in_kind, const RtpEndpoint& in_endpoint)
{
    return (std::uint64_t{in_endpoint.getIdentity().m_uiId} << KIND_BITS) | in_kind;
}

}  // namespace

MediaThread::MediaThread(const EngineConfig& in_config, CommandQueuePtr in_pQueue)
    : m_config(in_config),
      m_pQueue(std::move(in_pQueue)),
      m_ports(in_config.m_strLocalAddress, in_config.m_uiFirstPort, in_config.m_uiLastPort),
      m_iEpoll(::epoll_create1(EPOLL_CLOEXEC)),
      m_strSourceName("quorvex@" + in_config.m_strLocalAddress)
{
    for (unsigned i = 0; i < CLOCKS; ++i)
    {
        m_clocks[i].m_uiPeriodMs = 10 * (i + 1);
    }
    m_eventClock.m_uiPeriodMs = TelephoneEventSender::PERIOD_MS;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = nullptr;
    static_cast<void>(::epoll_ctl(m_iEpoll, EPOLL_CTL_ADD, m_pQueue->getWakeDescriptor(), &event));
}

MediaThread::~MediaThread()
{
    closeAll();
    ::close(m_iEpoll);
}

std::int64_t MediaThread::now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * (1000 * NS_PER_MS) + time.tv_nsec;
}

void MediaThread::run()
{
    // Sound that waits for a processor is heard as jitter. What a stream may cost is bounded, so that nobody
    // starves behind this thread.
    if (!setThisThreadsNice(PRIORITY))
    {
        QLOG_INFO(s_logger, "The media thread runs at normal priority: the system allows no other one");
    }
    std::array<epoll_event, EVENTS> events{};
    const Bell::Batch bells;
    while (!m_bStop)
    {
        Bell::Batch::ring();
        const int iCount = wait(nextDeadline(), events.data(), EVENTS);
        const std::int64_t i64Now = now();
        bool bCommands = false;
        for (int i = 0; i < iCount; ++i)
        {
            const auto* pSlot = static_cast<const SocketSlot*>(events[static_cast<std::size_t>(i)].data.ptr);
            if (pSlot == nullptr)
            {
                bCommands = true;
                continue;
            }
            receive(*pSlot->m_pEndpoint, pSlot->m_bRtcp, i64Now);
        }
        m_sender.flush();
        m_wheel.run(i64Now, [this, i64Now](std::uint64_t in_ui64Entry) { runTimer(in_ui64Entry, i64Now); });
        runClocks(i64Now);
        runReplans();
        // Last: a command may end an endpoint that has an event.
        if (bCommands)
        {
            runCommands();
            runReplans();
        }
    }
    closeAll();
    m_pQueue->close();
}

int MediaThread::wait(std::int64_t in_i64Deadline, epoll_event* out_events, int in_iCount)
{
    std::int64_t i64Left = -1;
    if (in_i64Deadline >= 0)
    {
        i64Left = std::max<std::int64_t>(in_i64Deadline - now(), 0);
    }
    if (m_bPreciseWait)
    {
        const timespec timeout{i64Left / (1000 * NS_PER_MS), i64Left % (1000 * NS_PER_MS)};
        const int iResult =
            ::epoll_pwait2(m_iEpoll, out_events, in_iCount, i64Left < 0 ? nullptr : &timeout, nullptr);
        if (iResult >= 0 || errno != ENOSYS)
        {
            return iResult;
        }
        m_bPreciseWait = false;
    }
    const auto iTimeout = static_cast<int>(i64Left < 0 ? -1 : (i64Left + NS_PER_MS - 1) / NS_PER_MS);
    return ::epoll_wait(m_iEpoll, out_events, in_iCount, iTimeout);
}

void MediaThread::receive(RtpEndpoint& io_endpoint, bool in_bRtcp, std::int64_t in_i64Now)
{
    // One packet at a time: another one has seldom come, and what has is there in the next round. A flood on
    // one socket so does not starve the others.
    sockaddr_in address;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
    socklen_t uiAddressSize = sizeof address;
    const int iSocket = in_bRtcp ? io_endpoint.getRtcpSocket() : io_endpoint.getSocket();
    const ssize_t iSize = ::recvfrom(iSocket,
                                     m_buffer.data(),
                                     m_buffer.size(),
                                     MSG_DONTWAIT | MSG_TRUNC,
                                     reinterpret_cast<sockaddr*>(&address),
                                     &uiAddressSize);
    if (iSize < 0)
    {
        return;
    }
    const SocketAddress from(address);
    const auto uiSize = static_cast<std::size_t>(iSize);
    ++m_ui64PacketsReceived;
    if (!io_endpoint.isWithinRate(in_i64Now))
    {
        // What is more than any stream can be waits in the socket, where it costs the other calls nothing.
        io_endpoint.countDropped();
        setReading(io_endpoint, false);
    }
    else if (uiSize > m_buffer.size())
    {
        io_endpoint.countDropped();
    }
    else if (in_bRtcp)
    {
        io_endpoint.receiveRtcp(m_buffer.data(), uiSize, from, in_i64Now);
    }
    else
    {
        io_endpoint.receive(m_buffer.data(), uiSize, from, in_i64Now);
    }
}

void MediaThread::setReading(RtpEndpoint& io_endpoint, bool in_bOn)
{
    if (io_endpoint.isReading() == in_bOn)
    {
        return;
    }
    io_endpoint.setReadingState(in_bOn);
    const auto modify = [this, in_bOn](int in_iSocket, SocketSlot& in_slot)
    {
        epoll_event event{};
        event.events = in_bOn ? EPOLLIN : 0U;
        event.data.ptr = &in_slot;
        static_cast<void>(::epoll_ctl(m_iEpoll, EPOLL_CTL_MOD, in_iSocket, &event));
    };
    modify(io_endpoint.getSocket(), io_endpoint.getRtpSlot());
    if (io_endpoint.getRtcpSocket() >= 0)
    {
        modify(io_endpoint.getRtcpSocket(), io_endpoint.getRtcpSlot());
    }
    if (!in_bOn)
    {
        m_wheel.schedule(makeEntry(READ_AGAIN_TIMER, io_endpoint), 1, now());
    }
}

void MediaThread::scheduleReport(const RtpEndpoint& in_endpoint)
{
    m_wheel.schedule(makeEntry(REPORT_TIMER, in_endpoint), 25 + m_random() % 51, now());
}

void MediaThread::scheduleAnalysis(const RtpEndpoint& in_endpoint)
{
    m_wheel.schedule(makeEntry(ANALYSIS_TIMER, in_endpoint), ANALYSIS_TICKS, now());
}

void MediaThread::runTimer(std::uint64_t in_ui64Entry, std::int64_t in_i64Now)
{
    RtpEndpoint* pEndpoint = findEndpoint(static_cast<std::uint32_t>(in_ui64Entry >> KIND_BITS));
    if (pEndpoint == nullptr)
    {
        return;
    }
    switch (in_ui64Entry & KIND_MASK)
    {
        case READ_AGAIN_TIMER:
            setReading(*pEndpoint, true);
            break;
        case ANALYSIS_TIMER:
            if (pEndpoint->passAnalysisTime(in_i64Now))
            {
                scheduleAnalysis(*pEndpoint);
            }
            break;
        default:
            if (pEndpoint->sendReport(in_i64Now))
            {
                scheduleReport(*pEndpoint);
            }
            break;
    }
}

void MediaThread::replanLater(CallGroup& in_group)
{
    m_vReplan.push_back(&in_group);
}

void MediaThread::runReplans()
{
    for (CallGroup* pGroup : m_vReplan)
    {
        pGroup->replan();
    }
    m_vReplan.clear();
}

void MediaThread::runCommands()
{
    m_pQueue->take(m_vCommands);
    for (const std::unique_ptr<MediaCommand>& pCommand : m_vCommands)
    {
        if (m_bStop)
        {
            break;
        }
        pCommand->run(*this);
    }
    m_vCommands.clear();
    m_sender.flush();
}

std::int64_t MediaThread::nextDeadline() const
{
    std::int64_t i64Next = -1;
    const auto consider = [&i64Next](const Clock& in_clock)
    {
        if (!in_clock.m_vMembers.empty() && (i64Next < 0 || in_clock.m_i64Next < i64Next))
        {
            i64Next = in_clock.m_i64Next;
        }
    };
    std::for_each(m_clocks.begin(), m_clocks.end(), consider);
    consider(m_eventClock);
    if (!m_wheel.empty() && (i64Next < 0 || m_wheel.getNext() < i64Next))
    {
        i64Next = m_wheel.getNext();
    }
    return i64Next;
}

bool MediaThread::isDue(Clock& io_clock, std::int64_t in_i64Now)
{
    if (io_clock.m_vMembers.empty() || io_clock.m_i64Next > in_i64Now)
    {
        return false;
    }
    const std::int64_t i64Late = in_i64Now - io_clock.m_i64Next;
    m_ui64LateTicks += i64Late > 20 * NS_PER_MS ? 1 : 0;
    io_clock.m_i64Next += io_clock.m_uiPeriodMs * NS_PER_MS;
    if (i64Late > MAX_CATCH_UP_NS)
    {
        io_clock.m_i64Next = in_i64Now + io_clock.m_uiPeriodMs * NS_PER_MS;
    }
    return true;
}

void MediaThread::runClocks(std::int64_t in_i64Now)
{
    for (Clock& clock : m_clocks)
    {
        while (isDue(clock, in_i64Now))
        {
            for (RtpEndpoint* pEndpoint : clock.m_vMembers)
            {
                pEndpoint->onClock(in_i64Now);
            }
        }
    }
    while (isDue(m_eventClock, in_i64Now))
    {
        std::vector<RtpEndpoint*>& vMembers = m_eventClock.m_vMembers;
        vMembers.erase(std::remove_if(vMembers.begin(),
                                      vMembers.end(),
                                      [in_i64Now](RtpEndpoint* io_pEndpoint)
                                      { return !io_pEndpoint->onEventClock(in_i64Now); }),
                       vMembers.end());
    }
    m_sender.flush();
}

void MediaThread::setClock(RtpEndpoint& in_endpoint, unsigned in_uiPeriodMs)
{
    if (in_endpoint.getClockMs() == in_uiPeriodMs)
    {
        return;
    }
    for (Clock& clock : m_clocks)
    {
        auto& vMembers = clock.m_vMembers;
        if (clock.m_uiPeriodMs == in_endpoint.getClockMs())
        {
            vMembers.erase(std::find(vMembers.begin(), vMembers.end(), &in_endpoint));
        }
        else if (clock.m_uiPeriodMs == in_uiPeriodMs)
        {
            if (vMembers.empty())
            {
                // An endpoint is alone for a moment until its call's other party has started, too: no packet
                // yet.
                clock.m_i64Next = now() + in_uiPeriodMs * NS_PER_MS;
            }
            vMembers.push_back(&in_endpoint);
        }
    }
    in_endpoint.setClockMs(in_uiPeriodMs);
}

void MediaThread::setEventClock(RtpEndpoint& in_endpoint, bool in_bOn)
{
    auto& vMembers = m_eventClock.m_vMembers;
    const auto found = std::find(vMembers.begin(), vMembers.end(), &in_endpoint);
    if (in_bOn && found == vMembers.end())
    {
        if (vMembers.empty())
        {
            m_eventClock.m_i64Next = now();
        }
        vMembers.push_back(&in_endpoint);
    }
    else if (!in_bOn && found != vMembers.end())
    {
        vMembers.erase(found);
    }
}

bool MediaThread::addSocket(int in_iSocket, SocketSlot& in_slot)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = &in_slot;
    return ::epoll_ctl(m_iEpoll, EPOLL_CTL_ADD, in_iSocket, &event) == 0;
}

CallGroup& MediaThread::groupOf(const std::string& in_strCallId)
{
    std::unique_ptr<CallGroup>& pGroup = m_groups[in_strCallId];
    if (pGroup == nullptr)
    {
        pGroup = std::make_unique<CallGroup>(in_strCallId);
    }
    return *pGroup;
}

void MediaThread::dropGroupIfUnused(CallGroup& io_group)
{
    if (io_group.getEndpoints().empty())
    {
        m_vReplan.erase(std::remove(m_vReplan.begin(), m_vReplan.end(), &io_group), m_vReplan.end());
        m_groups.erase(m_groups.find(io_group.getCallId()));
    }
}

void MediaThread::createEndpoint(RtpEndpoint::Identity in_identity,
                                 std::unique_ptr<MediaEndpointCallback> in_pCallback)
{
    CallGroup& group = groupOf(in_identity.m_strCallId);
    if (in_identity.m_type == MediaEndpointSpec::SND_RECV_TYPE)
    {
        in_identity.m_uiPartyIndex = group.nextPartyIndex();
    }
    const std::uint32_t uiId = in_identity.m_uiId;
    auto pEndpoint = std::make_unique<RtpEndpoint>(*this, std::move(in_identity), std::move(in_pCallback));
    RtpEndpoint& endpoint = *pEndpoint;
    m_endpoints.emplace(uiId, std::move(pEndpoint));
    group.add(endpoint);
    endpoint.open(group);
}

RtpEndpoint* MediaThread::findEndpoint(std::uint32_t in_uiId)
{
    const auto found = m_endpoints.find(in_uiId);
    return found == m_endpoints.end() ? nullptr : found->second.get();
}

void MediaThread::closeEndpoint(std::uint32_t in_uiId)
{
    const auto found = m_endpoints.find(in_uiId);
    if (found == m_endpoints.end())
    {
        return;
    }
    const std::unique_ptr<RtpEndpoint> pEndpoint = std::move(found->second);
    m_endpoints.erase(found);
    CallGroup& group = *pEndpoint->getGroup();
    group.remove(*pEndpoint);
    const StreamStatistics statistics = pEndpoint->getStatistics();
    m_ui64PacketsSent += statistics.m_ui64Sent;
    m_ui64PacketsDropped += statistics.m_ui64Dropped;
    if (!m_pObserver.isNull() && pEndpoint->isOpen())
    {
        m_pObserver->streamEnded(statistics);
    }
    dropGroupIfUnused(group);
}

void MediaThread::closeAll()
{
    while (!m_endpoints.empty())
    {
        closeEndpoint(m_endpoints.begin()->first);
    }
    m_groups.clear();
}

void MediaThread::attachEcho(const std::string& in_strCallId)
{
    CallGroup& group = groupOf(in_strCallId);
    group.attachEcho();
    group.replan();
}

void MediaThread::attach(const std::string& in_strCallId, AudioRecipePtr in_pRecipe)
{
    CallGroup& group = groupOf(in_strCallId);
    group.attach(std::move(in_pRecipe));
    group.replan();
}

void MediaThread::detach(const std::string& in_strCallId)
{
    const auto found = m_groups.find(in_strCallId);
    if (found != m_groups.end())
    {
        found->second->detach();
        found->second->replan();
        dropGroupIfUnused(*found->second);
    }
}

void MediaThread::sendDigits(const std::string& in_strCallId,
                             const std::string& in_strDigits,
                             unsigned in_uiDurationMs)
{
    const auto found = m_groups.find(in_strCallId);
    if (found == m_groups.end())
    {
        return;
    }
    for (RtpEndpoint* pEndpoint : found->second->getEndpoints())
    {
        if (pEndpoint->getIdentity().m_type == MediaEndpointSpec::SND_RECV_TYPE)
        {
            pEndpoint->sendDigits(in_strDigits, in_uiDurationMs);
        }
    }
}

std::vector<StreamStatistics> MediaThread::getStatistics(const std::string& in_strCallId) const
{
    std::vector<StreamStatistics> vStatistics;
    const auto found = m_groups.find(in_strCallId);
    if (found != m_groups.end())
    {
        for (const RtpEndpoint* pEndpoint : found->second->getEndpoints())
        {
            vStatistics.push_back(pEndpoint->getStatistics());
        }
    }
    return vStatistics;
}

MediaTotals MediaThread::getTotals() const
{
    MediaTotals totals;
    totals.m_ui64Endpoints = m_endpoints.size();
    totals.m_ui64FreePortPairs = m_ports.getFreePairs();
    totals.m_ui64PortPairs = m_ports.getPairs();
    totals.m_ui64PacketsReceived = m_ui64PacketsReceived;
    totals.m_ui64PacketsSent = m_ui64PacketsSent;
    totals.m_ui64PacketsDropped = m_ui64PacketsDropped;
    for (const auto& [uiId, pEndpoint] : m_endpoints)
    {
        totals.m_ui64PacketsSent += pEndpoint->getPacketsSent();
        totals.m_ui64PacketsDropped += pEndpoint->getPacketsDropped();
    }
    totals.m_ui64CapacityFailures = m_ui64CapacityFailures;
    totals.m_ui64LateTicks = m_ui64LateTicks;
    return totals;
}

void MediaThread::countCapacityFailure(int in_iReason)
{
    ++m_ui64CapacityFailures;
    const std::int64_t i64Now = now();
    if (m_i64LastFailureLog == 0 || i64Now - m_i64LastFailureLog > FAILURE_LOG_NS)
    {
        m_i64LastFailureLog = i64Now;
        QLOG_WARN(s_logger,
                  "no RTP port for an endpoint ("
                      << std::generic_category().message(in_iReason) << "): " << m_ports.getFreePairs()
                      << " of " << m_ports.getPairs() << " pairs are free, " << m_ui64CapacityFailures
                      << " refused so far");
    }
}

void MediaThread::digitReceived(const RtpEndpoint& in_endpoint, char in_cDigit)
{
    if (!m_pObserver.isNull())
    {
        m_pObserver->digitReceived(
            in_endpoint.getIdentity().m_strCallId, in_endpoint.getIdentity().m_uiPartyIndex, in_cDigit);
    }
}

void MediaThread::playEnded(const CallGroup& in_group)
{
    if (!m_pObserver.isNull())
    {
        m_pObserver->playEnded(in_group.getCallId());
    }
}

}  // namespace Quorvex
