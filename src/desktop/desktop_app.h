// SPDX-License-Identifier: MIT
#pragma once

#include "app/app_dependencies.h"
#include "app/instance_channel.h"
#include "desktop/app_menu.h"
#include "desktop/dialogs.h"
#include "desktop/gio_workspace.h"
#include "desktop/login_item.h"
#include "desktop/qt_icon_renderer.h"
#include "desktop/qt_main_queue.h"
#include "desktop/tray_status_bar.h"
#include "desktop/x11_keys.h"

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

class ReviewWindow;
class SettingsWindow;

// The application delegate of the desktop build: makes the Qt adapters, hands them to the
// composition root, answers later starts of Vantorel, shows the review and settings windows when
// asked, and tidies up on quit. Needs a QApplication; GUI thread only.
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
    // Answers one request of a later start (a JSON object line) with one reply line.
    std::string handle(const std::string& request);
    // Hands a document to the review window; a failure is shown and returned as its sentence.
    std::optional<std::string> openDocument(const std::filesystem::path& file);
    void presentSettings();
    void presentReview();
    // Ends the event loop; terminate() follows from aboutToQuit.
    void quit();
    // Writes what is pending, removes the tool socket and gives the instance lock back.
    void terminate();

    // Once started.
    app::AppDependencies& dependencies() { return *m_dependencies; }
    TrayStatusBar& statusBar() { return *m_statusBar; }
    MessageBoxAlerts& alerts() { return m_alerts; }
    const app::InstanceChannel& channel() const { return m_channel; }
    // The windows while they exist.
    SettingsWindow* settingsWindow() const;
    ReviewWindow* reviewWindow() const;
    QWidget* welcomeWindow() const;
    QMessageBox* loginOffer() const;

private:
    void makeDependencies();
    void inboxChanged();
    void listenForSignals();
    bool isIconWindow(kit::keys::WindowRef window) const;
    // Logs how long after the process began the icons were all in place.
    void logIconsShown() const;

    QtMainQueue m_queue;
    QtIconRenderer m_icons;
    std::unique_ptr<TrayStatusBar> m_statusBar;
    GioWorkspace m_workspace;
    MessageBoxAlerts m_alerts;
    NoPopover m_popover;
    QtAppEvents m_appEvents;
    std::optional<XdgLoginItem> m_loginItem;
    X11HotKeys m_hotKeys;
    QtClock m_clock;
    X11ModifierSource m_modifiers;
    QtScrollMonitoring m_scroll;
    app::AppDependencies::Options m_options;
    std::unique_ptr<app::AppDependencies> m_dependencies;
    app::InstanceChannel m_channel;

    QPointer<SettingsWindow> m_settingsWindow;
    QPointer<ReviewWindow> m_reviewWindow;
    QPointer<QWidget> m_welcome;
    QPointer<QMessageBox> m_loginOffer;
    size_t m_inboxObservation = 0;
    // The proposal the review window was last brought up for.
    std::optional<kit::proposal::Proposal> m_presented;
    std::unique_ptr<QSocketNotifier> m_signals;
    int m_signalFD = -1;
    std::function<std::string()> m_bridgePath;
    bool m_terminated = false;
};

} // namespace desktop
