#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Waiting.h"
#include "infra/Logger.h"

namespace Quorvex::Test
{

/// Collects the events that machines say they process, and on which thread; one at a time.
class EventCapture
{
public:
    struct Event
    {
        std::string m_strText;
        std::thread::id m_thread;
    };

    EventCapture()
    {
        Logging::setLevel("quorvex.voip.StateMachine", eDEBUG_LEVEL);
        Logging::setCapture(&EventCapture::take, this);
    }
    EventCapture(const EventCapture&) = delete;
    EventCapture& operator=(const EventCapture&) = delete;
    ~EventCapture()
    {
        Logging::setCapture(nullptr, nullptr);
        Logging::clearLevels();
    }

    std::vector<Event> takeEvents()
    {
        return m_events.change([](auto& io_vEvents) { return std::exchange(io_vEvents, {}); });
    }
    std::vector<std::string> takeAll()
    {
        std::vector<std::string> vTexts;
        for (const Event& event : takeEvents())
        {
            vTexts.push_back(event.m_strText);
        }
        return vTexts;
    }
    /// Waits for an event by the beginning of its text, that many times.
    bool waitFor(const std::string& in_strEvent, std::ptrdiff_t in_count = 1) const
    {
        return m_events.waitFor(
            [&](const std::vector<Event>& in_vEvents)
            {
                return std::count_if(in_vEvents.begin(),
                                     in_vEvents.end(),
                                     [&](const Event& in_event) {
                                         return in_event.m_strText.compare(
                                                    0, in_strEvent.size(), in_strEvent) == 0;
                                     }) >= in_count;
            });
    }

private:
    static void take(void* io_pContext, int, const std::string&, const std::string& in_strText)
    {
        static const std::string strMark = "VoipStateMachine processing event ";
        const auto start = in_strText.find(strMark);
        if (start != std::string::npos)
        {
            static_cast<EventCapture*>(io_pContext)
                ->m_events.change(
                    [&](std::vector<Event>& io_vEvents) {
                        io_vEvents.push_back(
                            {in_strText.substr(start + strMark.size()), std::this_thread::get_id()});
                    });
        }
    }

    Awaited<std::vector<Event>> m_events;
};

}  // namespace Quorvex::Test
