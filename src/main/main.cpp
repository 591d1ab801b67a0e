// SPDX-License-Identifier: MIT
// The vantorel executable: the menu-bar app (in a build with Qt), the headless app, the settings
// command, handing documents and links to the running app, and a summary of the library.
#include "app/app_dependencies.h"
#include "app/instance_channel.h"
#include "app/terminal_review.h"
#include "kit/library/web_address.h"
#include "kit/mcp/assistant_setup.h"
#include "kit/mcp/tool_socket_path.h"
#include "kit/support/memory.h"
#include "kit/support/run_loop.h"

#ifdef VANTOREL_HAS_DESKTOP
#include "desktop/desktop_app.h"

#include <QApplication>
#include <QIcon>
#endif

#include <nlohmann/json.hpp>

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace kit::library;
using namespace kit::storage;
using nlohmann::json;

#ifdef VANTOREL_HAS_DESKTOP
// The resources of a static library are registered by name, from the global namespace.
static void registerIcons()
{
    Q_INIT_RESOURCE(icons);
}
#endif

namespace {

constexpr const char* kUsage =
    "Usage:\n"
#ifdef VANTOREL_HAS_DESKTOP
    "  vantorel                      start Vantorel in the menu bar, or show the running one's\n"
    "                                manager window\n"
    "  vantorel vantorel:LINK        show the manager window\n"
#else
    "  vantorel                      tell what your library holds\n"
#endif
    "  vantorel --headless           run without a display: serve assistants, review proposals\n"
    "                                in this terminal\n"
    "  vantorel FILE.vantorel        review a document in the running Vantorel (or start one)\n"
    "  vantorel settings             list every setting with its value\n"
    "  vantorel settings get KEY     print one setting\n"
    "  vantorel settings set KEY VALUE\n"
    "  vantorel assistants           how to connect an assistant to Vantorel\n"
    "                                change one setting; a running Vantorel follows at once\n"
    "  vantorel bars                 tell what your library holds\n"
    "  vantorel --help | --version\n";

std::string plural(size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

void printLine(const std::string& text)
{
    // Written whole, by size: a NUL inside must not end the line early.
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (!text.empty() && text.back() != '\n') {
        std::fputc('\n', stdout);
    }
    std::fflush(stdout);
}

int fail(const std::string& sentence, int code = 1)
{
    std::fprintf(stderr, "vantorel: %s\n", sentence.c_str());
    return code;
}

// Where the running app keeps its lock and listens for later starts: beside the tool socket.
std::filesystem::path instanceFolder()
{
    if (auto socket = kit::mcp::ToolSocketPath::current()) {
        return std::filesystem::path(*socket).parent_path();
    }
    return std::filesystem::temp_directory_path();
}

// Sends one request to the running app; its reply object, or nothing when none runs.
std::optional<json> askRunning(const json& request)
{
    // A path need not be UTF-8; a request that cannot be encoded must still be sent.
    auto reply = app::InstanceChannel::send(
        instanceFolder(), request.dump(-1, ' ', false, json::error_handler_t::replace));
    if (!reply) {
        return std::nullopt;
    }
    return json::parse(*reply, nullptr, false);
}

int summary()
{
    std::string error;
    auto directory = SupportDirectory::application("Vantorel", &error);
    if (!directory) {
        return fail(error);
    }
    LibraryStore store(*directory);
    std::printf("Vantorel library in %s\n", directory->url.c_str());
    std::printf("%s, %s.\n",
                plural(store.bars().size(), "bar", "bars").c_str(),
                plural(store.sessions().size(), "session", "sessions").c_str());
    for (const auto& bar : store.bars()) {
        bool showing = bar.id == store.activeBarID();
        auto library = store.library(bar.id);
        std::string contents = library
                                   ? plural(library->allShortcuts().size(), "shortcut", "shortcuts")
                                   : std::string("could not be read");
        std::printf("  %s “%s”: %s\n", showing ? "*" : " ", bar.name.c_str(), contents.c_str());
    }
    if (store.loadState().kind == LibraryStore::LoadState::Kind::Unreadable) {
        std::printf("Could not read this bar: %s\nThe file is left as it is.\n",
                    store.loadState().message.c_str());
    }
    for (const auto& violation : store.repairs()) {
        std::printf("Repaired: %s\n", violation.description().c_str());
    }
    return 0;
}

// The bridge an assistant starts: installed beside vantorel, or in the build tree's bridge folder.
std::string bridgePath()
{
    std::error_code error;
    auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        for (const auto& candidate :
             {self.parent_path() / "vantorel-mcp",
              self.parent_path().parent_path() / "bridge" / "vantorel-mcp"}) {
            if (std::filesystem::exists(candidate, error)) {
                return candidate.lexically_normal().string();
            }
        }
    }
    return "vantorel-mcp";
}

int assistantsCommand()
{
    auto file = app::AppDependencies::defaultSettingsFile(app::Environment::current());
    bool enabled = false;
    if (file) {
        kit::settings::JsonFileKeyValueStore store(*file);
        enabled = kit::settings::AppSettings(store).assistantsEnabled();
    }
    const std::string bridge = bridgePath();
    std::printf("Assistants reach Vantorel through %s, which they start themselves.\n\n"
                "For a client that reads a configuration file, add:\n%s\n\n"
                "For a client with a command line:\n  %s\n\n",
                bridge.c_str(),
                kit::mcp::AssistantSetup::configJSON(bridge).c_str(),
                kit::mcp::AssistantSetup::addCommand("<client>", bridge).c_str());
    std::printf(enabled ? "Assistants are on.\n"
                        : "Assistants are off; turn them on with: vantorel settings set "
                          "assistantsEnabled true\n");
    return 0;
}

int settingsCommand(const std::vector<std::string>& args)
{
    auto file = app::AppDependencies::defaultSettingsFile(app::Environment::current());
    if (!file) {
        return fail("There is no home folder to keep settings in.");
    }
    kit::settings::JsonFileKeyValueStore store(*file);
    kit::settings::AppSettings settings(store);
    if (args.empty() || (args.size() == 1 && args[0] == "list")) {
        for (const auto& key : settings.keys()) {
            std::printf("%s = %s\n", key.c_str(), settings.get(key).value_or("").c_str());
        }
        return 0;
    }
    if (args[0] == "get" && args.size() == 2) {
        auto value = settings.get(args[1]);
        if (!value) {
            return fail(kit::settings::AppSettings::unknownKeyMessage(args[1]), 2);
        }
        std::printf("%s\n", value->c_str());
        return 0;
    }
    if (args[0] == "set" && args.size() == 3) {
        if (auto error = settings.set(args[1], args[2])) {
            return fail(*error, 2);
        }
        if (store.error()) {
            return fail("The setting could not be saved: " + *store.error());
        }
        // A running app re-reads the file now rather than at its next start.
        askRunning(json{{"command", "settingsChanged"}});
        std::printf("%s = %s\n", args[1].c_str(), settings.get(args[1]).value_or("").c_str());
        return 0;
    }
    return fail("Use “vantorel settings get KEY” or “vantorel settings set KEY VALUE”.", 2);
}

// Reads commands for the terminal review off the main thread and hands them to it.
class InputReader
{
public:
    InputReader(kit::support::MainQueue& queue, std::function<void(std::string)> onLine)
        : m_thread([this, &queue, onLine = std::move(onLine)] { read(queue, onLine); })
    {}
    ~InputReader()
    {
        m_stop = true;
        m_thread.join();
    }

private:
    void read(kit::support::MainQueue& queue, const std::function<void(std::string)>& onLine)
    {
        std::string pending;
        char buffer[4096];
        while (!m_stop) {
            pollfd input{STDIN_FILENO, POLLIN, 0};
            int ready = ::poll(&input, 1, 200);
            if (ready <= 0) {
                continue;
            }
            ssize_t n = ::read(STDIN_FILENO, buffer, sizeof(buffer));
            if (n <= 0) {
                return; // closed: the app goes on without a terminal
            }
            pending.append(buffer, static_cast<size_t>(n));
            for (auto end = pending.find('\n'); end != std::string::npos;
                 end = pending.find('\n')) {
                std::string line = pending.substr(0, end);
                pending.erase(0, end + 1);
                queue.post([onLine, line] { onLine(line); });
            }
        }
    }

    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Blocks the signals that mean "quit" so that they can be waited for, and ignores SIGPIPE; every
// thread started afterwards inherits the block.
sigset_t blockQuitSignals()
{
    sigset_t quitSignals;
    sigemptyset(&quitSignals);
    sigaddset(&quitSignals, SIGINT);
    sigaddset(&quitSignals, SIGTERM);
    sigaddset(&quitSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &quitSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return quitSignals;
}

int headless(const std::optional<std::filesystem::path>& document)
{
    // Quit signals are taken by one thread of our own, which asks the loop to stop; every other
    // thread (started after this) inherits the block.
    const sigset_t quitSignals = blockQuitSignals();

    kit::support::RunLoop loop;
    std::unique_ptr<app::AppDependencies> dependencies;
    std::unique_ptr<app::TerminalReview> review;

    app::InstanceChannel channel(instanceFolder());
    // Nothing when the reply comes later.
    auto answer = [&](const std::string& line,
                      const app::InstanceChannel::Reply& reply) -> std::optional<std::string> {
        json request = json::parse(line, nullptr, false);
        const std::string command =
            request.is_object() && request.value("command", json()).is_string()
                ? request["command"].get<std::string>()
                : std::string();
        if (!dependencies) {
            return json{{"error", "Vantorel is still starting; try again in a moment."}}.dump();
        }
        if (command == "open" && request.value("path", json()).is_string()) {
            // Answered once the document is read, which may take a while on a slow mount.
            dependencies->openDocument(request["path"].get<std::string>(),
                                       [reply](std::optional<std::string> error) {
                                           if (error) {
                                               printLine(*error);
                                               reply(json{{"error", *error}}.dump());
                                           } else {
                                               reply(json{{"ok", true}}.dump());
                                           }
                                       });
            return std::nullopt;
        }
        if (command == "settingsChanged") {
            dependencies->settingsStore().reload();
            return json{{"ok", true}}.dump();
        }
        if (command == "show") {
            printLine(review->render());
            return json{{"ok", true}}.dump();
        }
        return json{{"error", "This Vantorel does not know that request."}}.dump();
    };
    auto handle = [&](const std::string& line, const app::InstanceChannel::Reply& reply) {
        if (auto now = answer(line, reply)) {
            reply(*now);
        }
    };
    if (!channel.becomePrimary(app::InstanceChannel::LaterHandler(handle), loop)) {
        if (document) {
            auto reply = askRunning(json{{"command", "open"}, {"path", document->string()}});
            if (reply && reply->is_object() && reply->contains("error")) {
                return fail(reply->value("error", std::string()));
            }
            if (reply) {
                printLine("“" + document->filename().string()
                          + "” is waiting for your review in the running Vantorel.");
                return 0;
            }
        }
        return fail("Vantorel is already running.");
    }

    try {
        dependencies =
            std::make_unique<app::AppDependencies>(loop, app::AppDependencies::Options{});
    } catch (const std::exception& error) {
        return fail(error.what());
    }
    review = std::make_unique<app::TerminalReview>(
        dependencies->proposals(), dependencies->libraryStore(), printLine);
    dependencies->start();
    if (!dependencies->settings().assistantsEnabled()) {
        printLine("Assistants are off. Turn them on with: vantorel settings set "
                  "assistantsEnabled true");
    }
    int exitCode = 0;
    if (document) {
        dependencies->openDocument(*document, [&](std::optional<std::string> error) {
            if (error) {
                exitCode = fail(*error);
                loop.quit();
            }
        });
    }

    std::thread signals([&loop, quitSignals] {
        int received = 0;
        sigwait(&quitSignals, &received);
        loop.quit();
    });
    {
        InputReader input(loop, [&](const std::string& line) { printLine(review->handle(line)); });
        loop.run();
    }
    review.reset();
    dependencies->terminate();
    dependencies.reset();
    channel.stop();
    // Wake the signal thread, which waits for SIGTERM, if quitting came from elsewhere.
    pthread_kill(signals.native_handle(), SIGTERM); // NOLINT(bugprone-bad-signal-to-kill-thread)
    signals.join();
    return exitCode;
}

#ifdef VANTOREL_HAS_DESKTOP

bool hasDisplay()
{
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
        if (value && *value) {
            return true;
        }
    }
    return false;
}

constexpr const char* kNoDisplay =
    "There is no display to show Vantorel on; “vantorel --headless” runs it in this terminal.";

// Hands the document, or a request to show itself, to a running Vantorel; its exit code, or
// nothing when none runs.
std::optional<int> handToRunning(const std::optional<std::filesystem::path>& document)
{
    const json request = document ? json{{"command", "open"}, {"path", document->string()}}
                                  : json{{"command", "show"}};
    auto reply = askRunning(request);
    if (!reply) {
        return std::nullopt;
    }
    if (reply->is_object() && reply->contains("error")) {
        return fail(reply->value("error", std::string()));
    }
    if (document) {
        printLine("“" + document->filename().string()
                  + "” is waiting for your review in the running Vantorel.");
    }
    return 0;
}

// What Qt said while the application object was being made: shown once it stands, dropped when
// Qt gives up, since the sentence below says it better.
std::vector<std::string>& platformMessagesHeld()
{
    static std::vector<std::string> held;
    return held;
}

// Qt ends the process when its platform plugin cannot start (no X server behind DISPLAY, say);
// the person gets a sentence instead of a core dump.
void platformMessages(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "vantorel: %s\n", kNoDisplay);
        std::_Exit(1);
    }
    platformMessagesHeld().push_back(message.toStdString());
}

// `showManager`: a link into Vantorel, which shows the manager whether or not one was running.
int runDesktop(int argc,
               char** argv,
               const std::optional<std::filesystem::path>& document,
               bool showManager = false)
{
    if (auto code = handToRunning(document)) {
        return *code;
    }
    if (!hasDisplay()) {
        if (document) {
            return headless(document);
        }
        return fail(kNoDisplay);
    }
    // Quit signals arrive through a descriptor the event loop watches.
    blockQuitSignals();

    QApplication::setApplicationName(QStringLiteral("Vantorel"));
    QApplication::setDesktopFileName(QStringLiteral("io.vantorel.Vantorel"));
    // The application's own symbol, for when the installed theme does not have it.
    registerIcons();
    QIcon::setFallbackSearchPaths(QIcon::fallbackSearchPaths() << QStringLiteral(":/icons"));
    const QtMessageHandler previous = qInstallMessageHandler(platformMessages);
    QApplication application(argc, argv);
    qInstallMessageHandler(previous);
    for (const auto& message : platformMessagesHeld()) {
        std::fprintf(stderr, "%s\n", message.c_str());
    }
    platformMessagesHeld().clear();
    QApplication::setQuitOnLastWindowClosed(false);

    desktop::DesktopApp::Options options;
    options.instanceFolder = instanceFolder();
    options.handleSignals = true;
    options.bridgePath = [] { return bridgePath(); };
    desktop::DesktopApp app(std::move(options));
    if (!app.becomePrimary()) {
        // Another start got there first.
        if (auto code = handToRunning(document)) {
            return *code;
        }
        return fail("Vantorel is already running.");
    }
    try {
        app.start();
    } catch (const std::exception& error) {
        return fail(error.what());
    }
    if (document) {
        app.openDocument(*document);
    } else if (showManager) {
        app.presentManager();
    }
    return QApplication::exec();
}

#endif

int run(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
#ifdef VANTOREL_HAS_DESKTOP
        return runDesktop(argc, argv, std::nullopt);
#else
        return summary();
#endif
    }
    const std::string& first = args[0];
    if (first == "--help" || first == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (first == "--version") {
        std::printf("Vantorel %s\n", app::AppDependencies::kVersion);
        return 0;
    }
    if (first == "--headless" && args.size() == 1) {
        return headless(std::nullopt);
    }
    if (first == "bars" && args.size() == 1) {
        return summary();
    }
    if (first == "assistants" && args.size() == 1) {
        return assistantsCommand();
    }
    if (first == "settings") {
        return settingsCommand({args.begin() + 1, args.end()});
    }
    if (args.size() == 1 && app::AppDependencies::isDocument(first)) {
        // File managers may hand a document over as a file URL.
        std::string named = first;
        for (const char* prefix : {"file://localhost/", "file:///"}) {
            if (named.starts_with(prefix)) {
                named = "/" + WebAddress::percentDecoded(named.substr(std::strlen(prefix)));
                break;
            }
        }
        std::error_code error;
        auto path = std::filesystem::absolute(named, error);
#ifdef VANTOREL_HAS_DESKTOP
        return runDesktop(argc, argv, error ? std::filesystem::path(named) : path);
#else
        return headless(error ? std::filesystem::path(named) : path);
#endif
    }
#ifdef VANTOREL_HAS_DESKTOP
    // A link into Vantorel shows the manager; what follows the scheme is not read.
    if (args.size() == 1 && first.size() >= 9
        && std::equal(first.begin(), first.begin() + 9, "vantorel:", [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == b;
           })) {
        return runDesktop(argc, argv, std::nullopt, true);
    }
#endif
    return fail("“" + first + "” is not something vantorel knows.\n" + kUsage, 2);
}

} // namespace

int main(int argc, char** argv)
{
    kit::support::returnFreedMemoryPromptly();
    // Whatever escapes is said in one line rather than ending in an abort.
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vantorel: %s\n", error.what());
        return 1;
    }
}
