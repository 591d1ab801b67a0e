// SPDX-License-Identifier: MIT
#include "desktop/pages/page_frame.h"

#include "desktop/keys/qt_modifiers.h"
#include "desktop/pages/page_header.h"
#include "desktop/pages/page_prompts.h"
#include "kit/web/page_rules.h"
#include "kit/web/page_titles.h"

#ifdef VANTOREL_HAS_PAGE_BLOCKING
#include "desktop/blocking/page_blocking.h"
#endif

#include <QApplication>
#include <QDateTime>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPalette>
#include <QShortcut>
#include <QSizeGrip>
#include <QStyle>
#include <QVBoxLayout>
#include <QWebEngineNewWindowRequest>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineView>

#include <xcb/xcb.h>

#include <cmath>
#include <cstdlib>

namespace desktop::pages {

using kit::library::ContentSize;
using kit::library::PageAppearance;
using kit::library::PageZoom;
using kit::library::ResolvedBrowsing;
using kit::library::Shortcut;
using kit::library::SurfaceLimits;

namespace {

constexpr auto kAppearanceScript = "vantorel-appearance";
constexpr int kZoomBadgeMs = 1200;

// The colour scheme a page's own styles follow, or the inversion that darkens any page.
QString appearanceStyle(PageAppearance appearance)
{
    switch (appearance) {
    case PageAppearance::System:
        return {};
    case PageAppearance::Light:
        return QStringLiteral(":root{color-scheme:light}");
    case PageAppearance::Dark:
        return QStringLiteral(":root{color-scheme:dark}");
    case PageAppearance::ForcedDark:
        // Pictures are turned back so they keep their colours.
        return QStringLiteral(
            "html{filter:invert(1) hue-rotate(180deg)!important;background:#fff}"
            "img,video,picture,canvas,iframe,embed,object,[style*='background-image']"
            "{filter:invert(1) hue-rotate(180deg)!important}");
    }
    return {};
}

constexpr int kShadow = 10;

// The dark look of the frame round a page, in the greys dark desktop themes use.
QPalette darkLook()
{
    QPalette look;
    const QColor text(230, 230, 230);
    const QColor dimText(150, 150, 150);
    look.setColor(QPalette::Window, QColor(43, 43, 43));
    look.setColor(QPalette::WindowText, text);
    look.setColor(QPalette::Base, QColor(30, 30, 30));
    look.setColor(QPalette::AlternateBase, QColor(50, 50, 50));
    look.setColor(QPalette::Text, text);
    look.setColor(QPalette::Button, QColor(55, 55, 55));
    look.setColor(QPalette::ButtonText, text);
    look.setColor(QPalette::PlaceholderText, dimText);
    look.setColor(QPalette::Light, QColor(80, 80, 80));
    look.setColor(QPalette::Midlight, QColor(65, 65, 65));
    look.setColor(QPalette::Mid, QColor(85, 85, 85));
    look.setColor(QPalette::Dark, QColor(20, 20, 20));
    look.setColor(QPalette::Shadow, Qt::black);
    look.setColor(QPalette::ToolTipBase, QColor(55, 55, 55));
    look.setColor(QPalette::ToolTipText, text);
    look.setColor(QPalette::Highlight, QColor(53, 132, 228));
    look.setColor(QPalette::HighlightedText, Qt::white);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        look.setColor(QPalette::Disabled, role, QColor(110, 110, 110));
    }
    return look;
}

// How a page's navigator.setAppBadge reaches us: a console message only this script writes.
constexpr auto kBadgeMark = "\x01vantorel-app-badge:";

// The engine has no app badges outside installed web apps; pages get the calls anyway, so a
// site that badges its app icon badges its shortcut's icon.
void addBadgeScript(QWebEnginePage& page)
{
    QWebEngineScript script;
    script.setName(QStringLiteral("vantorel-app-badge"));
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::MainWorld);
    script.setRunsOnSubFrames(false);
    script.setSourceCode(QStringLiteral(
        "(function(){var mark='\\u0001vantorel-app-badge:';var log=console.debug.bind(console);"
        "navigator.setAppBadge=function(n){log(mark+(n===undefined?'dot':String(Math.floor("
        "Number(n))||0)));return Promise.resolve();};"
        "navigator.clearAppBadge=function(){log(mark+'0');return Promise.resolve();};})();"));
    page.scripts().insert(script);
}

// The page of a frame: hears the app badge the page sets.
class FramePage final : public QWebEnginePage
{
public:
    using Badged = std::function<void(std::optional<std::string>)>;

    FramePage(QWebEngineProfile* profile, QObject* parent, Badged badged)
        : QWebEnginePage(profile, parent)
        , m_badged(std::move(badged))
    {}

protected:
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level,
                                  const QString& message,
                                  int line,
                                  const QString& source) override
    {
        const QLatin1String mark(kBadgeMark);
        if (!message.startsWith(mark)) {
            QWebEnginePage::javaScriptConsoleMessage(level, message, line, source);
            return;
        }
        const QString value = message.mid(mark.size());
        if (value == QLatin1String("dot")) {
            m_badged(std::string("•"));
            return;
        }
        bool number = false;
        const long count = value.toLong(&number);
        m_badged(number && count > 0 ? std::optional(kit::web::countBadgeText(count))
                                     : std::nullopt);
    }

private:
    Badged m_badged;
};

// Whether a compositing manager runs, without which a see-through edge is drawn black.
bool compositing()
{
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || QGuiApplication::platformName() != QLatin1String("xcb") || !x11->connection()) {
        return false;
    }
    xcb_connection_t* connection = x11->connection();
    const QByteArray name = "_NET_WM_CM_S0";
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        connection,
        xcb_intern_atom(connection, 1, static_cast<uint16_t>(name.size()), name.constData()),
        nullptr);
    if (!atom) {
        return false;
    }
    xcb_get_selection_owner_reply_t* owner = xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, atom->atom), nullptr);
    const bool owned = owner && owner->owner != XCB_NONE;
    std::free(owner);
    std::free(atom);
    return owned;
}

QSize sizeOf(const ContentSize& size)
{
    const ContentSize clamped = size.clamped(SurfaceLimits::kMinimum, ContentSize::unbounded());
    return {static_cast<int>(clamped.width), static_cast<int>(clamped.height)};
}

} // namespace

PageRules::PageRules(QWebEnginePage* page)
    : m_page(page)
{}

void PageRules::addContentRuleList(const kit::web::ContentRuleListPtr& list)
{
#ifdef VANTOREL_HAS_PAGE_BLOCKING
    if (m_page) {
        blocking::enableBlocking(*m_page, list);
    }
#else
    (void)list;
#endif
}

void PageRules::removeAllContentRuleLists()
{
#ifdef VANTOREL_HAS_PAGE_BLOCKING
    if (m_page) {
        blocking::disableBlocking(*m_page);
    }
#endif
}

PageFrame::PageFrame(Kind kind,
                     const Shortcut& shortcut,
                     const ResolvedBrowsing& settings,
                     QWebEngineProfile* profile,
                     std::unique_ptr<QWebEngineProfile> privateProfile,
                     std::string engineAgent,
                     Callbacks callbacks)
    : QWidget(nullptr,
              kind == Kind::Panel ? Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
                                  : Qt::Window)
    , m_kind(kind)
    , m_shortcut(shortcut)
    , m_settings(settings)
    , m_profile(privateProfile ? privateProfile.get() : profile)
    , m_privateProfile(std::move(privateProfile))
    , m_engineAgent(std::move(engineAgent))
    , m_callbacks(std::move(callbacks))
    , m_view(new QWebEngineView)
{
    m_view->setPage(new FramePage(m_profile, m_view, [this](std::optional<std::string> badge) {
        m_appBadge = std::move(badge);
        updateCount();
    }));
    addBadgeScript(*m_view->page());
    if (m_kind == Kind::Panel && compositing()) {
        setAttribute(Qt::WA_TranslucentBackground);
        m_shadow = kShadow;
    }
    auto* layout = new QVBoxLayout(this);
    // A panel's 1 px border is painted around its contents.
    const int edge = m_kind == Kind::Panel ? m_shadow + 1 : 0;
    layout->setContentsMargins(edge, edge, edge, edge);
    layout->setSpacing(0);
    PageHeader::Callbacks headerCallbacks;
    headerCallbacks.openInBrowser = [this](const QUrl& address) {
        if (m_callbacks.openInBrowser && !address.isEmpty()) {
            m_callbacks.openInBrowser(address.toString().toStdString());
        }
    };
    headerCallbacks.resetZoom = [this] { zoomBy(Qt::Key_0); };
    m_header = new PageHeader(*m_view->page(), m_kind == Kind::Window, headerCallbacks, this);
    layout->addWidget(m_header);
    auto* rule = new QWidget(this);
    rule->setFixedHeight(1);
    rule->setAutoFillBackground(true);
    rule->setBackgroundRole(QPalette::Mid);
    layout->addWidget(rule);
    layout->addWidget(m_view, 1);
    m_rules = std::make_shared<PageRules>(m_view->page());

    if (m_kind == Kind::Panel) {
        // A frameless panel has no edges to drag; the grip in its corner is how it is resized.
        m_grip = new QSizeGrip(this);
        m_grip->installEventFilter(this);
        auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
        connect(escape, &QShortcut::activated, this, &QWidget::hide);
        resize(frameSizeFor(settings.popoverSize));
    } else {
        setAttribute(Qt::WA_DeleteOnClose);
        resize(frameSizeFor(settings.windowSize));
        auto* address = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_L), this);
        connect(address, &QShortcut::activated, m_header, &PageHeader::focusAddress);
    }
    setMinimumSize(frameSizeFor(SurfaceLimits::kMinimum));

    const std::pair<QKeyCombination, QWebEnginePage::WebAction> moves[] = {
        {Qt::ALT | Qt::Key_Left, QWebEnginePage::Back},
        {Qt::ALT | Qt::Key_Right, QWebEnginePage::Forward},
        {Qt::CTRL | Qt::Key_R, QWebEnginePage::Reload},
        {QKeyCombination(Qt::Key_F5), QWebEnginePage::Reload},
    };
    for (const auto& [keys, action] : moves) {
        auto* key = new QShortcut(QKeySequence(keys), this);
        connect(key, &QShortcut::activated, this, [this, which = action] {
            page()->triggerAction(which);
        });
    }

    m_zoomBadge = new QLabel(this);
    m_zoomBadge->setStyleSheet(QStringLiteral(
        "QLabel{background:rgba(40,40,40,210);color:white;border-radius:6px;padding:6px 12px;"
        "font-weight:bold}"));
    m_zoomBadge->hide();
    m_hideBadge.setSingleShot(true);
    m_hideBadge.setInterval(kZoomBadgeMs);
    connect(&m_hideBadge, &QTimer::timeout, m_zoomBadge, &QWidget::hide);

    for (const auto key : {Qt::Key_Equal, Qt::Key_Plus, Qt::Key_Minus, Qt::Key_0}) {
        auto* zoomKey = new QShortcut(QKeySequence(Qt::CTRL | key), this);
        connect(zoomKey, &QShortcut::activated, this, [this, key] { zoomBy(key); });
    }

    m_saveSize.setSingleShot(true);
    m_saveSize.setInterval(kSaveDelayMs);
    connect(&m_saveSize, &QTimer::timeout, this, [this] {
        const QSize shown = contentSize();
        const ContentSize size{static_cast<double>(shown.width()),
                               static_cast<double>(shown.height())};
        ContentSize& kept = m_kind == Kind::Panel ? m_settings.popoverSize : m_settings.windowSize;
        if (size != kept && m_callbacks.resized) {
            kept = size;
            m_callbacks.resized(size);
        }
    });

    QWebEnginePage* webPage = m_view->page();
    connect(webPage, &QWebEnginePage::loadFinished, this, [this](bool ok) {
        // The engine may reset a zoom set before the first load.
        if (std::abs(m_view->zoomFactor() - m_zoom) > 0.001) {
            m_view->setZoomFactor(m_zoom);
        }
        if (m_callbacks.loaded) {
            m_callbacks.loaded(ok, m_view->url().toString().toStdString());
        }
    });
    connect(webPage, &QWebEnginePage::titleChanged, this, [this] { updateCount(); });
    connect(webPage, &QWebEnginePage::loadStarted, this, [this] {
        // A badge belongs to the document that set it; the next one sets its own.
        if (m_appBadge) {
            m_appBadge.reset();
            updateCount();
        }
    });
    connect(webPage, &QWebEnginePage::iconChanged, this, [this](const QIcon& icon) {
        if (m_callbacks.iconChanged && !icon.isNull()) {
            m_callbacks.iconChanged(icon, m_view->url().toString().toStdString());
        }
    });
    connect(webPage,
            &QWebEnginePage::newWindowRequested,
            this,
            [this](QWebEngineNewWindowRequest& request) {
                if (m_callbacks.newWindow) {
                    m_callbacks.newWindow(request);
                }
            });
    connect(webPage, &QWebEnginePage::recentlyAudibleChanged, this, [this](bool audible) {
        if (m_callbacks.audibleChanged) {
            m_callbacks.audibleChanged(audible);
        }
    });
    attachPrompts(*m_view, m_callbacks.notifications);

    applyAgent();
    applyAppearance();
    applyStaysOnTop();
    setZoom(m_settings.pageZoom);
    updateTitle();
}

PageFrame::~PageFrame()
{
    // The page must go before the private profile it was made with.
    delete m_view;
    m_view = nullptr;
}

QWebEnginePage* PageFrame::page() const
{
    return m_view->page();
}

void PageFrame::start(const kit::library::URLTarget& target)
{
    const bool resume = target.lastVisitedURL && !target.isPrivate;
    m_view->load(
        QUrl::fromUserInput(QString::fromStdString(resume ? *target.lastVisitedURL : target.url)));
}

void PageFrame::update(const Shortcut& shortcut, const ResolvedBrowsing& settings)
{
    const ResolvedBrowsing before = m_settings;
    m_shortcut = shortcut;
    m_settings = settings;
    if (before.userAgent != settings.userAgent
        || before.customUserAgent != settings.customUserAgent) {
        applyAgent();
    }
    if (before.pageAppearance != settings.pageAppearance) {
        applyAppearance();
        m_view->reload();
    }
    if (before.staysOnTop != settings.staysOnTop) {
        applyStaysOnTop();
    }
    if (before.pageZoom != settings.pageZoom) {
        setZoom(settings.pageZoom);
    }
    const QSize wanted =
        frameSizeFor(m_kind == Kind::Panel ? settings.popoverSize : settings.windowSize);
    const QSize had = frameSizeFor(m_kind == Kind::Panel ? before.popoverSize : before.windowSize);
    if (wanted != had) {
        resize(wanted);
    }
    updateTitle();
}

void PageFrame::present(std::optional<QRect> geometry)
{
    m_placing = true;
    if (geometry) {
        setGeometry(geometry->marginsAdded({m_shadow, m_shadow, m_shadow, m_shadow}));
    }
    show();
    raise();
    activateWindow();
    m_view->setFocus();
    m_placing = false;
}

QSize PageFrame::contentSize() const
{
    return size().shrunkBy({m_shadow, m_shadow, m_shadow, m_shadow});
}

QSize PageFrame::frameSizeFor(const ContentSize& size) const
{
    return sizeOf(size).grownBy({m_shadow, m_shadow, m_shadow, m_shadow});
}

void PageFrame::zoomBy(Qt::Key key)
{
    if (auto next = kit::web::zoomForKey(
            modifierSet(Qt::ControlModifier), static_cast<char32_t>(key), zoom())) {
        setZoom(*next);
        showZoom();
        if (m_callbacks.zoomed) {
            m_callbacks.zoomed(zoom());
        }
    }
}

bool PageFrame::hiddenJustNow() const
{
    return m_hiddenAt != 0 && QDateTime::currentMSecsSinceEpoch() - m_hiddenAt < kReopenGraceMs;
}

double PageFrame::zoom() const
{
    return m_zoom;
}

void PageFrame::setZoom(double zoom)
{
    m_zoom = PageZoom::clamped(zoom);
    m_view->setZoomFactor(m_zoom);
    const bool normal = std::abs(m_zoom - PageZoom::kNormal) <= 0.001;
    m_header->setZoomText(normal ? QString() : QString::fromStdString(PageZoom::title(m_zoom)));
    updateTitle();
}

void PageFrame::showZoom()
{
    m_zoomBadge->setText(QString::fromStdString(PageZoom::title(zoom())));
    m_zoomBadge->adjustSize();
    m_zoomBadge->move((width() - m_zoomBadge->width()) / 2, m_view->y() + 12);
    m_zoomBadge->show();
    m_zoomBadge->raise();
    m_hideBadge.start();
}

void PageFrame::updateTitle()
{
    QString title = QString::fromStdString(m_shortcut.name);
    if (std::abs(zoom() - PageZoom::kNormal) > 0.001) {
        title += QStringLiteral(" — ") + QString::fromStdString(PageZoom::title(zoom()));
    }
    setWindowTitle(title);
    m_header->setName(m_shortcut.name);
}

void PageFrame::updateCount()
{
    std::string count;
    if (m_appBadge) {
        count = *m_appBadge;
    } else if (auto fromTitle = kit::web::titleCount(page()->title().toStdString())) {
        count = kit::web::countBadgeText(*fromTitle);
    }
    if (count != m_count) {
        m_count = count;
        if (m_callbacks.countChanged) {
            m_callbacks.countChanged(m_count);
        }
    }
}

void PageFrame::applyAgent()
{
    // An agent belongs to a profile, so pages sharing a session share the last one set.
    m_profile->setHttpUserAgent(QString::fromStdString(
        kit::web::userAgent(m_engineAgent, m_settings.userAgent, m_settings.customUserAgent)));
}

void PageFrame::applyAppearance() const
{
    QWebEngineScriptCollection& scripts = page()->scripts();
    for (const auto& old : scripts.find(QString::fromLatin1(kAppearanceScript))) {
        scripts.remove(old);
    }
    const QString style = appearanceStyle(m_settings.pageAppearance);
    const bool dark = m_settings.pageAppearance == PageAppearance::Dark;
    page()->setBackgroundColor(dark ? QColor(30, 30, 30) : QColor(Qt::white));
    if (style.isEmpty()) {
        return;
    }
    QWebEngineScript script;
    script.setName(QString::fromLatin1(kAppearanceScript));
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::ApplicationWorld);
    script.setRunsOnSubFrames(true);
    script.setSourceCode(
        QStringLiteral("(function(){var css=%1;function add(){var s=document.createElement("
                       "'style');s.textContent=css;(document.head||document.documentElement)"
                       ".appendChild(s);}if(document.documentElement){add();}else{document."
                       "addEventListener('readystatechange',add,{once:true});}})();")
            .arg(QStringLiteral("'") + style + QStringLiteral("'")));
    scripts.insert(script);
}

void PageFrame::setLook(kit::settings::AppAppearance appearance)
{
    switch (appearance) {
    case kit::settings::AppAppearance::Light:
        setPalette(QApplication::style()->standardPalette());
        break;
    case kit::settings::AppAppearance::Dark:
        setPalette(darkLook());
        break;
    case kit::settings::AppAppearance::System:
        setPalette(QApplication::palette());
        break;
    }
    QWidget::update();
}

void PageFrame::applyStaysOnTop()
{
    if (m_kind != Kind::Window) {
        return;
    }
    const bool visible = isVisible();
    setWindowFlag(Qt::WindowStaysOnTopHint, m_settings.staysOnTop);
    // Changing a window's flags hides it.
    if (visible) {
        show();
    }
}

bool PageFrame::holdsActiveWindow() const
{
    for (QWidget* active = QApplication::activeWindow(); active; active = active->parentWidget()) {
        if (active == this) {
            return true;
        }
    }
    return QApplication::activeModalWidget() != nullptr;
}

void PageFrame::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (m_kind == Kind::Panel && event->type() == QEvent::ActivationChange && !isActiveWindow()) {
        // The newly active window is known only once the change has been delivered everywhere.
        QTimer::singleShot(0, this, [this] {
            if (isVisible() && !holdsActiveWindow()) {
                hide();
            }
        });
    }
}

void PageFrame::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (m_grip) {
        m_grip->adjustSize();
        m_grip->move(width() - m_shadow - 1 - m_grip->width(),
                     height() - m_shadow - 1 - m_grip->height());
        m_grip->raise();
    }
    if (isVisible() && !m_placing && (m_kind != Kind::Panel || m_gripDragged)) {
        m_saveSize.start();
    }
}

bool PageFrame::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_grip && event->type() == QEvent::MouseButtonPress) {
        m_gripDragged = true;
    }
    return QWidget::eventFilter(watched, event);
}

void PageFrame::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_hiddenAt = 0;
    if (m_callbacks.shownChanged) {
        m_callbacks.shownChanged(true);
    }
}

void PageFrame::paintEvent(QPaintEvent* event)
{
    QWidget::paintEvent(event);
    if (m_kind != Kind::Panel) {
        return;
    }
    QPainter painter(this);
    const QRect content = rect().marginsRemoved({m_shadow, m_shadow, m_shadow, m_shadow});
    // A soft shadow fading out from the edge, so a white page stands off a white desktop.
    for (int ring = m_shadow; ring > 0; --ring) {
        const int alpha = 36 * (m_shadow - ring + 1) / (m_shadow * m_shadow);
        painter.setPen(QColor(0, 0, 0, alpha));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(content.adjusted(-ring, -ring + 1, ring - 1, ring));
    }
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRect(content.adjusted(0, 0, -1, -1));
}

void PageFrame::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    m_hiddenAt = QDateTime::currentMSecsSinceEpoch();
    if (m_callbacks.shownChanged) {
        m_callbacks.shownChanged(false);
    }
}

} // namespace desktop::pages
