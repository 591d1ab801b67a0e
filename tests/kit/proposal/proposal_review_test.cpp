// SPDX-License-Identifier: MIT
#include "kit/proposal/proposal_review.h"

#include "kit/library/fixtures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kit::library;
using namespace kit::proposal;
using namespace testing_support;
using ::testing::ElementsAre;

namespace {

ProposedShortcut proposed(const Shortcut& shortcut, std::optional<Placement> placement = {})
{
    ProposedShortcut p = ProposedShortcut::from(shortcut);
    p.placement = placement;
    return p;
}

ProposedShortcut app(const std::string& name, std::optional<Placement> placement = {})
{
    return ProposedShortcut{ShortcutID::make(),
                            name,
                            ProposedTarget::app("org.example." + name),
                            {},
                            {},
                            {},
                            true,
                            placement};
}

// A snapshot of three bars, the first showing: Mail (a group holding Inbox), Docs, Home folder.
class ProposalReviewTest : public ::testing::Test
{
protected:
    ProposalReviewTest()
        : work{SessionID::make(), "Work", 0}
        , inbox(webLink("Inbox", "https://mail.example.com/"))
        , mail(group("Mail", {}))
        , docs(webLink("Docs", "https://docs.example.com/"))
        , home(Shortcut::make("Home",
                              Target::folder(FileTarget{Bookmark{{1}, "/home/me"}, std::nullopt})))
    {
        inbox.target.urlTarget()->sessionID = work.id;
        mail.target.groupTarget()->members.push_back(inbox);
        bars = {Bar{BarID::make(), "Main", "library.json"},
                Bar{BarID::make(), "Side", "library-a.json"},
                Bar{BarID::make(), "Spare", "library-b.json"}};
    }

    LibrarySnapshot snapshot() const
    {
        return LibrarySnapshot(bars,
                               bars[0].id,
                               {{bars[0].id, Library{1, {mail, docs, home}}},
                                {bars[1].id, Library{1, {webLink("Elsewhere")}}},
                                {bars[2].id, Library{}}},
                               {work});
    }

    ProposalReview reviewOf(const Proposal& proposal, const Reach& reach = {}) const
    {
        return review(proposal, snapshot(), reach);
    }

    static Proposal onActiveBar(std::vector<ProposedShortcut> shortcuts,
                                std::vector<ShortcutID> removals = {})
    {
        Proposal proposal;
        proposal.bars.push_back(
            {BarDestination::active(), std::move(shortcuts), std::move(removals)});
        return proposal;
    }

    Session work;
    Shortcut inbox;
    Shortcut mail;
    Shortcut docs;
    Shortcut home;
    std::vector<Bar> bars;
};

std::vector<Verdict::Kind> verdicts(const BarReview& bar)
{
    std::vector<Verdict::Kind> out;
    for (const auto& item : bar.items) {
        out.push_back(item.verdict.kind);
    }
    return out;
}

} // namespace

TEST_F(ProposalReviewTest, AShortcutProposedExactlyAsItStandsIsUnchangedAndNothingWrites)
{
    ProposalReview result = reviewOf(onActiveBar({proposed(mail), proposed(docs), proposed(home)}));
    ASSERT_EQ(result.bars.size(), 1u);
    EXPECT_EQ(result.bars[0].name, "Main");
    EXPECT_THAT(verdicts(result.bars[0]),
                ElementsAre(Verdict::Kind::Unchanged,
                            Verdict::Kind::Unchanged,
                            Verdict::Kind::Unchanged,
                            Verdict::Kind::Unchanged));
    EXPECT_EQ(result.bars[0].items[1].depth, 1);
    EXPECT_FALSE(result.hasWork());
    EXPECT_EQ(summaryLine(result), "Everything here is already on your bars.");
    EXPECT_EQ(summaryLine(reviewOf(Proposal{})), "The document mentions nothing.");
}

TEST_F(ProposalReviewTest, APortableCopyOfAFileItAlreadyHasNeedsNoGrant)
{
    ProposedShortcut portable = proposed(home);
    portable.target = portable.target.portable();
    ProposalReview result = reviewOf(onActiveBar({portable}));
    EXPECT_EQ(result.bars[0].items[0].verdict, Verdict::unchanged());
}

TEST_F(ProposalReviewTest, TheSecondMentionOfAnIdIsRefusedAsADuplicate)
{
    ProposedShortcut again = proposed(docs);
    again.name = "Docs again";
    ProposalReview result = reviewOf(onActiveBar({proposed(docs), again}));
    ASSERT_EQ(result.bars[0].items.size(), 2u);
    EXPECT_EQ(result.bars[0].items[1].verdict, Verdict::refused(Refusal::Duplicate));
    EXPECT_EQ(description(Refusal::Duplicate), "The document mentions it twice.");
}

// The ids met on the first bar are still known after the second bar's many have been added.
TEST_F(ProposalReviewTest, AnIdMetOnAnEarlierBarIsADuplicateHoweverManyFollow)
{
    Proposal proposal = onActiveBar({proposed(docs)});
    std::vector<ProposedShortcut> many;
    for (int i = 0; i < 40; ++i) {
        many.push_back(app("App" + std::to_string(i)));
    }
    many.push_back(proposed(docs));
    proposal.bars.push_back({BarDestination::existing(bars[2].id), many, {}});
    ProposalReview result = reviewOf(proposal);
    ASSERT_EQ(result.bars.size(), 2u);
    ASSERT_EQ(result.bars[1].items.size(), 41u);
    EXPECT_EQ(result.bars[1].items[39].verdict, Verdict::added());
    EXPECT_EQ(result.bars[1].items[40].verdict, Verdict::refused(Refusal::Duplicate));
}

TEST_F(ProposalReviewTest, AnAccountNamedLikeAnExistingOneIsMatchedAndItsLinksUseTheExistingOne)
{
    Session proposedWork{SessionID::make(), "  work ", {}};
    Session blank{SessionID::make(), "   ", {}};
    Shortcut link = webLink("Calendar", "https://cal.example.com/");
    link.target.urlTarget()->sessionID = proposedWork.id;
    Proposal proposal = onActiveBar({proposed(link)});
    proposal.sessions = {proposedWork, blank, proposedWork};

    ProposalReview result = reviewOf(proposal);
    ASSERT_EQ(result.sessions.size(), 2u);
    EXPECT_EQ(result.sessions[0].verdict.kind, SessionReview::Verdict::Kind::MatchedByName);
    EXPECT_EQ(result.sessions[0].session.id, work.id);
    EXPECT_EQ(result.sessions[1].verdict.kind, SessionReview::Verdict::Kind::Added);
    EXPECT_EQ(result.sessions[1].session.name, "Session");
    const ItemReview& row = result.bars[0].items[0];
    ASSERT_TRUE(row.shortcut());
    EXPECT_EQ(row.shortcut()->target.urlTarget()->sessionID, work.id);
    EXPECT_EQ(result.sessionsToWrite().size(), 1u);
}

TEST_F(ProposalReviewTest, RenamingAnAccountAndRemovingOneTheDocumentAlsoBrings)
{
    Session renamed{work.id, "Office", {}};
    Proposal proposal;
    proposal.sessions = {renamed};
    proposal.removeSessions = {work.id, SessionID::make()};
    ProposalReview result = reviewOf(proposal);
    ASSERT_EQ(result.sessions.size(), 3u);
    EXPECT_EQ(result.sessions[0].verdict.kind, SessionReview::Verdict::Kind::Renamed);
    EXPECT_EQ(result.sessions[0].verdict.from, "Work");
    EXPECT_EQ(result.sessions[1].verdict.refusal, Refusal::Duplicate);
    EXPECT_EQ(result.sessions[2].verdict.refusal, Refusal::UnknownSession);
    EXPECT_TRUE(result.sessionsToRemove().empty());

    Proposal removal;
    removal.removeSessions = {work.id};
    ProposalReview removed = reviewOf(removal);
    EXPECT_EQ(removed.sessions[0].verdict.kind, SessionReview::Verdict::Kind::Removed);
    EXPECT_EQ(removed.sessions[0].verdict.shortcutCount, 1);
    EXPECT_EQ(summaryLine(removed), "1 account to remove, 1 link goes back to the default account");
}

TEST_F(ProposalReviewTest, PlaceLabelsCountFromOneAndNameTheGroup)
{
    Library library = *snapshot().activeLibrary();
    EXPECT_EQ(describe(library, Placement::inGroup(mail.id, 0)), "In \u201CMail\u201D, at 1");
    EXPECT_EQ(describe(library, Placement::top()), "On the bar");
    EXPECT_EQ(describe(library, Placement::inGroup(ShortcutID::make())), "On the bar");
    EXPECT_EQ(describePlace(library, inbox.id), "In \u201CMail\u201D, at 1");
    EXPECT_EQ(describePlace(library, home.id), "On the bar, at 3");
    EXPECT_TRUE(isAlready(library, docs.id, Placement::top(1)));
    EXPECT_TRUE(isAlready(library, inbox.id, Placement::inGroup(mail.id)));
    EXPECT_FALSE(isAlready(library, docs.id, Placement::top(0)));
}

TEST_F(ProposalReviewTest, APlacementAloneIsAMoveAndWithARenameAChange)
{
    ProposalReview moved = reviewOf(onActiveBar({proposed(docs, Placement::inGroup(mail.id, 0))}));
    const ItemReview& row = moved.bars[0].items[0];
    EXPECT_EQ(row.verdict, Verdict::moved());
    EXPECT_THAT(row.changes(),
                ElementsAre(FieldChange{"Place", "On the bar, at 2", "In \u201CMail\u201D, at 1"}));

    ProposedShortcut renamed = proposed(docs, Placement::top(0));
    renamed.name = "Documents";
    ProposalReview changed = reviewOf(onActiveBar({renamed}));
    EXPECT_EQ(changed.bars[0].items[0].verdict, Verdict::changed());
    EXPECT_EQ(changed.bars[0].items[0].changes().size(), 2u);
}

struct PlacementCase
{
    const char* name;
    int group; // 0 unknown, 1 Mail, 2 Docs, 3 the shortcut itself
    Refusal refusal;
};

class PlacementRefusal : public ProposalReviewTest,
                         public ::testing::WithParamInterface<PlacementCase>
{};

TEST_P(PlacementRefusal, IsTheRowsOwnAndLeavesTheRestReviewed)
{
    ProposedShortcut moving = proposed(mail);
    ShortcutID ids[] = {ShortcutID::make(), mail.id, docs.id, mail.id};
    ShortcutID groupID = GetParam().group == 0   ? ids[0]
                         : GetParam().group == 3 ? inbox.id
                                                 : ids[GetParam().group];
    moving.placement = Placement::inGroup(groupID);
    ProposalReview result = reviewOf(onActiveBar({moving, app("Fresh")}));
    EXPECT_EQ(result.bars[0].items[0].verdict, Verdict::refused(GetParam().refusal));
    EXPECT_EQ(result.bars[0].items.back().verdict, Verdict::added());
}

INSTANTIATE_TEST_SUITE_P(Groups,
                         PlacementRefusal,
                         ::testing::Values(PlacementCase{"Unknown", 0, Refusal::UnknownGroup},
                                           PlacementCase{"NotAGroup", 2, Refusal::NotAGroup},
                                           PlacementCase{"Itself", 1, Refusal::GroupInsideItself},
                                           PlacementCase{"InsideItself", 3, Refusal::NotAGroup}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ProposalReviewTest, AGroupCannotGoIntoAGroupInsideIt)
{
    Shortcut inner = group("Inner", {});
    Shortcut outer = group("Outer", {inner});
    LibrarySnapshot one(Library{1, {outer}}, {});
    ProposalReview result =
        review(onActiveBar({proposed(outer, Placement::inGroup(inner.id))}), one, {});
    EXPECT_EQ(result.bars[0].items[0].verdict, Verdict::refused(Refusal::GroupInsideItself));
}

TEST_F(ProposalReviewTest, AFileOutsideEveryGrantedFolderNeedsAccessAndStaysOut)
{
    ProposedShortcut inside{
        ShortcutID::make(), "Inside", ProposedTarget::file("/granted/a.txt"), {}, {}, {}, true, {}};
    ProposedShortcut outside{
        ShortcutID::make(), "Outside", ProposedTarget::folder("/elsewhere"), {}, {}, {}, true, {}};
    // A grant the proposal brings along does not open the way by itself.
    ProposedShortcut smuggled{
        ShortcutID::make(), "Shadow", ProposedTarget::file("/etc/shadow"), {}, {}, {}, true, {}};
    smuggled.target.bookmark = Bookmark{{9, 9}, "/etc/shadow"};
    Reach reach = [](const std::string& path) -> std::optional<Bookmark> {
        if (path.rfind("/granted/", 0) == 0) {
            return Bookmark{{7}, "/granted"};
        }
        return std::nullopt;
    };
    ProposalReview result = reviewOf(onActiveBar({inside, outside, smuggled}), reach);
    EXPECT_EQ(result.bars[0].items[0].verdict, Verdict::added());
    EXPECT_EQ(result.bars[0].items[0].shortcut()->target.fileTarget()->bookmark.displayPath,
              "/granted/a.txt");
    EXPECT_EQ(result.bars[0].items[1].verdict, Verdict::needsAccess("/elsewhere"));
    EXPECT_EQ(result.bars[0].items[1].note(), kNotReachedNote);
    EXPECT_FALSE(result.bars[0].items[1].shortcut());
    EXPECT_EQ(result.bars[0].items[2].verdict, Verdict::needsAccess("/etc/shadow"));
}

TEST_F(ProposalReviewTest, RemovalsCountWhatGoesWithAGroup)
{
    Shortcut full = group("Full", {webLink("a"), group("b", {webLink("c")})});
    Shortcut empty = group("Empty", {});
    Shortcut single = group("Single", {webLink("only")});
    LibrarySnapshot one(Library{1, {full, empty, single}}, {});
    ShortcutID unknown = ShortcutID::make();
    ProposalReview result =
        review(onActiveBar({}, {full.id, empty.id, single.id, full.id, unknown}), one, {});
    const auto& items = result.bars[0].items;
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].note(), "The 3 items inside it go too.");
    EXPECT_FALSE(items[1].note());
    EXPECT_EQ(items[2].note(), "The item inside it goes too.");
    EXPECT_EQ(items[3].verdict, Verdict::refused(Refusal::UnknownShortcut));
    EXPECT_EQ(result.count(Verdict::Kind::Removed), 3);
}

// Rows keep their parts out of line, shared by copies: a copy reads them after the original is
// gone, compares as a value, and a second bar on the same library sees its removals afresh.
TEST_F(ProposalReviewTest, ACopyOfAReviewReadsItsRowsOnItsOwn)
{
    ProposedShortcut renamed = proposed(docs);
    renamed.name = "Documents";
    Proposal proposal = onActiveBar({renamed, app("Notes")}, {mail.id, mail.id});
    proposal.bars.push_back(
        {BarDestination::existing(bars[0].id), {}, {mail.id, ShortcutID::make()}});

    std::optional<ProposalReview> original = reviewOf(proposal);
    ProposalReview copy = *original;
    original.reset();

    ASSERT_EQ(copy.bars.size(), 2u);
    const auto& items = copy.bars[0].items;
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].name(), "Documents");
    EXPECT_THAT(items[0].changes(), ElementsAre(FieldChange{"Name", "Docs", "Documents"}));
    ASSERT_TRUE(items[1].shortcut());
    EXPECT_EQ(items[1].shortcut()->name, "Notes");
    EXPECT_EQ(items[2].name(), "Mail");
    EXPECT_EQ(items[2].note(), "The item inside it goes too.");
    EXPECT_THAT(verdicts(copy.bars[1]),
                ElementsAre(Verdict::Kind::Removed, Verdict::Kind::Refused));
    EXPECT_EQ(copy, reviewOf(proposal));
}

TEST_F(ProposalReviewTest, RemovingEveryBarKeepsTheLastOneListed)
{
    Proposal proposal;
    proposal.removeBars = {bars[0].id, bars[1].id, bars[0].id, bars[2].id, BarID::make()};
    ProposalReview result = reviewOf(proposal);
    ASSERT_EQ(result.barRemovals.size(), 4u);
    EXPECT_EQ(result.barRemovals[0].verdict, Verdict::removed());
    EXPECT_EQ(result.barRemovals[0].shortcutCount, 4);
    EXPECT_EQ(result.barRemovals[1].verdict, Verdict::removed());
    EXPECT_EQ(result.barRemovals[2].verdict, Verdict::refused(Refusal::LastBar));
    EXPECT_EQ(result.barRemovals[3].verdict, Verdict::refused(Refusal::UnknownBar));
    EXPECT_EQ(result.barRemovals[3].name, "");
}

TEST_F(ProposalReviewTest, BarRenamesAreTrimmedAndComparedExactly)
{
    Proposal proposal;
    proposal.renameBars = {{bars[0].id, " Main "},
                           {bars[1].id, "side"},
                           {bars[2].id, "  "},
                           {bars[1].id, "Twice"},
                           {BarID::make(), "x"}};
    ProposalReview result = reviewOf(proposal);
    ASSERT_EQ(result.barRenames.size(), 4u);
    EXPECT_EQ(result.barRenames[0].verdict, Verdict::unchanged());
    EXPECT_EQ(result.barRenames[1].verdict, Verdict::changed());
    EXPECT_EQ(result.barRenames[1].to, "side");
    EXPECT_EQ(result.barRenames[2].verdict, Verdict::refused(Refusal::EmptyName));
    EXPECT_EQ(result.barRenames[3].verdict, Verdict::refused(Refusal::UnknownBar));
}

TEST_F(ProposalReviewTest, MovesFindTheirBarAndRefuseWhatIsNotThere)
{
    Proposal proposal;
    proposal.moves = {{docs.id, std::nullopt, BarDestination::existing(bars[1].id)},
                      {home.id, std::nullopt, BarDestination::active()},
                      {inbox.id, bars[1].id, BarDestination::newBar("New")},
                      {ShortcutID::make(), std::nullopt, BarDestination::active()},
                      {mail.id, std::nullopt, BarDestination::existing(BarID::make())},
                      {docs.id, std::nullopt, BarDestination::newBar("Other")}};
    ProposalReview result = reviewOf(proposal);
    ASSERT_EQ(result.moves.size(), 6u);
    EXPECT_EQ(result.moves[0].verdict, Verdict::moved());
    EXPECT_EQ(result.moves[0].fromName, "Main");
    EXPECT_EQ(result.moves[0].toName, "Side");
    EXPECT_EQ(result.moves[1].verdict, Verdict::unchanged());
    EXPECT_EQ(result.moves[2].verdict, Verdict::refused(Refusal::UnknownShortcut));
    EXPECT_EQ(result.moves[3].verdict, Verdict::refused(Refusal::UnknownShortcut));
    EXPECT_EQ(result.moves[4].verdict, Verdict::refused(Refusal::UnknownBar));
    EXPECT_EQ(result.moves[5].verdict, Verdict::refused(Refusal::Duplicate));
    EXPECT_EQ(summaryLine(result), "1 to move to another bar");
}

TEST_F(ProposalReviewTest, ADestinationWithoutALibraryRefusesTheWholeBar)
{
    LibrarySnapshot missing(bars, bars[0].id, {}, {});
    Proposal proposal = onActiveBar({app("A")});
    proposal.bars.push_back({BarDestination::existing(bars[1].id), {app("B")}, {}});
    ProposalReview result = review(proposal, missing, {});
    ASSERT_EQ(result.bars.size(), 2u);
    EXPECT_EQ(result.bars[0].refusal, Refusal::UnknownBar);
    EXPECT_FALSE(result.bars[0].barID);
    EXPECT_TRUE(result.bars[0].items.empty());
    EXPECT_EQ(result.bars[1].barID, bars[1].id);
    EXPECT_EQ(result.bars[1].name, "");
}

TEST_F(ProposalReviewTest, AMemberChangedInsideAGroupChangesTheGroupToo)
{
    ProposedShortcut group = proposed(mail);
    group.target.members[0].target.url.url = "https://mail.example.com/new";
    group.target.members.push_back(proposed(docs));
    ProposalReview result = reviewOf(onActiveBar({group}));
    const auto& items = result.bars[0].items;
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].verdict, Verdict::changed());
    EXPECT_EQ(items[0].changes()[0].field, "Members");
    EXPECT_EQ(items[0].changes()[0].to, "Inbox, Docs");
    EXPECT_EQ(items[1].verdict, Verdict::changed());
    EXPECT_EQ(items[2].verdict, Verdict::moved());
    EXPECT_EQ(items[2].changes()[0].to, "In \u201CMail\u201D");
}

TEST(ShortcutDifferenceTest, ValuesReadAsThePersonReadsThem)
{
    Session work{SessionID::make(), "Work", 0};
    Shortcut from = webLink("Site");
    Shortcut to = from;
    to.icon = IconOverride::symbol("globe");
    to.iconTint = IconTint::monochrome();
    URLTarget& url = *to.target.urlTarget();
    url.openMode = OpenMode::Popover;
    url.sessionID = work.id;
    url.browserBundleID = "firefox";
    url.pageZoom = 1.25;
    from.target.urlTarget()->sessionID = SessionID::make();
    from.target.urlTarget()->openMode = OpenMode::Window;

    auto changes = ShortcutDifference::changes(from, to, {work});
    EXPECT_THAT(changes,
                ElementsAre(FieldChange{"Icon", "Its own icon", "Symbol globe"},
                            FieldChange{"Colour", "Its own colours", "Without its colours"},
                            FieldChange{"Opens", "In a window", "In a panel"},
                            FieldChange{"Account", "Unknown account", "Work"},
                            FieldChange{"Browser", "The default browser", "firefox"},
                            FieldChange{"Zoom", "Follows the default", "125%"}));

    Shortcut file = fileShortcut("F", "/a");
    Shortcut other = file;
    other.target.fileTarget()->openWith = "gedit";
    other.target.fileTarget()->bookmark.displayPath = "/b";
    EXPECT_THAT(ShortcutDifference::changes(file, other, {}),
                ElementsAre(FieldChange{"Path", "/a", "/b"},
                            FieldChange{"Opens in", "The default app", "gedit"}));
}

TEST(ReviewSummaryTest, PhrasesUseTheSingularOnlyForOne)
{
    ReviewSummary one;
    one.accountsToAdd = 1;
    one.accountsToRename = 2;
    one.toAnotherBar = 2;
    one.linksToDefaultAccount = 3;
    EXPECT_THAT(one.phrases(),
                ElementsAre("1 account to add",
                            "2 accounts to rename",
                            "2 to move to another bar",
                            "3 links go back to the default account"));
}

TEST_F(ProposalReviewTest, AShortcutThatStandsOnAnotherBarIsWrittenUnderANewID)
{
    const ProposedShortcut fresh = app("Fresh");
    const ProposedShortcut docsCopy = proposed(docs);
    const ProposedShortcut inboxCopy = proposed(inbox);
    struct Row
    {
        const char* name;
        BarDestination destination;
        ProposedShortcut shortcut;
        bool keepsID;
    };
    const std::vector<Row> rows = {
        {"new to every bar", BarDestination::existing(bars[1].id), fresh, true},
        {"on the showing bar, proposed for another",
         BarDestination::existing(bars[1].id),
         docsCopy,
         false},
        {"a member on the showing bar", BarDestination::existing(bars[2].id), inboxCopy, false},
        {"on the showing bar, proposed for a new bar",
         BarDestination::newBar("Later"),
         docsCopy,
         false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Proposal proposal;
        proposal.bars.push_back({row.destination, {row.shortcut}, {}});
        ProposalReview result = reviewOf(proposal);
        const ItemReview& item = result.bars[0].items[0];
        ASSERT_EQ(item.verdict, Verdict::added());
        ASSERT_TRUE(item.shortcut());
        EXPECT_EQ(item.shortcut()->id == row.shortcut.id, row.keepsID);
    }
}
