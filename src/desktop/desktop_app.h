// SPDX-License-Identifier: MIT
#pragma once

#include "app/app_dependencies.h"
#include "app/instance_channel.h"
#include "app/login_item.h"
#include "desktop/dialogs.h"
#include "desktop/gio_workspace.h"
#include "desktop/keys/portal_keys.h"
#include "desktop/keys/x11_keys.h"
#include "desktop/pages/app_pages.h"
#include "desktop/qt_main_queue.h"
#include "desktop/tray/app_menu.h"
#include "desktop/tray/qt_icon_renderer.h"
#include "desktop/tray/site_icons.h"
#include "desktop/tray/sni_status_bar.h"
#include "desktop/tray/tray_status_bar.h"

#include <QObject>
#include <QPointer>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class QMessageBox;
class QSocketNotifier;

namespace desktop {

class ManagerWindow;
namespace editor {
class ShortcutEditor;
}
class ReviewWindow;
class SettingsWindow;

// The application delegate of the desktop build: makes the Qt adapters, hands them to the
// composition root, answers later starts of Vantorel, shows the manager window on the pane
// asked for, and tidies up on quit. Needs a QApplication; GUI thread only.
class DesktopApp final : public QObject
{
public:
    struct Options
    {
        app::AppDependencies::Options dependencies;
        // Where the instance lock and the channel for later starts live.
        std::filesystem::path instanceFolder;
        // Unset: the person's config folder.
        std::optional<std::filesystem::path> configHome;
        // Unset: asked of the session bus.
        std::optional<TrayStatusBar::Host> host;
        // SIGINT and SIGTERM quit the event loop; the caller blocks them in every thread first.
        bool handleSignals = false;
        // Where the bridge program assistants start is, for Settings to show.
        std::function<std::string()> bridgePath;
    };

    explicit DesktopApp(Options options);
    ~DesktopApp() override;
    DesktopApp(const DesktopApp&) = delete;
    DesktopApp& operator=(const DesktopApp&) = delete;

    // Takes the instance lock and listens for later starts; false when another Vantorel runs.
    bool becomePrimary();
    // Creates the composition root over the adapters and runs the start-up sequence, which ends
    // with the log line "Vantorel started". Throws std::runtime_error with a sentence when the
    // support folder cannot be made.
    void start();
    // Answers one request of a later start (a JSON object line) with one reply line, at once or
    // once a document is read.
    void handle(const std::string& request, const app::InstanceChannel::Reply& reply);
    // Reads a document off the main thread and hands it to the review window; a failure is shown
    // and passed to `opened` as its sentence.
    void openDocument(const std::filesystem::path& file,
                      const app::AppDependencies::Opened& opened = {});
    // The manager window on the bar being managed, on Settings, or on the pending proposal.
    void presentManager();
    void presentSettings();
    void presentReview();
    // Ends the event loop; terminate() follows from aboutToQuit.
    void quit();
    // Writes what is pending, removes the tool socket and gives the instance lock back.
    void terminate();

    // Once started.
    app::AppDependencies& dependencies() { return *m_dependencies; }
    TrayStatusBar& statusBar() { return *m_statusBar; }
    // The StatusNotifierItem bar when the host runs a watcher; null where icons are docked.
    SniStatusBar* sniBar() { return m_sniBar.get(); }
    // The bar the icons are in: one of the two above.
    kit::menubar::StatusBar& activeBar();
    MessageBoxAlerts& alerts() { return m_alerts; }
    // Sites' page icons; null until started.
    SiteIcons* siteIcons() { return m_siteIcons.get(); }
    // The in-app pages and each session's website data.
    pages::AppPages& pages() { return m_pages; }
    const app::InstanceChannel& channel() const { return m_channel; }
    // The windows while they exist.
    ManagerWindow* managerWindow() const;
    SettingsWindow* settingsWindow() const;
    ReviewWindow* reviewWindow() const;
    QWidget* welcomeWindow() const;
    QMessageBox* loginOffer() const;

private:
    void makeDependencies();
    void inboxChanged();
    ManagerWindow& manager();
    editor::ShortcutEditor& editor();
    void showIntroduction(std::optional<kit::menubar::Rect> place);
    // Opens the editor on what the store's edit request names, once the event that asked ends.
    void editRequested();
    void listenForSignals();
    bool isIconWindow(kit::keys::WindowRef window) const;
    // Gets the engine ready when the pointer comes to a page's icon.
    void pointerEntered(kit::menubar::StatusItemHandle icon);
    // Sites' page icons: kept ones handed to the renderer, searches started as the library changes.
    void makeSiteIcons();
    // A site's picture changed: everything showing it draws again, once per burst.
    void siteIconChanged();
    // Logs how long after the process began the icons were all in place.
    void logIconsShown() const;

    // First, so it runs beside everything else start-up does.
    DrawingWarmUp m_warmUp;
    QtMainQueue m_queue;
    QtIconRenderer m_icons;
    std::unique_ptr<SniStatusBar> m_sniBar;
    std::unique_ptr<TrayStatusBar> m_statusBar;
    GioWorkspace m_workspace;
    MessageBoxAlerts m_alerts;
    NoPopover m_popover;
    QtAppEvents m_appEvents;
    std::optional<app::XdgLoginItem> m_loginItem;
    X11HotKeys m_hotKeys;
    // The portal's keys where X grabs are impossible (Wayland); made only there.
    std::unique_ptr<PortalHotKeys> m_portalKeys;
    QtClock m_clock;
    X11ModifierSource m_modifiers;
    QtScrollMonitoring m_scroll;
    std::unique_ptr<SiteIcons> m_siteIcons;
    // The library as the site icons last saw it, to tell additions and changed addresses.
    kit::library::Library m_iconLibrary;
    size_t m_iconObservation = 0;
    bool m_iconRedrawPending = false;
    // Before the composition root: its opener and menu bar hold the pages.
    pages::AppPages m_pages;
    app::AppDependencies::Options m_options;
    std::unique_ptr<app::AppDependencies> m_dependencies;
    app::InstanceChannel m_channel;

    QPointer<ManagerWindow> m_manager;
    std::unique_ptr<editor::ShortcutEditor> m_editor;
    QPointer<QWidget> m_welcome;
    QPointer<QMessageBox> m_loginOffer;
    size_t m_inboxObservation = 0;
    size_t m_editObservation = 0;
    size_t m_appearanceObservation = 0;
    // The proposal the review window was last brought up for.
    std::optional<kit::proposal::Proposal> m_presented;
    std::unique_ptr<QSocketNotifier> m_signals;
    int m_signalFD = -1;
    std::function<std::string()> m_bridgePath;
    bool m_terminated = false;
};

} // namespace desktop
