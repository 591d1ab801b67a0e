// SPDX-License-Identifier: MIT
#include "desktop/desktop_app.h"

#include "desktop/editor/icon_picker.h"
#include "desktop/editor/shortcut_editor.h"
#include "desktop/manager/manager_introduction.h"
#include "desktop/manager/manager_window.h"
#include "desktop/manager/review_window.h"
#include "desktop/manager/settings_window.h"
#include "kit/support/log.h"
#include "kit/web/page_notifications.h"
#include "kit/web/page_options.h"
#include "kit/web/session_stores.h"

#include <nlohmann/json.hpp>

#include <QApplication>
#include <QDBusConnection>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPalette>
#include <QPixmap>
#include <QSocketNotifier>
#include <QSystemTrayIcon>
#include <QTimer>

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <fstream>
#include <sstream>

namespace desktop {

using nlohmann::json;

namespace {

constexpr kit::support::Logger kLog("app");

// Milliseconds since the process began, from the kernel's record of its start; nothing when
// /proc cannot tell.
std::optional<long long> millisecondsSinceProcessStart()
{
    std::ifstream in("/proc/self/stat");
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The command name may hold spaces; fields are counted after its closing parenthesis.
    const auto close = stat.rfind(')');
    if (close == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(stat.substr(close + 2));
    std::string field;
    // starttime is field 22; the text after the parenthesis begins at field 3.
    for (int i = 3; i < 22 && fields >> field;) {
        ++i;
    }
    unsigned long long ticks = 0;
    if (!(fields >> ticks)) {
        return std::nullopt;
    }
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    const long hz = ::sysconf(_SC_CLK_TCK);
    const long long started = static_cast<long long>(ticks) * 1000 / hz;
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000 - started;
}

std::unique_ptr<SniStatusBar> ownStatusNotifier(const QtIconRenderer& icons,
                                                const DesktopApp::Options& options)
{
    if (options.host) {
        return nullptr;
    }
    const auto kind =
        kit::menubar::detectTrayHost(SniStatusBar::clues(QDBusConnection::sessionBus()));
    const auto& host = kit::menubar::trayHost(kind);
    if (!host.statusNotifier) {
        return nullptr;
    }
    return std::make_unique<SniStatusBar>(icons, host);
}

} // namespace

DesktopApp::DesktopApp(Options options)
    : m_sniBar(ownStatusNotifier(m_icons, options))
    , m_statusBar(std::make_unique<TrayStatusBar>(
          m_icons, m_sniBar ? std::optional(TrayStatusBar::Host::XEmbed) : options.host))
    , m_loginItem(options.configHome ? std::nullopt : app::XdgLoginItem::current())
    , m_pages(m_queue, activeBar(), m_workspace)
    , m_channel(options.instanceFolder)
    , m_bridgePath(std::move(options.bridgePath))
{
    if (options.configHome) {
        // The entry names the executable itself, not the link that leads to it.
        std::error_code error;
        auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
        m_loginItem.emplace(*options.configHome, error ? "vantorel" : executable);
    }

    m_options = std::move(options.dependencies);
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { terminate(); });
    if (options.handleSignals) {
        listenForSignals();
    }
}

DesktopApp::~DesktopApp()
{
    terminate();
    if (m_dependencies) {
        m_dependencies->proposals().removeObserver(m_inboxObservation);
        m_dependencies->settings().removeObserver(m_appearanceObservation);
        m_dependencies->libraryStore().removeObserver(m_editObservation);
        m_dependencies->libraryStore().removeObserver(m_iconObservation);
    }
    // Windows hold references into the composition root, so they go first.
    m_editor.reset();
    delete m_manager.data();
    delete m_welcome.data();
    delete m_loginOffer.data();
    m_pages.close();
    m_dependencies.reset();
    m_icons.setSiteIconSource({});
    m_siteIcons.reset();
    if (m_signalFD >= 0) {
        m_signals.reset();
        ::close(m_signalFD);
    }
}

kit::menubar::StatusBar& DesktopApp::activeBar()
{
    if (m_sniBar) {
        return *m_sniBar;
    }
    return *m_statusBar;
}

ManagerWindow* DesktopApp::managerWindow() const
{
    return m_manager.data();
}

SettingsWindow* DesktopApp::settingsWindow() const
{
    return m_manager ? qobject_cast<SettingsWindow*>(m_manager->settings()) : nullptr;
}

ReviewWindow* DesktopApp::reviewWindow() const
{
    return m_manager ? m_manager->review() : nullptr;
}

QWidget* DesktopApp::welcomeWindow() const
{
    return m_welcome.data();
}

QMessageBox* DesktopApp::loginOffer() const
{
    return m_loginOffer.data();
}

bool DesktopApp::becomePrimary()
{
    return m_channel.becomePrimary(
        [this](const std::string& line, const app::InstanceChannel::Reply& reply) {
            handle(line, reply);
        },
        m_queue);
}

void DesktopApp::makeDependencies()
{
    app::Platform platform;
    platform.workspace = &m_workspace;
    platform.alerts = &m_alerts;
    platform.statusBar = &activeBar();
    platform.icons = &m_icons;
    platform.popover = &m_popover;
    platform.appEvents = &m_appEvents;
    kit::keys::HotKeyService* hotKeys = nullptr;
    if (m_hotKeys.isAvailable()) {
        hotKeys = &m_hotKeys;
    } else {
        m_portalKeys = std::make_unique<PortalHotKeys>();
        if (m_portalKeys->isAvailable()) {
            hotKeys = m_portalKeys.get();
        } else {
            m_portalKeys.reset();
            kLog.info("Global keys are not available on this desktop; the icons still work.");
        }
    }
    if (hotKeys != nullptr) {
        platform.hotKeys = hotKeys;
        platform.clock = &m_clock;
        platform.modifiers = &m_modifiers;
    }
    platform.scroll = &m_scroll;
    platform.isIconWindow = [this](kit::keys::WindowRef window) { return isIconWindow(window); };
    platform.loginItem = m_loginItem ? &*m_loginItem : nullptr;
    platform.iconPlacesKnown = activeBar().host().iconPlacesKnown;
    platform.showSettings = [this] { presentSettings(); };
    platform.showManager = [this] { presentManager(); };
    platform.quit = [this] { quit(); };
    platform.clipboardText = [] { return clipboardText(); };
    platform.offerLoginItem = [this](std::function<void(bool)> answer) {
        m_loginOffer = desktop::offerLoginItem(std::move(answer));
    };
    platform.showWelcome = [this](std::optional<kit::menubar::Rect> place) {
        showIntroduction(place);
    };
    platform.confirm = [](const std::string& question) { return desktop::confirm(question); };
    platform.panels = &m_pages.presenters();
    platform.windows = &m_pages.presenters();
    m_options.platform = std::move(platform);

    m_dependencies = std::make_unique<app::AppDependencies>(m_queue, std::move(m_options));
    makeSiteIcons();
    m_pages.connect(*m_dependencies);
    m_inboxObservation = m_dependencies->proposals().observe([this] { inboxChanged(); });
    // The appearance setting overrides whatever the panel looks like; "system" follows it.
    auto applyAppearance = [this] {
        std::optional<kit::menubar::Appearance> forced;
        switch (m_dependencies->settings().appearance()) {
        case kit::settings::AppAppearance::Light:
            forced = kit::menubar::Appearance::Light;
            break;
        case kit::settings::AppAppearance::Dark:
            forced = kit::menubar::Appearance::Dark;
            break;
        case kit::settings::AppAppearance::System:
            break;
        }
        m_statusBar->setForcedAppearance(forced);
        if (m_sniBar) {
            m_sniBar->setForcedAppearance(forced);
        }
    };
    applyAppearance();
    m_appearanceObservation = m_dependencies->settings().observe(
        kit::settings::AppSettings::Key::Appearance, std::move(applyAppearance));
    m_editObservation = m_dependencies->libraryStore().observe([this](unsigned changes) {
        if (changes & kit::storage::LibraryStore::EditRequested) {
            // Not inside the store's announcement: the manager it may make observes the store.
            QTimer::singleShot(0, this, [this] { editRequested(); });
        }
    });
}

void DesktopApp::start()
{
    if (!m_dependencies) {
        makeDependencies();
    }
    m_dependencies->start();
    m_pages.removeOrphanSessions();
    m_statusBar->setPointerEntered(
        [this](kit::menubar::StatusItemHandle icon) { pointerEntered(icon); });
    if (m_sniBar) {
        m_sniBar->setScrolled([this](int step) {
            if (m_dependencies) {
                m_dependencies->cycleBar(step);
            }
        });
    }
    // A while after start, so it never competes with the first icons being drawn, then daily, so
    // an app that keeps running refreshes kept icons as they come due.
    const auto searchDue = [this] {
        if (m_siteIcons && m_dependencies) {
            m_siteIcons->searchAtStart(m_dependencies->libraryStore().library());
        }
    };
    QTimer::singleShot(std::chrono::seconds(3), this, searchDue);
    auto* daily = new QTimer(this);
    connect(daily, &QTimer::timeout, this, searchDue);
    daily->start(std::chrono::hours(24));
    // The icons were created above; the host places them once the loop runs.
    QTimer::singleShot(0, this, [this] { logIconsShown(); });
}

void DesktopApp::makeSiteIcons()
{
    auto& store = m_dependencies->libraryStore();
    SiteIcons::Options options;
    options.folder = m_dependencies->supportDirectory().file(kit::web::kKeptIconFolder);
    m_siteIcons = std::make_unique<SiteIcons>(std::move(options));
    m_icons.setSiteIconSource(
        [icons = m_siteIcons.get()](const std::string& address) { return icons->image(address); });
    m_siteIcons->onChanged([this](const std::string&) { siteIconChanged(); });
    m_pages.loader().host().pageIcon = [icons = m_siteIcons.get()](const std::string& address,
                                                                   const QIcon& icon) {
        icons->pageIcon(address, icon);
    };
    // Drawn as on the bar, so a notification carries the icon the person clicks.
    m_pages.noticeIcon = [this](const kit::library::Shortcut& shortcut) {
        constexpr int kSide = 64;
        return m_icons.draw(m_icons.glyph(shortcut, kSide),
                            kSide,
                            activeBar().appearance(kit::menubar::StatusItemHandle{}));
    };
    m_iconLibrary = store.library();
    m_iconObservation = store.observe([this, &store](unsigned changes) {
        if (changes
            & (kit::storage::LibraryStore::LibraryChanged
               | kit::storage::LibraryStore::BarsChanged)) {
            const auto& now = store.library();
            m_siteIcons->libraryChanged(m_iconLibrary, now);
            m_iconLibrary = now;
        }
    });
}

void DesktopApp::siteIconChanged()
{
    if (m_iconRedrawPending) {
        return;
    }
    m_iconRedrawPending = true;
    QTimer::singleShot(0, this, [this] {
        m_iconRedrawPending = false;
        if (!m_dependencies) {
            return;
        }
        if (auto* menuBar = m_dependencies->menuBar()) {
            menuBar->redraw();
        }
        if (m_manager) {
            m_manager->outline().iconsChanged();
        }
        if (m_editor) {
            m_editor->iconsChanged();
        }
    });
}

bool DesktopApp::isIconWindow(kit::keys::WindowRef window) const
{
    const auto isOne = [&](std::optional<kit::menubar::StatusItemHandle> handle) {
        return handle && QtScrollMonitoring::windowRefOf(m_statusBar->trayIcon(*handle)) == window;
    };
    auto* statusItem = m_dependencies->statusItem();
    if (statusItem && isOne(statusItem->statusItem())) {
        return true;
    }
    const auto* menuBar = m_dependencies->menuBar();
    for (const auto& id : menuBar->order()) {
        const auto* item = menuBar->item(id);
        if (item && isOne(item->button())) {
            return true;
        }
    }
    return false;
}

void DesktopApp::pointerEntered(kit::menubar::StatusItemHandle icon)
{
    const auto* menuBar = m_dependencies->menuBar();
    if (!menuBar) {
        return;
    }
    for (const auto& id : menuBar->order()) {
        const auto* item = menuBar->item(id);
        if (!item || item->button() != icon) {
            continue;
        }
        const auto* shortcut = m_dependencies->libraryStore().library().shortcut(id);
        const auto* target = shortcut ? shortcut->target.urlTarget() : nullptr;
        if (!target) {
            return;
        }
        const auto settings =
            kit::library::ResolvedBrowsing::resolve(*target, m_dependencies->settings().browsing());
        if (settings.openMode == kit::library::OpenMode::System) {
            return;
        }
        // Starting the engine takes most of a first page's second; a pointer resting on the icon
        // usually clicks it next. Posted, so the enter event is done with before the engine
        // holds the main thread.
        QTimer::singleShot(
            0, this, [this, copy = *shortcut] { m_pages.presenters().prepare(copy); });
        return;
    }
}

void DesktopApp::logIconsShown() const
{
    const auto* menuBar = m_dependencies->menuBar();
    const size_t count = menuBar ? menuBar->order().size() : 0;
    if (auto elapsed = millisecondsSinceProcessStart()) {
        kLog.info(std::to_string(count) + " icons in the menu bar " + std::to_string(*elapsed)
                  + " ms after start");
    }
}

void DesktopApp::handle(const std::string& line, const app::InstanceChannel::Reply& reply)
{
    const json request = json::parse(line, nullptr, false);
    const std::string command = request.is_object() && request.value("command", json()).is_string()
                                    ? request["command"].get<std::string>()
                                    : std::string();
    if (!m_dependencies) {
        reply(json{{"error", "Vantorel is still starting; try again in a moment."}}.dump());
        return;
    }
    if (command == "open" && request.value("path", json()).is_string()) {
        openDocument(request["path"].get<std::string>(), [reply](std::optional<std::string> error) {
            reply(error ? json{{"error", *error}}.dump() : json{{"ok", true}}.dump());
        });
        return;
    }
    if (command == "settingsChanged") {
        m_dependencies->settingsStore().reload();
        reply(json{{"ok", true}}.dump());
        return;
    }
    if (command == "show") {
        presentManager();
        reply(json{{"ok", true}}.dump());
        return;
    }
    reply(json{{"error", "This Vantorel does not know that request."}}.dump());
}

void DesktopApp::openDocument(const std::filesystem::path& file,
                              const app::AppDependencies::Opened& opened)
{
    m_dependencies->openDocument(
        file, [this, name = file.filename().string(), opened](std::optional<std::string> error) {
            if (error) {
                m_alerts.showAlert(name, *error);
            }
            if (opened) {
                opened(error);
            }
        });
}

ManagerWindow& DesktopApp::manager()
{
    if (!m_manager) {
        app::AppDependencies& dependencies = *m_dependencies;
        ManagerServices services(dependencies.libraryStore(), dependencies.proposals());
        services.version = app::AppDependencies::kVersion;
        services.makeSettings = [this, &dependencies](QWidget* parent) {
            return new SettingsWindow(
                dependencies.settings(),
                dependencies.grants(),
                parent,
                m_bridgePath,
                [&dependencies] {
                    return dependencies.hotKeys() ? dependencies.hotKeys()->refused()
                                                  : std::vector<std::string>{};
                },
                {},
                m_loginItem ? &*m_loginItem : nullptr,
                &m_pages.options());
        };
        services.edit = [this](const kit::storage::LibraryStore::EditRequest& request) {
            editor().edit(request);
        };
        services.add = [this](const kit::library::BarID& bar,
                              kit::library::Target::Kind kind,
                              std::optional<kit::library::ShortcutID> intoGroup) {
            editor().add(bar, kind, intoGroup);
        };
        kit::web::SessionStores& stores = m_pages.sessionStores();
        services.sessionData.siteCount = [&stores](const kit::library::SessionID& session,
                                                   std::function<void(int)> done) {
            stores.siteCount(session, std::move(done));
        };
        services.sessionData.clear = [&stores](const kit::library::SessionID& session,
                                               std::function<void()> done) {
            stores.clearData(session, std::move(done));
        };
        kit::web::NotificationSites& answers = m_pages.notificationSites();
        services.sessionData.remove = [&stores, &answers](const kit::library::SessionID& session) {
            stores.deleteStore(session, [](bool) {});
            // A site of a session that is gone asks again wherever it shows next.
            for (const auto& [site, allowed] : answers.sites(session.uuid)) {
                answers.forget(session.uuid, site);
            }
        };
        services.sessionData.notificationAnswers = [&answers, &dependencies] {
            std::vector<NotificationAnswer> all;
            const auto add = [&](const std::optional<kit::library::SessionID>& session) {
                const auto uuid = session ? std::optional(session->uuid) : std::nullopt;
                for (const auto& [site, allowed] : answers.sites(uuid)) {
                    all.push_back({session, site, allowed});
                }
            };
            add(std::nullopt);
            for (const auto& session : dependencies.libraryStore().sessions()) {
                add(session.id);
            }
            return all;
        };
        services.sessionData.watchNotificationAnswers =
            [&dependencies](std::function<void()> changed) -> std::function<void()> {
            auto& settings = dependencies.settingsStore();
            const size_t token =
                settings.observe([changed = std::move(changed)](const std::string& key) {
                    if (key.starts_with(kit::web::NotificationSites::kKeyPrefix)) {
                        changed();
                    }
                });
            return [&settings, token] { settings.removeObserver(token); };
        };
        services.sessionData.forgetNotificationAnswer =
            [&answers](const NotificationAnswer& answer) {
                answers.forget(answer.session ? std::optional(answer.session->uuid) : std::nullopt,
                               answer.site);
            };
        services.openDocument = [this](const std::filesystem::path& file,
                                       const app::AppDependencies::Opened& opened) {
            openDocument(file, opened);
        };
        services.showIntroduction = [this] { showIntroduction(std::nullopt); };
        services.shortcutIcon = [this](const kit::library::Shortcut& shortcut) {
            const bool dark = QGuiApplication::palette().window().color().lightness() < 128;
            return QIcon(QPixmap::fromImage(editor::menuBarPicture(
                m_icons,
                shortcut,
                32,
                dark ? kit::menubar::Appearance::Dark : kit::menubar::Appearance::Light)));
        };
        m_manager = new ManagerWindow(std::move(services));
    }
    return *m_manager;
}

void DesktopApp::showIntroduction(std::optional<kit::menubar::Rect> place)
{
    delete m_welcome.data();
    auto* window = new ManagerIntroduction(
        m_dependencies->settings(),
        [this] { presentManager(); },
        [this] { presentSettings(); },
        kit::menubar::introductionPlace(activeBar().host()));
    m_welcome = window;
    window->present(place);
}

editor::ShortcutEditor& DesktopApp::editor()
{
    if (!m_editor) {
        app::AppDependencies& dependencies = *m_dependencies;
        editor::EditorServices services{
            dependencies.libraryStore(),
            m_icons,
            dependencies.installedApps(),
            dependencies.iconTheme(),
            dependencies.targetFactory(),
            [&dependencies] { return dependencies.settings().browsing(); },
            {},
            [this] { return activeBar().appearance(kit::menubar::StatusItemHandle{}); },
            [this](const std::string& address) {
                if (m_siteIcons) {
                    m_siteIcons->search(address, true);
                }
            }};
        auto options = std::make_shared<kit::web::PageOptions>(dependencies.settingsStore());
        services.showsCount = [options](const kit::library::ShortcutID& id) {
            return options->showsCount(id);
        };
        services.setShowsCount = [options](const kit::library::ShortcutID& id, bool shows) {
            options->setShowsCount(id, shows);
        };
        services.notifies = [options](const kit::library::ShortcutID& id) {
            return options->notifies(id);
        };
        services.setNotifies = [options](const kit::library::ShortcutID& id, bool on) {
            options->setNotifies(id, on);
        };
        m_editor = std::make_unique<editor::ShortcutEditor>(std::move(services), m_manager.data());
    }
    return *m_editor;
}

void DesktopApp::presentManager()
{
    ManagerWindow& window = manager();
    if (!window.isVisible()) {
        window.showPane(ManagerWindow::Pane::Bar);
    }
    window.present();
}

void DesktopApp::presentSettings()
{
    ManagerWindow& window = manager();
    window.showPane(ManagerWindow::Pane::Settings);
    window.present();
}

void DesktopApp::presentReview()
{
    ManagerWindow& window = manager();
    window.showPane(ManagerWindow::Pane::Proposals);
    window.present();
}

void DesktopApp::editRequested()
{
    if (m_dependencies && m_dependencies->libraryStore().editRequest()) {
        manager().handleEditRequest();
    }
}

void DesktopApp::inboxChanged()
{
    const auto& inbox = m_dependencies->proposals();
    if (!inbox.isPending()) {
        m_presented.reset();
        return;
    }
    // A refreshed review of the same proposal leaves the windows as the person arranged them.
    if (m_presented && *m_presented == *inbox.proposal()) {
        return;
    }
    m_presented = inbox.proposal();
    presentReview();
}

void DesktopApp::quit()
{
    QCoreApplication::quit();
}

void DesktopApp::terminate()
{
    if (m_terminated) {
        return;
    }
    m_terminated = true;
    if (m_dependencies) {
        m_dependencies->terminate();
    }
    m_channel.stop();
}

void DesktopApp::listenForSignals()
{
    sigset_t quitSignals;
    sigemptyset(&quitSignals);
    sigaddset(&quitSignals, SIGINT);
    sigaddset(&quitSignals, SIGTERM);
    sigaddset(&quitSignals, SIGHUP);
    m_signalFD = ::signalfd(-1, &quitSignals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (m_signalFD < 0) {
        kLog.error("cannot listen for quit signals; Vantorel quits from its menu only");
        return;
    }
    m_signals = std::make_unique<QSocketNotifier>(m_signalFD, QSocketNotifier::Read);
    connect(m_signals.get(), &QSocketNotifier::activated, this, [this] {
        signalfd_siginfo info{};
        while (::read(m_signalFD, &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
        }
        quit();
    });
}

} // namespace desktop
