// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kit::support {

// A 128-bit UUID. Written as upper-case text; read in either case.
struct Uuid
{
    std::array<uint8_t, 16> bytes{};

    // A random (version 4) UUID from the system's entropy.
    static Uuid random();
    static std::optional<Uuid> parse(std::string_view text);
    std::string string() const;

    auto operator<=>(const Uuid&) const = default; // NOLINT(modernize-use-nullptr)
};

} // namespace kit::support

template <> struct std::hash<kit::support::Uuid>
{
    size_t operator()(const kit::support::Uuid& u) const noexcept
    {
        uint64_t a = 0;
        uint64_t b = 0;
        for (int i = 0; i < 8; ++i) {
            a = (a << 8) | u.bytes[i];
            b = (b << 8) | u.bytes[i + 8];
        }
        return static_cast<size_t>(a ^ (b * 0x9E3779B97F4A7C15ULL));
    }
};
