// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_window.h"
#include "desktop/manager/review_window.h"
#include "desktop/pages/desktop_notices.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/settings/key_value_store.h"
#include "kit/storage/library_store.h"
#include "kit/web/page_notifications.h"
#include "page_fake_notifications.h"
#include "private_bus.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QImage>
#include <QListWidget>

#include <vector>

namespace desktop::pages {
namespace {

using kit::library::ShortcutID;

class DesktopNoticesTest : public PrivateBusTest
{
protected:
    QDBusConnection client(const QString& name)
    {
        m_clients.push_back(name);
        return QDBusConnection::connectToBus(m_bus.address(), name);
    }

    void TearDown() override
    {
        for (const auto& name : m_clients) {
            QDBusConnection::disconnectFromBus(name);
        }
    }

    std::vector<QString> m_clients;
};

TEST_F(DesktopNoticesTest, ANotificationReachesTheServiceAndItsClickOpensItsShortcut)
{
    // Each row: whether the service has actions, how the person clicks, whether that opens.
    const struct
    {
        const char* name;
        bool hasActions;
        QString signal;
        QVariant detail;
        bool opens;
    } rows[] = {
        {"the default action", true, "ActionInvoked", QStringLiteral("default"), true},
        {"another action", true, "ActionInvoked", QStringLiteral("reply"), false},
        {"dismissed where clicks are actions", true, "NotificationClosed", 2U, false},
        {"dismissed where a click dismisses", false, "NotificationClosed", 2U, true},
        {"expired", false, "NotificationClosed", 1U, false},
    };
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeNotifications service(m_bus.address(), row.hasActions);
        DesktopNotices notices(client(QStringLiteral("client-%1").arg(++n)));
        std::vector<ShortcutID> opened;
        notices.clicked = [&](const ShortcutID& id) { opened.push_back(id); };
        const auto mail = ShortcutID::make();
        QImage icon(16, 16, QImage::Format_ARGB32);
        icon.fill(Qt::red);
        notices.show(mail, {"Mail", "Mail: New message", "From &lt;Ann&gt;"}, icon);
        ASSERT_TRUE(spinUntil([&] { return !service.shown().empty(); }));
        // The texts as the service reads them: pages_e2e.
        EXPECT_TRUE(service.shown().front().actions.contains(QStringLiteral("default")));
        EXPECT_EQ(service.shown().front().image, QSize(64, 64));

        // Let the reply with the id and the capabilities arrive before the click.
        spinFor(100ms);
        service.emitSignal(row.signal, 1, row.detail);
        // A notification opens once, however often it is clicked.
        if (row.opens) {
            service.emitSignal(QStringLiteral("ActionInvoked"), 1, QStringLiteral("default"));
        }
        spinFor(200ms);
        EXPECT_EQ(opened, row.opens ? std::vector{mail} : std::vector<ShortcutID>{});
    }
}

TEST_F(DesktopNoticesTest, WithoutAServiceNothingBreaks)
{
    DesktopNotices notices(client(QStringLiteral("alone")));
    bool opened = false;
    notices.clicked = [&](const ShortcutID&) { opened = true; };
    notices.show(ShortcutID::make(), {"Mail", "Mail", ""}, QImage());
    notices.show(ShortcutID::make(), {"Mail", "Mail", ""}, QImage());
    spinFor(200ms);
    EXPECT_FALSE(opened);
}

TEST(NotificationAnswersPane, ASiteAnsweredWhileThePaneIsOpenShowsAtOnceAndTheSelectionStays)
{
    testing_support::TempDir dir;
    kit::storage::LibraryStore store(kit::storage::SupportDirectory{dir.path(), true});
    kit::proposal::ProposalInbox inbox;
    kit::settings::MemoryKeyValueStore settings;
    kit::web::NotificationSites answers(settings);
    answers.remember(std::nullopt, "mail.example", true);

    ManagerServices services(store, inbox);
    services.sessionData.notificationAnswers = [&answers] {
        std::vector<NotificationAnswer> all;
        for (const auto& [site, allowed] : answers.sites(std::nullopt)) {
            all.push_back({std::nullopt, site, allowed});
        }
        return all;
    };
    services.sessionData.watchNotificationAnswers = [&settings](std::function<void()> changed) {
        const size_t token = settings.observe([changed](const std::string&) { changed(); });
        return std::function<void()>([&settings, token] { settings.removeObserver(token); });
    };
    auto window = std::make_unique<ManagerWindow>(std::move(services));
    window->present();
    window->showPane(ManagerWindow::Pane::Sessions);
    auto* list = window->findChild<QListWidget*>(QStringLiteral("notificationSites"));
    ASSERT_NE(list, nullptr);
    list->setCurrentRow(0);

    answers.remember(std::nullopt, "news.example", false);
    ASSERT_EQ(list->count(), 2);
    EXPECT_TRUE(list->item(1)->text().startsWith(QStringLiteral("news.example")));
    EXPECT_EQ(list->currentRow(), 0);

    answers.forget(std::nullopt, "mail.example");
    ASSERT_EQ(list->count(), 1);
    EXPECT_TRUE(list->item(0)->text().startsWith(QStringLiteral("news.example")));
    EXPECT_EQ(list->currentRow(), -1);

    // The window stops listening when it goes.
    window.reset();
    answers.remember(std::nullopt, "mail.example", true);
}

} // namespace
} // namespace desktop::pages
