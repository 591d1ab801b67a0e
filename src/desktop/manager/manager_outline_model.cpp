// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_outline_model.h"

#include "desktop/qt_text.h"
#include "kit/menubar/menu_bar_controller.h"
#include "kit/menubar/shortcut_menu.h"

#include <QApplication>
#include <QFont>
#include <QIcon>
#include <QMimeData>
#include <QPalette>
#include <QStyle>

#include <algorithm>
#include <unordered_map>

namespace desktop {

using kit::library::BarID;
using kit::library::Library;
using kit::library::Shortcut;
using kit::library::ShortcutID;
using kit::library::Target;

namespace {

QString kindWord(Target::Kind kind)
{
    switch (kind) {
    case Target::Kind::App:
        return QStringLiteral("App");
    case Target::Kind::File:
        return QStringLiteral("File");
    case Target::Kind::Folder:
        return QStringLiteral("Folder");
    case Target::Kind::Url:
        return QStringLiteral("Link");
    case Target::Kind::Group:
        return QStringLiteral("Group");
    case Target::Kind::Divider:
        return QStringLiteral("Divider");
    }
    return {};
}

QString detail(const Shortcut& shortcut)
{
    const Target& target = shortcut.target;
    switch (target.kind()) {
    case Target::Kind::App:
        return toQt(target.appTarget()->bundleID);
    case Target::Kind::File:
    case Target::Kind::Folder:
        return toQt(target.fileTarget()->bookmark.displayPath);
    case Target::Kind::Url:
        return toQt(target.urlTarget()->url);
    case Target::Kind::Group: {
        const size_t count = target.members().size();
        return count == 1 ? QStringLiteral("1 shortcut")
                          : QStringLiteral("%1 shortcuts").arg(count);
    }
    case Target::Kind::Divider:
        return QStringLiteral("A line between icons");
    }
    return {};
}

QIcon kindIcon(Target::Kind kind)
{
    QStyle* style = QApplication::style();
    switch (kind) {
    case Target::Kind::App:
        return QIcon::fromTheme(QStringLiteral("application-x-executable"),
                                style->standardIcon(QStyle::SP_ComputerIcon));
    case Target::Kind::File:
        return QIcon::fromTheme(QStringLiteral("text-x-generic"),
                                style->standardIcon(QStyle::SP_FileIcon));
    case Target::Kind::Folder:
        return QIcon::fromTheme(QStringLiteral("folder"), style->standardIcon(QStyle::SP_DirIcon));
    case Target::Kind::Url:
        return QIcon::fromTheme(QStringLiteral("text-html"),
                                style->standardIcon(QStyle::SP_DriveNetIcon));
    case Target::Kind::Group:
        return QIcon::fromTheme(QStringLiteral("view-list-tree"),
                                style->standardIcon(QStyle::SP_FileDialogListView));
    case Target::Kind::Divider:
        return {};
    }
    return {};
}

// Where a shortcut stands: the group holding it (none at the top level) and its index there.
std::optional<Library::OutlineDestination> placeOf(const Library& library, const ShortcutID& id)
{
    if (!library.shortcut(id)) {
        return std::nullopt;
    }
    const auto parent = library.parent(id);
    const std::vector<Shortcut>& list =
        parent ? library.shortcut(*parent)->target.members() : library.shortcuts;
    const auto at = std::find_if(
        list.begin(), list.end(), [&](const Shortcut& shortcut) { return shortcut.id == id; });
    return Library::OutlineDestination{parent, static_cast<size_t>(at - list.begin())};
}

} // namespace

ManagerOutlineModel::ManagerOutlineModel(kit::storage::LibraryStore& store, QObject* parent)
    : QAbstractItemModel(parent)
    , m_store(store)
    , m_bar(store.activeBarID())
{
    using Store = kit::storage::LibraryStore;
    m_observation = m_store.observe([this](unsigned changes) {
        if (changes & (Store::LibraryChanged | Store::BarsChanged)) {
            reload();
        }
    });
    reload();
}

ManagerOutlineModel::~ManagerOutlineModel()
{
    m_store.removeObserver(m_observation);
}

void ManagerOutlineModel::setBar(const BarID& bar)
{
    m_bar = bar;
    m_expanded.clear();
    reload();
}

bool ManagerOutlineModel::isShowingBar() const
{
    return m_bar == m_store.activeBarID();
}

void ManagerOutlineModel::setIconSource(IconSource source)
{
    m_iconSource = std::move(source);
    reload();
}

void ManagerOutlineModel::iconsChanged()
{
    m_icons.clear();
    if (const int rows = rowCount(); rows > 0) {
        // A range repaints the whole view, members of groups included.
        Q_EMIT dataChanged(index(0, 0), index(rows - 1, 0), {Qt::DecorationRole});
    }
}

void ManagerOutlineModel::reload()
{
    beginResetModel();
    m_icons.clear();
    m_nodes.clear();
    m_top.clear();
    m_unreadable.clear();
    if (isShowingBar()) {
        const auto& state = m_store.loadState();
        if (m_store.isHeldAfterCorruption()) {
            m_library.reset();
            m_unreadable = state.message;
        } else {
            m_library = m_store.library();
        }
    } else if (!m_store.barIndex().bar(m_bar)) {
        // The bar went away; the window moves on to another.
        m_library = Library::empty();
    } else {
        m_library = m_store.library(m_bar);
        if (!m_library) {
            m_unreadable = "The bar’s file could not be read.";
        }
    }
    if (m_library) {
        std::unordered_set<ShortcutID> groups;
        for (const Shortcut* group : m_library->groups()) {
            groups.insert(group->id);
        }
        std::erase_if(m_expanded, [&](const ShortcutID& id) { return !groups.contains(id); });
        std::unordered_map<ShortcutID, int> nodeOf;
        for (const auto& row : m_library->outline(groups)) {
            Node node;
            node.id = row.id;
            const int at = static_cast<int>(m_nodes.size());
            if (row.parent) {
                node.parent = nodeOf.at(*row.parent);
                node.row =
                    static_cast<int>(m_nodes[static_cast<size_t>(node.parent)].children.size());
                m_nodes[static_cast<size_t>(node.parent)].children.push_back(at);
            } else {
                node.row = static_cast<int>(m_top.size());
                m_top.push_back(at);
            }
            nodeOf.emplace(row.id, at);
            m_nodes.push_back(std::move(node));
        }
    }
    endResetModel();
    Q_EMIT reloaded();
}

void ManagerOutlineModel::mutate(const std::function<void(Library&)>& change)
{
    if (isShowingBar()) {
        m_store.mutate(change);
    } else {
        m_store.mutate(m_bar, change);
    }
}

const ManagerOutlineModel::Node* ManagerOutlineModel::nodeAt(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != this || index.internalId() >= m_nodes.size()) {
        return nullptr;
    }
    return &m_nodes[index.internalId()];
}

QModelIndex ManagerOutlineModel::indexOf(const ShortcutID& id, int column) const
{
    for (size_t i = 0; i < m_nodes.size(); ++i) {
        if (m_nodes[i].id == id) {
            return createIndex(m_nodes[i].row, column, static_cast<quintptr>(i));
        }
    }
    return {};
}

const Shortcut* ManagerOutlineModel::shortcutAt(const QModelIndex& index) const
{
    const Node* node = nodeAt(index);
    return node && m_library ? m_library->shortcut(node->id) : nullptr;
}

void ManagerOutlineModel::setExpanded(const ShortcutID& group, bool expanded)
{
    if (expanded) {
        m_expanded.insert(group);
    } else {
        m_expanded.erase(group);
    }
}

std::vector<Library::OutlineRow> ManagerOutlineModel::visibleRows() const
{
    return m_library ? m_library->outline(m_expanded) : std::vector<Library::OutlineRow>{};
}

bool ManagerOutlineModel::moveTo(const ShortcutID& id,
                                 const Library::OutlineDestination& destination)
{
    if (!m_library) {
        return false;
    }
    Library trial = *m_library;
    if (!trial.move(id, destination) || trial == *m_library) {
        return false;
    }
    mutate([&](Library& library) { library.move(id, destination); });
    return true;
}

bool ManagerOutlineModel::moveBy(const ShortcutID& id, int step)
{
    if (!m_library) {
        return false;
    }
    auto place = placeOf(*m_library, id);
    if (!place) {
        return false;
    }
    const size_t count = place->parent
                             ? m_library->shortcut(*place->parent)->target.members().size()
                             : m_library->shortcuts.size();
    const long to = static_cast<long>(place->index) + step;
    if (to < 0 || to >= static_cast<long>(count)) {
        return false;
    }
    return moveTo(id, {place->parent, static_cast<size_t>(to)});
}

std::optional<ShortcutID> ManagerOutlineModel::duplicate(const ShortcutID& id)
{
    if (!m_library || !m_library->shortcut(id)) {
        return std::nullopt;
    }
    std::optional<ShortcutID> copy;
    mutate([&](Library& library) { copy = library.duplicate(id); });
    return copy;
}

void ManagerOutlineModel::remove(const ShortcutID& id)
{
    if (m_library && m_library->shortcut(id)) {
        mutate([&](Library& library) { library.remove(id); });
    }
}

bool ManagerOutlineModel::moveToBar(const ShortcutID& id, const BarID& bar)
{
    return bar != m_bar && m_library && m_library->shortcut(id) && m_store.move(id, bar);
}

void ManagerOutlineModel::add(Shortcut shortcut, std::optional<ShortcutID> intoGroup)
{
    if (!m_library) {
        return;
    }
    mutate([&](Library& library) {
        if (intoGroup && library.shortcut(*intoGroup)
            && library.shortcut(*intoGroup)->target.isGroup()) {
            library.addMember(shortcut, *intoGroup);
        } else {
            library.add(shortcut);
        }
    });
}

std::optional<std::string> ManagerOutlineModel::removalQuestion(const ShortcutID& id) const
{
    const Shortcut* shortcut = m_library ? m_library->shortcut(id) : nullptr;
    if (!shortcut) {
        return std::nullopt;
    }
    return kit::menubar::ShortcutMenu::removalQuestion(*shortcut);
}

std::optional<std::string> ManagerOutlineModel::roomNote() const
{
    if (!m_library) {
        return std::nullopt;
    }
    return kit::menubar::MenuBarController::roomNote(
        kit::menubar::MenuBarController::shown(*m_library).size());
}

std::vector<const Shortcut*> ManagerOutlineModel::groupsThatCanHold(const ShortcutID& id) const
{
    return m_library ? m_library->groupsThatCanHold(id) : std::vector<const Shortcut*>{};
}

std::optional<Library::OutlineDestination>
ManagerOutlineModel::dropDestination(const ShortcutID& id, int row, const QModelIndex& parent) const
{
    if (!m_library || !m_library->shortcut(id)) {
        return std::nullopt;
    }
    Library::OutlineDestination destination;
    size_t count = m_library->shortcuts.size();
    if (const Node* node = nodeAt(parent)) {
        const Shortcut* group = m_library->shortcut(node->id);
        if (!group || !group->target.isGroup() || m_library->isSelfOrInside(node->id, id)) {
            return std::nullopt;
        }
        destination.parent = node->id;
        count = group->target.members().size();
    }
    destination.index = row < 0 ? count : std::min(static_cast<size_t>(row), count);
    // The view counts rows with the dragged one still in place.
    auto from = placeOf(*m_library, id);
    if (from && from->parent == destination.parent && from->index < destination.index) {
        --destination.index;
    }
    return destination;
}

QModelIndex ManagerOutlineModel::index(int row, int column, const QModelIndex& parent) const
{
    if (row < 0 || column < 0 || column >= ColumnCount) {
        return {};
    }
    const std::vector<int>* list = &m_top;
    if (parent.isValid()) {
        const Node* node = nodeAt(parent);
        if (!node) {
            return {};
        }
        list = &node->children;
    }
    if (static_cast<size_t>(row) >= list->size()) {
        return {};
    }
    return createIndex(row, column, static_cast<quintptr>((*list)[static_cast<size_t>(row)]));
}

QModelIndex ManagerOutlineModel::parent(const QModelIndex& child) const
{
    const Node* node = nodeAt(child);
    if (!node || node->parent < 0) {
        return {};
    }
    const Node& parent = m_nodes[static_cast<size_t>(node->parent)];
    return createIndex(parent.row, 0, static_cast<quintptr>(node->parent));
}

int ManagerOutlineModel::rowCount(const QModelIndex& parent) const
{
    if (!parent.isValid()) {
        return static_cast<int>(m_top.size());
    }
    if (parent.column() != 0) {
        return 0;
    }
    const Node* node = nodeAt(parent);
    return node ? static_cast<int>(node->children.size()) : 0;
}

int ManagerOutlineModel::columnCount(const QModelIndex& /*parent*/) const
{
    return ColumnCount;
}

QVariant ManagerOutlineModel::data(const QModelIndex& index, int role) const
{
    const Shortcut* shortcut = shortcutAt(index);
    if (!shortcut) {
        return {};
    }
    const bool hidden = !shortcut->isInMenuBar && !m_library->parent(shortcut->id);
    switch (role) {
    case Qt::DisplayRole:
        if (index.column() == NameColumn) {
            if (shortcut->name.empty()) {
                return shortcut->target.isDivider() ? QStringLiteral("Divider")
                                                    : QStringLiteral("Untitled");
            }
            return shownText(shortcut->name);
        }
        if (hidden) {
            return QStringLiteral("%1 · %2 · not in the menu bar")
                .arg(kindWord(shortcut->target.kind()), detail(*shortcut));
        }
        return QStringLiteral("%1 · %2").arg(kindWord(shortcut->target.kind()), detail(*shortcut));
    case Qt::EditRole:
        return index.column() == NameColumn ? toQt(shortcut->name) : QVariant();
    case Qt::DecorationRole:
        if (index.column() == NameColumn) {
            if (!m_iconSource || shortcut->target.isDivider()) {
                return kindIcon(shortcut->target.kind());
            }
            auto [at, added] = m_icons.try_emplace(shortcut->id);
            if (added) {
                at->second = m_iconSource(*shortcut);
            }
            return at->second;
        }
        return {};
    case Qt::ToolTipRole:
        return detail(*shortcut);
    case Qt::ForegroundRole:
        if (hidden || index.column() == DetailColumn) {
            return QApplication::palette().brush(QPalette::PlaceholderText);
        }
        return {};
    case Qt::FontRole:
        if (shortcut->name.empty() && index.column() == NameColumn) {
            QFont font = QApplication::font();
            font.setItalic(true);
            return font;
        }
        return {};
    case IdRole:
        return toQt(shortcut->id.string());
    case IsGroupRole:
        return shortcut->target.isGroup();
    default:
        return {};
    }
}

bool ManagerOutlineModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    const Shortcut* shortcut = shortcutAt(index);
    if (!shortcut || role != Qt::EditRole || index.column() != NameColumn) {
        return false;
    }
    const std::string name = value.toString().trimmed().toStdString();
    if (name == shortcut->name) {
        return false;
    }
    const ShortcutID id = shortcut->id;
    mutate([&](Library& library) {
        if (Shortcut* renamed = library.shortcut(id)) {
            renamed->name = name;
        }
    });
    return true;
}

Qt::ItemFlags ManagerOutlineModel::flags(const QModelIndex& index) const
{
    const Shortcut* shortcut = shortcutAt(index);
    if (!shortcut) {
        return m_library ? Qt::ItemIsDropEnabled : Qt::NoItemFlags;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
    if (index.column() == NameColumn) {
        flags |= Qt::ItemIsEditable;
    }
    if (shortcut->target.isGroup()) {
        flags |= Qt::ItemIsDropEnabled;
    }
    return flags;
}

QVariant ManagerOutlineModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return {};
    }
    return section == NameColumn ? QStringLiteral("Name") : QStringLiteral("Opens");
}

Qt::DropActions ManagerOutlineModel::supportedDropActions() const
{
    return Qt::MoveAction;
}

Qt::DropActions ManagerOutlineModel::supportedDragActions() const
{
    return Qt::MoveAction;
}

QStringList ManagerOutlineModel::mimeTypes() const
{
    return {QString::fromLatin1(kMimeType)};
}

QMimeData* ManagerOutlineModel::mimeData(const QModelIndexList& indexes) const
{
    for (const QModelIndex& index : indexes) {
        if (const Shortcut* shortcut = shortcutAt(index)) {
            auto* data = new QMimeData;
            data->setData(QString::fromLatin1(kMimeType),
                          QByteArray::fromStdString(shortcut->id.string()));
            return data;
        }
    }
    return nullptr;
}

std::optional<ShortcutID> ManagerOutlineModel::droppedID(const QMimeData* data) const
{
    if (!data || !data->hasFormat(QString::fromLatin1(kMimeType))) {
        return std::nullopt;
    }
    return ShortcutID::parse(data->data(QString::fromLatin1(kMimeType)).toStdString());
}

bool ManagerOutlineModel::canDropMimeData(const QMimeData* data,
                                          Qt::DropAction action,
                                          int row,
                                          int /*column*/,
                                          const QModelIndex& parent) const
{
    auto id = droppedID(data);
    return action == Qt::MoveAction && id && dropDestination(*id, row, parent).has_value();
}

bool ManagerOutlineModel::dropMimeData(
    const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent)
{
    if (!canDropMimeData(data, action, row, column, parent)) {
        return false;
    }
    const ShortcutID id = *droppedID(data);
    const auto destination = *dropDestination(id, row, parent);
    // A drop into a group opens it, so the moved shortcut stays in sight.
    if (destination.parent) {
        m_expanded.insert(*destination.parent);
    }
    moveTo(id, destination);
    // The store already holds the move: the view must not take the dragged row out as well.
    return false;
}

} // namespace desktop
