// SPDX-License-Identifier: MIT
// Real pages in the real web engine, served from a local HTTP server: sessions keep their
// cookies apart, blocking stops what the rules name, and pages reach the desktop. The click on a
// notice is page_notices_test's.
// Exits with 77 (skipped) when the engine or its module is not there.
#include "desktop/pages/desktop_notices.h"
#include "desktop/pages/pages_loader.h"
#include "desktop/pages/profile_stores.h"
#include "http_server.h"
#include "kit/web/page_notifications.h"
#include "page_fake_notifications.h"
#include "private_bus.h"
#include "spin.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QShortcut>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineView>
#include <QWidget>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace desktop::pages {
namespace {

using kit::library::ResolvedBrowsing;
using kit::library::SessionID;
using kit::library::Shortcut;
using kit::library::ShortcutID;
using kit::library::Target;
using kit::library::URLTarget;

// The main queue over Qt's event loop, without the rest of the desktop layer.
class EventLoopQueue final : public kit::support::MainQueue
{
public:
    void post(std::function<void()> task) override { postAfter({}, std::move(task)); }
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override
    {
        QTimer::singleShot(delay, &m_context, std::move(task));
    }

private:
    QObject m_context;
};

// The pages the tests open, by path; the rest are empty pictures.
HttpReply answer(const HttpRequest& request)
{
    const QByteArray& path = request.path;
    HttpReply reply{200, "text/html", "<!doctype html><title>" + path + "</title><p>" + path};
    if (path == "/set") {
        reply.headers = "Set-Cookie: who=first; Path=/; Max-Age=3600\r\n";
    } else if (path == "/count") {
        reply.body =
            "<!doctype html><title>(3) Inbox</title><input id=field>"
            "<script>function badge(n){n?navigator.setAppBadge(n):navigator.clearAppBadge()}"
            "</script>";
    } else if (path == "/blocking") {
        reply.body += "<img src='/ads/banner.png'><img src='/pictures/allowed.png'>";
    } else if (path == "/private" && request.header("authorization").isEmpty()) {
        reply.status = 401;
        reply.headers = "WWW-Authenticate: Basic realm=\"Staff\"\r\n";
    } else if (!QList<QByteArray>{"/check", "/panel", "/private", "/agent", "/notify"}.contains(
                   path)) {
        reply = {200, "image/png"};
    }
    return reply;
}

bool waitFor(const std::function<bool()>& done, int timeoutMs = 20000)
{
    return spinUntil(done, std::chrono::milliseconds(timeoutMs));
}

// The engine loads once per process, so every test shares one module and one server.
struct Engine
{
    testing_support::TempDir folder;
    EventLoopQueue queue;
    // Each host name of *.test reaches it through the engine's resolver rules.
    HttpServer server{answer};
    kit::menubar::PlayingPages playing;
    std::unique_ptr<kit::web::ContentRuleListStore> rules;
    std::unique_ptr<PagesLoader> loader;
    std::unique_ptr<ProfileStores> stores;
    std::map<ShortcutID, int> loads;
    std::map<ShortcutID, double> zooms;
    kit::menubar::PageCounts counts;

    Engine()
    {
        const auto bundle = folder.path() / "share";
        std::filesystem::create_directories(bundle / "AdBlock");
        std::ofstream(bundle / "AdBlock" / "adblock-rules.json")
            << R"([{"trigger":{"url-filter":"/ads/"},"action":{"type":"block"}}])";
        rules = makeRuleListStore(folder.path() / "ContentRules");

        Host host;
        host.mainQueue = &queue;
        host.playing = &playing;
        host.ruleLists = rules.get();
        host.rulesRoot = bundle;
        host.storageRoot = folder.path() / "profiles";
        host.cacheRoot = folder.path() / "cache";
        host.asksWhereToSaveDownloads = [] { return false; };
        host.loaded = [this](const ShortcutID& id, bool) { ++loads[id]; };
        host.saveZoom = [this](const ShortcutID& id, double zoom) { zooms[id] = zoom; };
        host.counts = &counts;
        loader = std::make_unique<PagesLoader>(
            host, std::vector<std::filesystem::path>{VANTOREL_PAGES_MODULE_PATH});
        stores = std::make_unique<ProfileStores>(*loader,
                                                 queue,
                                                 ProfileRoots{host.storageRoot, host.cacheRoot},
                                                 makeRuleListStore(folder.path() / "unused"));
    }

    Pages& pages() { return *loader->loaded(); }

    Shortcut shortcut(const char* host, const char* path, std::optional<SessionID> session)
    {
        URLTarget target;
        target.url = server.address(path, host).toStdString();
        target.sessionID = session;
        return Shortcut::make("Page", Target::url(target));
    }

    ResolvedBrowsing settings(const Shortcut& shortcut, bool blocksAds = false)
    {
        auto resolved = ResolvedBrowsing::resolve(*shortcut.target.urlTarget(), {});
        resolved.blocksAds = blocksAds;
        return resolved;
    }

    bool loadInWindow(const Shortcut& shortcut, const ResolvedBrowsing& resolved)
    {
        const int before = loads[shortcut.id];
        pages().showWindow(shortcut, resolved);
        return waitFor([&] { return loads[shortcut.id] > before; });
    }
};

Engine* gEngine = nullptr;

class PagesEndToEnd : public ::testing::Test
{
protected:
    Engine& engine = *gEngine;
};

TEST_F(PagesEndToEnd, SessionsKeepTheirCookiesApart)
{
    const auto first = SessionID::make();
    const auto second = SessionID::make();
    auto& server = engine.server;

    auto setter = engine.shortcut("shop.test", "/set", first);
    ASSERT_TRUE(engine.loadInWindow(setter, engine.settings(setter)));
    auto other = engine.shortcut("shop.test", "/check", second);
    ASSERT_TRUE(engine.loadInWindow(other, engine.settings(other)));
    auto same = engine.shortcut("shop.test", "/check", first);
    ASSERT_TRUE(engine.loadInWindow(same, engine.settings(same)));
    auto shared = engine.shortcut("shop.test", "/check", std::nullopt);
    ASSERT_TRUE(engine.loadInWindow(shared, engine.settings(shared)));

    const auto checks = server.seenAt("/check");
    ASSERT_EQ(checks.size(), 3u);
    EXPECT_EQ(checks[0].header("cookie"), "") << "another session saw the first session's cookie";
    EXPECT_EQ(checks[1].header("cookie"), "who=first") << "the session lost its own cookie";
    EXPECT_EQ(checks[2].header("cookie"), "") << "the shared profile saw a session's cookie";

    // The core counts sites per session.
    for (const auto& [session, sites] : {std::pair{first, 1}, std::pair{second, 0}}) {
        std::optional<int> counted;
        engine.stores->fetchDataRecordCount(engine.stores->dataStore(session.uuid),
                                            [&](int count) { counted = count; });
        ASSERT_TRUE(waitFor([&] { return counted.has_value(); }));
        EXPECT_EQ(*counted, sites);
    }

    // Removing a session closes its pages and takes its folder; the other session keeps its own.
    std::optional<std::optional<std::string>> removed;
    engine.stores->removeDataStore(first.uuid, [&](auto error) { removed = error; });
    ASSERT_TRUE(waitFor([&] { return removed.has_value(); }));
    EXPECT_EQ(*removed, std::nullopt);
    EXPECT_EQ(engine.pages().window(setter.id), nullptr);
    EXPECT_FALSE(std::filesystem::exists(engine.folder.path() / "profiles" / first.string()));
    EXPECT_NE(engine.pages().window(other.id), nullptr);
}

TEST_F(PagesEndToEnd, BlockingStopsWhatTheRulesNameAndLetsTheRestThrough)
{
    auto& server = engine.server;
    engine.pages();
    // The rules compile in the background when the engine loads; a page opened before then
    // would load unblocked until they are ready.
    ASSERT_TRUE(waitFor([&] { return !engine.rules->identifiers().empty(); }))
        << "the rules never compiled";
    waitFor([] { return false; }, 300);

    auto blocked = engine.shortcut("news.test", "/blocking", std::nullopt);
    ASSERT_TRUE(engine.loadInWindow(blocked, engine.settings(blocked, true)));
    waitFor([&] { return !server.seenAt("/pictures/allowed.png").empty(); }, 5000);
    EXPECT_EQ(server.seenAt("/pictures/allowed.png").size(), 1u);
    EXPECT_TRUE(server.seenAt("/ads/banner.png").empty()) << "a blocked resource was requested";

    auto open = engine.shortcut("news.test", "/blocking", std::nullopt);
    ASSERT_TRUE(engine.loadInWindow(open, engine.settings(open, false)));
    EXPECT_TRUE(waitFor([&] { return !server.seenAt("/ads/banner.png").empty(); }, 5000))
        << "a page that does not block still had the resource blocked";
}

TEST_F(PagesEndToEnd, APhoneAgentIsTheEnginesOwnOnAPhone)
{
    auto page = engine.shortcut("mobile.test", "/agent", std::nullopt);
    auto settings = engine.settings(page);
    settings.userAgent = kit::library::BrowserAgent::IphoneSafari;
    ASSERT_TRUE(engine.loadInWindow(page, settings));
    const auto seen = engine.server.seenAt("/agent");
    ASSERT_EQ(seen.size(), 1u);
    const QByteArray agent = seen[0].header("user-agent");
    EXPECT_TRUE(agent.contains("Android") && agent.contains(" Mobile Safari/")
                && agent.contains(" Chrome/") && !agent.contains("QtWebEngine"))
        << agent.toStdString();
}

TEST_F(PagesEndToEnd, SignInIsAskedForInThePagesWindowAndSendsWhatWasTyped)
{
    auto& server = engine.server;
    QString question;
    QWidget* asker = nullptr;
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, [&] {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            auto* dialog = qobject_cast<QDialog*>(window);
            if (!dialog || !dialog->isVisible() || dialog->windowTitle() != "Sign in") {
                continue;
            }
            for (auto* label : dialog->findChildren<QLabel*>()) {
                question += label->text();
            }
            asker = dialog->parentWidget();
            const auto fields = dialog->findChildren<QLineEdit*>();
            ASSERT_EQ(fields.size(), 2);
            fields[0]->setText("ann");
            fields[1]->setText("secret");
            dialog->accept();
        }
    });
    answer.start(50);

    auto page = engine.shortcut("intranet.test", "/private", std::nullopt);
    ASSERT_TRUE(engine.loadInWindow(page, engine.settings(page)));
    EXPECT_TRUE(question.contains("intranet.test")) << question.toStdString();
    EXPECT_TRUE(question.contains("Staff")) << question.toStdString();
    EXPECT_EQ(asker, engine.pages().window(page.id)) << "the question was not in the page's window";
    const auto seen = server.seenAt("/private");
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back().header("authorization"), "Basic " + QByteArray("ann:secret").toBase64());
}

// Runs a script in the panel's page and waits for it to finish.
void runIn(QWidget* panel, const QString& script)
{
    auto* view = panel->findChild<QWebEngineView*>();
    bool done = false;
    view->page()->runJavaScript(script, [&done](const QVariant&) { done = true; });
    waitFor([&] { return done; });
}

TEST_F(PagesEndToEnd, ATitlesCountAndAnAppBadgeReachTheIcon)
{
    auto shortcut = engine.shortcut("count.test", "/count", std::nullopt);
    engine.pages().showPanel(shortcut, engine.settings(shortcut), QRect(600, 0, 24, 24));
    QWidget* panel = engine.pages().panel(shortcut.id);
    ASSERT_NE(panel, nullptr);
    const auto count = [&] {
        const auto found = engine.counts.counts().find(shortcut.id);
        return found == engine.counts.counts().end() ? std::string() : found->second;
    };
    EXPECT_TRUE(waitFor([&] { return count() == "3"; })) << count();
    // A badge the page sets wins over its title, and clearing it brings the title's back.
    const struct
    {
        const char* script;
        const char* count;
    } rows[] = {
        {"badge(120)", "99+"},
        {"badge(0)", "3"},
        {"document.title = 'Inbox'", ""},
        {"document.title = '(1) Inbox'", "1"},
    };
    for (const auto& row : rows) {
        runIn(panel, QString::fromLatin1(row.script));
        EXPECT_TRUE(waitFor([&] { return count() == row.count; }, 5000))
            << row.script << " gave " << count();
    }
    panel->hide();
}

TEST_F(PagesEndToEnd, ASitesNotificationIsAskedForAndReachesTheDesktopAsText)
{
    PrivateBus bus;
    if (bus.address().isEmpty()) {
        GTEST_SKIP() << "no dbus-daemon to run a private bus";
    }
    FakeNotifications service(bus.address(), true);
    DesktopNotices notices(QDBusConnection::connectToBus(bus.address(), QStringLiteral("e2e")));
    // Notifications need a secure origin, which localhost is.
    auto shortcut = engine.shortcut("localhost", "/notify", std::nullopt);
    const auto settings = engine.settings(shortcut);
    const std::string site = "http://localhost:" + std::to_string(engine.server.port());

    std::vector<std::string> asked;
    std::vector<std::pair<std::string, bool>> answered;
    Host& host = engine.loader->host();
    host.notificationStep = [&](const ShortcutID& id, const std::string& from) {
        EXPECT_EQ(id, shortcut.id);
        asked.push_back(from);
        return kit::web::PermissionStep::Ask;
    };
    host.notificationAnswered = [&](const ShortcutID&, const std::string& from, bool allowed) {
        answered.emplace_back(from, allowed);
    };
    host.notify = [&](const ShortcutID& id,
                      const std::string&,
                      const std::string& title,
                      const std::string& body) {
        notices.show(id, kit::web::composeNotice("Mail", title, body), QImage());
    };
    QString question;
    QTimer allow;
    QObject::connect(&allow, &QTimer::timeout, [&] {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            auto* box = qobject_cast<QMessageBox*>(window);
            if (!box || !box->isVisible()) {
                continue;
            }
            question = box->text();
            for (auto* button : box->findChildren<QPushButton*>()) {
                if (button->text() == QStringLiteral("Allow")) {
                    button->click();
                }
            }
        }
    });
    allow.start(50);

    ASSERT_TRUE(engine.loadInWindow(shortcut, settings));
    QWidget* window = engine.pages().window(shortcut.id);
    runIn(window,
          QStringLiteral("Notification.requestPermission().then(function(p){if(p==='granted')"
                         "new Notification('New <mail>',{body:'From Ann & Bob'});})"));
    ASSERT_TRUE(spinUntil([&] { return !service.shown().empty(); }, 10s)) << question.toStdString();
    EXPECT_TRUE(question.contains(QStringLiteral("show notifications"))) << question.toStdString();
    EXPECT_EQ(asked, std::vector{site});
    EXPECT_EQ(answered, (std::vector<std::pair<std::string, bool>>{{site, true}}));
    const auto& shown = service.shown().front();
    EXPECT_EQ(shown.appName, "Mail");
    EXPECT_EQ(shown.summary, "Mail: New <mail>");
    EXPECT_EQ(shown.body, "From Ann &amp; Bob");

    host.notificationStep = {};
    host.notificationAnswered = {};
    host.notify = {};
    window->hide();
    QDBusConnection::disconnectFromBus(QStringLiteral("e2e"));
}

TEST_F(PagesEndToEnd, AHiddenPageRestsAndComesBackWhereItWasUnlessItHoldsTyping)
{
    Host& host = engine.loader->host();
    host.restMinute = std::chrono::milliseconds(100);
    host.discardAfter = [] { return std::optional(std::chrono::minutes(5)); };
    struct Row
    {
        const char* name;
        bool typed;
        QWebEnginePage::LifecycleState rested;
    };
    for (const Row& row : {Row{"left alone", false, QWebEnginePage::LifecycleState::Discarded},
                           Row{"typed in", true, QWebEnginePage::LifecycleState::Frozen}}) {
        auto shortcut = engine.shortcut("rest.test", "/count", std::nullopt);
        const auto settings = engine.settings(shortcut);
        engine.pages().showPanel(shortcut, settings, QRect(600, 0, 24, 24));
        ASSERT_TRUE(waitFor([&] { return engine.loads[shortcut.id] > 0; }));
        QWidget* panel = engine.pages().panel(shortcut.id);
        QWebEnginePage* page = panel->findChild<QWebEngineView*>()->page();
        // Somewhere the shortcut's own address does not lead.
        runIn(panel, QStringLiteral("history.pushState({}, '', '/count?moved')"));
        if (row.typed) {
            runIn(panel, QStringLiteral("document.getElementById('field').value = 'half a'"));
        }
        panel->hide();
        EXPECT_TRUE(waitFor([&] { return page->lifecycleState() == row.rested; }, 5000))
            << row.name;
        // Still as it is a while after it would have been discarded.
        waitFor([] { return false; }, 1000);
        EXPECT_EQ(page->lifecycleState(), row.rested) << row.name;

        engine.pages().showPanel(shortcut, settings, QRect(600, 0, 24, 24));
        EXPECT_TRUE(waitFor([&] {
            return page->lifecycleState() == QWebEnginePage::LifecycleState::Active;
        })) << row.name;
        EXPECT_TRUE(waitFor([&] { return page->url().query() == QLatin1String("moved"); }))
            << row.name << ": " << page->url().toString().toStdString();
        panel->hide();
    }
    host.restMinute = std::chrono::minutes(1);
}

// How fast and large the first panel is: bench/first_panel.sh.
TEST_F(PagesEndToEnd, APanelHasItsSizeKeepsItsZoomAndASecondOpeningClosesIt)
{
    auto panel = engine.shortcut("panel.test", "/panel", std::nullopt);
    engine.pages().showPanel(panel, engine.settings(panel), QRect(600, 0, 24, 24));
    ASSERT_TRUE(waitFor([&] { return engine.loads[panel.id] > 0; }));
    QWidget* widget = engine.pages().panel(panel.id);
    ASSERT_NE(widget, nullptr);
    EXPECT_TRUE(widget->isVisible());
    EXPECT_EQ(widget->size(), QSize(400, 600));

    // Zooming in with the keys is kept for the next opening.
    for (auto* key : widget->findChildren<QShortcut*>()) {
        if (key->key() == QKeySequence(Qt::ControlModifier | Qt::Key_Equal)) {
            Q_EMIT key->activated();
        }
    }
    const double* larger = std::upper_bound(
        kit::library::PageZoom::kSteps.begin(), kit::library::PageZoom::kSteps.end(), 1.0);
    ASSERT_NE(larger, kit::library::PageZoom::kSteps.end());
    EXPECT_DOUBLE_EQ(engine.zooms[panel.id], *larger);

    // A second opening of a panel that is showing closes it; the page stays for the next time.
    engine.pages().showPanel(panel, engine.settings(panel), QRect(600, 0, 24, 24));
    EXPECT_FALSE(widget->isVisible());
    EXPECT_EQ(engine.pages().panel(panel.id), widget);
}

} // namespace
} // namespace desktop::pages

int main(int argc, char** argv)
{
    if (!std::filesystem::exists(VANTOREL_PAGES_MODULE_PATH)) {
        std::fprintf(stderr, "skipped: the pages module was not built\n");
        return 77;
    }
    testing_support::TempDir home;
    for (const char* name : {"XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_CONFIG_HOME"}) {
        ::setenv(name, home.path().c_str(), 1);
    }
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    std::string flags = "--disable-gpu --host-resolver-rules=\"MAP *.test 127.0.0.1\"";
    if (const char* more = std::getenv("QTWEBENGINE_CHROMIUM_FLAGS")) {
        flags += std::string(" ") + more;
    }
    ::setenv("QTWEBENGINE_CHROMIUM_FLAGS", flags.c_str(), 1);
    // No Qt::AA_ShareOpenGLContexts: the module makes the shared context itself, as in the app.
    QApplication::setApplicationName(QStringLiteral("VantorelPagesTest"));
    QApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);

    desktop::pages::Engine engine;
    desktop::pages::gEngine = &engine;
    if (!engine.loader->load()) {
        std::fprintf(stderr, "skipped: %s\n", engine.loader->error().c_str());
        return 77;
    }
    return RUN_ALL_TESTS();
}
