// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/uuid.h"

#include <nlohmann/json.hpp>

#include <compare>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kit::library {

struct ShortcutKind
{};
struct BarKind
{};
struct SessionKind
{};

// A UUID typed by what it names; the kind only keeps identifiers apart and is never stored.
template <class Kind> struct ID
{
    support::Uuid uuid;

    static ID make() { return ID{support::Uuid::random()}; }
    static std::optional<ID> parse(std::string_view text)
    {
        auto uuid = support::Uuid::parse(text);
        return uuid ? std::optional<ID>(ID{*uuid}) : std::nullopt;
    }
    std::string string() const { return uuid.string(); }

    auto operator<=>(const ID&) const = default; // NOLINT(modernize-use-nullptr)
};

using ShortcutID = ID<ShortcutKind>;
using BarID = ID<BarKind>;
using SessionID = ID<SessionKind>;

template <class Kind> void to_json(nlohmann::json& j, const ID<Kind>& id)
{
    j = id.string();
}

// Throws nlohmann::json::exception for anything but a UUID string.
template <class Kind> void from_json(const nlohmann::json& j, ID<Kind>& id)
{
    const auto& text = j.get_ref<const std::string&>();
    auto parsed = ID<Kind>::parse(text);
    if (!parsed) {
        throw nlohmann::json::other_error::create(502, "not a valid identifier: " + text, &j);
    }
    id = *parsed;
}

} // namespace kit::library

template <class Kind> struct std::hash<kit::library::ID<Kind>>
{
    size_t operator()(const kit::library::ID<Kind>& id) const noexcept
    {
        return std::hash<kit::support::Uuid>{}(id.uuid);
    }
};
