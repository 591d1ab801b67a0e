// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"
#include "kit/menubar/menu.h"
#include "kit/storage/library_store.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kit::menubar {

// An application offered by name in a submenu, by its desktop-entry id.
struct NamedApp
{
    std::string id;
    std::string name;

    bool operator==(const NamedApp&) const = default;
};

// What a shortcut's own menu reads besides the shortcut itself.
struct ShortcutMenuContext
{
    std::vector<library::Session> sessions;
    library::BrowsingDefaults defaults;
    std::vector<NamedApp> browsers; // offered under "Browser"
    std::vector<NamedApp> apps;     // offered under "Opens in" for files and folders
    // Only a top-level shortcut has an icon of its own to show or hide.
    bool isTopLevel = true;
};

// What the rows call. Every setting row and Remove write through `mutate`, the store's, so the
// change is saved and announced like any other; each may be empty, which disables its rows.
struct ShortcutMenuActions
{
    using Mutate = std::function<void(const std::function<void(library::Library&)>&)>;

    Mutate mutate;
    std::function<void(const library::Shortcut&)> open;
    std::function<void(const library::ShortcutID&)> edit;
    // Asked before Remove takes a group with shortcuts in it; true goes ahead. Without it the
    // group goes at once.
    std::function<bool(const std::string& question)> confirm;
};

// The menu a shortcut's icon shows on a secondary click: Open, the settings that apply to its
// kind with the one in force checked, whether it stands in the menu bar, Edit… and Remove. Rows
// name the shortcut by id, so one chosen after the shortcut is gone changes nothing.
struct ShortcutMenu
{
    static std::vector<MenuItem> rows(const library::Shortcut& shortcut,
                                      const ShortcutMenuContext& context,
                                      const ShortcutMenuActions& actions);
    static Menu menu(std::vector<MenuItem> rows) { return Menu{std::move(rows)}; }

    // Rows for the menu bar's icons, read from the store when a menu opens: its sessions, whether
    // the shortcut stands at the top level, and the defaults of the moment. The store must
    // outlive the function.
    static std::function<std::vector<MenuItem>(const library::Shortcut&)>
    provider(storage::LibraryStore& store,
             std::function<library::BrowsingDefaults()> defaults,
             std::function<void(const library::Shortcut&)> open,
             std::function<void(const library::ShortcutID&)> edit,
             std::function<bool(const std::string&)> confirm = {});

    // "Remove “Work” and the 3 shortcuts in it?"; nothing when removing takes nothing else.
    static std::optional<std::string> removalQuestion(const library::Shortcut& shortcut);

    // How the rows name the options, shared with whoever shows the same choices.
    static std::string openModeTitle(library::OpenMode mode);
    static std::string appearanceTitle(library::PageAppearance appearance);
    static std::string agentTitle(library::BrowserAgent agent);
    // "Follows the default (in a panel)".
    static std::string followsDefault(const std::string& title);
};

} // namespace kit::menubar
