#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Quorvex
{

/// One memory account: how many objects are alive under a name, and their bytes. Accounts are created on
/// first use and live as long as the process. All operations may be called on any thread.
///
/// Objects and bytes share one 64-bit word, so that an allocation costs a single atomic add: 24 bits of
/// objects (16 million) above 40 bits of bytes (1 TiB).
class MemAccount
{
public:
    explicit MemAccount(std::string in_strName) : m_strName(std::move(in_strName)) {}
    MemAccount(const MemAccount&) = delete;
    MemAccount& operator=(const MemAccount&) = delete;

    const std::string& getName() const { return m_strName; }
    std::uint64_t liveObjects() const { return m_ui64State.load(std::memory_order_relaxed) >> kByteBits; }
    std::uint64_t liveBytes() const { return m_ui64State.load(std::memory_order_relaxed) & kByteMask; }

    void charge(std::size_t in_size) { m_ui64State.fetch_add(unit(in_size), std::memory_order_relaxed); }
    void discharge(std::size_t in_size) { m_ui64State.fetch_sub(unit(in_size), std::memory_order_relaxed); }

private:
    static constexpr unsigned kByteBits = 40;
    static constexpr std::uint64_t kByteMask = (std::uint64_t{1} << kByteBits) - 1;
    static constexpr std::uint64_t unit(std::size_t in_size)
    {
        return (std::uint64_t{1} << kByteBits) + in_size;
    }

    const std::string m_strName;
    std::atomic<std::uint64_t> m_ui64State{0};
};

/// The process-wide set of memory accounts.
class MemAccounts
{
public:
    struct Balance
    {
        std::string m_strName;
        std::uint64_t m_ui64Objects;
        std::uint64_t m_ui64Bytes;
    };

    /// The account of that name, made on first use. A look-up under a lock: keep the reference (it stays
    /// valid for the life of the process) where allocations are frequent.
    static MemAccount& get(std::string_view in_name);

    /// Every account with its balance, ordered by name. Balances of different accounts are read one after
    /// another.
    static std::vector<Balance> snapshot();
};

/// Allocates for classes that know their size when they are deleted (class-specific sized operator delete).
/// Throws std::bad_alloc like operator new. Any thread.
class StaticMemAllocator
{
public:
    static void* allocate(std::size_t in_size, MemAccount& in_account);
    static void deallocate(void* in_p, std::size_t in_size, MemAccount& in_account) noexcept;
    static void* allocate(std::size_t in_size, const char* in_szAccount);
    static void deallocate(void* in_p, std::size_t in_size, const char* in_szAccount) noexcept;
};

/// Allocates for classes that do not know their size when they are deleted: the size stands before the block.
/// Throws std::bad_alloc like operator new. Any thread.
class NoSizeMemAllocator
{
public:
    static void* allocate(std::size_t in_size, MemAccount& in_account);
    static void deallocate(void* in_p, MemAccount& in_account) noexcept;
    static void* allocate(std::size_t in_size, const char* in_szAccount);
    static void deallocate(void* in_p, const char* in_szAccount) noexcept;
};

}  // namespace Quorvex

/// Declares the allocation operators of a class, which allocate from StaticMemAllocator under the account
/// `Name` (a string literal), and `getMemAccountName`. Stands in the public section of the class. A derived
/// class that does not declare its own is counted in the same account, with its own size.
#define QUORVEX_MEM_ACCOUNT(Name)                                                    \
    static const char* getMemAccountName()                                           \
    {                                                                                \
        return Name;                                                                 \
    }                                                                                \
    static ::Quorvex::MemAccount& getMemAccount()                                    \
    {                                                                                \
        static ::Quorvex::MemAccount& s_account = ::Quorvex::MemAccounts::get(Name); \
        return s_account;                                                            \
    }                                                                                \
    static void* operator new(std::size_t in_size)                                   \
    {                                                                                \
        return ::Quorvex::StaticMemAllocator::allocate(in_size, getMemAccount());    \
    }                                                                                \
    static void* operator new[](std::size_t in_size)                                 \
    {                                                                                \
        return ::Quorvex::StaticMemAllocator::allocate(in_size, getMemAccount());    \
    }                                                                                \
    static void* operator new(std::size_t, void* in_p) noexcept                      \
    {                                                                                \
        return in_p;                                                                 \
    }                                                                                \
    static void operator delete(void* in_p, std::size_t in_size) noexcept            \
    {                                                                                \
        ::Quorvex::StaticMemAllocator::deallocate(in_p, in_size, getMemAccount());   \
    }                                                                                \
    static void operator delete[](void* in_p, std::size_t in_size) noexcept          \
    {                                                                                \
        ::Quorvex::StaticMemAllocator::deallocate(in_p, in_size, getMemAccount());   \
    }                                                                                \
    static void operator delete(void*, void*) noexcept                               \
    {                                                                                \
    }                                                                                \
    static_assert(true, "the macro wants a semicolon")
