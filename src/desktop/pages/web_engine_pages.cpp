// SPDX-License-Identifier: MIT
// The pages module: everything that links the web engine, behind desktop::pages::Pages.
#include "desktop/pages/page_frame.h"
#include "desktop/pages/page_prompts.h"
#include "desktop/pages/pages.h"
#include "desktop/pages/profiles.h"
#include "desktop/qt_geometry.h"
#include "desktop/window_fit.h"
#include "kit/menubar/panel_placement.h"
#include "kit/support/log.h"
#include "kit/support/serial_queue.h"
#include "kit/web/content_blocker.h"
#include "kit/web/page_sleep.h"

#include <QApplication>
#include <QChildEvent>
#include <QCursor>
#include <QGuiApplication>
#include <QOpenGLContext>
#include <QPointer>
#include <QQuickWindow>
#include <QScreen>
#include <QSurfaceFormat>
#include <QTimer>
#include <QWebEngineCookieStore>
#include <QWebEngineDownloadRequest>
#include <QWebEngineNewWindowRequest>
#include <QWebEngineNotification>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineView>

#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <vector>

// From QtGui's private qopenglcontext_p.h, exported for the engine's own start-up.
// Their names are QtGui's.
// NOLINTBEGIN(readability-identifier-naming)
Q_GUI_EXPORT QOpenGLContext* qt_gl_global_share_context();
Q_GUI_EXPORT void qt_gl_set_global_share_context(QOpenGLContext* context);
// NOLINTEND(readability-identifier-naming)

namespace desktop::pages {

namespace {

using kit::library::NewWindowLinks;
using kit::library::ResolvedBrowsing;
using kit::library::Shortcut;
using kit::library::ShortcutID;
using kit::support::Uuid;

constexpr kit::support::Logger kLog("browser");

// Whether the page holds a form the person changed, or is being typed in: such a page must not
// be discarded, which would lose what was typed.
constexpr auto kHoldsTyping = R"js((function(){
  var a = document.activeElement;
  if (a && (a.isContentEditable || /^(INPUT|TEXTAREA)$/.test(a.tagName) && a.value)) return true;
  var fields = document.querySelectorAll('input,textarea');
  for (var i = 0; i < fields.length; ++i) {
    var f = fields[i];
    if (/^(hidden|submit|button|checkbox|radio|file)$/.test(f.type)) continue;
    if (f.value !== f.defaultValue) return true;
  }
  return false;
})())js";

// Marks a first page's loading and its first paints, which the page's own widget receives once
// the engine made it.
class PaintMarks final : public QObject
{
public:
    PaintMarks(QWebEngineView& view, std::shared_ptr<StartMarks> marks)
        : QObject(&view)
        , m_marks(std::move(marks))
    {
        view.installEventFilter(this);
        QObject::connect(view.page(), &QWebEnginePage::loadStarted, this, [this] {
            m_marks->mark("load started");
        });
        QObject::connect(view.page(), &QWebEnginePage::loadFinished, this, [this] {
            m_marks->mark("load finished");
        });
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::ChildAdded) {
            if (auto* child = static_cast<QChildEvent*>(event)->child(); child->isWidgetType()) {
                child->installEventFilter(this);
            }
        } else if (event->type() == QEvent::Paint && watched != parent()) {
            m_marks->mark("page painted");
            if (++m_paints == kPaintsMarked) {
                m_marks->finish();
            }
        }
        return false;
    }

private:
    static constexpr int kPaintsMarked = 4;
    std::shared_ptr<StartMarks> m_marks;
    int m_paints = 0;
};

// Private pages and pages of one session told apart by shortcut, then by kind.
struct Key
{
    ShortcutID shortcut;
    PageFrame::Kind kind;

    // The check misreads the comparison a defaulted <=> makes with literal zero.
    auto operator<=>(const Key&) const = default; // NOLINT(modernize-use-nullptr)
};

// The web engine's side of the in-app pages: one frame per shortcut and kind, profiles per
// session, and blocking for every page that asks for it. Main thread only.
class WebEnginePages final : public Pages
{
public:
    explicit WebEnginePages(const Host& host)
        : m_host(host)
        , m_profiles(host.storageRoot, host.cacheRoot)
        , m_rulesQueue("pages.rules")
    {
        m_profiles.onMade = [this](QWebEngineProfile& profile) {
            watchDownloads(profile);
            presentNotifications(profile);
        };
        m_restTimer.setSingleShot(true);
        QObject::connect(&m_restTimer, &QTimer::timeout, [this] { rest(); });
        if (m_host.ruleLists && m_host.mainQueue) {
            m_blocker = std::make_unique<kit::web::ContentBlocker>(
                *m_host.ruleLists,
                kit::web::RulesBundle{m_host.rulesRoot, {}},
                m_rulesQueue,
                *m_host.mainQueue);
            m_blocker->prepare();
        }
    }

    ~WebEnginePages() override
    {
        // Pages first: each holds its profile.
        for (auto& [key, frame] : m_frames) {
            delete frame.data();
        }
        for (auto& extra : m_extraWindows) {
            delete extra.data();
        }
        m_frames.clear();
    }

    void showPanel(const Shortcut& shortcut, const ResolvedBrowsing& settings, QRect icon) override
    {
        const auto* target = shortcut.target.urlTarget();
        if (!target) {
            return;
        }
        PageFrame* panel = frame({shortcut.id, PageFrame::Kind::Panel});
        if (panel && panel->isVisible()) {
            panel->hide();
            return;
        }
        // A click on the icon first takes the focus from the panel, which hides it.
        if (panel && panel->hiddenJustNow()) {
            return;
        }
        const bool fresh = !panel;
        if (fresh) {
            panel = make(PageFrame::Kind::Panel, shortcut, settings);
            markStart(m_host.startMarks, "page made");
        } else {
            refresh(*panel, shortcut, settings);
        }
        const QPoint pointer = QCursor::pos();
        QScreen* screen = QGuiApplication::screenAt(icon.isEmpty() ? pointer : icon.center());
        if (!screen) {
            screen = QGuiApplication::primaryScreen();
        }
        const QSize size = panel->contentSize();
        panel->present(
            toQt(kit::menubar::panelGeometry(toKit(icon),
                                             {double(pointer.x()), double(pointer.y())},
                                             {double(size.width()), double(size.height())},
                                             toKit(screen->availableGeometry()))));
        markStart(m_host.startMarks, "panel shown");
        if (fresh) {
            panel->start(*target);
        } else if (settings.reloadsOnOpen) {
            panel->view()->reload();
        }
    }

    void showWindow(const Shortcut& shortcut, const ResolvedBrowsing& settings) override
    {
        const auto* target = shortcut.target.urlTarget();
        if (!target) {
            return;
        }
        if (PageFrame* window = frame({shortcut.id, PageFrame::Kind::Window})) {
            refresh(*window, shortcut, settings);
            window->present(std::nullopt);
            if (settings.reloadsOnOpen) {
                window->view()->reload();
            }
            return;
        }
        PageFrame* window = make(PageFrame::Kind::Window, shortcut, settings);
        window->present(fittedGeometry(*window, window->size()));
        window->start(*target);
    }

    void prepare(const Shortcut& shortcut) override
    {
        const auto* target = shortcut.target.urlTarget();
        // A private page's profile is its own, made with the page.
        if (!target || target->isPrivate) {
            return;
        }
        m_profiles.profile(target->sessionID ? std::optional(target->sessionID->uuid)
                                             : std::nullopt);
        m_preparedAhead = m_preparedAhead || !m_firstLoadLogged;
    }

    bool bringToFront(const ShortcutID& shortcut) override
    {
        PageFrame* window = frame({shortcut, PageFrame::Kind::Window});
        if (!window) {
            return false;
        }
        window->present(std::nullopt);
        return true;
    }

    QWidget* panel(const ShortcutID& shortcut) const override
    {
        return frame({shortcut, PageFrame::Kind::Panel});
    }

    QWidget* window(const ShortcutID& shortcut) const override
    {
        return frame({shortcut, PageFrame::Kind::Window});
    }

    void siteCount(const std::optional<Uuid>& session, std::function<void(int)> done) override
    {
        m_profiles.siteCount(session, std::move(done));
    }

    void removeAllData(const std::optional<Uuid>& session, std::function<void()> done) override
    {
        if (QWebEngineProfile* profile = m_profiles.existing(session)) {
            profile->clearHttpCache();
            profile->cookieStore()->deleteAllCookies();
            profile->clearAllVisitedLinks();
        }
        // Site storage has no call of its own: the profile lets go and its folders are emptied.
        releaseSession(session);
        const auto storage = m_profiles.storageFolder(session);
        const auto cache = m_profiles.cacheFolder(session);
        m_host.mainQueue->postAfter(kLetGo, [storage, cache, done = std::move(done)] {
            for (const auto& folder : {storage, cache}) {
                std::error_code error;
                std::filesystem::remove_all(folder, error);
                if (error) {
                    kLog.error("cannot empty " + folder.string() + ": " + error.message());
                }
            }
            done();
        });
    }

    void releaseSession(const Uuid& session) override { releaseSession(std::optional(session)); }

    // How long the engine is given to close a dropped profile's files.
    static constexpr std::chrono::milliseconds kLetGo{500};

private:
    void releaseSession(const std::optional<Uuid>& session)
    {
        QWebEngineProfile* profile = m_profiles.existing(session);
        if (!profile) {
            return;
        }
        for (auto it = m_frames.begin(); it != m_frames.end();) {
            if (it->second && it->second->profile() == profile) {
                m_sleep.forget(it->first.shortcut.string());
                if (m_host.counts) {
                    m_host.counts->set(it->first.shortcut, {});
                }
                delete it->second.data();
                it = m_frames.erase(it);
            } else {
                ++it;
            }
        }
        for (auto& extra : m_extraWindows) {
            if (extra && extra->page()->profile() == profile) {
                delete extra.data();
            }
        }
        m_profiles.release(session);
    }

    void refresh(PageFrame& frame, const Shortcut& shortcut, const ResolvedBrowsing& settings)
    {
        frame.update(shortcut, settings);
        applyLook(frame);
        if (m_blocker) {
            m_blocker->apply(frame.rules(), settings.blocksAds);
        }
    }

    void applyLook(PageFrame& frame) const
    {
        frame.setLook(m_host.appearance ? m_host.appearance()
                                        : kit::settings::AppAppearance::System);
    }

    PageFrame* frame(const Key& key) const
    {
        auto found = m_frames.find(key);
        return found == m_frames.end() ? nullptr : found->second.data();
    }

    PageFrame*
    make(PageFrame::Kind kind, const Shortcut& shortcut, const ResolvedBrowsing& settings)
    {
        const auto& target = *shortcut.target.urlTarget();
        const ShortcutID id = shortcut.id;
        const bool isPrivate = target.isPrivate;
        PageFrame::Callbacks callbacks;
        callbacks.resized = [this, id, kind](const kit::library::ContentSize& size) {
            auto& save =
                kind == PageFrame::Kind::Panel ? m_host.savePopoverSize : m_host.saveWindowSize;
            if (save) {
                save(id, size);
            }
        };
        callbacks.loaded = [this, id, isPrivate](bool ok, const std::string& address) {
            // A private page leaves no trace, not even where it was.
            if (ok && !isPrivate && m_host.saveLastVisited) {
                auto& last = m_lastVisited[id];
                if (last != address) {
                    last = address;
                    m_host.saveLastVisited(id, address);
                }
            }
            if (!m_firstLoadLogged) {
                m_firstLoadLogged = true;
                const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
                    std::chrono::steady_clock::now() - m_host.askedAt);
                kLog.info("first page loaded " + std::to_string(elapsed.count())
                          + " ms after it was asked for"
                          + (m_preparedAhead ? ", the engine started ahead of it"
                                             : ", the engine's start included"));
            }
            if (m_host.loaded) {
                m_host.loaded(id, ok);
            }
        };
        if (!isPrivate) {
            callbacks.iconChanged = [this](const QIcon& icon, const std::string& address) {
                if (m_host.pageIcon) {
                    m_host.pageIcon(address, icon);
                }
            };
        }
        callbacks.countChanged = [this, id](const std::string& count) {
            if (m_host.counts) {
                const bool shows = !m_host.showsCount || m_host.showsCount(id);
                m_host.counts->set(id, shows ? count : std::string());
            }
        };
        callbacks.openInBrowser = [this](const std::string& address) {
            if (m_host.openInBrowser) {
                m_host.openInBrowser(address);
            }
        };
        callbacks.zoomed = [this, id](double zoom) {
            if (m_host.saveZoom) {
                m_host.saveZoom(id, zoom);
            }
        };
        if (!isPrivate) {
            callbacks.notifications.step = [this, id](const std::string& site) {
                return m_host.notificationStep ? m_host.notificationStep(id, site)
                                               : kit::web::PermissionStep::Refuse;
            };
            callbacks.notifications.answered = [this, id](const std::string& site, bool allowed) {
                if (m_host.notificationAnswered) {
                    m_host.notificationAnswered(id, site, allowed);
                }
            };
        }
        callbacks.newWindow = [this, id, kind](QWebEngineNewWindowRequest& request) {
            newWindow(frame({id, kind}), request);
        };
        if (kind == PageFrame::Kind::Panel) {
            callbacks.shownChanged = [this, id](bool shown) { panelShown(id, shown); };
            callbacks.audibleChanged = [this, id](bool audible) { panelAudible(id, audible); };
        }
        // Made before the agent is read: the first profile is what tells the engine's agent.
        std::unique_ptr<QWebEngineProfile> privateProfile =
            isPrivate ? m_profiles.makePrivate() : nullptr;
        QWebEngineProfile* sessionProfile =
            isPrivate ? nullptr
                      : m_profiles.profile(target.sessionID ? std::optional(target.sessionID->uuid)
                                                            : std::nullopt);
        markStart(m_host.startMarks, "profile made");
        auto* made = new PageFrame(kind,
                                   shortcut,
                                   settings,
                                   sessionProfile,
                                   std::move(privateProfile),
                                   m_profiles.engineAgent(),
                                   std::move(callbacks));
        m_frames[{id, kind}] = made;
        if (m_host.startMarks && !m_firstLoadLogged) {
            new PaintMarks(*made->view(), m_host.startMarks);
        }
        applyLook(*made);
        if (m_blocker) {
            m_blocker->apply(made->rules(), settings.blocksAds);
        }
        return made;
    }

    // A link that asks for a new window goes where the shortcut says.
    void newWindow(PageFrame* from, QWebEngineNewWindowRequest& request)
    {
        if (!from) {
            return;
        }
        switch (from->settings().newWindowLinks) {
        case NewWindowLinks::ThisPage:
            from->view()->load(request.requestedUrl());
            return;
        case NewWindowLinks::Browser:
            if (m_host.openInBrowser) {
                m_host.openInBrowser(request.requestedUrl().toString().toStdString());
            }
            return;
        case NewWindowLinks::NewWindow:
            break;
        }
        // A window of its own on the same profile, so the opener can still talk to it (sign-in
        // pop-ups do).
        auto* window = new QWebEngineView;
        window->setAttribute(Qt::WA_DeleteOnClose);
        window->setPage(new QWebEnginePage(from->profile(), window));
        window->resize(from->size().expandedTo(QSize(800, 600)));
        QObject::connect(
            window->page(), &QWebEnginePage::titleChanged, window, &QWidget::setWindowTitle);
        QObject::connect(
            window->page(), &QWebEnginePage::windowCloseRequested, window, &QWidget::close);
        attachPrompts(*window);
        if (m_blocker) {
            auto rules = std::make_shared<PageRules>(window->page());
            m_extraRules.push_back(rules);
            m_blocker->apply(rules, from->settings().blocksAds);
        }
        request.openIn(window->page());
        window->show();
        m_extraWindows.emplace_back(window);
    }

    // The resting pages' clock: real time, with minutes as long as the host says.
    kit::web::PageSleep::Clock::time_point restNow() const
    {
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - m_restStart);
        return m_restStart + elapsed * kMinuteMs / m_host.restMinute.count();
    }

    void scheduleRest()
    {
        const auto next = m_sleep.nextDue();
        if (!next) {
            m_restTimer.stop();
            return;
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(*next - restNow())
                          * m_host.restMinute.count() / kMinuteMs;
        m_restTimer.start(std::max<std::chrono::milliseconds>(wait, {}) + kRestSlack);
    }

    // Applies what is due: freezing asks the page about typing first, while it can answer.
    void rest()
    {
        for (const auto& due : m_sleep.due(restNow())) {
            const auto id = ShortcutID::parse(due.page);
            PageFrame* panel = id ? frame({*id, PageFrame::Kind::Panel}) : nullptr;
            if (!panel || panel->isVisible()) {
                continue;
            }
            QPointer<QWebEnginePage> page = panel->page();
            if (due.step == kit::web::PageSleep::Step::Freeze) {
                page->runJavaScript(QString::fromLatin1(kHoldsTyping),
                                    QWebEngineScript::ApplicationWorld,
                                    [this, page, key = due.page](const QVariant& typing) {
                                        m_sleep.typed(key, typing.toBool());
                                        if (page && !page->isVisible()) {
                                            page->setLifecycleState(
                                                QWebEnginePage::LifecycleState::Frozen);
                                        }
                                        scheduleRest();
                                    });
            } else if (page->lifecycleState() != QWebEnginePage::LifecycleState::Discarded) {
                kLog.info("a hidden page was discarded to free its memory");
                page->setLifecycleState(QWebEnginePage::LifecycleState::Discarded);
            }
        }
        scheduleRest();
    }

    void panelShown(const ShortcutID& id, bool shown)
    {
        PageFrame* panel = frame({id, PageFrame::Kind::Panel});
        if (!panel) {
            return;
        }
        QWebEnginePage* page = panel->page();
        const std::string key = id.string();
        if (shown) {
            m_sleep.shown(key);
            // A discarded page loads again where it was.
            if (page->lifecycleState() != QWebEnginePage::LifecycleState::Active) {
                page->setLifecycleState(QWebEnginePage::LifecycleState::Active);
            }
        } else {
            m_sleep.setDiscardAfter(m_host.discardAfter
                                        ? m_host.discardAfter()
                                        : kit::web::PageSleep::kDiscardAfterDefault);
            m_sleep.hidden(key, restNow());
        }
        scheduleRest();
        if (shown) {
            page->setAudioMuted(false);
            setPlaying(id, false);
            return;
        }
        if (panel->settings().keepsPlaying) {
            setPlaying(id, page->recentlyAudible());
            m_sleep.playing(key, page->recentlyAudible(), restNow());
            scheduleRest();
            return;
        }
        // A closed panel that does not keep playing is silenced and its media paused, so it
        // does not carry on unseen.
        page->setAudioMuted(true);
        page->runJavaScript(QStringLiteral(
            "document.querySelectorAll('audio,video').forEach(function(m){m.pause();});"));
    }

    void panelAudible(const ShortcutID& id, bool audible)
    {
        PageFrame* panel = frame({id, PageFrame::Kind::Panel});
        if (panel && !panel->isVisible() && panel->settings().keepsPlaying) {
            setPlaying(id, audible);
            m_sleep.playing(id.string(), audible, restNow());
            scheduleRest();
        }
    }

    void setPlaying(const ShortcutID& id, bool playing) const
    {
        if (!m_host.playing) {
            return;
        }
        if (playing) {
            m_host.playing->insert(id);
        } else {
            m_host.playing->erase(id);
        }
    }

    // A profile's notifications go to the shortcut whose page shows the notifying site.
    void presentNotifications(QWebEngineProfile& profile)
    {
        if (profile.isOffTheRecord()) {
            return;
        }
        QWebEngineProfile* from = &profile;
        profile.setNotificationPresenter(
            [this, from](std::unique_ptr<QWebEngineNotification> notification) {
                std::vector<kit::web::OpenPage> pages;
                for (const auto& [key, frame] : m_frames) {
                    if (frame && frame->profile() == from) {
                        pages.push_back({key.shortcut, siteOf(frame->page()->url())});
                    }
                }
                const std::string site = siteOf(notification->origin());
                const auto shortcut = kit::web::notifyingShortcut(pages, site);
                if (!shortcut || !m_host.notify) {
                    kLog.info("a notification from a site no open page shows was dropped");
                    return;
                }
                notification->show();
                m_host.notify(*shortcut,
                              site,
                              notification->title().toStdString(),
                              notification->message().toStdString());
            });
    }

    void watchDownloads(QWebEngineProfile& profile)
    {
        QObject::connect(&profile,
                         &QWebEngineProfile::downloadRequested,
                         &profile,
                         [this](QWebEngineDownloadRequest* download) {
                             QWidget* owner = nullptr;
                             if (auto* view = QWebEngineView::forPage(download->page())) {
                                 owner = view->window();
                             }
                             const bool asks = !m_host.asksWhereToSaveDownloads
                                               || m_host.asksWhereToSaveDownloads();
                             placeDownload(*download, owner, asks);
                         });
    }

    // Timers fire a little early or late; a step is looked for just after it is due.
    static constexpr std::chrono::milliseconds kRestSlack{50};
    static constexpr std::int64_t kMinuteMs = 60'000;

    kit::web::PageSleep m_sleep;
    QTimer m_restTimer;
    std::chrono::steady_clock::time_point m_restStart = std::chrono::steady_clock::now();
    bool m_firstLoadLogged = false;
    // Whether the engine was started before the first page was asked for.
    bool m_preparedAhead = false;
    // The loader's, which outlives the module's objects; read live, as askedAt changes.
    const Host& m_host;
    Profiles m_profiles;
    kit::support::SerialQueue m_rulesQueue;
    std::unique_ptr<kit::web::ContentBlocker> m_blocker;
    std::map<Key, QPointer<PageFrame>> m_frames;
    std::vector<QPointer<QWebEngineView>> m_extraWindows;
    std::vector<std::shared_ptr<PageRules>> m_extraRules;
    std::map<ShortcutID, std::string> m_lastVisited;
};

// WORKAROUND: the engine wants a global GL share context made before the application object
// (Qt::AA_ShareOpenGLContexts), but that context loads the GL driver into every idle app. The
// engine's own start-up makes the same context late when it is loaded as a plugin-less library;
// this does it here, before the first page, just as the engine would.
void shareGLContext()
{
    if (qt_gl_global_share_context()) {
        return;
    }
    auto* context = new QOpenGLContext(qApp);
    context->setFormat(QSurfaceFormat::defaultFormat());
    context->create();
    qt_gl_set_global_share_context(context);
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
}

bool hasExtension(xcb_connection_t* connection, const char* name)
{
    auto* reply = xcb_query_extension_reply(
        connection,
        xcb_query_extension(connection, static_cast<uint16_t>(std::strlen(name)), name),
        nullptr);
    const bool present = reply && reply->present;
    std::free(reply);
    return present;
}

// Whether OpenGL here would be drawn by the CPU: no GPU device, or an X server that cannot hand
// one to its clients (Xvfb, most remote displays). A CPU-drawn GL scene graph took a cold first
// page about 350 ms longer to show than Qt Quick's own software renderer on such a machine.
bool glDrawnByCPU()
{
    std::error_code error;
    if (!std::filesystem::exists("/dev/dri", error)) {
        return true;
    }
    if (auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>()) {
        xcb_connection_t* connection = x11->connection();
        return !hasExtension(connection, "DRI3") && !hasExtension(connection, "DRI2");
    }
    return false;
}

// Chooses how pages reach the screen, before the engine's first window; a renderer the person
// chose through Qt's own variables stands.
void chooseRenderer()
{
    // Read on the main thread before the engine starts its threads.
    const bool chosen = std::getenv("QT_QUICK_BACKEND")    // NOLINT(concurrency-mt-unsafe)
                        || std::getenv("QSG_RHI_BACKEND"); // NOLINT(concurrency-mt-unsafe)
    if (!chosen && glDrawnByCPU()) {
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        kLog.info("no GPU to draw with: pages use Qt Quick's software renderer");
    }
    shareGLContext();
}

} // namespace

} // namespace desktop::pages

// The name the loader looks the module's entry up by.
extern "C" __attribute__((visibility("default"))) desktop::pages::Pages*
vantorel_make_pages(const desktop::pages::Host* host) // NOLINT(readability-identifier-naming)
{
    desktop::pages::chooseRenderer();
    desktop::pages::markStart(host->startMarks, "renderer chosen");
    return new desktop::pages::WebEnginePages(*host);
}
