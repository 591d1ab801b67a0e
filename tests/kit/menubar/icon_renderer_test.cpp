// SPDX-License-Identifier: MIT
#include "kit/menubar/icon_renderer.h"

#include "kit/library/fixtures.h"

#include <gtest/gtest.h>

#include <set>

using namespace kit::library;
using namespace kit::menubar;
using namespace testing_support;

namespace {

Shortcut withIcon(Shortcut shortcut, IconOverride icon)
{
    shortcut.icon = std::move(icon);
    return shortcut;
}

} // namespace

TEST(StandardIconRenderer, TakesTheChosenIconElseTheTargets)
{
    struct Row
    {
        std::string label;
        Shortcut shortcut;
        Glyph::Kind kind;
        Glyph::Source source;
        std::string name;
    };
    using enum Glyph::Kind;
    using enum Glyph::Source;
    const auto app = [](AppTarget target) { return Shortcut::make("A", Target::app(target)); };
    const Row rows[] = {
        {"Site", webLink("W", "https://a.example/"), Image, SiteIcon, "https://a.example/"},
        {"LinkIntoAnApp", webLink("S", "slack://channel?team=T1&id=C2"), Image, AppIcon, "slack"},
        {"Symbol", withIcon(webLink("W"), IconOverride::symbol("mail")), Image, Symbol, "mail"},
        {"Emoji", withIcon(webLink("W"), IconOverride::emoji("AB")), Text, Letters, "AB"},
        {"File", fileShortcut("F", "/tmp/f.pdf"), Image, FileIcon, "/tmp/f.pdf"},
        {"App", app({"org.gnome.Calculator", {}}), Image, AppIcon, "org.gnome.Calculator"},
        {"AppWithoutId", app({}), Image, Symbol, StandardIconRenderer::kFallbackSymbol},
        {"Divider", Shortcut::make("", Target::divider()), Image, Divider, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        Glyph glyph = StandardIconRenderer().glyph(row.shortcut, 18);
        EXPECT_EQ(glyph.kind, row.kind);
        EXPECT_EQ(glyph.source, row.source);
        EXPECT_EQ(glyph.name, row.name);
        EXPECT_EQ(glyph.pointSize, 18);
    }
}

TEST(StandardIconRenderer, TintsTemplatesButNotEmojiAndKeepsOpacityInRange)
{
    auto tinted = webLink("W");
    tinted.iconTint = IconTint::colour("#FF0000");
    tinted.iconOpacity = 1.7;
    Glyph glyph = StandardIconRenderer().glyph(tinted, 18);
    EXPECT_EQ(glyph.tint, "#FF0000");
    EXPECT_EQ(glyph.opacity, 1.0);

    tinted.icon = IconOverride::emoji("🙂");
    tinted.iconOpacity = 0.4;
    glyph = StandardIconRenderer().glyph(tinted, 18);
    EXPECT_FALSE(glyph.tint);
    EXPECT_EQ(glyph.opacity, 0.4);
}

TEST(IconNames, EveryVariantOfAnIconListsUnderOneName)
{
    // The theme's files for one icon: full colour, symbolic SVG, GTK's pre-rendered PNG.
    for (const char* stem :
         {"mail-forward", "mail-forward-symbolic", "mail-forward-symbolic.symbolic"}) {
        EXPECT_EQ(baseIconName(stem), "mail-forward") << stem;
    }
    EXPECT_TRUE(isSymbolicName("folder-symbolic"));
    EXPECT_FALSE(isSymbolicName("folder"));
}

TEST(Monogram, TakesOneLetterOrTwoForTwoWordsAndAColourByHost)
{
    struct Case
    {
        const char* name;
        const char* address;
        const char* letters;
    };
    for (const Case& c : {Case{"mail", "https://mail.example/", "M"},
                          Case{"Team wiki pages", "https://wiki.example/", "TW"},
                          Case{"élan vital", "https://e.example/", "éV"},
                          Case{"", "https://news.example.co.uk/", "E"},
                          Case{"\xC2\x9B"
                               "1",
                               "https://x.example/",
                               "1"}}) {
        EXPECT_EQ(monogramFor(c.name, c.address).letters, c.letters) << c.name;
    }
    // One site, one colour, whatever page; the colour is a "#RRGGBB" from the fixed set.
    EXPECT_EQ(monogramFor("A", "https://www.a.example/x").colour,
              monogramFor("B", "http://a.example/y").colour);
    std::set<std::string> colours;
    for (int i = 0; i < 40; ++i) {
        colours.insert(monogramFor("A", "https://s" + std::to_string(i) + ".example/").colour);
    }
    EXPECT_GT(colours.size(), 8u);
    EXPECT_EQ(StandardIconRenderer().glyph(webLink("Docs", "https://d.example/"), 18).monogram,
              monogramFor("Docs", "https://d.example/"));
}
