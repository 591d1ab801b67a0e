// SPDX-License-Identifier: MIT
#include "app/app_dependencies.h"

#include "app/starter_bar.h"
#include "kit/library/library_json.h"
#include "kit/mcp/tool_protocol.h"
#include "kit/mcp/tool_socket_path.h"
#include "kit/opening/bookmark_resolver.h"
#include "kit/support/log.h"
#include "kit/tools/icon_theme.h"

#include <unistd.h>

#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace app {

using namespace kit;

namespace {

constexpr support::Logger kLog("app");

storage::SupportDirectory supportDirectoryFor(const AppDependencies::Options& options, bool testing)
{
    if (options.supportDirectory) {
        return *options.supportDirectory;
    }
    if (testing) {
        // A folder of its own per test process, so runs never meet the person's files.
        std::filesystem::path folder =
            options.environment.temporaryFolder
            / ("Vantorel-tests-" + std::to_string(options.environment.processID));
        std::error_code error;
        std::filesystem::create_directories(folder, error);
        if (error) {
            throw std::runtime_error("Could not make the test folder " + folder.string() + ": "
                                     + error.message() + ".");
        }
        return storage::SupportDirectory{folder, true};
    }
    std::string error;
    auto directory = storage::SupportDirectory::application("Vantorel", &error);
    if (!directory) {
        throw std::runtime_error(error);
    }
    return *directory;
}

} // namespace

std::optional<std::filesystem::path>
AppDependencies::defaultSettingsFile(const Environment& environment)
{
    auto config = environment.configHome();
    if (!config) {
        return std::nullopt;
    }
    return *config / "Vantorel" / kSettingsFileName;
}

AppDependencies::AppDependencies(support::MainQueue& mainQueue, Options options)
    : m_mainQueue(mainQueue)
    , m_runningTests(options.environment.isRunningTests())
    , m_supportDirectory(supportDirectoryFor(options, m_runningTests))
{
    // Settings: the person's file, except under a test run, where they stay in the test folder.
    std::optional<std::filesystem::path> settingsFile = options.settingsFile;
    if (!settingsFile) {
        settingsFile = m_runningTests ? std::optional(m_supportDirectory.file(kSettingsFileName))
                                      : defaultSettingsFile(options.environment);
    }
    if (settingsFile) {
        m_settingsStore = std::make_unique<settings::JsonFileKeyValueStore>(*settingsFile);
    } else {
        kLog.error("no home folder: settings are kept until Vantorel quits");
        m_settingsStore = std::make_unique<settings::MemoryKeyValueStore>();
    }
    m_settings = std::make_unique<settings::AppSettings>(*m_settingsStore);

    m_proposals = std::make_unique<proposal::ProposalInbox>(
        [this](const std::string& path) { return reach(path); },
        proposal::ProposalInbox::RemoveSession{},
        [this] { return m_grants->byPath(); });
    m_installedApps = std::make_shared<tools::InstalledApps>(options.dataFolders);
    m_icons = std::make_shared<tools::IconThemeScanner>(tools::IconThemeScanner::kDefaultTheme,
                                                        options.dataFolders);

    m_libraryStore = storage::LibraryStore::standard(m_supportDirectory);
    // Only a first launch pays for scanning the installed apps.
    if (!m_runningTests && StarterBar::wouldSeed(*m_libraryStore)) {
        std::optional<library::Bookmark> home;
        if (auto variable = options.environment.variable ? options.environment.variable("HOME")
                                                         : std::nullopt) {
            home = opening::makeInodeBookmark(*variable);
        }
        auto apps = m_installedApps->list();
        if (StarterBar::seed(*m_libraryStore, home, StarterBar::chooseApp(*apps))) {
            m_seeded = true;
            kLog.info("a first launch: the starter shortcuts are on the bar");
            m_settings->setWelcomeShown(false);
            m_settings->setLoginItemOffered(false);
        }
    }

    m_grants = std::make_unique<proposal::RootGrantStore>(
        m_supportDirectory.file(proposal::RootGrantStore::kFileName));

    tools::ToolService::Bindings bindings;
    bindings.browsing = [this] { return m_settings->browsing(); };
    bindings.onProposal = [this](proposal::Proposal proposal,
                                 proposal::ProposalInbox::DecisionCallback onDecision) {
        m_proposals->receive(std::move(proposal), std::move(onDecision), *m_libraryStore);
    };
    bindings.reach = [this](const std::string& path) { return reach(path); };
    bindings.allowsWrites = [this] { return m_settings->assistantWritesEnabled(); };
    bindings.appVersion = kVersion;
    m_tools = std::make_unique<tools::ToolService>(
        *m_libraryStore, m_mainQueue, m_installedApps, m_icons, std::move(bindings));

    std::string socketPath;
    if (options.socketPath) {
        socketPath = *options.socketPath;
    } else if (m_runningTests) {
        socketPath = (options.environment.temporaryFolder / "vantorel-tests.sock").string();
    } else if (auto current = mcp::ToolSocketPath::current()) {
        socketPath = *current;
    } else {
        socketPath = m_supportDirectory.file(mcp::ToolSocketPath::kFileName).string();
    }
    m_toolSocket = std::make_unique<mcp::ToolSocket>(
        socketPath,
        [this](std::string line, mcp::ToolSocket::Completion completion) {
            mcp::ToolProtocol::respond(
                line,
                kVersion,
                [] { return tools::ToolService::descriptions(); },
                [this](const std::string& name,
                       std::optional<std::string> arguments,
                       mcp::ToolProtocol::ToolCompletion done) {
                    m_tools->call(name, arguments, kAssistantSource, std::move(done));
                },
                std::move(completion));
        },
        m_mainQueue);
}

AppDependencies::~AppDependencies()
{
    terminate();
    if (m_assistantsObservation != 0) {
        m_settings->removeObserver(m_assistantsObservation);
    }
}

void AppDependencies::start()
{
    if (m_started || m_runningTests) {
        return;
    }
    m_started = true;
    m_marker = std::make_unique<mcp::InstanceMarker>(
        mcp::InstanceMarker::besideSocket(m_toolSocket->path()));
    if (!m_marker->write(static_cast<pid_t>(::getpid()))) {
        kLog.error("could not write " + m_marker->path()
                   + "; the bridge may say Vantorel is not running");
    }
    m_assistantsObservation = m_settings->observe(settings::AppSettings::Key::AssistantsEnabled,
                                                  [this] { applyAssistantsSetting(); });
    applyAssistantsSetting();
    kLog.info("Vantorel started");
}

void AppDependencies::applyAssistantsSetting()
{
    if (m_terminated) {
        return;
    }
    if (m_settings->assistantsEnabled()) {
        if (!m_toolSocket->isListening() && m_toolSocket->start()) {
            kLog.info("assistants can reach Vantorel at " + m_toolSocket->path());
        }
    } else if (m_toolSocket->isListening()) {
        m_toolSocket->stop();
        kLog.info("assistants are turned off");
    }
}

void AppDependencies::terminate()
{
    if (m_terminated) {
        return;
    }
    m_terminated = true;
    m_libraryStore->flush();
    m_grants->flush();
    if (m_marker) {
        m_marker->remove();
    }
    m_toolSocket->stop();
}

std::optional<library::Bookmark> AppDependencies::reach(const std::string& path) const
{
    if (auto granted = m_grants->reach(path)) {
        return granted;
    }
    return opening::makeInodeBookmark(path);
}

bool AppDependencies::isDocument(const std::filesystem::path& file)
{
    std::string extension = file.extension().string();
    for (char& c : extension) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return extension == std::string(".") + proposal::Proposal::kFileExtension;
}

std::optional<std::string> AppDependencies::openDocument(const std::filesystem::path& file)
{
    const std::string name = file.filename().string();
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::error_code error;
        bool exists = std::filesystem::exists(file, error);
        return "“" + name + "” could not be opened: "
               + (exists ? "Vantorel may not read it." : "there is no such file.");
    }
    std::ostringstream text;
    text << in.rdbuf();
    try {
        proposal::Proposal proposal = proposal::Proposal::decode(text.str());
        m_proposals->receive(std::move(proposal), {}, *m_libraryStore, name);
    } catch (const std::exception& error) {
        std::string reason = error.what();
        if (!reason.empty() && reason.back() == '.') {
            reason.pop_back();
        }
        return "“" + name + "” could not be opened: " + reason + ".";
    }
    return std::nullopt;
}

} // namespace app
