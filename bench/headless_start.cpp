// SPDX-License-Identifier: MIT
// How fast `vantorel --headless` is ready for assistants, and how much memory it holds then: the
// time from starting the process to the tool socket accepting a connection, and its resident
// memory once listening. A first start (starter bar, empty folders) and a start over a heavy
// user's library (20 bars, the showing one with 1,000 shortcuts), 20 runs each.
// Run from the release preset: build/release/bench/headless_start
#include "library_fixture.h"
#include "support/temp_dir.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

bool accepts(const std::string& path)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::close(fd);
    return ok;
}

long residentKiB(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

struct Run
{
    double milliseconds = 0;
    double residentMiB = 0;
};

// One start in a home of its own; `prepare` fills the data folder before the start.
Run startOnce(const std::function<void(const std::filesystem::path& data)>& prepare)
{
    testing_support::TempDir root;
    const auto home = root.path() / "home";
    const auto runtime = root.path() / "run";
    const auto config = root.path() / "config" / "Vantorel";
    std::filesystem::create_directories(home);
    std::filesystem::create_directories(runtime);
    std::filesystem::create_directories(config);
    testing_support::writeFile(config / "settings.json", R"({"assistantsEnabled": true})");
    prepare(root.path() / "data" / "Vantorel");

    std::vector<std::string> variables{
        "HOME=" + home.string(),
        "XDG_RUNTIME_DIR=" + runtime.string(),
        "XDG_CONFIG_HOME=" + (root.path() / "config").string(),
        "XDG_DATA_HOME=" + (root.path() / "data").string(),
        "PATH=/usr/bin:/bin",
    };
    std::vector<char*> envp;
    for (auto& v : variables) {
        envp.push_back(v.data());
    }
    envp.push_back(nullptr);
    std::string program = VANTOREL_BINARY;
    std::string flag = "--headless";
    char* argv[] = {program.data(), flag.data(), nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const std::string socket = (runtime / "vantorel.sock").string();

    pid_t pid = 0;
    const auto start = Clock::now();
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, envp.data()) != 0) {
        std::perror("posix_spawn");
        std::exit(1);
    }
    Run run;
    while (!accepts(socket)) {
        if (Clock::now() - start > std::chrono::seconds(10)) {
            std::fprintf(stderr, "the socket never came up\n");
            std::exit(1);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    run.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    // Whatever start-up still does after listening is counted too.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    run.residentMiB = static_cast<double>(residentKiB(pid)) / 1024.0;
    ::kill(pid, SIGTERM);
    int status = 0;
    ::waitpid(pid, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    return run;
}

void report(const char* what, std::vector<Run> runs)
{
    auto median = [](std::vector<double> values) {
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    };
    std::vector<double> times;
    std::vector<double> memory;
    for (const auto& run : runs) {
        times.push_back(run.milliseconds);
        memory.push_back(run.residentMiB);
    }
    std::printf(
        "%-28s start to listening: median %6.1f ms, max %6.1f ms; resident: median %5.1f MB, "
        "max %5.1f MB\n",
        what,
        median(times),
        *std::max_element(times.begin(), times.end()),
        median(memory),
        *std::max_element(memory.begin(), memory.end()));
}

} // namespace

int main()
{
    constexpr int kRuns = 20;
    std::vector<Run> first;
    std::vector<Run> heavy;
    for (int i = 0; i < kRuns; ++i) {
        first.push_back(startOnce([](const std::filesystem::path&) {}));
        heavy.push_back(startOnce([](const std::filesystem::path& data) {
            bench_support::writeRealisticLibrary(data, 1'000);
        }));
    }
    report("first start", first);
    report("1,000-shortcut library", heavy);
    return 0;
}
