// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/ids.h"
#include "kit/settings/key_value_store.h"

#include <chrono>
#include <optional>

namespace kit::web {

// The person's choices about in-app pages, kept in the app's settings store beside the library
// (whose files do not name them): how soon hidden pages are discarded, whether sites may send
// notifications, and per shortcut whether its page's count shows on its icon and whether it may
// notify. Main thread; the store must outlive this object.
class PageOptions
{
public:
    static constexpr const char* kDiscardKey = "pageDiscardMinutes";
    static constexpr const char* kNotificationsKey = "pageNotifications";

    explicit PageOptions(settings::KeyValueStore& store);

    // Nothing: never discarded.
    std::optional<std::chrono::minutes> discardAfter() const;
    void setDiscardAfter(std::optional<std::chrono::minutes> after);
    bool notificationsAllowed() const;
    void setNotificationsAllowed(bool allowed);

    bool showsCount(const library::ShortcutID& shortcut) const;
    void setShowsCount(const library::ShortcutID& shortcut, bool shows);
    bool notifies(const library::ShortcutID& shortcut) const;
    void setNotifies(const library::ShortcutID& shortcut, bool notifies);

    // Where the choices are kept, for whoever follows changes made elsewhere.
    settings::KeyValueStore& store() const { return m_store; }

    static std::string showsCountKey(const library::ShortcutID& shortcut);
    static std::string notifiesKey(const library::ShortcutID& shortcut);

private:
    bool flag(const std::string& key) const;
    void setFlag(const std::string& key, bool on);

    settings::KeyValueStore& m_store;
};

} // namespace kit::web
