// SPDX-License-Identifier: MIT
#include "desktop/keys/portal_keys.h"

#include "desktop/keys/x11_keys.h"
#include "kit/keys/hot_key_combo.h"
#include "kit/support/log.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPointer>
#include <QRandomGenerator>
#include <QTimer>

#include <X11/XF86keysym.h>
#include <X11/keysym.h>

#include <array>
#include <cctype>
#include <set>
#include <string_view>
#include <utility>

namespace desktop {

// One entry of the portal's a(sa{sv}) shortcut lists.
struct PortalShortcut
{
    QString id;
    QVariantMap options;
};

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.options;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.options;
    argument.endStructure();
    return argument;
}

} // namespace desktop

Q_DECLARE_METATYPE(desktop::PortalShortcut)

namespace desktop {

namespace {

constexpr kit::support::Logger kLog("keys");

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString kRequestInterface = QStringLiteral("org.freedesktop.portal.Request");
// Long enough for the bus to start the portal on first use.
constexpr int kProbeTimeoutMs = 2000;

using kit::keys::Modifier;
using kit::keys::ModifierSet;

// Keysym names as xkbcommon spells them, for the keys that are not a letter, digit, function key
// or keypad digit.
constexpr std::array<std::pair<uint32_t, std::string_view>, 37> kKeysymNames{{
    {XK_minus, "minus"},
    {XK_equal, "equal"},
    {XK_bracketleft, "bracketleft"},
    {XK_bracketright, "bracketright"},
    {XK_backslash, "backslash"},
    {XK_semicolon, "semicolon"},
    {XK_apostrophe, "apostrophe"},
    {XK_comma, "comma"},
    {XK_period, "period"},
    {XK_slash, "slash"},
    {XK_grave, "grave"},
    {XK_Return, "Return"},
    {XK_Tab, "Tab"},
    {XK_space, "space"},
    {XK_BackSpace, "BackSpace"},
    {XK_Escape, "Escape"},
    {XK_Delete, "Delete"},
    {XK_Home, "Home"},
    {XK_End, "End"},
    {XK_Page_Up, "Page_Up"},
    {XK_Page_Down, "Page_Down"},
    {XK_Help, "Help"},
    {XK_Clear, "Clear"},
    {XK_KP_Enter, "KP_Enter"},
    {XK_Left, "Left"},
    {XK_Right, "Right"},
    {XK_Down, "Down"},
    {XK_Up, "Up"},
    {XK_KP_Decimal, "KP_Decimal"},
    {XK_KP_Multiply, "KP_Multiply"},
    {XK_KP_Add, "KP_Add"},
    {XK_KP_Divide, "KP_Divide"},
    {XK_KP_Subtract, "KP_Subtract"},
    {XK_KP_Equal, "KP_Equal"},
    {XF86XK_AudioRaiseVolume, "XF86AudioRaiseVolume"},
    {XF86XK_AudioLowerVolume, "XF86AudioLowerVolume"},
    {XF86XK_AudioMute, "XF86AudioMute"},
}};

std::optional<std::string> keysymName(uint32_t keysym)
{
    if ((keysym >= XK_0 && keysym <= XK_9) || (keysym >= XK_a && keysym <= XK_z)) {
        return std::string(1, static_cast<char>(keysym));
    }
    if (keysym >= XK_F1 && keysym <= XK_F35) {
        return "F" + std::to_string(keysym - XK_F1 + 1);
    }
    if (keysym >= XK_KP_0 && keysym <= XK_KP_9) {
        return "KP_" + std::to_string(keysym - XK_KP_0);
    }
    for (const auto& [value, name] : kKeysymNames) {
        if (value == keysym) {
            return std::string(name);
        }
    }
    return std::nullopt;
}

std::string display(uint16_t keyCode, ModifierSet modifiers)
{
    return kit::keys::HotKeyCombo(keyCode, modifiers.raw()).display();
}

// The ids the portal reports as bound; none when the answer says nothing about them.
std::optional<std::set<QString>> boundIds(const QVariantMap& results)
{
    const auto found = results.find(QStringLiteral("shortcuts"));
    if (found == results.end()) {
        return std::nullopt;
    }
    std::set<QString> ids;
    if (found->metaType() == QMetaType::fromType<QDBusArgument>()) {
        const auto argument = found->value<QDBusArgument>();
        argument.beginArray();
        while (!argument.atEnd()) {
            PortalShortcut shortcut;
            argument >> shortcut;
            ids.insert(shortcut.id);
        }
        argument.endArray();
    } else {
        for (const PortalShortcut& shortcut : found->value<QList<PortalShortcut>>()) {
            ids.insert(shortcut.id);
        }
    }
    return ids;
}

class PortalKeyHandle final : public kit::keys::Subscription
{
public:
    PortalKeyHandle(PortalHotKeys* service, uint64_t token)
        : m_service(service)
        , m_token(token)
    {}
    ~PortalKeyHandle() override
    {
        if (m_service) {
            m_service->release(m_token);
        }
    }
    PortalKeyHandle(const PortalKeyHandle&) = delete;
    PortalKeyHandle& operator=(const PortalKeyHandle&) = delete;

private:
    QPointer<PortalHotKeys> m_service;
    uint64_t m_token;
};

const char* const kSessionSlot = SLOT(sessionAnswered(uint, QVariantMap));
const char* const kBindSlot = SLOT(bindAnswered(uint, QVariantMap));

} // namespace

PortalHotKeys::PortalHotKeys()
    : PortalHotKeys(QDBusConnection::sessionBus())
{}

PortalHotKeys::PortalHotKeys(QDBusConnection bus)
    : m_bus(std::move(bus))
    , m_available(m_bus.isConnected() && isOffered(m_bus))
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    // QtDBus finds a slot's parameter types by name, which only a registered type has.
    qRegisterMetaType<QDBusObjectPath>();
    if (!m_available) {
        return;
    }
    m_bus.connect(kService,
                  kPath,
                  kInterface,
                  QStringLiteral("Activated"),
                  this,
                  SLOT(activated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    // A host application names itself before its first portal request, so the desktop can keep
    // the person's triggers under that name; older portals lack the registry and say so.
    const QString appId = QGuiApplication::desktopFileName();
    if (!appId.isEmpty()) {
        auto registration = QDBusMessage::createMethodCall(
            kService, kPath, QStringLiteral("org.freedesktop.host.portal.Registry"), "Register");
        registration << appId << QVariantMap();
        m_bus.send(registration);
    }
    createSession();
}

PortalHotKeys::~PortalHotKeys()
{
    if (!m_session.isEmpty()) {
        // Closing the session drops every binding at once.
        m_bus.send(QDBusMessage::createMethodCall(
            kService, m_session, QStringLiteral("org.freedesktop.portal.Session"), "Close"));
    }
    if (!m_creating.isEmpty()) {
        stopListening(m_creating, kSessionSlot);
    }
    if (!m_binding.isEmpty()) {
        stopListening(m_binding, kBindSlot);
    }
}

bool PortalHotKeys::isOffered(const QDBusConnection& bus)
{
    auto get = QDBusMessage::createMethodCall(
        kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), "Get");
    get << kInterface << QStringLiteral("version");
    const QDBusMessage reply = bus.call(get, QDBus::Block, kProbeTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return false;
    }
    return reply.arguments().front().value<QDBusVariant>().variant().toUInt() >= 1;
}

bool PortalHotKeys::isSettled() const
{
    if (!m_available || m_sessionFailed) {
        return true;
    }
    return !m_session.isEmpty() && m_binding.isEmpty() && !m_bindScheduled && !m_dirty;
}

void PortalHotKeys::installHandler(std::function<void(uint32_t, uint32_t)> onPress)
{
    m_onPress = std::move(onPress);
}

std::unique_ptr<kit::keys::Subscription> PortalHotKeys::registerHotKey(uint16_t keyCode,
                                                                       ModifierSet modifiers,
                                                                       uint32_t signature,
                                                                       uint32_t id)
{
    if (!m_available || m_sessionFailed) {
        return nullptr;
    }
    auto trigger = triggerFor(keyCode, modifiers);
    if (!trigger) {
        return nullptr;
    }
    const uint64_t token = m_nextKey++;
    m_keys.emplace(token,
                   Key{keyCode, modifiers, signature, id, shortcutId(signature, id), *trigger});
    scheduleBind();
    return std::make_unique<PortalKeyHandle>(this, token);
}

void PortalHotKeys::release(uint64_t token)
{
    if (m_keys.erase(token) != 0) {
        scheduleBind();
    }
}

std::optional<std::string> PortalHotKeys::triggerFor(uint16_t keyCode, ModifierSet modifiers)
{
    const auto keysym = X11HotKeys::keysymFor(keyCode);
    const auto name = keysym ? keysymName(*keysym) : std::nullopt;
    if (!name) {
        return std::nullopt;
    }
    std::string trigger;
    for (const auto& [modifier, word] : {std::pair{Modifier::Control, "CTRL+"},
                                         std::pair{Modifier::Option, "ALT+"},
                                         std::pair{Modifier::Shift, "SHIFT+"},
                                         std::pair{Modifier::Command, "LOGO+"}}) {
        if (modifiers.contains(modifier)) {
            trigger += word;
        }
    }
    return trigger + *name;
}

std::string PortalHotKeys::shortcutId(uint32_t signature, uint32_t id)
{
    std::string prefix;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto byte = static_cast<unsigned char>((signature >> shift) & 0xff);
        if (!std::isalnum(byte)) {
            prefix = QString::number(signature, 16).toStdString();
            break;
        }
        prefix += static_cast<char>(std::tolower(byte));
    }
    return prefix + "-" + std::to_string(id);
}

std::string PortalHotKeys::describe(uint32_t signature, uint32_t id)
{
    namespace ids = kit::keys::hot_key_id;
    if (signature == kit::keys::kHotKeySignature) {
        if (id == ids::kMenu) {
            return "Open a menu of what is in the menu bar";
        }
        if (id == ids::kActiveBar) {
            return "Open the showing bar as a menu";
        }
        if (id == ids::kPreviousBar) {
            return "Switch to the bar before";
        }
        if (id == ids::kNextBar) {
            return "Switch to the bar after";
        }
        if (id > ids::kDigitBase && id <= ids::kDigitBase + 18) {
            return "Open icon " + std::to_string(id - ids::kDigitBase) + " in the menu bar";
        }
    }
    return "Hot key " + shortcutId(signature, id);
}

void PortalHotKeys::createSession()
{
    QVariantMap options;
    options.insert(QStringLiteral("session_handle_token"), nextToken());
    m_creating = request(Answer::Session, QStringLiteral("CreateSession"), {}, options);
}

void PortalHotKeys::scheduleBind()
{
    // Registration replaces the whole set key by key in one turn of the loop; binding after it
    // sends the portal that set once.
    if (m_bindScheduled) {
        return;
    }
    m_bindScheduled = true;
    QTimer::singleShot(0, this, [this] { bind(); });
}

void PortalHotKeys::bind()
{
    m_bindScheduled = false;
    if (m_session.isEmpty()) {
        // The session's answer binds whatever is registered by then.
        return;
    }
    if (!m_binding.isEmpty()) {
        m_dirty = true;
        return;
    }
    m_dirty = false;
    std::map<std::string, const Key*> wanted;
    for (const auto& [token, key] : m_keys) {
        wanted.emplace(key.shortcut, &key);
    }
    std::map<std::string, std::string> set;
    for (const auto& [shortcut, key] : wanted) {
        set.emplace(shortcut, key->trigger);
    }
    // Re-registering the same keys (the showing bar changed, its icon count did not) must not
    // have the desktop ask the person about them again.
    if (m_sent == set) {
        return;
    }
    m_sent = set;
    QList<PortalShortcut> shortcuts;
    for (const auto& [shortcut, key] : wanted) {
        QVariantMap options;
        options.insert(QStringLiteral("description"),
                       QString::fromStdString(describe(key->signature, key->id)));
        options.insert(QStringLiteral("preferred_trigger"), QString::fromStdString(key->trigger));
        shortcuts.append({QString::fromStdString(shortcut), options});
    }
    m_binding = request(Answer::Bind,
                        QStringLiteral("BindShortcuts"),
                        {QVariant::fromValue(QDBusObjectPath(m_session)),
                         QVariant::fromValue(shortcuts),
                         QString()},
                        {});
}

QString PortalHotKeys::request(Answer answer,
                               const QString& method,
                               QVariantList arguments,
                               QVariantMap options)
{
    const char* slot = answer == Answer::Session ? kSessionSlot : kBindSlot;
    const QString token = nextToken();
    options.insert(QStringLiteral("handle_token"), token);
    arguments.append(options);
    // Listening before asking: the answer may come before the call's reply.
    QString path = requestPath(token);
    listen(path, slot);

    auto call = QDBusMessage::createMethodCall(kService, kPath, kInterface, method);
    call.setArguments(arguments);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, path, slot, answer] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError()) {
            stopListening(path, slot);
            kLog.error("The desktop portal failed a global key request: "
                       + reply.error().message().toStdString());
            answered(answer, path, 2, {});
            return;
        }
        // Portals older than the predictable request paths answer elsewhere.
        const QString actual = reply.value().path();
        if (actual != path) {
            stopListening(path, slot);
            listen(actual, slot);
            QString& pending = answer == Answer::Session ? m_creating : m_binding;
            if (pending == path) {
                pending = actual;
            }
        }
    });
    return path;
}

void PortalHotKeys::answered(Answer answer,
                             const QString& path,
                             uint response,
                             const QVariantMap& results)
{
    if (answer == Answer::Session && path == m_creating) {
        sessionAnswered(response, results);
    } else if (answer == Answer::Bind && path == m_binding) {
        bindAnswered(response, results);
    }
}

void PortalHotKeys::sessionAnswered(uint response, const QVariantMap& results)
{
    if (m_creating.isEmpty()) {
        return;
    }
    stopListening(m_creating, kSessionSlot);
    m_creating.clear();
    const QVariant handle = results.value(QStringLiteral("session_handle"));
    // Documented as an object path, sent as a string by some portals.
    m_session = handle.metaType() == QMetaType::fromType<QDBusObjectPath>()
                    ? handle.value<QDBusObjectPath>().path()
                    : handle.toString();
    if (response != 0 || m_session.isEmpty()) {
        m_session.clear();
        m_sessionFailed = true;
        m_refused.clear();
        for (const auto& [token, key] : m_keys) {
            m_refused.push_back(display(key.keyCode, key.modifiers));
        }
        kLog.error("The desktop portal did not open a session for global keys; the icons still "
                   "work.");
        return;
    }
    // A binding already scheduled sends the set; otherwise any set registered meanwhile goes now.
    if (!m_keys.empty() && !m_bindScheduled) {
        bind();
    }
}

void PortalHotKeys::bindAnswered(uint response, const QVariantMap& results)
{
    if (m_binding.isEmpty()) {
        return;
    }
    stopListening(m_binding, kBindSlot);
    m_binding.clear();
    if (m_dirty) {
        if (response != 0) {
            m_sent.reset();
        }
        // A newer set is waiting; its answer is the one to report.
        bind();
        return;
    }
    const auto bound = response == 0 ? boundIds(results) : std::set<QString>{};
    m_refused.clear();
    std::set<std::string> reported;
    for (const auto& [token, key] : m_keys) {
        const bool sent = m_sent && m_sent->count(key.shortcut) != 0;
        if (!sent || (bound && bound->count(QString::fromStdString(key.shortcut)) != 0)
            || !reported.insert(key.shortcut).second) {
            continue;
        }
        const std::string text = display(key.keyCode, key.modifiers);
        m_refused.push_back(text);
        kLog.info("The desktop did not bind " + text + " to “" + describe(key.signature, key.id)
                  + "”; the other keys still work.");
    }
    if (response != 0) {
        // The next change asks again, even for the same set.
        m_sent.reset();
    }
}

void PortalHotKeys::activated(const QDBusObjectPath& session,
                              const QString& shortcut,
                              qulonglong,
                              const QVariantMap&)
{
    if (m_session.isEmpty() || session.path() != m_session || !m_onPress) {
        return;
    }
    const std::string id = shortcut.toStdString();
    for (const auto& [token, key] : m_keys) {
        if (key.shortcut == id) {
            // Copied first: the handler may replace itself or release this key.
            const auto handler = m_onPress;
            handler(key.signature, key.id);
            return;
        }
    }
}

QString PortalHotKeys::requestPath(const QString& token) const
{
    QString sender = m_bus.baseService();
    if (sender.startsWith(':')) {
        sender.remove(0, 1);
    }
    sender.replace('.', '_');
    return kPath + QStringLiteral("/request/") + sender + '/' + token;
}

QString PortalHotKeys::nextToken()
{
    // Unique among this connection's requests, and unlikely to meet another client's.
    return QStringLiteral("vantorel_%1_%2")
        .arg(++m_tokens)
        .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'));
}

void PortalHotKeys::listen(const QString& path, const char* slot)
{
    m_bus.connect(kService, path, kRequestInterface, QStringLiteral("Response"), this, slot);
}

void PortalHotKeys::stopListening(const QString& path, const char* slot)
{
    m_bus.disconnect(kService, path, kRequestInterface, QStringLiteral("Response"), this, slot);
}

} // namespace desktop
