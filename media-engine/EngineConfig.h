#pragma once

#include <string>

namespace Quorvex
{

class ROConfiguration;

/// What the engine takes from the configuration.
struct EngineConfig
{
    std::string m_strLocalAddress;
    /// Even ports of this range, each with its odd neighbour for RTCP.
    unsigned m_uiFirstPort = 0;
    unsigned m_uiLastPort = 0;
    bool m_bRtcp = true;
    /// Call-progress analysis ends after this time at the latest.
    unsigned m_uiCpaMaxTimeMs = 10000;
    /// Where recordings go.
    std::string m_strRecordingDir;

    /// False, with one sentence naming the key and what was expected.
    bool read(const ROConfiguration& in_config, std::string& out_strError);
    /// Lets the process open a descriptor for each port of the range, as far as it may; a warning when it may
    /// not.
    std::string raiseDescriptorLimit() const;
    /// A warning when ports of the range may be taken by the system for outgoing connections; else "".
    std::string checkEphemeralPorts() const;
};

}  // namespace Quorvex
