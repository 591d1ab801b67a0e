// SPDX-License-Identifier: MIT
#include "kit/menubar/menu_bar_controller.h"

#include "kit/menubar/group_menu.h"
#include "kit/menubar/tray_host.h"
#include "kit/support/platform_words.h"

#include <unordered_set>

namespace kit::menubar {

using library::Library;
using library::Shortcut;
using library::ShortcutID;

MenuBarController::MenuBarController(storage::LibraryStore& store,
                                     StatusBar& bar,
                                     const IconRenderer& icons,
                                     support::MainQueue& queue,
                                     Open open)
    : m_store(store)
    , m_bar(bar)
    , m_icons(icons)
    , m_queue(queue)
    , m_open(std::move(open))
    , m_self(std::make_shared<MenuBarController*>(this))
{}

MenuBarController::~MenuBarController()
{
    if (m_storeObservation) {
        m_store.removeObserver(*m_storeObservation);
    }
    setPlaying(nullptr);
    setCounts(nullptr);
    m_self.reset();
    m_items.clear();
}

void MenuBarController::setPlaying(PlayingPages* playing)
{
    if (m_playing && m_playingObservation) {
        m_playing->removeObserver(*m_playingObservation);
    }
    m_playingObservation.reset();
    m_playing = playing;
    if (m_playing) {
        std::weak_ptr<MenuBarController*> weak = m_self;
        m_playingObservation = m_playing->observe([weak] {
            if (auto self = weak.lock()) {
                (*self)->changed();
            }
        });
    }
}

void MenuBarController::setCounts(PageCounts* counts)
{
    if (m_counts && m_countsObservation) {
        m_counts->removeObserver(*m_countsObservation);
    }
    m_countsObservation.reset();
    m_counts = counts;
    if (m_counts) {
        std::weak_ptr<MenuBarController*> weak = m_self;
        m_countsObservation = m_counts->observe([weak] {
            if (auto self = weak.lock()) {
                (*self)->changed();
            }
        });
    }
}

void MenuBarController::observe()
{
    if (!m_storeObservation) {
        std::weak_ptr<MenuBarController*> weak = m_self;
        m_storeObservation = m_store.observe([weak](unsigned changes) {
            auto self = weak.lock();
            if (self && (changes & storage::LibraryStore::LibraryChanged) != 0) {
                (*self)->changed();
            }
        });
    }
    m_started = true;
    reconcile();
}

void MenuBarController::changed()
{
    // Several changes before the queue runs still make one pass, which sees them all.
    if (m_pending) {
        return;
    }
    m_pending = true;
    std::weak_ptr<MenuBarController*> weak = m_self;
    m_queue.post([weak] {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        (*self)->m_pending = false;
        if ((*self)->m_started) {
            (*self)->reconcile();
        }
    });
}

void MenuBarController::reconcile()
{
    auto list = shown(m_store.library());
    std::vector<ShortcutID> ids;
    ids.reserve(list.size());
    for (const auto* shortcut : list) {
        ids.push_back(shortcut->id);
    }

    bool named = true;
    if (ids != m_order) {
        m_items.clear();
        // Create so that the first shortcut ends up leftmost, wherever the host adds.
        for (size_t index : creationOrder(m_bar.host(), ids.size())) {
            m_items[ids[index]] = make(ids[index]);
        }
        m_order = std::move(ids);
        ++m_rebuilds;
        named = false;
    }

    static const std::unordered_set<ShortcutID> kNone;
    const auto& playing = m_playing ? m_playing->ids() : kNone;
    static const std::unordered_map<ShortcutID, std::string> kNoCounts;
    const auto& counts = m_counts ? m_counts->counts() : kNoCounts;
    for (size_t position = 0; position < list.size(); ++position) {
        const Shortcut* shortcut = list[position];
        auto found = m_items.find(shortcut->id);
        if (found == m_items.end()) {
            continue;
        }
        ShortcutStatusItem& icon = *found->second;
        if (icon.button()
            && (!named || !icon.shortcut() || icon.shortcut()->name != shortcut->name)) {
            // Hosts that sort by this name keep the row in order through it.
            m_bar.setName(*icon.button(),
                          itemTitle(m_bar.host(), kAppName, position, shortcut->name));
        }
        bool isPlaying = playing.contains(shortcut->id);
        const auto counted = counts.find(shortcut->id);
        const std::string count = counted == counts.end() ? std::string() : counted->second;
        if (icon.shortcut() == *shortcut && icon.isPlaying() == isPlaying
            && icon.count() == count) {
            continue;
        }
        icon.setShortcut(*shortcut);
        icon.setPlaying(isPlaying);
        icon.setCount(count);
        icon.render();
    }
}

void MenuBarController::redraw()
{
    for (auto& [id, icon] : m_items) {
        icon->render();
    }
}

std::unique_ptr<ShortcutStatusItem> MenuBarController::make(const ShortcutID& id)
{
    auto icon = std::make_unique<ShortcutStatusItem>(id, m_bar, m_icons);
    std::weak_ptr<MenuBarController*> weak = m_self;
    ShortcutStatusItem::Actions actions;
    actions.onEdit = [weak](const Shortcut& shortcut) {
        auto self = weak.lock();
        if (self && (*self)->m_onEdit) {
            (*self)->m_onEdit(shortcut.id);
        }
    };
    actions.onOpen = [weak](const Shortcut& shortcut, StatusItemHandle anchor) {
        auto self = weak.lock();
        if (self && (*self)->m_open) {
            (*self)->m_open(shortcut, anchor);
        }
    };
    actions.menuRows = [weak](const Shortcut& shortcut) {
        auto self = weak.lock();
        if (!self || !(*self)->m_menuRows) {
            return std::vector<MenuItem>{};
        }
        return (*self)->m_menuRows(shortcut);
    };
    actions.groupMenu = [weak, id](const Shortcut&) -> std::optional<Menu> {
        auto self = weak.lock();
        return self ? (*self)->groupMenu(id) : std::nullopt;
    };
    icon->setActions(std::move(actions));
    return icon;
}

std::optional<Menu> MenuBarController::groupMenu(const ShortcutID& groupID) const
{
    // The group as it is now, not as it was when its icon was made.
    const Shortcut* group = m_store.library().shortcut(groupID);
    if (!group || !group->target.isGroup()) {
        return std::nullopt;
    }
    std::weak_ptr<MenuBarController*> weak = m_self;
    auto open = [weak, groupID](const Shortcut& member) {
        auto self = weak.lock();
        if (!self || !(*self)->m_open) {
            return;
        }
        // Looked up when chosen: the row may have been rebuilt while the menu was open.
        std::optional<StatusItemHandle> anchor;
        if (auto found = (*self)->m_items.find(groupID); found != (*self)->m_items.end()) {
            anchor = found->second->button();
        }
        (*self)->m_open(member, anchor);
    };
    GroupMenuBuilder::Edit edit;
    if (m_onEdit) {
        edit = [weak](const Shortcut& shortcut) {
            auto self = weak.lock();
            if (self && (*self)->m_onEdit) {
                (*self)->m_onEdit(shortcut.id);
            }
        };
    }
    return GroupMenuBuilder::menu(*group, open, edit, &m_icons);
}

std::optional<StatusItemHandle> MenuBarController::button(const ShortcutID& id) const
{
    if (auto found = m_items.find(id); found != m_items.end()) {
        return found->second->button();
    }
    auto ancestors = m_store.library().ancestors(id);
    if (ancestors.empty()) {
        return std::nullopt;
    }
    // Outermost first: the front is the top-level group, the only one that can have an icon.
    if (auto found = m_items.find(ancestors.front()); found != m_items.end()) {
        return found->second->button();
    }
    return std::nullopt;
}

bool MenuBarController::owns(StatusItemHandle item) const
{
    for (const auto& [id, icon] : m_items) {
        if (icon->button() == item) {
            return true;
        }
    }
    return false;
}

std::vector<Rect> MenuBarController::iconFrames() const
{
    std::vector<Rect> frames;
    for (const auto& [id, icon] : m_items) {
        if (auto button = icon->button()) {
            if (auto frame = m_bar.geometry(*button)) {
                frames.push_back(*frame);
            }
        }
    }
    return frames;
}

void MenuBarController::openFromKeyboard(const ShortcutID& id)
{
    if (auto found = m_items.find(id); found != m_items.end()) {
        found->second->openPrimary();
    }
}

void MenuBarController::openNumbered(int n)
{
    auto ids = numbered(m_store.library());
    if (n >= 1 && static_cast<size_t>(n) <= ids.size()) {
        openFromKeyboard(ids[static_cast<size_t>(n) - 1]);
    }
}

size_t MenuBarController::numberedCount() const
{
    return numbered(m_store.library()).size();
}

void MenuBarController::reveal(std::optional<int> tier)
{
    auto ids = numbered(m_store.library());
    for (size_t i = 0; i < ids.size(); ++i) {
        auto found = m_items.find(ids[i]);
        if (found == m_items.end()) {
            continue;
        }
        ShortcutStatusItem& icon = *found->second;
        auto number = badge(i + 1, tier);
        if (number != icon.number()) {
            icon.setNumber(number);
            icon.render();
        }
    }
}

const ShortcutStatusItem* MenuBarController::item(const ShortcutID& id) const
{
    auto found = m_items.find(id);
    return found == m_items.end() ? nullptr : found->second.get();
}

std::vector<const Shortcut*> MenuBarController::shown(const Library& library)
{
    std::vector<const Shortcut*> list;
    for (const auto& shortcut : library.shortcuts) {
        if (shortcut.isInMenuBar) {
            list.push_back(&shortcut);
        }
    }
    return list;
}

std::vector<ShortcutID> MenuBarController::numbered(const Library& library)
{
    std::vector<ShortcutID> ids;
    for (const auto* shortcut : shown(library)) {
        if (!shortcut->target.isDivider()) {
            ids.push_back(shortcut->id);
        }
    }
    return ids;
}

std::optional<int> MenuBarController::badge(size_t position, std::optional<int> tier)
{
    if (!tier || *tier < 1 || *tier > 2 || position == 0) {
        return std::nullopt;
    }
    auto first = static_cast<size_t>((*tier - 1) * kTierSize) + 1;
    if (position < first || position >= first + kTierSize) {
        return std::nullopt;
    }
    return static_cast<int>(position - first) + 1;
}

std::optional<std::string> MenuBarController::roomNote(size_t shownCount)
{
    if (shownCount < kRoomWarningCount) {
        return std::nullopt;
    }
    return support::inPlatformWords("The menu bar may not have room for all of these.");
}

} // namespace kit::menubar
