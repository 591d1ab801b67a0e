// SPDX-License-Identifier: MIT
#pragma once

#include "kit/proposal/review_rows.h"

#include <QAbstractItemModel>
#include <QIcon>
#include <QString>

#include <cstddef>
#include <functional>
#include <vector>

namespace kit::proposal {
class ProposalInbox;
}
namespace kit::storage {
class LibraryStore;
}

namespace desktop {

// The pending proposal's rows as a tree: one heading per group (accounts, each bar, bar changes,
// moves) with its rows below, a group's members under the group. Checking a box carries the
// choice to the inbox; the model follows the inbox and re-reviews when the store changes. Main
// thread only; the inbox and the store must outlive it.
class ReviewModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Column {
        SubjectColumn,
        VerdictColumn,
        ColumnCount,
    };
    enum Role {
        // bool: a group heading rather than a row.
        HeadingRole = Qt::UserRole + 1,
        // int: the row's ReviewRow::Tone; nothing for a heading.
        ToneRole,
    };

    ReviewModel(kit::proposal::ProposalInbox& inbox,
                kit::storage::LibraryStore& store,
                QObject* parent = nullptr);
    ~ReviewModel() override;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant
    headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    // The proposal's title, and where it came from (the document's name or the proposer).
    QString title() const;
    QString origin() const;
    // What the checked rows would do, or why nothing would happen.
    QString summary() const;
    // True when Apply would write something.
    bool canApply() const;
    bool isPending() const;

    // The row behind an index; null for a heading.
    const kit::proposal::ReviewRow* rowAt(const QModelIndex& index) const;

    // Re-reads the inbox: the same rows get their boxes updated in place, others rebuild the tree.
    void reload();

    // Draws a proposed shortcut's icon; without one, rows show no icon.
    using IconSource = std::function<QIcon(const kit::library::Shortcut&)>;
    void setIconSource(IconSource source);

Q_SIGNALS:
    // After every reload, so the window can update what lies outside the view.
    void reloaded();

private:
    struct Node
    {
        int parent = -1;  // -1: a top-level heading
        int position = 0; // among its parent's children
        int row = -1;     // index into m_rows; -1 for a heading
        QString heading;
        std::vector<int> children;

        bool operator==(const Node&) const = default;
    };
    struct Tree
    {
        std::vector<Node> nodes;
        std::vector<int> top; // the headings' nodes
    };

    Tree build(const std::vector<kit::proposal::ReviewRow>& rows) const;
    int nodeOf(const QModelIndex& index) const;
    QModelIndex indexOfNode(int node, int column) const;
    bool isChecked(const kit::proposal::ReviewRow& row) const;

    kit::proposal::ProposalInbox& m_inbox;
    kit::storage::LibraryStore& m_store;
    IconSource m_iconSource;
    size_t m_inboxToken = 0;
    size_t m_storeToken = 0;
    bool m_refreshQueued = false;

    std::vector<kit::proposal::ReviewRow> m_rows;
    std::vector<Node> m_nodes;
    std::vector<int> m_top; // the headings' nodes
};

} // namespace desktop
