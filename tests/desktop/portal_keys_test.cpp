// SPDX-License-Identifier: MIT
#include "desktop/keys/portal_keys.h"

#include "desktop/qt_main_queue.h"
#include "fake_service.h"
#include "kit/keys/bar_hot_keys.h"
#include "kit/keys/hot_key_combo.h"
#include "kit/keys/number_keys.h"
#include "private_bus.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QThread>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace desktop::fake_portal {

// What a client asks the portal to bind, and what the portal answers it bound.
struct Shortcut
{
    QString id;
    QVariantMap options;
};

QDBusArgument& operator<<(QDBusArgument& argument, const Shortcut& shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.options;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Shortcut& shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.options;
    argument.endStructure();
    return argument;
}

} // namespace desktop::fake_portal

Q_DECLARE_METATYPE(desktop::fake_portal::Shortcut)

namespace desktop {
namespace {

using namespace std::chrono_literals;
using fake_portal::Shortcut;
using kit::keys::HotKeyCombo;
using kit::keys::kHotKeySignature;
using kit::keys::Modifier;
using kit::keys::ModifierSet;
namespace key_code = kit::keys::key_code;

const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kShortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");

// org.freedesktop.portal.Desktop as far as GlobalShortcuts goes: answers each request through a
// Response on the request's path, binds what it is asked unless the trigger is taken, and emits
// Activated on demand. Lives on a thread of its own, as a portal is a process of its own: the
// client's version probe blocks the test's thread. Its record is read under the lock.
class FakePortal final : public FakeService
{
public:
    struct Options
    {
        bool offersShortcuts = true;
        // Keeps the session's Response until releaseSession().
        bool holdSession = false;
        bool refuseSession = false;
        std::set<QString> takenTriggers;
    };

    struct Bound
    {
        QString id;
        QString trigger;
        QString description;
    };

    FakePortal(const QString& address, Options options)
        : FakeService(address, QStringLiteral("org.freedesktop.portal.Desktop"), kPortalPath)
        , m_options(std::move(options))
    {
        // Registering gives the object a child, which must move with it.
        m_bus.registerVirtualObject(kPortalPath, this, QDBusConnection::SubPath);
        moveToThread(&m_thread);
        m_thread.start();
        m_bus.registerService(m_service);
    }
    ~FakePortal() override
    {
        m_bus.unregisterObject(kPortalPath, QDBusConnection::UnregisterTree);
        m_thread.quit();
        m_thread.wait();
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        const QString member = message.member();
        if (message.interface() == QStringLiteral("org.freedesktop.DBus.Properties")
            && member == QStringLiteral("Get")) {
            const bool version = message.arguments().value(0).toString() == kShortcutsInterface
                                 && message.arguments().value(1).toString() == "version";
            connection.send(version && m_options.offersShortcuts
                                ? message.createReply(QVariant::fromValue(QDBusVariant(1U)))
                                : message.createErrorReply(QDBusError::UnknownProperty,
                                                           QStringLiteral("No such property")));
            return true;
        }
        if (message.interface() == QStringLiteral("org.freedesktop.portal.Session")
            && member == QStringLiteral("Close")) {
            const std::lock_guard lock(m_mutex);
            m_record.closed.push_back(message.path());
            connection.send(message.createReply());
            return true;
        }
        if (message.interface() != kShortcutsInterface) {
            return false;
        }
        if (member == QStringLiteral("CreateSession")) {
            const auto options = qdbus_cast<QVariantMap>(message.arguments().value(0));
            const QString request = requestPath(message, options);
            connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
            const std::lock_guard lock(m_mutex);
            m_record.session = kPortalPath + "/session/" + escaped(message.service()) + '/'
                               + options.value("session_handle_token").toString();
            m_sessionRequest = request;
            if (!m_options.holdSession) {
                answerSession();
            }
            return true;
        }
        if (member == QStringLiteral("BindShortcuts")) {
            const auto session = message.arguments().value(0).value<QDBusObjectPath>().path();
            const auto asked = qdbus_cast<QList<Shortcut>>(message.arguments().value(1));
            const auto options = qdbus_cast<QVariantMap>(message.arguments().value(3));
            const QString request = requestPath(message, options);
            connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
            std::vector<Bound> binding;
            QList<Shortcut> bound;
            for (const Shortcut& shortcut : asked) {
                const QString trigger = shortcut.options.value("preferred_trigger").toString();
                binding.push_back(
                    {shortcut.id, trigger, shortcut.options.value("description").toString()});
                if (m_options.takenTriggers.count(trigger) == 0) {
                    bound.append({shortcut.id, {{"trigger_description", trigger}}});
                }
            }
            {
                const std::lock_guard lock(m_mutex);
                m_record.bindings.push_back(binding);
                m_record.bindSessions.push_back(session);
            }
            respond(request, 0, {{"shortcuts", QVariant::fromValue(bound)}});
            return true;
        }
        return false;
    }

    void releaseSession()
    {
        const std::lock_guard lock(m_mutex);
        answerSession();
    }

    void activate(const QString& id, std::optional<QString> session = std::nullopt)
    {
        auto signal = QDBusMessage::createSignal(
            kPortalPath, kShortcutsInterface, QStringLiteral("Activated"));
        signal << QVariant::fromValue(QDBusObjectPath(session.value_or(record().session))) << id
               << QVariant::fromValue(qulonglong{0}) << QVariantMap();
        m_bus.send(signal);
    }

    // What the portal was asked, read under the lock.
    struct Record
    {
        QString session;
        std::vector<std::vector<Bound>> bindings;
        std::vector<QString> bindSessions;
        std::vector<QString> closed;
    };
    Record record() const
    {
        const std::lock_guard lock(m_mutex);
        return m_record;
    }

private:
    static QString escaped(QString sender) { return sender.remove(0, 1).replace('.', '_'); }

    static QString requestPath(const QDBusMessage& message, const QVariantMap& options)
    {
        return kPortalPath + "/request/" + escaped(message.service()) + '/'
               + options.value("handle_token").toString();
    }

    // Under the lock.
    void answerSession()
    {
        if (m_sessionRequest.isEmpty()) {
            return;
        }
        if (m_options.refuseSession) {
            respond(m_sessionRequest, 2, {});
        } else {
            // A string, as the common portal sends it.
            respond(m_sessionRequest, 0, {{"session_handle", m_record.session}});
        }
        m_sessionRequest.clear();
    }

    void respond(const QString& request, uint response, const QVariantMap& results)
    {
        auto signal = QDBusMessage::createSignal(
            request, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"));
        signal << response << results;
        m_bus.send(signal);
    }

    Options m_options;
    QThread m_thread;
    mutable std::mutex m_mutex;
    QString m_sessionRequest;
    Record m_record;
};

struct Press
{
    uint32_t signature;
    uint32_t id;
    bool operator==(const Press&) const = default;
};

class PortalHotKeysTest : public PrivateBusTest
{
protected:
    static void SetUpTestSuite()
    {
        qDBusRegisterMetaType<Shortcut>();
        qDBusRegisterMetaType<QList<Shortcut>>();
    }

    void TearDown() override
    {
        m_keys.reset();
        m_portal.reset();
        if (m_client) {
            QDBusConnection::disconnectFromBus(m_clientName);
        }
    }

    void startPortal(FakePortal::Options options = {})
    {
        m_portal = std::make_unique<FakePortal>(m_bus.address(), std::move(options));
    }

    PortalHotKeys& startKeys()
    {
        m_clientName = QStringLiteral("portal-client-%1").arg(++s_clients);
        m_client = true;
        m_keys = std::make_unique<PortalHotKeys>(
            QDBusConnection::connectToBus(m_bus.address(), m_clientName));
        m_keys->installHandler([this](uint32_t signature, uint32_t id) {
            m_presses.push_back({signature, id});
        });
        return *m_keys;
    }

    std::unique_ptr<kit::keys::Subscription> digit(int n, ModifierSet modifiers = kPair)
    {
        return m_keys->registerHotKey(kit::keys::digitKeyCode(n),
                                      modifiers,
                                      kHotKeySignature,
                                      kit::keys::hot_key_id::kDigitBase + n);
    }

    bool settle() const
    {
        return spinUntil([&] { return m_keys->isSettled(); });
    }

    // Settles, and gives what was said on standard error meanwhile.
    std::string settleQuietly() const
    {
        ::testing::internal::CaptureStderr();
        const bool settled = settle();
        const std::string log = ::testing::internal::GetCapturedStderr();
        EXPECT_TRUE(settled);
        return log;
    }

    std::set<QString> lastBoundIds() const
    {
        std::set<QString> ids;
        const auto bindings = m_portal->record().bindings;
        if (!bindings.empty()) {
            for (const auto& bound : bindings.back()) {
                ids.insert(bound.id);
            }
        }
        return ids;
    }

    bool pressed(const QString& id, Press expected)
    {
        m_presses.clear();
        m_portal->activate(id);
        return spinUntil([&] { return !m_presses.empty(); }, 2s) && m_presses.size() == 1
               && m_presses.front() == expected;
    }

    static constexpr ModifierSet kPair{Modifier::Option, Modifier::Command};
    static inline int s_clients = 0;

    std::unique_ptr<FakePortal> m_portal;
    std::unique_ptr<PortalHotKeys> m_keys;
    QString m_clientName;
    bool m_client = false;
    std::vector<Press> m_presses;
};

TEST_F(PortalHotKeysTest,
       KeysRegisteredBeforeTheSessionAreBoundTogetherOnceItExistsAndOnlyTheirsCount)
{
    FakePortal::Options held;
    held.holdSession = true;
    startPortal(held);
    PortalHotKeys& keys = startKeys();
    ASSERT_TRUE(keys.isAvailable());
    auto one = digit(1);
    auto menu =
        keys.registerHotKey(5, {Modifier::Control, Modifier::Command}, kHotKeySignature, 100);
    ASSERT_NE(one, nullptr);
    ASSERT_NE(menu, nullptr);
    spinFor(200ms);
    EXPECT_TRUE(m_portal->record().bindings.empty()) << "bound before the session existed";
    EXPECT_FALSE(keys.isSettled());

    m_portal->releaseSession();
    ASSERT_TRUE(settle());
    const auto bindings = m_portal->record().bindings;
    ASSERT_EQ(bindings.size(), 1U);
    std::map<QString, QString> triggers;
    for (const auto& bound : bindings.front()) {
        triggers[bound.id] = bound.trigger;
        EXPECT_FALSE(bound.description.isEmpty()) << bound.id.toStdString();
    }
    EXPECT_EQ(
        triggers,
        (std::map<QString, QString>{{"vntl-201", "ALT+LOGO+1"}, {"vntl-100", "CTRL+LOGO+g"}}));
    EXPECT_EQ(m_portal->record().bindSessions.front(), m_portal->record().session);
    EXPECT_TRUE(keys.refused().empty());

    EXPECT_TRUE(pressed("vntl-100", {kHotKeySignature, 100}));
    EXPECT_TRUE(pressed("vntl-201", {kHotKeySignature, 201}));

    // Another session's key, and one the portal knows from an earlier start but not now.
    menu.reset();
    ASSERT_TRUE(settle());
    EXPECT_EQ(lastBoundIds(), std::set<QString>{"vntl-201"}) << "the remaining set, bound again";
    m_presses.clear();
    m_portal->activate("vntl-201", kPortalPath + "/session/1_999/someone_else");
    m_portal->activate("vntl-299");
    m_portal->activate("vntl-100");
    spinFor(200ms);
    EXPECT_TRUE(m_presses.empty());
}

TEST_F(PortalHotKeysTest, RefusedKeyIsReportedAndTheOthersStillWork)
{
    FakePortal::Options taken;
    taken.takenTriggers = {"ALT+LOGO+2"};
    startPortal(taken);
    PortalHotKeys& keys = startKeys();
    auto one = digit(1);
    auto two = digit(2);
    auto three = digit(3);
    const std::string log = settleQuietly();

    EXPECT_EQ(keys.refused(), std::vector<std::string>{"Alt+Super+2"});
    EXPECT_NE(log.find("Alt+Super+2"), std::string::npos) << log;
    EXPECT_EQ(log.find("Alt+Super+1"), std::string::npos) << log;
    EXPECT_TRUE(pressed("vntl-201", {kHotKeySignature, 201}));
    EXPECT_TRUE(pressed("vntl-203", {kHotKeySignature, 203}));
}

TEST_F(PortalHotKeysTest, ReplacingTheWholeSetSendsTheFinalSetOnceAnUnchangedSetNever)
{
    startPortal();
    PortalHotKeys& keys = startKeys();
    ASSERT_TRUE(settle());
    {
        QtMainQueue queue;
        kit::keys::BarHotKeys barKeys(keys, queue);
        std::vector<int> items;
        barKeys.onItem = [&](int n) { items.push_back(n); };
        const kit::keys::NumberKeys pair{kPair};
        barKeys.registerKeys(12, pair, HotKeyCombo(5, 0x140000), std::nullopt);
        barKeys.registerKeys(3, pair, std::nullopt, std::nullopt);
        ASSERT_TRUE(settle());
        ASSERT_EQ(m_portal->record().bindings.size(), 1U);
        EXPECT_EQ(lastBoundIds(),
                  (std::set<QString>{"vntl-201", "vntl-202", "vntl-203", "vntl-300", "vntl-301"}));
        // The same set again, as when the showing bar changes to one of as many icons.
        barKeys.registerKeys(3, pair, std::nullopt, std::nullopt);
        ASSERT_TRUE(settle());
        EXPECT_EQ(m_portal->record().bindings.size(), 1U);
        m_portal->activate("vntl-203");
        ASSERT_TRUE(spinUntil([&] { return !items.empty(); }));
        EXPECT_EQ(items, std::vector<int>{3});
    }

    // Destroying the service closes its session; a handle outliving it ends quietly.
    auto one = digit(1);
    ASSERT_TRUE(settle());
    const QString session = m_portal->record().session;
    m_keys.reset();
    ASSERT_TRUE(spinUntil([&] { return !m_portal->record().closed.empty(); }));
    EXPECT_EQ(m_portal->record().closed, std::vector<QString>{session});
    one.reset();
}

TEST_F(PortalHotKeysTest, UnavailableWithoutAPortalThatOffersGlobalShortcuts)
{
    PortalHotKeys& absent = startKeys();
    EXPECT_FALSE(absent.isAvailable());
    EXPECT_EQ(digit(1), nullptr);
    EXPECT_TRUE(absent.isSettled());
    m_keys.reset();
    QDBusConnection::disconnectFromBus(m_clientName);

    FakePortal::Options older;
    older.offersShortcuts = false;
    startPortal(older);
    EXPECT_FALSE(PortalHotKeys::isOffered(QDBusConnection::connectToBus(m_bus.address(), "probe")));
    QDBusConnection::disconnectFromBus("probe");
    EXPECT_FALSE(startKeys().isAvailable());
}

TEST_F(PortalHotKeysTest, RefusedSessionLeavesEveryKeyUnbound)
{
    FakePortal::Options refusing;
    refusing.refuseSession = true;
    startPortal(refusing);
    PortalHotKeys& keys = startKeys();
    auto one = digit(1);
    const std::string log = settleQuietly();
    EXPECT_EQ(keys.refused(), std::vector<std::string>{"Alt+Super+1"});
    EXPECT_NE(log.find("session"), std::string::npos) << log;
    EXPECT_TRUE(m_portal->record().bindings.empty());
    EXPECT_EQ(digit(2), nullptr);
}

TEST(PortalTriggerTest, NamesTheKeyInThePortalsFormat)
{
    const struct
    {
        uint16_t keyCode;
        ModifierSet modifiers;
        std::optional<std::string> trigger;
    } rows[] = {
        // Modifiers always in one order, whatever the set was built from.
        {kit::keys::digitKeyCode(1),
         {Modifier::Command, Modifier::Shift, Modifier::Option, Modifier::Control},
         "CTRL+ALT+SHIFT+LOGO+1"},
        {kit::keys::digitKeyCode(0), {Modifier::Control}, "CTRL+0"},
        // Letters by their unshifted keysym.
        {key_code::kG, {Modifier::Shift, Modifier::Control}, "CTRL+SHIFT+g"},
        {key_code::kLeftArrow, {Modifier::Option, Modifier::Command}, "ALT+LOGO+Left"},
        {27, {Modifier::Control}, "CTRL+minus"},
        {49, {Modifier::Command}, "LOGO+space"},
        {89, {Modifier::Control}, "CTRL+KP_7"},
        // Function keys stand alone.
        {96, {}, "F5"},
        {74, {}, "XF86AudioMute"},
        {200, {Modifier::Control}, std::nullopt},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(PortalHotKeys::triggerFor(row.keyCode, row.modifiers), row.trigger)
            << "key code " << row.keyCode;
    }
}

} // namespace
} // namespace desktop
