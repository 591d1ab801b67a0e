// SPDX-License-Identifier: MIT
// A real web engine page against a local HTTP server: blocked requests never reach the server
// and hidden elements are not displayed. Runs on the offscreen platform without the sandbox.
#include "desktop/blocking/page_blocking.h"

#include "http_server.h"
#include "kit/blocking/disk_rule_list_store.h"
#include "kit/blocking/filter_list.h"
#include "spin.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QUrl>
#include <QWebEnginePage>
#include <QWebEngineProfile>

#include <memory>

namespace {

using desktop::spinFor;
using desktop::spinUntil;
using namespace std::chrono_literals;

const char* const kPage = R"(<!doctype html><html><body>
<img src="/ads/banner.png"><img src="/ok.png"><script src="/track.js"></script>
<div class="ad-box">advert</div><div class="story">story</div>
</body></html>)";

kit::web::ContentRuleListPtr ruleList(const char* filters)
{
    auto compiled =
        kit::blocking::Matcher::compile(kit::blocking::convertFilterLists({filters}).json);
    return std::make_shared<kit::blocking::CompiledRuleList>(
        "test.adblock",
        std::make_shared<const kit::blocking::Matcher>(
            std::move(std::get<kit::blocking::Matcher>(compiled))));
}

class PageBlockingTest : public testing::Test
{
protected:
    // The page at "/" and an empty answer for anything else.
    desktop::HttpServer server{[](const desktop::HttpRequest& request) {
        return request.path == "/" ? desktop::HttpReply{200, "text/html", kPage}
                                   : desktop::HttpReply{200, "text/plain"};
    }};
    QWebEngineProfile profile;
    QWebEnginePage page{&profile};

    bool load()
    {
        bool finished = false;
        auto connection =
            QObject::connect(&page, &QWebEnginePage::loadFinished, [&](bool) { finished = true; });
        page.load(QUrl(QString::fromLatin1(server.address("/"))));
        const bool ok = spinUntil([&] { return finished; }, 20s);
        QObject::disconnect(connection);
        // Subresources may still be arriving after the load signal; give them a moment.
        spinFor(500ms);
        return ok;
    }

    bool asked(const char* path) const { return !server.seenAt(path).empty(); }

    QString displayOf(const QString& selector)
    {
        QString result;
        bool done = false;
        page.runJavaScript(
            QStringLiteral("getComputedStyle(document.querySelector('%1')).display").arg(selector),
            [&](const QVariant& value) {
                result = value.toString();
                done = true;
            });
        spinUntil([&] { return done; }, 20s);
        return result;
    }
};

TEST_F(PageBlockingTest, BlockedResourcesNeverReachTheServerAndAdsAreHidden)
{
    desktop::blocking::enableBlocking(page, ruleList("/ads/*\n/track.js\n##.ad-box\n"));
    ASSERT_TRUE(load());
    EXPECT_TRUE(asked("/ok.png"));
    EXPECT_FALSE(asked("/ads/banner.png"));
    EXPECT_FALSE(asked("/track.js"));
    EXPECT_EQ(displayOf(".ad-box"), "none");
    EXPECT_EQ(displayOf(".story"), "block");
}

TEST_F(PageBlockingTest, DisablingLetsEverythingThroughAgain)
{
    desktop::blocking::enableBlocking(page, ruleList("/ads/*\n##.ad-box\n"));
    desktop::blocking::disableBlocking(page);
    ASSERT_TRUE(load());
    EXPECT_TRUE(asked("/ads/banner.png"));
    EXPECT_EQ(displayOf(".ad-box"), "block");
}

TEST_F(PageBlockingTest, AListOfAnotherKindIsIgnored)
{
    struct Foreign : kit::web::ContentRuleList
    {
        std::string identifier() const override { return "foreign"; }
    };
    desktop::blocking::enableBlocking(page, std::make_shared<Foreign>());
    desktop::blocking::enableBlocking(page, nullptr);
    ASSERT_TRUE(load());
    EXPECT_TRUE(asked("/ads/banner.png"));
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    if (qEnvironmentVariableIsEmpty("QTWEBENGINE_CHROMIUM_FLAGS")) {
        qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--disable-gpu");
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QGuiApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
