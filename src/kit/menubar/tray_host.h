// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_bar.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::menubar {

// The panels that show our icons. Each behaves as its own code says; the facts are in
// trayHost().
enum class TrayHostKind {
    XEmbed,             // a docking tray (trayer, stalonetray, most older panels)
    GnomeAppIndicator,  // GNOME Shell with its AppIndicator extension
    XfcePanel,          // the Xfce panel's notification area
    KdePlasma,          // Plasma's system tray
    Waybar,             // waybar's tray module
    Cinnamon,           // Cinnamon's XApp status applet
    OtherStatusNotifier // a watcher we do not know: the common behaviour of the format
};

// Where a host puts an item it has not seen before.
enum class NewItemPlace {
    Leftmost,
    Rightmost,
    ByTitle, // sorted by Title, whatever the order of registration
};

// What a host's Activate(x, y) means.
enum class ActivatePoint {
    Screen, // the pointer on the screen
    Icon,   // relative to the icon, which is of no use for placing a page
    None,
};

// The facts about one host that decide how we make our icons and read their clicks.
struct TrayHost
{
    TrayHostKind kind = TrayHostKind::XEmbed;
    std::string name;            // for the log
    bool statusNotifier = false; // items registered over D-Bus, not windows docked into a panel
    NewItemPlace newItems = NewItemPlace::Leftmost;
    bool remembersPlaces = false;    // keeps a position per item Id, which the person can change
    bool leftClickActivates = true;  // a plain left click reaches us (else it opens the menu)
    bool hostDrawsMenus = false;     // shows the exported menu itself
    bool needsMenu = false;          // hides an item that exports no menu with rows
    bool rightClickShowsMenu = true; // the shortcut's own menu opens on a right click
    ActivatePoint activatePoint = ActivatePoint::None;
    int scrollPerNotch = 0;       // Scroll's delta for one wheel notch; 0: never sends Scroll
    bool iconPlacesKnown = false; // our icons' rectangles can be read from the window system
    // The panel's look where the host fixes it whatever the desktop's theme; glyphs drawn in the
    // panel's colour follow it.
    std::optional<Appearance> panelLook;
    // Draws a "-symbolic" theme icon named in IconName in the panel's own text colour.
    bool recoloursSymbolic = false;

    bool operator==(const TrayHost&) const = default;
};

// The table of hosts. Read from their own code:
// - GNOME: ubuntu/gnome-shell-extension-appindicator, indicatorStatusIcon.js (clicks, scroll),
//   appIndicator.js (Id and menu checks), statusNotifierWatcher.js (registration); new indicators
//   are added at the front of the right box.
// - Xfce: xfce4-panel plugins/systray/sn-button.c (clicks, scroll), sn-config.c
//   (sn_config_add_known_item prepends unknown Ids, then the saved order rules).
// - KDE Plasma: plasma-workspace applets/systemtray (sorted by category and Title, scroll 120).
// - waybar: src/modules/sni/item.cpp and host.cpp (appends, relative coordinates).
// - Cinnamon: xapp libxapp/xapp-sn-watcher.c and cinnamon's xapp-status applet (lowercase Title).
const TrayHost& trayHost(TrayHostKind kind);

// What is known of the session when we look for a host.
struct TrayHostClues
{
    bool watcher = false;       // org.kde.StatusNotifierWatcher has an owner
    std::string watcherProcess; // that owner's process name (comm), when it could be read
    std::string currentDesktop; // XDG_CURRENT_DESKTOP
};

TrayHostKind detectTrayHost(const TrayHostClues& clues);

// The order to create `count` icons in so that they stand left to right as numbered: index 0
// leftmost, index count - 1 rightmost.
std::vector<size_t> creationOrder(const TrayHost& host, size_t count);

// The Title an item gets: the shortcut's name, or on hosts that sort by title a name that sorts
// into place (position from 0; nothing for the application's own icon, which sorts last). The
// tooltip still carries the plain name.
std::string itemTitle(const TrayHost& host,
                      const std::string& appName,
                      std::optional<size_t> position,
                      const std::string& name);

// What a host sends about an item, reduced to what we tell apart.
enum class HostGesture {
    Activate,          // Activate(x, y), or a plain click on a docked window
    SecondaryActivate, // the middle button
    ContextMenu,       // ContextMenu(x, y), or a right click on a docked window
    OpenEntry,         // the "Open" row we put first in a menu the host draws
};

// The click a gesture stands for; nothing when the gesture means nothing on that host.
std::optional<Click> clickFor(const TrayHost& host, HostGesture gesture);

// Bar steps for a Scroll(delta) from this host: -1 the bar before, +1 the bar after, 0 none.
// Several notches in one call still make one step, as one wheel event does.
int scrollStep(const TrayHost& host, int delta);

// Where the panel under an icon hangs when all the host gave is the point of Activate: a thin
// rectangle around it, tall enough to clear a panel of common height.
std::optional<Rect> anchorFromActivate(const TrayHost& host, double x, double y);

// The icon-theme name a host may draw itself in place of our picture: only for a plain theme
// symbol, since a tint, badge or mark exists in our picture alone, and a symbolic one only where
// the host colours it for its panel (elsewhere it would come out black on any panel).
std::optional<std::string> themeIconName(const TrayHost& host, const Glyph& glyph);

// The introduction's words for where Vantorel's own icon is and how a shortcut's menu opens.
std::string introductionPlace(const TrayHost& host);

} // namespace kit::menubar
