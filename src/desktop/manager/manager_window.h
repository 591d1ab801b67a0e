// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/manager/manager_outline_model.h"
#include "desktop/manager/manager_sessions_model.h"
#include "desktop/manager/manager_sidebar_model.h"
#include "kit/library/library.h"
#include "kit/storage/library_store.h"

#include <QPointer>
#include <QWidget>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class QLabel;
class QListView;
class QListWidget;
class QMenu;
class QPushButton;
class QStackedWidget;
class QToolButton;
class QTreeView;

namespace kit::proposal {
class ProposalInbox;
}

namespace desktop {

class ReviewWindow;

// What the manager window works through. The store and the inbox must outlive the window; every
// function may be empty and leaves its piece out.
struct ManagerServices
{
    ManagerServices(kit::storage::LibraryStore& store, kit::proposal::ProposalInbox& inbox)
        : store(store)
        , inbox(inbox)
    {}

    kit::storage::LibraryStore& store;
    kit::proposal::ProposalInbox& inbox;
    // The settings content shown in the Settings pane, made when the pane is first shown.
    std::function<QWidget*(QWidget* parent)> makeSettings;
    SessionData sessionData;
    // The shortcut editor: on an existing shortcut, and on a new one of a kind.
    std::function<void(const kit::storage::LibraryStore::EditRequest&)> edit;
    std::function<void(const kit::library::BarID&,
                       kit::library::Target::Kind,
                       std::optional<kit::library::ShortcutID> intoGroup)>
        add;
    // Reads a document off the main thread and hands it to the review; then `opened` gets nothing
    // on success, else the sentence shown.
    std::function<void(const std::filesystem::path&,
                       std::function<void(std::optional<std::string> failure)> opened)>
        openDocument;
    std::function<void()> showIntroduction;
    // Each shortcut's own icon in the outline; unset, an icon for its kind.
    ManagerOutlineModel::IconSource shortcutIcon;
    // A yes-or-no question before a change that takes more than the person clicked; true goes
    // ahead. Unset: a message box.
    std::function<bool(const std::string& question, const std::string& action)> confirm;
    // Where to save an export and which document to open; empty when cancelled. Unset: the
    // file dialogs.
    std::function<std::string(QWidget* parent, const std::string& suggested)> chooseSaveFile;
    std::function<std::string(QWidget* parent)> chooseOpenFile;
    // Shows a failure; unset: a message box.
    std::function<void(const std::string& title, const std::string& message)> alert;
    std::string version;
};

// The manager: the bars in a sidebar with one bar's outline beside it, then the sessions, the
// pending proposal, the settings and About. It only carries the person's choices to the store,
// the inbox and the editor, each change one store call. Main thread only.
class ManagerWindow : public QWidget
{
    Q_OBJECT

public:
    using Pane = ManagerSidebarModel::Pane;

    explicit ManagerWindow(ManagerServices services, QWidget* parent = nullptr);
    ~ManagerWindow() override;

    // Shows, raises and activates the window.
    void present();
    void showPane(Pane pane);
    void showBar(const kit::library::BarID& bar);
    // Opens the editor on the shortcut the store's edit request names, on the bar that holds
    // it, and clears the request; false when there was none or the shortcut is gone.
    bool handleEditRequest();

    Pane currentPane() const;
    std::optional<kit::library::BarID> currentBar() const;
    std::optional<kit::library::ShortcutID> selectedShortcut() const;
    void selectShortcut(const kit::library::ShortcutID& id);

    // What the buttons and keys do, for the keyboard and for tests.
    void addShortcut(kit::library::Target::Kind kind);
    void editSelected();
    void duplicateSelected();
    void removeSelected();
    void moveSelected(int step);
    void addBar();
    void removeCurrentBar();
    void showCurrentBarInMenuBar();
    void exportCurrent(bool oneShortcut);
    void importDocument();

    ManagerSidebarModel& sidebar() { return *m_sidebar; }
    ManagerOutlineModel& outline() { return *m_outline; }
    ManagerSessionsModel& sessions() { return *m_sessions; }
    QListView* sidebarView() const { return m_sidebarView; }
    QTreeView* outlineView() const { return m_outlineView; }
    QLabel* roomNote() const { return m_roomNote; }
    QLabel* unreadableMessage() const { return m_unreadableMessage; }
    QLabel* saveErrorBanner() const { return m_saveError; }
    QPushButton* startFreshButton() const { return m_startFresh; }
    ReviewWindow* review() const { return m_review; }
    // Null until the Settings pane was first shown.
    QWidget* settings() const { return m_settings; }

private:
    QWidget* makeSidebar();
    QWidget* makeBarPane();
    QWidget* makeSessionsPane();
    QWidget* makeAboutPane();
    void makeActions();
    QWidget* makeNoticeSites(QWidget* pane);
    void reloadNoticeSites();
    void sidebarChanged();
    void outlineReloaded();
    void updateBarPane();
    void fillMoveMenu();
    void startFresh();
    std::optional<kit::library::ShortcutID>
    groupForNew(const std::optional<kit::library::ShortcutID>& selected) const;
    bool ask(const std::string& question, const std::string& action);
    void tell(const std::string& title, const std::string& message);
    bool eventFilter(QObject* watched, QEvent* event) override;

    ManagerServices m_services;
    std::unique_ptr<ManagerSidebarModel> m_sidebar;
    std::unique_ptr<ManagerOutlineModel> m_outline;
    std::unique_ptr<ManagerSessionsModel> m_sessions;

    QListView* m_sidebarView = nullptr;
    QStackedWidget* m_panes = nullptr;
    QWidget* m_barPane = nullptr;
    QWidget* m_sessionsPane = nullptr;
    QWidget* m_proposalsPane = nullptr;
    QWidget* m_settingsPane = nullptr;
    QWidget* m_aboutPane = nullptr;

    QLabel* m_barTitle = nullptr;
    QLabel* m_barStatus = nullptr;
    QPushButton* m_showBar = nullptr;
    QToolButton* m_addButton = nullptr;
    QMenu* m_addMenu = nullptr;
    QPushButton* m_editButton = nullptr;
    QPushButton* m_duplicateButton = nullptr;
    QPushButton* m_upButton = nullptr;
    QPushButton* m_downButton = nullptr;
    QToolButton* m_moveButton = nullptr;
    QMenu* m_moveMenu = nullptr;
    QPushButton* m_removeButton = nullptr;
    QPushButton* m_exportButton = nullptr;
    QStackedWidget* m_outlineStack = nullptr;
    QTreeView* m_outlineView = nullptr;
    QWidget* m_unreadablePage = nullptr;
    QLabel* m_unreadableMessage = nullptr;
    QPushButton* m_startFresh = nullptr;
    QLabel* m_roomNote = nullptr;
    QLabel* m_saveError = nullptr;

    QListView* m_sessionsView = nullptr;
    QPushButton* m_clearSession = nullptr;
    QListWidget* m_noticeSites = nullptr;
    QPushButton* m_forgetNoticeSite = nullptr;
    std::vector<NotificationAnswer> m_noticeAnswers;
    std::function<void()> m_unwatchNoticeSites;
    QPushButton* m_removeSession = nullptr;
    QPushButton* m_renameSession = nullptr;

    QPointer<ReviewWindow> m_review;
    QPointer<QWidget> m_settings;
    // What the sidebar shows, kept while its model rebuilds.
    Pane m_pane = Pane::Bar;
    std::optional<kit::library::BarID> m_bar;
    // The shortcut to select once the outline rebuilds.
    std::optional<kit::library::ShortcutID> m_reselect;
    size_t m_storeObservation = 0;
};

} // namespace desktop
