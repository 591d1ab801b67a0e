// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"
#include "kit/menubar/icon_renderer.h"
#include "kit/menubar/menu.h"

#include <functional>

namespace kit::menubar {

// The menu a group pops under its icon: its members in order, nested groups as submenus, unnamed
// dividers as lines and named ones as headings; choosing a member calls `open` with it. Rows hold
// copies of the members, so a menu stays valid after the library changes.
struct GroupMenuBuilder
{
    static constexpr const char* kEmptyTitle = "No shortcuts";
    // Menu rows draw their icons smaller than the menu bar does.
    static constexpr double kIconPointSize = 16;

    using Open = std::function<void(const library::Shortcut&)>;
    using Edit = std::function<void(const library::Shortcut&)>;

    // With `edit`, the menu ends with a row that opens the group in the editor; with `icons`,
    // each member's row carries its glyph.
    static Menu menu(const library::Shortcut& group,
                     const Open& open,
                     const Edit& edit = {},
                     const IconRenderer* icons = nullptr);
    static std::vector<MenuItem> rows(const std::vector<library::Shortcut>& members,
                                      const Open& open,
                                      const IconRenderer* icons = nullptr);
    // "Edit “Name”…"
    static std::string editTitle(const library::Shortcut& group);
};

} // namespace kit::menubar
