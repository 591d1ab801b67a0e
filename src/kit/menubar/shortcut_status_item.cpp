// SPDX-License-Identifier: MIT
#include "kit/menubar/shortcut_status_item.h"

namespace kit::menubar {

using library::Shortcut;

namespace {

bool isSecondary(const std::optional<Click>& event)
{
    return event && (event->kind == Click::Kind::Secondary || event->control);
}

bool isDoubleClick(const std::optional<Click>& event)
{
    return event && event->kind == Click::Kind::DoubleClick;
}

} // namespace

ShortcutStatusItem::ShortcutStatusItem(library::ShortcutID shortcutID,
                                       StatusBar& bar,
                                       const IconRenderer& icons)
    : m_shortcutID(shortcutID)
    , m_bar(bar)
    , m_icons(icons)
    , m_self(std::make_shared<ShortcutStatusItem*>(this))
{
    std::weak_ptr<ShortcutStatusItem*> weak = m_self;
    StatusItemEvents events;
    events.clicked = [weak](const std::optional<Click>& event) {
        if (auto self = weak.lock()) {
            (*self)->deliver(event);
        }
    };
    events.contextMenu = [weak]() -> Menu {
        auto self = weak.lock();
        return self && (*self)->m_shortcut ? (*self)->shortcutMenu() : Menu{};
    };
    m_button = m_bar.create(m_shortcutID.string(), std::move(events));
}

ShortcutStatusItem::~ShortcutStatusItem()
{
    if (m_button) {
        m_bar.remove(*m_button);
    }
}

void ShortcutStatusItem::render()
{
    if (!m_button || !m_shortcut) {
        return;
    }
    const Shortcut& shortcut = *m_shortcut;
    shield(shortcut);
    m_bar.setAccessibilityLabel(*m_button, shortcut.name);
    std::string tip = m_isPlaying ? shortcut.name + kPlayingSuffix : shortcut.name;
    if (!m_count.empty()) {
        tip += " (" + m_count + ")";
    }
    m_bar.setToolTip(*m_button, tip);

    Glyph glyph = m_icons.glyph(shortcut, kPointSize);
    if (m_isPlaying) {
        glyph = m_icons.playing(glyph, kPointSize);
    }
    if (!m_count.empty()) {
        glyph = m_icons.counted(glyph, m_count, kPointSize);
    }
    // Dividers are never counted, so a stray number must not show on one.
    if (m_number && !shortcut.target.isDivider()) {
        glyph = m_icons.numbered(glyph, *m_number, kPointSize);
    }
    if (glyph.kind == Glyph::Kind::Text) {
        m_bar.setTitle(*m_button, glyph.name);
    } else {
        m_bar.setImage(*m_button, glyph);
    }
}

void ShortcutStatusItem::shield(const Shortcut& shortcut)
{
    if (!shortcut.target.isDivider()) {
        m_shield.reset();
        return;
    }
    if (m_shield) {
        return;
    }
    m_shield = std::make_unique<ClickShield>();
    std::weak_ptr<ShortcutStatusItem*> weak = m_self;
    m_shield->onSecondaryClick = [weak] {
        auto self = weak.lock();
        if (self && (*self)->m_shortcut) {
            (*self)->pop((*self)->shortcutMenu());
        }
    };
}

void ShortcutStatusItem::deliver(const std::optional<Click>& event)
{
    // The first press of a double click already acted; acting again would open twice.
    if (isDoubleClick(event)) {
        return;
    }
    if (m_shield) {
        if (isSecondary(event) && m_shield->onSecondaryClick) {
            m_shield->onSecondaryClick();
        }
        return;
    }
    clicked(event);
}

void ShortcutStatusItem::clicked(const std::optional<Click>& event)
{
    if (!m_button || !m_shortcut || isDoubleClick(event)) {
        return;
    }
    if (isSecondary(event)) {
        pop(shortcutMenu());
        return;
    }
    openPrimary();
}

void ShortcutStatusItem::openPrimary()
{
    if (!m_button || !m_shortcut) {
        return;
    }
    switch (m_shortcut->target.kind()) {
    case library::Target::Kind::Divider:
        return;
    case library::Target::Kind::Group:
        if (m_actions.groupMenu) {
            if (auto menu = m_actions.groupMenu(*m_shortcut)) {
                pop(*menu);
            }
        }
        return;
    case library::Target::Kind::App:
    case library::Target::Kind::File:
    case library::Target::Kind::Folder:
    case library::Target::Kind::Url:
        if (m_actions.onOpen) {
            // A copy: opening may rebuild the row and destroy this icon.
            Shortcut shortcut = *m_shortcut;
            auto open = m_actions.onOpen;
            open(shortcut, *m_button);
        }
        return;
    }
}

Menu ShortcutStatusItem::shortcutMenu() const
{
    if (!m_shortcut || !m_actions.menuRows) {
        return {};
    }
    return Menu{m_actions.menuRows(*m_shortcut)};
}

void ShortcutStatusItem::pop(const Menu& menu)
{
    if (m_button) {
        m_bar.popMenu(*m_button, menu);
    }
}

} // namespace kit::menubar
