// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/bar_hot_keys.h"
#include "kit/keys/modifiers.h"
#include "kit/keys/subscription.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace desktop {

// Global hot keys through the desktop portal's GlobalShortcuts, for desktops (Wayland) where no
// client may grab keys itself. The portal binds a whole set at once, so every change rebinds the
// registered keys as one set, once the session exists; a key the portal leaves out is logged and
// the others still work. Registration answers before the portal does. GUI thread only; handles
// may outlive the service.
class PortalHotKeys final : public QObject, public kit::keys::HotKeyService
{
    Q_OBJECT

public:
    // Talks to the portal on the session bus.
    PortalHotKeys();
    // Talks to whatever owns the portal's name on `bus`.
    explicit PortalHotKeys(QDBusConnection bus);
    ~PortalHotKeys() override;
    PortalHotKeys(const PortalHotKeys&) = delete;
    PortalHotKeys& operator=(const PortalHotKeys&) = delete;

    // Whether the portal offers GlobalShortcuts on `bus`: its version can be read. Blocks for one
    // round trip.
    static bool isOffered(const QDBusConnection& bus);

    // Whether the portal was there when the service began; otherwise nothing is ever bound.
    bool isAvailable() const { return m_available; }
    // True once the session exists and the portal has answered for the latest set of keys.
    bool isSettled() const;
    // The display texts of the keys the portal left out of the latest binding.
    const std::vector<std::string>& refused() const { return m_refused; }

    void installHandler(std::function<void(uint32_t signature, uint32_t id)> onPress) override;
    // Null when the portal is absent or the key has no name in the portal's trigger format. A
    // refusal arrives later and is only logged.
    std::unique_ptr<kit::keys::Subscription> registerHotKey(uint16_t keyCode,
                                                            kit::keys::ModifierSet modifiers,
                                                            uint32_t signature,
                                                            uint32_t id) override;

    // The key in the portal's trigger format, such as "CTRL+ALT+1" or "LOGO+Left"; none for a key
    // code without a keysym.
    static std::optional<std::string> triggerFor(uint16_t keyCode,
                                                 kit::keys::ModifierSet modifiers);
    // The shortcut's stable id, so a trigger the person changes in the desktop's settings sticks
    // across starts: "vntl-201" for signature "VNTL" and id 201.
    static std::string shortcutId(uint32_t signature, uint32_t id);
    // What the desktop shows the person beside the trigger.
    static std::string describe(uint32_t signature, uint32_t id);

    // Ends a key's registration; called by its handle.
    void release(uint64_t token);

private Q_SLOTS:
    void sessionAnswered(uint response, const QVariantMap& results);
    void bindAnswered(uint response, const QVariantMap& results);
    void activated(const QDBusObjectPath& session,
                   const QString& shortcut,
                   qulonglong timestamp,
                   const QVariantMap& options);

private:
    struct Key
    {
        uint16_t keyCode = 0;
        kit::keys::ModifierSet modifiers;
        uint32_t signature = 0;
        uint32_t id = 0;
        std::string shortcut;
        std::string trigger;
    };

    enum class Answer { Session, Bind };

    void createSession();
    void scheduleBind();
    void bind();
    // Sends a request carrying a fresh handle token and listens for its Response at the path the
    // portal will answer on, which it returns.
    QString
    request(Answer answer, const QString& method, QVariantList arguments, QVariantMap options);
    void answered(Answer answer, const QString& path, uint response, const QVariantMap& results);
    QString requestPath(const QString& token) const;
    QString nextToken();
    void listen(const QString& path, const char* slot);
    void stopListening(const QString& path, const char* slot);

    QDBusConnection m_bus;
    bool m_available = false;
    QString m_session;
    // The session request's path while it is unanswered.
    QString m_creating;
    bool m_sessionFailed = false;
    // The request path of the binding in flight; empty when none is.
    QString m_binding;
    // The shortcut ids and triggers of the binding in flight or last answered; none before the
    // first and after a failed one.
    std::optional<std::map<std::string, std::string>> m_sent;
    bool m_bindScheduled = false;
    bool m_dirty = false;
    uint64_t m_nextKey = 1;
    std::map<uint64_t, Key> m_keys;
    std::vector<std::string> m_refused;
    std::function<void(uint32_t, uint32_t)> m_onPress;
    int m_tokens = 0;
};

} // namespace desktop
