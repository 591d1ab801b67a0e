// SPDX-License-Identifier: MIT
#include "desktop/blocking/page_blocking.h"

#include "kit/blocking/disk_rule_list_store.h"

#include <QPointer>
#include <QUrl>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestInterceptor>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace desktop::blocking {

namespace {

using kit::blocking::Matcher;
using kit::blocking::ResourceType;

const QString kBlockerName = QStringLiteral("vantorel-page-blocker");
const QString kScriptName = QStringLiteral("vantorel-hiding");

ResourceType resourceTypeOf(QWebEngineUrlRequestInfo::ResourceType type)
{
    using Info = QWebEngineUrlRequestInfo;
    switch (type) {
    case Info::ResourceTypeMainFrame:
    case Info::ResourceTypeSubFrame:
    case Info::ResourceTypeNavigationPreloadMainFrame:
    case Info::ResourceTypeNavigationPreloadSubFrame:
        return ResourceType::Document;
    case Info::ResourceTypeStylesheet:
        return ResourceType::StyleSheet;
    case Info::ResourceTypeScript:
    case Info::ResourceTypeWorker:
    case Info::ResourceTypeSharedWorker:
    case Info::ResourceTypeServiceWorker:
        return ResourceType::Script;
    case Info::ResourceTypeImage:
    case Info::ResourceTypeFavicon:
        return ResourceType::Image;
    case Info::ResourceTypeFontResource:
        return ResourceType::Font;
    case Info::ResourceTypeMedia:
        return ResourceType::Media;
    case Info::ResourceTypeXhr:
        return ResourceType::Raw;
    case Info::ResourceTypePing:
    case Info::ResourceTypeCspReport:
        return ResourceType::Ping;
    case Info::ResourceTypeWebSocket:
        return ResourceType::WebSocket;
    default:
        return ResourceType::Other;
    }
}

bool isTopNavigation(QWebEngineUrlRequestInfo::ResourceType type)
{
    return type == QWebEngineUrlRequestInfo::ResourceTypeMainFrame
           || type == QWebEngineUrlRequestInfo::ResourceTypeNavigationPreloadMainFrame;
}

// A JavaScript string literal; "<" is escaped so no "</script>" can appear.
QString jsString(const QString& text)
{
    QString out;
    out.reserve(text.size() + 16);
    out += QLatin1Char('"');
    for (QChar c : text) {
        switch (c.unicode()) {
        case '"':
            out += QLatin1String("\\\"");
            break;
        case '\\':
            out += QLatin1String("\\\\");
            break;
        case '\n':
            out += QLatin1String("\\n");
            break;
        case '\r':
            out += QLatin1String("\\r");
            break;
        case '<':
            out += QLatin1String("\\u003c");
            break;
        case 0x2028:
            out += QLatin1String("\\u2028");
            break;
        case 0x2029:
            out += QLatin1String("\\u2029");
            break;
        default:
            out += c;
        }
    }
    out += QLatin1Char('"');
    return out;
}

// Replaces this world's hiding sheet with one holding `css` (none when empty). A constructed
// sheet needs no <head>, so it works before the document has any element.
QString hidingScript(const QString& css)
{
    return QStringLiteral(
               "(function () {"
               "var old = window.__vantorelHiding;"
               "var sheets = document.adoptedStyleSheets.filter(function (s) { return s !== old; "
               "});"
               "var css = %1;"
               "if (css) {"
               "var sheet = new CSSStyleSheet(); sheet.replaceSync(css); sheets.push(sheet);"
               "window.__vantorelHiding = sheet;"
               "} else { delete window.__vantorelHiding; }"
               "document.adoptedStyleSheets = sheets;"
               "})();")
        .arg(jsString(css));
}

// Decides each request of one page. The engine may call it off the main thread: the matcher is
// immutable and the page address is guarded.
class Interceptor final : public QWebEngineUrlRequestInterceptor
{
public:
    Interceptor(std::shared_ptr<const Matcher> matcher, QObject* parent)
        : QWebEngineUrlRequestInterceptor(parent)
        , m_matcher(std::move(matcher))
    {}

    std::function<void(const QUrl&)> onNavigation;

    void setTopUrl(const QUrl& url)
    {
        std::lock_guard lock(m_mutex);
        m_topUrl = url.toEncoded().toStdString();
    }

    void interceptRequest(QWebEngineUrlRequestInfo& info) override
    {
        QByteArray url = info.requestUrl().toEncoded();
        if (isTopNavigation(info.resourceType())) {
            // The page the person asked for always loads; its address is the top one from now.
            setTopUrl(info.requestUrl());
            if (onNavigation) {
                onNavigation(info.requestUrl());
            }
            return;
        }
        std::string top;
        {
            std::lock_guard lock(m_mutex);
            top = m_topUrl;
        }
        auto decision =
            m_matcher->decide({std::string_view(url.constData(), static_cast<size_t>(url.size())),
                               top,
                               resourceTypeOf(info.resourceType())});
        if (decision.block) {
            info.block(true);
        } else if (decision.makeHttps && info.requestUrl().scheme() == QLatin1String("http")) {
            QUrl secure = info.requestUrl();
            secure.setScheme(QStringLiteral("https"));
            info.redirect(secure);
        }
    }

private:
    std::shared_ptr<const Matcher> m_matcher;
    std::mutex m_mutex;
    std::string m_topUrl;
};

// Blocking on one page: its interceptor and hiding script, kept as a child of the page so both
// go with it. Main thread.
class PageBlocker final : public QObject
{
public:
    PageBlocker(QWebEnginePage& page, std::shared_ptr<const Matcher> matcher)
        : QObject(&page)
        , m_page(&page)
        , m_matcher(matcher)
        , m_interceptor(new Interceptor(std::move(matcher), this))
    {
        setObjectName(kBlockerName);
        m_interceptor->setTopUrl(page.url());
        QPointer<PageBlocker> self(this);
        // Called by the engine, maybe off the main thread: the style update is queued here.
        m_interceptor->onNavigation = [self](const QUrl& url) {
            QObject* target = self.data();
            if (!target) {
                return;
            }
            QMetaObject::invokeMethod(
                target,
                [self, url] {
                    if (self) {
                        self->styleFor(url, false);
                    }
                },
                Qt::QueuedConnection);
        };
        page.setUrlRequestInterceptor(m_interceptor);
        connect(&page, &QWebEnginePage::urlChanged, this, [this](const QUrl& url) {
            m_interceptor->setTopUrl(url);
            styleFor(url, true);
        });
        styleFor(page.url(), true);
    }

    void stop()
    {
        if (m_page) {
            m_page->setUrlRequestInterceptor(nullptr);
            removeScript();
            m_page->runJavaScript(hidingScript(QString()), QWebEngineScript::ApplicationWorld);
        }
    }

private:
    void removeScript()
    {
        QWebEngineScriptCollection& scripts = m_page->scripts();
        for (const QWebEngineScript& script : scripts.find(kScriptName)) {
            scripts.remove(script);
        }
    }

    // Hides the host's elements in documents made from now on and, once the page shows that
    // host (`current`), in its present document too.
    void styleFor(const QUrl& url, bool current)
    {
        if (!m_page || url.isEmpty()) {
            return;
        }
        QString host = url.host();
        if (host != m_scriptHost || m_source.isEmpty()) {
            m_scriptHost = host;
            QByteArray encoded = url.toEncoded();
            QString css;
            for (const std::string& selector : m_matcher->hiddenSelectors(
                     std::string_view(encoded.constData(), static_cast<size_t>(encoded.size())))) {
                css += QString::fromStdString(selector);
                css += QLatin1String("{display:none!important}\n");
            }
            m_source = hidingScript(css);
            removeScript();
            QWebEngineScript script;
            script.setName(kScriptName);
            script.setInjectionPoint(QWebEngineScript::DocumentCreation);
            script.setWorldId(QWebEngineScript::ApplicationWorld);
            script.setRunsOnSubFrames(false);
            script.setSourceCode(m_source);
            m_page->scripts().insert(script);
        }
        if (current && host != m_pageHost) {
            m_pageHost = host;
            m_page->runJavaScript(m_source, QWebEngineScript::ApplicationWorld);
        }
    }

    QPointer<QWebEnginePage> m_page;
    std::shared_ptr<const Matcher> m_matcher;
    Interceptor* m_interceptor;
    QString m_scriptHost;
    QString m_pageHost;
    QString m_source;
};

} // namespace

void enableBlocking(QWebEnginePage& page, const kit::web::ContentRuleListPtr& list)
{
    auto compiled = std::dynamic_pointer_cast<const kit::blocking::CompiledRuleList>(list);
    if (!compiled || !compiled->matcher()) {
        return;
    }
    disableBlocking(page);
    new PageBlocker(page, compiled->matcher());
}

void disableBlocking(QWebEnginePage& page)
{
    auto* blocker = dynamic_cast<PageBlocker*>(
        page.findChild<QObject*>(kBlockerName, Qt::FindDirectChildrenOnly));
    if (blocker) {
        blocker->stop();
        delete blocker;
    }
}

} // namespace desktop::blocking
