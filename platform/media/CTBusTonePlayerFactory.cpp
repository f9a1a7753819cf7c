#include "media/CTBusTonePlayerFactory.h"

#include <array>
#include <string_view>

namespace Quorvex
{

bool ToneDescription::find(const std::string& in_strName, ToneDescription& out_tone)
{
    struct Named
    {
        std::string_view m_name;
        std::vector<Segment> m_vSegments;
        bool m_bRepeat;
    };
    // The North American call-progress tones; the special information tone and the beep are the same
    // everywhere.
    static const std::array<Named, 8> s_tones = {
        {
         {"dial", {{{350, 440}, 0}}, true},
         {"ringback", {{{440, 480}, 2000}, {{}, 4000}}, true},
         {"busy", {{{480, 620}, 500}, {{}, 500}}, true},
         {"reorder", {{{480, 620}, 250}, {{}, 250}}, true},
         {"congestion", {{{480, 620}, 250}, {{}, 250}}, true},
         {"sit", {{{950}, 330}, {{1400}, 330}, {{1800}, 330}, {{}, 1000}}, true},
         {"beep", {{{1000}, 500}}, false},
         {"milliwatt", {{{1004}, 0}}, true},
         }
    };
    for (const Named& named : s_tones)
    {
        if (named.m_name == in_strName)
        {
            out_tone.m_vSegments = named.m_vSegments;
            out_tone.m_bRepeat = named.m_bRepeat;
            return true;
        }
    }
    return false;
}

}  // namespace Quorvex
