#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "infra/MemAccount.h"

namespace Quorvex
{

/// Call-progress analysis: tells from the sound what has answered. It looks at 20 ms at a time, by their
/// level and their spectrum: tones are told by frequency and cadence, people from machines by how long they
/// speak. One thread.
class CpaDetector
{
public:
    QUORVEX_MEM_ACCOUNT("MediaCpaDetector");

    enum Result
    {
        UNDECIDED,
        /// A short greeting and a pause.
        VOICE,
        /// A long greeting, or a beep after speech.
        MACHINE,
        /// The tone of a calling or an answering fax machine.
        FAX,
        BUSY,
        REORDER,
        /// The three special information tones.
        SIT,
        /// The time passed with ringing tone.
        RINGBACK,
        /// The time passed with nothing to go by.
        NOTHING
    };
    static const char* getResultString(Result in_result);

    explicit CpaDetector(unsigned in_uiMaxTimeMs);

    /// Takes the next samples and says what is known after them. Once decided, it stays so.
    Result process(const std::int16_t* in_pSamples, std::size_t in_uiCount);
    Result getResult() const { return m_result; }

private:
    static constexpr unsigned FRAME_MS = 20;
    static constexpr std::size_t HOP = 160;
    static constexpr std::size_t WINDOW = 320;

    /// What a frame, and a run of frames, holds.
    enum Label : std::uint8_t
    {
        SILENCE,
        SPEECH,
        /// One or two frequencies of 300 to 700 Hz.
        LOW_TONE,
        SIT_1_TONE,
        SIT_2_TONE,
        SIT_3_TONE,
        CNG_TONE,
        CED_TONE,
        OTHER_TONE
    };
    struct Run
    {
        Label m_label;
        unsigned m_uiMs;
    };

    void processFrame();
    Label labelFrame();
    Label toneLabel(double in_fFrequencyHz) const;
    bool isSteady(double in_fLevel, bool in_bTone);
    void addFrame(Label in_label);
    void decideTones();
    bool isLimping() const;
    void decideSpeech(Label in_label);
    unsigned runMs(std::size_t in_uiFromEnd) const;
    Label runLabel(std::size_t in_uiFromEnd) const;

    const unsigned m_uiMaxTimeMs;
    unsigned m_uiTimeMs = 0;
    Result m_result = UNDECIDED;

    std::array<float, WINDOW> m_window{};
    std::size_t m_uiFilled = 0;

    double m_fNoiseDb = -50;
    std::array<float, 15> m_levels{};
    unsigned m_uiFrames = 0;

    // The newest run may still be too short to be believed: it then counts to the one before.
    std::vector<Run> m_vRuns;
    Label m_pending = SILENCE;
    unsigned m_uiPendingMs = 0;

    bool m_bRingback = false;
    unsigned m_uiSpeechMs = 0;
    unsigned m_uiGreetingMs = 0;
    unsigned m_uiPauseMs = 0;
};

}  // namespace Quorvex
