#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "VoipEvent.h"

namespace Quorvex::StateTable
{

/// What a state does with one event: laid out so that a state's behaviour can be read as its table. The first
/// row whose event fits and whose guard holds wins; an event without such a row is unexpected and changes
/// nothing.
template <class State>
struct Row
{
    using Guard = bool (State::*)(const VoipEvent& in_event) const;
    /// The out state name holds the state's own name; only an action of a `byAction` row changes it. False:
    /// the state failed to process the event.
    using Action = bool (State::*)(const VoipEvent& in_event, std::string& out_strStateName);

    EventType::eTYPE m_event = {};
    Guard m_guard = nullptr;
    Action m_action = nullptr;
    const char* m_szNext = nullptr;
    /// Of a `byAction` row: the states that the action may name, for the reader and for the drawings ("A|B").
    const char* m_szMayName = nullptr;
};

/// The guard of a row that always fits, the action of a row that does nothing.
inline constexpr std::nullptr_t always = nullptr;
inline constexpr std::nullptr_t nothing = nullptr;
/// In the place of the next state's name: this one; or what the action says.
inline constexpr const char* stay = nullptr;
inline constexpr const char* byAction = nullptr;

/// Whether every row can be reached: none stands behind one for the same event that always fits. For
/// static_assert.
template <class State, std::size_t N>
consteval bool allReachable([[maybe_unused]] const Row<State> (&in_rows)[N])
{
#ifndef __SANITIZE_ADDRESS__  // with its sanitizers on, gcc takes no such comparison for a constant
    for (std::size_t i = 0; i < N; ++i)
    {
        for (std::size_t j = i + 1; j < N; ++j)
        {
            if (in_rows[i].m_event == in_rows[j].m_event && in_rows[i].m_guard == nullptr)
            {
                return false;
            }
        }
    }
#endif
    return true;
}

/// The row for the event, or null.
template <class State>
const Row<State>* find(const State& in_state, std::span<const Row<State>> in_rows, const VoipEvent& in_event)
{
    for (const Row<State>& row : in_rows)
    {
        if (row.m_event == in_event.getType() &&
            (row.m_guard == nullptr || (in_state.*row.m_guard)(in_event)))
        {
            return &row;
        }
    }
    return nullptr;
}

/// Runs a row.
template <class State>
bool run(State& io_state, const Row<State>& in_row, const VoipEvent& in_event, std::string& out_strStateName)
{
    if (in_row.m_action != nullptr && !(io_state.*in_row.m_action)(in_event, out_strStateName))
    {
        return false;
    }
    if (in_row.m_szNext != nullptr)
    {
        out_strStateName = in_row.m_szNext;
    }
    return true;
}

/// What every state's processEvent_i does: the state must have what it needs, then its table decides.
template <class State>
bool walk(State& io_state,
          const VoipEvent& in_event,
          std::string& out_strStateName,
          const char* in_szFile = __builtin_FILE(),
          int in_iLine = __builtin_LINE())
{
    out_strStateName = io_state.getName();
    if (!io_state.internal_assert(in_szFile, in_iLine))
    {
        return false;
    }
    if (const Row<State>* pRow = find<State>(io_state, io_state.rows(), in_event))
    {
        return run(io_state, *pRow, in_event, out_strStateName);
    }
    io_state.logUnexpectedEvent(in_event);
    return true;
}

}  // namespace Quorvex::StateTable
