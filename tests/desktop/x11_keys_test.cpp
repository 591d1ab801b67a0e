// SPDX-License-Identifier: MIT
#include "desktop/keys/x11_keys.h"

#include "kit/keys/hot_key_combo.h"
#include "spin.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCoreApplication>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QThread>
#include <QWheelEvent>
#include <QWidget>

#include <X11/keysym.h>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace desktop {
namespace {

using kit::keys::HotKeyCombo;
using kit::keys::Modifier;
using kit::keys::ModifierSet;
namespace key_code = kit::keys::key_code;

// ---- key codes ----

TEST(KeysymTableTest, EveryNamedKeyHasItsOwnKeysym)
{
    const std::pair<uint16_t, std::optional<uint32_t>> rows[] = {
        // Letters and digits are scattered over the codes; letters come out lower case.
        {key_code::kA, XK_a},
        {6, XK_z},
        {kit::keys::digitKeyCode(0), XK_0},
        {kit::keys::digitKeyCode(9), XK_9},
        {key_code::kLeftArrow, XK_Left},
        {122, XK_F1},
        {76, XK_KP_Enter},
        // The fn key, the modifier keys themselves and codes no keyboard sends.
        {63, std::nullopt},
        {55, std::nullopt},
        {200, std::nullopt},
        {0xffff, std::nullopt},
    };
    for (const auto& [code, keysym] : rows) {
        EXPECT_EQ(X11HotKeys::keysymFor(code), keysym) << "key code " << code;
    }
    std::map<uint32_t, uint16_t> seen;
    for (uint16_t code = 0; code < 128; ++code) {
        const std::string name = HotKeyCombo::name(code);
        const auto keysym = X11HotKeys::keysymFor(code);
        if (name.rfind("Key ", 0) == 0) {
            continue;
        }
        ASSERT_TRUE(keysym.has_value()) << name << " (code " << code << ") has no keysym";
        const auto [it, fresh] = seen.emplace(*keysym, code);
        EXPECT_TRUE(fresh) << name << " shares its keysym with code " << it->second;
    }
}

// ---- clock ----

TEST(QtClockTest, RepeatTicksOnTheGuiThreadUntilTheHandleGoes)
{
    QtClock clock;
    const QThread* gui = QThread::currentThread();
    int ticks = 0;
    int offThread = 0;
    auto handle = clock.repeat(10ms, [&] {
        ++ticks;
        offThread += QThread::currentThread() != gui ? 1 : 0;
    });
    ASSERT_TRUE(spinUntil([&] { return ticks >= 3; }));
    EXPECT_EQ(offThread, 0);
    handle.reset();
    const int atStop = ticks;
    spinFor(60ms);
    EXPECT_EQ(ticks, atStop);
}

TEST(QtClockTest, TheTickMayEndItsOwnTimerOrStartAnotherInItsPlace)
{
    QtClock clock;
    int ticks = 0;
    std::unique_ptr<kit::keys::Subscription> handle;
    handle = clock.repeat(5ms, [&] {
        ++ticks;
        handle.reset();
    });
    ASSERT_TRUE(spinUntil([&] { return ticks >= 1; }));
    spinFor(50ms);
    EXPECT_EQ(ticks, 1);

    // The modifier watch swaps a slow poll for a fast one from inside the tick.
    int fast = 0;
    handle = clock.repeat(5ms, [&] {
        ++ticks;
        handle = clock.repeat(5ms, [&] { ++fast; });
    });
    ASSERT_TRUE(spinUntil([&] { return fast >= 3; }));
    EXPECT_EQ(ticks, 2);
}

// ---- wheel ----

QWheelEvent wheelEvent(QPoint pixels, QPoint angle, Qt::ScrollPhase phase = Qt::NoScrollPhase)
{
    return QWheelEvent(
        QPointF(5, 5), QPointF(105, 7), pixels, angle, Qt::NoButton, Qt::NoModifier, phase, false);
}

class QtScrollMonitoringTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // An open menu takes every wheel event, so one left open elsewhere would swallow ours.
        while (QWidget* popup = QApplication::activePopupWidget()) {
            popup->close();
        }
        m_watch = m_monitoring.addLocalMonitor(
            [this](const kit::keys::ScrollEvent& event) { m_events.push_back(event); });
    }

    void send(QObject* to, QWheelEvent event) { QCoreApplication::sendEvent(to, &event); }

    QtScrollMonitoring m_monitoring;
    std::unique_ptr<kit::keys::Subscription> m_watch;
    std::vector<kit::keys::ScrollEvent> m_events;
};

TEST_F(QtScrollMonitoringTest, AWheelOrTouchpadOverATrayIconNamesTheIcon)
{
    QSystemTrayIcon icon;
    send(&icon, wheelEvent({}, {0, -120}));
    send(&icon, wheelEvent({12, -30}, {12, -30}, Qt::ScrollBegin));
    send(&icon, wheelEvent({0, -8}, {0, -8}, Qt::ScrollMomentum));
    ASSERT_EQ(m_events.size(), 3U);
    EXPECT_EQ(m_events[0].window, QtScrollMonitoring::windowRefOf(&icon));
    EXPECT_FALSE(m_events[0].input.precise);
    EXPECT_DOUBLE_EQ(m_events[0].input.deltaY, -1);
    EXPECT_DOUBLE_EQ(m_events[0].pointer.x, 105);
    // A touchpad reports points and its phase.
    EXPECT_TRUE(m_events[1].input.precise);
    EXPECT_TRUE(m_events[1].input.began);
    EXPECT_DOUBLE_EQ(m_events[1].input.deltaX, 12);
    EXPECT_TRUE(m_events[2].input.momentum);

    m_watch.reset();
    send(&icon, wheelEvent({}, {0, -120}));
    EXPECT_EQ(m_events.size(), 3U) << "heard after the monitor went";
}

TEST_F(QtScrollMonitoringTest, AWindowCountsButNotTheChildThatPassesTheEventUp)
{
    // A real event visits the child and then its window: counting both would step twice.
    QWidget window;
    auto* child = new QWidget(&window);
    send(child, wheelEvent({}, {0, 120}));
    EXPECT_TRUE(m_events.empty());
    send(&window, wheelEvent({}, {0, 120}));
    ASSERT_EQ(m_events.size(), 1U);
    EXPECT_EQ(m_events.front().window, QtScrollMonitoring::windowRefOf(&window));
}

// ---- without X ----

TEST(X11HotKeysTest, OffX11OrWithADisplayThatCannotBeOpenedNothingIsGrabbed)
{
    // The tests run Qt on the offscreen platform.
    for (const std::optional<std::string>& display : {std::optional<std::string>(), {":4711"}}) {
        const auto keys =
            display ? std::make_unique<X11HotKeys>(*display) : std::make_unique<X11HotKeys>();
        EXPECT_FALSE(keys->isAvailable()) << display.value_or("Qt's");
        keys->installHandler([](uint32_t, uint32_t) {});
        EXPECT_EQ(keys->registerHotKey(key_code::kG, {Modifier::Control}, 1, 1), nullptr);
    }
}

// ---- on a real X server ----

// Qt's own connection, as the app grabs keys; runs when the tests are started on the xcb platform,
// as CTest's desktop.x11_keys_qt does under Xvfb (which sets VANTOREL_REQUIRE_X11, so a skip there
// fails). A second client on the same display holds grabs and asks who holds them.
class X11HotKeysQtDisplayTest : public ::testing::Test
{
protected:
    struct Press
    {
        uint32_t signature;
        uint32_t id;
        bool operator==(const Press&) const = default;
    };

    void SetUp() override
    {
        m_keys = std::make_unique<X11HotKeys>();
        if (!m_keys->isAvailable()) {
            EXPECT_EQ(qgetenv("VANTOREL_REQUIRE_X11"), QByteArray()) << "Qt is not on X11";
            GTEST_SKIP() << "Qt does not run on X11 here";
        }
        m_keys->installHandler([this](uint32_t signature, uint32_t id) {
            m_presses.push_back({signature, id});
        });
        m_other = xcb_connect(nullptr, nullptr);
        ASSERT_EQ(xcb_connection_has_error(m_other), 0);
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_other)).data->root;
    }

    void TearDown() override
    {
        if (m_other != nullptr) {
            xcb_disconnect(m_other);
        }
    }

    // Presses keys on the server as a person would, such as "ctrl+alt+g".
    static void press(const QStringList& args) { ASSERT_EQ(QProcess::execute("xdotool", args), 0); }

    bool pressedUntil(size_t count)
    {
        return spinUntil([&] { return m_presses.size() >= count; });
    }

    // Whether the other client may grab the combination now, keeping the grab when it may.
    bool otherGrabs(uint32_t keysym, uint16_t mask)
    {
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(m_other);
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, keysym);
        const xcb_keycode_t code = codes != nullptr ? codes[0] : 0;
        std::free(codes);
        xcb_key_symbols_free(symbols);
        xcb_generic_error_t* error = xcb_request_check(
            m_other,
            xcb_grab_key_checked(
                m_other, 1, m_root, mask, code, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        std::free(error);
        return code != 0 && error == nullptr;
    }

    static constexpr uint32_t kSignature = kit::keys::kHotKeySignature;
    std::unique_ptr<X11HotKeys> m_keys;
    std::vector<Press> m_presses;
    xcb_connection_t* m_other = nullptr;
    xcb_window_t m_root = 0;
};

TEST_F(X11HotKeysQtDisplayTest, APressReachesTheHandlerWithItsIdButOtherModifiersDoNot)
{
    auto menu = m_keys->registerHotKey(
        key_code::kG, {Modifier::Control, Modifier::Option}, kSignature, 100);
    auto second =
        m_keys->registerHotKey(kit::keys::digitKeyCode(2), {Modifier::Command}, kSignature, 202);
    ASSERT_NE(menu, nullptr);
    ASSERT_NE(second, nullptr);

    press({"key", "g", "ctrl+g", "ctrl+shift+alt+g", "alt+g", "2"});
    press({"key", "super+2"});
    ASSERT_TRUE(pressedUntil(1));
    press({"key", "ctrl+alt+g"});
    ASSERT_TRUE(pressedUntil(2));
    spinFor(100ms);
    EXPECT_EQ(m_presses, (std::vector<Press>{{kSignature, 202}, {kSignature, 100}}));
}

TEST_F(X11HotKeysQtDisplayTest, LocksDoNotDisableTheKeyAndHoldingItDownIsOnePress)
{
    auto key = m_keys->registerHotKey(122, {}, kSignature, 7); // F1
    ASSERT_NE(key, nullptr);
    press({"key", "Caps_Lock", "F1", "Caps_Lock", "Num_Lock", "F1", "Num_Lock"});
    ASSERT_TRUE(pressedUntil(2));
    // Held past the server's auto-repeat delay (660 ms by default), the key repeats.
    press({"keydown", "F1", "sleep", "1", "keyup", "F1"});
    press({"key", "F1"});
    ASSERT_TRUE(pressedUntil(4));
    spinFor(100ms);
    EXPECT_EQ(m_presses.size(), 4U);
}

TEST_F(X11HotKeysQtDisplayTest, AKeyHeldElsewhereIsRefusedAndOursIsReleasedWithItsHandle)
{
    EXPECT_EQ(m_keys->registerHotKey(63, {Modifier::Control}, kSignature, 100), nullptr); // fn
    ASSERT_TRUE(otherGrabs(XK_g, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1));
    EXPECT_EQ(m_keys->registerHotKey(
                  key_code::kG, {Modifier::Control, Modifier::Option}, kSignature, 100),
              nullptr);
    // The refusal leaves no half of the grab behind.
    EXPECT_TRUE(otherGrabs(XK_g, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_LOCK));
    // Another combination with the same key is free, until its handle goes.
    auto key = m_keys->registerHotKey(key_code::kG, {Modifier::Control}, kSignature, 101);
    ASSERT_NE(key, nullptr);
    EXPECT_FALSE(otherGrabs(XK_g, XCB_MOD_MASK_CONTROL));
    key.reset();
    EXPECT_TRUE(otherGrabs(XK_g, XCB_MOD_MASK_CONTROL));

    // A handle outliving its service is harmless.
    auto late = m_keys->registerHotKey(key_code::kA, {Modifier::Control}, kSignature, 102);
    ASSERT_NE(late, nullptr);
    m_keys.reset();
    late.reset();
    EXPECT_TRUE(otherGrabs(XK_a, XCB_MOD_MASK_CONTROL));
}

TEST_F(X11HotKeysQtDisplayTest, TheHeldModifiersAreRead)
{
    X11ModifierSource source;
    press({"keydown", "ctrl+super"});
    const ModifierSet held = source.held();
    press({"keyup", "ctrl+super"});
    EXPECT_EQ(held, (ModifierSet{Modifier::Control, Modifier::Command}));
    EXPECT_TRUE(source.held().empty());
}

} // namespace
} // namespace desktop
