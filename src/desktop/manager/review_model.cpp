// SPDX-License-Identifier: MIT
#include "desktop/manager/review_model.h"

#include "desktop/qt_text.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/storage/library_store.h"
#include "kit/support/visible_text.h"

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QTimer>

#include <algorithm>
#include <optional>
#include <utility>

namespace desktop {

using kit::proposal::BarDestination;
using kit::proposal::BarReview;
using kit::proposal::ReviewRow;

namespace {

// Text a proposal brings, shown as it is: control characters visible, never markup.
QString shown(const std::string& text)
{
    return toQt(kit::support::visibleText(text));
}

QString quoted(const std::string& text)
{
    return QStringLiteral("“%1”").arg(shown(text));
}

// A tooltip is taken as rich text when it looks like markup; escaped, it always reads as written.
QString plainToolTip(const QString& text)
{
    return QStringLiteral("<p style='white-space:pre-wrap'>") + text.toHtmlEscaped()
           + QStringLiteral("</p>");
}

// Equal but for what unchecking changes: the verdict words and the left-out mark.
bool sameButForBoxes(const std::vector<ReviewRow>& a, const std::vector<ReviewRow>& b)
{
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        ReviewRow other = b[i];
        other.verdict = a[i].verdict;
        other.isLeftOut = a[i].isLeftOut;
        if (!(a[i] == other)) {
            return false;
        }
    }
    return true;
}

QString barHeading(const BarReview& bar)
{
    if (bar.refusal) {
        return QStringLiteral("A bar that is not here");
    }
    if (bar.isNew) {
        return QStringLiteral("New bar ") + quoted(bar.name);
    }
    if (bar.destination.kind == BarDestination::Kind::Active) {
        return bar.name.empty()
                   ? QStringLiteral("The showing bar")
                   : QStringLiteral("Bar ") + quoted(bar.name) + QStringLiteral(" (showing)");
    }
    return QStringLiteral("Bar ") + quoted(bar.name);
}

QString heading(const ReviewRow& row, const kit::proposal::ProposalReview& review)
{
    switch (row.kind) {
    case ReviewRow::Kind::Account:
        return QStringLiteral("Accounts");
    case ReviewRow::Kind::Bar:
    case ReviewRow::Kind::Shortcut:
        return barHeading(review.bars[*row.bar]);
    case ReviewRow::Kind::BarRemoval:
    case ReviewRow::Kind::BarRename:
        return QStringLiteral("Bars");
    case ReviewRow::Kind::Move:
        return QStringLiteral("Moves between bars");
    }
    return {};
}

// Rows of one group share a key, so a bar's rows stay together under one heading.
std::pair<int, size_t> groupKey(const ReviewRow& row)
{
    switch (row.kind) {
    case ReviewRow::Kind::Account:
        return {0, 0};
    case ReviewRow::Kind::Bar:
    case ReviewRow::Kind::Shortcut:
        return {1, *row.bar};
    case ReviewRow::Kind::BarRemoval:
    case ReviewRow::Kind::BarRename:
        return {2, 0};
    case ReviewRow::Kind::Move:
        return {3, 0};
    }
    return {4, 0};
}

QString verdictText(const ReviewRow& row)
{
    QString text =
        row.verdict == "needsAccess" ? QStringLiteral("needs access") : toQt(row.verdict);
    for (const auto& detail : row.details) {
        text += QLatin1Char('\n') + toQt(detail);
    }
    return text;
}

QColor toneColour(ReviewRow::Tone tone)
{
    switch (tone) {
    case ReviewRow::Tone::Writes:
        return {};
    case ReviewRow::Tone::Unchanged:
        return QColor(0x6a, 0x6a, 0x6a);
    case ReviewRow::Tone::NeedsAccess:
        return QColor(0x9a, 0x5b, 0x00);
    case ReviewRow::Tone::Refused:
        return QColor(0xb0, 0x1c, 0x1c);
    }
    return {};
}

} // namespace

ReviewModel::ReviewModel(kit::proposal::ProposalInbox& inbox,
                         kit::storage::LibraryStore& store,
                         QObject* parent)
    : QAbstractItemModel(parent)
    , m_inbox(inbox)
    , m_store(store)
{
    m_inboxToken = m_inbox.observe([this] { reload(); });
    // A change to the library can turn a row's verdict; the inbox re-reviews once the change is
    // done, never inside it (applying writes through the store too).
    m_storeToken = m_store.observe([this](unsigned changes) {
        if ((changes & ~unsigned(kit::storage::LibraryStore::EditRequested)) == 0
            || m_refreshQueued) {
            return;
        }
        m_refreshQueued = true;
        QTimer::singleShot(0, this, [this] {
            m_refreshQueued = false;
            if (m_inbox.isPending()) {
                m_inbox.refresh(m_store);
            }
        });
    });
    reload();
}

ReviewModel::~ReviewModel()
{
    m_inbox.removeObserver(m_inboxToken);
    m_store.removeObserver(m_storeToken);
}

void ReviewModel::reload()
{
    const auto& review = m_inbox.review();
    auto rows = review ? kit::proposal::reviewRows(*review, m_inbox.leftOut(), m_store.sessions())
                       : std::vector<ReviewRow>{};
    Tree tree = build(rows);
    if (!m_rows.empty() && sameButForBoxes(rows, m_rows) && tree.nodes == m_nodes) {
        // Only boxes and their verdicts can have changed: keep the view's place and focus.
        m_rows = std::move(rows);
        for (size_t node = 0; node < m_nodes.size(); ++node) {
            if (m_nodes[node].row >= 0) {
                Q_EMIT dataChanged(indexOfNode(int(node), SubjectColumn),
                                   indexOfNode(int(node), VerdictColumn));
            }
        }
    } else {
        beginResetModel();
        m_rows = std::move(rows);
        m_nodes = std::move(tree.nodes);
        m_top = std::move(tree.top);
        endResetModel();
    }
    Q_EMIT reloaded();
}

ReviewModel::Tree ReviewModel::build(const std::vector<ReviewRow>& rows) const
{
    Tree tree;
    const auto& review = m_inbox.review();
    if (!review) {
        return tree;
    }
    std::optional<std::pair<int, size_t>> group;
    std::vector<int> open; // the last row seen at each depth of the current group
    for (size_t i = 0; i < rows.size(); ++i) {
        const ReviewRow& row = rows[i];
        const auto key = groupKey(row);
        if (group != key) {
            group = key;
            open.clear();
            Node head;
            head.position = int(tree.top.size());
            head.heading = heading(row, *review);
            tree.top.push_back(int(tree.nodes.size()));
            tree.nodes.push_back(std::move(head));
        }
        const size_t depth = size_t(std::max(0, row.depth));
        open.resize(std::min(open.size(), depth));
        const int parent = open.size() < depth || open.empty() ? tree.top.back() : open.back();
        Node node;
        node.parent = parent;
        node.row = int(i);
        node.position = int(tree.nodes[size_t(parent)].children.size());
        const int id = int(tree.nodes.size());
        tree.nodes[size_t(parent)].children.push_back(id);
        tree.nodes.push_back(std::move(node));
        open.push_back(id);
    }
    return tree;
}

int ReviewModel::nodeOf(const QModelIndex& index) const
{
    return index.isValid() ? int(index.internalId()) : -1;
}

QModelIndex ReviewModel::indexOfNode(int node, int column) const
{
    return createIndex(m_nodes[size_t(node)].position, column, quintptr(node));
}

QModelIndex ReviewModel::index(int row, int column, const QModelIndex& parent) const
{
    if (row < 0 || column < 0 || column >= ColumnCount) {
        return {};
    }
    const int node = nodeOf(parent);
    const auto& children = node < 0 ? m_top : m_nodes[size_t(node)].children;
    if (size_t(row) >= children.size()) {
        return {};
    }
    return indexOfNode(children[size_t(row)], column);
}

QModelIndex ReviewModel::parent(const QModelIndex& child) const
{
    const int node = nodeOf(child);
    if (node < 0 || m_nodes[size_t(node)].parent < 0) {
        return {};
    }
    return indexOfNode(m_nodes[size_t(node)].parent, SubjectColumn);
}

int ReviewModel::rowCount(const QModelIndex& parent) const
{
    if (parent.column() > 0) {
        return 0;
    }
    const int node = nodeOf(parent);
    return int(node < 0 ? m_top.size() : m_nodes[size_t(node)].children.size());
}

int ReviewModel::columnCount(const QModelIndex&) const
{
    return ColumnCount;
}

const ReviewRow* ReviewModel::rowAt(const QModelIndex& index) const
{
    const int node = nodeOf(index);
    if (node < 0 || m_nodes[size_t(node)].row < 0) {
        return nullptr;
    }
    return &m_rows[size_t(m_nodes[size_t(node)].row)];
}

bool ReviewModel::isChecked(const ReviewRow& row) const
{
    return row.entry && !row.isLeftOut;
}

void ReviewModel::setIconSource(IconSource source)
{
    m_iconSource = std::move(source);
}

QVariant ReviewModel::data(const QModelIndex& index, int role) const
{
    const int node = nodeOf(index);
    if (node < 0) {
        return {};
    }
    const ReviewRow* row = rowAt(index);
    if (!row) {
        switch (role) {
        case Qt::DisplayRole:
            return index.column() == SubjectColumn ? m_nodes[size_t(node)].heading : QString();
        case Qt::FontRole: {
            QFont font;
            font.setBold(true);
            return font;
        }
        case HeadingRole:
            return true;
        default:
            return {};
        }
    }
    switch (role) {
    case Qt::DisplayRole:
        if (index.column() == SubjectColumn) {
            return row->kind == ReviewRow::Kind::Bar ? QStringLiteral("Everything for this bar")
                                                     : toQt(row->subject);
        }
        return verdictText(*row);
    case Qt::ToolTipRole:
        return plainToolTip(verdictText(*row));
    case Qt::DecorationRole:
        // The icon as the bar would draw it, so a proposed picture is seen before it is there.
        if (index.column() == SubjectColumn && row->shortcut && m_iconSource) {
            return QVariant::fromValue(m_iconSource(*row->shortcut));
        }
        return {};
    case Qt::CheckStateRole:
        if (index.column() == SubjectColumn && row->entry) {
            return isChecked(*row) ? Qt::Checked : Qt::Unchecked;
        }
        return {};
    case Qt::ForegroundRole:
        if (index.column() == VerdictColumn || row->tone == ReviewRow::Tone::Refused) {
            const QColor colour = toneColour(row->tone);
            return colour.isValid() ? QVariant(QBrush(colour)) : QVariant();
        }
        return {};
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(Qt::Alignment(Qt::AlignLeft | Qt::AlignTop));
    case HeadingRole:
        return false;
    case ToneRole:
        return int(row->tone);
    default:
        return {};
    }
}

bool ReviewModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    const ReviewRow* row = rowAt(index);
    if (role != Qt::CheckStateRole || !row || !row->entry || index.column() != SubjectColumn) {
        return false;
    }
    const bool checked = value.toInt() == Qt::Checked;
    // The inbox announces the change, and reload() updates the box.
    m_inbox.setLeftOut(*row->entry, !checked, m_store);
    return true;
}

Qt::ItemFlags ReviewModel::flags(const QModelIndex& index) const
{
    const ReviewRow* row = rowAt(index);
    if (!row) {
        return index.isValid() ? Qt::ItemIsEnabled : Qt::NoItemFlags;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (row->entry && index.column() == SubjectColumn) {
        flags |= Qt::ItemIsUserCheckable;
    }
    return flags;
}

QVariant ReviewModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return {};
    }
    return section == SubjectColumn ? QStringLiteral("Proposed") : QStringLiteral("What happens");
}

QString ReviewModel::title() const
{
    const auto& proposal = m_inbox.proposal();
    if (!proposal) {
        return QStringLiteral("Nothing to review");
    }
    return proposal->title ? shown(*proposal->title) : QStringLiteral("Proposed changes");
}

QString ReviewModel::origin() const
{
    const auto& proposal = m_inbox.proposal();
    if (!proposal) {
        return {};
    }
    if (m_inbox.fileName()) {
        return QStringLiteral("From the document ") + quoted(*m_inbox.fileName());
    }
    if (proposal->source) {
        return QStringLiteral("From ") + shown(*proposal->source);
    }
    return {};
}

QString ReviewModel::summary() const
{
    const auto& review = m_inbox.review();
    if (!review) {
        // Why the review closed without the person, when it did.
        const auto& notice = m_inbox.notice();
        return notice ? QString::fromStdString(*notice) : QString();
    }
    const auto& applying = m_inbox.applying() ? *m_inbox.applying() : *review;
    if (!applying.hasWork() && review->hasWork()) {
        return QString::fromUtf8(kit::proposal::kNothingChecked);
    }
    return toQt(kit::proposal::summarySentence(applying));
}

bool ReviewModel::canApply() const
{
    return m_inbox.applying() && m_inbox.applying()->hasWork();
}

bool ReviewModel::isPending() const
{
    return m_inbox.isPending();
}

} // namespace desktop
