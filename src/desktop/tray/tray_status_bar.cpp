// SPDX-License-Identifier: MIT
#include "desktop/tray/tray_status_bar.h"

#include "desktop/qt_text.h"
#include "desktop/tray/menu_builder.h"
#include "kit/support/log.h"

#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QEvent>
#include <QIconEngine>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QSystemTrayIcon>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <variant>

namespace desktop {

using kit::menubar::Appearance;
using kit::menubar::AppIconImage;
using kit::menubar::Click;
using kit::menubar::Glyph;
using kit::menubar::Rect;
using kit::menubar::StatusItemEvents;
using kit::menubar::StatusItemHandle;

namespace {

constexpr kit::support::Logger kLog("menubar");

// Sizes tray hosts ask for: XEmbed hosts draw at their panel height, StatusNotifierItem hosts
// pick from what is offered.
constexpr std::array<int, 6> kTraySizes{16, 22, 24, 32, 48, 64};

// Draws an icon's picture at a size only when a host asks for that size: a tray asks for one or
// two, and drawing every size up front was most of what showing a bar cost.
class DrawnIconEngine final : public QIconEngine
{
public:
    using Draw = std::function<QImage(int side)>;

    explicit DrawnIconEngine(Draw draw)
        : m_shared(std::make_shared<Shared>(Shared{std::move(draw), {}}))
    {}

    QPixmap pixmap(const QSize& size, QIcon::Mode, QIcon::State) override
    {
        const int side = std::max(1, std::min(size.width(), size.height()));
        auto& cached = m_shared->drawn[side];
        if (cached.isNull()) {
            cached = QPixmap::fromImage(m_shared->draw(side));
        }
        return cached;
    }

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override
    {
        const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        const QSize pixels(qRound(rect.width() * ratio), qRound(rect.height() * ratio));
        const QPixmap drawn = pixmap(pixels, mode, state);
        const int side = std::min(rect.width(), rect.height());
        painter->drawPixmap(QRect(rect.x() + (rect.width() - side) / 2,
                                  rect.y() + (rect.height() - side) / 2,
                                  side,
                                  side),
                            drawn);
    }

    QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State) override
    {
        const int side = std::min(size.width(), size.height());
        return {side, side};
    }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override
    {
        // What a StatusNotifierItem host is sent to choose from.
        QList<QSize> sizes;
        for (const int side : kTraySizes) {
            sizes << QSize(side, side);
        }
        return sizes;
    }

    QIconEngine* clone() const override { return new DrawnIconEngine(m_shared); }
    QString key() const override { return QStringLiteral("vantorel-drawn"); }

private:
    struct Shared
    {
        Draw draw;
        std::map<int, QPixmap> drawn;
    };

    explicit DrawnIconEngine(std::shared_ptr<Shared> shared)
        : m_shared(std::move(shared))
    {}

    std::shared_ptr<Shared> m_shared;
};

// Qt objects go through deleteLater: a click's handler may remove the very icon it came from
// while Qt is still inside that icon's signal.
template <class T> struct LaterDeleter
{
    void operator()(T* object) const
    {
        if (object) {
            object->disconnect();
            object->deleteLater();
        }
    }
};

template <class T> using LaterPtr = std::unique_ptr<T, LaterDeleter<T>>;

// Calls back when the pointer enters an XEmbed icon: its window is a widget of this process, so
// the enter event reaches us (a StatusNotifierItem host keeps the pointer to itself).
class EnterWatch final : public QObject
{
public:
    explicit EnterWatch(std::function<void()> entered)
        : m_entered(std::move(entered))
    {
        if (qApp) {
            qApp->installEventFilter(this);
        }
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Enter
            && qstrcmp(watched->metaObject()->className(), "QSystemTrayIconSys") == 0) {
            m_entered();
        }
        return false;
    }

private:
    std::function<void()> m_entered;
};

} // namespace

struct TrayStatusBar::Item
{
    LaterPtr<QSystemTrayIcon> tray;
    LaterPtr<QMenu> contextMenu;
    LaterPtr<QMenu> popped;
    StatusItemEvents events;
    Picture picture;
    bool highlighted = false;
};

TrayStatusBar::TrayStatusBar(const QtIconRenderer& icons, std::optional<Host> host)
    : m_icons(icons)
    , m_host(host.value_or(detectHost()))
    , m_appearance(currentAppearance())
{
    kit::menubar::PanelClues clues;
    clues.appPalette = m_appearance;
    PanelWatch::IconPlaces places;
    std::optional<QDBusConnection> bus;
    if (m_host == Host::XEmbed) {
        places = [this] { return iconPlaces(); };
    } else {
        bus = QDBusConnection::sessionBus();
    }
    m_panel = std::make_unique<PanelWatch>(clues,
                                           std::move(places),
                                           std::move(bus),
                                           [this](Appearance now) { appearanceChanged(now); });
    m_appearance = m_panel->look();
    kLog.info(m_host == Host::XEmbed ? "tray host: XEmbed" : "tray host: StatusNotifierItem");
}

TrayStatusBar::~TrayStatusBar() = default;

void TrayStatusBar::setPointerEntered(std::function<void(StatusItemHandle)> entered)
{
    m_pointerEntered = std::move(entered);
    if (!m_pointerEntered) {
        m_enterWatch.reset();
        return;
    }
    if (!m_enterWatch) {
        m_enterWatch = std::make_unique<EnterWatch>([this] {
            // The event names Qt's private widget; the pointer says which of ours it is.
            const QPoint pointer = QCursor::pos();
            for (const auto& [handle, item] : m_items) {
                if (item->tray && item->tray->geometry().contains(pointer)) {
                    m_pointerEntered(handle);
                    return;
                }
            }
        });
    }
}

TrayStatusBar::Host TrayStatusBar::detectHost()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) {
        return Host::XEmbed;
    }
    const bool watcher =
        bus.interface()->isServiceRegistered(QStringLiteral("org.kde.StatusNotifierWatcher"));
    return watcher ? Host::StatusNotifier : Host::XEmbed;
}

Appearance TrayStatusBar::currentAppearance()
{
    return PanelWatch::paletteLook();
}

void TrayStatusBar::setForcedAppearance(std::optional<Appearance> forced)
{
    m_panel->setForced(forced);
}

std::vector<QRect> TrayStatusBar::iconPlaces() const
{
    std::vector<QRect> places;
    for (const auto& [handle, item] : m_items) {
        if (item->tray) {
            places.push_back(item->tray->geometry());
        }
    }
    return places;
}

const kit::menubar::TrayHost& TrayStatusBar::host() const
{
    // Qt's own StatusNotifierItem registers through the watcher like any other; where the host
    // puts it is not known here.
    return kit::menubar::trayHost(m_host == Host::XEmbed
                                      ? kit::menubar::TrayHostKind::XEmbed
                                      : kit::menubar::TrayHostKind::OtherStatusNotifier);
}

std::optional<StatusItemHandle> TrayStatusBar::create(const std::string& identifier,
                                                      StatusItemEvents events)
{
    const StatusItemHandle handle{m_nextHandle++};
    auto item = std::make_unique<Item>();
    item->events = std::move(events);
    item->tray.reset(new QSystemTrayIcon());
    item->tray->setObjectName(toQt(identifier));
    Item* raw = item.get();

    if (raw->events.contextMenu) {
        // StatusNotifierItem hosts show this menu themselves and never report the right click,
        // so its rows are asked for just before it opens.
        raw->contextMenu.reset(new QMenu());
        QObject::connect(raw->contextMenu.get(),
                         &QMenu::aboutToShow,
                         raw->contextMenu.get(),
                         [raw, icons = &m_icons] {
                             const auto rows = raw->events.contextMenu;
                             raw->contextMenu->clear();
                             fillMenu(*raw->contextMenu, rows(), icons);
                             if (raw->contextMenu->isEmpty()) {
                                 // Opening cannot be refused from here; close it before it is drawn
                                 // empty.
                                 QMetaObject::invokeMethod(
                                     raw->contextMenu.get(), &QMenu::hide, Qt::QueuedConnection);
                             }
                         });
        raw->tray->setContextMenu(raw->contextMenu.get());
    }

    QObject::connect(raw->tray.get(),
                     &QSystemTrayIcon::activated,
                     raw->tray.get(),
                     [raw](QSystemTrayIcon::ActivationReason reason) {
                         // A copy: the handler may remove this icon, and its events with it.
                         const auto clicked = raw->events.clicked;
                         if (!clicked) {
                             return;
                         }
                         const bool control =
                             QGuiApplication::queryKeyboardModifiers() & Qt::ControlModifier;
                         switch (reason) {
                         case QSystemTrayIcon::Trigger:
                         // A middle click is a click that asks for no menu.
                         case QSystemTrayIcon::MiddleClick:
                             clicked(Click{Click::Kind::Primary, control});
                             return;
                         case QSystemTrayIcon::Context:
                             // The context menu already opened on its own.
                             if (!raw->contextMenu) {
                                 clicked(Click{Click::Kind::Secondary, control});
                             }
                             return;
                         case QSystemTrayIcon::DoubleClick:
                             clicked(Click{Click::Kind::DoubleClick, control});
                             return;
                         case QSystemTrayIcon::Unknown:
                             break;
                         }
                         clicked(std::nullopt);
                     });

    // A clear picture holds the icon's place until the first one is set: XEmbed hosts place an
    // icon when it is shown, so it must be shown now for the order to hold. It is shown even
    // when no tray is there yet: Qt docks it once a host appears.
    QPixmap clear(kTraySizes.front(), kTraySizes.front());
    clear.fill(Qt::transparent);
    raw->tray->setIcon(QIcon(clear));
    raw->tray->show();
    m_items.emplace(handle, std::move(item));
    return handle;
}

void TrayStatusBar::remove(StatusItemHandle item)
{
    const auto found = m_items.find(item);
    if (found == m_items.end()) {
        return;
    }
    found->second->tray->hide();
    m_items.erase(found);
}

TrayStatusBar::Item* TrayStatusBar::find(StatusItemHandle item) const
{
    const auto found = m_items.find(item);
    return found == m_items.end() ? nullptr : found->second.get();
}

QImage TrayStatusBar::draw(const QtIconRenderer& icons,
                           const Picture& picture,
                           bool highlighted,
                           Appearance appearance,
                           int side)
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    if (highlighted) {
        QColor backdrop = QtIconRenderer::foreground(appearance);
        backdrop.setAlphaF(0.22);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(backdrop);
        painter.drawRoundedRect(QRectF(0, 0, side, side), side / 5.0, side / 5.0);
    }
    if (const auto* glyph = std::get_if<Glyph>(&picture)) {
        painter.drawImage(0, 0, icons.draw(*glyph, side, appearance));
    } else if (const auto* title = std::get_if<std::string>(&picture)) {
        Glyph letters;
        letters.source = Glyph::Source::Letters;
        letters.name = *title;
        painter.drawImage(0, 0, icons.draw(letters, side, appearance));
    } else if (const auto* app = std::get_if<AppIconImage>(&picture)) {
        painter.drawImage(0, 0, icons.draw(*app, side));
    }
    painter.end();
    return image;
}

void TrayStatusBar::redraw(Item& item) const
{
    // The engine draws later, so it takes copies of what it draws, not the item.
    auto draw = [icons = &m_icons,
                 picture = item.picture,
                 highlighted = item.highlighted,
                 appearance = m_appearance](int side) {
        return TrayStatusBar::draw(*icons, picture, highlighted, appearance, side);
    };
    item.tray->setIcon(QIcon(new DrawnIconEngine(std::move(draw))));
}

void TrayStatusBar::setImage(StatusItemHandle item, const Glyph& glyph)
{
    if (Item* found = find(item)) {
        found->picture = glyph;
        redraw(*found);
    }
}

void TrayStatusBar::setTitle(StatusItemHandle item, const std::string& title)
{
    if (Item* found = find(item)) {
        found->picture = title;
        redraw(*found);
    }
}

void TrayStatusBar::setAppImage(StatusItemHandle item, const AppIconImage& image)
{
    if (Item* found = find(item)) {
        found->picture = image;
        redraw(*found);
    }
}

void TrayStatusBar::setToolTip(StatusItemHandle item, const std::string& toolTip)
{
    if (Item* found = find(item)) {
        found->tray->setToolTip(plainToolTip(toolTip));
    }
}

void TrayStatusBar::setAccessibilityLabel(StatusItemHandle /*item*/, const std::string& /*label*/)
{
    // A tray icon has no accessible name of its own; hosts read the tooltip, which carries it.
}

void TrayStatusBar::setHighlighted(StatusItemHandle item, bool highlighted)
{
    Item* found = find(item);
    if (found && found->highlighted != highlighted) {
        found->highlighted = highlighted;
        redraw(*found);
    }
}

void TrayStatusBar::popMenu(StatusItemHandle item, const kit::menubar::Menu& menu)
{
    Item* found = find(item);
    if (!found) {
        return;
    }
    found->popped.reset(new QMenu());
    fillMenu(*found->popped, menu, &m_icons);
    const QRect frame = found->tray->geometry();
    // StatusNotifierItem hosts do not say where the icon is; the pointer is on it after a click.
    const QPoint at = frame.isEmpty() ? QCursor::pos() : frame.bottomLeft() + QPoint(0, 1);
    found->popped->popup(at);
}

std::optional<Rect> TrayStatusBar::geometry(StatusItemHandle item) const
{
    const Item* found = find(item);
    if (!found) {
        return std::nullopt;
    }
    const QRect frame = found->tray->geometry();
    if (frame.isEmpty()) {
        return std::nullopt;
    }
    return Rect{static_cast<double>(frame.x()),
                static_cast<double>(frame.y()),
                static_cast<double>(frame.width()),
                static_cast<double>(frame.height())};
}

Appearance TrayStatusBar::appearance(StatusItemHandle /*item*/) const
{
    return m_appearance;
}

QSystemTrayIcon* TrayStatusBar::trayIcon(StatusItemHandle item) const
{
    const Item* found = find(item);
    return found ? found->tray.get() : nullptr;
}

QMenu* TrayStatusBar::poppedMenu(StatusItemHandle item) const
{
    const Item* found = find(item);
    return found ? found->popped.get() : nullptr;
}

void TrayStatusBar::appearanceChanged(Appearance now)
{
    if (now == m_appearance) {
        return;
    }
    m_appearance = now;
    // A copy of the handles: an observer may remove icons.
    std::vector<StatusItemHandle> handles;
    for (const auto& [handle, item] : m_items) {
        handles.push_back(handle);
    }
    for (const auto handle : handles) {
        if (Item* item = find(handle)) {
            redraw(*item);
            if (item->events.appearanceChanged) {
                auto changed = item->events.appearanceChanged;
                changed(now);
            }
        }
    }
}

} // namespace desktop
