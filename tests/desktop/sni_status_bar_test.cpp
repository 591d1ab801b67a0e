// SPDX-License-Identifier: MIT
#include "desktop/tray/sni_status_bar.h"

#include "desktop/tray/sni_types.h"
#include "fake_service.h"
#include "private_bus.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

namespace desktop {
namespace {

using kit::menubar::Appearance;
using kit::menubar::Click;
using kit::menubar::Glyph;
using kit::menubar::Menu;
using kit::menubar::MenuItem;
using kit::menubar::StatusItemEvents;
using kit::menubar::StatusItemHandle;
using kit::menubar::trayHost;
using kit::menubar::TrayHostKind;

const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");

// A watcher and its host in one: records each registration, and like a real host reads the
// item's properties before the next arrives, answering the registration only after a delay so
// a bar that does not wait would register out of turn.
class FakeWatcher final : public FakeService
{
public:
    explicit FakeWatcher(const QString& address)
        : FakeService(address, kWatcher, QStringLiteral("/StatusNotifierWatcher"))
    {
        sni::registerTypes();
        publish();
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.member() != QStringLiteral("RegisterStatusNotifierItem")) {
            return false;
        }
        const QString service = message.arguments().value(0).toString();
        registered.push_back(service);
        senders.push_back(message.service());
        // Read now, answer later: the order is the host's, not the replies'.
        auto read = m_bus.asyncCall(
            QDBusMessage::createMethodCall(service,
                                           QStringLiteral("/StatusNotifierItem"),
                                           QStringLiteral("org.freedesktop.DBus.Properties"),
                                           QStringLiteral("GetAll"))
            << QStringLiteral("org.kde.StatusNotifierItem"));
        reads.push_back(read);
        message.setDelayedReply(true);
        QTimer::singleShot(30, [connection, reply = message.createReply()] {
            QDBusConnection(connection).send(reply);
        });
        return true;
    }

    QVariantMap properties(size_t index)
    {
        spinUntil([&] { return reads.size() > index && reads[index].isFinished(); });
        QDBusPendingReply<QVariantMap> reply = reads.at(index);
        return reply.value();
    }

    QDBusMessage call(const QString& service,
                      const QString& path,
                      const QString& interface,
                      const QString& member,
                      const QVariantList& arguments)
    {
        auto message = QDBusMessage::createMethodCall(service, path, interface, member);
        message.setArguments(arguments);
        QDBusPendingCall pending = m_bus.asyncCall(message);
        spinUntil([&] { return pending.isFinished(); });
        return pending.reply();
    }

    std::vector<QString> registered;
    std::vector<QString> senders;
    std::vector<QDBusPendingCall> reads;
};

// The settings portal answering the colour scheme: through ReadOne, or only through the older
// Read, which wraps the value in one more variant.
class FakePortal final : public FakeService
{
public:
    FakePortal(const QString& address, uint scheme, bool readOne)
        : FakeService(address, QStringLiteral("org.freedesktop.portal.Desktop"), kPath)
        , m_scheme(scheme)
        , m_readOne(readOne)
    {
        publish();
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        const QVariant value = QVariant::fromValue(QDBusVariant(m_scheme));
        if (message.member() == QStringLiteral("ReadOne") && m_readOne) {
            connection.send(message.createReply(QVariantList{value}));
        } else if (message.member() == QStringLiteral("Read")) {
            connection.send(
                message.createReply(QVariantList{QVariant::fromValue(QDBusVariant(value))}));
        } else {
            connection.send(message.createErrorReply(QDBusError::UnknownMethod, "no such method"));
        }
        return true;
    }

    void announce(uint scheme)
    {
        auto signal = QDBusMessage::createSignal(
            kPath, QStringLiteral("org.freedesktop.portal.Settings"), "SettingChanged");
        signal << QStringLiteral("org.freedesktop.appearance") << QStringLiteral("color-scheme")
               << QVariant::fromValue(QDBusVariant(scheme));
        m_bus.send(signal);
    }

private:
    inline static const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
    uint m_scheme;
    bool m_readOne;
};

class SniStatusBarTest : public PrivateBusTest
{
protected:
    std::unique_ptr<SniStatusBar> makeBar(TrayHostKind kind)
    {
        return std::make_unique<SniStatusBar>(m_icons, trayHost(kind), m_bus.address());
    }

    StatusItemHandle
    add(SniStatusBar& bar, const std::string& id, std::vector<Click>* clicks = nullptr)
    {
        StatusItemEvents events;
        events.clicked = [clicks](const std::optional<Click>& click) {
            if (clicks && click) {
                clicks->push_back(*click);
            }
        };
        events.contextMenu = [this] { return menu(); };
        return *bar.create(id, std::move(events));
    }

    Menu menu()
    {
        ++m_menuAsks;
        return Menu{{MenuItem::command("Open", [this] { ++m_opened; }),
                     MenuItem::separator(),
                     MenuItem::submenu("Opens", {MenuItem::option("In a panel", true, [] {})}),
                     MenuItem::command(m_lastRow, [] {})}};
    }

    sni::MenuLayout layout(FakeWatcher& watcher, const QString& service)
    {
        const auto reply = watcher.call(service,
                                        QStringLiteral("/MenuBar"),
                                        QStringLiteral("com.canonical.dbusmenu"),
                                        QStringLiteral("GetLayout"),
                                        {0, -1, QStringList()});
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return qdbus_cast<sni::MenuLayout>(reply.arguments().value(1));
    }

    QtIconRenderer m_icons;
    int m_menuAsks = 0;
    int m_opened = 0;
    std::string m_lastRow = "Edit\u2026";
};

TEST_F(SniStatusBarTest, RegistersOneAtATimeInCreationOrderWithEachIconsOwnIdentity)
{
    FakeWatcher watcher(m_bus.address());
    auto bar = makeBar(TrayHostKind::XfcePanel);
    std::vector<StatusItemHandle> handles;
    for (const char* id : {"uuid-1", "uuid-2", "uuid-3"}) {
        handles.push_back(add(*bar, id));
    }
    Glyph plain;
    plain.name = "mail-unread-symbolic";
    bar->setImage(handles[0], plain);
    bar->setToolTip(handles[0], "Mail <b>");
    bar->setName(handles[0], "Mail <b>");

    ASSERT_TRUE(spinUntil([&] { return bar->registered().size() == 3; }));
    ASSERT_EQ(watcher.registered.size(), 3U);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(watcher.registered[i], bar->serviceName(handles[i]));
        // Each item by its own connection's unique name, never a well-known one: GNOME's
        // extension drops some items registered by a name it then watches.
        EXPECT_EQ(watcher.registered[i], watcher.senders[i]);
        EXPECT_TRUE(watcher.registered[i].startsWith(u':'));
    }

    const QVariantMap first = watcher.properties(0);
    EXPECT_EQ(first.value("Id").toString(), "uuid-1");
    EXPECT_EQ(first.value("Title").toString(), "Mail <b>");
    EXPECT_FALSE(first.value("ItemIsMenu").toBool());
    EXPECT_EQ(qdbus_cast<QDBusObjectPath>(first.value("Menu")).path(), "/MenuBar");
    // Xfce would draw a symbolic icon black on any panel: our picture, in the panel's colour.
    EXPECT_TRUE(first.value("IconName").toString().isEmpty());
    const auto tip = qdbus_cast<sni::ToolTip>(first.value("ToolTip"));
    EXPECT_EQ(tip.title, "Mail <b>");
    EXPECT_TRUE(tip.text.isEmpty()); // read as markup by some hosts: never filled
    const auto pixmaps = qdbus_cast<sni::Pixmaps>(first.value("IconPixmap"));
    ASSERT_FALSE(pixmaps.isEmpty());
    for (const auto& pixmap : pixmaps) {
        EXPECT_EQ(pixmap.pixels.size(), pixmap.width * pixmap.height * 4);
    }
    EXPECT_EQ(watcher.properties(2).value("Id").toString(), "uuid-3");
}

TEST_F(SniStatusBarTest, TheDesktopsColourSchemeDecidesWhereTheHostHasNoLookOfItsOwn)
{
    for (const bool readOne : {true, false}) {
        FakePortal portal(m_bus.address(), 1, readOne); // prefer dark
        auto bar = makeBar(TrayHostKind::XfcePanel);
        std::vector<Appearance> heard;
        StatusItemEvents events;
        events.appearanceChanged = [&heard](Appearance look) { heard.push_back(look); };
        const auto handle = *bar->create("uuid-1", std::move(events));
        ASSERT_TRUE(spinUntil([&] { return bar->appearance(handle) == Appearance::Dark; }))
            << (readOne ? "ReadOne" : "Read");
        portal.announce(2); // prefer light
        ASSERT_TRUE(spinUntil([&] { return bar->appearance(handle) == Appearance::Light; }));
        EXPECT_EQ(heard, (std::vector<Appearance>{Appearance::Dark, Appearance::Light}));
        // The person's setting wins over the desktop.
        bar->setForcedAppearance(Appearance::Dark);
        EXPECT_EQ(bar->appearance(handle), Appearance::Dark);
    }
    // GNOME's bar is dark whatever the desktop prefers.
    FakePortal portal(m_bus.address(), 2, true);
    auto gnome = makeBar(TrayHostKind::GnomeAppIndicator);
    spinFor(200ms);
    EXPECT_EQ(gnome->appearance({}), Appearance::Dark);
}

TEST_F(SniStatusBarTest, HostCallsBecomeClicksAnchorsAndBarSteps)
{
    FakeWatcher watcher(m_bus.address());
    std::vector<int> steps;
    struct Row
    {
        TrayHostKind host;
        QString member;
        QVariantList arguments;
        std::vector<Click> clicks;
        bool anchored;
        std::vector<int> steps;
    };
    const Click primary{Click::Kind::Primary, false};
    const Click secondary{Click::Kind::Secondary, false};
    const Row rows[] = {
        {TrayHostKind::XfcePanel, "Activate", {300, 14}, {primary}, true, {}},
        // GNOME's Activate is the second press of a double click; the first opened the menu.
        {TrayHostKind::GnomeAppIndicator, "Activate", {300, 14}, {}, true, {}},
        {TrayHostKind::XfcePanel, "SecondaryActivate", {300, 14}, {primary}, true, {}},
        {TrayHostKind::KdePlasma, "ContextMenu", {300, 14}, {secondary}, true, {}},
        {TrayHostKind::Waybar, "Activate", {5, 5}, {primary}, false, {}}, // relative point
        {TrayHostKind::XfcePanel, "Scroll", {1, QStringLiteral("vertical")}, {}, false, {1}},
        {TrayHostKind::KdePlasma, "Scroll", {120, QStringLiteral("vertical")}, {}, false, {-1}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(trayHost(row.host).name + " " + row.member.toStdString());
        auto bar = makeBar(row.host);
        std::vector<Click> clicks;
        steps.clear();
        bar->setScrolled([&](int step) { steps.push_back(step); });
        const auto handle = add(*bar, "uuid", &clicks);
        const auto reply = watcher.call(bar->serviceName(handle),
                                        "/StatusNotifierItem",
                                        "org.kde.StatusNotifierItem",
                                        row.member,
                                        row.arguments);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage);
        spinFor(50ms);
        EXPECT_EQ(clicks, row.clicks);
        EXPECT_EQ(steps, row.steps);
        const auto anchor = bar->geometry(handle);
        EXPECT_EQ(anchor.has_value(), row.anchored);
        if (anchor) {
            EXPECT_TRUE(anchor->contains({300, 14}));
        }
    }
}

TEST_F(SniStatusBarTest, MenuIsCompleteOnFirstAskAndFollowsChanges)
{
    FakeWatcher watcher(m_bus.address());
    auto bar = makeBar(TrayHostKind::GnomeAppIndicator);
    const auto handle = add(*bar, "uuid");
    const QString service = bar->serviceName(handle);

    auto first = layout(watcher, service);
    ASSERT_EQ(first.children.size(), 4U);
    EXPECT_EQ(first.children[0].properties.value("label").toString(), "Open");
    EXPECT_EQ(first.children[1].properties.value("type").toString(), "separator");
    ASSERT_EQ(first.children[2].children.size(), 1U);
    EXPECT_EQ(first.children[2].children[0].properties.value("toggle-state").toInt(), 1);

    // Choosing the first row opens, once the host's call has returned.
    watcher.call(service,
                 "/MenuBar",
                 "com.canonical.dbusmenu",
                 "Event",
                 {first.children[0].id,
                  QStringLiteral("clicked"),
                  QVariant::fromValue(QDBusVariant(QString())),
                  0U});
    EXPECT_TRUE(spinUntil([&] { return m_opened == 1; }));

    // A change of the icon may change its menu: the host hears of it and gets the new rows.
    const int asks = m_menuAsks;
    layout(watcher, service);
    EXPECT_EQ(m_menuAsks, asks); // unchanged rows are not asked for again
    m_lastRow = "Edit again";
    bar->setToolTip(handle, "Renamed");
    auto second = layout(watcher, service);
    ASSERT_EQ(second.children.size(), 4U);
    EXPECT_EQ(second.children[3].properties.value("label").toString(), "Edit again");
}

TEST_F(SniStatusBarTest, AWatcherThatComesLaterHearsOfEveryIconInOrder)
{
    auto bar = makeBar(TrayHostKind::XfcePanel);
    std::vector<StatusItemHandle> handles;
    for (const char* id : {"a", "b", "c"}) {
        handles.push_back(add(*bar, id));
    }
    spinFor(50ms);
    EXPECT_TRUE(bar->registered().empty());
    bar->remove(handles[1]);

    FakeWatcher watcher(m_bus.address());
    ASSERT_TRUE(spinUntil([&] { return bar->registered().size() == 2; }));
    EXPECT_EQ(watcher.registered,
              (std::vector<QString>{bar->serviceName(handles[0]), bar->serviceName(handles[2])}));

    // A removed icon's name leaves the bus, which is how hosts drop it.
    const QString gone = bar->serviceName(handles[0]);
    bar->remove(handles[0]);
    EXPECT_TRUE(
        spinUntil([&] { return !watcher.bus().interface()->isServiceRegistered(gone).value(); }));
}

} // namespace
} // namespace desktop
