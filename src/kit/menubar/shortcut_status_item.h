// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"
#include "kit/menubar/icon_renderer.h"
#include "kit/menubar/menu.h"
#include "kit/menubar/status_bar.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kit::menubar {

// Laid over a divider's icon: swallows plain clicks, since a divider opens nothing, and hands
// secondary clicks on so the divider still has its own menu.
struct ClickShield
{
    std::function<void()> onSecondaryClick;
};

// One icon in the menu bar for one shortcut: draws it and turns its clicks into opening the
// shortcut or popping a menu. Creates its icon on construction and removes it on destruction;
// events that arrive after that find nothing. Main thread only.
class ShortcutStatusItem
{
public:
    static constexpr double kPointSize = 18;
    static constexpr const char* kPlayingSuffix = " (playing)";

    // Each may be empty, which makes the matching click do nothing (no rows: an empty menu).
    struct Actions
    {
        std::function<void(const library::Shortcut&, StatusItemHandle anchor)> onOpen;
        std::function<void(const library::Shortcut&)> onEdit;
        // Nothing when there is no group to show any more.
        std::function<std::optional<Menu>(const library::Shortcut&)> groupMenu;
        std::function<std::vector<MenuItem>(const library::Shortcut&)> menuRows;
    };

    ShortcutStatusItem(library::ShortcutID shortcutID, StatusBar& bar, const IconRenderer& icons);
    ~ShortcutStatusItem();
    ShortcutStatusItem(const ShortcutStatusItem&) = delete;
    ShortcutStatusItem& operator=(const ShortcutStatusItem&) = delete;

    const library::ShortcutID& shortcutID() const { return m_shortcutID; }
    // The icon's button; nothing when the host refused the icon.
    std::optional<StatusItemHandle> button() const { return m_button; }
    const std::optional<library::Shortcut>& shortcut() const { return m_shortcut; }
    bool isPlaying() const { return m_isPlaying; }
    std::optional<int> number() const { return m_number; }
    const std::string& count() const { return m_count; }
    bool hasShield() const { return m_shield != nullptr; }

    void setActions(Actions actions) { m_actions = std::move(actions); }
    // These store only; render() draws.
    void setShortcut(library::Shortcut shortcut) { m_shortcut = std::move(shortcut); }
    void setPlaying(bool playing) { m_isPlaying = playing; }
    void setNumber(std::optional<int> number) { m_number = number; }
    // Empty: no count.
    void setCount(std::string count) { m_count = std::move(count); }

    void render();
    // What a plain click does: opens the shortcut, or pops a group's menu under the icon.
    void openPrimary();
    // The button's action: a right or Control click shows the shortcut's own menu, anything else
    // opens it.
    void clicked(const std::optional<Click>& event);
    // Lays the shield over a divider's icon, or takes it away for any other target.
    void shield(const library::Shortcut& shortcut);
    // The shortcut's own menu.
    Menu shortcutMenu() const;

private:
    // Where the host's clicks land: on the shield while there is one, else on the button.
    void deliver(const std::optional<Click>& event);
    void pop(const Menu& menu);

    library::ShortcutID m_shortcutID;
    StatusBar& m_bar;
    const IconRenderer& m_icons;
    std::optional<StatusItemHandle> m_button;
    std::optional<library::Shortcut> m_shortcut;
    std::unique_ptr<ClickShield> m_shield;
    Actions m_actions;
    bool m_isPlaying = false;
    std::optional<int> m_number;
    std::string m_count;
    // Held weakly by the host's callbacks.
    std::shared_ptr<ShortcutStatusItem*> m_self;
};

} // namespace kit::menubar
