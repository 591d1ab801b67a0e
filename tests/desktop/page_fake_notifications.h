// SPDX-License-Identifier: MIT
#pragma once

#include "fake_service.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QSize>
#include <QStringList>

#include <vector>

namespace desktop::pages {

inline const QString kNoticesPath = QStringLiteral("/org/freedesktop/Notifications");
inline const QString kNoticesInterface = QStringLiteral("org.freedesktop.Notifications");

// The desktop's notification service as far as showing and clicking go: records each Notify,
// answers with a fresh id, and emits ActionInvoked or NotificationClosed on demand. Answers on
// the test's thread, as every call made to it is asynchronous.
class FakeNotifications final : public FakeService
{
public:
    struct Shown
    {
        QString appName;
        QString summary;
        QString body;
        QStringList actions;
        QSize image;
    };

    FakeNotifications(const QString& address, bool hasActions)
        : FakeService(address, kNoticesInterface, kNoticesPath)
        , m_hasActions(hasActions)
    {
        publish();
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.interface() != kNoticesInterface) {
            return false;
        }
        if (message.member() == QStringLiteral("GetCapabilities")) {
            QStringList capabilities{QStringLiteral("body")};
            if (m_hasActions) {
                capabilities << QStringLiteral("actions");
            }
            connection.send(message.createReply(capabilities));
            return true;
        }
        if (message.member() != QStringLiteral("Notify")) {
            return false;
        }
        const auto arguments = message.arguments();
        Shown shown{arguments.value(0).toString(),
                    arguments.value(3).toString(),
                    arguments.value(4).toString(),
                    arguments.value(5).toStringList(),
                    {}};
        const auto hints = qdbus_cast<QVariantMap>(arguments.value(6));
        if (hints.contains(QStringLiteral("image-data"))) {
            const auto image = hints.value(QStringLiteral("image-data")).value<QDBusArgument>();
            int width = 0;
            int height = 0;
            image.beginStructure();
            image >> width >> height;
            // Closing the structure frees the reader it opened, and the message it holds.
            image.endStructure();
            shown.image = QSize(width, height);
        }
        m_shown.push_back(shown);
        connection.send(message.createReply(QVariant::fromValue(uint(m_shown.size()))));
        return true;
    }

    void emitSignal(const QString& name, uint id, const QVariant& detail)
    {
        auto signal = QDBusMessage::createSignal(kNoticesPath, kNoticesInterface, name);
        signal << id << detail;
        m_bus.send(signal);
    }

    const std::vector<Shown>& shown() const { return m_shown; }

private:
    bool m_hasActions;
    std::vector<Shown> m_shown;
};

} // namespace desktop::pages
