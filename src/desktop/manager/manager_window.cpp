// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_window.h"

#include "desktop/manager/manager_documents.h"
#include "desktop/manager/manager_outline_model.h"
#include "desktop/manager/review_model.h"
#include "desktop/manager/review_window.h"
#include "desktop/qt_text.h"
#include "desktop/window_fit.h"
#include "kit/library/words.h"
#include "kit/proposal/proposal_inbox.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QStackedWidget>
#include <QStyledItemDelegate>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace desktop {

using kit::library::BarID;
using kit::library::Library;
using kit::library::Shortcut;
using kit::library::ShortcutID;
using kit::library::Target;
using kit::storage::LibraryStore;

namespace {

QLabel* heading(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.3);
    label->setFont(font);
    label->setTextFormat(Qt::PlainText);
    return label;
}

QLabel* note(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

// Draws a line above the first fixed pane, so the bars read as one list.
class SidebarDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        size.setHeight(size.height() + 8);
        if (index.data(ManagerSidebarModel::FirstPaneRole).toBool()) {
            size.setHeight(size.height() + 13);
        }
        return size;
    }

    void paint(QPainter* painter,
               const QStyleOptionViewItem& option,
               const QModelIndex& index) const override
    {
        QStyleOptionViewItem item = option;
        if (index.data(ManagerSidebarModel::FirstPaneRole).toBool()) {
            const int y = option.rect.top() + 6;
            painter->save();
            painter->setPen(option.palette.color(QPalette::Mid));
            painter->drawLine(option.rect.left() + 8, y, option.rect.right() - 8, y);
            painter->restore();
            item.rect.adjust(0, 13, 0, 0);
        }
        QStyledItemDelegate::paint(painter, item, index);
    }
};

// A session's detail ("3 links · 12 sites") at the right of its row.
class SessionDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        size.setHeight(size.height() + 8);
        return size;
    }

    void paint(QPainter* painter,
               const QStyleOptionViewItem& option,
               const QModelIndex& index) const override
    {
        QStyledItemDelegate::paint(painter, option, index);
        const QString detail = index.data(ManagerSessionsModel::DetailRole).toString();
        painter->save();
        const bool selected = option.state & QStyle::State_Selected;
        painter->setPen(
            option.palette.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText));
        painter->drawText(
            option.rect.adjusted(0, 0, -10, 0), Qt::AlignRight | Qt::AlignVCenter, detail);
        painter->restore();
    }
};

QAction* addKey(QWidget* owner, const QKeySequence& key, std::function<void()> run)
{
    auto* action = new QAction(owner);
    action->setShortcut(key);
    action->setShortcutContext(Qt::WidgetShortcut);
    QObject::connect(action, &QAction::triggered, owner, std::move(run));
    owner->addAction(action);
    return action;
}

} // namespace

ManagerWindow::ManagerWindow(ManagerServices services, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_services(std::move(services))
    , m_sidebar(std::make_unique<ManagerSidebarModel>(m_services.store, &m_services.inbox))
    , m_outline(std::make_unique<ManagerOutlineModel>(m_services.store))
    , m_sessions(std::make_unique<ManagerSessionsModel>(m_services.store, m_services.sessionData))
{
    setWindowTitle(QStringLiteral("Vantorel"));
    setObjectName(QStringLiteral("manager"));
    if (m_services.shortcutIcon) {
        m_outline->setIconSource(m_services.shortcutIcon);
    }

    m_panes = new QStackedWidget(this);
    m_barPane = makeBarPane();
    m_sessionsPane = makeSessionsPane();
    m_proposalsPane = new QWidget(this);
    m_review = new ReviewWindow(m_services.inbox, m_services.store, m_proposalsPane);
    m_review->setWindowFlags(Qt::Widget);
    if (m_services.shortcutIcon) {
        m_review->model().setIconSource(m_services.shortcutIcon);
    }
    m_review->installEventFilter(this);
    auto* proposalsLayout = new QVBoxLayout(m_proposalsPane);
    proposalsLayout->setContentsMargins(0, 0, 0, 0);
    proposalsLayout->addWidget(m_review);
    m_settingsPane = new QWidget(this);
    auto* settingsLayout = new QVBoxLayout(m_settingsPane);
    settingsLayout->setContentsMargins(0, 0, 0, 0);
    m_aboutPane = makeAboutPane();
    for (QWidget* pane :
         {m_barPane, m_sessionsPane, m_proposalsPane, m_settingsPane, m_aboutPane}) {
        m_panes->addWidget(pane);
    }

    auto* splitter = new QSplitter(this);
    splitter->addWidget(makeSidebar());
    splitter->addWidget(m_panes);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({210, 990});
    splitter->setChildrenCollapsible(false);
    // A change that could not be saved is said once, above everything, until a save succeeds.
    m_saveError = new QLabel(this);
    m_saveError->setObjectName(QStringLiteral("saveError"));
    m_saveError->setTextFormat(Qt::PlainText);
    m_saveError->setWordWrap(true);
    m_saveError->setMargin(8);
    m_saveError->setForegroundRole(QPalette::BrightText);
    m_saveError->setBackgroundRole(QPalette::Highlight);
    m_saveError->setAutoFillBackground(true);
    auto showSaveError = [this] {
        auto error = m_services.store.saveError();
        m_saveError->setText(error ? toQt(*error) : QString());
        m_saveError->setVisible(error.has_value());
    };
    showSaveError();
    m_storeObservation = m_services.store.observe([showSaveError](unsigned changes) {
        if (changes & LibraryStore::SaveStateChanged) {
            showSaveError();
        }
    });
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_saveError);
    layout->addWidget(splitter);

    makeActions();
    setTabOrder(m_sidebarView, m_outlineView);

    m_bar = m_services.store.activeBarID();
    showBar(*m_bar);
    // Wide enough for the settings' two columns beside the sidebar; present() fits it to the
    // screen.
    resize(1200, 660);
}

ManagerWindow::~ManagerWindow()
{
    m_services.store.removeObserver(m_storeObservation);
    if (m_unwatchNoticeSites) {
        m_unwatchNoticeSites();
    }
    // Views let go of their models before the models go.
    m_outlineView->setModel(nullptr);
    m_sidebarView->setModel(nullptr);
    m_sessionsView->setModel(nullptr);
}

QWidget* ManagerWindow::makeSidebar()
{
    auto* sidebar = new QWidget(this);
    m_sidebarView = new QListView(sidebar);
    m_sidebarView->setObjectName(QStringLiteral("sidebar"));
    m_sidebarView->setModel(m_sidebar.get());
    m_sidebarView->setItemDelegate(new SidebarDelegate(m_sidebarView));
    m_sidebarView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_sidebarView->setEditTriggers(QAbstractItemView::EditKeyPressed);
    m_sidebarView->setDragDropMode(QAbstractItemView::InternalMove);
    m_sidebarView->setDefaultDropAction(Qt::MoveAction);
    m_sidebarView->setDropIndicatorShown(true);
    m_sidebarView->setIconSize(QSize(18, 18));
    m_sidebarView->setFrameShape(QFrame::NoFrame);
    m_sidebarView->setAutoFillBackground(true);
    m_sidebarView->setToolTip(QString());

    auto* add = new QPushButton(QStringLiteral("Add Bar"), sidebar);
    add->setToolTip(QStringLiteral("Add a bar (Ctrl+Shift+N)"));
    auto* import = new QPushButton(QStringLiteral("Import…"), sidebar);
    import->setToolTip(QStringLiteral("Open a Vantorel document and review what it adds"));
    connect(add, &QPushButton::clicked, this, &ManagerWindow::addBar);
    connect(import, &QPushButton::clicked, this, &ManagerWindow::importDocument);

    auto* buttons = new QHBoxLayout;
    buttons->setContentsMargins(8, 0, 8, 8);
    buttons->addWidget(add);
    buttons->addWidget(import);
    auto* layout = new QVBoxLayout(sidebar);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_sidebarView, 1);
    layout->addLayout(buttons);

    connect(m_sidebarView->selectionModel(),
            &QItemSelectionModel::currentChanged,
            this,
            &ManagerWindow::sidebarChanged);
    // A rebuilt list keeps what was chosen.
    connect(m_sidebar.get(), &QAbstractItemModel::modelReset, this, [this] {
        if (m_pane == Pane::Bar) {
            const bool known = m_bar && m_sidebar->rowOf(*m_bar) >= 0;
            showBar(known ? *m_bar : m_services.store.activeBarID());
        } else {
            showPane(m_pane);
        }
    });
    connect(m_sidebarView, &QAbstractItemView::activated, this, [this](const QModelIndex& index) {
        if (m_sidebar->barAt(index.row())) {
            showCurrentBarInMenuBar();
        }
    });
    return sidebar;
}

QWidget* ManagerWindow::makeBarPane()
{
    auto* pane = new QWidget(this);
    m_barTitle = heading(QString(), pane);
    m_barStatus = note(QString(), pane);
    m_showBar = new QPushButton(QStringLiteral("Show in Menu Bar"), pane);
    m_showBar->setToolTip(QStringLiteral("Make this the bar whose icons are in the menu bar"));
    connect(m_showBar, &QPushButton::clicked, this, &ManagerWindow::showCurrentBarInMenuBar);

    auto* top = new QHBoxLayout;
    auto* titles = new QVBoxLayout;
    titles->setSpacing(2);
    titles->addWidget(m_barTitle);
    titles->addWidget(m_barStatus);
    top->addLayout(titles, 1);
    top->addWidget(m_showBar, 0, Qt::AlignTop);

    m_addButton = new QToolButton(pane);
    m_addButton->setText(QStringLiteral("Add"));
    m_addButton->setToolTip(QStringLiteral("Add a shortcut (Ctrl+N adds a link)"));
    m_addButton->setPopupMode(QToolButton::InstantPopup);
    m_addButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_addMenu = new QMenu(m_addButton);
    const std::pair<const char*, Target::Kind> kinds[] = {
        {"Link…", Target::Kind::Url},
        {"App…", Target::Kind::App},
        {"File…", Target::Kind::File},
        {"Folder…", Target::Kind::Folder},
        {"Group…", Target::Kind::Group},
        {"Divider", Target::Kind::Divider},
    };
    for (const auto& [title, kind] : kinds) {
        QAction* action = m_addMenu->addAction(QString::fromUtf8(title));
        action->setData(static_cast<int>(kind));
        const Target::Kind chosen = kind;
        connect(action, &QAction::triggered, this, [this, chosen] { addShortcut(chosen); });
    }
    m_addButton->setMenu(m_addMenu);

    m_editButton = new QPushButton(QStringLiteral("Edit…"), pane);
    m_editButton->setToolTip(QStringLiteral("Change the shortcut (Enter)"));
    m_duplicateButton = new QPushButton(QStringLiteral("Duplicate"), pane);
    m_duplicateButton->setToolTip(QStringLiteral("Duplicate (Ctrl+D)"));
    m_upButton = new QPushButton(QStringLiteral("Move Up"), pane);
    m_upButton->setToolTip(QStringLiteral("Move up (Ctrl+Up)"));
    m_downButton = new QPushButton(QStringLiteral("Move Down"), pane);
    m_downButton->setToolTip(QStringLiteral("Move down (Ctrl+Down)"));
    m_moveButton = new QToolButton(pane);
    m_moveButton->setText(QStringLiteral("Move To"));
    m_moveButton->setToolTip(QStringLiteral("Move into a group or onto another bar"));
    m_moveButton->setPopupMode(QToolButton::InstantPopup);
    m_moveMenu = new QMenu(m_moveButton);
    m_moveButton->setMenu(m_moveMenu);
    connect(m_moveMenu, &QMenu::aboutToShow, this, &ManagerWindow::fillMoveMenu);
    m_removeButton = new QPushButton(QStringLiteral("Remove…"), pane);
    m_removeButton->setToolTip(QStringLiteral("Remove the shortcut (Delete)"));
    m_exportButton = new QPushButton(QStringLiteral("Export…"), pane);
    m_exportButton->setToolTip(QStringLiteral("Save the bar as a Vantorel document"));
    auto* exportMenu = new QMenu(m_exportButton);
    connect(exportMenu->addAction(QStringLiteral("Bars…")), &QAction::triggered, this, [this] {
        exportCurrent(false);
    });
    QAction* exportShortcut = exportMenu->addAction(QStringLiteral("This Shortcut…"));
    connect(exportShortcut, &QAction::triggered, this, [this] { exportCurrent(true); });
    connect(exportMenu, &QMenu::aboutToShow, this, [this, exportShortcut] {
        exportShortcut->setEnabled(selectedShortcut().has_value());
    });
    m_exportButton->setMenu(exportMenu);

    connect(m_editButton, &QPushButton::clicked, this, &ManagerWindow::editSelected);
    connect(m_duplicateButton, &QPushButton::clicked, this, &ManagerWindow::duplicateSelected);
    connect(m_upButton, &QPushButton::clicked, this, [this] { moveSelected(-1); });
    connect(m_downButton, &QPushButton::clicked, this, [this] { moveSelected(+1); });
    connect(m_removeButton, &QPushButton::clicked, this, &ManagerWindow::removeSelected);

    auto* tools = new QHBoxLayout;
    tools->setSpacing(6);
    for (QWidget* button : std::initializer_list<QWidget*>{m_addButton,
                                                           m_editButton,
                                                           m_duplicateButton,
                                                           m_upButton,
                                                           m_downButton,
                                                           m_moveButton,
                                                           m_removeButton}) {
        tools->addWidget(button);
    }
    tools->addStretch(1);
    tools->addWidget(m_exportButton);

    m_outlineView = new QTreeView(pane);
    m_outlineView->setObjectName(QStringLiteral("outline"));
    m_outlineView->setModel(m_outline.get());
    m_outlineView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_outlineView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_outlineView->setEditTriggers(QAbstractItemView::EditKeyPressed);
    m_outlineView->setDragDropMode(QAbstractItemView::InternalMove);
    m_outlineView->setDefaultDropAction(Qt::MoveAction);
    m_outlineView->setDropIndicatorShown(true);
    m_outlineView->setAllColumnsShowFocus(true);
    m_outlineView->setUniformRowHeights(true);
    m_outlineView->setIconSize(QSize(18, 18));
    m_outlineView->header()->setStretchLastSection(true);
    m_outlineView->setColumnWidth(ManagerOutlineModel::NameColumn, 240);
    m_outlineView->setExpandsOnDoubleClick(false);
    connect(m_outlineView, &QTreeView::expanded, this, [this](const QModelIndex& index) {
        if (const Shortcut* group = m_outline->shortcutAt(index)) {
            m_outline->setExpanded(group->id, true);
        }
    });
    connect(m_outlineView, &QTreeView::collapsed, this, [this](const QModelIndex& index) {
        if (const Shortcut* group = m_outline->shortcutAt(index)) {
            m_outline->setExpanded(group->id, false);
        }
    });
    connect(m_outlineView, &QAbstractItemView::activated, this, [this] { editSelected(); });
    connect(m_outline.get(), &QAbstractItemModel::modelAboutToBeReset, this, [this] {
        if (!m_reselect) {
            m_reselect = selectedShortcut();
        }
    });
    connect(m_outline.get(), &ManagerOutlineModel::reloaded, this, &ManagerWindow::outlineReloaded);
    connect(m_outlineView->selectionModel(),
            &QItemSelectionModel::currentChanged,
            this,
            &ManagerWindow::updateBarPane);

    m_unreadablePage = new QWidget(pane);
    auto* unreadable = new QVBoxLayout(m_unreadablePage);
    unreadable->addStretch(1);
    auto* unreadableTitle = heading(QStringLiteral("Could not read this bar"), m_unreadablePage);
    unreadableTitle->setAlignment(Qt::AlignHCenter);
    m_unreadableMessage = note(QString(), m_unreadablePage);
    m_unreadableMessage->setAlignment(Qt::AlignHCenter);
    m_unreadableMessage->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* kept =
        note(QStringLiteral("Its file is kept as it is until you start fresh."), m_unreadablePage);
    kept->setAlignment(Qt::AlignHCenter);
    m_startFresh = new QPushButton(QStringLiteral("Start Fresh…"), m_unreadablePage);
    connect(m_startFresh, &QPushButton::clicked, this, &ManagerWindow::startFresh);
    unreadable->addWidget(unreadableTitle);
    unreadable->addWidget(m_unreadableMessage);
    unreadable->addWidget(kept);
    unreadable->addWidget(m_startFresh, 0, Qt::AlignHCenter);
    unreadable->addStretch(2);

    m_outlineStack = new QStackedWidget(pane);
    m_outlineStack->addWidget(m_outlineView);
    m_outlineStack->addWidget(m_unreadablePage);

    m_roomNote = note(QString(), pane);
    m_roomNote->setObjectName(QStringLiteral("roomNote"));
    auto* hint =
        note(QStringLiteral("Drag shortcuts to reorder them or to put them into a group."), pane);

    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(8);
    layout->addLayout(top);
    layout->addLayout(tools);
    layout->addWidget(m_outlineStack, 1);
    layout->addWidget(m_roomNote);
    layout->addWidget(hint);
    return pane;
}

QWidget* ManagerWindow::makeSessionsPane()
{
    auto* pane = new QWidget(this);
    auto* title = heading(toQt(kit::library::words::kAccounts), pane);
    auto* intro = note(
        QStringLiteral("Each account keeps its own sign-ins and site data, so two links to one "
                       "site can be signed in as two people. Links without an account of their "
                       "own use the default one."),
        pane);

    m_sessionsView = new QListView(pane);
    m_sessionsView->setObjectName(QStringLiteral("sessions"));
    m_sessionsView->setModel(m_sessions.get());
    m_sessionsView->setItemDelegate(new SessionDelegate(m_sessionsView));
    m_sessionsView->setEditTriggers(QAbstractItemView::EditKeyPressed
                                    | QAbstractItemView::DoubleClicked);
    m_sessionsView->setSelectionMode(QAbstractItemView::SingleSelection);

    auto* add = new QPushButton(QStringLiteral("Add"), pane);
    m_renameSession = new QPushButton(QStringLiteral("Rename"), pane);
    m_clearSession = new QPushButton(QStringLiteral("Clear Data…"), pane);
    m_clearSession->setToolTip(
        QStringLiteral("Sign out of every site in this account and forget what they stored"));
    m_removeSession = new QPushButton(QStringLiteral("Remove…"), pane);

    const auto current = [this]() -> std::optional<kit::library::SessionID> {
        return m_sessions->sessionAt(m_sessionsView->currentIndex().row());
    };
    connect(add, &QPushButton::clicked, this, [this] {
        if (auto id = m_sessions->addSession()) {
            const QModelIndex row = m_sessions->index(m_sessions->rowOf(*id));
            m_sessionsView->setCurrentIndex(row);
            m_sessionsView->edit(row);
        }
    });
    connect(m_renameSession, &QPushButton::clicked, this, [this] {
        m_sessionsView->edit(m_sessionsView->currentIndex());
    });
    connect(m_clearSession, &QPushButton::clicked, this, [this, current] {
        auto session = current();
        const int row = session ? m_sessions->rowOf(*session) : -1;
        if (row < 0) {
            return;
        }
        const std::string name = m_services.store.sessions()[size_t(row)].name;
        if (ask("Clear what sites stored in “" + name
                    + "”? You are signed out of them; the links stay.",
                "Clear Data")) {
            m_sessions->clearData(*session);
        }
    });
    const auto remove = [this, current] {
        if (auto session = current();
            session && ask(m_sessions->removalQuestion(*session), "Remove")) {
            m_sessions->remove(*session);
        }
    };
    connect(m_removeSession, &QPushButton::clicked, this, remove);
    addKey(m_sessionsView, QKeySequence::Delete, remove);

    const auto update = [this, current] {
        const bool chosen = current().has_value();
        m_renameSession->setEnabled(chosen);
        m_removeSession->setEnabled(chosen);
        m_clearSession->setEnabled(chosen && m_sessions->canClearData());
    };
    connect(m_sessionsView->selectionModel(), &QItemSelectionModel::currentChanged, this, update);
    connect(m_sessions.get(), &QAbstractItemModel::modelReset, this, update);
    update();

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(m_renameSession);
    buttons->addStretch(1);
    buttons->addWidget(m_clearSession);
    buttons->addWidget(m_removeSession);

    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(8);
    layout->addWidget(title);
    layout->addWidget(intro);
    layout->addLayout(buttons);
    layout->addWidget(m_sessionsView, 1);
    if (m_services.sessionData.notificationAnswers) {
        layout->addWidget(makeNoticeSites(pane));
    }
    if (!m_sessions->canCountSites()) {
        layout->addWidget(
            note(QStringLiteral("How many sites each account holds shows once pages open inside "
                                "Vantorel."),
                 pane));
    }
    return pane;
}

QWidget* ManagerWindow::makeNoticeSites(QWidget* pane)
{
    auto* box = new QWidget(pane);
    auto* title = new QLabel(toQt(kit::library::words::kNotifications), box);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    auto* intro = note(QStringLiteral("Sites that asked to show notifications, with your answer. "
                                      "A site you forget asks again."),
                       box);
    m_noticeSites = new QListWidget(box);
    m_noticeSites->setObjectName(QStringLiteral("notificationSites"));
    m_noticeSites->setMaximumHeight(m_noticeSites->fontMetrics().height() * 7);
    m_forgetNoticeSite = new QPushButton(QStringLiteral("Forget Answer"), box);
    m_forgetNoticeSite->setEnabled(false);
    connect(m_noticeSites, &QListWidget::currentRowChanged, this, [this](int row) {
        m_forgetNoticeSite->setEnabled(row >= 0);
    });
    connect(m_forgetNoticeSite, &QPushButton::clicked, this, [this] {
        const int row = m_noticeSites->currentRow();
        if (row >= 0 && static_cast<size_t>(row) < m_noticeAnswers.size()
            && m_services.sessionData.forgetNotificationAnswer) {
            m_services.sessionData.forgetNotificationAnswer(m_noticeAnswers[size_t(row)]);
            reloadNoticeSites();
        }
    });
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->addWidget(title);
    layout->addWidget(intro);
    auto* row = new QHBoxLayout;
    row->addWidget(m_noticeSites, 1);
    row->addWidget(m_forgetNoticeSite, 0, Qt::AlignTop);
    layout->addLayout(row);
    if (m_services.sessionData.watchNotificationAnswers) {
        // A site answered in a page while the pane is open shows at once; a hidden pane reads
        // the answers when it is shown.
        m_unwatchNoticeSites = m_services.sessionData.watchNotificationAnswers([this] {
            if (m_pane == Pane::Sessions && isVisible()) {
                reloadNoticeSites();
            }
        });
    }
    return box;
}

// "mail.example · Work · Allowed": the account by its name, as the list above shows it.
void ManagerWindow::reloadNoticeSites()
{
    if (!m_noticeSites || !m_services.sessionData.notificationAnswers) {
        return;
    }
    // The selected answer stays selected when answers come or go around it.
    const int selected = m_noticeSites->currentRow();
    const std::optional<NotificationAnswer> kept =
        selected >= 0 && static_cast<size_t>(selected) < m_noticeAnswers.size()
            ? std::optional(m_noticeAnswers[size_t(selected)])
            : std::nullopt;
    m_noticeAnswers = m_services.sessionData.notificationAnswers();
    m_noticeSites->clear();
    for (const auto& answer : m_noticeAnswers) {
        std::string account(kit::library::words::kDefaultAccount);
        if (answer.session) {
            account = std::string(kit::library::words::kUnknownAccount);
            for (const auto& session : m_services.store.sessions()) {
                if (session.id == *answer.session) {
                    account = session.name;
                }
            }
        }
        m_noticeSites->addItem(
            shownText(answer.site) + QStringLiteral(" · ") + shownText(account)
            + QStringLiteral(" · ")
            + (answer.allowed ? QStringLiteral("Allowed") : QStringLiteral("Not allowed")));
    }
    if (m_noticeAnswers.empty()) {
        auto* none = new QListWidgetItem(QStringLiteral("No site has asked yet."), m_noticeSites);
        none->setFlags(Qt::NoItemFlags);
    }
    const auto again = kept ? std::find(m_noticeAnswers.begin(), m_noticeAnswers.end(), *kept)
                            : m_noticeAnswers.end();
    if (again != m_noticeAnswers.end()) {
        m_noticeSites->setCurrentRow(static_cast<int>(again - m_noticeAnswers.begin()));
    }
    m_forgetNoticeSite->setEnabled(m_noticeSites->currentRow() >= 0);
}

QWidget* ManagerWindow::makeAboutPane()
{
    auto* pane = new QWidget(this);
    auto* title = heading(QStringLiteral("Vantorel"), pane);
    auto* version = note(QStringLiteral("Version %1").arg(toQt(m_services.version)), pane);
    auto* text = new QLabel(
        QStringLiteral("Vantorel keeps your shortcuts in the menu bar: pages, apps, files, folders "
                       "and groups of them, one bar at a time.\n\n"
                       "Documents (.vantorel files) carry bars and shortcuts to another computer "
                       "or back them up; opening one shows what it would change before anything "
                       "does."),
        pane);
    text->setWordWrap(true);

    auto* introduction = new QPushButton(QStringLiteral("Show the Introduction"), pane);
    introduction->setEnabled(static_cast<bool>(m_services.showIntroduction));
    connect(introduction, &QPushButton::clicked, this, [this] { m_services.showIntroduction(); });
    auto* exportBars = new QPushButton(QStringLiteral("Export Bars…"), pane);
    connect(exportBars, &QPushButton::clicked, this, [this] { exportCurrent(false); });
    auto* import = new QPushButton(QStringLiteral("Import a Document…"), pane);
    connect(import, &QPushButton::clicked, this, &ManagerWindow::importDocument);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(introduction);
    buttons->addWidget(exportBars);
    buttons->addWidget(import);
    buttons->addStretch(1);

    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(16, 14, 16, 14);
    layout->setSpacing(8);
    layout->addWidget(title);
    layout->addWidget(version);
    layout->addWidget(text);
    layout->addLayout(buttons);
    layout->addStretch(1);
    return pane;
}

void ManagerWindow::makeActions()
{
    addKey(m_outlineView, QKeySequence::Delete, [this] { removeSelected(); });
    addKey(m_outlineView, QKeySequence(Qt::CTRL | Qt::Key_D), [this] { duplicateSelected(); });
    addKey(m_outlineView, QKeySequence(Qt::CTRL | Qt::Key_Up), [this] { moveSelected(-1); });
    addKey(m_outlineView, QKeySequence(Qt::CTRL | Qt::Key_Down), [this] { moveSelected(+1); });
    addKey(m_sidebarView, QKeySequence::Delete, [this] { removeCurrentBar(); });
    addKey(m_sidebarView, QKeySequence(Qt::CTRL | Qt::Key_Up), [this] {
        if (m_pane == Pane::Bar && m_bar) {
            m_sidebar->moveBar(*m_bar, -1);
        }
    });
    addKey(m_sidebarView, QKeySequence(Qt::CTRL | Qt::Key_Down), [this] {
        if (m_pane == Pane::Bar && m_bar) {
            m_sidebar->moveBar(*m_bar, +1);
        }
    });

    auto* add = new QAction(this);
    add->setShortcut(QKeySequence::New);
    connect(add, &QAction::triggered, this, [this] {
        if (m_pane == Pane::Bar) {
            addShortcut(Target::Kind::Url);
        } else if (m_pane == Pane::Sessions) {
            m_sessions->addSession();
        }
    });
    addAction(add);
    auto* newBar = new QAction(this);
    newBar->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    connect(newBar, &QAction::triggered, this, &ManagerWindow::addBar);
    addAction(newBar);
    auto* close = new QAction(this);
    close->setShortcut(QKeySequence::Close);
    connect(close, &QAction::triggered, this, &QWidget::close);
    addAction(close);
}

void ManagerWindow::present()
{
    const bool wasHidden = !isVisible();
    if (wasHidden) {
        fitToScreen(*this, size());
    }
    show();
    raise();
    activateWindow();
    // Keys work at once: on a bar, the outline has them.
    if (wasHidden && m_pane == Pane::Bar) {
        m_outlineView->setFocus(Qt::ActiveWindowFocusReason);
    }
}

void ManagerWindow::showPane(Pane pane)
{
    if (pane == Pane::Bar) {
        showBar(m_bar && m_sidebar->rowOf(*m_bar) >= 0 ? *m_bar : m_services.store.activeBarID());
        return;
    }
    m_pane = pane;
    if (pane == Pane::Settings && !m_settings && m_services.makeSettings) {
        m_settings = m_services.makeSettings(m_settingsPane);
        m_settings->setWindowFlags(Qt::Widget);
        m_settingsPane->layout()->addWidget(m_settings);
    }
    switch (pane) {
    case Pane::Sessions:
        m_sessions->startCounting();
        reloadNoticeSites();
        m_panes->setCurrentWidget(m_sessionsPane);
        break;
    case Pane::Proposals:
        m_panes->setCurrentWidget(m_proposalsPane);
        break;
    case Pane::Settings:
        m_panes->setCurrentWidget(m_settingsPane);
        break;
    case Pane::About:
    case Pane::Bar:
        m_panes->setCurrentWidget(m_aboutPane);
        break;
    }
    const QModelIndex row = m_sidebar->index(m_sidebar->rowOf(pane));
    if (m_sidebarView->currentIndex() != row) {
        m_sidebarView->setCurrentIndex(row);
    }
}

void ManagerWindow::showBar(const BarID& bar)
{
    const int row = m_sidebar->rowOf(bar);
    if (row < 0) {
        return;
    }
    m_pane = Pane::Bar;
    if (m_bar != bar || m_outline->bar() != bar) {
        m_bar = bar;
        m_outline->setBar(bar);
    }
    m_panes->setCurrentWidget(m_barPane);
    const QModelIndex index = m_sidebar->index(row);
    if (m_sidebarView->currentIndex() != index) {
        m_sidebarView->setCurrentIndex(index);
    }
    updateBarPane();
}

void ManagerWindow::sidebarChanged()
{
    const int row = m_sidebarView->currentIndex().row();
    if (row < 0) {
        return;
    }
    if (auto bar = m_sidebar->barAt(row)) {
        showBar(*bar);
    } else {
        showPane(m_sidebar->paneAt(row));
    }
}

ManagerWindow::Pane ManagerWindow::currentPane() const
{
    return m_pane;
}

std::optional<BarID> ManagerWindow::currentBar() const
{
    return m_pane == Pane::Bar ? m_bar : std::nullopt;
}

std::optional<ShortcutID> ManagerWindow::selectedShortcut() const
{
    const Shortcut* shortcut = m_outline->shortcutAt(m_outlineView->currentIndex());
    return shortcut ? std::optional<ShortcutID>(shortcut->id) : std::nullopt;
}

void ManagerWindow::selectShortcut(const ShortcutID& id)
{
    const Library* library = m_outline->library();
    if (!library || !library->shortcut(id)) {
        return;
    }
    for (const ShortcutID& group : library->ancestors(id)) {
        m_outlineView->expand(m_outline->indexOf(group));
    }
    const QModelIndex index = m_outline->indexOf(id);
    m_outlineView->setCurrentIndex(index);
    m_outlineView->scrollTo(index);
}

void ManagerWindow::outlineReloaded()
{
    for (const ShortcutID& group : m_outline->expanded()) {
        m_outlineView->expand(m_outline->indexOf(group));
    }
    if (m_reselect) {
        const ShortcutID id = *m_reselect;
        m_reselect.reset();
        selectShortcut(id);
    }
    updateBarPane();
}

void ManagerWindow::updateBarPane()
{
    const bool readable = m_outline->isReadable();
    const BarID bar = m_outline->bar();
    const auto* entry = m_services.store.barIndex().bar(bar);
    m_barTitle->setText(entry ? toQt(entry->name) : QString());
    const bool showing = m_outline->isShowingBar();
    m_barStatus->setText(showing
                             ? QStringLiteral("Showing in the menu bar")
                             : QStringLiteral("Not showing; its icons appear once you show it"));
    m_showBar->setVisible(!showing);
    m_outlineStack->setCurrentWidget(readable ? static_cast<QWidget*>(m_outlineView)
                                              : m_unreadablePage);
    m_unreadableMessage->setText(toQt(m_outline->unreadableMessage()));

    const auto selected = selectedShortcut();
    const bool editable = static_cast<bool>(m_services.edit);
    const Shortcut* shortcut = selected ? m_outline->library()->shortcut(*selected) : nullptr;
    m_addButton->setEnabled(readable);
    for (QAction* action : m_addMenu->actions()) {
        const auto kind = static_cast<Target::Kind>(action->data().toInt());
        action->setEnabled(kind == Target::Kind::Divider || static_cast<bool>(m_services.add));
    }
    m_editButton->setEnabled(shortcut && editable && !shortcut->target.isDivider());
    m_duplicateButton->setEnabled(shortcut != nullptr);
    m_upButton->setEnabled(shortcut != nullptr);
    m_downButton->setEnabled(shortcut != nullptr);
    m_moveButton->setEnabled(shortcut != nullptr);
    m_removeButton->setEnabled(shortcut != nullptr);
    m_exportButton->setEnabled(readable);

    const auto room = m_outline->roomNote();
    m_roomNote->setText(room ? toQt(*room) : QString());
    m_roomNote->setVisible(room.has_value());
}

std::optional<ShortcutID>
ManagerWindow::groupForNew(const std::optional<ShortcutID>& selected) const
{
    const Library* library = m_outline->library();
    if (!selected || !library) {
        return std::nullopt;
    }
    const Shortcut* shortcut = library->shortcut(*selected);
    if (shortcut && shortcut->target.isGroup()) {
        return shortcut->id;
    }
    return library->parent(*selected);
}

void ManagerWindow::addShortcut(Target::Kind kind)
{
    if (m_pane != Pane::Bar || !m_outline->isReadable()) {
        return;
    }
    const auto intoGroup = groupForNew(selectedShortcut());
    if (m_services.add) {
        m_services.add(m_outline->bar(), kind, intoGroup);
        return;
    }
    // A divider has nothing to fill in, so it needs no editor.
    if (kind == Target::Kind::Divider) {
        Shortcut divider = Shortcut::make({}, Target::divider());
        m_reselect = divider.id;
        m_outline->add(std::move(divider), intoGroup);
    }
}

void ManagerWindow::editSelected()
{
    const auto selected = selectedShortcut();
    if (!selected || !m_services.edit) {
        return;
    }
    // The editor works on the showing bar.
    if (!m_outline->isShowingBar()) {
        m_services.store.activate(m_outline->bar());
    }
    m_services.edit(LibraryStore::EditRequest{*selected, {}, {}});
}

void ManagerWindow::duplicateSelected()
{
    if (auto selected = selectedShortcut()) {
        if (auto copy = m_outline->duplicate(*selected)) {
            selectShortcut(*copy);
        }
    }
}

void ManagerWindow::removeSelected()
{
    const auto selected = selectedShortcut();
    const Library* library = m_outline->library();
    const Shortcut* shortcut = selected && library ? library->shortcut(*selected) : nullptr;
    if (!shortcut) {
        return;
    }
    std::string question = m_outline->removalQuestion(*selected).value_or(
        shortcut->name.empty() ? std::string("Remove this ")
                                     + (shortcut->target.isDivider() ? "divider?" : "shortcut?")
                               : "Remove “" + shortcut->name + "”?");
    if (!ask(question, "Remove")) {
        return;
    }
    // The row below takes the removed one's place in the selection.
    const QModelIndex current = m_outlineView->currentIndex();
    const QModelIndex next = current.sibling(current.row() + 1, 0).isValid()
                                 ? current.sibling(current.row() + 1, 0)
                                 : current.sibling(current.row() - 1, 0);
    if (const Shortcut* neighbour = m_outline->shortcutAt(next)) {
        m_reselect = neighbour->id;
    } else if (auto parent = library->parent(*selected)) {
        m_reselect = *parent;
    }
    m_outline->remove(*selected);
}

void ManagerWindow::moveSelected(int step)
{
    if (auto selected = selectedShortcut()) {
        m_reselect = *selected;
        if (!m_outline->moveBy(*selected, step)) {
            m_reselect.reset();
        }
    }
}

void ManagerWindow::fillMoveMenu()
{
    m_moveMenu->clear();
    const auto selected = selectedShortcut();
    const Library* library = m_outline->library();
    if (!selected || !library) {
        return;
    }
    const auto parent = library->parent(*selected);
    m_moveMenu->addSection(QStringLiteral("Into a group"));
    if (parent) {
        QAction* out = m_moveMenu->addAction(QStringLiteral("Out to the bar itself"));
        const ShortcutID id = *selected;
        connect(out, &QAction::triggered, this, [this, id] {
            m_reselect = id;
            m_outline->moveTo(id, {std::nullopt, m_outline->library()->shortcuts.size()});
        });
    }
    for (const Shortcut* group : m_outline->groupsThatCanHold(*selected)) {
        if (parent && *parent == group->id) {
            continue;
        }
        QAction* into = m_moveMenu->addAction(
            toQt(group->name.empty() ? std::string("Untitled group") : group->name));
        const ShortcutID id = *selected;
        const ShortcutID groupID = group->id;
        const size_t end = group->target.members().size();
        connect(into, &QAction::triggered, this, [this, id, groupID, end] {
            m_reselect = id;
            m_outline->moveTo(id, {groupID, end});
        });
    }
    m_moveMenu->addSection(QStringLiteral("Onto another bar"));
    for (const auto& bar : m_services.store.bars()) {
        if (bar.id == m_outline->bar()) {
            continue;
        }
        QAction* onto = m_moveMenu->addAction(toQt(bar.name));
        const ShortcutID id = *selected;
        const BarID to = bar.id;
        connect(onto, &QAction::triggered, this, [this, id, to] {
            if (!m_outline->moveToBar(id, to)) {
                tell("Move",
                     "The shortcut could not be moved; the other bar’s file could not be read.");
            }
        });
    }
}

void ManagerWindow::addBar()
{
    if (auto bar = m_sidebar->addBar()) {
        showBar(*bar);
        m_sidebarView->setFocus();
        m_sidebarView->edit(m_sidebar->index(m_sidebar->rowOf(*bar)));
    }
}

void ManagerWindow::removeCurrentBar()
{
    if (m_pane != Pane::Bar || !m_bar) {
        return;
    }
    const BarID bar = *m_bar;
    const auto* entry = m_services.store.barIndex().bar(bar);
    if (!entry) {
        return;
    }
    // Say why before asking anything.
    if (auto refusal = m_services.store.barRemovalRefusal(bar)) {
        tell("Remove Bar", *refusal);
        return;
    }
    std::string question = "Remove the bar “" + entry->name + "”";
    if (auto library = m_services.store.library(bar)) {
        const size_t count = library->allShortcuts().size();
        if (count > 0) {
            question += count == 1 ? " and its 1 shortcut"
                                   : " and its " + std::to_string(count) + " shortcuts";
        }
    }
    question += "?";
    if (!ask(question, "Remove")) {
        return;
    }
    if (auto refusal = m_sidebar->removeBar(bar)) {
        tell("Remove Bar", *refusal);
    }
}

void ManagerWindow::showCurrentBarInMenuBar()
{
    if (m_bar && m_pane == Pane::Bar && *m_bar != m_services.store.activeBarID()) {
        m_services.store.activate(*m_bar);
    }
}

void ManagerWindow::startFresh()
{
    const BarID bar = m_outline->bar();
    const auto* entry = m_services.store.barIndex().bar(bar);
    const std::string name = entry ? entry->name : std::string();
    if (!ask("Start “" + name
                 + "” fresh? The file that could not be read is replaced by an empty "
                   "bar; what it held is lost.",
             "Start Fresh")) {
        return;
    }
    // Only the showing bar's file can be started fresh.
    if (bar != m_services.store.activeBarID()) {
        m_services.store.activate(bar);
    }
    if (!m_services.store.startFreshAfterCorruption()) {
        tell("Start Fresh", "The bar could be read after all, so nothing was replaced.");
    }
    m_outline->reload();
}

bool ManagerWindow::handleEditRequest()
{
    auto& store = m_services.store;
    const auto request = store.editRequest();
    if (!request) {
        return false;
    }
    store.clearEditRequest();
    std::optional<BarID> holder;
    if (!store.isHeldAfterCorruption() && store.library().shortcut(request->id)) {
        holder = store.activeBarID();
    } else {
        for (const auto& bar : store.bars()) {
            auto library = store.library(bar.id);
            if (library && library->shortcut(request->id)) {
                holder = bar.id;
                break;
            }
        }
    }
    if (!holder) {
        return false;
    }
    if (*holder != store.activeBarID()) {
        store.activate(*holder);
    }
    showBar(*holder);
    selectShortcut(request->id);
    present();
    if (m_services.edit) {
        m_services.edit(*request);
    }
    return true;
}

void ManagerWindow::exportCurrent(bool oneShortcut)
{
    ExportChoice initial;
    const BarID bar = m_bar.value_or(m_services.store.activeBarID());
    initial.bars = {bar};
    if (oneShortcut) {
        initial.shortcut = selectedShortcut();
        if (!initial.shortcut) {
            return;
        }
    }
    ManagerExportDialog dialog(m_services.store, initial, this);
    if (dialog.exec() != QDialog::Accepted) {
        return;
    }
    const ExportChoice choice = dialog.choice();
    auto made = ManagerDocuments::make(m_services.store, choice);
    if (!made.document) {
        tell("Export", made.failure);
        return;
    }
    const std::string suggested = ManagerDocuments::fileName(m_services.store, choice);
    std::string file;
    if (m_services.chooseSaveFile) {
        file = m_services.chooseSaveFile(this, suggested);
    } else {
        file = QFileDialog::getSaveFileName(this,
                                            QStringLiteral("Export"),
                                            QDir::home().filePath(toQt(suggested)),
                                            QStringLiteral("Vantorel documents (*.vantorel)"))
                   .toStdString();
    }
    if (file.empty()) {
        return;
    }
    if (auto failure = ManagerDocuments::write(file, *made.document)) {
        tell("Export", *failure);
    }
}

void ManagerWindow::importDocument()
{
    if (!m_services.openDocument) {
        return;
    }
    std::string file;
    if (m_services.chooseOpenFile) {
        file = m_services.chooseOpenFile(this);
    } else {
        file = QFileDialog::getOpenFileName(this,
                                            QStringLiteral("Import a Document"),
                                            QDir::homePath(),
                                            QStringLiteral("Vantorel documents (*.vantorel)"))
                   .toStdString();
    }
    if (file.empty()) {
        return;
    }
    // The caller says what went wrong; on success the inbox brings the review forward.
    m_services.openDocument(file, [window = QPointer<ManagerWindow>(this)](auto failure) {
        if (window && !failure) {
            window->showPane(Pane::Proposals);
        }
    });
}

bool ManagerWindow::ask(const std::string& question, const std::string& action)
{
    if (m_services.confirm) {
        return m_services.confirm(question, action);
    }
    QMessageBox box(QMessageBox::Question, QStringLiteral("Vantorel"), toQt(question), {}, this);
    QPushButton* yes = box.addButton(toQt(action), QMessageBox::DestructiveRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == yes;
}

void ManagerWindow::tell(const std::string& title, const std::string& message)
{
    if (m_services.alert) {
        m_services.alert(title, message);
        return;
    }
    QMessageBox::warning(this, toQt(title), toQt(message));
}

bool ManagerWindow::eventFilter(QObject* watched, QEvent* event)
{
    // The review closes itself after Apply, Dismiss or Escape; inside the manager it stays and
    // the manager moves on instead.
    if (watched == m_review && event->type() == QEvent::Close) {
        event->ignore();
        if (m_services.inbox.isPending()) {
            close();
        } else {
            showBar(m_services.store.activeBarID());
        }
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace desktop
