#pragma once

#include <cstdint>
#include <ostream>

#include "infra/MemAccount.h"
#include "infra/Object.h"
#include "quorvex/CallTypes.h"
#include "quorvex/CloneableObjPtr.h"

namespace Quorvex
{

/// What a protocol knows of a failure beyond its code (for SIP: the status code of the response). Derive from
/// it.
class ConnectionFailureImpl : public virtual OutputStreamable, public virtual Cloneable
{
public:
    ConnectionFailureImpl* clone() const override = 0;
};

/// Why a call or a transfer failed: a code, and an optional detail of the protocol that saw it. A value;
/// copies own their own detail.
class ConnectionFailureType : public virtual OutputStreamable
{
public:
    QUORVEX_MEM_ACCOUNT("ConnectionFailureType");

    ConnectionFailureType() = default;
    // NOLINTNEXTLINE(google-explicit-constructor)
    ConnectionFailureType(ConnectionFailureEnum in_failure) : m_iFailure(in_failure) {}
    /// Takes ownership of the detail.
    ConnectionFailureType(ConnectionFailureEnum in_failure, ConnectionFailureImpl* in_pDetail)
        : m_iFailure(in_failure), m_pDetail(in_pDetail)
    {
    }

    std::int32_t getFailure() const { return m_iFailure; }
    /// The detail, or null; valid as long as this value.
    const ConnectionFailureImpl* getDetail() const { return m_pDetail.get(); }

    /// The code as a decimal number.
    std::ostream& write(std::ostream& out_stream) const override { return out_stream << m_iFailure; }

private:
    std::int32_t m_iFailure = eNO_FAILURE;
    CloneableObjPtr<ConnectionFailureImpl> m_pDetail;
};

}  // namespace Quorvex
