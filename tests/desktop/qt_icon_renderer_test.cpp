// SPDX-License-Identifier: MIT
#include "desktop/tray/qt_icon_renderer.h"

#include "desktop_environment.h"
#include "ink.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QImage>

namespace desktop {
namespace {

using kit::menubar::Appearance;
using kit::menubar::Glyph;
using testing::DesktopEnvironment;

Glyph glyphOf(Glyph::Source source, std::string name = {})
{
    Glyph glyph;
    glyph.source = source;
    glyph.name = std::move(name);
    return glyph;
}

Glyph pictureOf(const QImage& image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    Glyph glyph = glyphOf(Glyph::Source::Picture);
    glyph.data = {bytes.begin(), bytes.end()};
    return glyph;
}

class QtIconRendererTest : public ::testing::Test
{
protected:
    QtIconRenderer m_renderer;
};

struct SourceRow
{
    const char* name;
    Glyph glyph;
};

class EverySourceTest : public QtIconRendererTest, public ::testing::WithParamInterface<SourceRow>
{};

// Whatever a glyph names, and whether or not it can be found, the icon is never blank.
TEST_P(EverySourceTest, DrawsSomethingAtEveryTraySize)
{
    for (const int side : {16, 22, 32, 64}) {
        for (const auto appearance : {Appearance::Light, Appearance::Dark}) {
            const QImage image = m_renderer.draw(GetParam().glyph, side, appearance);
            ASSERT_EQ(image.size(), QSize(side, side));
            EXPECT_GT(ink(image).visible, 0) << side;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sources,
    EverySourceTest,
    ::testing::Values(
        SourceRow{"ThemeSymbol", glyphOf(Glyph::Source::Symbol, "folder")},
        SourceRow{"MissingSymbol", glyphOf(Glyph::Source::Symbol, "no-such-icon-anywhere")},
        SourceRow{"Letter", glyphOf(Glyph::Source::Letters, "W")},
        SourceRow{"Emoji", glyphOf(Glyph::Source::Letters, "\xE2\x98\x80")},
        SourceRow{"BrokenPicture", glyphOf(Glyph::Source::Picture)},
        SourceRow{"InstalledApp", glyphOf(Glyph::Source::AppIcon, "vantorel-test-painted")},
        SourceRow{"MissingApp", glyphOf(Glyph::Source::AppIcon, "no.such.app")},
        SourceRow{"Document", glyphOf(Glyph::Source::FileIcon, "/nowhere/report.pdf")},
        SourceRow{"Site", glyphOf(Glyph::Source::SiteIcon, "https://example.com")},
        SourceRow{"Divider", glyphOf(Glyph::Source::Divider)}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(QtIconRendererTest, AnAppsIconComesFromItsDesktopEntry)
{
    const QImage image =
        m_renderer.draw(glyphOf(Glyph::Source::AppIcon, DesktopEnvironment::get().paintedID),
                        32,
                        Appearance::Light);
    EXPECT_EQ(ink(image).red, 32 * 32);
    EXPECT_FALSE(desktopEntryIcon(DesktopEnvironment::get().paintedID + ".desktop").isNull());
    EXPECT_TRUE(desktopEntryIcon("no.such.app").isNull());
}

TEST_F(QtIconRendererTest, APictureKeepsItsProportionsAndColours)
{
    QImage wide(40, 20, QImage::Format_ARGB32);
    wide.fill(Qt::red);
    Glyph glyph = pictureOf(wide);
    const QImage image = m_renderer.draw(glyph, 32, Appearance::Light);
    // 32 wide and 16 high, centred.
    EXPECT_EQ(ink(image).red, 32 * 16);
    EXPECT_EQ(ink(image, QRect(0, 0, 32, 8)).visible, 0);
}

TEST_F(QtIconRendererTest, ATintColoursThePictureButKeepsItsShape)
{
    QImage dot(32, 32, QImage::Format_ARGB32);
    dot.fill(Qt::transparent);
    dot.setPixel(10, 10, qRgba(0, 0, 255, 255));
    dot.setPixel(20, 20, qRgba(255, 255, 255, 255));
    Glyph glyph = pictureOf(dot);
    glyph.tint = "#FF0000";
    const Ink drawn = ink(m_renderer.draw(glyph, 32, Appearance::Light));
    EXPECT_EQ(drawn.visible, 2);
    EXPECT_EQ(drawn.red, 2);
}

TEST_F(QtIconRendererTest, LettersFollowTheBarUnlessTinted)
{
    const Glyph letters = glyphOf(Glyph::Source::Letters, "M");
    const Ink onLight = ink(m_renderer.draw(letters, 32, Appearance::Light));
    const Ink onDark = ink(m_renderer.draw(letters, 32, Appearance::Dark));
    EXPECT_EQ(onLight.dark, onLight.visible);
    EXPECT_EQ(onDark.light, onDark.visible);
    Glyph tinted = letters;
    tinted.tint = "#ff0000";
    const Ink red = ink(m_renderer.draw(tinted, 32, Appearance::Dark));
    EXPECT_EQ(red.red, red.visible);
    // One letter uses the square: its ink spans most of the height.
    EXPECT_GT(onLight.visible, 32 * 4);
}

TEST_F(QtIconRendererTest, OpacityFadesThePicture)
{
    QImage solid(16, 16, QImage::Format_ARGB32);
    solid.fill(Qt::red);
    Glyph glyph = pictureOf(solid);
    glyph.opacity = 0.4;
    const QImage image =
        m_renderer.draw(glyph, 16, Appearance::Light).convertToFormat(QImage::Format_ARGB32);
    EXPECT_NEAR(qAlpha(image.pixel(8, 8)), 102, 2);
}

TEST_F(QtIconRendererTest, MarksGoInTheirCornersAndStayOpaque)
{
    Glyph glyph = glyphOf(Glyph::Source::Divider);
    glyph.opacity = 0.2;
    const QRect topRight(20, 0, 12, 12);
    const QRect bottomRight(20, 20, 12, 12);
    const QImage plain = m_renderer.draw(glyph, 32, Appearance::Light);
    EXPECT_EQ(ink(plain, topRight).visible + ink(plain, bottomRight).visible, 0);

    glyph.playing = true;
    const QImage playing = m_renderer.draw(glyph, 32, Appearance::Light);
    EXPECT_GT(ink(playing, topRight).green, 10);

    glyph.number = 7;
    const Ink badge = ink(m_renderer.draw(glyph, 32, Appearance::Light), bottomRight);
    // A dark disc on a light bar, with the number in light ink.
    EXPECT_GT(badge.dark, 40);
    EXPECT_GT(badge.light, 5);
    Glyph eight = glyph;
    eight.number = 8;
    EXPECT_NE(m_renderer.draw(glyph, 22, Appearance::Dark),
              m_renderer.draw(eight, 22, Appearance::Dark));
}

TEST_F(QtIconRendererTest, AppIconGaugesAndAlertAddInk)
{
    kit::menubar::AppIconImage image;
    image.symbolName = "no-such-icon-anywhere";
    const Ink plain = ink(m_renderer.draw(image, 32));
    ASSERT_GT(plain.visible, 0);
    image.alert = true;
    EXPECT_GT(ink(m_renderer.draw(image, 32), QRect(20, 0, 12, 12)).red, 10);
    image.alert = false;
    image.gauge = kit::menubar::StatusItemGauge{{{1.0, "#00FF00", "#00C000"}}, "", "", "", ""};
    EXPECT_GT(ink(m_renderer.draw(image, 32)).green, 32);
}

} // namespace
} // namespace desktop
