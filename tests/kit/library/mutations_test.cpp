// SPDX-License-Identifier: MIT
#include "kit/library/fixtures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kit::library;
using namespace testing_support;
using ::testing::ElementsAre;

namespace {

// A, G1[B, G2[C]], D
class LibraryTree : public ::testing::Test
{
protected:
    void SetUp() override
    {
        Shortcut g2 = group("G2", {webLink("C")});
        Shortcut g1 = group("G1", {webLink("B"), g2});
        library.add(webLink("A"));
        library.add(g1);
        library.add(webLink("D"));
        a = library.shortcuts[0].id;
        g1ID = library.shortcuts[1].id;
        b = library.shortcuts[1].target.members()[0].id;
        g2ID = library.shortcuts[1].target.members()[1].id;
        c = library.shortcuts[1].target.members()[1].target.members()[0].id;
        d = library.shortcuts[2].id;
    }

    std::vector<std::string> flatNames() const
    {
        std::vector<std::string> result;
        for (const Shortcut* s : library.allShortcuts()) {
            result.push_back(s->name);
        }
        return result;
    }

    Library library;
    ShortcutID a, g1ID, b, g2ID, c, d;
};

} // namespace

TEST_F(LibraryTree, AnswersTreeQuestions)
{
    EXPECT_THAT(flatNames(), ElementsAre("A", "G1", "B", "G2", "C", "D"));
    EXPECT_EQ(library.parent(c), g2ID);
    EXPECT_THAT(library.ancestors(c), ElementsAre(g1ID, g2ID));
    EXPECT_EQ(library.depth(c), 2);
    EXPECT_EQ(library.depth(ShortcutID::make()), std::nullopt);
    EXPECT_TRUE(library.isSelfOrInside(c, g1ID));
    EXPECT_FALSE(library.isSelfOrInside(g1ID, g2ID));
    EXPECT_EQ(library.groups().size(), 2u);
    EXPECT_THAT(names(library.members(g1ID)), ElementsAre("B", "G2"));
}

TEST_F(LibraryTree, OutlineShowsOnlyExpandedGroups)
{
    auto rows = library.outline({});
    ASSERT_EQ(rows.size(), 3u);
    rows = library.outline({g1ID});
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(rows[3].id, g2ID);
    EXPECT_EQ(rows[3].depth, 1);
    EXPECT_TRUE(rows[3].isMember());
    rows = library.outline({g1ID, g2ID});
    ASSERT_EQ(rows.size(), 6u);
    EXPECT_EQ(rows[4].id, c);
    EXPECT_EQ(rows[4].parent, g2ID);
    // An expanded group inside a collapsed one stays hidden.
    EXPECT_EQ(library.outline({g2ID}).size(), 3u);
}

TEST_F(LibraryTree, DuplicateCopiesWithFreshIdsRightAfterTheOriginal)
{
    auto copy = library.duplicate(g1ID);
    ASSERT_TRUE(copy);
    EXPECT_THAT(names(library.shortcuts), ElementsAre("A", "G1", "G1 copy", "D"));
    const Shortcut* duplicate = library.shortcut(*copy);
    ASSERT_NE(duplicate, nullptr);
    EXPECT_EQ(duplicate->target.members()[0].name, "B");
    EXPECT_NE(duplicate->target.members()[0].id, b);
    EXPECT_TRUE(library.validate({}).empty()) << "ids must stay unique";
    EXPECT_EQ(library.duplicate(ShortcutID::make()), std::nullopt);

    library.add(Shortcut::make("", Target::divider()));
    library.duplicate(library.shortcuts.back().id);
    EXPECT_EQ(library.shortcuts.back().name, "");
}

TEST_F(LibraryTree, RemoveTakesAGroupWithItsMembers)
{
    library.remove(g2ID);
    EXPECT_THAT(flatNames(), ElementsAre("A", "G1", "B", "D"));
    library.remove(g1ID);
    EXPECT_THAT(flatNames(), ElementsAre("A", "D"));
}

TEST(MoveOffsets, InsertsBeforeTheItemThatStoodAtTheOffset)
{
    struct Row
    {
        std::vector<size_t> from;
        size_t to;
        std::vector<int> expected;
    };
    const std::vector<Row> rows = {
        {{0}, 2, {1, 0, 2, 3}},
        {{0}, 4, {1, 2, 3, 0}},
        {{0, 2}, 4, {1, 3, 0, 2}},
        {{1}, 1, {0, 1, 2, 3}},
        {{9}, 0, {0, 1, 2, 3}},
    };
    for (const auto& row : rows) {
        std::vector<int> list{0, 1, 2, 3};
        moveOffsets(list, row.from, row.to);
        EXPECT_EQ(list, row.expected) << "to " << row.to;
    }
}

TEST_F(LibraryTree, AddMemberChecksGroupKindAndIds)
{
    auto code = [&](Shortcut member, ShortcutID into) {
        try {
            library.addMember(std::move(member), into);
        } catch (const LibraryError& error) {
            return error.code();
        }
        return static_cast<LibraryError::Code>(-1);
    };
    EXPECT_EQ(code(webLink("X"), ShortcutID::make()), LibraryError::Code::UnknownShortcut);
    EXPECT_EQ(code(webLink("X"), a), LibraryError::Code::NotAGroup);
    Shortcut again = webLink("B again");
    again.id = b;
    EXPECT_EQ(code(again, g2ID), LibraryError::Code::DuplicateID);
    // A group whose member repeats an id already present is refused too.
    Shortcut carrying = group("Carrier", {again});
    EXPECT_EQ(code(carrying, g2ID), LibraryError::Code::DuplicateID);

    library.addMember(webLink("First"), g1ID, 0);
    library.addMember(webLink("Last"), g1ID);
    library.addMember(webLink("Far"), g1ID, 99);
    EXPECT_THAT(names(library.members(g1ID)), ElementsAre("First", "B", "G2", "Last", "Far"));
}

TEST_F(LibraryTree, MovesNeverPutAGroupInsideItself)
{
    EXPECT_FALSE(library.move(g1ID, Library::OutlineDestination{g2ID, 0}));
    EXPECT_FALSE(library.move(g1ID, Library::OutlineDestination{g1ID, 0}));
    EXPECT_FALSE(library.move(a, Library::OutlineDestination{d, 0})) << "not a group";
    EXPECT_THAT(flatNames(), ElementsAre("A", "G1", "B", "G2", "C", "D"));

    auto holders = library.groupsThatCanHold(g1ID);
    EXPECT_TRUE(holders.empty());
    holders = library.groupsThatCanHold(g2ID);
    ASSERT_EQ(holders.size(), 1u);
    EXPECT_EQ(holders[0]->id, g1ID);
    EXPECT_EQ(library.groupsThatCanHold(a).size(), 2u);

    library.move(g1ID, c); // into its own member: refused
    EXPECT_THAT(flatNames(), ElementsAre("A", "G1", "B", "G2", "C", "D"));
}

TEST_F(LibraryTree, MoveToADestinationCountsAfterRemoval)
{
    EXPECT_TRUE(library.move(a, Library::OutlineDestination{std::nullopt, 2}));
    EXPECT_THAT(names(library.shortcuts), ElementsAre("G1", "D", "A"));
    EXPECT_TRUE(library.move(d, Library::OutlineDestination{g2ID, 0}));
    EXPECT_THAT(flatNames(), ElementsAre("G1", "B", "G2", "D", "C", "A"));
    EXPECT_TRUE(library.move(c, Library::OutlineDestination{std::nullopt, 0}));
    EXPECT_THAT(names(library.shortcuts), ElementsAre("C", "G1", "A"));
}

TEST_F(LibraryTree, MoveToPositionOfTakesThatPlace)
{
    library.move(a, d); // down in one list: after
    EXPECT_THAT(names(library.shortcuts), ElementsAre("G1", "D", "A"));
    library.move(a, g1ID); // up: before
    EXPECT_THAT(names(library.shortcuts), ElementsAre("A", "G1", "D"));
    library.move(d, c); // into another list: before
    EXPECT_THAT(names(library.members(g2ID)), ElementsAre("D", "C"));
}

TEST_F(LibraryTree, ChangesApplyToTheKindsTheyFit)
{
    library.apply(change::OpenModeTo{OpenMode::Window}, c);
    library.apply(change::Zoom{7.0}, c);
    library.apply(change::UserAgent{BrowserAgent::Custom, "Bot/2"}, c);
    library.apply(change::ShowInMenuBar{false}, g1ID);
    library.apply(change::OpenModeTo{OpenMode::Window}, g1ID); // not a link: ignored
    const URLTarget* url = library.shortcut(c)->target.urlTarget();
    EXPECT_EQ(url->openMode, OpenMode::Window);
    EXPECT_EQ(url->pageZoom, 3.0);
    EXPECT_EQ(url->customUserAgent, "Bot/2");
    EXPECT_FALSE(library.shortcut(g1ID)->isInMenuBar);
    EXPECT_TRUE(library.shortcut(g1ID)->target.isGroup());

    library.add(fileShortcut("Doc", "/tmp/doc.txt"));
    ShortcutID doc = library.shortcuts.back().id;
    library.apply(change::OpenWith{"org.gnome.TextEditor"}, doc);
    library.apply(change::OpenWith{"ignored"}, a);
    EXPECT_EQ(library.shortcut(doc)->target.fileTarget()->openWith, "org.gnome.TextEditor");
}

TEST_F(LibraryTree, ForgettingASessionReachesIntoGroups)
{
    SessionID work = SessionID::make();
    library.apply(change::Account{work}, c);
    library.apply(change::Account{work}, a);
    EXPECT_EQ(library.sessionIDsInUse().size(), 1u);
    library.forget(work);
    EXPECT_TRUE(library.sessionIDsInUse().empty());
}

TEST_F(LibraryTree, RepairKeepsTheFirstOfDuplicatesAndDropsDanglingSessions)
{
    // C appears again at the top level, before its group: the top-level one comes first.
    Shortcut cAgain = *library.shortcut(c);
    cAgain.name = "C top";
    library.shortcuts.insert(library.shortcuts.begin(), cAgain);
    SessionID gone = SessionID::make();
    library.apply(change::Account{gone}, d);

    auto violations = library.validate({});
    ASSERT_EQ(violations.size(), 2u);
    EXPECT_EQ(violations[0], Violation::duplicateShortcut(c));
    EXPECT_EQ(violations[0].description(), "duplicate shortcut " + c.string());
    EXPECT_EQ(violations[1].description(),
              "session " + gone.string() + " on shortcut " + d.string() + " does not exist");

    EXPECT_EQ(library.repair({}).size(), 2u);
    EXPECT_EQ(library.shortcut(c)->name, "C top");
    EXPECT_TRUE(library.members(g2ID).empty());
    EXPECT_FALSE(library.shortcut(d)->target.urlTarget()->sessionID.has_value());
    EXPECT_TRUE(library.repair({}).empty());
}

TEST(Repair, IdsStayUniqueAcrossBars)
{
    Library first;
    first.add(webLink("Shared"));
    Library second;
    second.add(first.shortcuts[0]);
    second.add(webLink("Own"));
    std::unordered_set<ShortcutID> seen;
    Library a = first.repaired(seen, {});
    Library b = second.repaired(seen, {});
    EXPECT_EQ(a.shortcuts.size(), 1u);
    EXPECT_THAT(names(b.shortcuts), ElementsAre("Own"));
}
