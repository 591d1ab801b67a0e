// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_sidebar_model.h"

#include "desktop/qt_text.h"
#include "kit/library/words.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/storage/library_store.h"

#include <QApplication>
#include <QFont>
#include <QIcon>
#include <QMimeData>
#include <QStyle>

#include <algorithm>
#include <array>

namespace desktop {

using kit::library::BarID;

namespace {

constexpr std::array kPanes{ManagerSidebarModel::Pane::Sessions,
                            ManagerSidebarModel::Pane::Proposals,
                            ManagerSidebarModel::Pane::Settings,
                            ManagerSidebarModel::Pane::About};

QString paneTitle(ManagerSidebarModel::Pane pane)
{
    using Pane = ManagerSidebarModel::Pane;
    switch (pane) {
    case Pane::Bar:
        return {};
    case Pane::Sessions:
        return toQt(kit::library::words::kAccounts);
    case Pane::Proposals:
        return QStringLiteral("Proposals");
    case Pane::Settings:
        return QStringLiteral("Settings");
    case Pane::About:
        return QStringLiteral("About");
    }
    return {};
}

QIcon paneIcon(ManagerSidebarModel::Pane pane)
{
    using Pane = ManagerSidebarModel::Pane;
    QStyle* style = QApplication::style();
    switch (pane) {
    case Pane::Bar:
        return QIcon::fromTheme(QStringLiteral("view-list-icons"),
                                style->standardIcon(QStyle::SP_FileDialogDetailedView));
    case Pane::Sessions:
        return QIcon::fromTheme(QStringLiteral("system-users"),
                                style->standardIcon(QStyle::SP_DirHomeIcon));
    case Pane::Proposals:
        return QIcon::fromTheme(QStringLiteral("mail-mark-unread"),
                                style->standardIcon(QStyle::SP_FileDialogContentsView));
    case Pane::Settings:
        return QIcon::fromTheme(QStringLiteral("preferences-system"),
                                style->standardIcon(QStyle::SP_ComputerIcon));
    case Pane::About:
        return QIcon::fromTheme(QStringLiteral("help-about"),
                                style->standardIcon(QStyle::SP_MessageBoxInformation));
    }
    return {};
}

} // namespace

ManagerSidebarModel::ManagerSidebarModel(kit::storage::LibraryStore& store,
                                         kit::proposal::ProposalInbox* inbox,
                                         QObject* parent)
    : QAbstractListModel(parent)
    , m_store(store)
    , m_inbox(inbox)
{
    m_storeObservation = m_store.observe([this](unsigned changes) {
        if (changes & kit::storage::LibraryStore::BarsChanged) {
            reload();
        }
    });
    if (m_inbox) {
        m_inboxObservation = m_inbox->observe([this] {
            const QModelIndex row = index(rowOf(Pane::Proposals));
            Q_EMIT dataChanged(row, row);
        });
    }
}

ManagerSidebarModel::~ManagerSidebarModel()
{
    m_store.removeObserver(m_storeObservation);
    if (m_inbox) {
        m_inbox->removeObserver(m_inboxObservation);
    }
}

void ManagerSidebarModel::reload()
{
    beginResetModel();
    endResetModel();
}

int ManagerSidebarModel::barCount() const
{
    return static_cast<int>(m_store.bars().size());
}

int ManagerSidebarModel::rowOf(const BarID& bar) const
{
    const auto& bars = m_store.bars();
    const auto at = std::find_if(
        bars.begin(), bars.end(), [&](const kit::library::Bar& b) { return b.id == bar; });
    return at == bars.end() ? -1 : static_cast<int>(at - bars.begin());
}

int ManagerSidebarModel::rowOf(Pane pane) const
{
    if (pane == Pane::Bar) {
        return rowOf(m_store.activeBarID());
    }
    const auto at = std::find(kPanes.begin(), kPanes.end(), pane);
    return barCount() + static_cast<int>(at - kPanes.begin());
}

ManagerSidebarModel::Pane ManagerSidebarModel::paneAt(int row) const
{
    if (row < barCount()) {
        return Pane::Bar;
    }
    const size_t pane = static_cast<size_t>(row - barCount());
    return pane < kPanes.size() ? kPanes[pane] : Pane::About;
}

std::optional<BarID> ManagerSidebarModel::barAt(int row) const
{
    if (row < 0 || row >= barCount()) {
        return std::nullopt;
    }
    return m_store.bars()[static_cast<size_t>(row)].id;
}

std::optional<BarID> ManagerSidebarModel::addBar()
{
    const auto taken = [this](const std::string& name) {
        const auto& bars = m_store.bars();
        return std::any_of(bars.begin(), bars.end(), [&](const kit::library::Bar& bar) {
            return bar.name == name;
        });
    };
    std::string name = kNewBarName;
    for (int n = 2; taken(name); ++n) {
        name = std::string(kNewBarName) + " " + std::to_string(n);
    }
    return m_store.addBar(name);
}

std::optional<std::string> ManagerSidebarModel::removeBar(const BarID& bar)
{
    return m_store.removeBar(bar);
}

bool ManagerSidebarModel::moveBar(const BarID& bar, int step)
{
    const int from = rowOf(bar);
    const int to = from + step;
    if (from < 0 || to < 0 || to >= barCount()) {
        return false;
    }
    // Offsets count in the list as it stands: moving down lands before the one after the next.
    m_store.moveBars({static_cast<size_t>(from)}, static_cast<size_t>(step > 0 ? to + 1 : to));
    return true;
}

int ManagerSidebarModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : barCount() + static_cast<int>(kPanes.size());
}

QVariant ManagerSidebarModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const Pane pane = paneAt(index.row());
    const auto bar = barAt(index.row());
    const bool showing = bar && *bar == m_store.activeBarID();
    switch (role) {
    case Qt::DisplayRole:
        if (bar) {
            return shownText(m_store.bars()[static_cast<size_t>(index.row())].name);
        }
        if (pane == Pane::Proposals && m_inbox && m_inbox->isPending()) {
            return QStringLiteral("Proposals (1)");
        }
        return paneTitle(pane);
    case Qt::EditRole:
        return bar ? toQt(m_store.bars()[static_cast<size_t>(index.row())].name) : QVariant();
    case Qt::DecorationRole:
        if (showing) {
            return QApplication::style()->standardIcon(QStyle::SP_DialogApplyButton);
        }
        return paneIcon(pane);
    case Qt::ToolTipRole:
        if (showing) {
            return QStringLiteral("Showing in the menu bar");
        }
        return bar ? QStringLiteral("Double-click to show this bar in the menu bar") : QVariant();
    case Qt::FontRole:
        if (showing) {
            QFont font = QApplication::font();
            font.setBold(true);
            return font;
        }
        return {};
    case PaneRole:
        return static_cast<int>(pane);
    case BarIDRole:
        return bar ? toQt(bar->string()) : QVariant();
    case ShowingRole:
        return showing;
    case FirstPaneRole:
        return index.row() == barCount();
    default:
        return {};
    }
}

bool ManagerSidebarModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    const auto bar = barAt(index.row());
    if (!bar || role != Qt::EditRole) {
        return false;
    }
    const std::string name = value.toString().trimmed().toStdString();
    // A bar without a name could not be told apart in the menu.
    if (name.empty()) {
        return false;
    }
    return m_store.renameBar(*bar, name);
}

Qt::ItemFlags ManagerSidebarModel::flags(const QModelIndex& index) const
{
    if (!index.isValid()) {
        return Qt::ItemIsDropEnabled;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (barAt(index.row())) {
        flags |= Qt::ItemIsEditable | Qt::ItemIsDragEnabled;
    }
    return flags;
}

Qt::DropActions ManagerSidebarModel::supportedDropActions() const
{
    return Qt::MoveAction;
}

QStringList ManagerSidebarModel::mimeTypes() const
{
    return {QString::fromLatin1(kMimeType)};
}

QMimeData* ManagerSidebarModel::mimeData(const QModelIndexList& indexes) const
{
    for (const QModelIndex& index : indexes) {
        if (auto bar = barAt(index.row())) {
            auto* data = new QMimeData;
            data->setData(QString::fromLatin1(kMimeType), QByteArray::fromStdString(bar->string()));
            return data;
        }
    }
    return nullptr;
}

bool ManagerSidebarModel::canDropMimeData(const QMimeData* data,
                                          Qt::DropAction action,
                                          int row,
                                          int /*column*/,
                                          const QModelIndex& parent) const
{
    // Bars go between bars, never onto one and never among the panes.
    return action == Qt::MoveAction && data && data->hasFormat(QString::fromLatin1(kMimeType))
           && !parent.isValid() && row >= 0 && row <= barCount();
}

bool ManagerSidebarModel::dropMimeData(
    const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent)
{
    if (!canDropMimeData(data, action, row, column, parent)) {
        return false;
    }
    auto bar = BarID::parse(data->data(QString::fromLatin1(kMimeType)).toStdString());
    const int from = bar ? rowOf(*bar) : -1;
    if (from < 0) {
        return false;
    }
    m_store.moveBars({static_cast<size_t>(from)}, static_cast<size_t>(row));
    // The store holds the move; the view must not take the dragged row out as well.
    return false;
}

} // namespace desktop
