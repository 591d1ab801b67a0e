// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/icon_renderer.h"
#include "kit/menubar/menu.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kit::menubar {

struct TrayHost;

// Names one icon the status bar created; never reused within a run.
struct StatusItemHandle
{
    uint64_t value = 0;

    // clang-tidy 14 reads the defaulted comparison as one with a literal 0.
    auto operator<=>(const StatusItemHandle&) const = default; // NOLINT(modernize-use-nullptr)
};

struct Point
{
    double x = 0;
    double y = 0;

    bool operator==(const Point&) const = default;
};

// A screen rectangle; y grows downwards.
struct Rect
{
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool isEmpty() const { return width <= 0 || height <= 0; }
    bool contains(Point p) const
    {
        return p.x >= x && p.x < x + width && p.y >= y && p.y < y + height;
    }

    bool operator==(const Rect&) const = default;
};

enum class Appearance {
    Light,
    Dark,
};

// A click on an icon as the host reported it.
struct Click
{
    enum class Kind {
        Primary,     // left button up
        Secondary,   // right button up
        DoubleClick, // some hosts report the second press of a double click on its own
    };
    Kind kind = Kind::Primary;
    bool control = false; // the Control key was held

    bool operator==(const Click&) const = default;
};

// A bar gauge drawn into the application's icon beside its symbol. Compared by value, so an
// unchanged gauge causes no redraw.
struct StatusItemGauge
{
    struct Bar
    {
        double fraction = 0; // 0 to 1
        std::string dark;    // "#RRGGBB" in a dark menu bar
        std::string light;

        bool operator==(const Bar&) const = default;
    };

    std::vector<Bar> bars;
    std::string title;
    std::string titleDark;
    std::string titleLight;
    std::string summary;

    bool operator==(const StatusItemGauge&) const = default;
};

// Everything the application's icon draws; a render that would draw an equal value is skipped.
struct AppIconImage
{
    std::optional<StatusItemGauge> gauge;
    std::string symbolName;
    std::optional<std::string> imageName; // a named image drawn instead of the symbol
    std::string summary;                  // tooltip and accessibility description
    bool alert = false;
    bool dark = false;

    bool operator==(const AppIconImage&) const = default;
};

// What an icon reports back. Every callback runs on the main thread; any may be empty.
struct StatusItemEvents
{
    // A click on the icon; empty when the host could not say which kind.
    std::function<void(const std::optional<Click>&)> clicked;
    // Hosts that show a context menu by themselves (instead of reporting the right click) ask
    // for its rows just before showing it.
    std::function<Menu()> contextMenu;
    std::function<void(bool inside)> hovered;
    std::function<void(Appearance)> appearanceChanged;
};

// The system menu bar (system tray): one icon per call to create. The desktop layer implements
// it; it decides nothing and only carries requests. Main thread only. Calls naming a removed
// handle do nothing.
class StatusBar
{
public:
    virtual ~StatusBar() = default;

    // What the host does with icons: where a new one goes, how clicks arrive.
    virtual const TrayHost& host() const = 0;

    // A new icon of variable width that the person cannot drag away; `identifier` names it to
    // the host. Nothing when the host refused it.
    virtual std::optional<StatusItemHandle> create(const std::string& identifier,
                                                   StatusItemEvents events) = 0;
    virtual void remove(StatusItemHandle item) = 0;

    // Shows the glyph alone, clearing any title.
    virtual void setImage(StatusItemHandle item, const Glyph& glyph) = 0;
    // Shows the text alone, clearing any image.
    virtual void setTitle(StatusItemHandle item, const std::string& title) = 0;
    virtual void setAppImage(StatusItemHandle item, const AppIconImage& image) = 0;
    virtual void setToolTip(StatusItemHandle item, const std::string& toolTip) = 0;
    // The name the host files the icon under (a StatusNotifierItem's Title); hosts that sort
    // their icons sort by it.
    virtual void setName(StatusItemHandle /*item*/, const std::string& /*name*/) {}
    virtual void setAccessibilityLabel(StatusItemHandle item, const std::string& label) = 0;
    virtual void setHighlighted(StatusItemHandle item, bool highlighted) = 0;
    // Pops the menu under the icon as a click on it would.
    virtual void popMenu(StatusItemHandle item, const Menu& menu) = 0;

    // The icon's screen rectangle; nothing when the host does not say.
    virtual std::optional<Rect> geometry(StatusItemHandle item) const = 0;
    virtual Appearance appearance(StatusItemHandle item) const = 0;
};

} // namespace kit::menubar
