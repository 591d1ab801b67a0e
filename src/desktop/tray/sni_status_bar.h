// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/tray/panel_watch.h"
#include "desktop/tray/qt_icon_renderer.h"
#include "kit/menubar/status_bar.h"
#include "kit/menubar/tray_host.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

class QDBusServiceWatcher;
class QMenu;

namespace desktop {

// The menu bar on hosts that run a StatusNotifierWatcher: one StatusNotifierItem of our own per
// icon, each on a bus connection of its own that owns the item's name, with the item at
// /StatusNotifierItem and its menu (com.canonical.dbusmenu) at /MenuBar. Items are registered
// with the watcher one at a time, the next once the host has answered and read the one before,
// so hosts that place by arrival see them in creation order. What a host's call means comes
// from the host's facts; this only carries it. GUI thread only.
class SniStatusBar final : public kit::menubar::StatusBar
{
public:
    // `busAddress` names the session bus to use; empty for the environment's own.
    SniStatusBar(const QtIconRenderer& icons,
                 const kit::menubar::TrayHost& host,
                 QString busAddress = {});
    ~SniStatusBar() override;
    SniStatusBar(const SniStatusBar&) = delete;
    SniStatusBar& operator=(const SniStatusBar&) = delete;

    // What the session says about the host: whether a watcher runs, and its process.
    static kit::menubar::TrayHostClues clues(const QDBusConnection& bus);

    const kit::menubar::TrayHost& host() const override { return m_host; }
    std::optional<kit::menubar::StatusItemHandle>
    create(const std::string& identifier, kit::menubar::StatusItemEvents events) override;
    void remove(kit::menubar::StatusItemHandle item) override;
    void setImage(kit::menubar::StatusItemHandle item, const kit::menubar::Glyph& glyph) override;
    void setTitle(kit::menubar::StatusItemHandle item, const std::string& title) override;
    void setAppImage(kit::menubar::StatusItemHandle item,
                     const kit::menubar::AppIconImage& image) override;
    void setToolTip(kit::menubar::StatusItemHandle item, const std::string& toolTip) override;
    void setName(kit::menubar::StatusItemHandle item, const std::string& name) override;
    void setAccessibilityLabel(kit::menubar::StatusItemHandle item,
                               const std::string& label) override;
    void setHighlighted(kit::menubar::StatusItemHandle item, bool highlighted) override;
    void popMenu(kit::menubar::StatusItemHandle item, const kit::menubar::Menu& menu) override;
    std::optional<kit::menubar::Rect> geometry(kit::menubar::StatusItemHandle item) const override;
    kit::menubar::Appearance appearance(kit::menubar::StatusItemHandle item) const override;

    // The person's appearance setting: light or dark whatever the panel, or nothing to follow it.
    void setForcedAppearance(std::optional<kit::menubar::Appearance> forced);

    // Called with a bar step (-1 or +1) when the wheel turns over an icon.
    void setScrolled(std::function<void(int)> scrolled) { m_scrolled = std::move(scrolled); }
    // The bus name an icon is registered with (its connection's own); empty once removed.
    QString serviceName(kit::menubar::StatusItemHandle item) const;
    // The icons the watcher has accepted, in the order it accepted them.
    const std::vector<kit::menubar::StatusItemHandle>& registered() const { return m_registered; }
    QMenu* poppedMenu(kit::menubar::StatusItemHandle item) const;

private:
    struct Item;
    class ItemObject;
    friend class ItemObject;

    Item* find(kit::menubar::StatusItemHandle item) const;
    void changed(Item& item, const char* signal);
    void queueRegistration(kit::menubar::StatusItemHandle item);
    void registerNext();
    void finishRegistration(kit::menubar::StatusItemHandle item);
    void watcherAppeared();
    void appearanceChanged(kit::menubar::Appearance now);

    const QtIconRenderer& m_icons;
    kit::menubar::TrayHost m_host;
    QString m_busAddress;
    QDBusConnection m_bus;
    kit::menubar::Appearance m_appearance;
    std::map<kit::menubar::StatusItemHandle, std::unique_ptr<Item>> m_items;
    uint64_t m_nextHandle = 1;
    std::deque<kit::menubar::StatusItemHandle> m_waiting;
    std::optional<kit::menubar::StatusItemHandle> m_registering;
    std::vector<kit::menubar::StatusItemHandle> m_registered;
    std::unique_ptr<QDBusServiceWatcher> m_watcher;
    std::function<void(int)> m_scrolled;
    std::unique_ptr<PanelWatch> m_panel;
    // Guards queued work against the bar being gone.
    std::unique_ptr<QObject> m_context;
};

} // namespace desktop
