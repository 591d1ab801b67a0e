// SPDX-License-Identifier: MIT
#include "kit/menubar/panel_look.h"

#include <gtest/gtest.h>

using namespace kit::menubar;

namespace {

const Rgb kWhite{255, 255, 255};
const Rgb kGnomeBar{0x1D, 0x1D, 0x1D};
const Rgb kXfceGrey{0xF6, 0xF5, 0xF4};

TEST(PanelLook, TemplateInkIsTheOneThatStandsOutMore)
{
    // Across every grey, the mid ones included where a lightness threshold picks wrong; real
    // panels are photographed by the tray hosts' end-to-end test.
    for (int level = 0; level <= 255; level += 5) {
        const auto c = static_cast<uint8_t>(level);
        const Rgb panel{c, c, c};
        const Appearance look = lookOver(panel);
        const Appearance other = look == Appearance::Dark ? Appearance::Light : Appearance::Dark;
        EXPECT_GE(contrastRatio(templateForeground(look), panel),
                  contrastRatio(templateForeground(other), panel))
            << "grey " << level;
    }
}

TEST(PanelLook, PanelColourIsWhatMostPixelsShare)
{
    EXPECT_EQ(panelBackground({}), std::nullopt);
    // A third of the ring runs through a neighbour's white glyph.
    std::vector<Rgb> ring(20, kGnomeBar);
    ring.insert(ring.end(), 9, kWhite);
    EXPECT_EQ(panelBackground(ring), kGnomeBar);
}

// The portal's scheme, the host's fixed look and the setting over them are driven through the
// status bars' own tests; here the clues only the tray gives.
TEST(PanelLook, TheFirstCluePresentDecides)
{
    using enum Appearance;
    const std::vector<Rgb> dark(12, kGnomeBar);
    const std::vector<Rgb> light(12, kXfceGrey);
    struct Row
    {
        const char* label;
        PanelClues clues;
        Appearance look;
    };
    const Row rows[] = {
        {"the setting beats everything",
         {Light, kWhite, dark, Dark, ColorScheme::PreferDark, Dark},
         Light},
        {"a light tray foreground means a dark panel",
         {{}, Rgb{0xEE, 0xEE, 0xEC}, light, {}, {}, Light},
         Dark},
        {"a dark tray foreground means a light panel",
         {{}, Rgb{0x2E, 0x34, 0x36}, dark, {}, {}, Dark},
         Light},
        {"pixels beat the app's palette", {{}, {}, dark, {}, {}, Light}, Dark},
        {"no preference falls to the palette",
         {{}, {}, {}, {}, ColorScheme::NoPreference, Dark},
         Dark},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(panelLook(row.clues), row.look);
    }
}

} // namespace
