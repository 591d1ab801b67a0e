// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_window.h"

#include "desktop/manager/manager_introduction.h"
#include "desktop/manager/manager_outline_model.h"
#include "desktop/manager/review_window.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/settings/app_settings.h"
#include "kit/settings/key_value_store.h"
#include "store_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QPushButton>
#include <QTreeView>

#include <memory>

namespace desktop::testing {

namespace {

using namespace kit::library;
using kit::storage::LibraryStore;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing_support::group;
using testing_support::names;
using testing_support::webLink;

using Pane = ManagerWindow::Pane;

// The showing bar Work (Mail, Reading (Papers)) and the bar Home (Recipes), with a window whose
// editor, questions and alerts are recorded.
class ManagerWindowTest : public ::testing::Test, public StoreHome
{
protected:
    ManagerWindowTest()
    {
        store.renameBar(store.activeBarID(), "Work");
        add({m_mail, m_reading});
    }

    ManagerWindow& window(bool withEditor = true)
    {
        ManagerServices services(store, m_inbox);
        if (withEditor) {
            services.edit = [this](const LibraryStore::EditRequest& request) {
                m_edited.push_back(request.id);
            };
            services.add = [this](const BarID&, Target::Kind, std::optional<ShortcutID> into) {
                m_addedInto.push_back(into);
            };
        }
        services.confirm = [this](const std::string& question, const std::string&) {
            m_questions.push_back(question);
            return m_answer;
        };
        services.alert = [this](const std::string&, const std::string& message) {
            m_alerts.push_back(message);
        };
        m_window = std::make_unique<ManagerWindow>(std::move(services));
        m_window->present();
        return *m_window;
    }

    // Offscreen windows never become active, so the shortcut map never fires: a key goes to the
    // action that owns it, as the map would pick it, or else to the widget.
    static void press(QWidget* target, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        const QKeySequence sequence(QKeyCombination(modifiers, Qt::Key(key)));
        for (QWidget* owner = target; owner; owner = owner->parentWidget()) {
            for (QAction* action : owner->actions()) {
                const bool reaches =
                    owner == target || action->shortcutContext() != Qt::WidgetShortcut;
                if (reaches && action->shortcut() == sequence) {
                    action->trigger();
                    return;
                }
            }
        }
        QKeyEvent event(QEvent::KeyPress, key, modifiers);
        QApplication::sendEvent(target, &event);
    }

    kit::proposal::ProposalInbox m_inbox;
    Shortcut m_mail = webLink("Mail");
    Shortcut m_papers = webLink("Papers");
    Shortcut m_reading = group("Reading", {m_papers});
    Shortcut m_recipes = webLink("Recipes");
    BarID m_home = addBar("Home", {m_recipes});
    std::unique_ptr<ManagerWindow> m_window;
    std::vector<ShortcutID> m_edited;
    std::vector<std::optional<ShortcutID>> m_addedInto;
    std::vector<std::string> m_questions;
    std::vector<std::string> m_alerts;
    bool m_answer = true;
};

TEST(ManagerWindowSaving, AChangeThatCannotBeSavedIsSaidOnceAboveEverything)
{
    testing_support::TempDir dir;
    testing_support::writeFile(dir.file("sessions.json"), "not json");
    LibraryStore store(kit::storage::SupportDirectory{dir.path(), true});
    kit::proposal::ProposalInbox inbox;
    ManagerWindow window(ManagerServices(store, inbox));
    window.present();
    EXPECT_FALSE(window.saveErrorBanner()->isVisible());

    store.addSession("Home");
    EXPECT_TRUE(window.saveErrorBanner()->isVisible());
    EXPECT_EQ(window.saveErrorBanner()->text().toStdString(),
              LibraryStore::heldNotice("sessions.json"));
    EXPECT_EQ(window.saveErrorBanner()->textFormat(), Qt::PlainText);
}

TEST_F(ManagerWindowTest, AnEditRequestOpensTheEditorOnTheShortcutAndIsCleared)
{
    ManagerWindow& manager = window();
    manager.showPane(Pane::Settings);

    store.requestEdit({m_papers.id, {}, {}});
    EXPECT_TRUE(manager.handleEditRequest());
    EXPECT_THAT(m_edited, ElementsAre(m_papers.id));
    EXPECT_EQ(store.editRequest(), std::nullopt);
    EXPECT_EQ(manager.selectedShortcut(), m_papers.id) << "inside its group, opened";
    EXPECT_TRUE(manager.outlineView()->isExpanded(manager.outline().indexOf(m_reading.id)));

    // A shortcut on another bar: that bar shows, since the editor works on the showing bar.
    store.requestEdit({m_recipes.id, {}, {}});
    EXPECT_TRUE(manager.handleEditRequest());
    EXPECT_EQ(store.activeBarID(), m_home);
    EXPECT_EQ(manager.currentBar(), m_home);

    store.requestEdit({ShortcutID::make(), {}, {}});
    EXPECT_FALSE(manager.handleEditRequest());
    EXPECT_EQ(store.editRequest(), std::nullopt);
}

TEST_F(ManagerWindowTest, KeysAddEditRemoveAndMove)
{
    ManagerWindow& manager = window();
    QTreeView* outline = manager.outlineView();

    press(outline, Qt::Key_N, Qt::ControlModifier);
    // With a group or one of its members chosen, a new shortcut goes into that group.
    manager.selectShortcut(m_papers.id);
    manager.addShortcut(Target::Kind::Folder);
    EXPECT_THAT(m_addedInto, ElementsAre(std::nullopt, m_reading.id));

    manager.selectShortcut(m_mail.id);
    manager.editSelected();
    EXPECT_THAT(m_edited, ElementsAre(m_mail.id));

    press(outline, Qt::Key_Down, Qt::ControlModifier);
    EXPECT_THAT(names(store.library().shortcuts), ElementsAre("Reading", "Mail"));
    EXPECT_EQ(manager.selectedShortcut(), m_mail.id) << "the moved row stays chosen";

    press(outline, Qt::Key_Delete);
    EXPECT_THAT(m_questions, ElementsAre("Remove “Mail”?"));
    EXPECT_THAT(names(store.library().shortcuts), ElementsAre("Reading"));

    // Declining keeps everything.
    m_answer = false;
    manager.selectShortcut(m_reading.id);
    manager.removeSelected();
    EXPECT_EQ(m_questions.size(), 2u);
    EXPECT_THAT(names(store.library().shortcuts), ElementsAre("Reading"));
}

TEST_F(ManagerWindowTest, WithoutAnEditorOnlyADividerCanBeAdded)
{
    ManagerWindow& manager = window(false);
    manager.addShortcut(Target::Kind::Url);
    EXPECT_EQ(store.library().shortcuts.size(), 2u);
    manager.selectShortcut(m_reading.id);
    manager.addShortcut(Target::Kind::Divider);
    EXPECT_TRUE(store.library().members(m_reading.id).back().target.isDivider());
}

TEST_F(ManagerWindowTest, TheLastBarStaysAndOthersGoAfterAsking)
{
    ManagerWindow& manager = window();
    manager.showBar(m_home);
    manager.removeCurrentBar();
    EXPECT_EQ(m_questions.size(), 1u);
    EXPECT_EQ(store.bars().size(), 1u);
    EXPECT_EQ(manager.currentBar(), store.activeBarID()) << "moves on to a bar that is there";

    manager.removeCurrentBar();
    EXPECT_EQ(m_questions.size(), 1u) << "not asked: it cannot go";
    EXPECT_EQ(m_alerts.size(), 1u);
}

TEST_F(ManagerWindowTest, TheSidebarSwitchesPanesAndTheShowingBar)
{
    ManagerWindow& manager = window();
    QListView* sidebar = manager.sidebarView();
    sidebar->setCurrentIndex(manager.sidebar().index(manager.sidebar().rowOf(m_home)));
    EXPECT_EQ(manager.currentBar(), m_home);
    EXPECT_THAT(names(manager.outline().library()->shortcuts), ElementsAre("Recipes"));
    manager.showCurrentBarInMenuBar();
    EXPECT_EQ(store.activeBarID(), m_home);

    sidebar->setCurrentIndex(manager.sidebar().index(manager.sidebar().rowOf(Pane::Sessions)));
    EXPECT_EQ(manager.currentPane(), Pane::Sessions);
    EXPECT_EQ(manager.currentBar(), std::nullopt);

    // A rename rebuilds the list; the pane chosen stays chosen.
    store.renameBar(m_home, "House");
    EXPECT_EQ(manager.currentPane(), Pane::Sessions);
    manager.addBar();
    EXPECT_EQ(manager.currentBar(), store.bars().back().id);
}

TEST_F(ManagerWindowTest, TheReviewLivesInTheProposalsPane)
{
    ManagerWindow& manager = window();
    kit::proposal::Proposal proposal;
    kit::proposal::ProposedBar bar{kit::proposal::BarDestination::active(), {}, {}};
    bar.shortcuts.push_back(kit::proposal::ProposedShortcut::from(webLink("Maps")));
    proposal.bars.push_back(bar);
    m_inbox.receive(proposal, {}, store, "Shared.vantorel");

    manager.showPane(Pane::Proposals);
    ASSERT_NE(manager.review(), nullptr);
    EXPECT_TRUE(manager.review()->isVisible());
    EXPECT_EQ(manager.sidebar().index(manager.sidebar().rowOf(Pane::Proposals)).data().toString(),
              "Proposals (1)");

    manager.review()->applyButton()->click();
    EXPECT_THAT(names(store.library().shortcuts), ElementsAre("Mail", "Reading", "Maps"));
    EXPECT_TRUE(manager.isVisible()) << "the manager stays; only the review was done";
    EXPECT_EQ(manager.currentPane(), Pane::Bar);
}

TEST_F(ManagerWindowTest, WarnsUnderABarWithNineIcons)
{
    ManagerWindow& manager = window();
    EXPECT_TRUE(manager.roomNote()->isHidden());
    for (int i = 0; i < 7; ++i) {
        add({webLink("More")});
    }
    EXPECT_FALSE(manager.roomNote()->isHidden());
    EXPECT_EQ(manager.roomNote()->text(), "The menu bar may not have room for all of these.");
}

TEST(ManagerWindowUnreadable, StartsFreshOnlyAfterAsking)
{
    testing_support::TempDir dir;
    const auto file = dir.path() / "library.json";
    testing_support::writeFile(file, "{ not json");
    LibraryStore store(kit::storage::SupportDirectory{dir.path(), true});
    kit::proposal::ProposalInbox inbox;
    bool answer = false;
    std::vector<std::string> questions;
    ManagerServices services(store, inbox);
    services.confirm = [&](const std::string& question, const std::string&) {
        questions.push_back(question);
        return answer;
    };
    ManagerWindow manager(std::move(services));
    manager.present();
    EXPECT_TRUE(manager.startFreshButton()->isVisible());
    EXPECT_FALSE(manager.outlineView()->isVisible());
    EXPECT_FALSE(manager.unreadableMessage()->text().isEmpty());

    manager.startFreshButton()->click();
    ASSERT_EQ(questions.size(), 1u);
    EXPECT_THAT(questions[0], HasSubstr("fresh"));
    store.flush();
    EXPECT_EQ(testing_support::readFile(file), "{ not json");

    answer = true;
    manager.startFreshButton()->click();
    EXPECT_TRUE(manager.outlineView()->isVisible());
    store.flush();
    EXPECT_NE(testing_support::readFile(file), "{ not json");
}

TEST(ManagerIntroductionText, FollowsTheKeysInSettings)
{
    kit::settings::MemoryKeyValueStore values;
    kit::settings::AppSettings settings(values);
    const QString standard = ManagerIntroduction::keysText(settings);
    EXPECT_THAT(standard.toStdString(), HasSubstr("1 to "));
    EXPECT_THAT(standard.toStdString(), HasSubstr("opens the icons' shortcuts as a menu"));

    settings.setShortcutKeys(kit::settings::DigitKeys::Off);
    settings.setMenuHotKey(std::nullopt);
    settings.setWheelSwitchesBars(false);
    const QString fewer = ManagerIntroduction::keysText(settings);
    EXPECT_THAT(fewer.toStdString(), HasSubstr("Number keys for the icons are off"));
    EXPECT_THAT(fewer.toStdString(), ::testing::Not(HasSubstr("icons' shortcuts")));
}

} // namespace

} // namespace desktop::testing
