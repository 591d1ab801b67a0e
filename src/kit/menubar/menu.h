// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/icon_renderer.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kit::menubar {

// One row of a menu the desktop layer pops: an action, a line, a heading or a submenu. A plain
// value; the adapter turns it into a native menu and calls `action` on the main thread.
struct MenuItem
{
    enum class Kind {
        Action,
        Separator,
        Heading, // text that cannot be chosen
        Submenu,
    };

    Kind kind = Kind::Action;
    std::string title;
    bool enabled = true;
    bool checked = false;      // a check mark: the option in force, or a setting that is on
    std::string keyEquivalent; // a single character, or empty
    std::optional<Glyph> icon;
    std::function<void()> action;
    std::vector<MenuItem> items; // a submenu's rows

    static MenuItem
    command(std::string title, std::function<void()> action, std::string keyEquivalent = {})
    {
        MenuItem item;
        item.title = std::move(title);
        item.enabled = static_cast<bool>(action);
        item.action = std::move(action);
        item.keyEquivalent = std::move(keyEquivalent);
        return item;
    }
    // A row that shows with a check mark whether it is in force.
    static MenuItem option(std::string title, bool checked, std::function<void()> action)
    {
        MenuItem item = command(std::move(title), std::move(action));
        item.checked = checked;
        return item;
    }
    static MenuItem separator()
    {
        MenuItem item;
        item.kind = Kind::Separator;
        item.enabled = false;
        return item;
    }
    static MenuItem heading(std::string title)
    {
        MenuItem item;
        item.kind = Kind::Heading;
        item.title = std::move(title);
        item.enabled = false;
        return item;
    }
    static MenuItem submenu(std::string title, std::vector<MenuItem> items)
    {
        MenuItem item;
        item.kind = Kind::Submenu;
        item.title = std::move(title);
        item.items = std::move(items);
        return item;
    }
};

struct Menu
{
    std::vector<MenuItem> items;
};

} // namespace kit::menubar
