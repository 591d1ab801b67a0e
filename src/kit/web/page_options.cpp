// SPDX-License-Identifier: MIT
#include "kit/web/page_options.h"

#include "kit/web/page_sleep.h"

namespace kit::web {

namespace {

// Longer than anyone leaves a page to rest; a bigger number is taken as a mistake.
constexpr std::int64_t kMostMinutes = std::int64_t{7} * 24 * 60;

} // namespace

PageOptions::PageOptions(settings::KeyValueStore& store)
    : m_store(store)
{}

std::optional<std::chrono::minutes> PageOptions::discardAfter() const
{
    const auto value = m_store.value(kDiscardKey);
    const auto* minutes = value ? std::get_if<std::int64_t>(&*value) : nullptr;
    if (!minutes || *minutes < 0 || *minutes > kMostMinutes) {
        return PageSleep::kDiscardAfterDefault;
    }
    // Zero is "never".
    if (*minutes == 0) {
        return std::nullopt;
    }
    return std::chrono::minutes(*minutes);
}

void PageOptions::setDiscardAfter(std::optional<std::chrono::minutes> after)
{
    m_store.setValue(kDiscardKey, static_cast<std::int64_t>(after ? after->count() : 0));
}

bool PageOptions::notificationsAllowed() const
{
    return flag(kNotificationsKey);
}

void PageOptions::setNotificationsAllowed(bool allowed)
{
    setFlag(kNotificationsKey, allowed);
}

bool PageOptions::showsCount(const library::ShortcutID& shortcut) const
{
    return flag(showsCountKey(shortcut));
}

void PageOptions::setShowsCount(const library::ShortcutID& shortcut, bool shows)
{
    setFlag(showsCountKey(shortcut), shows);
}

bool PageOptions::notifies(const library::ShortcutID& shortcut) const
{
    return flag(notifiesKey(shortcut));
}

void PageOptions::setNotifies(const library::ShortcutID& shortcut, bool notifies)
{
    setFlag(notifiesKey(shortcut), notifies);
}

std::string PageOptions::showsCountKey(const library::ShortcutID& shortcut)
{
    return "pageCount." + shortcut.string();
}

std::string PageOptions::notifiesKey(const library::ShortcutID& shortcut)
{
    return "pageNotifications." + shortcut.string();
}

// Every switch is on until turned off, and only "off" is stored.
bool PageOptions::flag(const std::string& key) const
{
    const auto value = m_store.value(key);
    const auto* on = value ? std::get_if<bool>(&*value) : nullptr;
    return !on || *on;
}

void PageOptions::setFlag(const std::string& key, bool on)
{
    if (on) {
        m_store.remove(key);
    } else {
        m_store.setValue(key, false);
    }
}

} // namespace kit::web
