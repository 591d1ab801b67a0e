// SPDX-License-Identifier: MIT
#include "kit/menubar/tray_host.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <numeric>

namespace kit::menubar {

namespace {

TrayHost make(TrayHostKind kind, std::string name)
{
    TrayHost host;
    host.kind = kind;
    host.name = std::move(name);
    host.statusNotifier = kind != TrayHostKind::XEmbed;
    return host;
}

std::array<TrayHost, 7> table()
{
    std::array<TrayHost, 7> hosts;

    TrayHost xembed = make(TrayHostKind::XEmbed, "XEmbed tray");
    // The newest docked window stands leftmost; the icons are our own windows, so clicks, wheel
    // and geometry are all ours.
    xembed.newItems = NewItemPlace::Leftmost;
    xembed.iconPlacesKnown = true;
    hosts[0] = xembed;

    TrayHost gnome = make(TrayHostKind::GnomeAppIndicator, "GNOME Shell AppIndicator");
    // A left click toggles the menu; Activate comes only on a double click. An item without a
    // menu is not shown, and an empty one ignores the click.
    gnome.newItems = NewItemPlace::Leftmost;
    gnome.leftClickActivates = false;
    gnome.hostDrawsMenus = true;
    gnome.needsMenu = true;
    gnome.rightClickShowsMenu = true;
    gnome.activatePoint = ActivatePoint::Screen;
    gnome.scrollPerNotch = 1;
    // The top bar is dark in the light theme too.
    gnome.panelLook = Appearance::Dark;
    gnome.recoloursSymbolic = true;
    hosts[1] = gnome;

    TrayHost xfce = make(TrayHostKind::XfcePanel, "Xfce panel");
    // An unknown Id goes in front of the known ones, which keep their saved order. A right click
    // shows our exported menu, or the panel's own menu when ours has no rows; ContextMenu is
    // never called.
    xfce.newItems = NewItemPlace::Leftmost;
    xfce.remembersPlaces = true;
    xfce.hostDrawsMenus = true;
    xfce.activatePoint = ActivatePoint::Screen;
    xfce.scrollPerNotch = 1;
    hosts[2] = xfce;

    TrayHost kde = make(TrayHostKind::KdePlasma, "KDE Plasma");
    kde.newItems = NewItemPlace::ByTitle;
    kde.remembersPlaces = true; // hidden or shown, per Id
    kde.hostDrawsMenus = true;
    kde.activatePoint = ActivatePoint::Screen;
    kde.scrollPerNotch = -120; // angle delta: positive is up
    kde.recoloursSymbolic = true;
    hosts[3] = kde;

    TrayHost waybar = make(TrayHostKind::Waybar, "waybar");
    waybar.newItems = NewItemPlace::Rightmost;
    waybar.hostDrawsMenus = true;
    waybar.activatePoint = ActivatePoint::Icon;
    waybar.scrollPerNotch = 1;
    hosts[4] = waybar;

    TrayHost cinnamon = make(TrayHostKind::Cinnamon, "Cinnamon");
    cinnamon.newItems = NewItemPlace::ByTitle;
    cinnamon.hostDrawsMenus = true;
    cinnamon.activatePoint = ActivatePoint::Screen;
    cinnamon.scrollPerNotch = 1;
    hosts[5] = cinnamon;

    TrayHost other = make(TrayHostKind::OtherStatusNotifier, "StatusNotifierItem host");
    // Registration order, the common case among smaller hosts.
    other.newItems = NewItemPlace::Rightmost;
    other.hostDrawsMenus = true;
    other.activatePoint = ActivatePoint::Screen;
    other.scrollPerNotch = 1;
    hosts[6] = other;

    return hosts;
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return text;
}

} // namespace

const TrayHost& trayHost(TrayHostKind kind)
{
    static const std::array<TrayHost, 7> kHosts = table();
    for (const auto& host : kHosts) {
        if (host.kind == kind) {
            return host;
        }
    }
    return kHosts.back();
}

TrayHostKind detectTrayHost(const TrayHostClues& clues)
{
    if (!clues.watcher) {
        return TrayHostKind::XEmbed;
    }
    // The watcher's owner says most: each host runs its own watcher in its own process.
    const std::string process = lower(clues.watcherProcess);
    if (contains(process, "gnome-shell")) {
        return TrayHostKind::GnomeAppIndicator;
    }
    if (contains(process, "xfce4-panel") || contains(process, "panel-")
        || contains(process, "wrapper-2.0")) {
        // The Xfce panel's plugins run in the panel or in its wrapper process.
        return TrayHostKind::XfcePanel;
    }
    if (contains(process, "plasmashell") || contains(process, "kded")) {
        return TrayHostKind::KdePlasma;
    }
    if (contains(process, "waybar")) {
        return TrayHostKind::Waybar;
    }
    if (contains(process, "xapp-sn-watcher") || contains(process, "cinnamon")) {
        return TrayHostKind::Cinnamon;
    }
    // A watcher owned by a helper: the desktop's name decides.
    const std::string desktop = lower(clues.currentDesktop);
    if (contains(desktop, "gnome")) {
        return TrayHostKind::GnomeAppIndicator;
    }
    if (contains(desktop, "xfce")) {
        return TrayHostKind::XfcePanel;
    }
    if (contains(desktop, "kde")) {
        return TrayHostKind::KdePlasma;
    }
    if (contains(desktop, "x-cinnamon") || contains(desktop, "cinnamon")) {
        return TrayHostKind::Cinnamon;
    }
    return TrayHostKind::OtherStatusNotifier;
}

std::vector<size_t> creationOrder(const TrayHost& host, size_t count)
{
    std::vector<size_t> order(count);
    std::iota(order.begin(), order.end(), size_t{0});
    if (host.newItems == NewItemPlace::Leftmost) {
        std::reverse(order.begin(), order.end());
    }
    return order;
}

std::string itemTitle(const TrayHost& host,
                      const std::string& appName,
                      std::optional<size_t> position,
                      const std::string& name)
{
    if (host.newItems != NewItemPlace::ByTitle) {
        return name.empty() ? appName : name;
    }
    // Zero-padded, so plain and locale-aware comparisons agree; the application's name leads so
    // the icons stay together, and its own icon takes the last number there is.
    constexpr size_t kLast = 999;
    std::string number = std::to_string(std::min(position.value_or(kLast), kLast));
    number.insert(0, 3 - number.size(), '0');
    std::string title = appName + " " + number;
    if (!name.empty()) {
        title += " " + name;
    }
    return title;
}

std::optional<Click> clickFor(const TrayHost& host, HostGesture gesture)
{
    switch (gesture) {
    case HostGesture::Activate:
        // Where a single click only toggles the menu, Activate is the second press of a double
        // click: the first already did its work through the menu.
        if (!host.leftClickActivates) {
            return std::nullopt;
        }
        return Click{Click::Kind::Primary, false};
    case HostGesture::SecondaryActivate:
        // The middle button opens, never asks for a menu.
        return Click{Click::Kind::Primary, false};
    case HostGesture::ContextMenu:
        return Click{Click::Kind::Secondary, false};
    case HostGesture::OpenEntry:
        return Click{Click::Kind::Primary, false};
    }
    return std::nullopt;
}

int scrollStep(const TrayHost& host, int delta)
{
    if (host.scrollPerNotch == 0 || delta == 0) {
        return 0;
    }
    const bool down = (delta > 0) == (host.scrollPerNotch > 0);
    return down ? 1 : -1;
}

std::optional<Rect> anchorFromActivate(const TrayHost& host, double x, double y)
{
    if (host.activatePoint != ActivatePoint::Screen || (x == 0 && y == 0)) {
        // Relative points say nothing of the screen, and 0,0 is what hosts send when they
        // have no point at all.
        return std::nullopt;
    }
    constexpr double kWidth = 8;
    constexpr double kHeight = 36;
    return Rect{x - kWidth / 2, y - kHeight / 2, kWidth, kHeight};
}

std::optional<std::string> themeIconName(const TrayHost& host, const Glyph& glyph)
{
    if (glyph.kind != Glyph::Kind::Image || glyph.source != Glyph::Source::Symbol
        || glyph.name.empty() || glyph.tint || glyph.opacity != 1.0 || glyph.playing
        || glyph.number) {
        return std::nullopt;
    }
    if (isSymbolicName(glyph.name) && !host.recoloursSymbolic) {
        return std::nullopt;
    }
    return glyph.name;
}

std::string introductionPlace(const TrayHost& host)
{
    std::string where;
    if (host.statusNotifier && host.remembersPlaces && host.newItems != NewItemPlace::ByTitle) {
        where = "Vantorel's own icon comes in rightmost; the panel keeps the places you give "
                "the icons";
    } else if (host.kind == TrayHostKind::OtherStatusNotifier) {
        where = "Vantorel's own icon, after the shortcuts,";
    } else {
        where = "Vantorel's own icon, the rightmost,";
    }
    std::string clicks;
    if (!host.leftClickActivates) {
        clicks = "Click an icon and choose Open to open it; the same menu holds its settings.";
    } else if (host.rightClickShowsMenu) {
        clicks = "Click an icon to open it; right-click it for its settings.";
    } else {
        clicks = "Click an icon to open it; its settings are in Vantorel's own menu.";
    }
    const bool sentence = where.back() != ',';
    return clicks + "\n\nA bar is a whole set of icons, such as Work or Home. " + where
           + (sentence ? ". It" : "") + " switches bars and adds a copied link as a shortcut.";
}

} // namespace kit::menubar
