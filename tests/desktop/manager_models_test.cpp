// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_documents.h"
#include "desktop/manager/manager_outline_model.h"
#include "desktop/manager/manager_sessions_model.h"
#include "desktop/manager/manager_sidebar_model.h"
#include "kit/proposal/proposal_inbox.h"
#include "store_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QCoreApplication>
#include <QListWidget>
#include <QMimeData>

#include <chrono>
#include <memory>
#include <thread>

namespace desktop::testing {

namespace {

using namespace kit::library;
using kit::proposal::BarDestination;
using kit::proposal::Proposal;
using kit::storage::LibraryStore;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing_support::group;
using testing_support::names;
using testing_support::webLink;

using Pane = ManagerSidebarModel::Pane;

// A showing bar: Mail, Reading (Papers, Blogs), Tools (Inner (Deep)), News and a divider.
class ManagerOutlineTest : public ::testing::Test, public StoreHome
{
protected:
    ManagerOutlineTest()
    {
        add({m_mail, m_reading, m_tools, webLink("News"), Shortcut::make({}, Target::divider())});
        m_model = std::make_unique<ManagerOutlineModel>(store);
    }

    std::vector<std::string> top() const { return names(store.library().shortcuts); }
    std::vector<std::string> membersOf(const Shortcut& g) const
    {
        return names(store.library().members(g.id));
    }
    bool drop(const Shortcut& shortcut, int row, const QModelIndex& parent)
    {
        std::unique_ptr<QMimeData> data(m_model->mimeData({m_model->indexOf(shortcut.id)}));
        const bool allowed = m_model->canDropMimeData(data.get(), Qt::MoveAction, row, 0, parent);
        m_model->dropMimeData(data.get(), Qt::MoveAction, row, 0, parent);
        return allowed;
    }
    size_t countChanges(const std::function<void()>& action)
    {
        size_t changes = 0;
        const size_t token = store.observe(
            [&](unsigned what) { changes += (what & LibraryStore::LibraryChanged) ? 1 : 0; });
        action();
        store.removeObserver(token);
        return changes;
    }

    Shortcut m_mail = webLink("Mail", "https://mail.example.org/");
    Shortcut m_reading = group("Reading", {webLink("Papers"), webLink("Blogs")});
    Shortcut m_deep = webLink("Deep");
    Shortcut m_inner = group("Inner", {m_deep});
    Shortcut m_tools = group("Tools", {m_inner});
    std::unique_ptr<ManagerOutlineModel> m_model;
};

TEST_F(ManagerOutlineTest, LaysTheBarOutAsATreeAndKeepsOpenGroupsOpenAcrossChanges)
{
    ASSERT_EQ(m_model->rowCount(), 5);
    const QModelIndex reading = m_model->indexOf(m_reading.id);
    EXPECT_EQ(m_model->rowCount(reading), 2);
    EXPECT_EQ(m_model->parent(m_model->index(0, 0, reading)), reading);
    EXPECT_EQ(m_model->index(1, ManagerOutlineModel::DetailColumn).data().toString(),
              "Group · 2 shortcuts");
    EXPECT_EQ(m_model->index(0, ManagerOutlineModel::DetailColumn).data().toString(),
              "Link · https://mail.example.org/");
    EXPECT_EQ(m_model->index(4, 0).data().toString(), "Divider") << "an unnamed divider";
    const QModelIndex inner = m_model->index(0, 0, m_model->indexOf(m_tools.id));
    EXPECT_EQ(m_model->index(0, 0, inner).data(ManagerOutlineModel::IdRole).toString(),
              QString::fromStdString(m_deep.id.string()));
    EXPECT_TRUE(m_model->flags(reading) & Qt::ItemIsDropEnabled);
    EXPECT_FALSE(m_model->flags(m_model->indexOf(m_mail.id)) & Qt::ItemIsDropEnabled);

    m_model->setExpanded(m_reading.id, true);
    m_model->setExpanded(m_tools.id, true);
    EXPECT_EQ(m_model->visibleRows().size(), 5u + 2u + 1u);
    add({webLink("Later")});
    EXPECT_TRUE(m_model->expanded().contains(m_reading.id));
    m_model->remove(m_tools.id);
    EXPECT_FALSE(m_model->expanded().contains(m_tools.id));
    EXPECT_TRUE(m_model->expanded().contains(m_reading.id));
}

TEST_F(ManagerOutlineTest, DropsMoveShortcutsIntoGroupsAndWithinLists)
{
    // Onto a group: at its end.
    EXPECT_TRUE(drop(m_mail, -1, m_model->indexOf(m_reading.id)));
    EXPECT_THAT(membersOf(m_reading), ElementsAre("Papers", "Blogs", "Mail"));
    EXPECT_TRUE(m_model->expanded().contains(m_reading.id)) << "opened to show where it went";

    // Between two members: the view counts the dragged one where it stood.
    EXPECT_TRUE(drop(m_mail, 1, m_model->indexOf(m_reading.id)));
    EXPECT_THAT(membersOf(m_reading), ElementsAre("Papers", "Mail", "Blogs"));

    // Back out to the top level, before News.
    EXPECT_TRUE(drop(m_mail, 2, QModelIndex()));
    EXPECT_THAT(top(), ElementsAre("Reading", "Tools", "Mail", "News", ""));

    // Down within one list lands before the row it was dropped above.
    EXPECT_TRUE(drop(store.library().shortcuts[0], 4, QModelIndex()));
    EXPECT_THAT(top(), ElementsAre("Tools", "Mail", "News", "Reading", ""));
}

TEST_F(ManagerOutlineTest, NeverDropsAGroupIntoItselfOrOntoAShortcutThatIsNoGroup)
{
    const Library before = store.library();
    const QModelIndex tools = m_model->indexOf(m_tools.id);
    EXPECT_FALSE(drop(m_tools, -1, tools));
    EXPECT_FALSE(drop(m_tools, 0, m_model->index(0, 0, tools)));
    EXPECT_FALSE(drop(m_reading, -1, m_model->indexOf(m_mail.id)));
    EXPECT_EQ(store.library(), before);

    // A group goes into another group with everything inside it.
    EXPECT_TRUE(drop(m_tools, 0, m_model->indexOf(m_reading.id)));
    EXPECT_THAT(membersOf(m_reading), ElementsAre("Tools", "Papers", "Blogs"));
    EXPECT_EQ(store.library().parent(m_deep.id), m_inner.id);
}

TEST_F(ManagerOutlineTest, EachChangeIsOneMutationOfTheBar)
{
    EXPECT_EQ(countChanges([&] { EXPECT_TRUE(m_model->duplicate(m_reading.id)); }), 1u);
    EXPECT_EQ(countChanges([&] { EXPECT_FALSE(m_model->moveBy(m_mail.id, -1)); }), 0u)
        << "nothing moves past the top";
    const ShortcutID blogs = m_reading.target.members()[1].id;
    EXPECT_TRUE(m_model->moveBy(blogs, -1));
    EXPECT_THAT(membersOf(m_reading), ElementsAre("Blogs", "Papers"));
    EXPECT_FALSE(m_model->moveBy(blogs, -1)) << "a member stays in its group";
    EXPECT_EQ(
        countChanges([&] { EXPECT_TRUE(m_model->setData(m_model->indexOf(m_mail.id), " Post ")); }),
        1u);
    EXPECT_EQ(store.library().shortcut(m_mail.id)->name, "Post");
}

TEST_F(ManagerOutlineTest, WorksOnABarThatIsNotShowing)
{
    const BarID home = addBar("Home", {webLink("Recipes"), group("Kitchen", {})});
    m_model->setBar(home);
    EXPECT_FALSE(m_model->isShowingBar());
    const auto kitchen = store.library(home)->shortcuts[1];
    ASSERT_TRUE(drop(store.library(home)->shortcuts[0], -1, m_model->indexOf(kitchen.id)));
    EXPECT_THAT(names(store.library(home)->members(kitchen.id)), ElementsAre("Recipes"));
    EXPECT_EQ(store.library().shortcuts.size(), 5u) << "the showing bar is untouched";

    // Moving to another bar takes the shortcut off this one.
    m_model->setBar(store.activeBarID());
    EXPECT_TRUE(m_model->moveToBar(m_reading.id, home));
    EXPECT_EQ(store.library().shortcut(m_reading.id), nullptr);
    EXPECT_NE(store.library(home)->shortcut(m_reading.id), nullptr);
    EXPECT_FALSE(m_model->moveToBar(m_mail.id, store.activeBarID()));
}

// Two bars, Work showing and Home, with the inbox the sidebar counts.
TEST(ManagerSidebarTest, ListsTheBarsThenThePanesAndAddsRenamesAndReordersBars)
{
    StoreHome home;
    auto& store = home.store;
    const BarID workBar = store.activeBarID();
    store.renameBar(workBar, "Work");
    const BarID homeBar = home.addBar("Home");
    kit::proposal::ProposalInbox inbox;
    ManagerSidebarModel model{store, &inbox};
    const auto barNames = [&] {
        std::vector<std::string> result;
        for (const auto& bar : store.bars()) {
            result.push_back(bar.name);
        }
        return result;
    };
    ASSERT_EQ(model.rowCount(), 6);
    EXPECT_TRUE(model.index(0).data(ManagerSidebarModel::ShowingRole).toBool());
    EXPECT_EQ(model.paneAt(2), Pane::Sessions);
    EXPECT_TRUE(model.index(2).data(ManagerSidebarModel::FirstPaneRole).toBool());
    EXPECT_FALSE(model.flags(model.index(3)) & Qt::ItemIsEditable);
    store.activate(homeBar);
    EXPECT_TRUE(model.index(1).data(ManagerSidebarModel::ShowingRole).toBool());

    model.addBar();
    model.addBar();
    EXPECT_TRUE(model.setData(model.index(2), " Weekend "));
    EXPECT_FALSE(model.setData(model.index(2), "  ")) << "a bar keeps a name";
    EXPECT_FALSE(model.setData(model.index(4), "Sessions?"));
    EXPECT_THAT(barNames(), ElementsAre("Work", "Home", "Weekend", "New Bar 2"));
    EXPECT_TRUE(model.moveBar(homeBar, +1));
    EXPECT_THAT(barNames(), ElementsAre("Work", "Weekend", "Home", "New Bar 2"));
    EXPECT_FALSE(model.moveBar(workBar, -1));

    // A drag of Work to the end, then a drop among the panes, which is refused.
    std::unique_ptr<QMimeData> work(model.mimeData({model.index(0)}));
    EXPECT_TRUE(model.canDropMimeData(work.get(), Qt::MoveAction, 4, 0, {}));
    model.dropMimeData(work.get(), Qt::MoveAction, 4, 0, {});
    EXPECT_THAT(barNames(), ElementsAre("Weekend", "Home", "New Bar 2", "Work"));
    EXPECT_FALSE(model.canDropMimeData(work.get(), Qt::MoveAction, 6, 0, {}));
    EXPECT_FALSE(model.canDropMimeData(work.get(), Qt::MoveAction, -1, 0, model.index(1)));
}

// Sessions Work (used by two links) and Home (by none), with a fake engine answering counts.
class ManagerSessionsTest : public ::testing::Test, public StoreHome
{
protected:
    ManagerSessionsTest()
    {
        for (const char* name : {"Mail", "Calendar"}) {
            Shortcut link = webLink(name);
            link.target.urlTarget()->sessionID = m_work;
            add({link});
        }
    }

    SessionData engine()
    {
        SessionData data;
        data.siteCount = [this](const SessionID& id, std::function<void(int)> done) {
            m_pending.emplace_back(id, std::move(done));
        };
        data.clear = [this](const SessionID& id, std::function<void()> done) {
            m_cleared.push_back(id);
            done();
        };
        data.remove = [this](const SessionID& id) { m_removed.push_back(id); };
        return data;
    }

    SessionID m_work = *store.addSession("Work");
    SessionID m_home = *store.addSession("Home");
    std::vector<std::pair<SessionID, std::function<void(int)>>> m_pending;
    std::vector<SessionID> m_cleared;
    std::vector<SessionID> m_removed;
};

// The links are counted off the main thread and their answer is a queued call; only queued calls
// are delivered while waiting, not the timers and deletions an earlier test may have left.
void waitForLinks(ManagerSessionsModel& model)
{
    for (int i = 0; i < 500 && !model.linksCounted(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
    }
    EXPECT_TRUE(model.linksCounted());
}

TEST_F(ManagerSessionsTest, ShowsColoursLinksAndSitesWhenTheEngineCanCount)
{
    ManagerSessionsModel model(store, engine());
    EXPECT_TRUE(m_pending.empty()) << "nothing counted before anyone looks";
    model.startCounting();
    ASSERT_EQ(model.rowCount(), 2);
    EXPECT_EQ(model.index(0).data(ManagerSessionsModel::DetailRole).toString(), "")
        << "nothing shown before the links are counted";
    waitForLinks(model);
    EXPECT_EQ(model.index(0).data(ManagerSessionsModel::ColourRole).toInt(),
              Session::colourIndex(store.sessions()[0]));
    EXPECT_EQ(model.index(0).data(ManagerSessionsModel::DetailRole).toString(), "2 links");

    ASSERT_FALSE(m_pending.empty());
    for (auto& [id, done] : m_pending) {
        done(id == m_work ? 12 : 1);
    }
    EXPECT_EQ(model.index(0).data(ManagerSessionsModel::DetailRole).toString(),
              "2 links · 12 sites");
    EXPECT_EQ(model.index(1).data(ManagerSessionsModel::DetailRole).toString(), "0 links · 1 site");

    // Without an engine there is no count at all, and nothing to clear.
    ManagerSessionsModel bare(store, {});
    waitForLinks(bare);
    EXPECT_EQ(bare.index(0).data(ManagerSessionsModel::DetailRole).toString(), "2 links");
    EXPECT_FALSE(bare.canClearData());
}

TEST_F(ManagerSessionsTest, RenamesClearsAndRemovesThroughTheStoreAndTheEngine)
{
    ManagerSessionsModel model(store, engine());
    model.startCounting();
    EXPECT_TRUE(model.setData(model.index(1), "Family"));
    EXPECT_FALSE(model.setData(model.index(1), ""));
    EXPECT_EQ(store.sessions()[1].name, "Family");
    const size_t asked = m_pending.size();
    model.clearData(m_home);
    EXPECT_THAT(m_cleared, ElementsAre(m_home));
    EXPECT_GT(m_pending.size(), asked) << "counted again once cleared";

    store.mutate(
        [&](Library& library) { library.shortcuts[1].target.urlTarget()->sessionID = m_home; });
    EXPECT_THAT(model.removalQuestion(m_home), HasSubstr("Its 1 link goes back"));
    model.remove(m_work);
    EXPECT_THAT(m_removed, ElementsAre(m_work));
    EXPECT_EQ(model.rowCount(), 1);
    EXPECT_EQ(store.library().shortcuts[0].target.urlTarget()->sessionID, std::nullopt);
    EXPECT_EQ(store.library().shortcuts[1].target.urlTarget()->sessionID, m_home);
}

// A bar with a folder, a link in a session and a group; a second bar, Home.
class ManagerDocumentsTest : public ::testing::Test, public StoreHome
{
protected:
    ManagerDocumentsTest()
    {
        store.renameBar(store.activeBarID(), "Work/Play");
        Shortcut link = webLink("Mail");
        link.target.urlTarget()->sessionID = *store.addSession("Work");
        add({testing_support::fileShortcut("Projects", "/home/me/projects"),
             link,
             group("Reading", {webLink("Papers")})});
    }

    BarID m_home = addBar("Home", {webLink("Recipes")});
};

TEST_F(ManagerDocumentsTest, ExportsBarsAsNewBarsWithTheSessionsTheirLinksUse)
{
    const ExportChoice both{{m_home, store.activeBarID()}, {}, false};
    auto made = ManagerDocuments::make(store, both);
    ASSERT_TRUE(made.document) << made.failure;
    const Proposal& document = *made.document;
    ASSERT_EQ(document.bars.size(), 2u);
    EXPECT_EQ(document.bars[0].destination, BarDestination::newBar("Work/Play")) << "bar order";
    EXPECT_EQ(document.bars[1].destination, BarDestination::newBar("Home"));
    EXPECT_TRUE(document.bars[0].shortcuts[0].target.bookmark.has_value());
    EXPECT_EQ(document.sessions.size(), 1u);
    EXPECT_EQ(ManagerDocuments::fileName(store, both), "Bars.vantorel");
    // What is written reads back the same.
    EXPECT_EQ(ManagerDocuments::write(dir.file("Bars.vantorel"), document), std::nullopt);
    EXPECT_EQ(Proposal::decode(testing_support::readFile(dir.file("Bars.vantorel"))), document);
    EXPECT_EQ(ManagerDocuments::fileName(store, {{store.activeBarID()}, {}, false}),
              "Work-Play.vantorel");
}

TEST_F(ManagerDocumentsTest, ExportsOneShortcutToBeAddedToTheShowingBar)
{
    const Shortcut mail = store.library().shortcuts[1];
    ExportChoice choice{{store.activeBarID()}, mail.id, true};
    auto made = ManagerDocuments::make(store, choice);
    ASSERT_TRUE(made.document);
    ASSERT_EQ(made.document->bars.size(), 1u);
    EXPECT_EQ(made.document->bars[0].destination, BarDestination::active());
    ASSERT_EQ(made.document->bars[0].shortcuts.size(), 1u);
    EXPECT_EQ(made.document->bars[0].shortcuts[0].id, mail.id);
    EXPECT_EQ(ManagerDocuments::fileName(store, choice), "Mail.vantorel");

    store.mutate([&](Library& library) { library.remove(mail.id); });
    EXPECT_EQ(ManagerDocuments::make(store, choice).failure,
              "The shortcut is no longer there to export.");
    EXPECT_EQ(ManagerDocuments::make(store, {}).failure, "Choose at least one bar to export.");
}

TEST_F(ManagerDocumentsTest, TheDialogHandsOnTheCheckedBarsAndThePortableChoice)
{
    ManagerExportDialog dialog(store, {{m_home}, {}, false});
    EXPECT_EQ(dialog.choice().bars, std::vector<BarID>{m_home});
    EXPECT_FALSE(dialog.choice().portable);
    dialog.barList()->item(0)->setCheckState(Qt::Checked);
    dialog.portableBox()->setChecked(true);
    EXPECT_EQ(dialog.choice().bars, (std::vector<BarID>{store.activeBarID(), m_home}));
    EXPECT_TRUE(dialog.choice().portable);
}

} // namespace

} // namespace desktop::testing
