// SPDX-License-Identifier: MIT
#pragma once

#include "app/environment.h"
#include "kit/mcp/instance_marker.h"
#include "kit/mcp/tool_socket.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/proposal/root_grant_store.h"
#include "kit/settings/app_settings.h"
#include "kit/settings/key_value_store.h"
#include "kit/storage/library_store.h"
#include "kit/support/main_queue.h"
#include "kit/tools/icon_provider.h"
#include "kit/tools/installed_apps.h"
#include "kit/tools/tool_service.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace app {

// The composition root: creates every long-lived service once, in order, wires their callbacks
// and owns them for the life of the process. Main thread only.
class AppDependencies
{
public:
    static constexpr const char* kVersion = "0.1.0";
    static constexpr const char* kSettingsFileName = "settings.json";
    // The label under which proposals from the tool server appear.
    static constexpr const char* kAssistantSource = "An assistant";

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
    };

    // Throws std::runtime_error with a sentence when the support folder cannot be made.
    AppDependencies(kit::support::MainQueue& mainQueue, Options options);
    // Flushes and stops as terminate() does.
    ~AppDependencies();
    AppDependencies(const AppDependencies&) = delete;
    AppDependencies& operator=(const AppDependencies&) = delete;

    // Observes the settings the running app acts on, starts the tool socket when assistants are
    // on, and logs "Vantorel started".
    void start();
    // Writes what is pending and removes the socket file. Safe to call more than once.
    void terminate();

    // Reads a document and hands it to the proposal inbox; nothing on success, else the sentence
    // the person reads.
    std::optional<std::string> openDocument(const std::filesystem::path& file);

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

    // Answers for a path: a granted folder's grant, else a bookmark of the place itself when it
    // exists (nothing on this system hides a path from the app).
    std::optional<kit::library::Bookmark> reach(const std::string& path) const;

    static std::optional<std::filesystem::path> defaultSettingsFile(const Environment& environment);

private:
    void applyAssistantsSetting();

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
};

} // namespace app
