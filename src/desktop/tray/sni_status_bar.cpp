// SPDX-License-Identifier: MIT
#include "desktop/tray/sni_status_bar.h"

#include "desktop/qt_text.h"
#include "desktop/tray/menu_builder.h"
#include "desktop/tray/sni_types.h"
#include "desktop/tray/tray_status_bar.h"
#include "kit/support/log.h"

#include <QCursor>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QMenu>
#include <QTimer>
#include <QtEndian>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <variant>

namespace desktop {

using kit::menubar::Appearance;
using kit::menubar::AppIconImage;
using kit::menubar::Glyph;
using kit::menubar::HostGesture;
using kit::menubar::Menu;
using kit::menubar::MenuItem;
using kit::menubar::Rect;
using kit::menubar::StatusItemEvents;
using kit::menubar::StatusItemHandle;

namespace {

constexpr kit::support::Logger kLog("menubar");

const QString kWatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kWatcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString kItemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString kItemPath = QStringLiteral("/StatusNotifierItem");
const QString kMenuInterface = QStringLiteral("com.canonical.dbusmenu");
const QString kMenuPath = QStringLiteral("/MenuBar");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");

// The sizes hosts draw at, from a 16-pixel panel to a large one.
constexpr std::array<int, 5> kSizes{16, 22, 24, 32, 48};
// How long the next registration waits for the host to read the one before.
constexpr int kReadWaitMs = 400;
constexpr int kRegisterWaitMs = 60'000;

sni::Pixmap pixmapOf(const QImage& drawn)
{
    const QImage image = drawn.convertToFormat(QImage::Format_ARGB32);
    sni::Pixmap pixmap;
    pixmap.width = image.width();
    pixmap.height = image.height();
    pixmap.pixels.resize(static_cast<qsizetype>(image.width()) * image.height() * 4);
    auto* out = reinterpret_cast<uchar*>(pixmap.pixels.data());
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const quint32*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            qToBigEndian<quint32>(line[x], out);
            out += 4;
        }
    }
    return pixmap;
}

QString menuXml()
{
    return QStringLiteral(
        "<interface name=\"com.canonical.dbusmenu\">"
        "<property name=\"Version\" type=\"u\" access=\"read\"/>"
        "<property name=\"TextDirection\" type=\"s\" access=\"read\"/>"
        "<property name=\"Status\" type=\"s\" access=\"read\"/>"
        "<property name=\"IconThemePath\" type=\"as\" access=\"read\"/>"
        "<method name=\"GetLayout\"><arg type=\"i\" name=\"parentId\" direction=\"in\"/>"
        "<arg type=\"i\" name=\"recursionDepth\" direction=\"in\"/>"
        "<arg type=\"as\" name=\"propertyNames\" direction=\"in\"/>"
        "<arg type=\"u\" name=\"revision\" direction=\"out\"/>"
        "<arg type=\"(ia{sv}av)\" name=\"layout\" direction=\"out\"/></method>"
        "<method name=\"GetGroupProperties\"><arg type=\"ai\" name=\"ids\" direction=\"in\"/>"
        "<arg type=\"as\" name=\"propertyNames\" direction=\"in\"/>"
        "<arg type=\"a(ia{sv})\" name=\"properties\" direction=\"out\"/></method>"
        "<method name=\"GetProperty\"><arg type=\"i\" name=\"id\" direction=\"in\"/>"
        "<arg type=\"s\" name=\"name\" direction=\"in\"/>"
        "<arg type=\"v\" name=\"value\" direction=\"out\"/></method>"
        "<method name=\"Event\"><arg type=\"i\" name=\"id\" direction=\"in\"/>"
        "<arg type=\"s\" name=\"eventId\" direction=\"in\"/>"
        "<arg type=\"v\" name=\"data\" direction=\"in\"/>"
        "<arg type=\"u\" name=\"timestamp\" direction=\"in\"/></method>"
        "<method name=\"EventGroup\"><arg type=\"a(isvu)\" name=\"events\" direction=\"in\"/>"
        "<arg type=\"ai\" name=\"idErrors\" direction=\"out\"/></method>"
        "<method name=\"AboutToShow\"><arg type=\"i\" name=\"id\" direction=\"in\"/>"
        "<arg type=\"b\" name=\"needUpdate\" direction=\"out\"/></method>"
        "<method name=\"AboutToShowGroup\"><arg type=\"ai\" name=\"ids\" direction=\"in\"/>"
        "<arg type=\"ai\" name=\"updatesNeeded\" direction=\"out\"/>"
        "<arg type=\"ai\" name=\"idErrors\" direction=\"out\"/></method>"
        "<signal name=\"ItemsPropertiesUpdated\"><arg type=\"a(ia{sv})\" name=\"updatedProps\"/>"
        "<arg type=\"a(ias)\" name=\"removedProps\"/></signal>"
        "<signal name=\"LayoutUpdated\"><arg type=\"u\" name=\"revision\"/>"
        "<arg type=\"i\" name=\"parent\"/></signal>"
        "</interface>");
}

// The rows of a menu as dbusmenu items, numbered from 1 depth first; `actions` collects what
// each number does.
void layoutRows(const std::vector<MenuItem>& rows,
                sni::MenuLayout& parent,
                int& next,
                std::map<int, std::function<void()>>& actions)
{
    for (const MenuItem& row : rows) {
        sni::MenuLayout item;
        item.id = next++;
        switch (row.kind) {
        case MenuItem::Kind::Separator:
            item.properties.insert(QStringLiteral("type"), QStringLiteral("separator"));
            break;
        case MenuItem::Kind::Heading:
            item.properties.insert(QStringLiteral("label"), menuText(row.title));
            item.properties.insert(QStringLiteral("enabled"), false);
            break;
        case MenuItem::Kind::Submenu:
            item.properties.insert(QStringLiteral("label"), menuText(row.title));
            item.properties.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
            item.properties.insert(QStringLiteral("enabled"), row.enabled || !row.items.empty());
            layoutRows(row.items, item, next, actions);
            break;
        case MenuItem::Kind::Action:
            item.properties.insert(QStringLiteral("label"), menuText(row.title));
            if (!row.enabled) {
                item.properties.insert(QStringLiteral("enabled"), false);
            }
            if (row.checked) {
                item.properties.insert(QStringLiteral("toggle-type"), QStringLiteral("checkmark"));
                item.properties.insert(QStringLiteral("toggle-state"), 1);
            }
            if (row.action) {
                actions[item.id] = row.action;
            }
            break;
        }
        parent.children.push_back(std::move(item));
    }
}

const sni::MenuLayout* findRow(const sni::MenuLayout& layout, int id)
{
    if (layout.id == id) {
        return &layout;
    }
    for (const auto& child : layout.children) {
        if (const auto* found = findRow(child, id)) {
            return found;
        }
    }
    return nullptr;
}

sni::MenuLayout limited(const sni::MenuLayout& layout, int depth)
{
    sni::MenuLayout copy{layout.id, layout.properties, {}};
    if (depth != 0) {
        for (const auto& child : layout.children) {
            copy.children.push_back(limited(child, depth < 0 ? -1 : depth - 1));
        }
    }
    if (!layout.children.empty()) {
        copy.properties.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    }
    return copy;
}

} // namespace

struct SniStatusBar::Item
{
    StatusItemHandle handle;
    QString connectionName;
    QString service;       // what the watcher is given: the connection's unique name
    QString wellKnownName; // owned too, for tools that list items by name
    QDBusConnection bus{QString()};
    std::unique_ptr<ItemObject> object;
    StatusItemEvents events;
    std::string identifier;
    std::string name;
    std::string toolTip;
    TrayStatusBar::Picture picture;
    bool highlighted = false;
    std::optional<QString> iconName;
    // Drawn when a host first asks, dropped on each redraw.
    std::optional<sni::Pixmaps> pixmaps;
    // The menu as last sent, and what its rows do.
    std::optional<sni::MenuLayout> menu;
    std::map<int, std::function<void()>> menuActions;
    uint menuRevision = 1;
    bool menuStale = true;
    std::optional<Rect> anchor;
    std::unique_ptr<QMenu> popped;
    bool read = false; // the host has read the item since it was last registered
};

// Answers the host's calls on one item's connection: the item and its menu.
class SniStatusBar::ItemObject final : public QDBusVirtualObject
{
public:
    ItemObject(SniStatusBar& bar, StatusItemHandle handle)
        : m_bar(bar)
        , m_handle(handle)
    {}

    QString introspect(const QString& path) const override
    {
        // The item's interface is left out on purpose: GNOME's extension looks for items by
        // introspection as it starts and adds those it finds in its own order, beside ours.
        // Hosts learn of our icons by registration alone, one at a time, in order.
        if (path == kMenuPath) {
            return menuXml();
        }
        return {};
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        Item* item = m_bar.find(m_handle);
        if (!item) {
            return false;
        }
        const QString path = message.path();
        const QString interface = message.interface();
        if (interface == kProperties) {
            return properties(*item, message, connection, path);
        }
        if (path == kItemPath && (interface == kItemInterface || interface.isEmpty())) {
            return itemCall(*item, message, connection);
        }
        if (path == kMenuPath && (interface == kMenuInterface || interface.isEmpty())) {
            return menuCall(*item, message, connection);
        }
        return false;
    }

private:
    bool properties(Item& item,
                    const QDBusMessage& message,
                    const QDBusConnection& connection,
                    const QString& path)
    {
        const auto args = message.arguments();
        const QString member = message.member();
        const QVariantMap all = path == kMenuPath ? menuProperties() : itemProperties(item);
        if (path == kItemPath) {
            m_bar.finishRegistration(m_handle);
        }
        if (member == QStringLiteral("GetAll")) {
            connection.send(message.createReply(QVariant::fromValue(all)));
            return true;
        }
        if (member == QStringLiteral("Get")) {
            const QString name = args.value(1).toString();
            if (!all.contains(name)) {
                connection.send(message.createErrorReply(QDBusError::UnknownProperty, name));
                return true;
            }
            connection.send(message.createReply(QVariant::fromValue(QDBusVariant(all[name]))));
            return true;
        }
        connection.send(
            message.createErrorReply(QDBusError::PropertyReadOnly, QStringLiteral("Read only")));
        return true;
    }

    QVariantMap itemProperties(Item& item)
    {
        if (!item.pixmaps) {
            sni::Pixmaps pixmaps;
            for (const int side : kSizes) {
                pixmaps.append(pixmapOf(TrayStatusBar::draw(
                    m_bar.m_icons, item.picture, item.highlighted, m_bar.m_appearance, side)));
            }
            item.pixmaps = std::move(pixmaps);
        }
        sni::ToolTip tip;
        // Plain text in the title; some hosts read the text below it as markup.
        tip.title = shownText(item.toolTip);
        QVariantMap all;
        all.insert(QStringLiteral("Category"), QStringLiteral("ApplicationStatus"));
        all.insert(QStringLiteral("Id"), toQt(item.identifier));
        all.insert(QStringLiteral("Title"),
                   shownText(item.name.empty() ? item.toolTip : item.name));
        all.insert(QStringLiteral("Status"), QStringLiteral("Active"));
        all.insert(QStringLiteral("WindowId"), 0);
        all.insert(QStringLiteral("IconName"), item.iconName.value_or(QString()));
        all.insert(QStringLiteral("IconThemePath"), QString());
        all.insert(QStringLiteral("IconPixmap"), QVariant::fromValue(*item.pixmaps));
        all.insert(QStringLiteral("OverlayIconName"), QString());
        all.insert(QStringLiteral("OverlayIconPixmap"), QVariant::fromValue(sni::Pixmaps()));
        all.insert(QStringLiteral("AttentionIconName"), QString());
        all.insert(QStringLiteral("AttentionIconPixmap"), QVariant::fromValue(sni::Pixmaps()));
        all.insert(QStringLiteral("AttentionMovieName"), QString());
        all.insert(QStringLiteral("ToolTip"), QVariant::fromValue(tip));
        // What screen readers say for the icon; hosts read it with the rest.
        all.insert(QStringLiteral("IconAccessibleDesc"), tip.title);
        all.insert(QStringLiteral("AttentionAccessibleDesc"), QString());
        all.insert(QStringLiteral("ItemIsMenu"), false);
        all.insert(QStringLiteral("Menu"), QVariant::fromValue(QDBusObjectPath(kMenuPath)));
        return all;
    }

    static QVariantMap menuProperties()
    {
        QVariantMap all;
        all.insert(QStringLiteral("Version"), 3U);
        all.insert(QStringLiteral("TextDirection"), QStringLiteral("ltr"));
        all.insert(QStringLiteral("Status"), QStringLiteral("normal"));
        all.insert(QStringLiteral("IconThemePath"), QStringList());
        return all;
    }

    bool itemCall(Item& item, const QDBusMessage& message, const QDBusConnection& connection)
    {
        const QString member = message.member();
        const auto args = message.arguments();
        std::optional<HostGesture> gesture;
        if (member == QStringLiteral("Activate")) {
            gesture = HostGesture::Activate;
        } else if (member == QStringLiteral("SecondaryActivate")) {
            gesture = HostGesture::SecondaryActivate;
        } else if (member == QStringLiteral("ContextMenu")) {
            gesture = HostGesture::ContextMenu;
        } else if (member == QStringLiteral("ProvideXdgActivationToken")) {
            // Hosts hand a token before a click; our windows need none to come forward on X11.
            connection.send(message.createReply());
            return true;
        } else if (member == QStringLiteral("Scroll")) {
            connection.send(message.createReply());
            const int step = kit::menubar::scrollStep(m_bar.m_host, args.value(0).toInt());
            if (step != 0 && m_bar.m_scrolled) {
                QTimer::singleShot(0, m_bar.m_context.get(), [bar = &m_bar, step] {
                    if (bar->m_scrolled) {
                        bar->m_scrolled(step);
                    }
                });
            }
            return true;
        } else {
            return false;
        }
        // Answered first: the click may remove this very item.
        connection.send(message.createReply());
        if (auto anchor = kit::menubar::anchorFromActivate(
                m_bar.m_host, args.value(0).toInt(), args.value(1).toInt())) {
            item.anchor = anchor;
        }
        const auto click = kit::menubar::clickFor(m_bar.m_host, *gesture);
        if (!click) {
            return true;
        }
        QTimer::singleShot(0, m_bar.m_context.get(), [bar = &m_bar, handle = m_handle, c = *click] {
            if (Item* found = bar->find(handle); found && found->events.clicked) {
                const auto clicked = found->events.clicked;
                clicked(c);
            }
        });
        return true;
    }

    void rebuildMenu(Item& item)
    {
        sni::MenuLayout root;
        root.id = 0;
        root.properties.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
        std::map<int, std::function<void()>> actions;
        int next = 1;
        if (item.events.contextMenu) {
            layoutRows(item.events.contextMenu().items, root, next, actions);
        }
        item.menu = std::move(root);
        item.menuActions = std::move(actions);
        item.menuStale = false;
    }

    bool menuCall(Item& item, const QDBusMessage& message, const QDBusConnection& connection)
    {
        const QString member = message.member();
        const auto args = message.arguments();
        if (member == QStringLiteral("GetLayout")) {
            // Built on the first ask, so the first menu a host shows is complete.
            if (!item.menu || item.menuStale) {
                rebuildMenu(item);
                ++item.menuRevision;
            }
            const int parent = args.value(0).toInt();
            const int depth = args.value(1).toInt();
            const sni::MenuLayout* row = findRow(*item.menu, parent);
            if (!row) {
                connection.send(message.createErrorReply(QDBusError::InvalidArgs,
                                                         QStringLiteral("No such row")));
                return true;
            }
            QDBusMessage reply = message.createReply();
            reply << QVariant::fromValue(item.menuRevision)
                  << QVariant::fromValue(limited(*row, depth));
            connection.send(reply);
            return true;
        }
        if (member == QStringLiteral("GetGroupProperties")) {
            if (!item.menu) {
                rebuildMenu(item);
            }
            sni::MenuPropertiesList rows;
            for (const int id : qdbus_cast<QList<int>>(args.value(0))) {
                if (const auto* row = findRow(*item.menu, id)) {
                    rows.append({id, row->properties});
                }
            }
            connection.send(message.createReply(QVariant::fromValue(rows)));
            return true;
        }
        if (member == QStringLiteral("GetProperty")) {
            const sni::MenuLayout* row =
                item.menu ? findRow(*item.menu, args.value(0).toInt()) : nullptr;
            const QString name = args.value(1).toString();
            if (!row || !row->properties.contains(name)) {
                connection.send(message.createErrorReply(QDBusError::InvalidArgs, name));
                return true;
            }
            connection.send(
                message.createReply(QVariant::fromValue(QDBusVariant(row->properties[name]))));
            return true;
        }
        if (member == QStringLiteral("Event")) {
            connection.send(message.createReply());
            if (args.value(1).toString() == QStringLiteral("clicked")) {
                chosen(item, args.value(0).toInt());
            }
            return true;
        }
        if (member == QStringLiteral("EventGroup")) {
            // Rarely sent; a host that sends it gets each click handled the same way.
            connection.send(message.createReply(QVariant::fromValue(QList<int>())));
            return true;
        }
        if (member == QStringLiteral("AboutToShow")) {
            const bool root = args.value(0).toInt() == 0;
            if (root) {
                // The menu opens on a click, so the pointer is on the icon now: what is opened
                // from the menu hangs under the icon, not under the row chosen.
                const QPoint pointer = QCursor::pos();
                if (auto anchor =
                        kit::menubar::anchorFromActivate(m_bar.m_host, pointer.x(), pointer.y())) {
                    item.anchor = anchor;
                }
            }
            const bool update = root && item.menuStale;
            if (update) {
                rebuildMenu(item);
                ++item.menuRevision;
            }
            connection.send(message.createReply(QVariant(update)));
            return true;
        }
        if (member == QStringLiteral("AboutToShowGroup")) {
            QDBusMessage reply = message.createReply();
            reply << QVariant::fromValue(QList<int>()) << QVariant::fromValue(QList<int>());
            connection.send(reply);
            return true;
        }
        return false;
    }

    void chosen(Item& item, int id)
    {
        const auto found = item.menuActions.find(id);
        if (found == item.menuActions.end()) {
            return;
        }
        // After the host's call returns: the action may rebuild the row and this item.
        QTimer::singleShot(0, m_bar.m_context.get(), [action = found->second] { action(); });
    }

    SniStatusBar& m_bar;
    StatusItemHandle m_handle;
};

SniStatusBar::SniStatusBar(const QtIconRenderer& icons,
                           const kit::menubar::TrayHost& host,
                           QString busAddress)
    : m_icons(icons)
    , m_host(host)
    , m_busAddress(std::move(busAddress))
    , m_bus(m_busAddress.isEmpty()
                ? QDBusConnection::sessionBus()
                : QDBusConnection::connectToBus(m_busAddress, QStringLiteral("vantorel-tray")))
    , m_appearance(TrayStatusBar::currentAppearance())
    , m_context(std::make_unique<QObject>())
{
    kit::menubar::PanelClues clues;
    clues.hostLook = m_host.panelLook;
    clues.appPalette = m_appearance;
    m_panel = std::make_unique<PanelWatch>(
        clues, PanelWatch::IconPlaces(), m_bus, [this](Appearance now) { appearanceChanged(now); });
    m_appearance = m_panel->look();
    sni::registerTypes();
    m_watcher = std::make_unique<QDBusServiceWatcher>(
        kWatcherService, m_bus, QDBusServiceWatcher::WatchForRegistration);
    QObject::connect(m_watcher.get(),
                     &QDBusServiceWatcher::serviceRegistered,
                     m_context.get(),
                     [this] { watcherAppeared(); });
    kLog.info("tray host: " + m_host.name + " (our own StatusNotifierItem)");
}

SniStatusBar::~SniStatusBar()
{
    m_panel.reset();
    m_context.reset();
    std::vector<StatusItemHandle> handles;
    for (const auto& [handle, item] : m_items) {
        handles.push_back(handle);
    }
    for (const auto handle : handles) {
        remove(handle);
    }
    if (!m_busAddress.isEmpty()) {
        QDBusConnection::disconnectFromBus(QStringLiteral("vantorel-tray"));
    }
}

kit::menubar::TrayHostClues SniStatusBar::clues(const QDBusConnection& bus)
{
    kit::menubar::TrayHostClues clues;
    clues.currentDesktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP").toStdString();
    if (!bus.isConnected() || !bus.interface()) {
        return clues;
    }
    const auto owner = bus.interface()->serviceOwner(kWatcherService);
    if (!owner.isValid() || owner.value().isEmpty()) {
        return clues;
    }
    clues.watcher = true;
    const auto pid = bus.interface()->servicePid(owner.value());
    if (pid.isValid()) {
        QFile comm(QStringLiteral("/proc/%1/comm").arg(pid.value()));
        if (comm.open(QIODevice::ReadOnly)) {
            clues.watcherProcess = QString::fromUtf8(comm.read(256)).trimmed().toStdString();
        }
    }
    return clues;
}

std::optional<StatusItemHandle> SniStatusBar::create(const std::string& identifier,
                                                     StatusItemEvents events)
{
    const StatusItemHandle handle{m_nextHandle++};
    auto item = std::make_unique<Item>();
    item->handle = handle;
    item->identifier = identifier;
    item->events = std::move(events);
    item->connectionName = QStringLiteral("vantorel-item-%1").arg(handle.value);
    item->bus =
        m_busAddress.isEmpty()
            ? QDBusConnection::connectToBus(QDBusConnection::SessionBus, item->connectionName)
            : QDBusConnection::connectToBus(m_busAddress, item->connectionName);
    if (!item->bus.isConnected()) {
        kLog.error("could not reach the session bus for an icon: "
                   + item->bus.lastError().message().toStdString());
        QDBusConnection::disconnectFromBus(item->connectionName);
        return std::nullopt;
    }
    item->wellKnownName =
        QStringLiteral("org.kde.StatusNotifierItem-%1-%2").arg(::getpid()).arg(handle.value);
    // Registered by the connection's unique name: GNOME's extension watches a well-known name
    // it is given, and that watch's first report can land between its first read of the item
    // and the check of that read, which then fails and drops the icon for good.
    item->service = item->bus.baseService();
    item->object = std::make_unique<ItemObject>(*this, handle);
    item->bus.registerVirtualObject(kItemPath, item->object.get());
    item->bus.registerVirtualObject(kMenuPath, item->object.get());
    item->bus.registerService(item->wellKnownName);
    m_items.emplace(handle, std::move(item));
    queueRegistration(handle);
    return handle;
}

void SniStatusBar::remove(StatusItemHandle handle)
{
    const auto found = m_items.find(handle);
    if (found == m_items.end()) {
        return;
    }
    std::unique_ptr<Item> item = std::move(found->second);
    m_items.erase(found);
    std::erase(m_waiting, handle);
    std::erase(m_registered, handle);
    item->bus.unregisterObject(kItemPath);
    item->bus.unregisterObject(kMenuPath);
    item->bus.unregisterService(item->wellKnownName);
    // Closing the connection is what tells the watcher the item is gone.
    QDBusConnection::disconnectFromBus(item->connectionName);
    if (item->popped) {
        item->popped.release()->deleteLater();
    }
    if (m_registering == handle) {
        m_registering.reset();
        registerNext();
    }
}

SniStatusBar::Item* SniStatusBar::find(StatusItemHandle handle) const
{
    const auto found = m_items.find(handle);
    return found == m_items.end() ? nullptr : found->second.get();
}

void SniStatusBar::changed(Item& item, const char* signal)
{
    // The menu may show what changed (a check mark, a name): built afresh when next asked.
    if (!item.menuStale) {
        item.menuStale = true;
        auto layout =
            QDBusMessage::createSignal(kMenuPath, kMenuInterface, QStringLiteral("LayoutUpdated"));
        layout << ++item.menuRevision << 0;
        item.bus.send(layout);
    }
    item.bus.send(
        QDBusMessage::createSignal(kItemPath, kItemInterface, QString::fromLatin1(signal)));
}

void SniStatusBar::setImage(StatusItemHandle handle, const Glyph& glyph)
{
    if (Item* item = find(handle)) {
        item->picture = glyph;
        const auto name = kit::menubar::themeIconName(m_host, glyph);
        item->iconName = name && !item->highlighted ? std::optional(toQt(*name)) : std::nullopt;
        item->pixmaps.reset();
        changed(*item, "NewIcon");
    }
}

void SniStatusBar::setTitle(StatusItemHandle handle, const std::string& title)
{
    if (Item* item = find(handle)) {
        item->picture = title;
        item->iconName.reset();
        item->pixmaps.reset();
        changed(*item, "NewIcon");
    }
}

void SniStatusBar::setAppImage(StatusItemHandle handle, const AppIconImage& image)
{
    if (Item* item = find(handle)) {
        item->picture = image;
        item->iconName.reset();
        item->pixmaps.reset();
        changed(*item, "NewIcon");
    }
}

void SniStatusBar::setToolTip(StatusItemHandle handle, const std::string& toolTip)
{
    Item* item = find(handle);
    if (item && item->toolTip != toolTip) {
        item->toolTip = toolTip;
        changed(*item, "NewToolTip");
    }
}

void SniStatusBar::setName(StatusItemHandle handle, const std::string& name)
{
    Item* item = find(handle);
    if (item && item->name != name) {
        item->name = name;
        changed(*item, "NewTitle");
    }
}

void SniStatusBar::setAccessibilityLabel(StatusItemHandle /*item*/, const std::string& /*label*/)
{
    // Hosts read the tooltip, which carries it.
}

void SniStatusBar::setHighlighted(StatusItemHandle handle, bool highlighted)
{
    Item* item = find(handle);
    if (item && item->highlighted != highlighted) {
        item->highlighted = highlighted;
        if (highlighted) {
            item->iconName.reset();
        } else if (const auto* glyph = std::get_if<Glyph>(&item->picture)) {
            if (const auto name = kit::menubar::themeIconName(m_host, *glyph)) {
                item->iconName = toQt(*name);
            }
        }
        item->pixmaps.reset();
        changed(*item, "NewIcon");
    }
}

void SniStatusBar::popMenu(StatusItemHandle handle, const Menu& menu)
{
    Item* item = find(handle);
    if (!item) {
        return;
    }
    if (item->popped) {
        item->popped.release()->deleteLater();
    }
    item->popped = std::make_unique<QMenu>();
    fillMenu(*item->popped, menu, &m_icons);
    const QPoint at = item->anchor
                          ? QPoint(static_cast<int>(item->anchor->x),
                                   static_cast<int>(item->anchor->y + item->anchor->height))
                          : QCursor::pos();
    item->popped->popup(at);
}

std::optional<Rect> SniStatusBar::geometry(StatusItemHandle handle) const
{
    const Item* item = find(handle);
    return item ? item->anchor : std::nullopt;
}

Appearance SniStatusBar::appearance(StatusItemHandle /*item*/) const
{
    return m_appearance;
}

void SniStatusBar::setForcedAppearance(std::optional<Appearance> forced)
{
    m_panel->setForced(forced);
}

void SniStatusBar::appearanceChanged(Appearance now)
{
    m_appearance = now;
    // A copy of the handles: an observer may remove icons.
    std::vector<StatusItemHandle> handles;
    for (const auto& [handle, item] : m_items) {
        handles.push_back(handle);
    }
    for (const auto handle : handles) {
        if (Item* item = find(handle)) {
            item->pixmaps.reset();
            changed(*item, "NewIcon");
            if (item->events.appearanceChanged) {
                auto observer = item->events.appearanceChanged;
                observer(now);
            }
        }
    }
}

QString SniStatusBar::serviceName(StatusItemHandle handle) const
{
    const Item* item = find(handle);
    return item ? item->service : QString();
}

QMenu* SniStatusBar::poppedMenu(StatusItemHandle handle) const
{
    const Item* item = find(handle);
    return item ? item->popped.get() : nullptr;
}

void SniStatusBar::queueRegistration(StatusItemHandle handle)
{
    m_waiting.push_back(handle);
    registerNext();
}

void SniStatusBar::registerNext()
{
    if (m_registering || m_waiting.empty()) {
        return;
    }
    const StatusItemHandle handle = m_waiting.front();
    m_waiting.pop_front();
    Item* item = find(handle);
    if (!item) {
        registerNext();
        return;
    }
    m_registering = handle;
    item->read = false;
    auto call = QDBusMessage::createMethodCall(kWatcherService,
                                               kWatcherPath,
                                               QStringLiteral("org.kde.StatusNotifierWatcher"),
                                               QStringLiteral("RegisterStatusNotifierItem"));
    call << item->service;
    // Sent from the item's own connection: some watchers take the sender as the item. A host
    // still starting (an icon started at login) answers only once its panel is up.
    auto* pending =
        new QDBusPendingCallWatcher(item->bus.asyncCall(call, kRegisterWaitMs), m_context.get());
    QObject::connect(
        pending, &QDBusPendingCallWatcher::finished, m_context.get(), [this, handle, pending] {
            pending->deleteLater();
            if (m_registering != handle) {
                return;
            }
            if (pending->isError()) {
                kLog.info("the watcher refused an icon: "
                          + pending->error().message().toStdString());
                m_registering.reset();
                if (m_bus.interface() && m_bus.interface()->isServiceRegistered(kWatcherService)) {
                    registerNext();
                } else {
                    // No watcher: all are registered again when one appears.
                    m_waiting.clear();
                }
                return;
            }
            m_registered.push_back(handle);
            Item* item = find(handle);
            if (!item || item->read) {
                m_registering.reset();
                registerNext();
                return;
            }
            // Hosts place an item once they have read it: the next waits for that,
            // but not for ever.
            QTimer::singleShot(kReadWaitMs, m_context.get(), [this, handle] {
                if (m_registering == handle) {
                    m_registering.reset();
                    registerNext();
                }
            });
        });
}

void SniStatusBar::finishRegistration(StatusItemHandle handle)
{
    Item* item = find(handle);
    if (!item || item->read) {
        return;
    }
    item->read = true;
    const bool answered =
        std::find(m_registered.begin(), m_registered.end(), handle) != m_registered.end();
    if (m_registering == handle && answered) {
        // The host reads the rest in the same burst; the next item follows that.
        QTimer::singleShot(0, m_context.get(), [this, handle] {
            if (m_registering == handle) {
                m_registering.reset();
                registerNext();
            }
        });
    }
}

void SniStatusBar::watcherAppeared()
{
    // A host that starts (or restarts) after us learns of every icon, in creation order.
    m_waiting.clear();
    m_registering.reset();
    m_registered.clear();
    for (const auto& [handle, item] : m_items) {
        m_waiting.push_back(handle);
    }
    registerNext();
}

} // namespace desktop
