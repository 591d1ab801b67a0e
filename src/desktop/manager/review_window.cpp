// SPDX-License-Identifier: MIT
#include "desktop/manager/review_window.h"

#include "desktop/manager/review_model.h"
#include "desktop/window_fit.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/storage/library_store.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace desktop {

namespace {

// Wraps a row's lines to the width of their column, with room between rows and above headings,
// so a long refusal or path reads whole instead of ending in an ellipsis.
class RowDelegate : public QStyledItemDelegate
{
public:
    explicit RowDelegate(QTreeView* view)
        : QStyledItemDelegate(view)
        , m_view(view)
    {}

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        const bool heading = index.data(ReviewModel::HeadingRole).toBool();
        if (!heading) {
            int width = m_view->columnWidth(index.column());
            if (index.column() == ReviewModel::SubjectColumn) {
                width -= m_view->indentation() * (depth(index) + 1) + 24;
            }
            const QString text = index.data().toString();
            const QRect bounds = option.fontMetrics.boundingRect(
                QRect(0, 0, std::max(width - 12, 40), 100000), Qt::TextWordWrap, text);
            size.setHeight(std::max(size.height(), bounds.height()));
        }
        size.setHeight(size.height() + (heading ? 12 : 6));
        return size;
    }

    void paint(QPainter* painter,
               const QStyleOptionViewItem& option,
               const QModelIndex& index) const override
    {
        QStyleOptionViewItem item = option;
        if (index.data(ReviewModel::HeadingRole).toBool()) {
            item.rect.adjust(0, 8, 0, 0);
        } else {
            item.rect.adjust(0, 3, 0, -3);
        }
        QStyledItemDelegate::paint(painter, item, index);
    }

private:
    static int depth(const QModelIndex& index)
    {
        int depth = 0;
        for (QModelIndex up = index.parent(); up.isValid(); up = up.parent()) {
            ++depth;
        }
        return depth;
    }

    QTreeView* m_view;
};

} // namespace

ReviewWindow::ReviewWindow(kit::proposal::ProposalInbox& inbox,
                           kit::storage::LibraryStore& store,
                           QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_inbox(inbox)
    , m_store(store)
    , m_model(std::make_unique<ReviewModel>(inbox, store))
    , m_title(new QLabel(this))
    , m_subtitle(new QLabel(this))
    , m_view(new QTreeView(this))
    , m_summary(new QLabel(this))
{
    setWindowTitle(QStringLiteral("Review proposed changes"));

    QFont titleFont = m_title->font();
    titleFont.setBold(true);
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.3);
    m_title->setFont(titleFont);
    m_title->setWordWrap(true);
    m_title->setTextFormat(Qt::PlainText);

    m_subtitle->setWordWrap(true);
    m_subtitle->setTextFormat(Qt::PlainText);
    m_subtitle->setForegroundRole(QPalette::PlaceholderText);

    m_empty = new QLabel(QStringLiteral("There is no proposal waiting. When an assistant or a "
                                        "document proposes changes to your bars, they show here."),
                         this);
    m_empty->setWordWrap(true);
    m_empty->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    m_empty->setForegroundRole(QPalette::PlaceholderText);

    m_view->setModel(m_model.get());
    m_view->setUniformRowHeights(false);
    m_view->setWordWrap(true);
    m_view->setRootIsDecorated(false);
    m_view->setItemsExpandable(false);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setSelectionMode(QAbstractItemView::SingleSelection);
    m_view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_view->setAllColumnsShowFocus(true);
    m_view->setIndentation(18);
    m_view->header()->setStretchLastSection(true);
    m_view->header()->setSectionResizeMode(ReviewModel::SubjectColumn, QHeaderView::Interactive);
    m_view->setColumnWidth(ReviewModel::SubjectColumn, 280);
    m_view->setItemDelegate(new RowDelegate(m_view));
    // Wrapped rows take new heights when a column changes width.
    connect(m_view->header(), &QHeaderView::sectionResized, m_view, [this] {
        m_view->doItemsLayout();
    });

    m_summary->setWordWrap(true);
    m_summary->setTextFormat(Qt::PlainText);

    m_dismiss = new QPushButton(QStringLiteral("Dismiss"), this);
    m_dismiss->setToolTip(QStringLiteral("Decline the proposal; nothing changes."));
    m_apply = new QPushButton(QStringLiteral("Apply"), this);
    m_apply->setToolTip(QStringLiteral("Write the checked rows to your bars."));
    m_apply->setDefault(true);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_summary, 1);
    buttons->addSpacing(16);
    buttons->addWidget(m_dismiss, 0, Qt::AlignBottom);
    buttons->addWidget(m_apply, 0, Qt::AlignBottom);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(8);
    layout->addWidget(m_title);
    layout->addWidget(m_subtitle);
    layout->addWidget(m_view, 1);
    layout->addWidget(m_empty, 1);
    layout->addLayout(buttons);

    setTabOrder(m_view, m_apply);
    setTabOrder(m_apply, m_dismiss);

    connect(m_apply, &QPushButton::clicked, this, &ReviewWindow::applyProposal);
    connect(m_dismiss, &QPushButton::clicked, this, &ReviewWindow::dismissProposal);
    connect(m_model.get(), &QAbstractItemModel::modelReset, this, &ReviewWindow::rebuild);
    connect(m_model.get(), &ReviewModel::reloaded, this, &ReviewWindow::updateControls);

    resize(820, 560);
    rebuild();
}

ReviewWindow::~ReviewWindow()
{
    // The view lets go of the model before the model goes.
    m_view->setModel(nullptr);
}

void ReviewWindow::present()
{
    if (!isVisible()) {
        fitToScreen(*this, size());
    }
    show();
    raise();
    activateWindow();
    m_view->setFocus(Qt::ActiveWindowFocusReason);
}

void ReviewWindow::rebuild()
{
    const QModelIndex root;
    for (int row = 0; row < m_model->rowCount(root); ++row) {
        m_view->setFirstColumnSpanned(row, root, true);
    }
    m_view->expandAll();
    // The first row with a box, so space toggles it straight away.
    const QModelIndex first = m_model->index(0, 0, m_model->index(0, 0));
    if (first.isValid()) {
        m_view->selectionModel()->setCurrentIndex(first, QItemSelectionModel::NoUpdate);
    }
    updateControls();
}

void ReviewWindow::updateControls()
{
    const bool pending = m_model->isPending();
    m_title->setText(m_model->title());
    const QString origin = m_model->origin();
    m_subtitle->setText(origin);
    m_subtitle->setVisible(!origin.isEmpty());
    m_view->setVisible(pending);
    m_empty->setVisible(!pending);
    m_summary->setText(m_model->summary());
    m_apply->setEnabled(m_model->canApply());
    m_dismiss->setEnabled(pending);
}

void ReviewWindow::applyProposal()
{
    if (!m_model->canApply()) {
        return;
    }
    if (m_inbox.apply(m_store)) {
        close();
    } else {
        // The library changed under the review: the inbox refreshed and the rows say why.
        updateControls();
    }
}

void ReviewWindow::dismissProposal()
{
    if (!m_inbox.isPending()) {
        return;
    }
    m_inbox.dismiss();
    close();
}

void ReviewWindow::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
        // Escape only puts the window away; the proposal keeps waiting.
        close();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (auto* button = qobject_cast<QPushButton*>(focusWidget()); button && button != m_apply) {
            button->click();
        } else {
            applyProposal();
        }
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}

} // namespace desktop
