// SPDX-License-Identifier: MIT
#include "desktop/pages/app_pages.h"

#include "app/app_dependencies.h"
#include "kit/support/log.h"
#include "kit/web/content_blocker.h"
#include "kit/web/page_notifications.h"
#include "kit/web/page_options.h"

namespace desktop::pages {

using kit::library::ContentSize;
using kit::library::ShortcutID;

namespace {

constexpr kit::support::Logger kLog("browser");

} // namespace

AppPages::AppPages(kit::support::MainQueue& mainQueue,
                   kit::menubar::StatusBar& statusBar,
                   kit::opening::WorkspaceOpening& workspace)
    : m_mainQueue(mainQueue)
    , m_statusBar(statusBar)
    , m_workspace(workspace)
{
    Host host;
    host.mainQueue = &m_mainQueue;
    host.playing = &m_playing;
    const ProfileRoots roots = ProfileRoots::standard();
    host.storageRoot = roots.storage;
    host.cacheRoot = roots.cache;
    host.startMarks = StartMarks::fromEnvironment();
    host.openInBrowser = [this](const std::string& address) {
        if (!m_workspace.open(address)) {
            kLog.error("nothing opens " + address);
        }
    };
    m_loader = std::make_unique<PagesLoader>(std::move(host), PagesLoader::defaultCandidates());
    m_presenters = std::make_unique<PagePresenters>(PagePresenters::Services{
        *m_loader, nullptr, [this](kit::opening::Anchor anchor) {
            const auto place = m_statusBar.geometry(kit::menubar::StatusItemHandle{anchor.value});
            if (!place || place->isEmpty()) {
                return QRect();
            }
            return QRect(static_cast<int>(place->x),
                         static_cast<int>(place->y),
                         static_cast<int>(place->width),
                         static_cast<int>(place->height));
        }});
}

AppPages::~AppPages()
{
    close();
}

void AppPages::connect(app::AppDependencies& dependencies)
{
    m_dependencies = &dependencies;
    m_profileStores = std::make_unique<ProfileStores>(
        *m_loader,
        m_mainQueue,
        ProfileRoots{m_loader->host().storageRoot, m_loader->host().cacheRoot},
        makeRuleListStore(dependencies.supportDirectory().file("ContentRules")));
    m_sessionStores = std::make_unique<kit::web::SessionStores>(*m_profileStores);

    Host& host = m_loader->host();
    host.ruleLists = &m_profileStores->ruleLists();
    if (auto root = rulesRoot()) {
        host.rulesRoot = *root;
    }
    auto* store = &dependencies.libraryStore();
    auto* settings = &dependencies.settings();
    host.asksWhereToSaveDownloads = [settings] { return settings->asksWhereToSaveDownloads(); };
    host.appearance = [settings] { return settings->appearance(); };
    m_options = std::make_unique<kit::web::PageOptions>(dependencies.settingsStore());
    host.discardAfter = [options = m_options.get()] { return options->discardAfter(); };
    host.counts = &m_counts;
    host.showsCount = [options = m_options.get()](const ShortcutID& id) {
        return options->showsCount(id);
    };
    // A count switched off goes from its icon at once, not at the page's next change.
    m_optionsObservation = dependencies.settingsStore().observe([this](const std::string& key) {
        constexpr std::string_view kCountKey = "pageCount.";
        if (key.starts_with(kCountKey)) {
            const auto id = ShortcutID::parse(std::string_view(key).substr(kCountKey.size()));
            if (id && !m_options->showsCount(*id)) {
                m_counts.set(*id, {});
            }
        }
    });
    host.savePopoverSize = [store](const ShortcutID& id, const ContentSize& size) {
        store->mutate([&](kit::library::Library& library) { library.setPopoverSize(id, size); });
    };
    host.saveWindowSize = [store](const ShortcutID& id, const ContentSize& size) {
        store->mutate([&](kit::library::Library& library) { library.setWindowSize(id, size); });
    };
    host.saveZoom = [store](const ShortcutID& id, double zoom) {
        store->mutate([&](kit::library::Library& library) {
            library.apply(kit::library::change::Zoom{zoom}, id);
        });
    };
    host.saveLastVisited = [store](const ShortcutID& id, const std::string& address) {
        store->mutate(
            [&](kit::library::Library& library) { library.setLastVisitedURL(id, address); });
    };

    m_presenters->setAnchorFallback(
        [&dependencies](const ShortcutID& id) -> std::optional<kit::opening::Anchor> {
            const auto* menuBar = dependencies.menuBar();
            const auto button = menuBar ? menuBar->button(id) : std::nullopt;
            if (!button) {
                return std::nullopt;
            }
            return kit::opening::Anchor{button->value};
        });
    if (auto* menuBar = dependencies.menuBar()) {
        menuBar->setPlaying(&m_playing);
        menuBar->setCounts(&m_counts);
    }
    connectNotifications(dependencies);
}

std::optional<kit::library::Shortcut> AppPages::shortcut(const ShortcutID& id) const
{
    if (!m_dependencies) {
        return std::nullopt;
    }
    auto& store = m_dependencies->libraryStore();
    for (const auto& bar : store.bars()) {
        const auto library = store.library(bar.id);
        const auto* found = library ? library->shortcut(id) : nullptr;
        if (found) {
            return *found;
        }
    }
    return std::nullopt;
}

void AppPages::connectNotifications(app::AppDependencies& dependencies)
{
    m_notificationSites =
        std::make_unique<kit::web::NotificationSites>(dependencies.settingsStore());
    // The session whose answers a shortcut's page uses; nothing for a shortcut that has gone.
    auto session =
        [this](const ShortcutID& id) -> std::optional<std::optional<kit::support::Uuid>> {
        const auto found = shortcut(id);
        const auto* target = found ? found->target.urlTarget() : nullptr;
        if (!target || target->isPrivate) {
            return std::nullopt;
        }
        return target->sessionID ? std::optional(target->sessionID->uuid) : std::nullopt;
    };
    Host& host = m_loader->host();
    host.notificationStep = [this, session](const ShortcutID& id, const std::string& site) {
        const auto in = session(id);
        if (!in) {
            return kit::web::PermissionStep::Refuse;
        }
        return kit::web::permissionStep(m_options->notificationsAllowed(),
                                        m_options->notifies(id),
                                        m_notificationSites->answer(*in, site));
    };
    host.notificationAnswered =
        [this, session](const ShortcutID& id, const std::string& site, bool allowed) {
            if (const auto in = session(id)) {
                m_notificationSites->remember(*in, site, allowed);
            }
        };
    host.notify = [this, session](const ShortcutID& id,
                                  const std::string& site,
                                  const std::string& title,
                                  const std::string& body) {
        const auto in = session(id);
        const auto found = shortcut(id);
        if (!in || !found
            || !kit::web::delivers(m_options->notificationsAllowed(),
                                   m_options->notifies(id),
                                   m_notificationSites->answer(*in, site))) {
            return;
        }
        if (!m_notices) {
            m_notices = std::make_unique<DesktopNotices>();
            m_notices->clicked = [this](const ShortcutID& clicked) {
                auto* opener = m_dependencies ? m_dependencies->opener() : nullptr;
                if (const auto target = shortcut(clicked); target && opener) {
                    opener->open(*target);
                }
            };
        }
        m_notices->show(id,
                        kit::web::composeNotice(found->name, title, body),
                        noticeIcon ? noticeIcon(*found) : QImage());
    };
}

void AppPages::removeOrphanSessions()
{
    if (!m_dependencies || !m_sessionStores) {
        return;
    }
    const auto inUse = m_dependencies->libraryStore().sessionIDsToKeep();
    if (!inUse) {
        return;
    }
    m_sessionStores->removeOrphans(*inUse, [](int removed) {
        if (removed > 0) {
            kLog.info("removed the website data of " + std::to_string(removed)
                      + " sessions no bar uses");
        }
    });
}

void AppPages::close()
{
    m_loader->close();
}

std::optional<std::filesystem::path> AppPages::rulesRoot()
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return std::nullopt;
    }
    const auto folder = self.parent_path();
    // Installed: <prefix>/bin and <prefix>/share/vantorel; the build tree: <build>/src/main and
    // <build>/share.
    for (const auto& candidate : {folder.parent_path() / "share" / "vantorel",
                                  folder.parent_path().parent_path() / "share"}) {
        if (kit::web::findRulesFile(candidate)) {
            return candidate;
        }
    }
    return std::nullopt;
}

} // namespace desktop::pages
