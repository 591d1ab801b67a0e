// SPDX-License-Identifier: MIT
// The composition root with a platform of fakes: what start-up shows and offers, and how the
// global keys and the application menu reach the bars.
#include "app/app_dependencies.h"
#include "kit/keys/fakes.h"
#include "kit/library/fixtures.h"
#include "kit/menubar/fakes.h"
#include "kit/opening/fakes.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace app;
using kit::library::BarID;
using kit::menubar::Rect;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing_support::TempDir;

namespace {

class ClosedPopover final : public kit::menubar::Popover
{
public:
    void show(kit::menubar::StatusItemHandle, kit::menubar::Edge) override {}
    void close() override {}
    bool isShown() const override { return false; }
    std::optional<Rect> frame() const override { return std::nullopt; }
    void setClosedHandler(std::function<void()>) override {}
};

class QuietEvents final : public kit::menubar::AppEvents
{
public:
    Token addGlobalMouseDown(std::function<void(kit::menubar::Point)>) override { return 1; }
    Token addResignActive(std::function<void()>) override { return 1; }
    void remove(Token) override {}
    void activate() override {}
    bool isActive() const override { return true; }
};

class FakeLoginItem final : public LoginItem
{
public:
    bool isEnabled() const override { return enabled; }
    bool enable() override { return enabled = true; }
    bool disable() override { return !(enabled = false); }
    bool enabled = false;
};

class PlatformTest : public ::testing::Test
{
protected:
    PlatformTest() { std::filesystem::create_directories(m_dir.path() / "home"); }
    ~PlatformTest() override { dependencies.reset(); }

    kit::storage::SupportDirectory support() const { return {m_dir.path() / "support", false}; }

    // Bars named as given, the first showing with `shortcuts` links.
    std::vector<BarID> prepare(int shortcuts, std::vector<std::string> barNames = {"Work"})
    {
        kit::storage::LibraryStore store(support());
        store.renameBar(store.activeBarID(), barNames[0]);
        std::vector<BarID> bars{store.activeBarID()};
        store.mutate([&](kit::library::Library& library) {
            for (int i = 1; i <= shortcuts; ++i) {
                library.add(testing_support::webLink("Link " + std::to_string(i),
                                                     "https://example.org/" + std::to_string(i)));
            }
        });
        for (size_t i = 1; i < barNames.size(); ++i) {
            bars.push_back(*store.addBar(barNames[i]));
        }
        store.flush();
        return bars;
    }

    AppDependencies& make()
    {
        AppDependencies::Options options;
        const auto home = m_dir.path() / "home";
        options.environment = Environment{[home](const char* name) -> std::optional<std::string> {
                                              return std::string(name) == "HOME"
                                                         ? std::optional(home.string())
                                                         : std::nullopt;
                                          },
                                          4242,
                                          m_dir.path()};
        options.supportDirectory = support();
        options.settingsFile = m_dir.path() / "settings.json";
        options.socketPath = (m_dir.path() / "vantorel.sock").string();
        options.dataFolders = std::vector<std::filesystem::path>{m_dir.path() / "share"};
        Platform platform;
        platform.workspace = &workspace;
        platform.alerts = &alerts;
        platform.statusBar = &bar;
        platform.icons = &icons;
        platform.popover = &popover;
        platform.appEvents = &events;
        platform.hotKeys = &hotKeys;
        platform.clock = &clock;
        platform.modifiers = &modifiers;
        platform.loginItem = &loginItem;
        platform.iconPlacesKnown = iconPlacesKnown;
        platform.clipboardText = [] { return std::string(); };
        platform.offerLoginItem = [this](std::function<void(bool)> answer) {
            offers.push_back(std::move(answer));
        };
        platform.showWelcome = [this](std::optional<Rect> place) { welcomes.push_back(place); };
        options.platform = platform;
        dependencies.reset();
        dependencies = std::make_unique<AppDependencies>(queue, std::move(options));
        return *dependencies;
    }

    AppDependencies& started()
    {
        make().start();
        queue.runAll();
        return *dependencies;
    }

    kit::menubar::MenuItem* row(kit::menubar::Menu& menu, const std::string& title)
    {
        for (auto& item : menu.items) {
            if (item.title == title) {
                return &item;
            }
        }
        return nullptr;
    }

    TempDir m_dir;
    keys_testing::FakeMainQueue queue;
    testing_support::FakeWorkspace workspace;
    testing_support::FakeAlerts alerts;
    testing_support::FakeStatusBar bar;
    kit::menubar::StandardIconRenderer icons;
    ClosedPopover popover;
    QuietEvents events;
    keys_testing::FakeHotKeyService hotKeys;
    keys_testing::FakeClock clock;
    keys_testing::FakeModifierSource modifiers;
    FakeLoginItem loginItem;
    bool iconPlacesKnown = true;
    std::vector<std::function<void(bool)>> offers;
    std::vector<std::optional<Rect>> welcomes;
    std::unique_ptr<AppDependencies> dependencies;
};

// The global keys reach the bars: a digit opens its icon, new icons get keys, the bar keys stop
// at the ends and the menu key pops the menu under the application icon.
TEST_F(PlatformTest, GlobalKeysFollowTheBarsAndTheSettings)
{
    auto bars = prepare(3, {"Work", "Home"});
    auto& app = started();
    using namespace kit::keys::hot_key_id;
    auto press = [&](uint32_t id) {
        hotKeys.press(kit::keys::kHotKeySignature, id);
        queue.runAll();
    };
    press(kDigitBase + 2);
    EXPECT_THAT(workspace.opened, ElementsAre("https://example.org/2"));

    app.libraryStore().mutate([](kit::library::Library& library) {
        library.add(testing_support::webLink("Link 4", "https://example.org/4"));
    });
    queue.runAll();
    EXPECT_NE(hotKeys.withID(kDigitBase + 4), nullptr);

    press(kMenu);
    auto* appIcon = bar.find(*app.statusItem()->statusItem());
    ASSERT_NE(appIcon, nullptr);
    ASSERT_EQ(appIcon->popped.size(), 1U);
    ASSERT_NE(row(appIcon->popped.back(), "Link 3"), nullptr);
    row(appIcon->popped.back(), "Link 3")->action();
    EXPECT_THAT(workspace.opened, ElementsAre("https://example.org/2", "https://example.org/3"));

    app.cycleBar(-1);
    EXPECT_EQ(app.libraryStore().activeBarID(), bars[0]);
    press(kNextBar);
    app.cycleBar(+1);
    EXPECT_EQ(app.libraryStore().activeBarID(), bars[1]);

    app.settings().setShortcutKeys(kit::settings::DigitKeys::Off);
    queue.runAll();
    ASSERT_EQ(hotKeys.registered().size(), 2U);
    EXPECT_EQ(hotKeys.registered()[0].id, kMenu);
    EXPECT_EQ(hotKeys.registered()[1].id, kActiveBar);
    EXPECT_FALSE(app.modifierWatch()->isRunning());
}

TEST_F(PlatformTest, AFailedSaveMarksTheAppIconUntilASaveSucceeds)
{
    prepare(1);
    auto& app = started();
    auto file = app.supportDirectory().file(app.libraryStore().activeBar().file);
    auto alert = [&] {
        queue.runAll();
        const auto* icon = bar.find(*app.statusItem()->statusItem());
        return icon && icon->appImage && icon->appImage->alert;
    };
    EXPECT_FALSE(alert());

    // A folder where the file goes: the rename over it fails, whoever runs the test.
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    app.libraryStore().mutate(
        [](kit::library::Library& library) { library.add(testing_support::webLink("Kept")); });
    app.libraryStore().flush();
    EXPECT_TRUE(alert());

    std::filesystem::remove(file);
    app.libraryStore().flush();
    EXPECT_FALSE(alert());
    EXPECT_THAT(testing_support::readFile(file), testing::HasSubstr("Kept"));
}

// Each shortcut of the showing bar has its own menu in the app menu too, as its icon's right click.
TEST_F(PlatformTest, TheAppMenuHoldsEachShortcutsMenu)
{
    prepare(1);
    auto menu = started().appMenu();
    auto* shortcut = row(menu, "Link 1");
    ASSERT_NE(shortcut, nullptr);
    ASSERT_FALSE(shortcut->items.empty());
    EXPECT_EQ(shortcut->items.front().title, "Open");
}

TEST_F(PlatformTest, AddingTurnsEachUsableLineIntoAShortcutOrSaysWhyNot)
{
    struct Row
    {
        std::string text;
        std::vector<std::string> added;
        std::string failure; // part of the sentence; empty for none
    };
    const Row rows[] = {
        {"# copied by a file manager\r\nhttps://alpha.org/\r\nnot a link\r\n\r\nhttps://beta.org/",
         {"Alpha", "Beta"},
         ""},
        {" \n\t\n", {}, "The clipboard holds nothing to add"},
        {"/no/such/file.pdf", {}, "file.pdf"},
    };
    prepare(0);
    auto& app = make();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const size_t before = app.libraryStore().library().shortcuts.size();
        const auto result = app.addShortcuts(row.text);
        EXPECT_EQ(result.names, row.added);
        EXPECT_EQ(result.failure.has_value(), !row.failure.empty());
        EXPECT_THAT(result.failure.value_or(""), HasSubstr(row.failure));
        EXPECT_EQ(app.libraryStore().library().shortcuts.size(), before + row.added.size());
    }
}

TEST_F(PlatformTest, OffersTheLoginItemOnceAndNotWhenItIsAlreadyOn)
{
    prepare(1);
    loginItem.enabled = true;
    started();
    EXPECT_TRUE(offers.empty());
    EXPECT_TRUE(dependencies->settings().loginItemOffered());

    loginItem.enabled = false;
    dependencies->settings().setLoginItemOffered(false);
    started();
    ASSERT_EQ(offers.size(), 1U);
    EXPECT_TRUE(dependencies->settings().loginItemOffered()) << "even when not answered";
    offers.front()(true);
    EXPECT_TRUE(loginItem.enabled);

    loginItem.enabled = false;
    started();
    EXPECT_EQ(offers.size(), 1U);
    EXPECT_FALSE(loginItem.enabled) << "the person's later choice stands";
}

TEST_F(PlatformTest, TheIntroductionWaitsUntilTheIconHasSettledOnScreen)
{
    prepare(1);
    auto& app = make();
    app.start();
    auto& appIcon = *bar.find(*app.statusItem()->statusItem());
    // Not yet docked: the host reports the origin.
    appIcon.geometry = Rect{0, 0, 22, 22};
    queue.runAll();
    EXPECT_TRUE(welcomes.empty());
    EXPECT_FALSE(app.settings().welcomeShown()) << "tried again at the next start";

    make().start();
    auto& again = *bar.find(*dependencies->statusItem()->statusItem());
    again.geometry = Rect{1200, 1, 22, 22};
    queue.runAll();
    ASSERT_EQ(welcomes.size(), 1U);
    EXPECT_EQ(welcomes.front(), (Rect{1200, 1, 22, 22}));
    EXPECT_TRUE(dependencies->settings().welcomeShown());

    started();
    EXPECT_EQ(welcomes.size(), 1U) << "once only";
}

} // namespace
