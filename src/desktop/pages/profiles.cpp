// SPDX-License-Identifier: MIT
#include "desktop/pages/profiles.h"

#include <QSet>
#include <QTimer>
#include <QWebEngineCookieStore>
#include <QWebEngineProfile>

#include <map>

namespace desktop::pages {

namespace {

// loadAllCookies reports each cookie on its own and never says it is done; a quiet spell this
// long after the last one ends the count.
constexpr int kCookieQuietMs = 300;

// "www.example.com" and ".example.com" are one site.
QString siteOf(QString domain)
{
    if (domain.startsWith(QLatin1Char('.'))) {
        domain.remove(0, 1);
    }
    if (domain.startsWith(QLatin1String("www."))) {
        domain.remove(0, 4);
    }
    return domain;
}

} // namespace

// The cookies a profile holds, kept from the moment it is made: the engine reports each one
// added or removed, and never says when it has reported all it had on disk.
class CookieSites final : public QObject
{
public:
    explicit CookieSites(QWebEngineProfile& profile)
        : QObject(&profile)
    {
        m_quiet.setSingleShot(true);
        m_quiet.setInterval(kCookieQuietMs);
        auto* store = profile.cookieStore();
        connect(store, &QWebEngineCookieStore::cookieAdded, this, [this](const QNetworkCookie& c) {
            m_cookies.insert_or_assign(keyOf(c), siteOf(c.domain()));
            m_quiet.start();
        });
        connect(
            store, &QWebEngineCookieStore::cookieRemoved, this, [this](const QNetworkCookie& c) {
                m_cookies.erase(keyOf(c));
                m_quiet.start();
            });
        store->loadAllCookies();
        m_quiet.start();
    }

    // Answers once no cookie has been reported for a while.
    void count(std::function<void(int)> done)
    {
        if (!m_quiet.isActive()) {
            done(sites());
            return;
        }
        auto connection = std::make_shared<QMetaObject::Connection>();
        *connection =
            connect(&m_quiet, &QTimer::timeout, this, [this, connection, done = std::move(done)] {
                disconnect(*connection);
                done(sites());
            });
    }

private:
    static QString keyOf(const QNetworkCookie& cookie)
    {
        return cookie.domain() + QLatin1Char('\n') + cookie.path() + QLatin1Char('\n')
               + QString::fromUtf8(cookie.name());
    }

    int sites() const
    {
        QSet<QString> distinct;
        for (const auto& [key, site] : m_cookies) {
            distinct.insert(site);
        }
        return static_cast<int>(distinct.size());
    }

    QTimer m_quiet;
    std::map<QString, QString> m_cookies;
};

Profiles::Profiles(std::filesystem::path storageRoot, std::filesystem::path cacheRoot)
    : m_storageRoot(std::move(storageRoot))
    , m_cacheRoot(std::move(cacheRoot))
{}

Profiles::~Profiles() = default;

std::string Profiles::nameOf(const std::optional<kit::support::Uuid>& session)
{
    return session ? session->string() : std::string(kDefaultName);
}

std::filesystem::path
Profiles::storageFolder(const std::optional<kit::support::Uuid>& session) const
{
    return m_storageRoot / nameOf(session);
}

std::filesystem::path Profiles::cacheFolder(const std::optional<kit::support::Uuid>& session) const
{
    return m_cacheRoot / nameOf(session);
}

void Profiles::noteEngineAgent(const QWebEngineProfile& profile)
{
    // Every profile starts with the engine's agent; pages change it only after this.
    if (m_engineAgent.empty()) {
        m_engineAgent = profile.httpUserAgent().toStdString();
    }
}

QWebEngineProfile* Profiles::existing(const std::optional<kit::support::Uuid>& session) const
{
    auto found = m_profiles.find(nameOf(session));
    return found == m_profiles.end() ? nullptr : found->second.get();
}

QWebEngineProfile* Profiles::profile(const std::optional<kit::support::Uuid>& session)
{
    auto& slot = m_profiles[nameOf(session)];
    if (!slot) {
        slot = std::make_unique<QWebEngineProfile>(QString::fromStdString(nameOf(session)));
        slot->setPersistentStoragePath(QString::fromStdString(storageFolder(session).string()));
        slot->setCachePath(QString::fromStdString(cacheFolder(session).string()));
        slot->setPersistentCookiesPolicy(QWebEngineProfile::AllowPersistentCookies);
        noteEngineAgent(*slot);
        m_cookieSites[nameOf(session)] = new CookieSites(*slot);
        if (onMade) {
            onMade(*slot);
        }
    }
    return slot.get();
}

std::unique_ptr<QWebEngineProfile> Profiles::makePrivate()
{
    auto made = std::make_unique<QWebEngineProfile>();
    noteEngineAgent(*made);
    if (onMade) {
        onMade(*made);
    }
    return made;
}

void Profiles::siteCount(const std::optional<kit::support::Uuid>& session,
                         std::function<void(int)> done)
{
    profile(session);
    m_cookieSites.at(nameOf(session))->count(std::move(done));
}

void Profiles::release(const std::optional<kit::support::Uuid>& session)
{
    m_cookieSites.erase(nameOf(session));
    m_profiles.erase(nameOf(session));
}

} // namespace desktop::pages
