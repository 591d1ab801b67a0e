// SPDX-License-Identifier: MIT
#include "kit/menubar/panel_look.h"

#include <gtest/gtest.h>

using namespace kit::menubar;

namespace {

const Rgb kBlack{0, 0, 0};
const Rgb kWhite{255, 255, 255};
const Rgb kGnomeBar{0x1D, 0x1D, 0x1D};
const Rgb kXfceGrey{0xF6, 0xF5, 0xF4};

TEST(PanelLook, ContrastFollowsTheWcagFormula)
{
    EXPECT_NEAR(contrastRatio(kBlack, kWhite), 21.0, 1e-9);
    EXPECT_NEAR(contrastRatio(kWhite, kWhite), 1.0, 1e-9);
    // #777 on white is the usual example just under 4.5:1.
    EXPECT_NEAR(contrastRatio(Rgb{0x77, 0x77, 0x77}, kWhite), 4.48, 0.01);
}

TEST(PanelLook, TemplateInkIsTheOneThatStandsOutMore)
{
    // Across every grey, the mid ones included where a lightness threshold picks wrong.
    for (int level = 0; level <= 255; level += 5) {
        const auto c = static_cast<uint8_t>(level);
        const Rgb panel{c, c, c};
        const Appearance look = lookOver(panel);
        const Appearance other = look == Appearance::Dark ? Appearance::Light : Appearance::Dark;
        EXPECT_GE(contrastRatio(templateForeground(look), panel),
                  contrastRatio(templateForeground(other), panel))
            << "grey " << level;
    }
    // Common panels: GNOME's bar, trayer's dark and light tints, Xfce's default grey.
    for (const Rgb panel : {kGnomeBar, Rgb{0x30, 0x30, 0x30}, Rgb{0xD0, 0xD0, 0xD0}, kXfceGrey}) {
        EXPECT_GE(contrastRatio(templateForeground(lookOver(panel)), panel), 4.5);
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

struct SourceCase
{
    const char* label;
    PanelClues clues;
    Appearance look;
};

class PanelLookSources : public ::testing::TestWithParam<SourceCase>
{};

TEST_P(PanelLookSources, FirstCluePresentDecides)
{
    EXPECT_EQ(panelLook(GetParam().clues), GetParam().look);
}

PanelClues clues(std::optional<Appearance> forced,
                 std::optional<Rgb> trayForeground,
                 std::vector<Rgb> pixels,
                 std::optional<Appearance> hostLook,
                 std::optional<ColorScheme> scheme,
                 Appearance palette)
{
    return PanelClues{forced, trayForeground, std::move(pixels), hostLook, scheme, palette};
}

using enum Appearance;
const std::vector<Rgb> kDarkPixels(12, kGnomeBar);
const std::vector<Rgb> kLightPixels(12, kXfceGrey);

INSTANTIATE_TEST_SUITE_P(
    Clues,
    PanelLookSources,
    ::testing::Values(
        SourceCase{"the setting beats everything",
                   clues(Light, kWhite, kDarkPixels, Dark, ColorScheme::PreferDark, Dark),
                   Light},
        SourceCase{"a light tray foreground means a dark panel",
                   clues({}, Rgb{0xEE, 0xEE, 0xEC}, kLightPixels, {}, {}, Light),
                   Dark},
        SourceCase{"a dark tray foreground means a light panel",
                   clues({}, Rgb{0x2E, 0x34, 0x36}, kDarkPixels, {}, {}, Dark),
                   Light},
        SourceCase{
            "pixels beat the app's palette", clues({}, {}, kDarkPixels, {}, {}, Light), Dark},
        SourceCase{"light pixels", clues({}, {}, kLightPixels, {}, {}, Dark), Light},
        SourceCase{"the host's fixed look beats the desktop's scheme",
                   clues({}, {}, {}, Dark, ColorScheme::PreferLight, Light),
                   Dark},
        SourceCase{"the desktop prefers dark",
                   clues({}, {}, {}, {}, ColorScheme::PreferDark, Light),
                   Dark},
        SourceCase{"the desktop prefers light",
                   clues({}, {}, {}, {}, ColorScheme::PreferLight, Dark),
                   Light},
        SourceCase{"no preference falls to the palette",
                   clues({}, {}, {}, {}, ColorScheme::NoPreference, Dark),
                   Dark}),
    [](const auto& info) {
        std::string name;
        for (const char c : std::string(info.param.label)) {
            name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
        }
        return name;
    });

TEST(PanelLook, PortalValuesOutsideTheThreeMeanNothing)
{
    EXPECT_EQ(colorSchemeFromPortal(1), ColorScheme::PreferDark);
    EXPECT_EQ(colorSchemeFromPortal(7), std::nullopt);
}

} // namespace
