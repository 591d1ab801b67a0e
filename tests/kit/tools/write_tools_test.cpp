// SPDX-License-Identifier: MIT
#include "kit/tools/write_tools.h"

#include "kit/tools/tools_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

using namespace testing_support;
using namespace kit::proposal;
using kit::tools::WriteTools;
using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class WriteToolsTest : public ToolsTest
{
protected:
    WriteTools::Call write(const std::string& name, const std::string& arguments)
    {
        return WriteTools::call(name, arguments, service->context(), "An assistant");
    }

    std::string refusal(const std::string& name, const std::string& arguments)
    {
        try {
            write(name, arguments);
        } catch (const kit::mcp::ToolError& error) {
            return error.message();
        }
        return "no error";
    }

    // The one shortcut a change tool proposes.
    ProposedShortcut changed(const std::string& name, const std::string& arguments)
    {
        auto call = write(name, arguments);
        EXPECT_EQ(call.proposal.bars.size(), 1u);
        EXPECT_EQ(call.proposal.bars.at(0).shortcuts.size(), 1u);
        return call.proposal.bars.at(0).shortcuts.at(0);
    }

    std::string withId(const Shortcut& shortcut, const std::string& rest = "")
    {
        return R"({"id":")" + idOf(shortcut) + "\"" + (rest.empty() ? "" : "," + rest) + "}";
    }
};

TEST_F(WriteToolsTest, AddShortcutsProposesOnTheShowingBarOrANamedOne)
{
    auto call = write(
        "add_shortcuts",
        R"({"shortcuts":[{"name":"Wiki","target":{"kind":"url","url":"https://wiki.example.com/"}}]})");
    ASSERT_EQ(call.proposal.bars.size(), 1u);
    EXPECT_EQ(call.proposal.bars[0].destination, BarDestination::active());
    EXPECT_EQ(call.proposal.source, "An assistant");
    EXPECT_EQ(call.answer.status, WriteTools::Status::Waiting);
    ASSERT_EQ(call.answer.items.size(), 1u);
    EXPECT_EQ(call.answer.items[0].verdict, "added");

    auto named = write(
        "add_shortcuts",
        R"({"bar":"home","title":"Reading","shortcuts":[{"target":{"kind":"divider"}},{"name":"B","target":{"kind":"divider"}}]})");
    EXPECT_EQ(named.proposal.bars[0].destination, BarDestination::existing(home));
    EXPECT_EQ(named.answer.title, "Reading");

    // New accounts come along.
    const std::string id = SessionID::make().string();
    auto withAccount = write(
        "add_shortcuts",
        R"({"sessions":[{"id":")" + id
            + R"(","name":"Side"}],"shortcuts":[{"name":"S","target":{"kind":"url","url":"https://s.example.com/","sessionID":")"
            + id + R"("}}]})");
    ASSERT_EQ(withAccount.proposal.sessions.size(), 1u);
    EXPECT_EQ(withAccount.proposal.sessions[0].name, "Side");
    EXPECT_THAT(withAccount.answer.newSessions, ElementsAre("Side"));
}

TEST_F(WriteToolsTest, MoveShortcutPlacesInAGroupOrAtTheTop)
{
    auto moved =
        changed("move_shortcut", withId(docs, R"("group":")" + idOf(mail) + R"(","position":0)"));
    EXPECT_EQ(moved.placement, Placement::inGroup(mail.id, 0));
    EXPECT_EQ(changed("move_shortcut", withId(acme)).placement, Placement::top());
}

TEST_F(WriteToolsTest, OnlyAWebAddressOpensInThePanelOrAWindow)
{
    Shortcut zoom = webLink("Zoom", "zoommtg://zoom.us/join?confno=1");
    store->mutate([&](Library& l) { l.add(zoom); });
    EXPECT_EQ(refusal("set_open_mode", withId(zoom, R"("openMode":"popover")")),
              "The arguments could not be read: “Zoom” is not a web address, so it can only open "
              "in its app (system).");
    EXPECT_EQ(changed("set_open_mode", withId(zoom, R"("openMode":"system")")).target.url.openMode,
              OpenMode::System);
    EXPECT_EQ(changed("set_open_mode", withId(docs, R"("openMode":null)")).target.url.openMode,
              std::nullopt);
}

TEST_F(WriteToolsTest, ChangeToolsProposeTheShortcutWithOneThingChanged)
{
    auto renamed = changed("rename_shortcut", withId(acme, R"("name":"Acme Ltd")"));
    EXPECT_EQ(renamed.id, acme.id);
    EXPECT_EQ(renamed.name, "Acme Ltd");
    EXPECT_EQ(renamed.target, ProposedTarget::from(acme.target));
    EXPECT_FALSE(renamed.placement.has_value());

    auto icon =
        write("set_icon",
              withId(docs, R"("icon":{"kind":"symbol","value":"folder"},"colour":"#aabbcc")"));
    const auto& withIcon = icon.proposal.bars[0].shortcuts[0];
    EXPECT_EQ(withIcon.icon, IconOverride::symbol("folder"));
    EXPECT_EQ(withIcon.iconTint, IconTint::colour("#AABBCC"));
    EXPECT_EQ(icon.answer.items.at(0).verdict, "changed");

    auto hidden = write("show_in_menu_bar", withId(docs, R"("shown":false)"));
    EXPECT_FALSE(hidden.proposal.bars[0].shortcuts[0].isInMenuBar);
}

TEST_F(WriteToolsTest, SetAccountNamesAnAccountMakesAMissingOneOrClears)
{
    EXPECT_EQ(changed("set_account", withId(docs, R"("session":"personal")")).target.url.sessionID,
              personal);
    auto made = write("set_account", withId(docs, R"("session":"Clients")"));
    ASSERT_EQ(made.proposal.sessions.size(), 1u);
    EXPECT_EQ(made.proposal.sessions[0].name, "Clients");
    EXPECT_EQ(made.proposal.bars[0].shortcuts[0].target.url.sessionID,
              made.proposal.sessions[0].id);
    EXPECT_EQ(changed("set_account", withId(inbox, R"("session":null)")).target.url.sessionID,
              std::nullopt);
    auto priv = changed("set_account", withId(inbox, R"("private":true)"));
    EXPECT_TRUE(priv.target.url.isPrivate);
    EXPECT_EQ(priv.target.url.sessionID, personal); // untouched without the key
}

TEST_F(WriteToolsTest, LinkOptionsChangeOnlyWhatIsGivenAndNullClears)
{
    store->mutate([&](Library& l) {
        Shortcut zoomed = *l.shortcut(docs.id);
        zoomed.target.urlTarget()->pageZoom = 1.5;
        zoomed.target.urlTarget()->blocksAds = false;
        l.update(zoomed);
    });
    auto kept = changed("set_link_options", withId(docs, R"("staysOnTop":true)")).target.url;
    EXPECT_TRUE(kept.staysOnTop);
    EXPECT_EQ(kept.pageZoom, 1.5);
    EXPECT_EQ(kept.blocksAds, false);

    auto cleared =
        changed(
            "set_link_options",
            withId(
                docs,
                R"("pageZoom":null,"blocksAds":true,"windowSize":{"width":800,"height":600},"userAgent":"firefox","appearance":"dark","newWindowLinks":"thisPage")"))
            .target.url;
    EXPECT_EQ(cleared.pageZoom, std::nullopt);
    EXPECT_EQ(cleared.blocksAds, true);
    EXPECT_EQ(cleared.windowSize, (ContentSize{800, 600}));
    EXPECT_EQ(cleared.userAgent, BrowserAgent::Firefox);
    EXPECT_EQ(cleared.pageAppearance, PageAppearance::Dark);
    EXPECT_EQ(cleared.newWindowLinks, NewWindowLinks::ThisPage);
}

TEST_F(WriteToolsTest, MoveToBarTakesAnExistingBarOrMakesOne)
{
    auto existing = write("move_to_bar", withId(docs, R"("to":"HOME")"));
    ASSERT_EQ(existing.proposal.moves.size(), 1u);
    EXPECT_EQ(existing.proposal.moves[0].from, work);
    EXPECT_EQ(existing.proposal.moves[0].to, BarDestination::existing(home));

    auto made = write("move_to_bar", withId(docs, R"("to":" Travel ")"));
    EXPECT_EQ(made.proposal.moves[0].to, BarDestination::newBar("Travel"));
}

// The title heads the review; the lists say what happens to bars and accounts.
TEST_F(WriteToolsTest, EachToolTitlesItsProposalAndListsWhatItDoes)
{
    const std::string wiki =
        R"({"shortcuts":[{"name":"Wiki","target":{"kind":"url","url":"https://w.example/"}}]})";
    const std::string icon = R"({"id":"$Docs","icon":{"kind":"symbol","value":"folder"}})";
    const std::string renameHome =
        R"({"renameBars":[{"id":")" + home.string() + R"(","name":"House"}]})";
    const std::vector<std::array<std::string, 4>> rows = {
        {"add_shortcuts", wiki, "Add “Wiki”", ""},
        {"add_group", R"({"name":"Reading"})", "Add the group “Reading”", ""},
        {"set_icon", icon, "Change the icon of “Docs”", ""},
        {"show_in_menu_bar", R"({"id":"$Docs","shown":false})", "“Docs” off the menu bar", ""},
        {"show_in_menu_bar", R"({"id":"$Docs","shown":true})", "“Docs” in the menu bar", ""},
        {"move_to_bar", R"({"id":"$Docs","to":"HOME"})", "Move “Docs” to “Home”", "Docs → Home"},
        {"move_to_bar",
         R"({"id":"$Docs","to":" Travel "})",
         "Move “Docs” to “Travel”",
         "Travel; Docs → Travel"},
        {"rename_bar", R"({"bar":"home","name":"House"})", "Rename the bar “Home”", "Home → House"},
        {"remove_bar", R"({"bar":"Home"})", "Remove the bar “Home”", "Home (1 shortcut)"},
        {"add_session", R"({"name":"Club"})", "Add the account “Club”", "Club"},
        {"rename_session",
         R"({"session":"Personal","name":"Me"})",
         "Rename the account “Personal”",
         ""},
        {"remove_session",
         R"({"session":")" + personal.string() + R"("})",
         "Remove the account “Personal”",
         "Personal (1 link goes back to the default account)"},
        {"remove_shortcuts", R"({"ids":["$Mail"]})", "Remove “Mail”", ""},
        {"propose", renameHome, "Proposed changes", "Home → House"},
    };
    for (const auto& [tool, arguments, title, lists] : rows) {
        SCOPED_TRACE(tool + " " + arguments);
        const auto answer = write(tool, withIds(arguments)).answer;
        EXPECT_EQ(answer.title, title);
        std::string said;
        for (const auto* list : {&answer.newBars,
                                 &answer.removedBars,
                                 &answer.renamedBars,
                                 &answer.moves,
                                 &answer.newSessions,
                                 &answer.removedSessions}) {
            for (const auto& line : *list) {
                said += (said.empty() ? "" : "; ") + line;
            }
        }
        EXPECT_EQ(said, lists);
    }
}

TEST_F(WriteToolsTest, RemovingTheOnlyBarIsRefusedInTheAnswer)
{
    store->removeBar(home);
    auto call = write("remove_bar", R"({"bar":"Work"})");
    EXPECT_EQ(call.answer.status, WriteTools::Status::Nothing);
    ASSERT_EQ(call.answer.items.size(), 1u);
    EXPECT_EQ(call.answer.items[0].verdict, "refused");
    EXPECT_EQ(call.answer.items[0].detail,
              "The last bar stays; there would be nowhere to put a shortcut.");
    EXPECT_THAT(call.answer.hints, ElementsAre(HasSubstr("Refused entries were left out")));
}

TEST_F(WriteToolsTest, AFileOutOfReachIsNamedInItsDetailAndTheHint)
{
    auto call = write(
        "add_shortcuts",
        R"({"shortcuts":[{"name":"Notes","target":{"kind":"file","path":"/srv/notes.txt"}}]})");
    ASSERT_EQ(call.answer.items.size(), 1u);
    EXPECT_EQ(call.answer.items[0].verdict, "out of reach");
    EXPECT_EQ(call.answer.items[0].detail,
              "Vantorel has no access to /srv/notes.txt, so it is left out. The person can grant "
              "the folder in Vantorel under Advanced, Folders Vantorel may reach.");
    EXPECT_THAT(call.answer.hints,
                ElementsAre(::testing::StartsWith("Out of reach: /srv/notes.txt. ")));
}

TEST_F(WriteToolsTest, ProposeKeepsTheCallersSourceOverTheDocuments)
{
    auto call = write("propose",
                      R"({"source":"elsewhere","renameBars":[{"id":")" + home.string()
                          + R"(","name":"House"}]})");
    EXPECT_EQ(call.proposal.source, "An assistant");
}

// The rows are written as text by hand; every name must come out as the tree would write it.
TEST(WriteToolsAnswer, RowsAreWrittenAsTheTreeWritesThem)
{
    const std::vector<std::string> names = {
        "Plain",
        "",
        "Say \"hi\" \\ there",
        std::string("tab\tnew\nline\x01\x1f\x7f"),
        "Caf\xc3\xa9 \xe2\x80\xae bidi",
        "bad \xff\xc3 bytes \xed\xa0\x80",
        R"("items":[])",
    };
    WriteTools::Answer answer;
    answer.title = R"(T "items":[] it)";
    answer.message = "M";
    answer.hints = {"h"};
    for (const auto& name : names) {
        answer.items.push_back({name, name, "changed", std::nullopt});
        answer.items.push_back({"i", "n", "refused", name});
    }
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    for (const auto& item : answer.items) {
        nlohmann::ordered_json j{{"id", item.id}, {"name", item.name}, {"verdict", item.verdict}};
        if (item.detail) {
            j["detail"] = *item.detail;
        }
        items.push_back(std::move(j));
    }
    using Strings = std::vector<std::string>;
    nlohmann::ordered_json tree{{"status", "nothing"},
                                {"title", answer.title},
                                {"message", "M"},
                                {"items", items},
                                {"newBars", Strings{}},
                                {"removedBars", Strings{}},
                                {"renamedBars", Strings{}},
                                {"moves", Strings{}},
                                {"newSessions", Strings{}},
                                {"removedSessions", Strings{}},
                                {"hints", Strings{"h"}},
                                {"leftOut", Strings{}}};
    const auto replace = nlohmann::ordered_json::error_handler_t::replace;
    EXPECT_EQ(answer.encoded(), tree.dump(-1, ' ', false, replace));
    answer.items.clear();
    tree["items"] = nlohmann::ordered_json::array();
    EXPECT_EQ(answer.encoded(), tree.dump(-1, ' ', false, replace));
}

TEST_F(WriteToolsTest, DecisionsBecomeTheirAnswers)
{
    auto first = write("rename_shortcut", withId(docs, R"("name":"Documents")")).answer;
    using Decision = ProposalInbox::Decision;
    auto applied = first.decided(Decision{Decision::Kind::Applied, {}, {"Docs"}, {}});
    EXPECT_EQ(applied.status, WriteTools::Status::Applied);
    EXPECT_THAT(applied.leftOut, ElementsAre("Docs"));
    EXPECT_EQ(applied.message, WriteTools::message(WriteTools::Status::Applied, true));
    EXPECT_THAT(applied.hints,
                ElementsAre("The person unchecked these before applying, so they were not done: "
                            "Docs. That was their choice; do not propose them again unless they "
                            "ask."));

    // Applied in memory but not on disk: the assistant must not believe it lasts.
    auto unsaved =
        first.decided(Decision{Decision::Kind::Applied,
                               {},
                               {},
                               "Could not save “library.json”: No space left on device."});
    EXPECT_EQ(unsaved.status, WriteTools::Status::Applied);
    EXPECT_THAT(unsaved.message,
                testing::HasSubstr("could not be saved yet (Could not save “library.json”: No "
                                   "space left on device.)"));
}

} // namespace
