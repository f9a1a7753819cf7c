#pragma once

#include "infra/Logger.h"

namespace Quorvex
{

/// Takes a scratch member (a buffer kept to save allocations) for the length of a block. A member that is
/// taken twice at a time is reported; the work goes on.
class ScratchMemberGuard
{
public:
    explicit ScratchMemberGuard(bool& io_bInUse) : m_bInUse(io_bInUse)
    {
        if (m_bInUse) [[unlikely]]
        {
            scratchMemberInUseAssert();
        }
        m_bInUse = true;
    }
    ScratchMemberGuard(const ScratchMemberGuard&) = delete;
    ScratchMemberGuard& operator=(const ScratchMemberGuard&) = delete;
    ~ScratchMemberGuard() { m_bInUse = false; }

    /// Gives the member back before the end of the block.
    void release() { m_bInUse = false; }

    static void scratchMemberInUseAssert();

private:
    bool& m_bInUse;
};

}  // namespace Quorvex
