// SPDX-License-Identifier: MIT
#include "desktop/editor/editor_dialog.h"

#include "desktop/editor/shortcut_editor.h"
#include "desktop/tray/qt_icon_renderer.h"
#include "desktop_environment.h"
#include "kit/library/fixtures.h"
#include "kit/opening/target_factory.h"
#include "kit/tools/icon_provider.h"
#include "kit/tools/installed_apps.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScreen>
#include <QSpinBox>

namespace desktop::editor {
namespace {

using kit::library::Library;
using kit::library::OpenMode;
using kit::library::Shortcut;
using kit::library::Target;
using kit::storage::LibraryStore;
using kit::storage::SupportDirectory;

using testing_support::webTarget;

class NoIcons final : public kit::tools::IconProvider
{
public:
    kit::tools::IconList icons() override
    {
        return std::make_shared<const std::vector<kit::tools::IconEntry>>();
    }
};

// The text a person types: the control changes and says it was edited.
void type(QWidget* field, const QString& text)
{
    auto* edit = qobject_cast<QLineEdit*>(field);
    ASSERT_TRUE(edit);
    edit->setText(text);
    Q_EMIT edit->textEdited(text);
}

void chooseData(QWidget* field, const QVariant& data)
{
    auto* box = qobject_cast<QComboBox*>(field);
    ASSERT_TRUE(box);
    const int index = box->findData(data);
    ASSERT_GE(index, 0) << data.toString().toStdString();
    box->setCurrentIndex(index);
}

void press(QWidget* widget, int key)
{
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
    QApplication::sendEvent(widget, &event);
}

// A form holding a hidden row writes past its tables in Qt 6.4: rows that go are taken out.
bool everyFormRowShows(const QWidget& window)
{
    for (const auto* form : window.findChildren<QFormLayout*>()) {
        for (int row = 0; row < form->rowCount(); ++row) {
            if (!form->isRowVisible(row)) {
                return false;
            }
        }
    }
    return true;
}

// A showing bar with one link and a group, an account, and an editor over them.
class ShortcutEditorTest : public ::testing::Test
{
protected:
    ShortcutEditorTest()
        : m_store(SupportDirectory{m_dir.path(), true})
        , m_factory(m_bookmarks)
        , m_editor(EditorServices{
              m_store, m_renderer, m_apps, m_icons, m_factory, {}, [this](QWidget*, bool) {
                  return m_chosenPath;
              }})
    {
        m_account = *m_store.addSession("Work");
        m_store.mutate([&](Library& library) {
            library.add(m_group);
            library.add(m_link);
        });
        m_store.observe([this](unsigned what) {
            if (what & LibraryStore::LibraryChanged) {
                ++m_changes;
            }
        });
    }

    EditorDialog& dialog()
    {
        EXPECT_TRUE(m_editor.dialog());
        return *m_editor.dialog();
    }
    const Shortcut* stored(const kit::library::ShortcutID& id) const
    {
        return m_store.library().shortcut(id);
    }

    testing_support::TempDir m_dir;
    LibraryStore m_store;
    QtIconRenderer m_renderer;
    kit::tools::InstalledApps m_apps;
    NoIcons m_icons;
    kit::opening::InodeBookmarkResolver m_bookmarks;
    kit::opening::TargetFactory m_factory;
    std::string m_chosenPath;
    ShortcutEditor m_editor;
    kit::library::SessionID m_account;
    Shortcut m_group = Shortcut::make(
        "Reading",
        Target::group({Shortcut::make("Papers", Target::url(webTarget("https://a.org")))}));
    Shortcut m_link = Shortcut::make("Mail", Target::url(webTarget("https://mail.example.com/")));
    int m_changes = 0;
};

TEST_F(ShortcutEditorTest, EverySettingSurvivesTheWindowUntouched)
{
    // Values no control offers as they stand: a zoom off the list, sizes with fractions.
    Shortcut shortcut = testing_support::everyField();
    auto& url = *shortcut.target.urlTarget();
    url.templateID.reset();
    url.sessionID = m_account;
    url.pageZoom = 1.3;
    url.windowSize = kit::library::ContentSize{1234, 777.25};
    m_store.mutate([&](Library& library) { library.add(shortcut); });
    m_changes = 0;

    m_editor.edit(shortcut.id);
    ASSERT_TRUE(m_editor.isOpen());
    EXPECT_TRUE(dialog().saveButton()->isEnabled());
    dialog().accept();

    EXPECT_EQ(m_changes, 1);
    EXPECT_EQ(*stored(shortcut.id), shortcut);
    EXPECT_FALSE(m_editor.isOpen());
}

TEST_F(ShortcutEditorTest, EachControlWritesItsOwnSetting)
{
    m_editor.edit(m_link.id);
    auto& window = dialog();
    window.setPageSettingsShown(true);
    chooseData(window.field(Field::OpenMode), static_cast<int>(OpenMode::Window));
    EXPECT_TRUE(window.isFieldShown(Field::WindowSize));
    EXPECT_FALSE(window.isFieldShown(Field::PopoverSize));
    chooseData(window.field(Field::Session), QString::fromStdString(m_account.string()));
    chooseData(window.field(Field::UserAgent),
               static_cast<int>(kit::library::BrowserAgent::IphoneSafari));
    chooseData(window.field(Field::Appearance),
               static_cast<int>(kit::library::PageAppearance::ForcedDark));
    chooseData(window.field(Field::BlocksAds), 0);
    chooseData(window.field(Field::Zoom), 1.25);
    chooseData(window.field(Field::NewWindowLinks),
               static_cast<int>(kit::library::NewWindowLinks::ThisPage));
    qobject_cast<QCheckBox*>(window.field(Field::WindowSize))->setChecked(true);
    window.field(Field::WindowSize)->parentWidget()->findChildren<QSpinBox*>().at(0)->setValue(900);
    qobject_cast<QCheckBox*>(window.field(Field::StaysOnTop))->setChecked(true);
    qobject_cast<QCheckBox*>(window.field(Field::KeepsPlaying))->setChecked(true);
    qobject_cast<QCheckBox*>(window.field(Field::ShowInMenuBar))->setChecked(false);
    window.accept();

    const auto* saved = stored(m_link.id);
    ASSERT_TRUE(saved);
    const auto& url = *saved->target.urlTarget();
    EXPECT_EQ(url.url, m_link.target.urlTarget()->url);
    EXPECT_EQ(url.openMode, OpenMode::Window);
    EXPECT_EQ(url.sessionID, m_account);
    EXPECT_EQ(url.userAgent, kit::library::BrowserAgent::IphoneSafari);
    EXPECT_EQ(url.pageAppearance, kit::library::PageAppearance::ForcedDark);
    EXPECT_EQ(url.blocksAds, false);
    EXPECT_EQ(url.pageZoom, 1.25);
    EXPECT_EQ(url.newWindowLinks, kit::library::NewWindowLinks::ThisPage);
    const auto defaults = kit::library::BrowsingDefaults::standard().windowSize;
    EXPECT_EQ(url.windowSize, (kit::library::ContentSize{900, defaults.height}));
    EXPECT_EQ(url.popoverSize, std::nullopt);
    EXPECT_TRUE(url.staysOnTop);
    EXPECT_TRUE(url.keepsPlaying);
    EXPECT_FALSE(url.reloadsOnOpen);
    EXPECT_FALSE(saved->isInMenuBar);
}

TEST_F(ShortcutEditorTest, PageSettingsNeverTakeTheWindowPastTheScreen)
{
    m_editor.edit(m_link.id);
    auto& window = dialog();
    const QRect screen = window.screen()->availableGeometry();
    window.setPageSettingsShown(true);
    EXPECT_TRUE(screen.contains(window.frameGeometry()))
        << window.frameGeometry().height() << " on " << screen.height();
    EXPECT_TRUE(window.saveButton()->isVisible());
}

TEST_F(ShortcutEditorTest, EnterSavesOnlyWhatIsValidAndCancelAndEscapeWriteNothing)
{
    m_editor.edit(m_link.id);
    type(dialog().field(Field::Name), "Renamed");
    dialog().reject();
    EXPECT_FALSE(m_editor.isOpen());

    m_editor.add(m_store.activeBarID(), Target::Kind::Url);
    auto* window = &dialog();
    // Nothing typed yet: nothing to scold.
    EXPECT_FALSE(window->problemLabel(Field::Address)->isVisibleTo(window));
    type(window->field(Field::Address), "not an address");
    EXPECT_FALSE(window->saveButton()->isEnabled());
    EXPECT_TRUE(window->problemLabel(Field::Address)->isVisibleTo(window));
    press(window->field(Field::Address), Qt::Key_Return);
    EXPECT_TRUE(m_editor.isOpen());
    press(window->field(Field::Address), Qt::Key_Escape);
    EXPECT_FALSE(m_editor.isOpen());
    EXPECT_EQ(m_changes, 0);
    EXPECT_EQ(stored(m_link.id)->name, "Mail");

    m_editor.add(m_store.activeBarID(), Target::Kind::Url);
    window = &dialog();
    type(window->field(Field::Address), "example.com");
    EXPECT_EQ(qobject_cast<QLineEdit*>(window->field(Field::Name))->text(), "Example");
    press(window->field(Field::Address), Qt::Key_Return);
    EXPECT_FALSE(m_editor.isOpen());
    EXPECT_EQ(m_changes, 1);
    EXPECT_EQ(m_store.library().shortcuts.back().target.urlTarget()->url, "https://example.com");
}

TEST_F(ShortcutEditorTest, ADeepLinkIntoAGroupWaitsForItsBlanks)
{
    m_editor.add(m_store.activeBarID(), Target::Kind::Url, m_group.id);
    auto& window = dialog();
    chooseData(window.field(Field::Template), "net.whatsapp.WhatsApp/Message a number");
    ASSERT_TRUE(window.blankField("phone number"));
    EXPECT_TRUE(everyFormRowShows(window));
    EXPECT_FALSE(window.saveButton()->isEnabled());
    type(window.blankField("phone number"), "+90 532 123 45 67");
    ASSERT_TRUE(window.saveButton()->isEnabled());
    window.accept();
    const auto members = m_store.library().members(m_group.id);
    ASSERT_EQ(members.size(), 2u);
    EXPECT_EQ(members.back().target.urlTarget()->url, "whatsapp://send?phone=905321234567");
}

TEST_F(ShortcutEditorTest, AnEditRequestStartsOnItsTemplateWithTabReachingItsBlanks)
{
    m_editor.edit(LibraryStore::EditRequest{
        m_link.id, std::string("com.tinyspeck.slackmacgap/Open a channel"), std::nullopt});
    auto& window = dialog();
    std::vector<QWidget*> order;
    for (QWidget* widget = window.field(Field::PasteLink)->nextInFocusChain();
         widget != window.field(Field::PasteLink) && order.size() < 3;
         widget = widget->nextInFocusChain()) {
        if ((widget->focusPolicy() & Qt::TabFocus) && widget->isVisibleTo(&window)) {
            order.push_back(widget);
        }
    }
    EXPECT_EQ(order,
              (std::vector<QWidget*>{window.blankField("workspace"),
                                     window.blankField("channel"),
                                     window.field(Field::Icon)}));
    type(window.field(Field::PasteLink), "https://app.slack.com/client/T1/C2");
    EXPECT_EQ(window.blankField("channel")->text(), "C2");
    window.accept();
    EXPECT_EQ(stored(m_link.id)->target.urlTarget()->url, "slack://channel?team=T1&id=C2");
    EXPECT_EQ(stored(m_link.id)->name, "Mail");
}

TEST_F(ShortcutEditorTest, AnAppComesFromTheInstalledList)
{
    const auto& env = testing::DesktopEnvironment::get();
    m_editor.add(m_store.activeBarID(), Target::Kind::App);
    EXPECT_GE(qobject_cast<QListWidget*>(dialog().field(Field::App))->count(), 2);
    dialog().reject();

    // A hint naming one app chooses it.
    m_store.mutate([&](Library& library) { library.add(Shortcut::make("", Target::app({}))); });
    const auto id = m_store.library().shortcuts.back().id;
    m_editor.edit(LibraryStore::EditRequest{id, std::nullopt, env.paintedID});
    ASSERT_TRUE(dialog().saveButton()->isEnabled());
    EXPECT_EQ(qobject_cast<QListWidget*>(dialog().field(Field::App))->currentItem()->text(),
              QString::fromStdString(env.paintedID));
    dialog().accept();
    EXPECT_EQ(stored(id)->target.appTarget()->bundleID, env.paintedID);
}

TEST_F(ShortcutEditorTest, AChosenFileGetsItsBookmark)
{
    m_chosenPath = (m_dir.path() / "Report.pdf").string();
    testing_support::writeFile(m_chosenPath, "%PDF");
    m_editor.add(m_store.activeBarID(), Target::Kind::File);
    ASSERT_TRUE(dialog().saveButton()->isEnabled());
    dialog().accept();
    const auto& added = m_store.library().shortcuts.back();
    ASSERT_EQ(added.target.kind(), Target::Kind::File);
    EXPECT_EQ(added.target.fileTarget()->bookmark.displayPath, m_chosenPath);
    EXPECT_FALSE(added.target.fileTarget()->bookmark.data.empty());

    // A folder offered to a file shortcut is refused, and nothing is taken.
    m_chosenPath = m_dir.path().string();
    m_editor.add(m_store.activeBarID(), Target::Kind::File);
    EXPECT_FALSE(dialog().saveButton()->isEnabled());
}

TEST_F(ShortcutEditorTest, AGroupKeepsMembersAddedWhileItWasOpen)
{
    m_editor.edit(m_group.id);
    EXPECT_FALSE(dialog().isFieldShown(Field::Address));
    m_store.mutate([&](Library& library) {
        library.addMember(Shortcut::make("Late", Target::url(webTarget("https://late.a.org"))),
                          m_group.id);
    });
    type(dialog().field(Field::Name), "Read later");
    dialog().accept();
    EXPECT_EQ(stored(m_group.id)->name, "Read later");
    EXPECT_EQ(m_store.library().members(m_group.id).size(), 2u);
}

TEST_F(ShortcutEditorTest, AShortcutRemovedMeanwhileIsNotBroughtBack)
{
    m_editor.edit(m_link.id);
    m_store.mutate([&](Library& library) { library.remove(m_link.id); });
    m_changes = 0;
    dialog().accept();
    EXPECT_TRUE(m_editor.isOpen());
    EXPECT_EQ(m_changes, 0);
    EXPECT_FALSE(stored(m_link.id));
    m_editor.close();
}

TEST_F(ShortcutEditorTest, DividersAndOtherBarsNeedNoWindow)
{
    m_editor.add(m_store.activeBarID(), Target::Kind::Divider);
    EXPECT_FALSE(m_editor.isOpen());
    EXPECT_EQ(m_changes, 1);
    EXPECT_TRUE(m_store.library().shortcuts.back().target.isDivider());

    const auto other = *m_store.addBar("Home");
    m_editor.add(other, Target::Kind::Url);
    type(dialog().field(Field::Address), "news.example.org");
    dialog().accept();
    ASSERT_EQ(m_store.library(other)->shortcuts.size(), 1u);
    EXPECT_EQ(m_store.library().shortcuts.size(), 3u);
}

} // namespace
} // namespace desktop::editor
