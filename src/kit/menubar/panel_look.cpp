// SPDX-License-Identifier: MIT
#include "kit/menubar/panel_look.h"

#include <algorithm>
#include <cmath>

namespace kit::menubar {

namespace {

double linear(uint8_t channel)
{
    const double c = channel / 255.0;
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
}

} // namespace

double relativeLuminance(Rgb colour)
{
    return 0.2126 * linear(colour.red) + 0.7152 * linear(colour.green)
           + 0.0722 * linear(colour.blue);
}

double contrastRatio(Rgb a, Rgb b)
{
    const double la = relativeLuminance(a);
    const double lb = relativeLuminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

Rgb templateForeground(Appearance look)
{
    return look == Appearance::Dark ? Rgb{0xF2, 0xF2, 0xF2} : Rgb{0x1C, 0x1C, 0x1C};
}

Appearance lookOver(Rgb background)
{
    // Mid greys are where a fixed threshold goes wrong; comparing the two inks never does.
    return contrastRatio(templateForeground(Appearance::Dark), background)
                   > contrastRatio(templateForeground(Appearance::Light), background)
               ? Appearance::Dark
               : Appearance::Light;
}

std::optional<ColorScheme> colorSchemeFromPortal(uint32_t value)
{
    switch (value) {
    case 0:
        return ColorScheme::NoPreference;
    case 1:
        return ColorScheme::PreferDark;
    case 2:
        return ColorScheme::PreferLight;
    default:
        return std::nullopt;
    }
}

std::optional<Rgb> panelBackground(const std::vector<Rgb>& pixels)
{
    if (pixels.empty()) {
        return std::nullopt;
    }
    // The median by luminance: a few pixels of a neighbouring icon cannot move it.
    std::vector<Rgb> sorted = pixels;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end(), [](Rgb a, Rgb b) {
        return relativeLuminance(a) < relativeLuminance(b);
    });
    return *middle;
}

Appearance panelLook(const PanelClues& clues)
{
    if (clues.forced) {
        return *clues.forced;
    }
    if (clues.trayForeground) {
        // The tray names the colour its icons draw in: a light one means a dark panel.
        return lookOver(*clues.trayForeground) == Appearance::Dark ? Appearance::Light
                                                                   : Appearance::Dark;
    }
    if (const auto background = panelBackground(clues.panelPixels)) {
        return lookOver(*background);
    }
    if (clues.hostLook) {
        return *clues.hostLook;
    }
    if (clues.colorScheme == ColorScheme::PreferDark) {
        return Appearance::Dark;
    }
    if (clues.colorScheme == ColorScheme::PreferLight) {
        return Appearance::Light;
    }
    return clues.appPalette;
}

} // namespace kit::menubar
