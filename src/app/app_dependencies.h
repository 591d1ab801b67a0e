// SPDX-License-Identifier: MIT
#pragma once

#include "app/environment.h"
#include "app/platform.h"
#include "kit/mcp/instance_marker.h"
#include "kit/mcp/tool_socket.h"
#include "kit/menubar/menu_bar_controller.h"
#include "kit/opening/opener.h"
#include "kit/opening/target_factory.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/proposal/root_grant_store.h"
#include "kit/settings/app_settings.h"
#include "kit/settings/key_value_store.h"
#include "kit/storage/library_store.h"
#include "kit/support/atomic_file.h"
#include "kit/support/blocking_work.h"
#include "kit/support/main_queue.h"
#include "kit/tools/icon_provider.h"
#include "kit/tools/installed_apps.h"
#include "kit/tools/tool_service.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace app {

// The composition root: creates every long-lived service once, in order, wires their callbacks
// and owns them for the life of the process. Main thread only.
class AppDependencies
{
public:
    static constexpr const char* kVersion = "0.1.0";
    static constexpr const char* kSettingsFileName = "settings.json";
    // The largest document opened; a proposal is text, far below this.
    static constexpr size_t kDocumentLimit = size_t{64} << 20;
    // The label under which proposals from the tool server appear.
    static constexpr const char* kAssistantSource = "An assistant";
    // What an assistant that asked for progress hears while the person decides.
    static constexpr const char* kStillDeciding =
        "Waiting for the person to review the proposal in Vantorel.";

    // Reads a file from outside of at most the given size; may block for as long as its file
    // system does.
    using ReadFile = std::function<std::variant<std::string, kit::support::ReadError>(
        const std::filesystem::path& file, size_t limit)>;
    // Nothing when the document reached the inbox, else the sentence the person reads.
    using Opened = std::function<void(std::optional<std::string> failure)>;

    struct Options
    {
        Environment environment = Environment::current();
        // Unset: the application's folder, or a fresh temporary one under a test run.
        std::optional<kit::storage::SupportDirectory> supportDirectory;
        // Unset: settings.json in the Vantorel folder of the XDG config home.
        std::optional<std::filesystem::path> settingsFile;
        // Unset: where the bridge looks for it.
        std::optional<std::string> socketPath;
        // Unset: the XDG data folders. Tests give their own, so no real apps or icons are read.
        std::optional<std::vector<std::filesystem::path>> dataFolders;
        // Unset: headless, with no opener, icons or keys.
        std::optional<Platform> platform;
        // Unset: support::readWholeFile. Runs off the main thread.
        ReadFile readFile;
    };

    // What "Add from clipboard" made of the text.
    struct Added
    {
        std::vector<std::string> names;     // the new shortcuts, in order
        std::optional<std::string> failure; // the sentence when nothing could be added
    };

    // How often, and how far apart, the introduction looks for the icon's place.
    static constexpr int kWelcomeTries = 20;
    static constexpr std::chrono::milliseconds kWelcomeRetry{100};

    // Throws std::runtime_error with a sentence when the support folder cannot be made.
    AppDependencies(kit::support::MainQueue& mainQueue, Options options);
    // Flushes and stops as terminate() does.
    ~AppDependencies();
    AppDependencies(const AppDependencies&) = delete;
    AppDependencies& operator=(const AppDependencies&) = delete;

    // Observes the settings the running app acts on, starts the tool socket when assistants are
    // on and, with a platform, installs the application's icon, offers the login item once,
    // shows the showing bar's icons and the introduction once, and registers the global keys;
    // then logs "Vantorel started".
    void start();
    // Writes what is pending and removes the socket file. Safe to call more than once.
    void terminate();

    // Reads a document off the main thread (it may sit on a hung mount), then hands it to the
    // proposal inbox and calls `opened` on the main thread. A document still being read at
    // terminate() is dropped and `opened` never called.
    void openDocument(const std::filesystem::path& file, Opened opened);

    // Each line of the text (a link, a file URL or an absolute path) becomes a shortcut at the
    // end of the showing bar.
    Added addShortcuts(const std::string& text);
    // The application's menu: the bars with the showing one checked, then Settings…, Add from
    // clipboard and Quit.
    kit::menubar::Menu appMenu();
    // The bar before (-1) or after (+1) the showing one becomes the showing one; nothing at the
    // ends.
    void cycleBar(int step);

    // Whether the file is a Vantorel document by its extension, in any case.
    static bool isDocument(const std::filesystem::path& file);

    bool isRunningTests() const { return m_runningTests; }
    bool seededStarterBar() const { return m_seeded; }

    kit::settings::KeyValueStore& settingsStore() { return *m_settingsStore; }
    kit::settings::AppSettings& settings() { return *m_settings; }
    const kit::storage::SupportDirectory& supportDirectory() const { return m_supportDirectory; }
    kit::storage::LibraryStore& libraryStore() { return *m_libraryStore; }
    kit::proposal::ProposalInbox& proposals() { return *m_proposals; }
    kit::proposal::RootGrantStore& grants() { return *m_grants; }
    kit::tools::ToolService& tools() { return *m_tools; }
    kit::mcp::ToolSocket& toolSocket() { return *m_toolSocket; }
    kit::opening::TargetFactory& targetFactory() { return *m_targetFactory; }
    kit::tools::InstalledApps& installedApps() { return *m_installedApps; }
    kit::tools::IconProvider& iconTheme() { return *m_icons; }
    // Present with a platform.
    kit::opening::Opener* opener() { return m_opener.get(); }
    kit::menubar::MenuBarController* menuBar() { return m_menuBar.get(); }
    kit::menubar::StatusItemController* statusItem() { return m_statusItem.get(); }
    // Present with a platform that has keys.
    kit::keys::BarHotKeys* hotKeys() { return m_hotKeys.get(); }
    kit::keys::ModifierWatch* modifierWatch() { return m_modifierWatch.get(); }
    // Present with a platform that sees the wheel.
    kit::keys::BarWheel* barWheel() { return m_barWheel.get(); }

    // Answers for a path: a granted folder's grant, else a bookmark of the place itself when it
    // exists (nothing on this system hides a path from the app).
    std::optional<kit::library::Bookmark> reach(const std::string& path) const;

    static std::optional<std::filesystem::path> defaultSettingsFile(const Environment& environment);

private:
    void makeMenuBar();
    void makeStatusItem();
    // Where icons keep the order they were made in, a rebuilt row would stand right of the
    // application's icon.
    void keepIconRightmost();
    void applyAssistantsSetting();
    void observeKeys();
    void applyWheelSetting();
    void registerKeys();
    void offerLoginItem();
    void showWelcome(int attempt);
    void addFromClipboard();
    // The menu of the given shortcuts under the application's icon, each row opening its one.
    void popShortcuts(const std::vector<kit::library::Shortcut>& shortcuts);

    kit::support::MainQueue& m_mainQueue;
    bool m_runningTests = false;
    bool m_seeded = false;
    bool m_started = false;
    bool m_terminated = false;

    std::unique_ptr<kit::settings::KeyValueStore> m_settingsStore;
    std::unique_ptr<kit::settings::AppSettings> m_settings;
    kit::storage::SupportDirectory m_supportDirectory;
    std::unique_ptr<kit::storage::LibraryStore> m_libraryStore;
    std::unique_ptr<kit::proposal::ProposalInbox> m_proposals;
    std::unique_ptr<kit::proposal::RootGrantStore> m_grants;
    std::shared_ptr<kit::tools::InstalledApps> m_installedApps;
    std::shared_ptr<kit::tools::IconProvider> m_icons;
    std::unique_ptr<kit::tools::ToolService> m_tools;
    std::unique_ptr<kit::mcp::ToolSocket> m_toolSocket;
    // Tells the bridge the app runs even while assistants are off and the socket is gone.
    std::unique_ptr<kit::mcp::InstanceMarker> m_marker;
    size_t m_assistantsObservation = 0;

    std::optional<Platform> m_platform;
    std::unique_ptr<kit::opening::BookmarkResolver> m_bookmarks;
    std::unique_ptr<kit::opening::TargetFactory> m_targetFactory;
    std::unique_ptr<kit::opening::AppleShortcutRunning> m_appleShortcuts;
    std::unique_ptr<kit::opening::Opener> m_opener;
    std::unique_ptr<kit::menubar::MenuBarController> m_menuBar;
    // A shortcut's own menu rows, for its icon and for its submenu in the app menu.
    kit::menubar::MenuBarController::MenuRows m_shortcutRows;
    std::unique_ptr<kit::menubar::StatusItemController> m_statusItem;
    std::unique_ptr<kit::keys::BarHotKeys> m_hotKeys;
    std::unique_ptr<kit::keys::ModifierWatch> m_modifierWatch;
    std::unique_ptr<kit::keys::BarWheel> m_barWheel;
    std::vector<size_t> m_keySettingsObservations;
    std::optional<size_t> m_keyStoreObservation;
    // What the keys were last registered for, so a library change that keeps it registers nothing.
    std::optional<size_t> m_registeredCount;
    std::optional<size_t> m_iconOrderObservation;
    size_t m_iconRebuilds = 0;
    size_t m_saveObservation = 0;
    // Where the application's icon stood at the introduction's last look.
    std::optional<kit::menubar::Rect> m_welcomePlace;
    // Held weakly by delayed tasks, which do nothing once this object is gone.
    std::shared_ptr<AppDependencies*> m_self;
    ReadFile m_readFile;
    // The callbacks of documents still being read, by read.
    std::map<uint64_t, Opened> m_documentsBeingRead;
    uint64_t m_lastDocumentRead = 0;
    // Last, so documents still being read are abandoned before anything they would reach goes.
    std::unique_ptr<kit::support::BlockingWork> m_documentReads;
};

} // namespace app
