// What the engine takes from the heap: nothing for a packet, and little for a call.

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "MediaFixture.h"

namespace
{

std::atomic<std::size_t> s_uiAllocations{0};
std::atomic<std::ptrdiff_t> s_iBytes{0};
/// Allocations of the thread that tests do not count.
thread_local bool t_bTester = false;

void* take(std::size_t in_uiSize)
{
    void* const pMemory = std::malloc(in_uiSize);
    if (pMemory == nullptr)
    {
        throw std::bad_alloc();
    }
    s_uiAllocations += t_bTester ? 0 : 1;
    s_iBytes += static_cast<std::ptrdiff_t>(::malloc_usable_size(pMemory));
    return pMemory;
}

void give(void* in_pMemory)
{
    if (in_pMemory != nullptr)
    {
        s_iBytes -= static_cast<std::ptrdiff_t>(::malloc_usable_size(in_pMemory));
        std::free(in_pMemory);
    }
}

}  // namespace

// All of them, since a sanitizer has its own of those that are missing here.
void* operator new(std::size_t in_uiSize)
{
    return take(in_uiSize);
}
void* operator new[](std::size_t in_uiSize)
{
    return take(in_uiSize);
}
void* operator new(std::size_t in_uiSize, const std::nothrow_t&) noexcept
{
    return take(in_uiSize);
}
void* operator new[](std::size_t in_uiSize, const std::nothrow_t&) noexcept
{
    return take(in_uiSize);
}
void operator delete(void* in_pMemory) noexcept
{
    give(in_pMemory);
}
void operator delete[](void* in_pMemory) noexcept
{
    give(in_pMemory);
}
void operator delete(void* in_pMemory, std::size_t) noexcept
{
    give(in_pMemory);
}
void operator delete[](void* in_pMemory, std::size_t) noexcept
{
    give(in_pMemory);
}
void operator delete(void* in_pMemory, const std::nothrow_t&) noexcept
{
    give(in_pMemory);
}
void operator delete[](void* in_pMemory, const std::nothrow_t&) noexcept
{
    give(in_pMemory);
}

namespace Quorvex::Test
{

class AllocationTest : public MediaFixture
{
protected:
    void SetUp() override
    {
        t_bTester = true;
        MediaFixture::SetUp();
    }
    void TearDown() override
    {
        MediaFixture::TearDown();
        t_bTester = false;
    }
};

TEST_F(AllocationTest, nothingIsAllocatedForAPacket)
{
    startEngine();
    m_pEngine->attachEcho("echo");
    Leg::Options aLaw;
    aLaw.m_uiPayloadType = 8;
    Leg::Options thirty;
    thirty.m_uiPacketSizeMs = 30;
    Leg::Options noEvents;
    noEvents.m_uiEventPayloadType = 0;
    const std::vector<std::pair<const char*, Leg::Options>> vParties = {
        {"relay",     {}      },
        {"relay",     {}      },
        {"transcode", {}      },
        {"transcode", aLaw    },
        {"sizes",     {}      },
        {"sizes",     thirty  },
        {"mix",       {}      },
        {"mix",       aLaw    },
        {"mix",       {}      },
        {"analysis",  noEvents},
        {"analysis",  noEvents},
        {"echo",      {}      }
    };
    std::vector<std::unique_ptr<Leg>> vLegs;
    for (const auto& [szCallId, options] : vParties)
    {
        vLegs.push_back(makeStartedLeg(szCallId, options));
    }
    const auto run = [&](unsigned in_uiPackets)
    {
        for (unsigned i = 0; i < in_uiPackets; ++i)
        {
            for (std::size_t n = 0; n < vLegs.size(); ++n)
            {
                vLegs[n]->m_peer.send(makeSound(i, vParties[n].second.m_uiPacketSizeMs * 8U),
                                      vParties[n].second.m_uiPayloadType);
            }
            // A party that mixes or repackets hears on the clock, the others in answer: either way, each
            // hears something.
            for (const auto& pLeg : vLegs)
            {
                ASSERT_FALSE(pLeg->m_peer.receiveSound(1).empty());
            }
        }
    };
    // Whatever is made once is made now.
    run(5);
    const std::size_t uiBefore = s_uiAllocations;
    run(40);
    EXPECT_EQ(uiBefore, s_uiAllocations);
    EXPECT_GE(m_pEngine->getTotals().m_ui64PacketsReceived, 45U * vLegs.size());
    // That the count counts is seen by a new endpoint.
    makeStartedLeg("another");
    EXPECT_LT(uiBefore, s_uiAllocations);
}

TEST_F(AllocationTest, aHeldCallIsSmall)
{
    constexpr std::ptrdiff_t CALLS = 100;
    startEngine();
    std::vector<std::unique_ptr<Leg>> vLegs;
    makeStartedLeg("warm");
    const std::ptrdiff_t iBefore = s_iBytes;
    for (std::ptrdiff_t i = 0; i < 2 * CALLS; ++i)
    {
        vLegs.push_back(makeStartedLeg("call" + std::to_string(i / 2)));
    }
    // Of these some 2 kB are the test's own.
    EXPECT_LT((s_iBytes - iBefore) / CALLS, 8192);
}

}  // namespace Quorvex::Test
