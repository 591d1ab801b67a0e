// SPDX-License-Identifier: MIT
#include "desktop/keys/x11_keys.h"

#include "kit/keys/hot_key_combo.h"
#include "kit/support/log.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QSocketNotifier>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QWheelEvent>
#include <QWidget>

#include <X11/XF86keysym.h>
#include <X11/keysym.h>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>
#include <utility>
#include <vector>

namespace desktop {

namespace {

constexpr kit::support::Logger kLog("keys");

using kit::keys::Modifier;
using kit::keys::ModifierSet;

// Stored key code to X keysym, for every key other than the function keys. Letters are the
// unshifted keysyms, as the keyboard map lists them first.
constexpr std::array<std::pair<uint16_t, uint32_t>, 83> kKeysyms{{
    {0, XK_a},
    {11, XK_b},
    {8, XK_c},
    {2, XK_d},
    {14, XK_e},
    {3, XK_f},
    {5, XK_g},
    {4, XK_h},
    {34, XK_i},
    {38, XK_j},
    {40, XK_k},
    {37, XK_l},
    {46, XK_m},
    {45, XK_n},
    {31, XK_o},
    {35, XK_p},
    {12, XK_q},
    {15, XK_r},
    {1, XK_s},
    {17, XK_t},
    {32, XK_u},
    {9, XK_v},
    {13, XK_w},
    {7, XK_x},
    {16, XK_y},
    {6, XK_z},
    {29, XK_0},
    {18, XK_1},
    {19, XK_2},
    {20, XK_3},
    {21, XK_4},
    {23, XK_5},
    {22, XK_6},
    {26, XK_7},
    {28, XK_8},
    {25, XK_9},
    {27, XK_minus},
    {24, XK_equal},
    {33, XK_bracketleft},
    {30, XK_bracketright},
    {42, XK_backslash},
    {41, XK_semicolon},
    {39, XK_apostrophe},
    {43, XK_comma},
    {47, XK_period},
    {44, XK_slash},
    {50, XK_grave},
    {36, XK_Return},
    {48, XK_Tab},
    {49, XK_space},
    {51, XK_BackSpace},
    {53, XK_Escape},
    {117, XK_Delete},
    {115, XK_Home},
    {119, XK_End},
    {116, XK_Page_Up},
    {121, XK_Page_Down},
    {114, XK_Help},
    {71, XK_Clear},
    {76, XK_KP_Enter},
    {123, XK_Left},
    {124, XK_Right},
    {125, XK_Down},
    {126, XK_Up},
    {65, XK_KP_Decimal},
    {67, XK_KP_Multiply},
    {69, XK_KP_Add},
    {75, XK_KP_Divide},
    {78, XK_KP_Subtract},
    {81, XK_KP_Equal},
    {82, XK_KP_0},
    {83, XK_KP_1},
    {84, XK_KP_2},
    {85, XK_KP_3},
    {86, XK_KP_4},
    {87, XK_KP_5},
    {88, XK_KP_6},
    {89, XK_KP_7},
    {91, XK_KP_8},
    {92, XK_KP_9},
    {72, XF86XK_AudioRaiseVolume},
    {73, XF86XK_AudioLowerVolume},
    {74, XF86XK_AudioMute},
}};

// The lock modifiers a grab must ignore: every key is grabbed once per combination of them.
struct LockMasks
{
    uint16_t numLock = XCB_MOD_MASK_2;
    uint16_t capsLock = XCB_MOD_MASK_LOCK;

    std::array<uint16_t, 4> variants() const
    {
        return {0, numLock, capsLock, static_cast<uint16_t>(numLock | capsLock)};
    }
};

// Which X modifier bits stand for Alt and Super on this keyboard, and which is NumLock.
struct ModifierMasks
{
    uint16_t alt = XCB_MOD_MASK_1;
    uint16_t super = XCB_MOD_MASK_4;
    LockMasks locks;

    uint16_t maskOf(ModifierSet set) const
    {
        uint16_t mask = 0;
        mask |= set.contains(Modifier::Shift) ? uint16_t{XCB_MOD_MASK_SHIFT} : uint16_t{0};
        mask |= set.contains(Modifier::Control) ? uint16_t{XCB_MOD_MASK_CONTROL} : uint16_t{0};
        mask |= set.contains(Modifier::Option) ? alt : uint16_t{0};
        mask |= set.contains(Modifier::Command) ? super : uint16_t{0};
        return mask;
    }

    ModifierSet setOf(uint16_t mask) const
    {
        ModifierSet set;
        set = (mask & XCB_MOD_MASK_SHIFT) != 0 ? set.with(Modifier::Shift) : set;
        set = (mask & XCB_MOD_MASK_CONTROL) != 0 ? set.with(Modifier::Control) : set;
        set = (mask & alt) != 0 ? set.with(Modifier::Option) : set;
        set = (mask & super) != 0 ? set.with(Modifier::Command) : set;
        return set;
    }
};

struct KeySymbols
{
    void operator()(xcb_key_symbols_t* symbols) const { xcb_key_symbols_free(symbols); }
};
using KeySymbolsPtr = std::unique_ptr<xcb_key_symbols_t, KeySymbols>;

// Every key code producing the keysym, in any column of the keyboard map.
std::vector<xcb_keycode_t> keycodesOf(xcb_key_symbols_t* symbols, uint32_t keysym)
{
    std::vector<xcb_keycode_t> codes;
    xcb_keycode_t* found = xcb_key_symbols_get_keycode(symbols, keysym);
    for (xcb_keycode_t* code = found; code != nullptr && *code != XCB_NO_SYMBOL; ++code) {
        codes.push_back(*code);
    }
    std::free(found);
    return codes;
}

// Reads which modifier bits Alt, Super and NumLock sit on; the usual bits when a key is absent.
ModifierMasks readModifierMasks(xcb_connection_t* connection, xcb_key_symbols_t* symbols)
{
    ModifierMasks masks;
    xcb_get_modifier_mapping_reply_t* reply =
        xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr);
    if (reply == nullptr) {
        return masks;
    }
    const xcb_keycode_t* map = xcb_get_modifier_mapping_keycodes(reply);
    const int perModifier = reply->keycodes_per_modifier;
    auto bitHolding = [&](uint32_t keysym) -> std::optional<uint16_t> {
        const auto codes = keycodesOf(symbols, keysym);
        for (int modifier = 0; modifier < 8; ++modifier) {
            for (int i = 0; i < perModifier; ++i) {
                const xcb_keycode_t code = map[modifier * perModifier + i];
                if (code != 0 && std::find(codes.begin(), codes.end(), code) != codes.end()) {
                    return static_cast<uint16_t>(1U << modifier);
                }
            }
        }
        return std::nullopt;
    };
    masks.alt = bitHolding(XK_Alt_L).value_or(masks.alt);
    masks.super = bitHolding(XK_Super_L).value_or(masks.super);
    masks.locks.numLock = bitHolding(XK_Num_Lock).value_or(masks.locks.numLock);
    std::free(reply);
    return masks;
}

xcb_connection_t* qtX11Connection()
{
    // The offscreen platform may hold an X connection of its own for GL, but reads no events.
    if (qGuiApp == nullptr || QGuiApplication::platformName() != "xcb") {
        return nullptr;
    }
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 != nullptr ? x11->connection() : nullptr;
}

xcb_window_t rootOf(xcb_connection_t* connection)
{
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    return screen != nullptr ? screen->root : XCB_NONE;
}

} // namespace

std::optional<uint32_t> X11HotKeys::keysymFor(uint16_t keyCode)
{
    if (auto number = kit::keys::HotKeyCombo::functionNumber(keyCode)) {
        return static_cast<uint32_t>(XK_F1 + *number - 1);
    }
    for (const auto& [code, keysym] : kKeysyms) {
        if (code == keyCode) {
            return keysym;
        }
    }
    return std::nullopt;
}

// The connection, the grabs on it and the press handler. Shared with the handles, which outlive
// it harmlessly.
struct X11HotKeys::Impl final : public QAbstractNativeEventFilter
{
    struct Grab
    {
        uint64_t token = 0;
        std::vector<xcb_keycode_t> codes;
        uint16_t mask = 0;
        uint32_t signature = 0;
        uint32_t id = 0;
    };

    xcb_connection_t* connection = nullptr;
    bool ownsConnection = false;
    xcb_window_t root = XCB_NONE;
    KeySymbolsPtr symbols;
    ModifierMasks masks;
    std::unique_ptr<QSocketNotifier> notifier;
    std::vector<Grab> grabs;
    uint64_t nextToken = 1;
    std::function<void(uint32_t, uint32_t)> onPress;
    // Keys held now, so auto-repeat presses are not taken for new ones.
    std::set<xcb_keycode_t> down;
    // Without detectable auto-repeat each repeat is a release and a press at the same time.
    std::optional<std::pair<xcb_keycode_t, xcb_timestamp_t>> lastRelease;

    ~Impl() override
    {
        if (connection == nullptr) {
            return;
        }
        if (!ownsConnection) {
            QCoreApplication* app = QCoreApplication::instance();
            if (app != nullptr) {
                app->removeNativeEventFilter(this);
            }
            for (const Grab& grab : grabs) {
                ungrab(grab);
            }
            xcb_flush(connection);
        }
        symbols.reset();
        notifier.reset();
        if (ownsConnection) {
            // Closing the connection releases its grabs.
            xcb_disconnect(connection);
        }
    }

    void attach(xcb_connection_t* to, bool owns)
    {
        connection = to;
        ownsConnection = owns;
        root = rootOf(connection);
        symbols.reset(xcb_key_symbols_alloc(connection));
        masks = readModifierMasks(connection, symbols.get());
    }

    void ungrab(const Grab& grab) const
    {
        for (xcb_keycode_t code : grab.codes) {
            for (uint16_t lock : masks.locks.variants()) {
                xcb_ungrab_key(connection, code, root, static_cast<uint16_t>(grab.mask | lock));
            }
        }
    }

    // A round trip: the ungrabs are done before this returns, so another client that grabs the
    // key next finds it free rather than racing them to the server.
    void sync()
    {
        std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
        if (notifier) {
            // Events read off the socket with the reply wake no notifier.
            QTimer::singleShot(0, notifier.get(), [this] { drain(); });
        }
    }

    // Grabs every variant and checks each; any refusal undoes the rest.
    std::optional<uint64_t> grab(uint32_t keysym, uint16_t mask, uint32_t signature, uint32_t id)
    {
        Grab grab{nextToken, keycodesOf(symbols.get(), keysym), mask, signature, id};
        if (grab.codes.empty()) {
            return std::nullopt;
        }
        std::vector<xcb_void_cookie_t> cookies;
        for (xcb_keycode_t code : grab.codes) {
            for (uint16_t lock : masks.locks.variants()) {
                cookies.push_back(xcb_grab_key_checked(connection,
                                                       1,
                                                       root,
                                                       static_cast<uint16_t>(mask | lock),
                                                       code,
                                                       XCB_GRAB_MODE_ASYNC,
                                                       XCB_GRAB_MODE_ASYNC));
            }
        }
        bool refused = false;
        for (xcb_void_cookie_t cookie : cookies) {
            if (xcb_generic_error_t* error = xcb_request_check(connection, cookie)) {
                refused = true;
                std::free(error);
            }
        }
        if (refused) {
            ungrab(grab);
            sync();
            return std::nullopt;
        }
        ++nextToken;
        grabs.push_back(std::move(grab));
        return grabs.back().token;
    }

    void release(uint64_t token)
    {
        auto it = std::find_if(
            grabs.begin(), grabs.end(), [&](const Grab& grab) { return grab.token == token; });
        if (it == grabs.end()) {
            return;
        }
        ungrab(*it);
        sync();
        grabs.erase(it);
    }

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override
    {
        if (type != "xcb_generic_event_t") {
            return false;
        }
        return handle(static_cast<xcb_generic_event_t*>(message));
    }

    // Events already read from the socket wake no notifier, so each wake drains the queue.
    void drain()
    {
        while (xcb_generic_event_t* event = xcb_poll_for_event(connection)) {
            handle(event);
            std::free(event);
        }
    }

    // True for the key events of our grabs, which nothing else in the application should see.
    bool handle(xcb_generic_event_t* event)
    {
        const uint8_t kind = event->response_type & 0x7f;
        if (kind == XCB_MAPPING_NOTIFY) {
            xcb_refresh_keyboard_mapping(symbols.get(),
                                         reinterpret_cast<xcb_mapping_notify_event_t*>(event));
            return false;
        }
        if (kind != XCB_KEY_PRESS && kind != XCB_KEY_RELEASE) {
            return false;
        }
        auto* key = reinterpret_cast<xcb_key_press_event_t*>(event);
        if (key->event != root) {
            return false;
        }
        const auto mask =
            static_cast<uint16_t>(key->state & 0xff & ~masks.locks.numLock & ~masks.locks.capsLock);
        auto it = std::find_if(grabs.begin(), grabs.end(), [&](const Grab& grab) {
            return grab.mask == mask
                   && std::find(grab.codes.begin(), grab.codes.end(), key->detail)
                          != grab.codes.end();
        });
        if (it == grabs.end()) {
            return false;
        }
        if (kind == XCB_KEY_RELEASE) {
            down.erase(key->detail);
            lastRelease = std::pair{key->detail, key->time};
            return true;
        }
        const bool repeat =
            down.count(key->detail) != 0 || lastRelease == std::pair{key->detail, key->time};
        down.insert(key->detail);
        if (!repeat && onPress) {
            // Copied first: the handler may replace itself or end this grab.
            const auto handler = onPress;
            handler(it->signature, it->id);
        }
        return true;
    }
};

namespace {

class GrabHandle final : public kit::keys::Subscription
{
public:
    GrabHandle(std::weak_ptr<X11HotKeys::Impl> impl, uint64_t token)
        : m_impl(std::move(impl))
        , m_token(token)
    {}
    ~GrabHandle() override
    {
        if (auto impl = m_impl.lock()) {
            impl->release(m_token);
        }
    }
    GrabHandle(const GrabHandle&) = delete;
    GrabHandle& operator=(const GrabHandle&) = delete;

private:
    std::weak_ptr<X11HotKeys::Impl> m_impl;
    uint64_t m_token;
};

void logUnavailable()
{
    kLog.info("Global keys are not available on this desktop; the icons still work.");
}

} // namespace

X11HotKeys::X11HotKeys()
    : m_impl(std::make_shared<Impl>())
{
    xcb_connection_t* connection = qtX11Connection();
    if (connection == nullptr) {
        // The caller may still find keys elsewhere (the portal), so it says what is missing.
        return;
    }
    m_impl->attach(connection, false);
    QCoreApplication::instance()->installNativeEventFilter(m_impl.get());
}

X11HotKeys::X11HotKeys(const std::string& display)
    : m_impl(std::make_shared<Impl>())
{
    xcb_connection_t* connection = xcb_connect(display.c_str(), nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        logUnavailable();
        return;
    }
    m_impl->attach(connection, true);
    m_impl->notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(connection),
                                                         QSocketNotifier::Read);
    QObject::connect(m_impl->notifier.get(),
                     &QSocketNotifier::activated,
                     m_impl->notifier.get(),
                     [impl = m_impl.get()] { impl->drain(); });
}

X11HotKeys::~X11HotKeys() = default;

bool X11HotKeys::isAvailable() const
{
    return m_impl->connection != nullptr;
}

void X11HotKeys::installHandler(std::function<void(uint32_t, uint32_t)> onPress)
{
    m_impl->onPress = std::move(onPress);
}

std::unique_ptr<kit::keys::Subscription> X11HotKeys::registerHotKey(
    uint16_t keyCode, kit::keys::ModifierSet modifiers, uint32_t signature, uint32_t id)
{
    const auto keysym = keysymFor(keyCode);
    if (!isAvailable() || !keysym) {
        return nullptr;
    }
    const auto token = m_impl->grab(*keysym, m_impl->masks.maskOf(modifiers), signature, id);
    if (m_impl->ownsConnection) {
        // Checking the grabs may have read events off the socket.
        QTimer::singleShot(0, m_impl->notifier.get(), [impl = m_impl.get()] { impl->drain(); });
    }
    if (!token) {
        return nullptr;
    }
    return std::make_unique<GrabHandle>(m_impl, *token);
}

X11ModifierSource::X11ModifierSource()
{
    xcb_connection_t* connection = qtX11Connection();
    if (connection != nullptr) {
        m_connection = connection;
        m_root = rootOf(connection);
        const KeySymbolsPtr symbols(xcb_key_symbols_alloc(connection));
        const ModifierMasks masks = readModifierMasks(connection, symbols.get());
        m_altMask = masks.alt;
        m_superMask = masks.super;
    }
}

kit::keys::ModifierSet X11ModifierSource::held() const
{
    if (m_connection != nullptr) {
        auto* connection = static_cast<xcb_connection_t*>(m_connection);
        xcb_query_pointer_reply_t* reply =
            xcb_query_pointer_reply(connection, xcb_query_pointer(connection, m_root), nullptr);
        if (reply != nullptr) {
            ModifierMasks masks;
            masks.alt = m_altMask;
            masks.super = m_superMask;
            const ModifierSet held = masks.setOf(reply->mask);
            std::free(reply);
            return held;
        }
    }
    const Qt::KeyboardModifiers qt = QGuiApplication::queryKeyboardModifiers();
    ModifierSet held;
    held = qt.testFlag(Qt::ShiftModifier) ? held.with(Modifier::Shift) : held;
    held = qt.testFlag(Qt::ControlModifier) ? held.with(Modifier::Control) : held;
    held = qt.testFlag(Qt::AltModifier) ? held.with(Modifier::Option) : held;
    held = qt.testFlag(Qt::MetaModifier) ? held.with(Modifier::Command) : held;
    return held;
}

namespace {

// A QTimer that may be stopped from inside its own tick: the timer, and the tick it is running,
// then live on until the tick has returned.
class TimerHandle final : public kit::keys::Subscription
{
public:
    TimerHandle(std::chrono::milliseconds interval, std::function<void()> tick)
        : m_timer(new QTimer)
        , m_state(std::make_shared<State>())
    {
        m_state->tick = std::move(tick);
        m_timer->setInterval(interval);
        QObject::connect(m_timer, &QTimer::timeout, m_timer, [state = m_state] {
            state->inTick = true;
            state->tick();
            state->inTick = false;
        });
        m_timer->start();
    }
    ~TimerHandle() override
    {
        m_timer->stop();
        if (m_state->inTick) {
            m_timer->deleteLater();
        } else {
            delete m_timer;
        }
    }
    TimerHandle(const TimerHandle&) = delete;
    TimerHandle& operator=(const TimerHandle&) = delete;

private:
    struct State
    {
        std::function<void()> tick;
        bool inTick = false;
    };

    QTimer* m_timer;
    std::shared_ptr<State> m_state;
};

// Watches the whole application for wheel events reaching a tray icon or a top-level widget
// until destroyed.
class WheelWatch final : public QObject, public kit::keys::Subscription
{
public:
    explicit WheelWatch(std::function<void(const kit::keys::ScrollEvent&)> handler)
        : m_handler(std::move(handler))
    {
        QCoreApplication::instance()->installEventFilter(this);
    }
    ~WheelWatch() override
    {
        if (QCoreApplication* app = QCoreApplication::instance()) {
            app->removeEventFilter(this);
        }
    }
    WheelWatch(const WheelWatch&) = delete;
    WheelWatch& operator=(const WheelWatch&) = delete;

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Wheel && counts(*watched)) {
            m_handler(scrollEventOf(*static_cast<QWheelEvent*>(event),
                                    QtScrollMonitoring::windowRefOf(watched)));
        }
        return false;
    }

    // One wheel event visits the QWindow, then the widget and its parents; over an XEmbed tray
    // icon, its widget and then the QSystemTrayIcon. Each is counted once: at the top-level widget,
    // or at the icon.
    static bool counts(const QObject& watched)
    {
        if (qobject_cast<const QSystemTrayIcon*>(&watched) != nullptr) {
            return true;
        }
        if (!watched.isWidgetType() || !static_cast<const QWidget&>(watched).isWindow()) {
            return false;
        }
        return qstrcmp(watched.metaObject()->className(), "QSystemTrayIconSys") != 0;
    }

    static kit::keys::ScrollEvent scrollEventOf(const QWheelEvent& wheel,
                                                kit::keys::WindowRef window)
    {
        kit::keys::ScrollEvent out;
        const bool precise = !wheel.pixelDelta().isNull();
        out.input.precise = precise;
        out.input.began = wheel.phase() == Qt::ScrollBegin;
        out.input.momentum = wheel.phase() == Qt::ScrollMomentum;
        // Points for precise devices; otherwise notches, which step one at a time anyway.
        const QPointF delta =
            precise ? QPointF(wheel.pixelDelta()) : QPointF(wheel.angleDelta()) / 120.0;
        out.input.deltaX = delta.x();
        out.input.deltaY = delta.y();
        out.time = std::chrono::steady_clock::now();
        out.window = window;
        out.pointer = {wheel.globalPosition().x(), wheel.globalPosition().y()};
        return out;
    }

private:
    std::function<void(const kit::keys::ScrollEvent&)> m_handler;
};

// Nothing to watch: another application's wheel events never reach us.
class NoWatch final : public kit::keys::Subscription
{};

} // namespace

kit::keys::Instant QtClock::now() const
{
    return std::chrono::steady_clock::now();
}

std::unique_ptr<kit::keys::Subscription> QtClock::repeat(std::chrono::milliseconds interval,
                                                         std::function<void()> tick)
{
    return std::make_unique<TimerHandle>(interval, std::move(tick));
}

std::unique_ptr<kit::keys::Subscription>
QtScrollMonitoring::addLocalMonitor(std::function<void(const kit::keys::ScrollEvent&)> handler)
{
    return std::make_unique<WheelWatch>(std::move(handler));
}

std::unique_ptr<kit::keys::Subscription>
QtScrollMonitoring::addGlobalMonitor(std::function<void(const kit::keys::ScrollEvent&)>)
{
    return std::make_unique<NoWatch>();
}

} // namespace desktop
