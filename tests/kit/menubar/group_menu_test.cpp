// SPDX-License-Identifier: MIT
#include "kit/menubar/group_menu.h"

#include "kit/library/fixtures.h"
#include "kit/menubar/fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kit::library;
using namespace kit::menubar;
using namespace testing_support;
using ::testing::ElementsAre;

namespace {

Shortcut line(const std::string& name = {})
{
    return Shortcut::make(name, Target::divider());
}

TEST(GroupMenu, KeepsOnlyLinesThatSeparateSomething)
{
    struct Row
    {
        std::string label;
        std::vector<Shortcut> members;
        std::vector<std::string> titles;
    };
    const Row rows[] = {
        {"Between", {webLink("A"), line(), webLink("B")}, {"A", "---", "B"}},
        {"AtTheEnds", {line(), webLink("A"), line()}, {"A"}},
        {"Doubled", {webLink("A"), line(), line(), webLink("B")}, {"A", "---", "B"}},
        {"Heading", {webLink("A"), line("Work"), webLink("B")}, {"A", "---", "Work", "B"}},
        {"HeadingOverNothing", {webLink("A"), line("Later")}, {"A"}},
        {"Empty", {}, {GroupMenuBuilder::kEmptyTitle}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(titles(Menu{GroupMenuBuilder::rows(row.members, {})}), row.titles);
    }
}

TEST(GroupMenu, NestsGroupsAndOpensTheMemberChosen)
{
    auto deep = webLink("Deep");
    auto g = group("Outer", {webLink("Top"), group("Inner", {deep})});
    std::vector<std::string> opened;
    std::vector<std::string> edited;
    Menu menu = GroupMenuBuilder::menu(
        g,
        [&](const Shortcut& s) { opened.push_back(s.name); },
        [&](const Shortcut& s) { edited.push_back(s.name); });

    ASSERT_THAT(titles(menu), ElementsAre("Top", "Inner", "---", "Edit \u201cOuter\u201d\u2026"));
    const MenuItem& inner = menu.items[1];
    EXPECT_EQ(inner.kind, MenuItem::Kind::Submenu);
    ASSERT_EQ(inner.items.size(), 1u);
    inner.items[0].action();
    menu.items[3].action();
    EXPECT_THAT(opened, ElementsAre("Deep"));
    EXPECT_THAT(edited, ElementsAre("Outer"));
}

TEST(GroupMenu, RowsCarryTheMembersGlyphsWhenGivenARenderer)
{
    StandardIconRenderer icons;
    auto member = webLink("A");
    member.icon = IconOverride::symbol("mail-unread");
    Menu menu =
        GroupMenuBuilder::menu(group("G", {member, line(), group("Inner", {})}), {}, {}, &icons);
    ASSERT_EQ(menu.items.size(), 3u);
    ASSERT_TRUE(menu.items[0].icon);
    EXPECT_EQ(menu.items[0].icon->name, "mail-unread");
    EXPECT_EQ(menu.items[0].icon->pointSize, GroupMenuBuilder::kIconPointSize);
    EXPECT_FALSE(menu.items[1].icon);
    EXPECT_EQ(menu.items[2].icon->name, StandardIconRenderer::kGroupSymbol);

    // Without a renderer no glyphs; without open the rows are greyed, without edit no edit row.
    Menu plain = GroupMenuBuilder::menu(group("G", {member}), {});
    ASSERT_THAT(titles(plain), ElementsAre("A"));
    EXPECT_FALSE(plain.items[0].icon);
    EXPECT_FALSE(plain.items[0].enabled);
}

} // namespace
