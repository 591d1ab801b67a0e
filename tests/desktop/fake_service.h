// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QString>

namespace desktop {

// A desktop service played on a private bus: an object at `path` owning the name `service`, on a
// connection of its own. The subclass calls publish() once it is whole, as calls may come at once.
class FakeService : public QDBusVirtualObject
{
public:
    FakeService(const QString& address, QString service, QString path)
        : m_bus(QDBusConnection::connectToBus(address, service))
        , m_service(std::move(service))
        , m_path(std::move(path))
    {}
    ~FakeService() override
    {
        m_bus.unregisterService(m_service);
        m_bus.unregisterObject(m_path, QDBusConnection::UnregisterTree);
        QDBusConnection::disconnectFromBus(m_service);
    }
    FakeService(const FakeService&) = delete;
    FakeService& operator=(const FakeService&) = delete;

    QString introspect(const QString&) const override { return {}; }
    QDBusConnection& bus() { return m_bus; }

protected:
    void publish(QDBusConnection::VirtualObjectRegisterOption option = QDBusConnection::SingleNode)
    {
        m_bus.registerVirtualObject(m_path, this, option);
        m_bus.registerService(m_service);
    }

    QDBusConnection m_bus;
    const QString m_service;
    const QString m_path;
};

} // namespace desktop
