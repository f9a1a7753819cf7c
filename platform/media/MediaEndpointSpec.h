#pragma once

#include <string>
#include <utility>

#include "infra/MemAccount.h"
#include "infra/Object.h"

namespace Quorvex
{

/// Which part an endpoint plays among the endpoints of its call.
class MediaEndpointSpec : public virtual Object
{
public:
    enum Type
    {
        SND_RECV_TYPE = 0,
        REDIRECT_RX_TYPE = 1,
        FORK_TX_TYPE = 2
    };

    virtual Type getType() const = 0;
};

/// A party of the call: hears the others, is heard by them.
class SndRecvEndpointSpec final : public MediaEndpointSpec
{
public:
    QUORVEX_MEM_ACCOUNT("MediaEndpointSpec");
    Type getType() const override { return SND_RECV_TYPE; }
};

/// What it receives takes the place of what another endpoint of the call receives.
class RedirectRxEndpointSpec final : public MediaEndpointSpec
{
public:
    QUORVEX_MEM_ACCOUNT("MediaEndpointSpec");
    explicit RedirectRxEndpointSpec(std::string in_strEptId) : m_strEptId(std::move(in_strEptId)) {}
    Type getType() const override { return REDIRECT_RX_TYPE; }
    /// The identifier of the other endpoint.
    const std::string& getEptId() const { return m_strEptId; }

private:
    std::string m_strEptId;
};

/// Sends a copy of what another endpoint of the call sends.
class ForkTxEndpointSpec final : public MediaEndpointSpec
{
public:
    QUORVEX_MEM_ACCOUNT("MediaEndpointSpec");
    explicit ForkTxEndpointSpec(std::string in_strEptId) : m_strEptId(std::move(in_strEptId)) {}
    Type getType() const override { return FORK_TX_TYPE; }
    /// The identifier of the other endpoint.
    const std::string& getEptId() const { return m_strEptId; }

private:
    std::string m_strEptId;
};

}  // namespace Quorvex
