// SPDX-License-Identifier: MIT
// Prints what the tool server costs as an assistant meets it: the app's own ToolService over a
// LibraryStore whose one bar holds 1,000 shortcuts (with --many-bars, 19 more bars of 300 each),
// requests over the real Unix-domain socket, and a RunLoop as the main thread. Figures: the
// list_bars round trip (median, 99th percentile), the list_shortcuts round trip of the
// 1,000-shortcut bar (median), then 8 clients at once with 10,000 list_bars requests each
// (errors, requests per second in all, resident memory after the first 10,000 requests and at the
// end). The same for ping shows what the socket and the protocol cost without a tool.
// Run from the release preset: build/release/bench/tool_socket_bench [--many-bars]
#include "kit/mcp/tool_socket.h"

#include "kit/mcp/tool_protocol.h"
#include "kit/storage/library_store.h"
#include "kit/support/memory.h"
#include "kit/support/run_loop.h"
#include "kit/tools/tool_service.h"
#include "library_fixture.h"
#include "support/temp_dir.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using kit::mcp::ToolProtocol;
using kit::mcp::ToolSocket;
using kit::support::RunLoop;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kShortcuts = 1000;

long residentKiB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

// User and system time of the whole process so far: what a request costs however busy the
// machine is with other work.
double cpuSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double loadAverage()
{
    std::ifstream in("/proc/loadavg");
    double load = -1;
    in >> load;
    return load;
}

// A blocking client that sends one request and reads its one reply line.
class Client
{
public:
    explicit Client(const std::string& path)
    {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.data(), path.size());
        if (::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            std::perror("connect");
            std::exit(1);
        }
    }
    ~Client() { ::close(m_fd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // The reply line, or empty on a broken connection.
    std::string roundTrip(const std::string& request)
    {
        if (::send(m_fd, request.data(), request.size(), MSG_NOSIGNAL)
            != static_cast<ssize_t>(request.size())) {
            return {};
        }
        for (;;) {
            if (auto newline = m_pending.find('\n', m_scanned); newline != std::string::npos) {
                std::string line = m_pending.substr(0, newline);
                m_pending.erase(0, newline + 1);
                m_scanned = 0;
                return line;
            }
            m_scanned = m_pending.size();
            char buffer[65536];
            ssize_t count = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (count <= 0) {
                return {};
            }
            m_pending.append(buffer, static_cast<size_t>(count));
        }
    }

private:
    int m_fd = -1;
    std::string m_pending;
    size_t m_scanned = 0;
};

std::string call(int id, const char* tool)
{
    if (std::strcmp(tool, "ping") == 0) {
        return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"ping"})" + "\n";
    }
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id)
           + R"(,"method":"tools/call","params":{"name":")" + tool + R"(","arguments":{}}})" + "\n";
}

// A successful answer to request `id` (a tool's, or ping's).
bool answers(const std::string& reply, int id)
{
    return reply.rfind("{\"id\":" + std::to_string(id) + ",", 0) == 0
           && (reply.find("\"isError\":false") != std::string::npos
               || reply.find("\"result\":{}") != std::string::npos);
}

struct Timing
{
    double cpuPerRequest = 0;
    double median = 0;
    double p99 = 0;
    double max = 0;
    int errors = 0;
    size_t replyBytes = 0;
    std::string lastReply;
};

void print(const char* tool, int count, const Timing& timing)
{
    std::printf("%s round_trip_us median=%.1f p99=%.1f max=%.1f cpu_us_per_request=%.1f (n=%d, "
                "errors=%d, reply=%zu bytes)\n",
                tool,
                timing.median,
                timing.p99,
                timing.max,
                timing.cpuPerRequest,
                count,
                timing.errors,
                timing.replyBytes);
}

// Round trips of one client while `loop` serves on this thread.
Timing measure(RunLoop& loop, const std::string& path, const char* tool, int count)
{
    Timing timing;
    std::vector<double> micros;
    micros.reserve(static_cast<size_t>(count));
    double cpuBefore = cpuSeconds();
    std::thread client([&] {
        Client connection(path);
        for (int i = 0; i < count; ++i) {
            std::string request = call(i, tool);
            auto begin = Clock::now();
            std::string reply = connection.roundTrip(request);
            micros.push_back(
                std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
            timing.errors += answers(reply, i) ? 0 : 1;
            timing.replyBytes = reply.size() + 1;
            if (i + 1 == count) {
                timing.lastReply = std::move(reply);
            }
        }
        loop.post([&] { loop.quit(); });
    });
    loop.run();
    client.join();
    timing.cpuPerRequest = (cpuSeconds() - cpuBefore) / count * 1e6;
    std::sort(micros.begin(), micros.end());
    timing.median = micros[micros.size() / 2];
    timing.p99 = micros[micros.size() * 99 / 100];
    timing.max = micros.back();
    return timing;
}

// What ToolProtocol alone spends wrapping a tool's answer, taken from a reply, into its reply.
double protocolMicros(const std::string& reply)
{
    std::string answer = nlohmann::json::parse(reply)["result"]["content"][0]["text"];
    std::string request = call(1, "list_shortcuts");
    constexpr int kRounds = 50;
    size_t bytes = 0;
    double cpuBefore = cpuSeconds();
    for (int i = 0; i < kRounds; ++i) {
        auto wrapped = ToolProtocol::respond(
            request,
            "bench",
            [] { return std::vector<kit::mcp::ToolDescription>{}; },
            [&answer](const std::string&, const std::optional<std::string>&) {
                return kit::mcp::ToolResult::success(answer);
            });
        bytes += wrapped ? wrapped->size() : 0;
    }
    return bytes == 0 ? -1 : (cpuSeconds() - cpuBefore) * 1e6 / kRounds;
}

// 8 clients at once, 10,000 requests each; prints the figures and answers the errors.
int concurrently(RunLoop& loop, const std::string& path, const char* tool)
{
    constexpr int kClients = 8;
    constexpr int kEach = 10000;
    std::atomic<int> done = 0;
    std::atomic<int> errors = 0;
    std::atomic<long> rssAfterFirst = -1;
    std::atomic<int> finished = 0;
    long rssBefore = residentKiB();
    double cpuBefore = cpuSeconds();
    auto begin = Clock::now();
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([&, c] {
            Client client(path);
            for (int i = 0; i < kEach; ++i) {
                int id = c * kEach + i;
                if (!answers(client.roundTrip(call(id, tool)), id)) {
                    ++errors;
                }
                if (++done == 10000) {
                    rssAfterFirst = residentKiB();
                }
            }
            if (++finished == kClients) {
                loop.post([&] { loop.quit(); });
            }
        });
    }
    loop.run();
    double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    double cpuPerRequest = (cpuSeconds() - cpuBefore) / (kClients * kEach);
    for (auto& client : clients) {
        client.join();
    }
    std::printf("%s concurrent clients=%d requests=%d errors=%d seconds=%.2f requests_per_s=%.0f "
                "cpu_us_per_request=%.1f\n",
                tool,
                kClients,
                kClients * kEach,
                errors.load(),
                seconds,
                kClients * kEach / seconds,
                cpuPerRequest * 1e6);
    std::printf("%s rss_kib before=%ld after_first_10000=%ld end=%ld\n",
                tool,
                rssBefore,
                rssAfterFirst.load(),
                residentKiB());
    return errors;
}

} // namespace

int main(int argc, char** argv)
{
    kit::support::returnFreedMemoryPromptly();
    // Each figure shows as soon as it is measured, also when the output is a file.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    testing_support::TempDir dir;
    if (argc > 1 && std::strcmp(argv[1], "--many-bars") == 0) {
        bench_support::writeRealisticLibrary(dir.file("support"), kShortcuts);
    } else {
        std::filesystem::create_directories(dir.file("support"));
        std::ofstream(dir.file("support") / kit::library::BarIndex::kFirstBarFile)
            << kit::library::encodeLibrary(testing_support::generateLibrary(kShortcuts, {}));
    }
    kit::storage::LibraryStore store(kit::storage::SupportDirectory{dir.file("support"), true});
    RunLoop loop;
    kit::tools::ToolService service(store,
                                    loop,
                                    std::make_shared<kit::tools::InstalledApps>(
                                        std::vector<std::filesystem::path>{dir.file("no-apps")}),
                                    nullptr,
                                    kit::tools::ToolService::Bindings{});
    std::string path = dir.file("vantorel.sock").string();
    ToolSocket socket(
        path,
        [&service](std::string line, ToolSocket::Completion completion) {
            ToolProtocol::respond(
                line,
                "bench",
                &kit::tools::ToolService::descriptions,
                [&service](const std::string& name,
                           std::optional<std::string> arguments,
                           ToolProtocol::ToolCompletion done) {
                    service.call(name, arguments, "An assistant", std::move(done));
                },
                std::move(completion));
        },
        loop);
    if (!socket.start()) {
        return 1;
    }

    std::printf("load_average_1min=%.2f cores=%u shortcuts_on_showing_bar=%zu bars=%zu\n",
                loadAverage(),
                std::thread::hardware_concurrency(),
                store.library().allShortcuts().size(),
                store.bars().size());

    // The socket and the protocol alone, then the real tools on top.
    Timing ping = measure(loop, path, "ping", 20000);
    print("ping", 20000, ping);
    Timing bars = measure(loop, path, "list_bars", 20000);
    print("list_bars", 20000, bars);
    Timing shortcuts = measure(loop, path, "list_shortcuts", 500);
    print("list_shortcuts", 500, shortcuts);
    std::printf("list_shortcuts protocol_only_cpu_us=%.1f (the reply built around the same "
                "answer, without the tool)\n",
                protocolMicros(shortcuts.lastReply));

    int errors = concurrently(loop, path, "list_bars");
    // The same load on the socket and the protocol alone.
    errors += concurrently(loop, path, "ping");
    bool ok = errors == 0 && ping.errors == 0 && bars.errors == 0 && shortcuts.errors == 0;
    return ok ? 0 : 1;
}
