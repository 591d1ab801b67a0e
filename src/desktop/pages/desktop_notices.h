// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/notice_signals.h"
#include "kit/library/ids.h"

#include <QDBusConnection>
#include <QImage>

#include <functional>
#include <memory>
#include <optional>

namespace kit::web {
struct DesktopNotice;
class NoticeRoutes;
} // namespace kit::web

namespace desktop::pages {

// Shows pages' notifications through the desktop's notification service
// (org.freedesktop.Notifications) and says which shortcut a clicked one belongs to. Every call
// is asynchronous, so a slow or missing service never holds the main thread; a missing one is
// logged once. Main thread.
class DesktopNotices
{
public:
    explicit DesktopNotices(QDBusConnection bus = QDBusConnection::sessionBus());
    ~DesktopNotices();
    DesktopNotices(const DesktopNotices&) = delete;
    DesktopNotices& operator=(const DesktopNotices&) = delete;

    // `icon` may be null: the service then shows its own.
    void show(const kit::library::ShortcutID& shortcut,
              const kit::web::DesktopNotice& notice,
              const QImage& icon);

    // Hears the shortcut of each notification the person clicks.
    std::function<void(const kit::library::ShortcutID&)> clicked;

private:
    void actionInvoked(uint id, const QString& action);
    void closed(uint id, uint reason);

    QDBusConnection m_bus;
    // Where the service's signals arrive, and the context of its replies.
    NoticeSignals m_signals;
    std::unique_ptr<kit::web::NoticeRoutes> m_routes;
    // Services without actions close a clicked notification instead; unknown until they say.
    std::optional<bool> m_hasActions;
    bool m_missingLogged = false;
};

} // namespace desktop::pages
