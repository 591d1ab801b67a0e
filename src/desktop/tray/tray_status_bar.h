// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/tray/panel_watch.h"
#include "desktop/tray/qt_icon_renderer.h"
#include "kit/menubar/status_bar.h"
#include "kit/menubar/tray_host.h"

#include <QImage>
#include <QObject>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

class QMenu;
class QSystemTrayIcon;

namespace desktop {

// The system tray as the menu bar: one QSystemTrayIcon per icon, its picture drawn by the
// QtIconRenderer, menus as QMenu. GUI thread only. Icons are shown even while no tray host
// runs: Qt docks them once one appears. The accessibility label has nowhere to go beyond the
// tooltip the core sets beside it.
class TrayStatusBar final : public kit::menubar::StatusBar
{
public:
    // How the host learns of icons, which decides where a new one goes.
    enum class Host {
        XEmbed,         // a window docked into the panel; the newest stands leftmost
        StatusNotifier, // registered over D-Bus; the host keeps creation order
    };

    // `host` is detected from the session bus unless given.
    explicit TrayStatusBar(const QtIconRenderer& icons, std::optional<Host> host = std::nullopt);
    ~TrayStatusBar() override;
    TrayStatusBar(const TrayStatusBar&) = delete;
    TrayStatusBar& operator=(const TrayStatusBar&) = delete;

    // StatusNotifierItem when a watcher is registered on the session bus, as Qt decides.
    static Host detectHost();
    Host hostKind() const { return m_host; }

    const kit::menubar::TrayHost& host() const override;
    std::optional<kit::menubar::StatusItemHandle>
    create(const std::string& identifier, kit::menubar::StatusItemEvents events) override;
    void remove(kit::menubar::StatusItemHandle item) override;
    void setImage(kit::menubar::StatusItemHandle item, const kit::menubar::Glyph& glyph) override;
    void setTitle(kit::menubar::StatusItemHandle item, const std::string& title) override;
    void setAppImage(kit::menubar::StatusItemHandle item,
                     const kit::menubar::AppIconImage& image) override;
    void setToolTip(kit::menubar::StatusItemHandle item, const std::string& toolTip) override;
    void setAccessibilityLabel(kit::menubar::StatusItemHandle item,
                               const std::string& label) override;
    void setHighlighted(kit::menubar::StatusItemHandle item, bool highlighted) override;
    void popMenu(kit::menubar::StatusItemHandle item, const kit::menubar::Menu& menu) override;
    std::optional<kit::menubar::Rect> geometry(kit::menubar::StatusItemHandle item) const override;
    kit::menubar::Appearance appearance(kit::menubar::StatusItemHandle item) const override;

    // The Qt objects behind an icon, for tests and for anchoring windows; null once removed.
    QSystemTrayIcon* trayIcon(kit::menubar::StatusItemHandle item) const;
    QMenu* poppedMenu(kit::menubar::StatusItemHandle item) const;

    // Called when the pointer enters an icon, ahead of a likely click; XEmbed hosts only, as a
    // StatusNotifierItem host never says where the pointer is.
    void setPointerEntered(std::function<void(kit::menubar::StatusItemHandle)> entered);

    // The application palette's look, which says nothing of the panel: the last resort.
    static kit::menubar::Appearance currentAppearance();
    // The person's appearance setting: light or dark whatever the panel, or nothing to follow it.
    void setForcedAppearance(std::optional<kit::menubar::Appearance> forced);

    // What an icon shows: a glyph, a title or the application's own picture.
    using Picture =
        std::variant<std::monostate, kit::menubar::Glyph, std::string, kit::menubar::AppIconImage>;
    // The picture at `side` pixels square, as every tray adapter draws it.
    static QImage draw(const QtIconRenderer& icons,
                       const Picture& picture,
                       bool highlighted,
                       kit::menubar::Appearance appearance,
                       int side);

private:
    struct Item;

    Item* find(kit::menubar::StatusItemHandle item) const;
    void redraw(Item& item) const;
    void appearanceChanged(kit::menubar::Appearance now);
    std::vector<QRect> iconPlaces() const;

    const QtIconRenderer& m_icons;
    Host m_host;
    kit::menubar::Appearance m_appearance;
    std::map<kit::menubar::StatusItemHandle, std::unique_ptr<Item>> m_items;
    uint64_t m_nextHandle = 1;
    // Reads the panel's look and says when it changes.
    std::unique_ptr<PanelWatch> m_panel;
    std::function<void(kit::menubar::StatusItemHandle)> m_pointerEntered;
    std::unique_ptr<QObject> m_enterWatch;
};

} // namespace desktop
