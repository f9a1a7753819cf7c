#pragma once

namespace Quorvex
{

/// Marks an operation that must not be entered again on the same thread while it runs. A second entry is
/// reported; the work goes on. Only the outermost guard clears the flag.
class RecursivityGuard
{
public:
    explicit RecursivityGuard(bool& io_bInside) : m_bInside(io_bInside), m_bOutermost(!io_bInside)
    {
        if (!m_bOutermost) [[unlikely]]
        {
            recursivityAssert();
        }
        m_bInside = true;
    }
    RecursivityGuard(const RecursivityGuard&) = delete;
    RecursivityGuard& operator=(const RecursivityGuard&) = delete;
    ~RecursivityGuard()
    {
        if (m_bOutermost)
        {
            m_bInside = false;
        }
    }

    static void recursivityAssert();

private:
    bool& m_bInside;
    const bool m_bOutermost;
};

}  // namespace Quorvex
