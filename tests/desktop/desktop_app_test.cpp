// SPDX-License-Identifier: MIT
#include "desktop/desktop_app.h"

#include "desktop/manager/manager_window.h"
#include "desktop/manager/review_window.h"
#include "desktop/manager/settings_window.h"
#include "kit/library/fixtures.h"
#include "menus.h"
#include "spin.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QCoreApplication>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QUrl>

#include <sys/stat.h>

namespace desktop::testing {

namespace {

using kit::library::BarID;
using kit::library::Shortcut;
using kit::storage::LibraryStore;
using kit::storage::SupportDirectory;
using ::testing::HasSubstr;
using testing_support::TempDir;

bool isSocket(const std::filesystem::path& path)
{
    struct stat info
    {};
    return ::stat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

void pump()
{
    for (int i = 0; i < 5; ++i) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
    }
}

// A person's machine in a temporary folder: a library with two bars, settings, a runtime folder.
class DesktopAppTest : public ::testing::Test
{
protected:
    DesktopAppTest()
    {
        for (const auto& folder : {home(), support(), config(), runtime(), root() / "tmp"}) {
            std::filesystem::create_directories(folder);
        }
        ::chmod(runtime().c_str(), 0700);
    }

    ~DesktopAppTest() override
    {
        m_app.reset();
        QGuiApplication::clipboard()->clear();
    }

    std::filesystem::path root() const { return m_dir.path(); }
    std::filesystem::path home() const { return root() / "home"; }
    std::filesystem::path support() const { return root() / "support"; }
    std::filesystem::path config() const { return root() / "config"; }
    std::filesystem::path runtime() const { return root() / "run"; }
    std::filesystem::path socketPath() const { return runtime() / "vantorel.sock"; }

    // Starts on two bars: "Work" showing with three shortcuts, "Home" with one.
    DesktopApp& start(TrayStatusBar::Host host = TrayStatusBar::Host::XEmbed)
    {
        {
            LibraryStore store(SupportDirectory{support(), false});
            store.mutate([&](kit::library::Library& library) {
                for (const char* name : {"Work 1", "Work 2", "Work 3"}) {
                    library.add(testing_support::webLink(name));
                }
            });
            store.renameBar(store.activeBarID(), "Work");
            m_homeBar = *store.addBar("Home");
            store.mutate(m_homeBar, [](kit::library::Library& library) {
                library.add(testing_support::webLink("Recipes"));
            });
            store.flush();
        }
        DesktopApp::Options options;
        const auto homeFolder = home();
        options.dependencies.environment =
            app::Environment{[homeFolder](const char* name) -> std::optional<std::string> {
                                 if (std::string(name) == "HOME") {
                                     return homeFolder.string();
                                 }
                                 return std::nullopt;
                             },
                             4242,
                             root() / "tmp"};
        options.dependencies.supportDirectory = SupportDirectory{support(), false};
        options.dependencies.settingsFile = config() / "Vantorel" / "settings.json";
        options.dependencies.socketPath = socketPath().string();
        options.dependencies.dataFolders = std::vector<std::filesystem::path>{root() / "data"};
        options.instanceFolder = runtime();
        options.configHome = config();
        options.host = host;
        m_app = std::make_unique<DesktopApp>(std::move(options));
        EXPECT_TRUE(m_app->becomePrimary());
        m_app->start();
        pump();
        return *m_app;
    }

    app::AppDependencies& dependencies() { return m_app->dependencies(); }

    // A later start's request, answered once any document in it is read.
    std::string handle(const std::string& request)
    {
        std::optional<std::string> reply;
        m_app->handle(request, [&](std::string line) { reply = std::move(line); });
        EXPECT_TRUE(spinUntil([&] { return reply.has_value(); }, 10s));
        return reply.value_or("no reply");
    }

    // The tooltips of the shortcut icons, in the menu bar's order, and whether each is shown.
    std::vector<std::string> iconNames()
    {
        std::vector<std::string> names;
        auto* menuBar = dependencies().menuBar();
        for (const auto& id : menuBar->order()) {
            const auto* item = menuBar->item(id);
            QSystemTrayIcon* icon =
                item && item->button() ? m_app->statusBar().trayIcon(*item->button()) : nullptr;
            if (icon && icon->isVisible()) {
                names.push_back(icon->toolTip().toStdString());
            }
        }
        return names;
    }

    // The context menu of the showing bar's shortcut at `index`, as a host shows it.
    QMenu* shortcutMenu(size_t index)
    {
        const Shortcut shortcut = dependencies().libraryStore().library().shortcuts.at(index);
        const auto* item = dependencies().menuBar()->item(shortcut.id);
        QMenu* menu = item ? m_app->statusBar().trayIcon(*item->button())->contextMenu() : nullptr;
        if (menu) {
            Q_EMIT menu->aboutToShow();
        }
        return menu;
    }

    // The application menu as the tray pops it.
    QMenu* popAppMenu()
    {
        auto* statusItem = dependencies().statusItem();
        statusItem->showMenu();
        return m_app->statusBar().poppedMenu(*statusItem->statusItem());
    }

    void chooseFromAppMenu(const QString& text)
    {
        QMenu* menu = popAppMenu();
        ASSERT_NE(menu, nullptr);
        QAction* row = findAction(*menu, text);
        ASSERT_NE(row, nullptr) << text.toStdString();
        row->trigger();
        pump();
    }

    TempDir m_dir;
    BarID m_homeBar;
    std::unique_ptr<DesktopApp> m_app;
};

TEST_F(DesktopAppTest, TheMenusSwitchBarsAndOpenTheManagerOnAShortcutOrSettings)
{
    start();
    chooseFromAppMenu("Home");
    EXPECT_EQ(iconNames(), std::vector<std::string>{"Recipes"});
    chooseFromAppMenu(QStringLiteral("Manage Bars…"));
    ASSERT_NE(m_app->managerWindow(), nullptr);
    EXPECT_EQ(m_app->managerWindow()->currentBar(), m_homeBar);
    chooseFromAppMenu(QStringLiteral("Settings…"));
    EXPECT_EQ(m_app->managerWindow()->currentPane(), ManagerWindow::Pane::Settings);
    ASSERT_NE(m_app->settingsWindow(), nullptr);
    EXPECT_TRUE(m_app->settingsWindow()->isVisible());

    // Edit in a shortcut's own menu brings the manager up on it.
    QMenu* menu = shortcutMenu(0);
    ASSERT_NE(menu, nullptr);
    QAction* edit = findAction(*menu, QStringLiteral("Edit…"));
    ASSERT_NE(edit, nullptr) << ::testing::PrintToString(describe(*menu));
    const auto recipes = dependencies().libraryStore().library().shortcuts[0].id;
    edit->trigger();
    EXPECT_TRUE(spinUntil([&] { return m_app->managerWindow()->selectedShortcut() == recipes; }));
    EXPECT_EQ(dependencies().libraryStore().editRequest(), std::nullopt);
}

TEST_F(DesktopAppTest, AddFromClipboardMakesAShortcutOfALinkOrAFileOrSaysWhyNot)
{
    start();

    QGuiApplication::clipboard()->setText(QStringLiteral("https://news.example.org/today"));
    chooseFromAppMenu(QStringLiteral("Add from clipboard"));
    ASSERT_TRUE(spinUntil([&] { return iconNames().size() == 4; }));
    EXPECT_EQ(dependencies().libraryStore().library().shortcuts.back().target.urlTarget()->url,
              "https://news.example.org/today");

    // A file manager's copied files arrive as URLs.
    const auto file = root() / "Report.pdf";
    testing_support::writeFile(file, "%PDF");
    auto* data = new QMimeData;
    data->setUrls({QUrl::fromLocalFile(QString::fromStdString(file.string()))});
    QGuiApplication::clipboard()->setMimeData(data);
    chooseFromAppMenu(QStringLiteral("Add from clipboard"));
    ASSERT_TRUE(spinUntil([&] { return iconNames().size() == 5; }));
    EXPECT_EQ(dependencies().libraryStore().library().shortcuts.back().name, "Report");

    // Nothing usable: said in one sentence, and nothing added.
    QGuiApplication::clipboard()->setText(QStringLiteral("two words"));
    chooseFromAppMenu(QStringLiteral("Add from clipboard"));
    QMessageBox* box = m_app->alerts().current();
    ASSERT_NE(box, nullptr);
    EXPECT_TRUE(box->isVisible());
    EXPECT_THAT(box->text().toStdString(), HasSubstr("“two words”"));
    EXPECT_EQ(dependencies().libraryStore().library().shortcuts.size(), 5U);
}

TEST_F(DesktopAppTest, OffersTheLoginItemAndWritesItOnYes)
{
    start();
    const auto entry = config() / "autostart" / "vantorel.desktop";

    QMessageBox* offer = m_app->loginOffer();
    ASSERT_NE(offer, nullptr);
    EXPECT_TRUE(offer->isVisible());
    EXPECT_TRUE(dependencies().settings().loginItemOffered());
    EXPECT_FALSE(std::filesystem::exists(entry));
    offer->defaultButton()->click();
    pump();
    EXPECT_TRUE(std::filesystem::exists(entry));
}

TEST_F(DesktopAppTest, ADocumentBringsUpTheReviewWindow)
{
    start();
    const auto document = root() / "Shared.vantorel";
    testing_support::writeFile(
        document,
        R"({"title":"From a friend","bars":[{"shortcuts":[{"name":"Maps","target":{"kind":"url","url":"https://maps.example.org/"}}]}]})");

    EXPECT_EQ(handle(R"({"command":"open","path":")" + document.string() + R"("})"),
              R"({"ok":true})");
    ASSERT_NE(m_app->reviewWindow(), nullptr);
    EXPECT_TRUE(m_app->reviewWindow()->isVisible());

    const auto broken = root() / "broken.vantorel";
    testing_support::writeFile(broken, R"({"formatVersion": 3})");
    EXPECT_THAT(handle(R"({"command":"open","path":")" + broken.string() + R"("})"),
                HasSubstr("could not be opened"));
    ASSERT_NE(m_app->alerts().current(), nullptr);
    EXPECT_EQ(m_app->alerts().current()->windowTitle(), "broken.vantorel");
}

TEST_F(DesktopAppTest, QuitRemovesTheSocketAndGivesTheLockBack)
{
    start();
    dependencies().settings().setAssistantsEnabled(true);
    ASSERT_TRUE(isSocket(socketPath()));

    // "Quit Vantorel" ends the event loop; the tidying follows from aboutToQuit.
    QTimer::singleShot(0, [this] { chooseFromAppMenu(QStringLiteral("Quit Vantorel")); });
    QTimer::singleShot(3000, [] { QCoreApplication::exit(1); });
    EXPECT_EQ(QCoreApplication::exec(), 0);
    EXPECT_FALSE(std::filesystem::exists(socketPath()));

    QtMainQueue queue;
    app::InstanceChannel next(runtime());
    EXPECT_TRUE(next.becomePrimary([](const std::string&) { return std::string("{}"); }, queue));
    next.stop();
}

} // namespace

} // namespace desktop::testing
