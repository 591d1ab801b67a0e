// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <QAbstractListModel>

#include <optional>
#include <string>

namespace kit::proposal {
class ProposalInbox;
}
namespace kit::storage {
class LibraryStore;
}

namespace desktop {

// The manager's sidebar: every bar in the person's order (renamed in place, reordered by drag or
// by a step, the last one never removed), then the fixed panes. Follows the store and the inbox.
// Main thread only; the store and the inbox must outlive the model.
class ManagerSidebarModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum class Pane {
        Bar,
        Sessions,
        Proposals,
        Settings,
        About,
    };
    enum Role {
        // int: the row's Pane.
        PaneRole = Qt::UserRole + 1,
        // QString: the bar's id, for bar rows.
        BarIDRole,
        // bool: the bar showing in the menu bar.
        ShowingRole,
        // bool: the first row of the fixed panes, drawn with a line above it.
        FirstPaneRole,
    };
    static constexpr const char* kMimeType = "application/x-vantorel-bar-row";
    static constexpr const char* kNewBarName = "New Bar";

    ManagerSidebarModel(kit::storage::LibraryStore& store,
                        kit::proposal::ProposalInbox* inbox,
                        QObject* parent = nullptr);
    ~ManagerSidebarModel() override;

    int barCount() const;
    int rowOf(const kit::library::BarID& bar) const;
    int rowOf(Pane pane) const;
    Pane paneAt(int row) const;
    std::optional<kit::library::BarID> barAt(int row) const;

    // "New Bar", then "New Bar 2" and on, whichever no bar has yet.
    std::optional<kit::library::BarID> addBar();
    // Nothing when removed, else the sentence saying why not.
    std::optional<std::string> removeBar(const kit::library::BarID& bar);
    // One place up (-1) or down (+1); false at the ends.
    bool moveBar(const kit::library::BarID& bar, int step);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    Qt::DropActions supportedDropActions() const override;
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

    void reload();

private:
    kit::storage::LibraryStore& m_store;
    kit::proposal::ProposalInbox* m_inbox;
    size_t m_storeObservation = 0;
    size_t m_inboxObservation = 0;
};

} // namespace desktop
