#pragma once

#include <string>
#include <vector>

#include "infra/Object.h"

namespace Quorvex
{

/// A tone: up to four frequencies sounding together, on and off by a cadence.
struct ToneDescription
{
    struct Segment
    {
        /// Frequencies in Hz (1 to 3999) that sound together; none is silence.
        std::vector<double> m_vFrequencyHz;
        /// Milliseconds; 0 lasts for ever.
        unsigned m_uiDurationMs = 0;
    };
    std::vector<Segment> m_vSegments;
    /// Level of each frequency in dBm0, -60 to 0.
    double m_fLevelDbm0 = -13.0;
    /// Whether the segments start again after the last.
    bool m_bRepeat = true;

    /// The tones known by name: "dial", "ringback", "busy", "reorder" (also "congestion"), "sit", "beep",
    /// "milliwatt". False for another name.
    static bool find(const std::string& in_strName, ToneDescription& out_tone);
};

/// What a gateway lets the parties of a call hear when it serves the call itself. Published by the network
/// interface under "TONE_PLAYER_FACTORY" when the media engine is one.
///
/// What is attached belongs to a call identifier, whether the call has endpoints yet or not. It is heard by
/// each party that has no other party to listen to. A call has one thing attached at a time: attaching
/// replaces. It ends with detach() or with the call's last endpoint; who attaches to a call that may never
/// get one detaches it. Any thread; operations return at once, except that attachFile reads the file when it
/// has not been read before.
class CTBusTonePlayerFactory : public virtual Object
{
public:
    /// Each party hears itself, sample by sample.
    virtual bool attachEcho(const std::string& in_strCallId) = 0;
    /// A WAV file (8 or 16 bit PCM, G.711; any rate and number of channels). False, with one sentence in
    /// `out_strError`, when it cannot be read.
    virtual bool attachFile(const std::string& in_strCallId,
                            const std::string& in_strPath,
                            bool in_bRepeat,
                            std::string& out_strError) = 0;
    /// False when the description is out of range.
    virtual bool attachTone(const std::string& in_strCallId, const ToneDescription& in_tone) = 0;
    /// False when the engine does not run. A call that has nothing attached is no error.
    virtual bool detach(const std::string& in_strCallId) = 0;

    /// Sends digits ('0' to '9', '*', '#', 'A' to 'D') to every party of the call, one after another: as
    /// telephone events where negotiated, else as tones. False when another character is among them.
    virtual bool sendDigits(const std::string& in_strCallId,
                            const std::string& in_strDigits,
                            unsigned in_uiDurationMs) = 0;
};

}  // namespace Quorvex
