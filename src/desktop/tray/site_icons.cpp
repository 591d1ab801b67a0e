// SPDX-License-Identifier: MIT
#include "desktop/tray/site_icons.h"

#include "kit/support/atomic_file.h"
#include "kit/support/log.h"
#include "kit/support/visible_text.h"

#include <QBuffer>
#include <QImageReader>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPainter>
#include <QPixmap>
#include <QTimer>
#include <QUrl>

#include <algorithm>

namespace desktop {

using kit::web::IconSearch;

namespace {

constexpr kit::support::Logger kLog("icons");
// Larger pictures are refused before decoding: a small file may claim a huge canvas.
constexpr int kLargestDecoded = 4096;
constexpr int kLargestFrameCount = 32;

QString text(const std::string& value)
{
    return QString::fromStdString(value);
}

bool isWeb(const QUrl& url)
{
    return url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
}

QImage scaledToKeep(QImage image)
{
    const int side = SiteIcons::kKeptSide;
    if (image.width() > side || image.height() > side) {
        image = image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    }
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

QByteArray png(const QImage& image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

} // namespace

QImage decodeSiteIcon(const QByteArray& bytes, int wanted, QString* why)
{
    const auto fail = [why](const char* reason) {
        if (why) {
            *why = QString::fromLatin1(reason);
        }
        return QImage();
    };
    QByteArray copy = bytes;
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setDecideFormatFromContent(true);
    if (!reader.canRead()) {
        return fail("it is no image");
    }
    const QByteArray format = reader.format();
    if (format == "svg" || format == "svgz") {
        QSize size = reader.size();
        if (size.isEmpty()) {
            size = QSize(wanted, wanted);
        }
        // Drawn at the size kept, so it stays crisp.
        reader.setScaledSize(
            size.scaled(SiteIcons::kKeptSide, SiteIcons::kKeptSide, Qt::KeepAspectRatio));
        QImage image = reader.read();
        return image.isNull() ? fail("the picture is broken") : scaledToKeep(image);
    }
    // An ICO holds several sizes: take the one nearest above what is drawn, else the largest.
    QImage best;
    const int count = std::clamp(reader.imageCount(), 1, kLargestFrameCount);
    for (int frame = 0; frame < count; ++frame) {
        if (frame > 0 && !reader.jumpToImage(frame)) {
            break;
        }
        const QSize size = reader.size();
        if (size.width() > kLargestDecoded || size.height() > kLargestDecoded) {
            return fail("the picture is too large");
        }
        QImage image = reader.read();
        if (image.isNull()) {
            continue;
        }
        const int side = std::max(image.width(), image.height());
        const int bestSide = std::max(best.width(), best.height());
        const bool better = best.isNull()
                            || (side >= wanted && (bestSide < wanted || side < bestSide))
                            || (bestSide < wanted && side > bestSide);
        if (better) {
            best = image;
        }
    }
    return best.isNull() ? fail("the picture is broken") : scaledToKeep(best);
}

SiteIcons::SiteIcons(Options options)
    : m_options(std::move(options))
{
    m_workers.setMaxThreadCount(1);
    auto read = kit::storage::readStoreFile(m_options.folder / kit::web::kKeptIconIndexFile);
    if (auto* text = std::get_if<std::string>(&read)) {
        try {
            m_index = kit::web::decodeKeptIcons(*text);
        } catch (const std::exception& error) {
            m_indexHeld = true;
            kLog.error(std::string("The site icon index cannot be read and is left as it is: ")
                       + error.what());
        }
    } else if (auto* unreadable = std::get_if<kit::storage::LoadUnreadable>(&read)) {
        m_indexHeld = true;
        kLog.error("The site icon index cannot be read and is left as it is: "
                   + unreadable->message);
    }
}

QNetworkAccessManager& SiteIcons::network()
{
    if (!m_network) {
        m_network = std::make_unique<QNetworkAccessManager>();
        // Nobody's session: no cookies are sent or kept, and nothing is cached on disk.
        m_network->setCookieJar(nullptr);
        m_network->setRedirectPolicy(QNetworkRequest::UserVerifiedRedirectPolicy);
    }
    return *m_network;
}

SiteIcons::~SiteIcons()
{
    // Aborting reports the reply finished: nothing may start a next step from here on.
    m_waiting.clear();
    auto searches = std::move(m_searches);
    m_searches.clear();
    for (auto& [host, search] : searches) {
        if (search->reply) {
            search->reply->disconnect();
            search->reply->abort();
        }
    }
    m_workers.waitForDone();
}

int64_t SiteIcons::now() const
{
    if (m_options.now) {
        return m_options.now();
    }
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::optional<QImage> SiteIcons::image(const std::string& address)
{
    auto host = kit::web::siteOf(address);
    if (!host) {
        return std::nullopt;
    }
    auto cached = m_images.find(*host);
    if (cached == m_images.end()) {
        QImage image;
        auto kept = m_index.sites.find(*host);
        if (kept != m_index.sites.end() && !kept->second.file.empty()) {
            // Our own small PNG, written by decodeSiteIcon's caller; read once per host.
            QImageReader reader(
                QString::fromStdString((m_options.folder / kept->second.file).string()));
            const QSize size = reader.size();
            if (size.isValid() && size.width() <= kKeptSide && size.height() <= kKeptSide) {
                image = reader.read();
            }
        }
        cached = m_images.emplace(*host, std::move(image)).first;
    }
    if (cached->second.isNull()) {
        return std::nullopt;
    }
    return cached->second;
}

void SiteIcons::search(const std::string& address, bool force)
{
    auto host = kit::web::siteOf(address);
    if (!host || m_searches.contains(*host)) {
        return;
    }
    if (!force && !kit::web::isDue(m_index, *host, now())) {
        return;
    }
    for (const auto& [waiting, ignored] : m_waiting) {
        if (waiting == *host) {
            return;
        }
    }
    if (m_searches.size() >= kParallelSearches) {
        m_waiting.emplace_back(*host, address);
        return;
    }
    begin(*host, address);
}

void SiteIcons::searchAtStart(const kit::library::Library& library)
{
    for (const auto& address : kit::web::searchesAtStart(library, m_index, now())) {
        search(address);
    }
}

void SiteIcons::libraryChanged(const kit::library::Library& before,
                               const kit::library::Library& after)
{
    for (const auto& address : kit::web::searchesAfterChange(before, after, m_index, now())) {
        search(address);
    }
}

void SiteIcons::begin(const std::string& host, const std::string& address)
{
    auto& search = m_searches[host];
    search = std::make_unique<Search>(IconSearch(address, m_options.wanted));
    step(host);
}

void SiteIcons::step(const std::string& host)
{
    auto found = m_searches.find(host);
    if (found == m_searches.end()) {
        return;
    }
    Search& search = *found->second;
    const auto& request = search.search.next();
    if (!request) {
        finish(host);
        return;
    }
    const QUrl url(text(request->address));
    if (!isWeb(url)) {
        failed(host, search, QStringLiteral("not an http(s) address"));
        return;
    }
    QNetworkRequest get(url);
    get.setMaximumRedirectsAllowed(kRedirectLimit);
    get.setTransferTimeout(static_cast<int>(m_options.timeout.count()));
    get.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    get.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    get.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    get.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    get.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Vantorel"));
    search.body.clear();
    search.failure.clear();
    search.redirects = 0;
    QNetworkReply* reply = network().get(get);
    search.reply = reply;

    // The transfer timeout restarts with every byte; a trickling endless body is cut here.
    auto* deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, reply, [reply, &search] {
        search.failure = QStringLiteral("no answer within the time allowed");
        reply->abort();
    });
    deadline->start(m_options.timeout);
    connect(reply, &QNetworkReply::redirected, reply, [reply, &search](const QUrl& to) {
        if (isWeb(to) && ++search.redirects <= kRedirectLimit) {
            Q_EMIT reply->redirectAllowed();
            return;
        }
        search.failure = QStringLiteral("a redirect to somewhere not allowed");
        reply->abort();
    });
    connect(reply, &QNetworkReply::readyRead, reply, [reply, &search] {
        const qint64 room = kReadLimit + 1 - search.body.size();
        search.body += reply->read(std::max<qint64>(room, 0));
        if (search.body.size() > kReadLimit) {
            search.failure = QStringLiteral("more than 1 MiB");
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::finished, this, [this, host, reply] { fetched(host, reply); });
}

void SiteIcons::fetched(const std::string& host, QNetworkReply* reply)
{
    reply->deleteLater();
    // Its handlers hold the search, which may end before the reply is deleted.
    reply->disconnect();
    for (auto* timer : reply->findChildren<QTimer*>()) {
        timer->stop();
    }
    auto found = m_searches.find(host);
    if (found == m_searches.end() || found->second->reply != reply) {
        return;
    }
    Search& search = *found->second;
    search.reply = nullptr;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (!search.failure.isEmpty()) {
        failed(host, search, search.failure);
        return;
    }
    // A redirect still standing at the end is one that was not followed (a loop, too many).
    if (status >= 300) {
        failed(host, search, QStringLiteral("HTTP status %1").arg(status));
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        failed(host, search, reply->errorString());
        return;
    }
    search.body += reply->readAll();
    if (search.body.size() > kReadLimit) {
        failed(host, search, QStringLiteral("more than 1 MiB"));
        return;
    }
    const auto& request = *search.search.next();
    if (request.step != IconSearch::Step::Image) {
        const std::string finalAddress = reply->url().toString().toStdString();
        search.search.read(
            std::string_view(search.body.constData(), static_cast<size_t>(search.body.size())),
            finalAddress);
        step(host);
        return;
    }
    // Decoding a large picture takes a while: never on the GUI thread.
    const QByteArray bytes = std::move(search.body);
    const int wanted = m_options.wanted;
    m_workers.start([this, host, bytes, wanted] {
        QString why;
        QImage image = decodeSiteIcon(bytes, wanted, &why);
        QMetaObject::invokeMethod(
            this, [this, host, image, why] { decoded(host, image, why); }, Qt::QueuedConnection);
    });
}

void SiteIcons::failed(const std::string& host, Search& search, const QString& reason)
{
    if (const auto& request = search.search.next()) {
        search.failures << QString::fromStdString(request->address) + QStringLiteral(": ") + reason;
    }
    search.search.failed();
    step(host);
}

void SiteIcons::decoded(const std::string& host, const QImage& image, const QString& why)
{
    auto found = m_searches.find(host);
    if (found == m_searches.end()) {
        return;
    }
    Search& search = *found->second;
    if (image.isNull()) {
        failed(host, search, why);
        return;
    }
    search.search.found();
    keep(host, image, *search.search.chosen());
    finish(host);
}

void SiteIcons::finish(const std::string& host)
{
    auto found = m_searches.find(host);
    if (found == m_searches.end()) {
        return;
    }
    const Search& search = *found->second;
    if (!search.search.chosen()) {
        kit::web::recordSearch(m_index, host, std::nullopt, now());
        saveIndex();
        const std::string why = search.failures.isEmpty()
                                    ? std::string("none offered")
                                    : search.failures.join(QStringLiteral("; ")).toStdString();
        // Addresses come from the site's own markup: shown, never acted on by a terminal.
        kLog.info(kit::support::visibleText("No page icon for " + host + " (" + why
                                            + "); its monogram stays."));
    }
    m_searches.erase(found);
    while (!m_waiting.empty() && m_searches.size() < kParallelSearches) {
        auto [next, address] = m_waiting.front();
        m_waiting.pop_front();
        if (!m_searches.contains(next)) {
            begin(next, address);
        }
    }
}

void SiteIcons::keep(const std::string& host, const QImage& image, const std::string& source)
{
    const std::string file = kit::web::keptFileName(host);
    kit::web::recordSearch(m_index, host, kit::web::KeptIcon{file, 0, source}, now());
    m_images[host] = image;
    saveIndex();
    const std::filesystem::path path = m_options.folder / file;
    m_workers.start([image, path] {
        if (auto error = kit::support::writeFileAtomically(path, png(image).toStdString())) {
            kLog.error(*error);
        }
    });
    if (m_changed) {
        m_changed(host);
    }
}

void SiteIcons::pageIcon(const std::string& address, const QIcon& icon)
{
    auto host = kit::web::siteOf(address);
    if (!host || icon.isNull()) {
        return;
    }
    QImage picture = scaledToKeep(icon.pixmap(QSize(kKeptSide, kKeptSide)).toImage());
    if (picture.isNull()) {
        return;
    }
    auto current = image(address);
    if (current && *current == picture) {
        return;
    }
    keep(*host, picture, address);
}

void SiteIcons::saveIndex()
{
    if (m_indexHeld) {
        return;
    }
    if (!m_store) {
        kit::storage::JsonCoding<kit::web::KeptIconIndex> coding{
            [](const kit::web::KeptIconIndex& index) { return kit::web::encodeKeptIcons(index); },
            [](std::string_view text) { return kit::web::decodeKeptIcons(text); }};
        m_store = std::make_unique<kit::storage::JsonStore<kit::web::KeptIconIndex>>(
            m_options.folder / kit::web::kKeptIconIndexFile,
            std::chrono::milliseconds(500),
            std::move(coding));
    }
    m_store->save(m_index);
}

void SiteIcons::flush()
{
    if (m_store) {
        m_store->flush();
    }
    m_workers.waitForDone();
}

} // namespace desktop
