// SPDX-License-Identifier: MIT
// The vantorel executable: the headless app, the settings command, handing documents to the
// running app, and a summary of the library.
#include "app/app_dependencies.h"
#include "app/instance_channel.h"
#include "app/terminal_review.h"
#include "kit/mcp/assistant_setup.h"
#include "kit/mcp/tool_socket_path.h"
#include "kit/support/memory.h"
#include "kit/support/run_loop.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace kit::library;
using namespace kit::storage;
using nlohmann::json;

namespace {

constexpr const char* kUsage =
    "Usage:\n"
    "  vantorel                      tell what your library holds\n"
    "  vantorel --headless           run without a display: serve assistants, review proposals\n"
    "                                in this terminal\n"
    "  vantorel FILE.vantorel        review a document in the running Vantorel (or start one)\n"
    "  vantorel settings             list every setting with its value\n"
    "  vantorel settings get KEY     print one setting\n"
    "  vantorel settings set KEY VALUE\n"
    "  vantorel assistants           how to connect an assistant to Vantorel\n"
    "                                change one setting; a running Vantorel follows at once\n"
    "  vantorel --help | --version\n";

std::string plural(size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

void printLine(const std::string& text)
{
    std::fputs(text.c_str(), stdout);
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
    auto reply = app::InstanceChannel::send(instanceFolder(), request.dump());
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
        for (auto candidate : {self.parent_path() / "vantorel-mcp",
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

int headless(const std::optional<std::filesystem::path>& document)
{
    // Quit signals are taken by one thread of our own, which asks the loop to stop; every other
    // thread (started after this) inherits the block.
    sigset_t quitSignals;
    sigemptyset(&quitSignals);
    sigaddset(&quitSignals, SIGINT);
    sigaddset(&quitSignals, SIGTERM);
    sigaddset(&quitSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &quitSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    kit::support::RunLoop loop;
    std::unique_ptr<app::AppDependencies> dependencies;
    std::unique_ptr<app::TerminalReview> review;

    app::InstanceChannel channel(instanceFolder());
    auto handle = [&](const std::string& line) -> std::string {
        json request = json::parse(line, nullptr, false);
        const std::string command =
            request.is_object() && request.value("command", json()).is_string()
                ? request["command"].get<std::string>()
                : std::string();
        if (!dependencies) {
            return json{{"error", "Vantorel is still starting; try again in a moment."}}.dump();
        }
        if (command == "open" && request.value("path", json()).is_string()) {
            if (auto error = dependencies->openDocument(request["path"].get<std::string>())) {
                printLine(*error);
                return json{{"error", *error}}.dump();
            }
            return json{{"ok", true}}.dump();
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
    if (!channel.becomePrimary(handle, loop)) {
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
    if (document) {
        if (auto error = dependencies->openDocument(*document)) {
            return fail(*error);
        }
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
    // Wake the signal thread if quitting came from elsewhere.
    pthread_kill(signals.native_handle(), SIGTERM);
    signals.join();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    kit::support::returnFreedMemoryPromptly();
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        return summary();
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
    if (first == "assistants" && args.size() == 1) {
        return assistantsCommand();
    }
    if (first == "settings") {
        return settingsCommand({args.begin() + 1, args.end()});
    }
    if (args.size() == 1 && app::AppDependencies::isDocument(first)) {
        std::error_code error;
        auto path = std::filesystem::absolute(first, error);
        return headless(error ? std::filesystem::path(first) : path);
    }
    return fail("“" + first + "” is not something vantorel knows.\n" + kUsage, 2);
}
