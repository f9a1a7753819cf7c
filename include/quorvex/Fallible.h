#pragma once

#include <optional>
#include <utility>

namespace Quorvex
{

/// A value together with whether there is one.
template <class T>
class Fallible
{
public:
    Fallible() = default;
    // NOLINTNEXTLINE(google-explicit-constructor)
    Fallible(T in_value) : m_value(std::move(in_value)) {}

    bool valid() const { return m_value.has_value(); }
    explicit operator bool() const { return valid(); }

    /// The value; only to be asked for when valid().
    const T& value() const { return *m_value; }
    T& value() { return *m_value; }
    T valueOr(T in_default) const { return m_value.value_or(std::move(in_default)); }

    void set(T in_value) { m_value = std::move(in_value); }
    void invalidate() { m_value.reset(); }

    friend bool operator==(const Fallible&, const Fallible&) = default;

private:
    std::optional<T> m_value;
};

}  // namespace Quorvex
