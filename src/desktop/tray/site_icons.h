// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"
#include "kit/storage/json_store.h"
#include "kit/web/kept_icons.h"
#include "kit/web/page_icons.h"

#include <QByteArray>
#include <QIcon>
#include <QImage>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QThreadPool>

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

class QNetworkReply;
class QTimer;

namespace desktop {

// The picture in `bytes` (ICO, PNG, SVG, WebP and the other formats Qt reads) at the size nearest
// above `wanted`, scaled down to at most kKeptSide; a null image with `why` set when it is no
// image, too large or broken. Safe on any thread.
QImage decodeSiteIcon(const QByteArray& bytes, int wanted, QString* why = nullptr);

// Sites' page icons: fetched in the background as the core's IconSearch directs, kept as PNG
// files with an index in the support folder, and handed to the icon renderer. Fetching uses a
// network access manager of its own that sends and keeps no cookies, reads only http(s), at most
// kReadLimit bytes and for at most the timeout per request, and follows at most five redirects.
// Decoding and writing happen on worker threads. GUI thread only.
class SiteIcons final : public QObject
{
public:
    // The largest square tray hosts ask for: a larger picture would only cost reading and scaling.
    static constexpr int kKeptSide = 64;
    static constexpr qint64 kReadLimit = qint64{1024} * 1024;
    static constexpr int kRedirectLimit = 5;
    static constexpr int kParallelSearches = 4;

    struct Options
    {
        // The folder the pictures and their index live in; made when first written to.
        std::filesystem::path folder;
        // The largest square the panels draw.
        int wanted = 64;
        std::chrono::milliseconds timeout{10000};
        // Seconds since 1970.
        std::function<int64_t()> now;
    };

    explicit SiteIcons(Options options);
    ~SiteIcons() override;
    SiteIcons(const SiteIcons&) = delete;
    SiteIcons& operator=(const SiteIcons&) = delete;

    // The picture kept for the address's site; nothing when there is none (yet).
    std::optional<QImage> image(const std::string& address);

    // Searches the site's icon now, unless a search for it is running; `force` searches even
    // when a fresh icon is kept ("Refresh icon").
    void search(const std::string& address, bool force = false);
    // The searches due once after start.
    void searchAtStart(const kit::library::Library& library);
    // The searches a change of the library calls for.
    void libraryChanged(const kit::library::Library& before, const kit::library::Library& after);
    // An in-app page of the address reported its icon: it replaces the kept one.
    void pageIcon(const std::string& address, const QIcon& icon);

    // Told on the GUI thread with the host whose picture changed.
    void onChanged(std::function<void(const std::string& host)> changed)
    {
        m_changed = std::move(changed);
    }

    bool isSearching() const { return !m_searches.empty() || !m_waiting.empty(); }
    const kit::web::KeptIconIndex& index() const { return m_index; }
    // Writes the index now; for tests and quitting.
    void flush();

private:
    struct Search
    {
        explicit Search(kit::web::IconSearch search)
            : search(std::move(search))
        {}
        kit::web::IconSearch search;
        QPointer<QNetworkReply> reply;
        QByteArray body;
        // Why the current request was cut off, and what went wrong with each one so far.
        QString failure;
        QStringList failures;
        int redirects = 0;
    };

    void begin(const std::string& host, const std::string& address);
    void step(const std::string& host);
    void fetched(const std::string& host, QNetworkReply* reply);
    // The current request came to nothing: noted, and the search moves on.
    void failed(const std::string& host, Search& search, const QString& reason);
    void decoded(const std::string& host, const QImage& image, const QString& why);
    void finish(const std::string& host);
    void keep(const std::string& host, const QImage& image, const std::string& source);
    void saveIndex();
    int64_t now() const;

    Options m_options;
    // Both made on first use, so an app with every icon kept pays for neither at start.
    QNetworkAccessManager& network();
    std::unique_ptr<QNetworkAccessManager> m_network;
    kit::web::KeptIconIndex m_index;
    // An index that could not be read is left as it is on disk.
    bool m_indexHeld = false;
    std::unique_ptr<kit::storage::JsonStore<kit::web::KeptIconIndex>> m_store;
    // Pictures read so far by host; a null image records a file that would not load.
    std::unordered_map<std::string, QImage> m_images;
    std::map<std::string, std::unique_ptr<Search>> m_searches;
    std::deque<std::pair<std::string, std::string>> m_waiting;
    std::function<void(const std::string&)> m_changed;
    // Last: waited for before anything its tasks report to goes away.
    QThreadPool m_workers;
};

} // namespace desktop
