// SPDX-License-Identifier: MIT
#include "desktop/tray/panel_watch.h"

#include "kit/support/log.h"

#include <QApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QEvent>
#include <QGuiApplication>
#include <QImage>
#include <QPalette>
#include <QPixmap>
#include <QScreen>
#include <QTimer>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace desktop {

using kit::menubar::Appearance;
using kit::menubar::PanelClues;
using kit::menubar::Rgb;

namespace {

constexpr kit::support::Logger kLog("menubar");

const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kSettingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kAppearanceNamespace = QStringLiteral("org.freedesktop.appearance");
const QString kColorScheme = QStringLiteral("color-scheme");

// A pixel read is a few small images; more icons than this add nothing to the vote.
constexpr size_t kMostPlacesRead = 8;

xcb_connection_t* x11Connection()
{
    if (qGuiApp == nullptr || QGuiApplication::platformName() != QLatin1String("xcb")) {
        return nullptr;
    }
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 != nullptr ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* connection, const std::string& name)
{
    const auto cookie =
        xcb_intern_atom(connection, 1, static_cast<uint16_t>(name.size()), name.c_str());
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr), &std::free);
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

// The variant inside a portal answer: ReadOne gives the value, the older Read wraps it once more.
QVariant unwrapped(QVariant value)
{
    for (int depth = 0; depth < 3 && value.canConvert<QDBusVariant>(); ++depth) {
        value = value.value<QDBusVariant>().variant();
    }
    return value;
}

} // namespace

std::optional<Rgb> trayForegroundColour()
{
    xcb_connection_t* connection = x11Connection();
    if (connection == nullptr) {
        return std::nullopt;
    }
    // Our icons dock on the default screen, as Qt's tray code looks for its tray there.
    const xcb_atom_t selection = atom(connection, "_NET_SYSTEM_TRAY_S0");
    const xcb_atom_t colours = atom(connection, "_NET_SYSTEM_TRAY_COLORS");
    if (selection == XCB_ATOM_NONE || colours == XCB_ATOM_NONE) {
        return std::nullopt;
    }
    std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> owner(
        xcb_get_selection_owner_reply(
            connection, xcb_get_selection_owner(connection, selection), nullptr),
        &std::free);
    if (!owner || owner->owner == XCB_WINDOW_NONE) {
        return std::nullopt;
    }
    // Twelve CARDINALs: foreground, error, warning and success, 16 bits a channel.
    std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> property(
        xcb_get_property_reply(
            connection,
            xcb_get_property(connection, 0, owner->owner, colours, XCB_ATOM_CARDINAL, 0, 12),
            nullptr),
        &std::free);
    if (!property || property->format != 32 || xcb_get_property_value_length(property.get()) < 12) {
        return std::nullopt;
    }
    const auto* values = static_cast<const uint32_t*>(xcb_get_property_value(property.get()));
    const auto channel = [](uint32_t value) { return static_cast<uint8_t>((value >> 8) & 0xFF); };
    return Rgb{channel(values[0]), channel(values[1]), channel(values[2])};
}

std::vector<Rgb> pixelsAround(const std::vector<QRect>& places)
{
    std::vector<Rgb> pixels;
    QScreen* screen = QGuiApplication::primaryScreen();
    if (screen == nullptr || x11Connection() == nullptr) {
        return pixels;
    }
    const QRect whole = screen->geometry();
    for (size_t i = 0; i < places.size() && i < kMostPlacesRead; ++i) {
        const QRect& place = places[i];
        if (place.isEmpty()) {
            continue;
        }
        const QRect band = place.adjusted(-place.width(), 0, place.width(), 0).intersected(whole);
        if (band.isEmpty()) {
            continue;
        }
        const QImage image = screen->grabWindow(0, band.x(), band.y(), band.width(), band.height())
                                 .toImage()
                                 .convertToFormat(QImage::Format_RGB32);
        for (int y = 0; y < image.height(); ++y) {
            const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x) {
                pixels.push_back(Rgb{static_cast<uint8_t>(qRed(line[x])),
                                     static_cast<uint8_t>(qGreen(line[x])),
                                     static_cast<uint8_t>(qBlue(line[x]))});
            }
        }
    }
    return pixels;
}

PanelWatch::PanelWatch(PanelClues clues,
                       IconPlaces places,
                       std::optional<QDBusConnection> bus,
                       Changed changed)
    : m_clues(std::move(clues))
    , m_look(kit::menubar::panelLook(m_clues))
    , m_places(std::move(places))
    , m_bus(std::move(bus))
    , m_changed(std::move(changed))
{
    if (m_places) {
        m_readSoon = new QTimer(this);
        m_readSoon->setSingleShot(true);
        // Long enough for a tray to lay out the icons it just docked.
        m_readSoon->setInterval(300);
        connect(m_readSoon, &QTimer::timeout, this, [this] { readPanel(); });
        if (qApp) {
            qApp->installEventFilter(this);
        }
        readPanelSoon();
    }
    if (m_bus && m_bus->isConnected()) {
        // The slot is found by its types' names, which exist only once registered; nothing else
        // may have used this type yet.
        qRegisterMetaType<QDBusVariant>();
        m_bus->connect(kPortalService,
                       kPortalPath,
                       kSettingsInterface,
                       QStringLiteral("SettingChanged"),
                       this,
                       SLOT(settingChanged(QString, QString, QDBusVariant)));
        askPortal();
    }
}

PanelWatch::~PanelWatch() = default;

Appearance PanelWatch::paletteLook()
{
    const QColor window = QGuiApplication::palette().color(QPalette::Window);
    return kit::menubar::lookOver(Rgb{static_cast<uint8_t>(window.red()),
                                      static_cast<uint8_t>(window.green()),
                                      static_cast<uint8_t>(window.blue())});
}

void PanelWatch::setForced(std::optional<Appearance> forced)
{
    m_clues.forced = forced;
    update();
}

void PanelWatch::readPanelSoon()
{
    if (m_readSoon) {
        m_readSoon->start();
    }
}

bool PanelWatch::eventFilter(QObject* watched, QEvent* event)
{
    const auto type = event->type();
    if (type == QEvent::ApplicationPaletteChange && watched == qApp) {
        m_clues.appPalette = paletteLook();
        update();
    } else if ((type == QEvent::Show || type == QEvent::Move || type == QEvent::Resize)
               && qstrcmp(watched->metaObject()->className(), "QSystemTrayIconSys") == 0) {
        readPanelSoon();
    }
    return false;
}

void PanelWatch::readPanel()
{
    m_clues.trayForeground = trayForegroundColour();
    m_clues.panelPixels = m_clues.trayForeground ? std::vector<Rgb>() : pixelsAround(m_places());
    update();
}

void PanelWatch::askPortal()
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        kPortalService, kPortalPath, kSettingsInterface, QStringLiteral("ReadOne"));
    call << kAppearanceNamespace << kColorScheme;
    auto* watcher = new QDBusPendingCallWatcher(m_bus->asyncCall(call, 2000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        QDBusPendingReply<QVariant> reply = *w;
        if (reply.isError()) {
            if (reply.error().type() == QDBusError::UnknownMethod) {
                // Portals before ReadOne answer the same through Read.
                QDBusMessage read = QDBusMessage::createMethodCall(
                    kPortalService, kPortalPath, kSettingsInterface, QStringLiteral("Read"));
                read << kAppearanceNamespace << kColorScheme;
                auto* again = new QDBusPendingCallWatcher(m_bus->asyncCall(read, 2000), this);
                connect(again,
                        &QDBusPendingCallWatcher::finished,
                        this,
                        [this](QDBusPendingCallWatcher* r) {
                            r->deleteLater();
                            QDBusPendingReply<QVariant> answer = *r;
                            if (!answer.isError()) {
                                schemeChanged(unwrapped(answer.value()).toUInt());
                            }
                        });
            }
            return;
        }
        schemeChanged(unwrapped(reply.value()).toUInt());
    });
}

void PanelWatch::settingChanged(const QString& group, const QString& key, const QDBusVariant& value)
{
    if (group == kAppearanceNamespace && key == kColorScheme) {
        schemeChanged(unwrapped(value.variant()).toUInt());
    }
}

void PanelWatch::schemeChanged(uint32_t value)
{
    m_clues.colorScheme = kit::menubar::colorSchemeFromPortal(value);
    update();
}

void PanelWatch::update()
{
    const Appearance now = kit::menubar::panelLook(m_clues);
    if (now == m_look) {
        return;
    }
    m_look = now;
    kLog.info(now == Appearance::Dark ? "panel look: dark" : "panel look: light");
    if (m_changed) {
        m_changed(now);
    }
}

} // namespace desktop
