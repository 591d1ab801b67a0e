// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_sessions_model.h"

#include "desktop/qt_text.h"
#include "kit/storage/library_store.h"
#include "kit/storage/session_words.h"

#include <QPainter>
#include <QPixmap>

#include <algorithm>
#include <array>
#include <thread>

namespace desktop {

using kit::library::Session;
using kit::library::SessionID;

namespace {

QPixmap swatch(const QColor& colour)
{
    QPixmap pixmap(14, 14);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(colour.darker(130));
    painter.setBrush(colour);
    painter.drawEllipse(QRectF(1, 1, 12, 12));
    return pixmap;
}

} // namespace

ManagerSessionsModel::ManagerSessionsModel(kit::storage::LibraryStore& store,
                                           SessionData data,
                                           QObject* parent)
    : QAbstractListModel(parent)
    , m_store(store)
    , m_data(std::move(data))
    , m_delivery(std::make_shared<Delivery>())
    , m_receiver(std::make_unique<QObject>())
    , m_self(std::make_shared<ManagerSessionsModel*>(this))
{
    m_delivery->receiver = m_receiver.get();
    using Store = kit::storage::LibraryStore;
    m_observation = m_store.observe([this](unsigned changes) {
        // Link counts follow the bars' shortcuts as well as the sessions.
        if (changes & (Store::SessionsChanged | Store::LibraryChanged | Store::BarsChanged)) {
            reload();
        }
    });
    reload();
}

ManagerSessionsModel::~ManagerSessionsModel()
{
    m_store.removeObserver(m_observation);
    m_self.reset();
    {
        const std::lock_guard hold(m_delivery->lock);
        m_delivery->receiver = nullptr;
    }
    // Deleting the receiver drops the answers already queued for it.
    m_receiver.reset();
}

QColor ManagerSessionsModel::colour(int index)
{
    static const std::array<QColor, Session::kColourCount> kPalette{
        QColor(0x1f, 0x77, 0xd0), // blue
        QColor(0x2e, 0xa0, 0x43), // green
        QColor(0xe0, 0x8a, 0x00), // orange
        QColor(0xc6, 0x28, 0x28), // red
        QColor(0x8e, 0x44, 0xad), // purple
        QColor(0x00, 0x97, 0xa7), // teal
        QColor(0xd8, 0x1b, 0x60), // pink
        QColor(0x6d, 0x6d, 0x6d), // grey
    };
    return kPalette[static_cast<size_t>(((index % Session::kColourCount) + Session::kColourCount)
                                        % Session::kColourCount)];
}

QString ManagerSessionsModel::detail(int links, std::optional<int> sites)
{
    return toQt(kit::storage::sessionDetail(links, sites));
}

std::optional<SessionID> ManagerSessionsModel::sessionAt(int row) const
{
    const auto& sessions = m_store.sessions();
    if (row < 0 || static_cast<size_t>(row) >= sessions.size()) {
        return std::nullopt;
    }
    return sessions[static_cast<size_t>(row)].id;
}

int ManagerSessionsModel::rowOf(const SessionID& session) const
{
    const auto& sessions = m_store.sessions();
    const auto at = std::find_if(
        sessions.begin(), sessions.end(), [&](const Session& s) { return s.id == session; });
    return at == sessions.end() ? -1 : static_cast<int>(at - sessions.begin());
}

std::optional<SessionID> ManagerSessionsModel::addSession()
{
    return m_store.addSession(kit::storage::newSessionName(m_store.sessions()));
}

std::string ManagerSessionsModel::removalQuestion(const SessionID& session) const
{
    const int row = rowOf(session);
    const std::string name = row < 0 ? std::string() : m_store.sessions()[size_t(row)].name;
    return kit::storage::sessionRemovalQuestion(name, m_store.usage(session).value_or(0));
}

void ManagerSessionsModel::remove(const SessionID& session)
{
    if (rowOf(session) < 0) {
        return;
    }
    m_store.removeSession(session);
    if (m_data.remove) {
        m_data.remove(session);
    }
}

void ManagerSessionsModel::clearData(const SessionID& session)
{
    if (!m_data.clear || rowOf(session) < 0) {
        return;
    }
    std::weak_ptr<ManagerSessionsModel*> weak = m_self;
    m_data.clear(session, [weak] {
        if (auto self = weak.lock()) {
            (*self)->countSites();
        }
    });
}

int ManagerSessionsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_store.sessions().size());
}

QVariant ManagerSessionsModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const Session& session = m_store.sessions()[static_cast<size_t>(index.row())];
    const auto sites = [&]() -> std::optional<int> {
        const auto found = m_sites.find(session.id.string());
        return found == m_sites.end() ? std::nullopt : std::optional<int>(found->second);
    };
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return toQt(session.name);
    case Qt::DecorationRole:
        return swatch(colour(Session::colourIndex(session)));
    case Qt::ToolTipRole:
    case DetailRole: {
        if (!m_linksCounted) {
            return QString();
        }
        const auto links = m_links.find(session.id.string());
        return detail(links == m_links.end() ? 0 : links->second, sites());
    }
    case IDRole:
        return toQt(session.id.string());
    case ColourRole:
        return Session::colourIndex(session);
    default:
        return {};
    }
}

bool ManagerSessionsModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    const auto session = sessionAt(index.row());
    const std::string name = value.toString().trimmed().toStdString();
    if (!session || role != Qt::EditRole || name.empty()) {
        return false;
    }
    return m_store.renameSession(*session, name);
}

Qt::ItemFlags ManagerSessionsModel::flags(const QModelIndex& index) const
{
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
}

void ManagerSessionsModel::reload()
{
    beginResetModel();
    endResetModel();
    countLinks();
    countSites();
}

void ManagerSessionsModel::countLinks()
{
    using Store = kit::storage::LibraryStore;
    const unsigned generation = ++m_linksGeneration;
    auto inputs = std::make_shared<const Store::UsageInputs>(m_store.usageInputs());
    std::thread([this, inputs, generation, delivery = m_delivery] {
        auto counts = Store::countUsage(*inputs);
        std::map<std::string, int> links;
        for (const auto& [session, n] : counts) {
            links.emplace(session.string(), n);
        }
        const std::lock_guard hold(delivery->lock);
        if (delivery->receiver == nullptr) {
            return;
        }
        // Runs only while the receiver, and so the model, is there.
        QMetaObject::invokeMethod(
            delivery->receiver,
            [this, generation, links = std::move(links)]() mutable {
                if (generation != m_linksGeneration) {
                    return;
                }
                m_links = std::move(links);
                m_linksCounted = true;
                if (rowCount() > 0) {
                    Q_EMIT dataChanged(index(0), index(rowCount() - 1));
                }
                Q_EMIT linksCountedChanged();
            },
            Qt::QueuedConnection);
    }).detach();
}

void ManagerSessionsModel::startCounting()
{
    if (!m_counting) {
        m_counting = true;
        countSites();
    }
}

void ManagerSessionsModel::countSites()
{
    if (!m_data.siteCount || !m_counting) {
        return;
    }
    std::weak_ptr<ManagerSessionsModel*> weak = m_self;
    for (const Session& session : m_store.sessions()) {
        const SessionID id = session.id;
        m_data.siteCount(id, [weak, id](int sites) {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            ManagerSessionsModel& model = **self;
            model.m_sites[id.string()] = sites;
            const int row = model.rowOf(id);
            if (row >= 0) {
                Q_EMIT model.dataChanged(model.index(row), model.index(row));
            }
        });
    }
}

} // namespace desktop
