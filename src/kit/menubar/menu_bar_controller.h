// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"
#include "kit/menubar/icon_renderer.h"
#include "kit/menubar/menu.h"
#include "kit/menubar/page_counts.h"
#include "kit/menubar/playing_pages.h"
#include "kit/menubar/shortcut_status_item.h"
#include "kit/menubar/status_bar.h"
#include "kit/storage/library_store.h"
#include "kit/support/main_queue.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kit::menubar {

// Keeps one icon in the menu bar for each top-level shortcut of the showing bar that is marked to
// be shown, in the bar's order from left to right. Rebuilds the row only when the ordered ids
// change and otherwise redraws just the icons whose shortcut or playing state changed. Main
// thread only; the store, status bar, renderer and queue must outlive it.
class MenuBarController
{
public:
    // Opens a non-group shortcut, anchored under an icon when there is one.
    using Open =
        std::function<void(const library::Shortcut&, std::optional<StatusItemHandle> anchor)>;
    using Edit = std::function<void(const library::ShortcutID&)>;
    using MenuRows = std::function<std::vector<MenuItem>(const library::Shortcut&)>;

    // From this many shortcuts shown, editors warn that the menu bar may run out of room.
    static constexpr size_t kRoomWarningCount = 9;
    // Number keys reach the first nine numbered icons, and with the extra key the nine after.
    static constexpr int kTierSize = 9;
    // Leads every icon's name on hosts that sort icons by name.
    static constexpr const char* kAppName = "Vantorel";

    MenuBarController(storage::LibraryStore& store,
                      StatusBar& bar,
                      const IconRenderer& icons,
                      support::MainQueue& queue,
                      Open open);
    ~MenuBarController();
    MenuBarController(const MenuBarController&) = delete;
    MenuBarController& operator=(const MenuBarController&) = delete;

    void setOnEdit(Edit onEdit) { m_onEdit = std::move(onEdit); }
    void setMenuRows(MenuRows menuRows) { m_menuRows = std::move(menuRows); }
    // Observed as the library is; null for none. Must outlive the controller or be unset first.
    void setPlaying(PlayingPages* playing);
    // The pages' counts shown on their icons; null shows none. It must outlive this object or
    // be replaced first.
    void setCounts(PageCounts* counts);

    // Builds the icons and from then on reconciles once after each change of the library or of
    // the playing pages, on the main queue.
    void observe();
    void reconcile();
    // Draws every icon again, for when a picture behind a glyph changed (a site's icon arrived).
    void redraw();

    // The icon's button, or the button of the top-level group holding the shortcut.
    std::optional<StatusItemHandle> button(const library::ShortcutID& id) const;
    bool owns(StatusItemHandle item) const;
    // The screen rectangles of the icons the host reports one for, in no particular order.
    std::vector<Rect> iconFrames() const;
    // Does what a plain click on the shortcut's icon does; nothing when it has no icon.
    void openFromKeyboard(const library::ShortcutID& id);
    // Does the same for the icon that number key n presses (from 1, counted as the badges are,
    // in the bar showing at the moment of the press); nothing when there is no such icon.
    void openNumbered(int n);
    // How many icons number keys can reach; hot keys are registered for as many.
    size_t numberedCount() const;
    // Number badges for tier 1 (icons 1 to 9) or tier 2 (icons 10 to 18); none without a tier.
    void reveal(std::optional<int> tier);

    const std::vector<library::ShortcutID>& order() const { return m_order; }
    const ShortcutStatusItem* item(const library::ShortcutID& id) const;
    size_t rebuildCount() const { return m_rebuilds; }

    // The shortcuts that get an icon: top level, shown, any kind, in stored order.
    static std::vector<const library::Shortcut*> shown(const library::Library& library);
    // The shortcuts number keys count: the shown ones without dividers.
    static std::vector<library::ShortcutID> numbered(const library::Library& library);
    // The badge of the numbered icon at `position` (from 1) for a tier.
    static std::optional<int> badge(size_t position, std::optional<int> tier);
    // The note editors show under a bar's icons; nothing while there is room.
    static std::optional<std::string> roomNote(size_t shownCount);

private:
    std::unique_ptr<ShortcutStatusItem> make(const library::ShortcutID& id);
    std::optional<Menu> groupMenu(const library::ShortcutID& groupID) const;
    void changed();

    storage::LibraryStore& m_store;
    StatusBar& m_bar;
    const IconRenderer& m_icons;
    support::MainQueue& m_queue;
    Open m_open;
    Edit m_onEdit;
    MenuRows m_menuRows;
    PlayingPages* m_playing = nullptr;
    PageCounts* m_counts = nullptr;
    std::optional<size_t> m_countsObservation;

    std::unordered_map<library::ShortcutID, std::unique_ptr<ShortcutStatusItem>> m_items;
    std::vector<library::ShortcutID> m_order;
    bool m_started = false;
    bool m_pending = false;
    size_t m_rebuilds = 0;
    std::optional<size_t> m_storeObservation;
    std::optional<size_t> m_playingObservation;
    // Held weakly by actions and queued tasks, which do nothing once the controller is gone.
    std::shared_ptr<MenuBarController*> m_self;
};

} // namespace kit::menubar
