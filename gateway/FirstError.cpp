#include "FirstError.h"

#include <mutex>

#include "infra/Logger.h"

namespace Quorvex
{

struct FirstError::State
{
    std::mutex m_mutex;
    std::string m_strText;

    static void capture(void* io_pContext,
                        int in_iLevel,
                        const std::string& /*in_strLogger*/,
                        const std::string& in_strText)
    {
        auto* pState = static_cast<State*>(io_pContext);
        if (in_iLevel >= eERROR_LEVEL)
        {
            const std::lock_guard guard(pState->m_mutex);
            if (pState->m_strText.empty())
            {
                pState->m_strText = in_strText;
            }
        }
    }
};

FirstError::FirstError() : m_pState(std::make_unique<State>())
{
    Logging::setCapture(&State::capture, m_pState.get());
}

FirstError::~FirstError()
{
    Logging::setCapture(nullptr, nullptr);
}

std::string FirstError::getText() const
{
    const std::lock_guard guard(m_pState->m_mutex);
    std::string text = m_pState->m_strText.empty() ? "nothing was logged" : m_pState->m_strText;
    for (char& c : text)
    {
        c = c == '\n' || c == '\r' ? ' ' : c;
    }
    return text;
}

}  // namespace Quorvex
