// SPDX-License-Identifier: MIT
#include "app/app_dependencies.h"

#include "app/starter_bar.h"
#include "kit/keys/number_keys.h"
#include "kit/library/library_json.h"
#include "kit/mcp/tool_protocol.h"
#include "kit/mcp/tool_socket_path.h"
#include "kit/menubar/group_menu.h"
#include "kit/menubar/shortcut_menu.h"
#include "kit/menubar/tray_host.h"
#include "kit/opening/bookmark_resolver.h"
#include "kit/support/atomic_file.h"
#include "kit/support/log.h"
#include "kit/support/visible_text.h"
#include "kit/tools/icon_theme.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <variant>

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
    , m_platform(std::move(options.platform))
    , m_self(std::make_shared<AppDependencies*>(this))
    , m_readFile(options.readFile
                     ? std::move(options.readFile)
                     : [](const std::filesystem::path& file,
                          size_t limit) { return support::readWholeFile(file, limit); })
    , m_documentReads(std::make_unique<support::BlockingWork>(mainQueue))
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

    storage::LibraryStore::Options storeOptions;
    storeOptions.mainQueue = &m_mainQueue;
    m_libraryStore = std::make_unique<storage::LibraryStore>(m_supportDirectory, storeOptions);
    // A change that is only in memory marks Vantorel's own icon until a save succeeds.
    m_saveObservation = m_libraryStore->observe([this](unsigned changes) {
        if ((changes & storage::LibraryStore::SaveStateChanged) && m_statusItem) {
            m_statusItem->setAlert(m_libraryStore->saveError().has_value());
        }
    });
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

    m_bookmarks = std::make_unique<opening::InodeBookmarkResolver>();
    m_targetFactory = std::make_unique<opening::TargetFactory>(*m_bookmarks);
    if (m_platform) {
        m_appleShortcuts = std::make_unique<opening::UnavailableAppleShortcutRunner>();
        m_opener = std::make_unique<opening::Opener>(opening::Opener::Services{
            *m_libraryStore,
            [this] { return m_settings->browsing(); },
            *m_platform->workspace,
            *m_appleShortcuts,
            *m_bookmarks,
            *m_platform->alerts,
            m_mainQueue,
            m_platform->panels,
            m_platform->windows,
        });
    }

    tools::ToolService::Bindings bindings;
    bindings.browsing = [this] { return m_settings->browsing(); };
    bindings.onProposal = [this](proposal::Proposal proposal,
                                 proposal::ProposalInbox::DecisionCallback onDecision) {
        m_proposals->receive(std::move(proposal), std::move(onDecision), *m_libraryStore);
    };
    bindings.withdrawProposal = [this] { m_proposals->withdraw(); };
    bindings.reach = [this](const std::string& path) { return reach(path); };
    bindings.allowsWrites = [this] { return m_settings->assistantWritesEnabled(); };
    bindings.appVersion = kVersion;
    if (m_opener) {
        bindings.openShortcut = [this](const library::Shortcut& shortcut,
                                       const library::BarID& bar) {
            std::optional<opening::Anchor> anchor;
            if (m_menuBar && bar == m_libraryStore->activeBarID()) {
                if (auto button = m_menuBar->button(shortcut.id)) {
                    anchor = opening::Anchor{button->value};
                }
            }
            return !m_opener->open(shortcut, anchor).isFailure();
        };
    }
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
        [this](const std::string& line, const mcp::ToolSocket::Completion& completion) {
            // A call is known by its client and its id, which is how a cancellation names it.
            auto key = [client = completion.client()](const nlohmann::json& id) {
                return std::to_string(client) + " " + id.dump();
            };
            mcp::ToolProtocol::respond(
                line,
                kVersion,
                [] { return tools::ToolService::descriptions(); },
                [this, key, completion](mcp::ToolProtocol::Call call,
                                        mcp::ToolProtocol::ToolCompletion done) {
                    tools::ToolService::Waiting waiting{key(call.id), {}};
                    if (call.progressToken) {
                        waiting.progress = [completion, token = *call.progressToken](
                                               std::chrono::milliseconds waited) {
                            completion.send(mcp::ToolProtocol::progress(
                                token,
                                std::chrono::duration<double>(waited).count(),
                                kStillDeciding));
                        };
                    }
                    if (call.argumentsText) {
                        m_tools->call(call.name,
                                      call.argumentsText,
                                      kAssistantSource,
                                      std::move(done),
                                      std::move(waiting));
                    } else {
                        m_tools->callDecoded(call.name,
                                             std::move(call.arguments),
                                             kAssistantSource,
                                             std::move(done),
                                             std::move(waiting));
                    }
                },
                [this, key](const nlohmann::json& id) { m_tools->withdraw(key(id)); },
                completion,
                &tools::ToolService::readsStrictly);
        },
        m_mainQueue,
        [](std::string_view line) { return mcp::ToolProtocol::isCancellation(line); });

    if (m_platform) {
        makeMenuBar();
    }
}

void AppDependencies::makeMenuBar()
{
    const Platform& platform = *m_platform;
    m_menuBar = std::make_unique<menubar::MenuBarController>(
        *m_libraryStore,
        *platform.statusBar,
        *platform.icons,
        m_mainQueue,
        [this](const library::Shortcut& shortcut, std::optional<menubar::StatusItemHandle> icon) {
            std::optional<opening::Anchor> anchor;
            if (icon) {
                anchor = opening::Anchor{icon->value};
            }
            m_opener->open(shortcut, anchor);
        });
    // "Edit…" only leaves a request in the store; the windows that edit pick it up.
    auto requestEdit = [this](const library::ShortcutID& id) {
        m_libraryStore->requestEdit({id, {}, {}});
    };
    m_menuBar->setOnEdit(requestEdit);
    m_shortcutRows = menubar::ShortcutMenu::provider(
        *m_libraryStore,
        [this] { return m_settings->browsing(); },
        [this](const library::Shortcut& shortcut) { m_opener->open(shortcut); },
        requestEdit,
        platform.confirm);
    m_menuBar->setMenuRows(m_shortcutRows);

    makeStatusItem();

    if (platform.hotKeys && platform.clock && platform.modifiers) {
        m_hotKeys = std::make_unique<keys::BarHotKeys>(*platform.hotKeys, m_mainQueue);
        m_modifierWatch =
            std::make_unique<keys::ModifierWatch>(*platform.modifiers, *platform.clock);
    }
    if (platform.scroll) {
        m_barWheel = std::make_unique<keys::BarWheel>(*platform.scroll);
    }
}

void AppDependencies::makeStatusItem()
{
    const Platform& platform = *m_platform;
    m_statusItem.reset();
    m_statusItem = std::make_unique<menubar::StatusItemController>(
        *platform.statusBar, *platform.popover, *platform.appEvents, m_mainQueue, "Vantorel");
    m_statusItem->setSummary("Vantorel");
    m_statusItem->setAlert(m_libraryStore->saveError().has_value());
    m_statusItem->setOnOpenSettings(platform.showSettings);
    m_statusItem->setOnQuit(platform.quit);
    m_statusItem->setOnDrop([this](const std::vector<std::string>& urls) {
        std::string text;
        for (const auto& url : urls) {
            text += url + "\n";
        }
        Added added = addShortcuts(text);
        if (added.failure) {
            m_platform->alerts->showAlert("Vantorel", *added.failure);
        }
        return !added.names.empty();
    });
    if (m_started) {
        m_statusItem->setMenuProvider([this] { return appMenu(); });
    }
}

void AppDependencies::keepIconRightmost()
{
    // The menu bar rebuilds its row on the main queue after the change; look once it has.
    std::weak_ptr<AppDependencies*> weak = m_self;
    m_mainQueue.post([weak] {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        (*self)->m_mainQueue.post([weak] {
            auto self = weak.lock();
            if (!self || (*self)->m_terminated
                || (*self)->m_menuBar->rebuildCount() == (*self)->m_iconRebuilds) {
                return;
            }
            // New icons went right of the application's icon; it moves back to the end.
            (*self)->m_iconRebuilds = (*self)->m_menuBar->rebuildCount();
            (*self)->makeStatusItem();
            (*self)->m_statusItem->install();
        });
    });
}

AppDependencies::~AppDependencies()
{
    terminate();
    if (m_assistantsObservation != 0) {
        m_settings->removeObserver(m_assistantsObservation);
    }
    for (size_t token : m_keySettingsObservations) {
        m_settings->removeObserver(token);
    }
    if (m_keyStoreObservation) {
        m_libraryStore->removeObserver(*m_keyStoreObservation);
    }
    if (m_iconOrderObservation) {
        m_libraryStore->removeObserver(*m_iconOrderObservation);
    }
    m_libraryStore->removeObserver(m_saveObservation);
    // Delayed tasks that outlive this object find nothing.
    m_self.reset();
}

void AppDependencies::start()
{
    if (m_started || m_runningTests) {
        return;
    }
    m_started = true;
    if (m_statusItem) {
        m_statusItem->setMenuProvider([this] { return appMenu(); });
        observeKeys();
    }
    m_marker = std::make_unique<mcp::InstanceMarker>(
        mcp::InstanceMarker::besideSocket(m_toolSocket->path()));
    if (!m_marker->write(static_cast<pid_t>(::getpid()))) {
        kLog.error("could not write " + m_marker->path()
                   + "; the bridge may say Vantorel is not running");
    }
    m_assistantsObservation = m_settings->observe(settings::AppSettings::Key::AssistantsEnabled,
                                                  [this] { applyAssistantsSetting(); });
    applyAssistantsSetting();
    if (m_statusItem) {
        // The application's icon stands right of the shortcuts: first where new icons go left,
        // last where they keep the order they were made in; hosts that sort go by its name.
        const auto place = m_platform->statusBar->host().newItems;
        const bool iconFirst = place != kit::menubar::NewItemPlace::Rightmost;
        if (iconFirst) {
            m_statusItem->install();
        }
        offerLoginItem();
        m_menuBar->observe();
        if (!iconFirst) {
            m_statusItem->install();
            m_iconRebuilds = m_menuBar->rebuildCount();
            m_iconOrderObservation =
                m_libraryStore->observe([this](unsigned) { keepIconRightmost(); });
        }
        registerKeys();
        if (!m_settings->welcomeShown()) {
            showWelcome(0);
        }
    }
    kLog.info("Vantorel started");
}

void AppDependencies::offerLoginItem()
{
    if (m_settings->loginItemOffered() || !m_platform->loginItem) {
        return;
    }
    m_settings->setLoginItemOffered(true);
    if (m_platform->loginItem->isEnabled() || !m_platform->offerLoginItem) {
        return;
    }
    std::weak_ptr<AppDependencies*> weak = m_self;
    m_platform->offerLoginItem([weak](bool yes) {
        auto self = weak.lock();
        if (self && yes && !(*self)->m_platform->loginItem->enable()) {
            kLog.error("could not add Vantorel to the programs that start at login");
        }
    });
}

void AppDependencies::showWelcome(int attempt)
{
    if (m_settings->welcomeShown() || !m_platform->showWelcome) {
        return;
    }
    auto place = m_platform->statusBar->geometry(*m_statusItem->statusItem());
    // An icon not yet docked reports the origin, and one being docked may still move: a place
    // counts once it is off the origin and the same on two looks in a row.
    if (place && place->x == 0 && place->y == 0) {
        place.reset();
    }
    const bool settled = place && place == m_welcomePlace;
    m_welcomePlace = place;
    if (settled || !m_platform->iconPlacesKnown) {
        m_settings->setWelcomeShown(true);
        m_platform->showWelcome(place);
        return;
    }
    if (attempt + 1 >= kWelcomeTries) {
        kLog.info("the icon has no place on screen yet; the introduction waits for the next start");
        return;
    }
    std::weak_ptr<AppDependencies*> weak = m_self;
    m_mainQueue.postAfter(kWelcomeRetry, [weak, attempt] {
        if (auto self = weak.lock()) {
            (*self)->showWelcome(attempt + 1);
        }
    });
}

void AppDependencies::observeKeys()
{
    if (m_barWheel) {
        m_barWheel->onCycleBar = [this](int step) { cycleBar(step); };
        m_barWheel->isOverIcon = m_platform->isIconWindow;
        m_barWheel->iconFrames = [this] {
            std::vector<keys::ScreenRect> frames;
            for (const auto& frame : m_menuBar->iconFrames()) {
                frames.push_back({frame.x, frame.y, frame.width, frame.height});
            }
            return frames;
        };
        m_keySettingsObservations.push_back(m_settings->observe(
            settings::AppSettings::Key::WheelSwitchesBars, [this] { applyWheelSetting(); }));
        applyWheelSetting();
    }
    if (!m_hotKeys) {
        return;
    }
    m_hotKeys->onItem = [this](int number) { m_menuBar->openNumbered(number); };
    m_hotKeys->onCycleBar = [this](int step) { cycleBar(step); };
    m_hotKeys->onOpenMenu = [this] {
        std::vector<library::Shortcut> shown;
        for (const auto* shortcut : menubar::MenuBarController::shown(m_libraryStore->library())) {
            shown.push_back(*shortcut);
        }
        popShortcuts(shown);
    };
    m_hotKeys->onOpenActiveBar = [this] { popShortcuts(m_libraryStore->library().shortcuts); };
    m_modifierWatch->onChange = [this](std::optional<int> tier) { m_menuBar->reveal(tier); };

    using Key = settings::AppSettings::Key;
    for (Key key :
         {Key::ShortcutKeys, Key::CustomShortcutModifiers, Key::MenuHotKey, Key::ActiveBarHotKey}) {
        m_keySettingsObservations.push_back(m_settings->observe(key, [this] {
            m_registeredCount.reset();
            registerKeys();
        }));
    }
    m_keyStoreObservation = m_libraryStore->observe([this](unsigned) { registerKeys(); });
}

void AppDependencies::applyWheelSetting()
{
    if (m_settings->wheelSwitchesBars() && !m_terminated) {
        m_barWheel->start();
    } else {
        m_barWheel->stop();
    }
}

void AppDependencies::registerKeys()
{
    if (!m_hotKeys || m_terminated) {
        return;
    }
    // Presses count icons when they arrive, so only a change in how many there are matters.
    const size_t count = menubar::MenuBarController::numbered(m_libraryStore->library()).size();
    if (m_registeredCount == count) {
        return;
    }
    m_registeredCount = count;
    const auto numberKeys = keys::NumberKeys::fromSettings(*m_settings);
    m_hotKeys->registerKeys(static_cast<int>(count),
                            numberKeys,
                            m_settings->menuHotKey(),
                            m_settings->activeBarHotKey());
    m_modifierWatch->setKeys(numberKeys);
    if (numberKeys) {
        m_modifierWatch->start();
    } else {
        m_modifierWatch->stop();
    }
}

void AppDependencies::popShortcuts(const std::vector<library::Shortcut>& shortcuts)
{
    auto rows = menubar::GroupMenuBuilder::rows(
        shortcuts,
        [this](const library::Shortcut& shortcut) {
            std::optional<opening::Anchor> anchor;
            if (auto button = m_menuBar->button(shortcut.id)) {
                anchor = opening::Anchor{button->value};
            }
            m_opener->open(shortcut, anchor);
        },
        m_platform->icons);
    m_statusItem->open(menubar::Menu{std::move(rows)});
}

void AppDependencies::cycleBar(int step)
{
    const auto& bars = m_libraryStore->bars();
    const auto active = std::find_if(bars.begin(), bars.end(), [this](const library::Bar& bar) {
        return bar.id == m_libraryStore->activeBarID();
    });
    if (active == bars.end()) {
        return;
    }
    const auto index = static_cast<long>(active - bars.begin()) + step;
    if (index >= 0 && index < static_cast<long>(bars.size())) {
        m_libraryStore->activate(bars[static_cast<size_t>(index)].id);
    }
}

menubar::Menu AppDependencies::appMenu()
{
    using menubar::MenuItem;
    menubar::Menu menu;
    const library::BarID showing = m_libraryStore->activeBarID();
    for (const auto& bar : m_libraryStore->bars()) {
        const library::BarID id = bar.id;
        menu.items.push_back(MenuItem::option(
            bar.name, id == showing, [this, id] { m_libraryStore->activate(id); }));
    }
    menu.items.push_back(MenuItem::separator());
    // Each shortcut's own menu, for hosts where its icon's right click never reaches us.
    if (m_shortcutRows) {
        bool any = false;
        const library::Library& showingLibrary = m_libraryStore->library();
        for (const auto& shortcut : showingLibrary.shortcuts) {
            if (shortcut.target.isDivider() || showingLibrary.parent(shortcut.id)) {
                continue;
            }
            const std::string title = shortcut.name.empty() ? "Untitled" : shortcut.name;
            menu.items.push_back(MenuItem::submenu(title, m_shortcutRows(shortcut)));
            any = true;
        }
        if (any) {
            menu.items.push_back(MenuItem::separator());
        }
    }
    if (m_platform->showManager) {
        menu.items.push_back(MenuItem::command("Manage Bars…", m_platform->showManager));
    }
    menu.items.push_back(MenuItem::command("Settings…", m_platform->showSettings, ","));
    std::function<void()> add;
    if (m_platform->clipboardText) {
        add = [this] { addFromClipboard(); };
    }
    menu.items.push_back(MenuItem::command("Add from clipboard", add));
    menu.items.push_back(MenuItem::separator());
    menu.items.push_back(MenuItem::command("Quit Vantorel", m_platform->quit, "q"));
    return menu;
}

void AppDependencies::addFromClipboard()
{
    Added added = addShortcuts(m_platform->clipboardText());
    if (added.failure) {
        m_platform->alerts->showAlert("Add from clipboard", *added.failure);
    }
}

AppDependencies::Added AppDependencies::addShortcuts(const std::string& text)
{
    Added added;
    std::vector<library::Shortcut> made;
    std::optional<std::string> firstFailure;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto begin = line.find_first_not_of(" \t\r");
        const auto end = line.find_last_not_of(" \t\r");
        // A list of links may carry comment lines.
        if (begin == std::string::npos || line[begin] == '#') {
            continue;
        }
        try {
            auto draft = m_targetFactory->draft(line.substr(begin, end - begin + 1));
            made.push_back(library::Shortcut::make(std::move(draft.name), std::move(draft.target)));
        } catch (const opening::TargetFactory::Failure& failure) {
            if (!firstFailure) {
                firstFailure = failure.what();
            }
        }
    }
    if (made.empty()) {
        added.failure = firstFailure.value_or(
            "The clipboard holds nothing to add; copy a link or a file first.");
        return added;
    }
    if (m_libraryStore->isHeldAfterCorruption()) {
        added.failure = "The showing bar could not be read, so nothing can be added to it.";
        return added;
    }
    m_libraryStore->mutate([&made](library::Library& library) {
        for (auto& shortcut : made) {
            library.add(shortcut);
        }
    });
    for (const auto& shortcut : made) {
        added.names.push_back(shortcut.name);
    }
    return added;
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
    // A read stuck on a hung mount must not hold up quitting.
    m_documentReads.reset();
    m_documentsBeingRead.clear();
    m_libraryStore->flush();
    m_grants->flush();
    if (m_marker) {
        m_marker->remove();
    }
    m_toolSocket->stop();
}

std::optional<library::Bookmark> AppDependencies::reach(const std::string& path) const
{
    return m_grants->reach(path);
}

bool AppDependencies::isDocument(const std::filesystem::path& file)
{
    std::string extension = file.extension().string();
    for (char& c : extension) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return extension == std::string(".") + proposal::Proposal::kFileExtension;
}

namespace {

// What reading and decoding a document came to: a proposal, or the sentence saying why not.
using ReadDocument = std::variant<proposal::Proposal, std::string>;

std::string withoutFullStop(std::string reason)
{
    if (!reason.empty() && reason.back() == '.') {
        reason.pop_back();
    }
    return reason;
}

ReadDocument readDocument(const AppDependencies::ReadFile& readFile,
                          const std::filesystem::path& file,
                          const std::string& name)
{
    // Regular files only and bounded: a pipe or a device named like a document must not hang
    // or swallow the app.
    auto read = readFile(file, AppDependencies::kDocumentLimit);
    if (auto* error = std::get_if<support::ReadError>(&read)) {
        std::string reason = error->message;
        if (error->isMissing()) {
            reason = "there is no such file.";
        } else if (error->code == EACCES) {
            reason = "Vantorel may not read it.";
        } else if (error->code == EFBIG) {
            reason =
                "it is larger than " + support::describeSize(AppDependencies::kDocumentLimit) + ".";
        } else if (error->code == EINVAL) {
            reason = "it is not a regular file.";
        } else if (error->code == EISDIR) {
            reason = "it is a folder.";
        }
        return "“" + name + "” could not be opened: " + reason;
    }
    try {
        return proposal::Proposal::decode(std::get<std::string>(read));
    } catch (const std::exception& error) {
        return "“" + name + "” could not be opened: "
               + support::visibleText(withoutFullStop(error.what())) + ".";
    }
}

} // namespace

void AppDependencies::openDocument(const std::filesystem::path& file, Opened opened)
{
    // The sentence goes to a terminal and into JSON: the name and the reason must be plain text.
    std::string name = support::visibleText(file.filename().string());
    if (!m_documentReads) {
        return;
    }
    // Decoding goes with the reading, so the main thread only takes a finished proposal. The
    // callback stays here: whatever it holds is touched on the main thread only.
    const uint64_t id = ++m_lastDocumentRead;
    auto work = [this, id, readFile = m_readFile, file, name]() -> support::BlockingWork::Then {
        auto document = std::make_shared<ReadDocument>(readDocument(readFile, file, name));
        // Runs on the main thread only while this object is there.
        return [this, id, document, name] {
            auto it = m_documentsBeingRead.find(id);
            if (it == m_documentsBeingRead.end()) {
                return;
            }
            Opened opened = std::move(it->second);
            m_documentsBeingRead.erase(it);
            if (auto* failure = std::get_if<std::string>(document.get())) {
                opened(*failure);
                return;
            }
            try {
                m_proposals->receive(
                    std::get<proposal::Proposal>(std::move(*document)), {}, *m_libraryStore, name);
            } catch (const std::exception& error) {
                opened("“" + name + "” could not be opened: "
                       + support::visibleText(withoutFullStop(error.what())) + ".");
                return;
            }
            opened(std::nullopt);
        };
    };
    m_documentsBeingRead.emplace(id, std::move(opened));
    if (!m_documentReads->start(std::move(work))) {
        Opened refused = std::move(m_documentsBeingRead[id]);
        m_documentsBeingRead.erase(id);
        refused("“" + name
                + "” could not be opened: other documents are still being read; try "
                  "again later.");
    }
}

} // namespace app
