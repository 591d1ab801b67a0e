// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_bar.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace kit::menubar {

// An sRGB colour, 8 bits a channel.
struct Rgb
{
    uint8_t red = 0;
    uint8_t green = 0;
    uint8_t blue = 0;

    bool operator==(const Rgb&) const = default;
};

// WCAG relative luminance, 0 (black) to 1 (white).
double relativeLuminance(Rgb colour);
// WCAG contrast ratio, 1 to 21, in either order.
double contrastRatio(Rgb a, Rgb b);

// The colour template glyphs (symbols, letters, badges, our own icon) take on a panel of this look.
Rgb templateForeground(Appearance look);
// The look whose template colour stands out more against this background.
Appearance lookOver(Rgb background);

// The desktop's colour scheme as the settings portal gives it (org.freedesktop.appearance
// color-scheme): 0 no preference, 1 prefer dark, 2 prefer light.
enum class ColorScheme {
    NoPreference,
    PreferDark,
    PreferLight,
};
std::optional<ColorScheme> colorSchemeFromPortal(uint32_t value);

// What can be known of the panel our icons sit on. Each adapter fills what its host offers.
struct PanelClues
{
    // The person's appearance setting when it is light or dark, which overrides everything.
    std::optional<Appearance> forced;
    // XEmbed: the foreground the tray asks icons to use (_NET_SYSTEM_TRAY_COLORS).
    std::optional<Rgb> trayForeground;
    // XEmbed: pixels of the panel read around our icons.
    std::vector<Rgb> panelPixels;
    // StatusNotifierItem: the host's fixed look, where it has one.
    std::optional<Appearance> hostLook;
    // StatusNotifierItem: the desktop's colour scheme.
    std::optional<ColorScheme> colorScheme;
    // The application's own palette: the last resort, as it says nothing about the panel.
    Appearance appPalette = Appearance::Light;

    bool operator==(const PanelClues&) const = default;
};

// The colour most of the pixels share, by luminance: the panel's background once the odd icon
// pixel is outvoted. Nothing when there are none.
std::optional<Rgb> panelBackground(const std::vector<Rgb>& pixels);

// The panel's look: the setting, then what the tray says, then its pixels, then the host's fixed
// look, then the desktop's colour scheme, then the app's palette.
Appearance panelLook(const PanelClues& clues);

} // namespace kit::menubar
