#pragma once

#include <memory>
#include <string>

namespace Quorvex
{

/// Keeps the first record at ERROR that is logged while it lives. One at a time in the process.
class FirstError
{
public:
    FirstError();
    FirstError(const FirstError&) = delete;
    FirstError& operator=(const FirstError&) = delete;
    ~FirstError();

    /// The record's text, or that there was none. After what it is kept for has been done.
    std::string getText() const;

private:
    struct State;
    std::unique_ptr<State> m_pState;
};

}  // namespace Quorvex
