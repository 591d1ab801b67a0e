// SPDX-License-Identifier: MIT
#include "kit/library/fixtures.h"
#include "kit/library/library_json.h"
#include "kit/proposal/proposal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kit::library;
using namespace kit::proposal;
using namespace testing_support;
using ::testing::HasSubstr;
using Json = nlohmann::json;

namespace {

std::string decodeFailure(const std::string& text)
{
    try {
        Proposal::decode(text);
    } catch (const DecodeError& error) {
        return error.what();
    }
    return "decoded";
}

Proposal serializedAndReadBack(const Proposal& proposal)
{
    return Proposal::decode(proposal.encoded());
}

Shortcut folderShortcut(const std::string& name, const std::string& path)
{
    return Shortcut::make(name,
                          Target::folder(FileTarget{Bookmark{{9, 9}, path}, "org.gnome.Nautilus"}));
}

Shortcut rememberedLink(const std::string& name, SessionID session)
{
    Shortcut s = webLink(name, "https://mail.example.com/");
    s.target.urlTarget()->lastVisitedURL = "https://mail.example.com/inbox/42";
    s.target.urlTarget()->sessionID = session;
    return s;
}

} // namespace

TEST(ProposalDocument, AnEmptyObjectIsAnEmptyProposalOfTheCurrentFormat)
{
    Proposal proposal = Proposal::decode("{}");
    EXPECT_EQ(proposal, Proposal{});
    EXPECT_EQ(proposal.formatVersion, 1);
}

TEST(ProposalDocument, ANewerFormatIsRefusedBeforeAnythingElseIsRead)
{
    EXPECT_EQ(decodeFailure(R"({"formatVersion": 2})"),
              "written by a newer Vantorel (format 2, this build reads up to 1)");
    // The rest of the document would fail too, but the version speaks first.
    EXPECT_EQ(decodeFailure(R"({"formatVersion": 3, "bars": 7})"),
              "written by a newer Vantorel (format 3, this build reads up to 1)");
    // Even when the bars come first and hold what this build cannot read.
    EXPECT_EQ(
        decodeFailure(
            R"({"bars": [{"shortcuts": [{"target": {"kind": "teleport"}}]}], "formatVersion": 3})"),
        "written by a newer Vantorel (format 3, this build reads up to 1)");
    EXPECT_EQ(Proposal::decode(R"({"formatVersion": 0})").formatVersion, 0);
    EXPECT_EQ(Proposal::decode(R"({"formatVersion": -4})").formatVersion, -4);
}

struct MalformedCase
{
    const char* name;
    std::string text;
    std::string message; // a part of the reason
};

class MalformedDocument : public ::testing::TestWithParam<MalformedCase>
{};

TEST_P(MalformedDocument, FailsWithAReason)
{
    EXPECT_THAT(decodeFailure(GetParam().text), HasSubstr(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Reasons,
    MalformedDocument,
    ::testing::Values(
        MalformedCase{"NotJson", "this is not json", "parse error"},
        MalformedCase{"NotAnObject", "[1, 2]", "a document must be an object"},
        MalformedCase{"FileWithoutPath",
                      R"({"bars": [{"shortcuts": [{"target": {"kind": "file"}}]}]})",
                      "a file needs a path"},
        MalformedCase{"FolderWithoutPath",
                      R"({"bars": [{"shortcuts": [{"target": {"kind": "folder"}}]}]})",
                      "a folder needs a path"},
        MalformedCase{"UnknownKind",
                      R"({"bars": [{"shortcuts": [{"target": {"kind": "link"}}]}]})",
                      "unknown target kind: link"},
        MalformedCase{"ShortcutWithoutTarget",
                      R"({"bars": [{"shortcuts": [{"name": "x"}]}]})",
                      "\"target\" is missing"},
        MalformedCase{"UnknownDestination",
                      R"({"bars": [{"destination": {"kind": "other"}}]})",
                      "unknown bar destination kind: other"},
        MalformedCase{"NegativePosition",
                      R"({"bars": [{"shortcuts": [{"name": "x", "target": {"kind": "divider"},
                          "placement": {"kind": "top", "position": -1}}]}]})",
                      "position"},
        MalformedCase{"BadIdentifier", R"({"removeBars": ["nope"]})", "not a valid identifier"},
        MalformedCase{"WrongShape", R"({"moves": {"id": 1}})", "array"},
        MalformedCase{"TooDeepForTheParser",
                      std::string(100000, '[') + std::string(100000, ']'),
                      "nested too deeply"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ProposalDocument, GroupsDeeperThanABarFileMayHoldAreRefused)
{
    auto nested = [](int levels) {
        Json shortcut{{"name", "leaf"}, {"target", {{"kind", "divider"}}}};
        for (int i = 0; i < levels; ++i) {
            shortcut =
                Json{{"name", "g"}, {"target", {{"kind", "group"}, {"members", {shortcut}}}}};
        }
        return Json{{"bars", {{{"shortcuts", {shortcut}}}}}}.dump();
    };
    EXPECT_NO_THROW(Proposal::decode(nested(kMaxGroupDepth)));
    EXPECT_THAT(decodeFailure(nested(kMaxGroupDepth + 1)), HasSubstr("nested deeper"));
}

TEST(ProposalDocument, MissingIdsAreFreshOnEveryReadingAndShortcutsShowByDefault)
{
    const std::string text =
        R"({"bars": [{"shortcuts": [{"target": {"kind": "app", "bundleID": "firefox"}}]}]})";
    Proposal first = Proposal::decode(text);
    Proposal second = Proposal::decode(text);
    const auto& a = first.bars.at(0).shortcuts.at(0);
    const auto& b = second.bars.at(0).shortcuts.at(0);
    EXPECT_NE(a.id, b.id);
    EXPECT_TRUE(a.isInMenuBar);
    EXPECT_EQ(a.name, "");
    EXPECT_EQ(first.bars[0].destination, BarDestination::active());
}

TEST(ProposalDocument, AFileWithOnlyABookmarkTakesItsRecordedPath)
{
    Proposal proposal = Proposal::decode(
        R"({"bars": [{"shortcuts": [{"name": "Notes", "target": {"kind": "file",
            "bookmark": {"data": "AQID", "displayPath": "/home/me/notes.txt"}}}]}]})");
    const ProposedTarget& target = proposal.bars[0].shortcuts[0].target;
    EXPECT_EQ(target.path, "/home/me/notes.txt");
    ASSERT_TRUE(target.bookmark);
    EXPECT_EQ(target.bookmark->data, (Bytes{1, 2, 3}));
}

TEST(ProposalDocument, WritesOnlyTheKeysThatArePresent)
{
    Proposal proposal;
    ProposedShortcut plain{ShortcutID::make(),
                           "Mail",
                           ProposedTarget::app("thunderbird"),
                           {},
                           {},
                           {},
                           true,
                           Placement::top()};
    proposal.bars.push_back({BarDestination::active(), {plain}, {}});
    Json written = Json::parse(proposal.encoded());

    EXPECT_FALSE(written.contains("source"));
    EXPECT_FALSE(written.contains("title"));
    EXPECT_EQ(written["sessions"], Json::array());
    for (const char* key : {"removeBars", "renameBars", "removeSessions", "moves"}) {
        EXPECT_FALSE(written.contains(key)) << key;
    }
    const Json& shortcut = written["bars"][0]["shortcuts"][0];
    EXPECT_EQ(shortcut["isInMenuBar"], true);
    EXPECT_FALSE(shortcut.contains("icon"));
    EXPECT_FALSE(shortcut.contains("iconOpacity"));
    EXPECT_EQ(shortcut["placement"], (Json{{"kind", "top"}}));
    // Pretty, sorted and with plain slashes, as every file is written.
    std::string text =
        Proposal::exportShortcut(webLink("Docs", "https://a.example/b/c"), {}, false).encoded();
    EXPECT_THAT(text, HasSubstr("\"url\": \"https://a.example/b/c\""));
    EXPECT_LT(text.find("\"bars\""), text.find("\"formatVersion\""));
}

TEST(ProposalDocument, ReadingWhatWasWrittenGivesTheSameProposal)
{
    SessionID work = SessionID::make();
    Shortcut link = rememberedLink("Mail", work);
    link.icon = IconOverride::image({0, 255, 7});
    link.iconTint = IconTint::monochrome();
    link.iconOpacity = 0.5;
    link.target.urlTarget()->pageZoom = 1.25;
    link.target.urlTarget()->popoverSize = ContentSize{400.5, 600};
    Shortcut tree = group("Work",
                          {link,
                           folderShortcut("Projects", "/home/me/projects"),
                           group("Inner", {Shortcut::make("", Target::divider())})});

    Proposal proposal =
        Proposal::exportBars({{Bar{BarID::make(), "Home", "library.json"}, Library{1, {tree}}}},
                             {Session{work, "Work", 3}},
                             false,
                             "a test",
                             "Everything");
    ProposedShortcut placed{ShortcutID::make(),
                            "Placed",
                            ProposedTarget::file("/tmp/x", Bookmark{{1}, "/tmp/x"}),
                            IconOverride::emoji("📁"),
                            IconTint::colour("#112233"),
                            1.0,
                            false,
                            Placement::inGroup(tree.id, 2)};
    proposal.bars.push_back(
        {BarDestination::existing(BarID::make()), {placed}, {ShortcutID::make()}});
    proposal.removeBars = {BarID::make()};
    proposal.renameBars = {{BarID::make(), "Renamed"}};
    proposal.removeSessions = {SessionID::make()};
    proposal.moves = {{ShortcutID::make(), BarID::make(), BarDestination::newBar("Later")},
                      {ShortcutID::make(), std::nullopt, BarDestination::active()}};

    ProposedShortcut files;
    files.name = "Files";
    files.target = ProposedTarget::app("org.gnome.Nautilus");
    proposal.bars.back().shortcuts.push_back(files);

    EXPECT_EQ(serializedAndReadBack(proposal), proposal);
    EXPECT_EQ(serializedAndReadBack(proposal).encoded(), proposal.encoded());
    // The streamed coding writes and reads exactly what the tree coding does.
    EXPECT_EQ(proposal.encoded(), kit::proposal::reference::encode(proposal));
    EXPECT_EQ(kit::proposal::reference::decode(proposal.encoded()), proposal);
}

TEST(ProposalExport, ABarWhoseLinksUseNoAccountWritesNoAccountsAndNoRemovals)
{
    Session unused{SessionID::make(), "Unused", 1};
    Library library{1, {webLink("Docs"), fileShortcut("Report", "/home/me/report.pdf")}};
    Proposal proposal = Proposal::exportBars(
        {{Bar{BarID::make(), "Work", "library-1.json"}, library}}, {unused}, false);
    Json written = Json::parse(proposal.encoded());
    EXPECT_EQ(written["sessions"], Json::array());
    EXPECT_FALSE(written.contains("removeBars"));
    ASSERT_EQ(proposal.bars.size(), 1u);
    EXPECT_EQ(proposal.bars[0].destination, BarDestination::newBar("Work"));
    EXPECT_FALSE(proposal.bars[0].shortcuts[0].placement);
    EXPECT_EQ(proposal.bars[0].shortcuts[1].target.path, "/home/me/report.pdf");
}

TEST(ProposalExport, KeepsOnlyTheAccountsInUseInTheGivenOrder)
{
    Session a{SessionID::make(), "A", 0};
    Session b{SessionID::make(), "B", 1};
    Session c{SessionID::make(), "C", 2};
    Library library{1, {group("G", {rememberedLink("x", c.id)}), rememberedLink("y", a.id)}};
    Proposal proposal =
        Proposal::exportBars({{Bar{BarID::make(), "Bar", "f.json"}, library}}, {a, b, c}, false);
    ASSERT_EQ(proposal.sessions.size(), 2u);
    EXPECT_EQ(proposal.sessions[0].name, "A");
    EXPECT_EQ(proposal.sessions[1].name, "C");

    Proposal one = Proposal::exportShortcut(library.shortcuts[0], {a, b, c}, false, "menu");
    ASSERT_EQ(one.sessions.size(), 1u);
    EXPECT_EQ(one.sessions[0].name, "C");
    EXPECT_EQ(one.bars.at(0).destination, BarDestination::active());
    EXPECT_EQ(one.source, "menu");
}

TEST(ProposalExport, APortableExportLeavesOutAccessAndRememberedPagesAtAnyDepth)
{
    SessionID session = SessionID::make();
    Shortcut deep =
        group("Outer",
              {group("Inner",
                     {folderShortcut("Code", "/home/me/code"), rememberedLink("Mail", session)})});
    Library library{1, {deep, folderShortcut("Top", "/srv")}};

    Proposal portable =
        Proposal::exportBars({{Bar{BarID::make(), "B", "f.json"}, library}}, {}, true);
    Proposal full = Proposal::exportBars({{Bar{BarID::make(), "B", "f.json"}, library}}, {}, false);
    for (const ProposedShortcut* s : portable.allShortcuts()) {
        EXPECT_FALSE(s->target.bookmark) << s->name;
        EXPECT_FALSE(s->target.url.lastVisitedURL) << s->name;
    }
    const auto all = portable.allShortcuts();
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[2]->target.path, "/home/me/code");
    EXPECT_EQ(all[2]->target.openWith, "org.gnome.Nautilus");
    EXPECT_EQ(all[3]->target.url.sessionID, session);
    EXPECT_TRUE(full.allShortcuts()[2]->target.bookmark);
    EXPECT_TRUE(full.allShortcuts()[3]->target.url.lastVisitedURL);
}

TEST(ProposalEditing, LeavingOutAGroupTakesItsMembersAndOnlyTheRowsNamed)
{
    ProposedShortcut member{
        ShortcutID::make(), "Member", ProposedTarget::app("a"), {}, {}, {}, true, {}};
    ProposedShortcut outer{
        ShortcutID::make(), "Outer", ProposedTarget::group({member}), {}, {}, {}, true, {}};
    ProposedShortcut other{
        ShortcutID::make(), "Other", ProposedTarget::app("b"), {}, {}, {}, true, {}};
    Proposal proposal;
    proposal.bars.push_back({BarDestination::active(), {outer, other}, {other.id}});
    SessionID session = SessionID::make();
    proposal.sessions = {Session{session, "S", {}}};
    proposal.removeSessions = {session};
    BarID bar = BarID::make();
    proposal.renameBars = {{bar, "x"}};
    proposal.removeBars = {bar};
    proposal.moves = {{other.id, {}, BarDestination::active()}};

    Proposal kept = proposal.leavingOut({ProposalEntry::shortcut(outer.id),
                                         ProposalEntry::session(session),
                                         ProposalEntry::barRename(bar)});
    ASSERT_EQ(kept.allShortcuts().size(), 1u);
    EXPECT_EQ(kept.allShortcuts()[0]->name, "Other");
    EXPECT_EQ(kept.bars[0].removals, std::vector<ShortcutID>{other.id});
    EXPECT_TRUE(kept.sessions.empty());
    EXPECT_TRUE(kept.removeSessions.empty());
    EXPECT_TRUE(kept.renameBars.empty());
    EXPECT_EQ(kept.removeBars.size(), 1u);
    EXPECT_EQ(kept.moves.size(), 1u);

    Proposal noMember =
        proposal.leavingOut({ProposalEntry::shortcut(member.id), ProposalEntry::move(other.id)});
    EXPECT_EQ(noMember.allShortcuts().size(), 2u);
    EXPECT_TRUE(noMember.moves.empty());
}

TEST(ProposalEditing, ReplaceAndReachFindAShortcutInsideGroupsAndKeepItsPlace)
{
    ProposedShortcut file{ShortcutID::make(),
                          "Notes",
                          ProposedTarget::file("/home/me/notes.txt"),
                          {},
                          {},
                          {},
                          true,
                          {}};
    ProposedShortcut inner{
        ShortcutID::make(), "Inner", ProposedTarget::group({file}), {}, {}, {}, true, {}};
    ProposedShortcut last{
        ShortcutID::make(), "Last", ProposedTarget::app("x"), {}, {}, {}, true, {}};
    Proposal proposal;
    proposal.bars.push_back(
        {BarDestination::active(),
         {ProposedShortcut{
              ShortcutID::make(), "Outer", ProposedTarget::group({inner}), {}, {}, {}, true, {}},
          last},
         {}});

    ProposedShortcut edited = file;
    edited.name = "Renamed notes";
    EXPECT_TRUE(proposal.replace(edited));
    EXPECT_EQ(proposal.allShortcuts()[2]->name, "Renamed notes");
    EXPECT_EQ(proposal.allShortcuts()[3]->name, "Last");

    EXPECT_TRUE(proposal.reach(file.id, Bookmark{{4, 2}, "/home/me/moved/notes.txt"}));
    EXPECT_EQ(proposal.allShortcuts()[2]->target.path, "/home/me/moved/notes.txt");
    EXPECT_FALSE(proposal.reach(last.id, Bookmark{{1}, "/x"}));
    EXPECT_FALSE(proposal.replace(ProposedShortcut{}));
}
