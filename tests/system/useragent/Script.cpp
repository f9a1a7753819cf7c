#include "Script.h"

#include <cctype>
#include <charconv>
#include <map>

namespace Quorvex
{

namespace
{

const std::map<std::string_view, Step::Kind> kWords = {
    {"ring",     Step::Kind::eRing      },
    {"early",    Step::Kind::eEarly     },
    {"reliable", Step::Kind::eReliable  },
    {"answer",   Step::Kind::eAnswer    },
    {"refuse",   Step::Kind::eRefuse    },
    {"redirect", Step::Kind::eRedirect  },
    {"after",    Step::Kind::eAfter     },
    {"reinvite", Step::Kind::eReinvite  },
    {"info",     Step::Kind::eInfo      },
    {"bye",      Step::Kind::eBye       },
    {"ringing",  Step::Kind::eRinging   },
    {"answered", Step::Kind::eAnswered  },
    {"slow",     Step::Kind::eSlowAnswer},
    {"follow",   Step::Kind::eFollow    },
};

}  // namespace

bool parseScript(std::string_view in_text, std::vector<Step>& out_vSteps)
{
    out_vSteps.clear();
    while (!in_text.empty())
    {
        const std::size_t end = in_text.find('.');
        const std::string_view word = in_text.substr(0, end);
        in_text = end == std::string_view::npos ? std::string_view() : in_text.substr(end + 1);
        std::size_t letters = 0;
        while (letters < word.size() && std::isalpha(static_cast<unsigned char>(word[letters])) != 0)
        {
            ++letters;
        }
        const auto found = kWords.find(word.substr(0, letters));
        if (found == kWords.end())
        {
            return false;
        }
        Step step{found->second};
        const char* const last = word.data() + word.size();
        if (letters < word.size() &&
            std::from_chars(word.data() + letters, last, step.m_uiNumber).ptr != last)
        {
            return false;
        }
        out_vSteps.push_back(step);
    }
    return true;
}

}  // namespace Quorvex
