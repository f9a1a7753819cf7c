#include "VoipMediaStream.h"

#include <ostream>

#include "infra/Logger.h"

namespace Quorvex
{

namespace
{

const StaticLogger& getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.VoipMediaStream");
    return s_logger;
}

}  // namespace

VoipMediaStream::VoipMediaStream(std::unique_ptr<MediaEndpoint> in_pEndpoint, Media::StreamMode in_mode)
    : m_pEndpoint(std::move(in_pEndpoint)), m_mode(in_mode)
{
}

VoipMediaStream::~VoipMediaStream() = default;

void VoipMediaStream::setRunState(MediaEndpoint::Direction in_direction, RunState in_state)
{
    auto& state = direction(in_direction);
    moveTo(state, in_state, state.m_configState);
}

void VoipMediaStream::setConfigState(MediaEndpoint::Direction in_direction, ConfigState in_state)
{
    auto& state = direction(in_direction);
    moveTo(state, state.m_runState, in_state);
}

void VoipMediaStream::setConfig(MediaEndpoint::Direction in_direction, const RtpMediaConfigData& in_config)
{
    direction(in_direction).m_config = in_config;
}

void VoipMediaStream::moveTo(DirectionState& io_direction, RunState in_runState, ConfigState in_configState)
{
    QLOG_DEBUG(getLogger(),
               "Transiting from state " << getRunStateName(io_direction.m_runState) << '-'
                                        << getConfigStateName(io_direction.m_configState) << " to state "
                                        << getRunStateName(in_runState) << '-'
                                        << getConfigStateName(in_configState));
    io_direction.m_runState = in_runState;
    io_direction.m_configState = in_configState;
}

const char* VoipMediaStream::getRunStateName(RunState in_state)
{
    switch (in_state)
    {
        case eSTOPPED:
            return "eSTOPPED";
        case eSTARTING:
            return "eSTARTING";
        case eSTARTED:
            return "eSTARTED";
        case eSTOPPING:
            return "eSTOPPING";
        case eFORCING_STOP:
            return "eFORCING_STOP";
    }
    return "???";
}

const char* VoipMediaStream::getConfigStateName(ConfigState in_state)
{
    switch (in_state)
    {
        case eNOT_CONFIGURED:
            return "eNOT_CONFIGURED";
        case eCONFIGURING:
            return "eCONFIGURING";
        case eCONFIGURED:
            return "eCONFIGURED";
    }
    return "???";
}

std::ostream& VoipMediaStream::write(std::ostream& out_stream) const
{
    return out_stream << "Rx state: " << getRunStateName(m_rx.m_runState) << '-'
                      << getConfigStateName(m_rx.m_configState)
                      << "\nTx state: " << getRunStateName(m_tx.m_runState) << '-'
                      << getConfigStateName(m_tx.m_configState) << "\nRx config: " << m_rx.m_config
                      << "\nTx config: " << m_tx.m_config << "\nMode: " << Media::getMediaModeString(m_mode);
}

}  // namespace Quorvex
