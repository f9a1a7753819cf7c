#include "CallMetrics.h"

#include <chrono>

#include "infra/RegistrationSingleton.h"
#include "media/MediaStatistics.h"
#include "sip-common/SipStack.h"

namespace Quorvex
{

namespace
{

double secondsBetween(CallRecord::Time in_from, CallRecord::Time in_to)
{
    return std::chrono::duration<double>(in_to - in_from).count();
}

}  // namespace

void CallMetrics::ended(const CallRecord& in_record)
{
    if (in_record.m_answered)
    {
        m_answerSeconds.observe(secondsBetween(in_record.m_invited, *in_record.m_answered));
        m_talkSeconds.observe(secondsBetween(*in_record.m_answered, in_record.m_ended));
    }
    if (in_record.m_sent && in_record.m_alerted)
    {
        m_postDialSeconds.observe(secondsBetween(*in_record.m_sent, *in_record.m_alerted));
    }
    if (in_record.m_sent && in_record.m_callArrived)
    {
        m_routingSeconds.observe(secondsBetween(*in_record.m_callArrived, *in_record.m_sent));
    }
    if (in_record.m_rtp && in_record.m_rtp->m_fMos > 0)
    {
        m_mos.observe(in_record.m_rtp->m_fMos);
    }
    const std::lock_guard lock(m_mutex);
    ++m_outcomes[{in_record.m_direction, in_record.m_uiStatus, in_record.m_endedBy}];
    if (in_record.m_answered && in_record.m_rtp)
    {
        const bool bSent = in_record.m_rtp->m_ui64Sent > 0;
        const bool bReceived = in_record.m_rtp->m_ui64Received > 0;
        m_ui64OneWay += bSent != bReceived ? 1 : 0;
        m_ui64Silent += !bSent && !bReceived ? 1 : 0;
    }
}

void CallMetrics::transferEnded(bool in_bByParty, bool in_bDone)
{
    const std::lock_guard lock(m_mutex);
    ++m_transfers[{in_bByParty, in_bDone}];
}

void CallMetrics::collect(MetricsPage& io_page)
{
    {
        const std::lock_guard lock(m_mutex);
        io_page.family("quorvex_legs_ended_total",
                       "counter",
                       "Legs of calls that have ended, by direction, final SIP status and who ended them.");
        for (const auto& [outcome, count] : m_outcomes)
        {
            const auto& [direction, uiStatus, endedBy] = outcome;
            const std::string strStatus = std::to_string(uiStatus);
            io_page.sample(
                count,
                {
                    {"direction", toText(direction)},
                    {"status",    strStatus        },
                    {"ended_by",  toText(endedBy)  }
            });
        }
        io_page.family(
            "quorvex_transfers_total", "counter", "Transfers of calls, by who asked for them and outcome.");
        for (const auto& [transfer, count] : m_transfers)
        {
            io_page.sample(count,
                           {
                               {"asked_by", transfer.first ? "party" : "operator"},
                               {"outcome",  transfer.second ? "done" : "failed"  }
            });
        }
        io_page.counter("quorvex_streams_one_way_total",
                        m_ui64OneWay,
                        "Answered legs whose audio went in one direction only.");
        io_page.counter("quorvex_streams_silent_total", m_ui64Silent, "Answered legs without any audio.");
    }
    m_routingSeconds.write(io_page,
                           "quorvex_routing_seconds",
                           "From the INVITE of a call that arrived to the INVITE of its first outbound leg.");
    m_postDialSeconds.write(
        io_page,
        "quorvex_post_dial_delay_seconds",
        "Of outbound legs: from the INVITE to ringing, early media or, without either, the answer.");
    m_answerSeconds.write(io_page, "quorvex_answer_seconds", "From the INVITE to the answer.");
    m_talkSeconds.write(io_page, "quorvex_talk_seconds", "From the answer to the end.");
    m_mos.write(io_page, "quorvex_stream_mos", "Estimated mean opinion score of what was received.");
}

void MediaMetrics::collect(MetricsPage& io_page)
{
    const auto hSource =
        RegistrationSingleton::instance().lookup("TONE_PLAYER_FACTORY").dynamicCast<MediaStatisticsSource>();
    if (hSource.isNull())
    {
        return;
    }
    const MediaTotals totals = hSource->getTotals();
    io_page.gauge(
        "quorvex_rtp_endpoints", static_cast<double>(totals.m_ui64Endpoints), "Live media endpoints.");
    io_page.gauge(
        "quorvex_rtp_port_pairs", static_cast<double>(totals.m_ui64PortPairs), "RTP and RTCP port pairs.");
    io_page.gauge("quorvex_rtp_free_port_pairs",
                  static_cast<double>(totals.m_ui64FreePortPairs),
                  "RTP and RTCP port pairs that are free.");
    io_page.counter(
        "quorvex_rtp_received_packets_total", totals.m_ui64PacketsReceived, "RTP packets received.");
    io_page.counter("quorvex_rtp_sent_packets_total", totals.m_ui64PacketsSent, "RTP packets sent.");
    io_page.counter("quorvex_rtp_dropped_packets_total",
                    totals.m_ui64PacketsDropped,
                    "Datagrams on RTP ports that were no acceptable RTP.");
    io_page.counter("quorvex_rtp_capacity_failures_total",
                    totals.m_ui64CapacityFailures,
                    "Endpoints that could not be had.");
    io_page.counter("quorvex_rtp_late_ticks_total",
                    totals.m_ui64LateTicks,
                    "Ticks of the media clock that came more than 20 ms late.");
}

void SipMetrics::collect(MetricsPage& io_page)
{
    DsSipStackStatistics sip;
    if (!SipStack::instance()->getStatistics(sip))
    {
        return;
    }
    io_page.counter(
        "quorvex_sip_invites_received_total", sip.m_ulInvitesReceived, "INVITEs of new calls received.");
    io_page.counter("quorvex_sip_invites_sent_total", sip.m_ulInvitesSent, "INVITEs of new calls sent.");
    io_page.counter("quorvex_sip_overload_refused_total",
                    sip.m_ulOverloadRefused,
                    "New calls refused with 503 because there was too much to do.");
    io_page.counter("quorvex_sip_no_dialog_total",
                    sip.m_ulNoDialog481,
                    "Requests answered 481: of calls that are over, or never were.");
    io_page.counter(
        "quorvex_sip_refused_total", sip.m_ulRefused, "Other requests outside calls that were refused.");
    io_page.counter("quorvex_sip_malformed_total",
                    sip.m_ulMalformed,
                    "Messages that could not be read: answered 400 or dropped.");
    io_page.counter("quorvex_sip_unreadable_headers_total",
                    sip.m_ulUnreadableHeaders,
                    "Responses with a header that could not be read and was taken for absent.");
    io_page.gauge("quorvex_sip_dialogs", static_cast<double>(sip.m_ulDialogs), "Dialogs.");
    io_page.gauge("quorvex_sip_server_transactions",
                  static_cast<double>(sip.m_ulServerTransactions),
                  "Requests that wait for an answer of the gateway.");
    io_page.gauge("quorvex_sip_client_transactions",
                  static_cast<double>(sip.m_ulClientTransactions),
                  "Requests of the gateway that wait for an answer.");
}

}  // namespace Quorvex
