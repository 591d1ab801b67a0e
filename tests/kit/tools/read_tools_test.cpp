// SPDX-License-Identifier: MIT
#include "kit/tools/read_tools.h"

#include "kit/tools/tools_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace testing_support;
using kit::tools::ReadTools;
using nlohmann::json;

namespace {

class ReadToolsTest : public ToolsTest
{};

TEST_F(ReadToolsTest, ListBarsSaysWhichIsShowingAndCountsEveryShortcut)
{
    auto bars = answer("list_bars")["bars"];
    ASSERT_EQ(bars.size(), 2u);
    EXPECT_EQ(bars[0],
              (json{{"id", work.string()},
                    {"name", "Work"},
                    {"isShowing", true},
                    {"shortcutCount", 8},
                    {"isReadable", true}}));
    EXPECT_EQ(bars[1]["name"], "Home");
    EXPECT_EQ(bars[1]["isShowing"], false);
    EXPECT_EQ(bars[1]["shortcutCount"], 1);
}

TEST_F(ReadToolsTest, ListShortcutsAnswersTheShowingBarInDocumentShape)
{
    auto a = answer("list_shortcuts");
    EXPECT_EQ(a["bar"], "Work");
    auto shortcuts = a["shortcuts"];
    ASSERT_EQ(shortcuts.size(), 5u);
    EXPECT_EQ(shortcuts[0]["name"], "Mail");
    EXPECT_EQ(shortcuts[0]["target"]["kind"], "group");
    EXPECT_EQ(shortcuts[0]["target"]["members"][0]["target"]["sessionID"], personal.string());
    EXPECT_EQ(shortcuts[0]["target"]["members"][1]["target"]["members"][0]["name"], "Acme");
    EXPECT_EQ(shortcuts[2]["target"], json({{"kind", "divider"}}));
    EXPECT_EQ(shortcuts[3]["target"],
              json({{"kind", "app"}, {"bundleID", "org.gnome.Calculator"}}));
    // A file shows its path, not the grant behind it.
    EXPECT_EQ(shortcuts[4]["target"],
              json({{"kind", "file"}, {"path", "/home/someone/report.pdf"}}));
}

TEST_F(ReadToolsTest, ListShortcutsTakesABarByNameIgnoringCaseOrById)
{
    EXPECT_EQ(answer("list_shortcuts", R"({"bar":"  hOME "})")["shortcuts"][0]["name"], "News");
    EXPECT_EQ(answer("list_shortcuts", R"({"bar":")" + home.string() + R"("})")["bar"], "Home");
}

// People name bars in their own languages; case is ignored beyond ASCII too.
TEST_F(ReadToolsTest, BarNamesIgnoreCaseInOtherScripts)
{
    store->renameBar(home, "Été à Łódź");
    EXPECT_EQ(answer("list_shortcuts", R"({"bar":"ÉTÉ À ŁÓDŹ"})")["bar"], "Été à Łódź");
}

TEST(Folded, LowersWhatItKnowsAndKeepsTheRest)
{
    EXPECT_EQ(kit::tools::folded("Work ÀÉÎÕÜ ÆØÞ"), "work àéîõü æøþ");
    EXPECT_EQ(kit::tools::folded("İstanbul ΑΘΗΝΑ ΟΔΟΣ"), "istanbul αθηνα οδοσ");
    // Broken UTF-8 is kept byte for byte rather than refused.
    EXPECT_EQ(kit::tools::folded("A\xC3\xFF"
                                 "B\xE2\x82"),
              "a\xC3\xFF"
              "b\xE2\x82");
}

TEST_F(ReadToolsTest, GetShortcutLooksOnEveryBarAndSaysItsGroupPath)
{
    auto a = answer("get_shortcut", R"({"id":")" + idOf(acme) + R"("})");
    EXPECT_EQ(a["bar"], "Work");
    EXPECT_EQ(a["path"], "Mail › Clients");
    EXPECT_EQ(a["shortcut"]["name"], "Acme");

    auto top = answer("get_shortcut", R"({"id":")" + idOf(news) + R"("})");
    EXPECT_EQ(top["bar"], "Home");
    EXPECT_TRUE(top["path"].is_null());
}

TEST_F(ReadToolsTest, ListGroupsGivesPathsMemberCountsAndDepths)
{
    auto groups = answer("list_groups")["groups"];
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0],
              (json{{"id", idOf(mail)},
                    {"name", "Mail"},
                    {"path", "Mail"},
                    {"memberCount", 2},
                    {"depth", 0}}));
    EXPECT_EQ(groups[1]["path"], "Mail › Clients");
    EXPECT_EQ(groups[1]["depth"], 1);
    EXPECT_EQ(groups[1]["memberCount"], 1);
}

TEST_F(ReadToolsTest, SearchShortcutsMatchesNamesAndAddressesOnEveryBar)
{
    auto a = answer("search_shortcuts", R"({"query":"EXAMPLE.net"})");
    ASSERT_EQ(a["hits"].size(), 1u);
    EXPECT_EQ(a["hits"][0]["bar"], "Home");
    EXPECT_TRUE(a["hits"][0]["group"].is_null());

    auto inGroup = answer("search_shortcuts", R"({"query":"acme"})")["hits"];
    ASSERT_EQ(inGroup.size(), 1u);
    EXPECT_EQ(inGroup[0]["group"], "Mail › Clients");
}

TEST_F(ReadToolsTest, ListSessionsCountsTheLinksUsingEachAccount)
{
    auto a = answer("list_sessions");
    ASSERT_EQ(a["sessions"].size(), 1u);
    EXPECT_EQ(a["sessions"][0]["name"], "Personal");
    EXPECT_EQ(a["sessions"][0]["shortcutCount"], 1);
    EXPECT_EQ(a["note"], ReadTools::kSessionsNote);
}

TEST_F(ReadToolsTest, GetSettingsSaysTheVersionAndTheBarCount)
{
    auto a = answer("get_settings");
    EXPECT_EQ(a["appVersion"], "1.2.3");
    EXPECT_EQ(a["barCount"], 2);
    EXPECT_EQ(a.size(), 11u);
}

TEST_F(ReadToolsTest, SearchIconsGivesCategoriesAloneOrMatchesUpToTheLimit)
{
    auto a = answer("search_icons");
    EXPECT_TRUE(a["symbols"].empty());
    EXPECT_EQ(a["total"], 6);
    EXPECT_EQ(a["categories"],
              json::parse(R"([{"category":"Actions","count":3},{"category":"Places","count":2},
                              {"category":"Status","count":1}])"));
    EXPECT_EQ(a["note"], ReadTools::kIconsNote);
    EXPECT_EQ(answer("search_icons", R"({"query":"go-"})")["symbols"],
              json({"go-next", "go-previous"}));
    auto places = answer("search_icons", R"({"query":"places","limit":1})");
    EXPECT_EQ(places["symbols"], json({"folder"}));
    EXPECT_EQ(places["total"], 2); // before the limit
    EXPECT_EQ(answer("search_icons", R"({"query":"o","limit":0})")["symbols"].size(), 1u);
}

TEST_F(ReadToolsTest, ListDeepLinksGroupsTheCatalogueByAppAndFilters)
{
    auto all = answer("list_deep_links");
    ASSERT_FALSE(all["apps"].empty());
    EXPECT_EQ(all["note"], ReadTools::kDeepLinksNote);
    for (const auto& app : all["apps"]) {
        EXPECT_FALSE(app["links"].empty());
        EXPECT_EQ(app["installed"], false); // nothing is installed in the empty data folder
    }
    auto slack = answer("list_deep_links", R"({"app":"slack"})")["apps"];
    ASSERT_EQ(slack.size(), 1u);
    EXPECT_EQ(slack[0]["app"], "Slack");
}

class FindAppsTest : public ToolsTest
{
protected:
    FindAppsTest()
    {
        auto data = dir.path() / "data";
        for (int i = 0; i < 60; ++i) {
            put(data / "applications" / ("org.example.App" + std::to_string(i) + ".desktop"),
                "[Desktop Entry]\nType=Application\nName=App " + std::to_string(i) + "\n");
        }
        put(data / "applications/org.gnome.Calculator.desktop",
            "[Desktop Entry]\nName=Calculator\n");
        apps =
            std::make_shared<kit::tools::InstalledApps>(std::vector<std::filesystem::path>{data});
        service = std::make_unique<kit::tools::ToolService>(
            *store, queue, apps, icons, kit::tools::ToolService::Bindings{});
    }
};

TEST_F(FindAppsTest, MatchesNameOrBundleIdAndAnswersAtMostFifty)
{
    auto all = answer("find_apps");
    EXPECT_EQ(all["apps"].size(), 50u);
    EXPECT_EQ(all["total"], 61);
    auto a = answer("find_apps", R"({"query":"gnome"})");
    EXPECT_EQ(a["apps"],
              json::parse(R"([{"bundleID":"org.gnome.Calculator","name":"Calculator"}])"));
    EXPECT_EQ(answer("find_apps", R"({"query":"app 1","limit":3})")["total"], 11);
}

// What only the read tools themselves refuse; the sentences are checked with every tool's.
TEST_F(ReadToolsTest, RefuseOtherToolsAndArgumentsThatAreNoObject)
{
    kit::tools::ToolContext context = service->context();
    EXPECT_THROW(ReadTools::call("add_bar", std::nullopt, context), kit::mcp::ToolError);
    try {
        ReadTools::call("list_bars", std::string("[1]"), context);
        FAIL();
    } catch (const kit::mcp::ToolError& error) {
        EXPECT_EQ(error.kind(), kit::mcp::ToolError::Kind::BadArguments);
    }
}

} // namespace
