// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>

#include <functional>

namespace desktop::pages {

// The notification service's two signals as functions: Qt's D-Bus connects signals to slots
// only. Kept apart from anything the meta-object compiler cannot read.
class NoticeSignals final : public QObject
{
    Q_OBJECT

public:
    std::function<void(uint id, const QString& action)> invoked;
    std::function<void(uint id, uint reason)> closed;

public Q_SLOTS:
    void actionInvoked(uint id, const QString& action) const
    {
        if (invoked) {
            invoked(id, action);
        }
    }
    void notificationClosed(uint id, uint reason) const
    {
        if (closed) {
            closed(id, reason);
        }
    }
};

} // namespace desktop::pages
