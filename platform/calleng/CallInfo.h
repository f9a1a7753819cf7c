#pragma once

#include <cstddef>
#include <vector>

#include "calleng/CallLegInfo.h"
#include "quorvex/CloneableObjPtr.h"

namespace Quorvex
{

/// The legs of one call, one of them the current one. A value: copies are independent. Legs keep their class
/// (they are cloned). One thread at a time.
class CallInfo : public virtual OutputStreamable, public virtual Cloneable
{
public:
    QUORVEX_MEM_ACCOUNT("CallInfo");

    CallInfo* clone() const override { return new CallInfo(*this); }

    std::size_t getNumLeg() const { return m_legs.size(); }
    /// Appends a clone of a leg and returns it; the first one becomes the current one. The reference stays
    /// valid as long as this object.
    CallLegInfo& addLeg(const CallLegInfo& in_leg);
    /// The leg of that index, which must be below getNumLeg().
    const CallLegInfo& getLeg(std::size_t in_index) const { return *m_legs[in_index]; }
    CallLegInfo& getLeg(std::size_t in_index) { return *m_legs[in_index]; }

    /// The current leg; only to be asked for when there is a leg.
    const CallLegInfo& getCurrentLeg() const { return *m_legs[m_current]; }
    CallLegInfo& getCurrentLeg() { return *m_legs[m_current]; }
    /// False, with nothing changed, when there is no such leg.
    bool setCurrentLeg(std::size_t in_index);

    std::ostream& write(std::ostream& out_stream) const override;

private:
    std::vector<CloneableObjPtr<CallLegInfo>> m_legs;
    std::size_t m_current = 0;
};

}  // namespace Quorvex
