// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"
#include "kit/storage/library_store.h"

#include <QAbstractItemModel>
#include <QIcon>

#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace desktop {

// One bar's shortcuts as a tree for the manager's outline: groups hold their members, drags move
// shortcuts within and into groups, and every change is one store mutation. It follows the store
// and rebuilds after each change, keeping which groups were open. Main thread only; the store
// must outlive the model.
class ManagerOutlineModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Column {
        NameColumn,
        DetailColumn,
        ColumnCount,
    };
    enum Role {
        // QString: the shortcut's id.
        IdRole = Qt::UserRole + 1,
        // bool
        IsGroupRole,
    };
    static constexpr const char* kMimeType = "application/x-vantorel-shortcut-id";

    explicit ManagerOutlineModel(kit::storage::LibraryStore& store, QObject* parent = nullptr);
    ~ManagerOutlineModel() override;

    // The bar shown; the showing bar until set.
    void setBar(const kit::library::BarID& bar);
    const kit::library::BarID& bar() const { return m_bar; }
    bool isShowingBar() const;
    // False when the bar's file cannot be read; `unreadableMessage` then says why.
    bool isReadable() const { return m_library.has_value(); }
    const std::string& unreadableMessage() const { return m_unreadable; }
    const kit::library::Library* library() const { return m_library ? &*m_library : nullptr; }

    QModelIndex indexOf(const kit::library::ShortcutID& id, int column = NameColumn) const;
    const kit::library::Shortcut* shortcutAt(const QModelIndex& index) const;

    // The groups the view shows open, kept across rebuilds.
    void setExpanded(const kit::library::ShortcutID& group, bool expanded);
    const std::unordered_set<kit::library::ShortcutID>& expanded() const { return m_expanded; }
    // The rows as the outline lays them out with the open groups open.
    std::vector<kit::library::Library::OutlineRow> visibleRows() const;

    // Changes, each one mutation of the bar; false when nothing changed.
    bool moveTo(const kit::library::ShortcutID& id,
                const kit::library::Library::OutlineDestination& destination);
    // One place up (-1) or down (+1) in the list that holds it.
    bool moveBy(const kit::library::ShortcutID& id, int step);
    std::optional<kit::library::ShortcutID> duplicate(const kit::library::ShortcutID& id);
    void remove(const kit::library::ShortcutID& id);
    bool moveToBar(const kit::library::ShortcutID& id, const kit::library::BarID& bar);
    // Adds a shortcut made here (a divider) at the end of the bar or of a group.
    void add(kit::library::Shortcut shortcut, std::optional<kit::library::ShortcutID> intoGroup);

    // "Remove “Work” and the 3 shortcuts in it?"; nothing when removing takes nothing else.
    std::optional<std::string> removalQuestion(const kit::library::ShortcutID& id) const;
    // The note under a bar with more icons than a menu bar usually has room for.
    std::optional<std::string> roomNote() const;
    std::vector<const kit::library::Shortcut*>
    groupsThatCanHold(const kit::library::ShortcutID& id) const;
    // Where a drop at `row` under `parent` puts the shortcut, counted after it is taken out;
    // nothing when it would go into itself or into something that is not a group.
    std::optional<kit::library::Library::OutlineDestination>
    dropDestination(const kit::library::ShortcutID& id, int row, const QModelIndex& parent) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant
    headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    Qt::DropActions supportedDropActions() const override;
    Qt::DropActions supportedDragActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data,
                         Qt::DropAction action,
                         int row,
                         int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data,
                      Qt::DropAction action,
                      int row,
                      int column,
                      const QModelIndex& parent) override;

    // Re-reads the bar.
    void reload();
    // Pictures behind the icons changed (a site's icon arrived): they are asked for again.
    void iconsChanged();

    // Draws a shortcut's own icon, as the menu bar shows it; unset, each row shows its kind.
    using IconSource = std::function<QIcon(const kit::library::Shortcut&)>;
    void setIconSource(IconSource source);

Q_SIGNALS:
    // After each rebuild, so the view can open the groups that were open.
    void reloaded();

private:
    struct Node
    {
        kit::library::ShortcutID id;
        int parent = -1; // -1: the top level
        int row = 0;     // among its parent's children
        std::vector<int> children;
    };

    void mutate(const std::function<void(kit::library::Library&)>& change);
    const Node* nodeAt(const QModelIndex& index) const;
    std::optional<kit::library::ShortcutID> droppedID(const QMimeData* data) const;

    kit::storage::LibraryStore& m_store;
    IconSource m_iconSource;
    // Drawn once per reload: the view asks for decorations on every repaint.
    mutable std::unordered_map<kit::library::ShortcutID, QIcon> m_icons;
    kit::library::BarID m_bar;
    std::optional<kit::library::Library> m_library;
    std::string m_unreadable;
    std::vector<Node> m_nodes;
    std::vector<int> m_top;
    std::unordered_set<kit::library::ShortcutID> m_expanded;
    size_t m_observation = 0;
};

} // namespace desktop
