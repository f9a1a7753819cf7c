#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace Quorvex
{

/// Hands out small identifiers: each is in use by one taker at a time.
class IDGenerator
{
public:
    IDGenerator() = default;
    IDGenerator(const IDGenerator&) = delete;
    IDGenerator& operator=(const IDGenerator&) = delete;
    virtual ~IDGenerator() = default;

    virtual std::uint32_t getID() = 0;

    /// Gives an identifier back. One that is not out (never taken, or given back before) is reported and
    /// ignored.
    virtual void takeBack(std::uint32_t in_uiID) = 0;
};

/// Prefers the identifier that came back last, so identifiers stay small and their entries stay warm. One
/// thread.
class StackIDGenerator : public IDGenerator
{
public:
    std::uint32_t getID() override;
    void takeBack(std::uint32_t in_uiID) override;

private:
    std::vector<std::uint32_t> m_vFree;
    // By identifier: whether it is out.
    std::vector<bool> m_vTaken;
};

/// The same for several threads.
class TSStackIDGenerator final : public IDGenerator
{
public:
    std::uint32_t getID() override;
    void takeBack(std::uint32_t in_uiID) override;

private:
    std::mutex m_mutex;
    StackIDGenerator m_generator;
};

}  // namespace Quorvex
