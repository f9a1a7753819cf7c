#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Quorvex
{

/// One thing that a call of the test user agent does.
struct Step
{
    enum class Kind
    {
        eRing,        ///< 180
        eEarly,       ///< 183 with SDP
        eReliable,    ///< 183 with SDP, reliably; the next step follows its PRACK
        eAnswer,      ///< 200 with SDP; the next step follows its ACK
        eRefuse,      ///< the number is the status code
        eRedirect,    ///< 302 to the user "answer" of the same port
        eAfter,       ///< waits; the number is the time in ms
        eReinvite,    ///< the next step follows the final response
        eInfo,        ///< an INFO
        eBye,         ///< hangs up, in whatever way fits
        eRinging,     ///< waits for a provisional response above 100 (calls that are placed)
        eAnswered,    ///< waits for the 200 (calls that are placed; the ACK goes out by itself)
        eSlowAnswer,  ///< re-INVITEs of the far end are answered after this many ms from here on
        eFollow       ///< a redirection is followed from here on
    };
    Kind m_kind;
    unsigned int m_uiNumber = 0;
};

/// Reads "ring.after100.answer": words of letters with an optional number, separated by dots. False when a
/// word is none of those above.
bool parseScript(std::string_view in_text, std::vector<Step>& out_vSteps);

}  // namespace Quorvex
