// SPDX-License-Identifier: MIT
#include "desktop/manager/review_window.h"

#include "desktop/manager/review_model.h"
#include "kit/library/fixtures.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/storage/library_store.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTreeView>

using namespace kit::library;
using namespace kit::proposal;
using desktop::ReviewModel;
using desktop::ReviewWindow;
using kit::storage::LibraryStore;
using kit::storage::SupportDirectory;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

// A showing bar holding Mail and News, and a proposal over it and a new bar: an account to add,
// a new link, Mail renamed and readdressed, News as it stands, a repeated id, a group with two
// members, a file out of reach, and a link for the new bar.
class ReviewWindowTest : public ::testing::Test
{
protected:
    ReviewWindowTest()
        : m_store(SupportDirectory{m_dir.path(), true})
        , m_inbox([](const std::string&) { return std::optional<Bookmark>(); })
    {
        m_store.mutate([&](Library& library) {
            library.add(m_mail);
            library.add(m_news);
        });
    }

    Proposal proposal() const
    {
        Proposal proposal;
        proposal.title = "Tidy the bar";
        proposal.source = "An assistant";
        proposal.sessions.push_back(Session{SessionID::make(), "Work", std::nullopt});

        ProposedBar showing{BarDestination::active(), {}, {}};
        showing.shortcuts.push_back(m_docs);
        ProposedShortcut post = ProposedShortcut::from(m_mail);
        post.name = "Post";
        post.target.url.url = "https://post.example.org/";
        showing.shortcuts.push_back(post);
        showing.shortcuts.push_back(ProposedShortcut::from(m_news));
        showing.shortcuts.push_back(m_docs);
        showing.shortcuts.push_back(ProposedShortcut::from(testing_support::group(
            "Reading", {testing_support::webLink("Papers"), testing_support::webLink("Blogs")})));
        ProposedShortcut notes;
        notes.name = "Notes";
        notes.target = ProposedTarget::file("/elsewhere/notes.txt");
        showing.shortcuts.push_back(notes);
        proposal.bars.push_back(showing);

        ProposedBar made{BarDestination::newBar("Weekend"), {}, {}};
        made.shortcuts.push_back(ProposedShortcut::from(testing_support::webLink("Films")));
        proposal.bars.push_back(made);
        return proposal;
    }

    void receive()
    {
        m_inbox.receive(
            proposal(), [this](const auto& decision) { m_decisions.push_back(decision); }, m_store);
    }

    std::vector<std::string> names() const
    {
        return testing_support::names(m_store.library().shortcuts);
    }

    // The rows under a heading, as "subject | first line of the verdict | box".
    std::vector<std::string> rowsUnder(const ReviewModel& model, const QModelIndex& parent) const
    {
        std::vector<std::string> list;
        for (int i = 0; i < model.rowCount(parent); ++i) {
            const QModelIndex subject = model.index(i, ReviewModel::SubjectColumn, parent);
            const QString verdict =
                model.index(i, ReviewModel::VerdictColumn, parent).data().toString();
            const QVariant box = subject.data(Qt::CheckStateRole);
            list.push_back(subject.data().toString().toStdString() + " | "
                           + verdict.section(QLatin1Char('\n'), 0, 0).toStdString() + " | "
                           + (box.isValid() ? (box.toInt() == Qt::Checked ? "x" : "-") : " "));
        }
        return list;
    }

    QModelIndex showingRow(const ReviewModel& model, int row) const
    {
        return model.index(row, ReviewModel::SubjectColumn, model.index(1, 0));
    }

    testing_support::TempDir m_dir;
    LibraryStore m_store;
    // Before the inbox, which declines a proposal still pending when it goes.
    std::vector<ProposalInbox::Decision> m_decisions;
    ProposalInbox m_inbox;
    Shortcut m_mail = testing_support::webLink("Mail", "https://mail.example.org/");
    Shortcut m_news = testing_support::webLink("News", "https://news.example.org/");
    ProposedShortcut m_docs = ProposedShortcut::from(testing_support::webLink("Docs"));
};

TEST_F(ReviewWindowTest, RowsAreGroupedByBarWithBoxesOnlyWhereSomethingWouldChange)
{
    receive();
    ReviewModel model(m_inbox, m_store);

    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_EQ(model.index(0, 0).data().toString(), "Accounts");
    EXPECT_EQ(model.index(1, 0).data().toString(), "Bar “Shortcuts” (showing)");
    EXPECT_EQ(model.index(2, 0).data().toString(), "New bar “Weekend”");
    EXPECT_TRUE(model.index(1, 0).data(ReviewModel::HeadingRole).toBool());

    EXPECT_THAT(rowsUnder(model, model.index(0, 0)), ElementsAre("Account “Work” | added | x"));
    EXPECT_THAT(rowsUnder(model, model.index(1, 0)),
                ElementsAre("“Docs” | added | x",
                            "“Post” | changed | x",
                            "“News” | unchanged |  ",
                            "“Docs” | refused |  ",
                            "“Reading” | added | x",
                            "“Notes” | needs access |  "));
    // Members sit under their group, each with a box of its own.
    EXPECT_THAT(rowsUnder(model, showingRow(model, 4)),
                ElementsAre("“Papers” | added | x", "“Blogs” | added | x"));
    EXPECT_THAT(rowsUnder(model, model.index(2, 0)), ElementsAre("“Films” | added | x"));

    EXPECT_EQ(model.index(5, ReviewModel::VerdictColumn, model.index(1, 0)).data().toString(),
              "needs access\n/elsewhere/notes.txt: Vantorel has not been given access to it, so it "
              "is left out.");
    EXPECT_EQ(showingRow(model, 3).data(ReviewModel::ToneRole).toInt(),
              int(ReviewRow::Tone::Refused));
}

TEST_F(ReviewWindowTest, UncheckingLeavesTheRowOutAndKeepsTheViewInPlace)
{
    receive();
    ReviewModel model(m_inbox, m_store);
    int resets = 0;
    QObject::connect(&model, &QAbstractItemModel::modelReset, [&] { ++resets; });
    const QPersistentModelIndex docs = showingRow(model, 0);
    const QString before = model.summary();
    EXPECT_THAT(before.toStdString(), HasSubstr("5 shortcuts to add"));

    EXPECT_TRUE(model.setData(docs, Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_TRUE(m_inbox.leftOut().contains(ProposalEntry::shortcut(m_docs.id)));
    EXPECT_EQ(docs.data(Qt::CheckStateRole).toInt(), Qt::Unchecked);
    EXPECT_THAT(model.summary().toStdString(), HasSubstr("4 shortcuts to add"));
    // A box is not a new tree: the person's place in the view survives.
    EXPECT_EQ(resets, 0);
    EXPECT_TRUE(docs.isValid());

    EXPECT_EQ(model.index(0, ReviewModel::VerdictColumn, model.index(1, 0))
                  .data()
                  .toString()
                  .section(QLatin1Char('\n'), 0, 0),
              "left out");

    // A row without a box takes no check.
    EXPECT_FALSE(model.setData(showingRow(model, 2), Qt::Unchecked, Qt::CheckStateRole));

    // A member leaves out only itself.
    EXPECT_TRUE(
        model.setData(model.index(0, 0, showingRow(model, 4)), Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_THAT(rowsUnder(model, showingRow(model, 4)),
                ElementsAre("“Papers” | left out | -", "“Blogs” | added | x"));
    EXPECT_EQ(resets, 0);

    for (const QModelIndex& row : {model.index(0, 0, model.index(0, 0)),
                                   showingRow(model, 1),
                                   showingRow(model, 4),
                                   model.index(0, 0, model.index(2, 0))}) {
        model.setData(row, Qt::Unchecked, Qt::CheckStateRole);
    }
    EXPECT_EQ(model.summary(), "Nothing checked would change your bars.");
    EXPECT_FALSE(model.canApply());
}

TEST_F(ReviewWindowTest, TextFromTheProposalIsShownAsWrittenNeverAsMarkup)
{
    Proposal hostile;
    hostile.title = "<b>Bold</b>\x1b[2K";
    hostile.source = std::string("<img src=x>\0", 12);
    ProposedBar bar{BarDestination::active(), {}, {}};
    bar.shortcuts.push_back(
        ProposedShortcut::from(testing_support::webLink("<i>Mail</i>\x1b[1A", "https://a/<b>")));
    hostile.bars.push_back(bar);
    m_inbox.receive(hostile, {}, m_store);
    ReviewWindow window(m_inbox, m_store);
    window.present();

    EXPECT_EQ(window.titleLabel()->text(), "<b>Bold</b>␛[2K");
    EXPECT_EQ(window.titleLabel()->textFormat(), Qt::PlainText);
    // No accounts, so the showing bar is the first heading.
    const QModelIndex row = window.model().index(0, 0, window.model().index(0, 0));
    EXPECT_EQ(row.data().toString(), "“<i>Mail</i>␛[1A”");
    const QString tip = row.data(Qt::ToolTipRole).toString();
    EXPECT_TRUE(tip.contains("&lt;b&gt;")) << tip.toStdString();
    EXPECT_FALSE(tip.contains("<b>")) << tip.toStdString();
}

TEST_F(ReviewWindowTest, ApplyWritesTheCheckedRowsAndTellsTheProposerOnce)
{
    receive();
    ReviewWindow window(m_inbox, m_store);
    window.present();
    EXPECT_EQ(window.titleLabel()->text(), "Tidy the bar");
    ASSERT_TRUE(window.applyButton()->isEnabled());

    window.model().setData(showingRow(window.model(), 0), Qt::Unchecked, Qt::CheckStateRole);
    EXPECT_EQ(window.summaryLabel()->text(), window.model().summary());
    window.applyButton()->click();

    EXPECT_EQ(names(), (std::vector<std::string>{"Post", "News", "Reading"}));
    ASSERT_EQ(m_decisions.size(), 1u);
    EXPECT_EQ(m_decisions[0].kind, ProposalInbox::Decision::Kind::Applied);
    EXPECT_EQ(m_decisions[0].leftOut, std::vector<std::string>{"Docs"});
    EXPECT_FALSE(m_inbox.isPending());
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(window.titleLabel()->text(), "Nothing to review");

    window.applyButton()->click();
    EXPECT_EQ(m_decisions.size(), 1u);
}

TEST_F(ReviewWindowTest, AnEmptyInboxSaysSoAndAProposalArrivingShowsAndCanBeDismissed)
{
    ReviewWindow window(m_inbox, m_store);
    window.present();
    EXPECT_EQ(window.titleLabel()->text(), "Nothing to review");
    EXPECT_FALSE(window.applyButton()->isEnabled());
    EXPECT_FALSE(window.dismissButton()->isEnabled());
    EXPECT_FALSE(window.view()->isVisible());

    // A proposal arriving while the window is open shows at once.
    receive();
    EXPECT_EQ(window.titleLabel()->text(), "Tidy the bar");
    EXPECT_TRUE(window.view()->isVisible());
    EXPECT_TRUE(window.applyButton()->isEnabled());

    // Dismissing declines it and changes nothing.
    window.dismissButton()->click();
    ASSERT_EQ(m_decisions.size(), 1u);
    EXPECT_EQ(m_decisions[0].kind, ProposalInbox::Decision::Kind::Declined);
    EXPECT_EQ(names(), (std::vector<std::string>{"Mail", "News"}));
    EXPECT_FALSE(window.isVisible());
}

TEST_F(ReviewWindowTest, KeysPutTheWindowAwayToggleRowsAndApply)
{
    receive();
    ReviewWindow window(m_inbox, m_store);
    window.present();
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(&window, &escape);
    EXPECT_FALSE(window.isVisible());
    EXPECT_TRUE(m_inbox.isPending());
    EXPECT_TRUE(m_decisions.empty());

    window.present();
    // Space toggles the box of the row the view stands on: the first one, the account.
    QKeyEvent space(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier);
    QApplication::sendEvent(window.view(), &space);
    EXPECT_EQ(m_inbox.leftOut().size(), 1u);

    QKeyEvent enter(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QApplication::sendEvent(&window, &enter);
    ASSERT_EQ(m_decisions.size(), 1u);
    EXPECT_EQ(m_decisions[0].kind, ProposalInbox::Decision::Kind::Applied);
    EXPECT_EQ(m_decisions[0].leftOut.size(), 1u);
}

TEST_F(ReviewWindowTest, AChangeToTheLibraryIsReviewedAgain)
{
    receive();
    ReviewModel model(m_inbox, m_store);
    m_store.mutate([&](Library& library) {
        Shortcut docs = testing_support::webLink("Docs");
        docs.id = m_docs.id;
        library.add(docs);
    });
    // The review follows once the store's change is over.
    QCoreApplication::processEvents();
    EXPECT_THAT(rowsUnder(model, model.index(1, 0))[0], "“Docs” | unchanged |  ");
}

} // namespace
