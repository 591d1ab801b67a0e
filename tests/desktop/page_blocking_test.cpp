// SPDX-License-Identifier: MIT
// A real web engine page against a local HTTP server: blocked requests never reach the server
// and hidden elements are not displayed. Runs on the offscreen platform without the sandbox.
#include "desktop/blocking/page_blocking.h"

#include "kit/blocking/disk_rule_list_store.h"
#include "kit/blocking/filter_list.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QSet>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <QWebEnginePage>
#include <QWebEngineProfile>

#include <functional>
#include <memory>

namespace {

const char* const kPage = R"(<!doctype html><html><body>
<img src="/ads/banner.png"><img src="/ok.png"><script src="/track.js"></script>
<div class="ad-box">advert</div><div class="story">story</div>
</body></html>)";

// Serves the page at "/" and an empty 200 for anything else, remembering every path asked for.
class PageServer
{
public:
    QSet<QString> paths;

    PageServer()
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    QByteArray request = socket->readAll();
                    QString path = QString::fromLatin1(request.split(' ').value(1));
                    paths.insert(path);
                    QByteArray body = path == QLatin1String("/") ? QByteArray(kPage) : QByteArray();
                    QByteArray type = path == QLatin1String("/") ? "text/html" : "text/plain";
                    socket->write("HTTP/1.1 200 OK\r\nContent-Type: " + type
                                  + "\r\nConnection: close\r\nContent-Length: "
                                  + QByteArray::number(body.size()) + "\r\n\r\n" + body);
                    socket->disconnectFromHost();
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        m_server.listen(QHostAddress::LocalHost);
    }

    QUrl url() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort()));
    }

private:
    QTcpServer m_server;
};

bool waitFor(const std::function<bool()>& done, int ms = 20000)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return done();
}

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
    PageServer server;
    QWebEngineProfile profile;
    QWebEnginePage page{&profile};

    bool load()
    {
        bool finished = false;
        auto connection =
            QObject::connect(&page, &QWebEnginePage::loadFinished, [&](bool) { finished = true; });
        page.load(server.url());
        bool ok = waitFor([&] { return finished; });
        QObject::disconnect(connection);
        // Subresources may still be arriving after the load signal; give them a moment.
        waitFor([] { return false; }, 500);
        return ok;
    }

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
        waitFor([&] { return done; });
        return result;
    }
};

TEST_F(PageBlockingTest, BlockedResourcesNeverReachTheServerAndAdsAreHidden)
{
    desktop::blocking::enableBlocking(page, ruleList("/ads/*\n/track.js\n##.ad-box\n"));
    ASSERT_TRUE(load());
    EXPECT_TRUE(server.paths.contains("/ok.png"));
    EXPECT_FALSE(server.paths.contains("/ads/banner.png"));
    EXPECT_FALSE(server.paths.contains("/track.js"));
    EXPECT_EQ(displayOf(".ad-box"), "none");
    EXPECT_EQ(displayOf(".story"), "block");
}

TEST_F(PageBlockingTest, DisablingLetsEverythingThroughAgain)
{
    desktop::blocking::enableBlocking(page, ruleList("/ads/*\n##.ad-box\n"));
    desktop::blocking::disableBlocking(page);
    ASSERT_TRUE(load());
    EXPECT_TRUE(server.paths.contains("/ads/banner.png"));
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
    EXPECT_TRUE(server.paths.contains("/ads/banner.png"));
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
