// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace kit::keys {

// The four modifiers, valued as the flag bits the settings store so settings files stay portable
// (Option is Alt and Command is Super on this desktop).
enum class Modifier : uint32_t {
    Shift = 0x20000,
    Control = 0x40000,
    Option = 0x80000,
    Command = 0x100000,
};

// The order in which modifiers are always shown.
inline constexpr std::array<Modifier, 4> kShownOrder{
    Modifier::Control, Modifier::Option, Modifier::Shift, Modifier::Command};

// A set of the four modifiers as raw flag bits. Every other bit is dropped on the way in, so stored
// garbage and device-specific bits never take part in a comparison.
class ModifierSet
{
public:
    constexpr ModifierSet() = default;
    constexpr ModifierSet(std::initializer_list<Modifier> modifiers)
    {
        for (Modifier modifier : modifiers) {
            m_raw |= static_cast<uint32_t>(modifier);
        }
    }

    static constexpr ModifierSet fromRaw(uint64_t raw)
    {
        ModifierSet set;
        set.m_raw = static_cast<uint32_t>(raw & kMask);
        return set;
    }

    constexpr uint32_t raw() const { return m_raw; }
    constexpr bool empty() const { return m_raw == 0; }
    constexpr bool contains(Modifier modifier) const
    {
        return (m_raw & static_cast<uint32_t>(modifier)) != 0;
    }
    constexpr ModifierSet with(Modifier modifier) const
    {
        return fromRaw(m_raw | static_cast<uint32_t>(modifier));
    }
    constexpr int count() const
    {
        int n = 0;
        for (Modifier modifier : kShownOrder) {
            n += contains(modifier) ? 1 : 0;
        }
        return n;
    }

    // "Ctrl+Alt+Shift+Super", keeping that order whatever order the set was built in: the
    // words this desktop's keyboards and menus use.
    std::string words() const;

    constexpr bool operator==(const ModifierSet&) const = default;

private:
    static constexpr uint64_t kMask = 0x20000 | 0x40000 | 0x80000 | 0x100000;
    uint32_t m_raw = 0;
};

} // namespace kit::keys
