// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/page_prompts.h"
#include "kit/library/shortcut.h"
#include "kit/settings/app_settings.h"
#include "kit/web/web_engine.h"

#include <QIcon>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <string>

class QLabel;
class QSizeGrip;
class QWebEngineNewWindowRequest;
class QWebEnginePage;
class QWebEngineProfile;
class QWebEngineView;

namespace desktop::pages {

class PageHeader;

// A page's blocking, as the content blocker sees it: adds and removes the compiled list on the
// page. Main thread; does nothing once the page is gone.
class PageRules final : public kit::web::PageView
{
public:
    explicit PageRules(QWebEnginePage* page);
    void addContentRuleList(const kit::web::ContentRuleListPtr& list) override;
    void removeAllContentRuleLists() override;

private:
    QPointer<QWebEnginePage> m_page;
};

// A shortcut's page in a panel under its icon or in a window of its own. A panel hides on
// Escape or when the person clicks elsewhere and keeps its page for the next opening; a window
// closes with its page. Main thread; deleting it deletes the page, and a private page's profile
// after it.
class PageFrame final : public QWidget
{
public:
    enum class Kind {
        Panel,
        Window,
    };

    struct Callbacks
    {
        // The person resized the frame (debounced).
        std::function<void(const kit::library::ContentSize&)> resized;
        // A load finished; `address` is where the page ended up.
        std::function<void(bool ok, const std::string& address)> loaded;
        // A link asks for a new window.
        std::function<void(QWebEngineNewWindowRequest&)> newWindow;
        // A panel was shown or hidden.
        std::function<void(bool shown)> shownChanged;
        // Whether the page is audible, reported on each change.
        std::function<void(bool audible)> audibleChanged;
        // The person zoomed with the keys, to this factor.
        std::function<void(double zoom)> zoomed;
        // The page reported its icon; `address` is the page's.
        std::function<void(const QIcon& icon, const std::string& address)> iconChanged;
        // The count the page shows, from its title or its app badge: "3", "99+", "•" for a
        // badge without a number, empty for none.
        std::function<void(const std::string& count)> countChanged;
        // The person asked for the page in their browser.
        std::function<void(const std::string& address)> openInBrowser;
        // How the page's asking to notify is answered.
        NotificationQuestion notifications;
    };

    // How long a panel hidden by a click elsewhere counts as just closed: that click was most
    // likely on its own icon, which should close the panel rather than reopen it.
    static constexpr int kReopenGraceMs = 300;
    // Resizes closer together than this are saved once.
    static constexpr int kSaveDelayMs = 600;

    // `privateProfile`, when given, is the page's own and goes with it.
    PageFrame(Kind kind,
              const kit::library::Shortcut& shortcut,
              const kit::library::ResolvedBrowsing& settings,
              QWebEngineProfile* profile,
              std::unique_ptr<QWebEngineProfile> privateProfile,
              std::string engineAgent,
              Callbacks callbacks);
    ~PageFrame() override;

    Kind kind() const { return m_kind; }
    QWebEngineView* view() const { return m_view; }
    QWebEnginePage* page() const;
    QWebEngineProfile* profile() const { return m_profile; }
    const std::shared_ptr<PageRules>& rules() const { return m_rules; }
    const kit::library::ResolvedBrowsing& settings() const { return m_settings; }

    // Loads the shortcut's address: where the page was last, else the target's address.
    void start(const kit::library::URLTarget& target);
    // Takes later settings in; the person's own zoom stays unless the zoom setting changed.
    void update(const kit::library::Shortcut& shortcut,
                const kit::library::ResolvedBrowsing& settings);
    // The header and the edge in the app's light or dark look, or the system's; the page itself
    // follows its own appearance setting.
    void setLook(kit::settings::AppAppearance appearance);
    // Shows a panel with its page at `geometry`, or a window at its size, and gives it the
    // keyboard.
    void present(std::optional<QRect> geometry);
    // The size of what the person sees, without a panel's shadow.
    QSize contentSize() const;
    bool hiddenJustNow() const;
    double zoom() const;
    void setZoom(double zoom);

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void applyAgent();
    void applyAppearance() const;
    void zoomBy(Qt::Key key);
    void applyStaysOnTop();
    void showZoom();
    void updateTitle();
    void updateCount();
    bool holdsActiveWindow() const;
    QSize frameSizeFor(const kit::library::ContentSize& size) const;

    Kind m_kind;
    kit::library::Shortcut m_shortcut;
    kit::library::ResolvedBrowsing m_settings;
    QWebEngineProfile* m_profile;
    std::unique_ptr<QWebEngineProfile> m_privateProfile;
    std::string m_engineAgent;
    Callbacks m_callbacks;
    QWebEngineView* m_view = nullptr;
    PageHeader* m_header = nullptr;
    QLabel* m_zoomBadge = nullptr;
    QSizeGrip* m_grip = nullptr;
    std::shared_ptr<PageRules> m_rules;
    QTimer m_saveSize;
    QTimer m_hideBadge;
    double m_zoom = kit::library::PageZoom::kNormal;
    // The panel's shadow around its page, drawn only where windows can be see-through.
    int m_shadow = 0;
    qint64 m_hiddenAt = 0;
    bool m_placing = false;
    // What the page set with navigator.setAppBadge; it wins over a count in the title.
    std::optional<std::string> m_appBadge;
    std::string m_count;
    // A panel's size is the person's only once they dragged its grip: any other change of size
    // is the window manager's (a tiling one fills the screen with it) and is never kept.
    bool m_gripDragged = false;
};

} // namespace desktop::pages
