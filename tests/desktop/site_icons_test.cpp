// SPDX-License-Identifier: MIT
// Sites' icons fetched from a local HTTP server: each way a page declares its icon, and the
// ways a site can misbehave. Nothing may crash or hang, and a site without a usable icon keeps
// its monogram.
#include "desktop/tray/site_icons.h"

#include "desktop/tray/qt_icon_renderer.h"
#include "http_server.h"
#include "kit/library/fixtures.h"
#include "spin.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QPainter>
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

using Answer = HttpReply;

Answer page(QByteArray html)
{
    return Answer{200, "text/html", std::move(html)};
}

Answer image(QByteArray bytes, QByteArray type = "image/png")
{
    return Answer{200, std::move(type), std::move(bytes)};
}

Answer redirect(const QByteArray& to)
{
    return Answer{302, "text/plain", {}, "Location: " + to + "\r\n"};
}

// Answers by path; 404 for the rest.
HttpServer serve(const std::map<QByteArray, Answer>& answers)
{
    return HttpServer([answers](const HttpRequest& request) {
        const auto found = answers.find(request.path);
        return found == answers.end() ? Answer{404, "text/plain", "none"} : found->second;
    });
}

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
bool settle(SiteIcons& icons)
{
    const bool ended = spinUntil([&] { return !icons.isSearching(); }, 20s);
    icons.flush();
    QCoreApplication::processEvents();
    return ended;
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
    HttpServer server = serve(c.answers);
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
        EXPECT_EQ(entry.source, server.address(c.source).toStdString());
        // Kept across runs: read back from the folder.
        SiteIcons again(options(folder));
        auto read = again.image(address);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->size(), kept->size());
    }
    // Only the site's own pages and pictures were asked for, never what a data: or file: link
    // names.
    for (const HttpRequest& request : server.seen) {
        EXPECT_TRUE(request.path.startsWith("/")) << request.path.constData();
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
        Case{"ManifestIcons",
             {{"/app/", page(links(R"(<link rel="manifest" href="m.json">)"))},
              {"/app/m.json",
               Answer{200, "application/manifest+json", R"({"icons":[{"src":"/72.png"}]})"}},
              {"/72.png", image(picture("PNG", 72))}},
             "/72.png",
             SiteIcons::kKeptSide},
        Case{"SvgDrawnAtTheSizeKept",
             {{"/app/", page(links(R"(<link rel="icon" type="image/svg+xml" href="/i.svg">)"))},
              {"/i.svg", image(kSvg, "image/svg+xml")}},
             "/i.svg",
             SiteIcons::kKeptSide},
        Case{"RootIconWhenThePageFails",
             {{"/app/", Answer{500, "text/plain", "down"}},
              {"/favicon.ico", image(picture("ICO", 48))}},
             "/favicon.ico",
             48},
        Case{"HugeIcon",
             {{"/app/", page(links(R"(<link rel="icon" href="/big.png">)"))},
              {"/big.png", Answer{200, "image/png", {}, {}, Answer::Kind::Endless}}},
             "",
             0},
        Case{"EndlessPage",
             {{"/app/", Answer{200, "text/html", {}, {}, Answer::Kind::Endless}}},
             "",
             0},
        Case{"SilentSite", {{"/app/", Answer{200, "", {}, {}, Answer::Kind::Silent}}}, "", 0},
        Case{"RedirectLoop",
             {{"/app/", page(links(R"(<link rel="icon" href="/loop">)"))},
              {"/loop", redirect("/loop")}},
             "",
             0},
        Case{"RedirectToAFile",
             {{"/app/", page(links(R"(<link rel="icon" href="/away">)"))},
              {"/away", redirect("file:///etc/passwd")}},
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
