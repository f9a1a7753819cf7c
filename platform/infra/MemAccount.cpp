#include "infra/MemAccount.h"

#include <map>
#include <memory>
#include <mutex>
#include <new>

namespace Quorvex
{

namespace
{

struct Registry
{
    std::mutex m_mutex;
    std::map<std::string, std::unique_ptr<MemAccount>, std::less<>> m_accounts;
};

// Never destroyed: objects with static storage duration may be freed after any registry would be gone.
Registry& registry()
{
    static auto* s_pRegistry = new Registry;
    return *s_pRegistry;
}

// The size stands in a header of full alignment, so that the block behind it is aligned like one of operator
// new.
constexpr std::size_t kHeader = alignof(std::max_align_t);
static_assert(kHeader >= sizeof(std::size_t));

}  // namespace

MemAccount& MemAccounts::get(std::string_view in_name)
{
    Registry& reg = registry();
    const std::lock_guard guard(reg.m_mutex);
    auto it = reg.m_accounts.find(in_name);
    if (it == reg.m_accounts.end())
    {
        std::string name(in_name);
        auto account = std::make_unique<MemAccount>(name);
        it = reg.m_accounts.emplace(std::move(name), std::move(account)).first;
    }
    return *it->second;
}

std::vector<MemAccounts::Balance> MemAccounts::snapshot()
{
    Registry& reg = registry();
    const std::lock_guard guard(reg.m_mutex);
    std::vector<Balance> balances;
    balances.reserve(reg.m_accounts.size());
    for (const auto& [name, account] : reg.m_accounts)
    {
        balances.push_back({name, account->liveObjects(), account->liveBytes()});
    }
    return balances;
}

void* StaticMemAllocator::allocate(std::size_t in_size, MemAccount& in_account)
{
    void* p = ::operator new(in_size);
    in_account.charge(in_size);
    return p;
}

void StaticMemAllocator::deallocate(void* in_p, std::size_t in_size, MemAccount& in_account) noexcept
{
    if (in_p != nullptr)
    {
        in_account.discharge(in_size);
        ::operator delete(in_p);
    }
}

void* StaticMemAllocator::allocate(std::size_t in_size, const char* in_szAccount)
{
    return allocate(in_size, MemAccounts::get(in_szAccount));
}

void StaticMemAllocator::deallocate(void* in_p, std::size_t in_size, const char* in_szAccount) noexcept
{
    deallocate(in_p, in_size, MemAccounts::get(in_szAccount));
}

void* NoSizeMemAllocator::allocate(std::size_t in_size, MemAccount& in_account)
{
    if (in_size > SIZE_MAX - kHeader)
    {
        throw std::bad_alloc();
    }
    auto* p = static_cast<std::byte*>(::operator new(in_size + kHeader));
    ::new (p) std::size_t(in_size);
    in_account.charge(in_size);
    return p + kHeader;
}

void NoSizeMemAllocator::deallocate(void* in_p, MemAccount& in_account) noexcept
{
    if (in_p != nullptr)
    {
        auto* p = static_cast<std::byte*>(in_p) - kHeader;
        in_account.discharge(*reinterpret_cast<std::size_t*>(p));
        ::operator delete(p);
    }
}

void* NoSizeMemAllocator::allocate(std::size_t in_size, const char* in_szAccount)
{
    return allocate(in_size, MemAccounts::get(in_szAccount));
}

void NoSizeMemAllocator::deallocate(void* in_p, const char* in_szAccount) noexcept
{
    deallocate(in_p, MemAccounts::get(in_szAccount));
}

}  // namespace Quorvex
