#include "EndpointHandle.h"

#include <ostream>
#include <utility>

#include "DirectionConfig.h"
#include "MediaThread.h"
#include "infra/Assertion.h"
#include "media/MediaEndpointConfig.h"

namespace Quorvex
{

namespace
{

const StaticLogger s_logger("quorvex.media.EndpointHandle");

/// Calls an operation of an endpoint for each direction that is meant.
template <class F>
void forEachDirection(MediaEndpoint::Direction in_direction, F in_operation)
{
    if (in_direction != MediaEndpoint::TX_DIRECTION)
    {
        in_operation(MediaEndpoint::RX_DIRECTION);
    }
    if (in_direction != MediaEndpoint::RX_DIRECTION)
    {
        in_operation(MediaEndpoint::TX_DIRECTION);
    }
}

bool isDirection(MediaEndpoint::Direction in_direction)
{
    return QUORVEX_ASSERT(
        s_logger,
        in_direction >= MediaEndpoint::RX_DIRECTION && in_direction <= MediaEndpoint::RXTX_DIRECTION);
}

}  // namespace

EndpointHandle::EndpointHandle(CommandQueuePtr in_pQueue, std::uint32_t in_uiId)
    : m_pQueue(std::move(in_pQueue)), m_uiId(in_uiId)
{
}

EndpointHandle::~EndpointHandle()
{
    m_pQueue->post([uiId = m_uiId](MediaThread& io_thread) { io_thread.closeEndpoint(uiId); });
}

bool EndpointHandle::configure(Direction in_direction, const MediaEndpointConfig& in_config)
{
    if (!isDirection(in_direction))
    {
        return false;
    }
    bool bTaken = true;
    forEachDirection(
        in_direction,
        [&](Direction in_one)
        {
            DirectionConfig config;
            std::string strError;
            const bool bValid = config.read(in_one, in_config, strError);
            if (!bValid)
            {
                QLOG_WARN(s_logger,
                          "endpoint " << m_uiId << ": " << getDirectionString(in_one)
                                      << " configuration refused: " << strError);
            }
            bTaken &= m_pQueue->post(
                [uiId = m_uiId, in_one, bValid, config = std::move(config)](MediaThread& io_thread)
                {
                    if (RtpEndpoint* pEndpoint = io_thread.findEndpoint(uiId))
                    {
                        pEndpoint->configure(in_one, bValid, config);
                    }
                });
        });
    return bTaken;
}

bool EndpointHandle::start(Direction in_direction)
{
    return isDirection(in_direction) &&
           m_pQueue->post(
               [uiId = m_uiId, in_direction](MediaThread& io_thread)
               {
                   if (RtpEndpoint* pEndpoint = io_thread.findEndpoint(uiId))
                   {
                       forEachDirection(in_direction, [&](Direction in_one) { pEndpoint->start(in_one); });
                   }
               });
}

bool EndpointHandle::stop(Direction in_direction)
{
    return isDirection(in_direction) &&
           m_pQueue->post(
               [uiId = m_uiId, in_direction](MediaThread& io_thread)
               {
                   if (RtpEndpoint* pEndpoint = io_thread.findEndpoint(uiId))
                   {
                       forEachDirection(in_direction, [&](Direction in_one) { pEndpoint->stop(in_one); });
                   }
               });
}

}  // namespace Quorvex
