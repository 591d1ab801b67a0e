// SPDX-License-Identifier: MIT
#include "app/terminal_review.h"

#include "kit/library/fixtures.h"
#include "kit/storage/library_store.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace app;
using namespace kit::library;
using namespace kit::proposal;
using kit::storage::LibraryStore;
using kit::storage::SupportDirectory;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// A bar holding Mail and News, and a proposal that adds Docs, renames Mail and keeps News.
class TerminalReviewTest : public ::testing::Test
{
protected:
    TerminalReviewTest()
        : m_store(SupportDirectory{m_dir.path(), true})
        , m_review(m_inbox, m_store, [this](const std::string& text) { m_printed.push_back(text); })
    {
        m_store.mutate([&](Library& library) {
            library.add(m_mail);
            library.add(m_news);
        });
    }

    Proposal proposal() const
    {
        ProposedBar bar{BarDestination::active(), {}, {}};
        bar.shortcuts.push_back(ProposedShortcut::from(testing_support::webLink("Docs")));
        ProposedShortcut renamed = ProposedShortcut::from(m_mail);
        renamed.name = "Post";
        bar.shortcuts.push_back(renamed);
        bar.shortcuts.push_back(ProposedShortcut::from(m_news));
        Proposal proposal;
        proposal.title = "Tidy the bar";
        proposal.source = "An assistant";
        proposal.bars.push_back(bar);
        return proposal;
    }

    // Receives `proposal`, keeping the decision the proposer is told of.
    void receive(const Proposal& proposal)
    {
        m_inbox.receive(
            proposal, [this](const auto& decision) { m_decision = decision; }, m_store);
    }

    std::vector<std::string> names() const
    {
        return testing_support::names(m_store.library().shortcuts);
    }

    testing_support::TempDir m_dir;
    LibraryStore m_store;
    std::optional<ProposalInbox::Decision> m_decision; // outlives the inbox that sets it
    ProposalInbox m_inbox;
    std::vector<std::string> m_printed;
    TerminalReview m_review;
    Shortcut m_mail = testing_support::webLink("Mail", "https://mail.example.org/");
    Shortcut m_news = testing_support::webLink("News", "https://news.example.org/");
};

TEST_F(TerminalReviewTest, AnArrivingProposalIsShownOnceWithNumberedRows)
{
    m_inbox.receive(proposal(), {}, m_store);
    ASSERT_EQ(m_printed.size(), 1u);
    const std::string& shown = m_printed[0];
    EXPECT_THAT(shown, HasSubstr("Tidy the bar\nFrom: An assistant\n"));
    EXPECT_THAT(shown, HasSubstr(" 1. [x] “Shortcuts” › “Docs”: added\n"));
    EXPECT_THAT(shown, HasSubstr(" 2. [x] “Shortcuts” › “Post”: changed\n"));
    EXPECT_THAT(shown, HasSubstr("Name: Mail → Post"));
    // A row that changes nothing has no box to tick.
    EXPECT_THAT(shown, HasSubstr(" 3.     “Shortcuts” › “News”: unchanged\n"));
    EXPECT_THAT(shown, HasSubstr("Type one of: show, uncheck N, check N, apply, decline."));

    m_review.handle("uncheck 1");
    EXPECT_EQ(m_printed.size(), 1u);
    EXPECT_THAT(m_review.handle("show"), HasSubstr(" 1. [ ] “Shortcuts” › “Docs”"));
}

TEST_F(TerminalReviewTest, ApplyingWritesOnlyTheCheckedRowsAndTellsTheProposer)
{
    receive(proposal());

    EXPECT_THAT(m_review.handle("uncheck 1"), HasSubstr("Row 1 is left out."));
    EXPECT_THAT(m_review.handle("uncheck 2"),
                HasSubstr("Row 2 is left out. Nothing checked would change your bars."));
    EXPECT_THAT(m_review.handle("apply"), HasSubstr("Nothing checked would change your bars."));
    EXPECT_FALSE(m_decision);
    EXPECT_TRUE(m_inbox.isPending());

    EXPECT_THAT(m_review.handle("  check 2 "), HasSubstr("Row 2 is checked."));
    EXPECT_EQ(m_review.handle("apply"), "Applied: the checked rows are on your bars now.\n");
    ASSERT_TRUE(m_decision);
    EXPECT_EQ(m_decision->kind, ProposalInbox::Decision::Kind::Applied);
    EXPECT_EQ(m_decision->leftOut, std::vector<std::string>{"Docs"});
    EXPECT_EQ(names(), (std::vector<std::string>{"Post", "News"}));
    EXPECT_EQ(m_review.handle("apply"), "There is no proposal to review.\n");
}

TEST_F(TerminalReviewTest, MistypedCommandsSayWhatWouldWork)
{
    EXPECT_EQ(m_review.handle("apply"), "There is no proposal to review.\n");
    EXPECT_EQ(m_review.handle(""), "");
    m_inbox.receive(proposal(), {}, m_store);
    EXPECT_EQ(m_review.handle("yes"),
              "“yes” is not a command. The commands are: show, uncheck N, check N, apply, "
              "decline.\n");
    EXPECT_EQ(m_review.handle("uncheck 9"), "There is no row 9; the rows go from 1 to 3.\n");
    EXPECT_EQ(m_review.handle("uncheck 0"), "There is no row 0; the rows go from 1 to 3.\n");
    EXPECT_EQ(m_review.handle("uncheck two"), "Give the number of a row, as in “uncheck 2”.\n");
    EXPECT_EQ(m_review.handle("uncheck"), "Give the number of a row, as in “uncheck 2”.\n");
    EXPECT_EQ(m_review.handle("uncheck 3"),
              "Row 3 changes nothing, so there is nothing to uncheck.\n");
    EXPECT_TRUE(m_inbox.leftOut().empty());
}

TEST_F(TerminalReviewTest, RefusedRowsSayWhy)
{
    Proposal refused;
    refused.removeBars.push_back(m_store.activeBarID());
    ShortcutMove move;
    move.id = ShortcutID::make();
    move.to = BarDestination::newBar("Elsewhere");
    refused.moves.push_back(move);
    m_inbox.receive(refused, {}, m_store);
    const std::string shown = m_review.render();
    EXPECT_THAT(shown, HasSubstr("Bar “Shortcuts”: refused\n"));
    EXPECT_THAT(shown, HasSubstr(LibraryStore::kLastBarRefusal));
    EXPECT_THAT(shown, HasSubstr("(unknown shortcut) from ? to “Elsewhere” (new): refused"));
    EXPECT_THAT(shown, Not(HasSubstr("[x]")));
}

TEST_F(TerminalReviewTest, NamesThatTryToHideRowsAreShownAsText)
{
    // A NUL that once ended the output after one row, and escapes that erase the row above.
    const std::vector<std::string> names{std::string("Safe\0", 5) + "; rm",
                                         "\x1b[2K\x1b[1AGone",
                                         "\xff\xfe not text",
                                         "Bidi \u202e evil"};
    Proposal hostile;
    hostile.title = std::string("Title\0\x1b]0;x\x07", 12);
    ProposedBar bar{BarDestination::active(), {}, {m_mail.id, m_news.id}};
    for (const auto& name : names) {
        bar.shortcuts.push_back(ProposedShortcut::from(testing_support::webLink(name)));
    }
    hostile.bars.push_back(bar);
    hostile.removeBars.push_back(m_store.activeBarID());
    m_inbox.receive(hostile, {}, m_store);

    ASSERT_EQ(m_printed.size(), 1u);
    const std::string& shown = m_printed[0];
    for (char c : shown) {
        EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << int(c);
    }
    EXPECT_THAT(shown, HasSubstr("“Safe␀; rm”: added"));
    EXPECT_THAT(shown, HasSubstr("“␛[2K␛[1AGone”: added"));
    EXPECT_THAT(shown, HasSubstr("“�� not text”"));
    EXPECT_THAT(shown, HasSubstr("“Bidi � evil”"));
    EXPECT_THAT(shown, HasSubstr("Title␀␛]0;x␇\n"));
    // Every row, then the summary and the commands, whatever came before.
    EXPECT_THAT(shown, HasSubstr(" 7. "));
    EXPECT_THAT(shown, HasSubstr("Type one of: show, uncheck N, check N, apply, decline."));
}

TEST_F(TerminalReviewTest, AGroupMemberHasItsOwnBoxAndCanBeLeftOut)
{
    Proposal proposal;
    ProposedBar bar{BarDestination::active(), {}, {}};
    bar.shortcuts.push_back(ProposedShortcut::from(
        testing_support::group("Reading",
                               {testing_support::webLink("Paper", "https://paper.example.org/"),
                                testing_support::webLink("Blog", "https://blog.example.org/")})));
    proposal.bars.push_back(bar);
    receive(proposal);

    EXPECT_THAT(m_review.render(), HasSubstr(" 2. [x]   “Shortcuts” › “Paper”: added\n"));
    EXPECT_THAT(m_review.handle("uncheck 2"), HasSubstr("Row 2 is left out."));
    EXPECT_THAT(m_review.handle("show"), HasSubstr(" 2. [ ]   “Shortcuts” › “Paper”: left out\n"));

    // Unchecking the group leaves its members out with it; what applying that writes is the
    // inbox's test.
    m_review.handle("uncheck 1");
    EXPECT_THAT(m_review.handle("show"), HasSubstr(" 3. [ ]   “Shortcuts” › “Blog”: left out\n"));
}

} // namespace
