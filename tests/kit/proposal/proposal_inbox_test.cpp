// SPDX-License-Identifier: MIT
#include "kit/proposal/proposal_inbox.h"

#include "kit/library/fixtures.h"
#include "kit/proposal/review_rows.h"
#include "kit/proposal/root_grant_store.h"
#include "kit/storage/library_store.h"
#include "support/library_generator.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <unordered_set>

using namespace kit::library;
using namespace kit::proposal;
using namespace kit::storage;
using namespace testing_support;
using ::testing::ElementsAre;

namespace {

using Decision = ProposalInbox::Decision;

ProposedShortcut proposed(const Shortcut& shortcut, std::optional<Placement> placement = {})
{
    ProposedShortcut p = ProposedShortcut::from(shortcut);
    p.placement = placement;
    return p;
}

std::vector<std::string> namesOf(const Library& library)
{
    return names(library.shortcuts);
}

// A store in a temporary folder with two bars; the showing one holds Mail (a group with Inbox),
// Docs and News.
class ProposalInboxTest : public ::testing::Test
{
protected:
    ProposalInboxTest()
    {
        LibraryStore::Options options;
        options.interval = std::chrono::milliseconds(60'000);
        store = std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true}, options);
        work = *store->addSession("Work");
        side = *store->addBar("Side");
        inbox = webLink("Inbox");
        inbox.target.urlTarget()->sessionID = work;
        mail = group("Mail", {inbox});
        store->mutate([&](Library& l) {
            l.add(mail);
            l.add(webLink("Docs"));
            l.add(webLink("News"));
        });
        store->flush();
    }

    ProposalInbox::DecisionCallback record()
    {
        return [this](const Decision& decision) { decisions.push_back(decision); };
    }

    static Proposal onActiveBar(std::vector<ProposedShortcut> shortcuts,
                                std::vector<ShortcutID> removals = {})
    {
        Proposal proposal;
        proposal.bars.push_back(
            {BarDestination::active(), std::move(shortcuts), std::move(removals)});
        return proposal;
    }

    std::map<std::string, std::string> files() const
    {
        std::map<std::string, std::string> out;
        for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
            out[entry.path().filename().string()] = readFile(entry.path());
        }
        return out;
    }

    const Shortcut& shortcutNamed(const std::string& name) const
    {
        for (const Shortcut* s : store->library().allShortcuts()) {
            if (s->name == name) {
                return *s;
            }
        }
        throw std::runtime_error("no " + name);
    }

    TempDir dir;
    std::unique_ptr<LibraryStore> store;
    SessionID work;
    BarID side;
    Shortcut inbox;
    Shortcut mail;
    // Before the inbox: a proposal still pending when the test ends is declined into it.
    std::vector<Decision> decisions;
    ProposalInbox inboxUnderTest;
};

} // namespace

TEST_F(ProposalInboxTest, ASecondProposalReplacesTheFirstAndItsProposerHearsSo)
{
    inboxUnderTest.receive(onActiveBar({proposed(webLink("First"))}), record(), *store);
    std::vector<Decision> second;
    inboxUnderTest.receive(
        onActiveBar({proposed(webLink("Second"))}),
        [&](const Decision& d) { second.push_back(d); },
        *store,
        "second.vantorel");
    ASSERT_EQ(decisions.size(), 1u);
    EXPECT_EQ(decisions[0].kind, Decision::Kind::Replaced);
    ASSERT_TRUE(inboxUnderTest.review());
    ASSERT_EQ(inboxUnderTest.review()->items().size(), 1u);
    EXPECT_EQ(inboxUnderTest.review()->items()[0]->name(), "Second");
    EXPECT_EQ(inboxUnderTest.fileName(), "second.vantorel");
    EXPECT_TRUE(second.empty());
    inboxUnderTest.dismiss();
    EXPECT_EQ(second.size(), 1u);
}

TEST_F(ProposalInboxTest, DecliningChangesNoFileAndTellsTheProposerOnce)
{
    auto before = files();
    int observed = 0;
    inboxUnderTest.observe([&] { ++observed; });
    inboxUnderTest.receive(
        onActiveBar({proposed(webLink("New"))}, {shortcutNamed("Docs").id}), record(), *store);
    inboxUnderTest.dismiss();
    inboxUnderTest.dismiss();
    store->flush();
    EXPECT_EQ(files(), before);
    ASSERT_EQ(decisions.size(), 1u);
    EXPECT_EQ(decisions[0].kind, Decision::Kind::Declined);
    EXPECT_FALSE(inboxUnderTest.isPending());
    EXPECT_EQ(observed, 2);
}

TEST_F(ProposalInboxTest, ApplyingWritesEveryKindOfRowInOrder)
{
    Proposal proposal = onActiveBar({proposed(webLink("Top"), Placement::top(0)),
                                     proposed(webLink("Filed"), Placement::inGroup(mail.id, 0))},
                                    {shortcutNamed("News").id});
    Session renamed{work, "Office", {}};
    proposal.sessions = {renamed, Session{SessionID::make(), "Private", {}}};
    proposal.bars.push_back({BarDestination::newBar("Project"), {proposed(webLink("Plan"))}, {}});
    proposal.moves = {{shortcutNamed("Docs").id, std::nullopt, BarDestination::newBar("Project")}};
    proposal.renameBars = {{side, "Sidebar"}};

    inboxUnderTest.receive(proposal, record(), *store);
    ASSERT_TRUE(inboxUnderTest.apply(*store));

    EXPECT_THAT(namesOf(store->library()), ElementsAre("Top", "Mail"));
    EXPECT_THAT(names(store->library().members(mail.id)), ElementsAre("Filed", "Inbox"));
    ASSERT_EQ(store->bars().size(), 3u);
    EXPECT_EQ(store->bars()[1].name, "Sidebar");
    EXPECT_EQ(store->bars()[2].name, "Project");
    EXPECT_THAT(namesOf(*store->library(store->bars()[2].id)), ElementsAre("Plan", "Docs"));
    ASSERT_EQ(store->sessions().size(), 2u);
    EXPECT_EQ(store->sessions()[0].name, "Office");
    ASSERT_EQ(decisions.size(), 1u);
    EXPECT_EQ(decisions[0].kind, Decision::Kind::Applied);
    EXPECT_TRUE(decisions[0].leftOut.empty());
    EXPECT_FALSE(inboxUnderTest.isPending());
}

TEST_F(ProposalInboxTest, AnApplyThatCouldNotBeSavedSaysSo)
{
    // An account while the account list cannot be read, and a shortcut while the bar's file
    // cannot be written: both are applied in memory, and the proposer hears that they may not last.
    struct Case
    {
        const char* name;
        std::function<void()> block;
        std::function<Proposal()> proposal;
        std::string saying;
    };
    const std::vector<Case> cases{
        {"account list unreadable",
         [&] {
             store.reset();
             writeFile(dir.file("sessions.json"), "not json");
             LibraryStore::Options options;
             options.interval = std::chrono::milliseconds(60'000);
             store = std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true}, options);
         },
         [] {
             Proposal proposal;
             proposal.sessions = {Session{SessionID::make(), "Home", {}}};
             return proposal;
         },
         LibraryStore::heldNotice("sessions.json")},
        {"bar file unwritable",
         [&] {
             // A folder where the file goes: the rename over it fails, whoever runs the test.
             std::filesystem::remove(dir.file("library.json"));
             std::filesystem::create_directory(dir.file("library.json"));
         },
         [] { return onActiveBar({proposed(webLink("Plan"))}); },
         "Could not save “library.json”"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        decisions.clear();
        c.block();
        inboxUnderTest.receive(c.proposal(), record(), *store);
        ASSERT_TRUE(inboxUnderTest.apply(*store));
        ASSERT_EQ(decisions.size(), 1u);
        ASSERT_TRUE(decisions[0].saveError);
        EXPECT_THAT(*decisions[0].saveError, testing::StartsWith(c.saying));
    }
    EXPECT_EQ(readFile(dir.file("sessions.json")), "not json");
}

TEST_F(ProposalInboxTest, UncheckingAGroupLeavesOutItsMembersAndUncheckingARemovalKeepsTheAccount)
{
    Shortcut newGroup = group("Reading", {webLink("Paper")});
    Proposal proposal = onActiveBar({proposed(newGroup), proposed(webLink("Kept"))});
    proposal.removeSessions = {work};
    inboxUnderTest.receive(proposal, record(), *store);
    inboxUnderTest.setLeftOut(ProposalEntry::shortcut(newGroup.id), true, *store);
    inboxUnderTest.setLeftOut(ProposalEntry::session(work), true, *store);
    EXPECT_EQ(inboxUnderTest.review()->items().size(), 3u);
    EXPECT_EQ(inboxUnderTest.applying()->items().size(), 1u);

    ASSERT_TRUE(inboxUnderTest.apply(*store));
    EXPECT_THAT(namesOf(store->library()), ElementsAre("Mail", "Docs", "News", "Kept"));
    EXPECT_EQ(store->sessions().size(), 1u);
    EXPECT_EQ(shortcutNamed("Inbox").target.urlTarget()->sessionID, work);
    EXPECT_THAT(decisions.at(0).leftOut, ElementsAre("Work", "Reading"));
}

TEST_F(ProposalInboxTest, ApplyingWithEveryRowUncheckedWritesNothingAndKeepsItPending)
{
    Shortcut added = webLink("Added");
    inboxUnderTest.receive(onActiveBar({proposed(added)}), record(), *store);
    inboxUnderTest.setLeftOut(ProposalEntry::shortcut(added.id), true, *store);
    auto before = files();
    EXPECT_FALSE(inboxUnderTest.apply(*store));
    store->flush();
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(inboxUnderTest.isPending());
    EXPECT_TRUE(decisions.empty());
}

TEST_F(ProposalInboxTest, ApplyingReviewsAgainstTheLibraryAsItIsNow)
{
    // Reviewed while Mail stands; Mail goes before the person applies.
    inboxUnderTest.receive(onActiveBar({proposed(webLink("Filed"), Placement::inGroup(mail.id)),
                                        proposed(webLink("Loose"))}),
                           record(),
                           *store);
    EXPECT_EQ(inboxUnderTest.review()->items()[0]->verdict, Verdict::added());
    store->mutate([&](Library& l) { l.remove(mail.id); });

    ASSERT_TRUE(inboxUnderTest.apply(*store));
    EXPECT_THAT(namesOf(store->library()), ElementsAre("Docs", "News", "Loose"));
    const ProposalReview& written = *decisions.at(0).review;
    EXPECT_EQ(written.items()[0]->verdict, Verdict::refused(Refusal::UnknownGroup));
}

TEST_F(ProposalInboxTest, PlacingAndMovingOntoOneNewNameMakesOneBar)
{
    Proposal proposal;
    proposal.bars.push_back({BarDestination::newBar("Later"), {proposed(webLink("A"))}, {}});
    proposal.bars.push_back({BarDestination::newBar("Later"), {proposed(webLink("B"))}, {}});
    proposal.moves = {{shortcutNamed("News").id, std::nullopt, BarDestination::newBar("Later")}};
    inboxUnderTest.receive(proposal, record(), *store);
    EXPECT_EQ(ReviewSummary::of(*inboxUnderTest.review()).barsToMake, 1);
    ASSERT_TRUE(inboxUnderTest.apply(*store));
    ASSERT_EQ(store->bars().size(), 3u);
    EXPECT_THAT(namesOf(*store->library(store->bars()[2].id)), ElementsAre("A", "B", "News"));
}

TEST_F(ProposalInboxTest, RemovingTheShowingBarAndAnAccountWithItsLinks)
{
    std::vector<SessionID> removedWithData;
    ProposalInbox withData({}, [&](const SessionID& id) {
        removedWithData.push_back(id);
        store->removeSession(id);
    });
    Proposal proposal;
    proposal.removeBars = {store->activeBarID()};
    proposal.removeSessions = {work};
    withData.receive(proposal, record(), *store);
    EXPECT_EQ(withData.review()->sessions[0].verdict.shortcutCount, 1);
    ASSERT_TRUE(withData.apply(*store));
    EXPECT_THAT(removedWithData, ElementsAre(work));
    ASSERT_EQ(store->bars().size(), 1u);
    EXPECT_EQ(store->bars()[0].name, "Side");
}

TEST_F(ProposalInboxTest, APendingProposalIsDeclinedWhenTheInboxGoes)
{
    {
        ProposalInbox shortLived;
        shortLived.receive(onActiveBar({proposed(webLink("x"))}), record(), *store);
    }
    ASSERT_EQ(decisions.size(), 1u);
    EXPECT_EQ(decisions[0].kind, Decision::Kind::Declined);
}

TEST_F(ProposalInboxTest, PickingTheFileARowNeedsLetsItThrough)
{
    ProposedShortcut file{ShortcutID::make(),
                          "Notes",
                          ProposedTarget::file("/nowhere/notes.txt"),
                          {},
                          {},
                          {},
                          true,
                          {}};
    inboxUnderTest.receive(onActiveBar({file}), record(), *store);
    EXPECT_EQ(inboxUnderTest.review()->items()[0]->verdict,
              Verdict::needsAccess("/nowhere/notes.txt"));
    EXPECT_FALSE(inboxUnderTest.applying()->hasWork());
    ASSERT_TRUE(inboxUnderTest.reach(file.id, Bookmark{{1, 2}, "/nowhere/notes.txt"}, *store));
    EXPECT_EQ(inboxUnderTest.review()->items()[0]->verdict, Verdict::added());
}

TEST(BarReviewApply, ReplacesInPlaceMovesIntoGroupsAndTakesMembersFromWhereTheyStood)
{
    Shortcut loose = webLink("Loose");
    Shortcut folder = group("Folder", {webLink("Old member")});
    Shortcut other = webLink("Other");
    Library library{1, {loose, folder, other}};
    LibrarySnapshot snapshot(library, {});

    ProposedShortcut regrouped = ProposedShortcut::from(folder);
    regrouped.target.members = {ProposedShortcut::from(loose)};
    ProposedShortcut renamed = ProposedShortcut::from(other);
    renamed.name = "Renamed";
    ProposedShortcut first = ProposedShortcut::from(webLink("First"));
    first.placement = Placement::top(0);
    Proposal proposal;
    proposal.bars.push_back({BarDestination::active(), {regrouped, renamed, first}, {}});

    ProposalReview result = review(proposal, snapshot, {});
    result.bars[0].apply(library);
    EXPECT_THAT(names(library.shortcuts), ElementsAre("First", "Folder", "Renamed"));
    EXPECT_THAT(names(library.members(folder.id)), ElementsAre("Loose"));
    EXPECT_TRUE(library.validate({}).empty());
}

// Moves to the end of a group or of the bar are written together when they cannot interfere;
// either way the bar must end as moving them one by one leaves it.
TEST(BarReviewApply, MovesToTheEndEndAsMovingThemOneByOne)
{
    std::mt19937 random(7);
    for (int round = 0; round < 100; ++round) {
        Library library = generateLibrary(40, {}, static_cast<unsigned>(round + 1));
        std::vector<const Shortcut*> all = library.allShortcuts();
        std::vector<ShortcutID> groups;
        for (const Shortcut* s : all) {
            if (s->target.isGroup()) {
                groups.push_back(s->id);
            }
        }
        ASSERT_FALSE(groups.empty());
        std::vector<ProposedShortcut> moves;
        std::unordered_set<ShortcutID> picked;
        for (int i = 0; i < 8; ++i) {
            const Shortcut* s = all[random() % all.size()];
            if (s->target.isGroup() || !picked.insert(s->id).second) {
                continue;
            }
            ProposedShortcut moved = ProposedShortcut::from(*s);
            moved.placement = random() % 4 == 0
                                  ? Placement::top()
                                  : Placement::inGroup(groups[random() % groups.size()]);
            moves.push_back(std::move(moved));
        }
        Proposal proposal;
        proposal.bars.push_back({BarDestination::active(), moves, {}});
        ProposalReview result = review(proposal, LibrarySnapshot(library, {}), {});

        Library oneByOne = library;
        for (const auto& row : result.bars[0].items) {
            if (row.depth == 0 && row.verdict.writes() && row.placement) {
                oneByOne.move(row.id,
                              Library::OutlineDestination{row.placement->groupID(), SIZE_MAX});
            }
        }
        result.bars[0].apply(library);
        ASSERT_EQ(library, oneByOne) << "round " << round;
    }
}

TEST(RootGrantStoreTest, ReachesPathsInsideGrantedFoldersOnly)
{
    TempDir dir;
    std::filesystem::create_directories(dir.file("docs/inner"));
    std::filesystem::create_directories(dir.file("docs-other"));
    {
        RootGrantStore grants(dir.file(RootGrantStore::kFileName));
        EXPECT_TRUE(grants.grant(dir.file("docs")));
        EXPECT_TRUE(grants.grant(dir.file("docs/inner/")));
        EXPECT_FALSE(grants.grant(dir.file("missing")));
        EXPECT_FALSE(grants.grant("relative/path"));
    }
    RootGrantStore again(dir.file(RootGrantStore::kFileName));
    ASSERT_EQ(again.grants().size(), 2u);
    const std::string docs = dir.file("docs").string();
    EXPECT_EQ(again.reach(docs + "/a.txt")->displayPath, docs);
    EXPECT_EQ(again.reach(docs + "/inner/b/c.txt")->displayPath, docs + "/inner");
    EXPECT_EQ(again.reach(docs)->displayPath, docs);
    EXPECT_FALSE(again.reach(dir.file("docs-other/a.txt").string()));
    EXPECT_FALSE(again.reach(docs + "/../docs-other/a.txt"));
    EXPECT_FALSE(again.reach("docs/a.txt"));
    EXPECT_FALSE(again.reach("/etc/shadow"));

    // Links are followed before deciding, and the answer never tells whether a file exists.
    std::filesystem::create_directory_symlink(dir.file("docs-other"), dir.file("docs/out"));
    std::filesystem::create_directory_symlink(dir.file("docs/inner"), dir.file("docs-other/in"));
    writeFile(dir.file("docs/here.txt"), "x");
    writeFile(dir.file("docs-other/there.txt"), "x");
    const std::string other = dir.file("docs-other").string();
    const std::vector<std::pair<std::string, std::optional<std::string>>> cases{
        {docs + "/here.txt", docs},
        {docs + "/missing.txt", docs},
        {docs + "/out/there.txt", std::nullopt},
        {docs + "/out/missing.txt", std::nullopt},
        {docs + "/out/../here.txt", std::nullopt}, // ".." after a link goes from where it leads
        {docs + "/inner/../here.txt", docs},
        {other + "/in/b.txt", docs + "/inner"},
        {other + "/there.txt", std::nullopt},
    };
    for (const auto& [path, grant] : cases) {
        auto reached = again.reach(path);
        EXPECT_EQ(reached ? std::optional(reached->displayPath) : std::nullopt, grant) << path;
    }
    EXPECT_EQ(again.grants()[0].data.size(), 16u);
    EXPECT_TRUE(again.revoke(docs));
    EXPECT_EQ(again.reach(docs + "/a.txt"), std::nullopt);
}

TEST(RootGrantStoreTest, AnUnreadableFileIsNeverWrittenOver)
{
    TempDir dir;
    writeFile(dir.file(RootGrantStore::kFileName), "{not json");
    std::filesystem::create_directories(dir.file("docs"));
    {
        RootGrantStore grants(dir.file(RootGrantStore::kFileName));
        EXPECT_TRUE(grants.isHeld());
        grants.grant(dir.file("docs"));
    }
    EXPECT_EQ(readFile(dir.file(RootGrantStore::kFileName)), "{not json");
}

// An empty new bar is a change of its own: reviewed, checkable, and made when applied.
TEST_F(ProposalInboxTest, ANewEmptyBarIsARowOfItsOwnThatApplyingMakes)
{
    Proposal proposal;
    proposal.bars.push_back({BarDestination::newBar("Projects"), {}, {}});
    inboxUnderTest.receive(proposal, record(), *store);
    ASSERT_TRUE(inboxUnderTest.review());
    EXPECT_TRUE(inboxUnderTest.review()->hasWork());
    EXPECT_EQ(summaryLine(*inboxUnderTest.review()), "1 bar to make");

    auto rows = reviewRows(*inboxUnderTest.review());
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].subject + ": " + rows[0].verdict, "Bar “Projects”: added");
    EXPECT_EQ(rows[0].tone, ReviewRow::Tone::Writes);
    ASSERT_TRUE(rows[0].entry);

    // Unchecked, nothing is left to write; checked again, applying makes the bar once.
    inboxUnderTest.setLeftOut(*rows[0].entry, true, *store);
    EXPECT_FALSE(inboxUnderTest.apply(*store));
    inboxUnderTest.setLeftOut(*rows[0].entry, false, *store);
    size_t before = store->bars().size();
    ASSERT_TRUE(inboxUnderTest.apply(*store));
    ASSERT_EQ(store->bars().size(), before + 1);
    EXPECT_EQ(store->bars().back().name, "Projects");
    ASSERT_EQ(decisions.size(), 1u);
    EXPECT_EQ(decisions[0].kind, Decision::Kind::Applied);
}
