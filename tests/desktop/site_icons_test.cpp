// SPDX-License-Identifier: MIT
// Sites' icons fetched from a local HTTP server: each way a page declares its icon, and the
// ways a site can misbehave. Nothing may crash or hang, and a site without a usable icon keeps
// its monogram.
#include "desktop/tray/site_icons.h"

#include "desktop/tray/qt_icon_renderer.h"
#include "kit/library/fixtures.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImageReader>
#include <QPainter>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QtEndian>

#include <functional>
#include <map>

namespace desktop {
namespace {

using testing_support::TempDir;

QByteArray picture(const char* format, int side, QColor colour = Qt::red)
{
    QImage image(side, side, QImage::Format_ARGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

const QByteArray kSvg = R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 10 10">
    <rect width="10" height="10" fill="#00f"/></svg>)";

// One answer: a status, headers and a body; or an endless body; or no answer at all.
struct Answer
{
    enum class Kind {
        Whole,
        Endless,
        Silent,
    };
    int status;
    QByteArray type;
    QByteArray body;
    Kind kind = Kind::Whole;
    QByteArray location = {};
};

Answer page(QByteArray html)
{
    return Answer{200, "text/html", std::move(html)};
}

Answer image(QByteArray bytes, QByteArray type = "image/png")
{
    return Answer{200, std::move(type), std::move(bytes)};
}

// A tiny HTTP/1.0 server: one request per connection, answers by path.
class Server
{
public:
    explicit Server(std::map<QByteArray, Answer> answers)
        : m_answers(std::move(answers))
    {
        m_server.listen(QHostAddress::LocalHost);
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                QObject::connect(
                    socket, &QTcpSocket::readyRead, socket, [this, socket] { serve(socket); });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QString address(const char* path) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
    }
    const QList<QByteArray>& asked() const { return m_asked; }

private:
    void serve(QTcpSocket* socket)
    {
        const QByteArray request = socket->readAll();
        const QByteArray path = request.split(' ').value(1);
        m_asked << path;
        auto found = m_answers.find(path);
        Answer answer =
            found == m_answers.end() ? Answer{404, "text/plain", "none"} : found->second;
        if (answer.kind == Answer::Kind::Silent) {
            return;
        }
        QByteArray head = "HTTP/1.0 " + QByteArray::number(answer.status) + " X\r\n"
                          + "Content-Type: " + answer.type + "\r\n";
        if (!answer.location.isEmpty()) {
            head += "Location: " + answer.location + "\r\n";
        }
        if (answer.kind == Answer::Kind::Whole) {
            head += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
        }
        socket->write(head + "\r\n");
        if (answer.kind == Answer::Kind::Whole) {
            socket->write(answer.body);
            socket->disconnectFromHost();
            return;
        }
        // Endless: another chunk whenever the last one left, until the client hangs up.
        const QByteArray chunk(64 * 1024, 'x');
        QObject::connect(socket, &QTcpSocket::bytesWritten, socket, [socket, chunk] {
            if (socket->bytesToWrite() < chunk.size()) {
                socket->write(chunk);
            }
        });
        socket->write(chunk);
    }

    QTcpServer m_server;
    std::map<QByteArray, Answer> m_answers;
    QList<QByteArray> m_asked;
};

struct Case
{
    std::string label;
    std::map<QByteArray, Answer> answers;
    // The path the kept picture came from; empty when none may be kept.
    QByteArray source;
    int side = 0;
};

class SiteIconsTest : public ::testing::TestWithParam<Case>
{};

// Runs the event loop until the searches end; false when they did not within the time.
bool settle(SiteIcons& icons, int milliseconds = 20000)
{
    QElapsedTimer clock;
    clock.start();
    while (icons.isSearching() && clock.elapsed() < milliseconds) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    icons.flush();
    QCoreApplication::processEvents();
    return !icons.isSearching();
}

SiteIcons::Options options(const TempDir& folder)
{
    SiteIcons::Options result;
    result.folder = folder.path();
    result.wanted = 64;
    result.timeout = std::chrono::milliseconds(1500);
    result.now = [] { return int64_t{1'800'000'000}; };
    return result;
}

QByteArray links(const char* head)
{
    return QByteArray("<!doctype html><html><head><title>t</title>") + head + "</head><body>";
}

} // namespace

TEST_P(SiteIconsTest, KeepsTheBestIconOrNoneAndNeverHangs)
{
    const Case& c = GetParam();
    Server server(c.answers);
    TempDir folder;
    SiteIcons icons(options(folder));
    const std::string address = server.address("/app/").toStdString();
    icons.search(address);
    ASSERT_TRUE(settle(icons)) << "the search did not end";
    auto kept = icons.image(address);
    const auto& entry = icons.index().sites.at("127.0.0.1");
    if (c.source.isEmpty()) {
        EXPECT_FALSE(kept);
        EXPECT_EQ(entry.file, "");
    } else {
        ASSERT_TRUE(kept);
        EXPECT_EQ(kept->width(), c.side);
        EXPECT_EQ(entry.source, server.address(c.source.constData()).toStdString());
        // Kept across runs: read back from the folder.
        SiteIcons again(options(folder));
        auto read = again.image(address);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->size(), kept->size());
    }
    // Only the site's own pages and pictures were asked for, never what a data: or file: link
    // names.
    for (const QByteArray& path : server.asked()) {
        EXPECT_TRUE(path.startsWith("/")) << path.constData();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table,
    SiteIconsTest,
    ::testing::Values(
        Case{"NearestAboveThePanelSize",
             {{"/app/", page(links(R"(<link rel="icon" href="/16.png" sizes="16x16">
                             <link rel="icon" href="/96.png" sizes="96x96">
                             <link rel="apple-touch-icon" href="/touch.png">)"))},
              {"/16.png", image(picture("PNG", 16))},
              {"/96.png", image(picture("PNG", 96))},
              {"/touch.png", image(picture("PNG", 180))}},
             "/96.png",
             SiteIcons::kKeptSide},
        Case{"TouchIconScaledToWhatIsKept",
             {{"/app/", page(links(R"(<link rel="apple-touch-icon" href="t.png">)"))},
              {"/app/t.png", image(picture("PNG", 180))}},
             "/app/t.png",
             SiteIcons::kKeptSide},
        Case{"ManifestIcons",
             {{"/app/", page(links(R"(<link rel="manifest" href="/m.json">)"))},
              {"/m.json",
               Answer{200,
                      "application/manifest+json",
                      R"({"icons":[{"src":"/512.png","sizes":"512x512"},
                                  {"src":"/72.png","sizes":"72x72"}]})"}},
              {"/512.png", image(picture("PNG", 512))},
              {"/72.png", image(picture("PNG", 72))}},
             "/72.png",
             SiteIcons::kKeptSide},
        Case{"SvgDrawnAtTheSizeKept",
             {{"/app/", page(links(R"(<link rel="icon" type="image/svg+xml" href="/i.svg">)"))},
              {"/i.svg", image(kSvg, "image/svg+xml")}},
             "/i.svg",
             SiteIcons::kKeptSide},
        Case{"RootIconWhenThePageNamesNone",
             {{"/app/", page(links(""))}, {"/favicon.ico", image(picture("ICO", 32))}},
             "/favicon.ico",
             32},
        Case{"RootIconWhenThePageFails",
             {{"/app/", Answer{500, "text/plain", "down"}},
              {"/favicon.ico", image(picture("ICO", 48))}},
             "/favicon.ico",
             48},
        Case{"HugeIcon",
             {{"/app/", page(links(R"(<link rel="icon" href="/big.png">)"))},
              {"/big.png", Answer{200, "image/png", {}, Answer::Kind::Endless}}},
             "",
             0},
        Case{
            "EndlessPage", {{"/app/", Answer{200, "text/html", {}, Answer::Kind::Endless}}}, "", 0},
        Case{"SilentSite", {{"/app/", Answer{200, "", {}, Answer::Kind::Silent}}}, "", 0},
        Case{"RedirectLoop",
             {{"/app/", page(links(R"(<link rel="icon" href="/loop">)"))},
              {"/loop", Answer{302, "text/plain", "", Answer::Kind::Whole, "/loop"}}},
             "",
             0},
        Case{"RedirectToAFile",
             {{"/app/", page(links(R"(<link rel="icon" href="/away">)"))},
              {"/away", Answer{302, "text/plain", "", Answer::Kind::Whole, "file:///etc/passwd"}}},
             "",
             0},
        Case{"NotAnImage",
             {{"/app/", page(links(R"(<link rel="icon" href="/i.png">)"))},
              {"/i.png", image("<html>not found</html>", "image/png")}},
             "",
             0},
        Case{"BrokenPng",
             {{"/app/", page(links(R"(<link rel="icon" href="/i.png">)"))},
              {"/i.png", image(picture("PNG", 64).left(60) + QByteArray(500, 'z'))}},
             "",
             0},
        Case{"DataAndFileLinks",
             {{"/app/", page(links(R"(<link rel="icon" href="data:image/png;base64,iVBORw0KGgo=">
                             <link rel="icon" href="file:///etc/passwd">)"))}},
             "",
             0}),
    [](const auto& info) { return info.param.label; });

TEST(SiteIcons, WebPWhenItsPluginIsInstalled)
{
    if (!QImageReader::supportedImageFormats().contains("webp")) {
        GTEST_SKIP() << "no WebP image plug-in";
    }
    QImage decoded = decodeSiteIcon(picture("WEBP", 40), 64);
    EXPECT_EQ(decoded.size(), QSize(40, 40));
}

TEST(SiteIcons, AnIcoGivesTheFrameNearestAboveTheSizeDrawn)
{
    // Qt writes one frame per ICO: several are joined by hand, as sites ship them.
    auto frame = [](int side) { return picture("ICO", side); };
    QByteArray joined;
    QList<QByteArray> frames{frame(16), frame(48), frame(32), frame(256)};
    QByteArray header("\0\0\1\0", 4);
    header.append(char(frames.size())).append('\0');
    QByteArray entries;
    QByteArray data;
    int offset = 6 + 16 * frames.size();
    for (const QByteArray& one : frames) {
        QByteArray entry = one.mid(6, 16);
        const int size = one.size() - 22;
        qToLittleEndian<quint32>(offset + data.size(), entry.data() + 12);
        entries += entry;
        data += one.mid(22, size);
    }
    joined = header + entries + data;
    EXPECT_EQ(decodeSiteIcon(joined, 40).width(), 48);
    EXPECT_EQ(decodeSiteIcon(joined, 20).width(), 32);
    EXPECT_EQ(decodeSiteIcon(joined, 300).width(), SiteIcons::kKeptSide);
}

TEST(SiteIcons, AnInAppPagesIconReplacesTheKeptOneAndTheMonogramGivesWay)
{
    TempDir folder;
    SiteIcons icons(options(folder));
    QtIconRenderer renderer([&icons](const std::string& address) { return icons.image(address); });
    auto shortcut = testing_support::webLink("News", "https://news.example/today");
    const auto glyph = renderer.glyph(shortcut, 18);
    ASSERT_TRUE(glyph.monogram);
    const QColor monogram = QColor::fromString(QString::fromStdString(glyph.monogram->colour));
    const auto centre = [&] {
        return QColor(renderer.draw(glyph, 32, kit::menubar::Appearance::Light).pixel(4, 16));
    };
    EXPECT_EQ(centre(), monogram);

    int told = 0;
    icons.onChanged([&told](const std::string& host) {
        EXPECT_EQ(host, "news.example");
        ++told;
    });
    icons.pageIcon("https://news.example/other", QIcon(QPixmap::fromImage([] {
                       QImage green(32, 32, QImage::Format_ARGB32);
                       green.fill(Qt::green);
                       return green;
                   }())));
    EXPECT_EQ(told, 1);
    EXPECT_EQ(centre(), QColor(Qt::green));
    icons.flush();
    EXPECT_EQ(icons.index().sites.at("news.example").file, "news.example.png");
}

} // namespace desktop
