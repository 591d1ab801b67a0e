// SPDX-License-Identifier: MIT
#include "desktop/pages/desktop_notices.h"

#include "desktop/qt_text.h"
#include "kit/support/log.h"
#include "kit/web/page_notifications.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace desktop::pages {

namespace {

constexpr kit::support::Logger kLog("browser");

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
// A notification's picture: big enough for any service's bubble, small on the bus.
constexpr int kIconSide = 64;
// Reasons the service gives for closing: the person dismissed it.
constexpr uint kDismissed = 2;

// The image-data hint: width, height, row stride, alpha, bits per sample, channels, bytes.
struct ImageData
{
    int width = 0;
    int height = 0;
    int rowStride = 0;
    bool hasAlpha = true;
    int bitsPerSample = 8;
    int channels = 4;
    QByteArray bytes;
};

QDBusArgument& operator<<(QDBusArgument& argument, const ImageData& image)
{
    argument.beginStructure();
    argument << image.width << image.height << image.rowStride << image.hasAlpha
             << image.bitsPerSample << image.channels << image.bytes;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ImageData& image)
{
    argument.beginStructure();
    argument >> image.width >> image.height >> image.rowStride >> image.hasAlpha
        >> image.bitsPerSample >> image.channels >> image.bytes;
    argument.endStructure();
    return argument;
}

ImageData imageData(const QImage& icon)
{
    const QImage rgba =
        icon.scaled(kIconSide, kIconSide, Qt::KeepAspectRatio, Qt::SmoothTransformation)
            .convertToFormat(QImage::Format_RGBA8888);
    ImageData image;
    image.width = rgba.width();
    image.height = rgba.height();
    image.rowStride = static_cast<int>(rgba.bytesPerLine());
    image.bytes = QByteArray(reinterpret_cast<const char*>(rgba.constBits()),
                             static_cast<qsizetype>(rgba.sizeInBytes()));
    return image;
}

} // namespace

} // namespace desktop::pages

Q_DECLARE_METATYPE(desktop::pages::ImageData)

namespace desktop::pages {

DesktopNotices::DesktopNotices(QDBusConnection bus)
    : m_bus(std::move(bus))
    , m_routes(std::make_unique<kit::web::NoticeRoutes>())
{
    qDBusRegisterMetaType<ImageData>();
    m_signals.invoked = [this](uint id, const QString& action) { actionInvoked(id, action); };
    m_signals.closed = [this](uint id, uint reason) { closed(id, reason); };
    m_bus.connect(kService,
                  kPath,
                  kInterface,
                  QStringLiteral("ActionInvoked"),
                  &m_signals,
                  SLOT(actionInvoked(uint, QString)));
    m_bus.connect(kService,
                  kPath,
                  kInterface,
                  QStringLiteral("NotificationClosed"),
                  &m_signals,
                  SLOT(notificationClosed(uint, uint)));
    auto* watcher = new QDBusPendingCallWatcher(
        m_bus.asyncCall(QDBusMessage::createMethodCall(
            kService, kPath, kInterface, QStringLiteral("GetCapabilities"))),
        &m_signals);
    QObject::connect(watcher,
                     &QDBusPendingCallWatcher::finished,
                     &m_signals,
                     [this](QDBusPendingCallWatcher* call) {
                         const QDBusPendingReply<QStringList> reply = *call;
                         if (!reply.isError()) {
                             m_hasActions = reply.value().contains(QStringLiteral("actions"));
                         }
                         call->deleteLater();
                     });
}

DesktopNotices::~DesktopNotices() = default;

void DesktopNotices::show(const kit::library::ShortcutID& shortcut,
                          const kit::web::DesktopNotice& notice,
                          const QImage& icon)
{
    QVariantMap hints;
    if (!icon.isNull()) {
        hints.insert(QStringLiteral("image-data"), QVariant::fromValue(imageData(icon)));
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << toQt(notice.appName) << uint(0) << QString() << toQt(notice.summary)
         << toQt(notice.body) << QStringList{QStringLiteral("default"), QStringLiteral("Open")}
         << hints << int(-1);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), &m_signals);
    QObject::connect(watcher,
                     &QDBusPendingCallWatcher::finished,
                     &m_signals,
                     [this, shortcut](QDBusPendingCallWatcher* pending) {
                         const QDBusPendingReply<uint> reply = *pending;
                         pending->deleteLater();
                         if (reply.isError()) {
                             if (!m_missingLogged) {
                                 m_missingLogged = true;
                                 kLog.error(
                                     "the desktop's notification service did not take a page's "
                                     "notification: "
                                     + reply.error().message().toStdString());
                             }
                             return;
                         }
                         m_routes->add(reply.value(), shortcut);
                     });
}

void DesktopNotices::actionInvoked(uint id, const QString& action)
{
    if (action != QStringLiteral("default")) {
        return;
    }
    if (auto shortcut = m_routes->take(id); shortcut && clicked) {
        clicked(*shortcut);
    }
}

void DesktopNotices::closed(uint id, uint reason)
{
    auto shortcut = m_routes->take(id);
    // Where the service has no actions a click is what dismisses.
    if (shortcut && reason == kDismissed && m_hasActions == false && clicked) {
        clicked(*shortcut);
    }
}

} // namespace desktop::pages
