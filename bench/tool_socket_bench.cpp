// SPDX-License-Identifier: MIT
// Prints what the tool socket costs over a real Unix-domain socket with a RunLoop serving on the
// main thread: the round trip of one request (median and 99th percentile), then 8 clients at once
// with 10,000 requests each (errors, requests per second in total, resident memory after the
// first 10,000 requests and at the end). The tools are pluggable: cannedTools() answers ping and a
// tools/call with a ~200-byte text; pass the app's own list and call to measure the real tools.
// Run from the release preset: build/release/bench/tool_socket_bench
#include "kit/mcp/tool_socket.h"

#include "kit/mcp/tool_protocol.h"
#include "kit/support/memory.h"
#include "kit/support/run_loop.h"
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
#include <string>
#include <thread>
#include <vector>

using kit::mcp::ToolDescription;
using kit::mcp::ToolProtocol;
using kit::mcp::ToolResult;
using kit::mcp::ToolSocket;
using kit::support::RunLoop;
using Clock = std::chrono::steady_clock;

namespace {

struct Tools
{
    ToolProtocol::ToolList list;
    ToolProtocol::ToolCall call;
};

Tools cannedTools()
{
    static const std::string kAnswer =
        R"({"bars":[{"id":"BA000000-0000-4000-8000-000000000001","name":"Main","isShowing":true,)"
        R"("shortcuts":12},{"id":"BA000000-0000-4000-8000-000000000002","name":"Home",)"
        R"("isShowing":false,"shortcuts":7}],"total":2,"url":"https://example.com/a"})";
    return {
        [] {
            return std::vector<ToolDescription>{{"list_bars", "The bars.", R"({"type":"object"})"}};
        },
        [](const std::string&,
           std::optional<std::string>,
           const ToolProtocol::ToolCompletion& completion) {
            completion(ToolResult::success(kAnswer));
        }};
}

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
            if (auto newline = m_pending.find('\n'); newline != std::string::npos) {
                std::string line = m_pending.substr(0, newline);
                m_pending.erase(0, newline + 1);
                return line;
            }
            char buffer[4096];
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
};

std::string request(int id)
{
    if (id % 2 == 0) {
        return R"({"jsonrpc":"2.0","id":)" + std::to_string(id)
               + R"(,"method":"ping"})"
                 "\n";
    }
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id)
           + R"(,"method":"tools/call","params":{"name":"list_bars","arguments":{}}})"
             "\n";
}

bool answers(const std::string& reply, int id)
{
    std::string expected = "\"id\":" + std::to_string(id) + ",";
    return reply.find(expected) != std::string::npos
           && reply.find("\"result\"") != std::string::npos;
}

} // namespace

int main()
{
    kit::support::returnFreedMemoryPromptly();
    testing_support::TempDir dir;
    std::string path = dir.file("vantorel.sock").string();
    RunLoop loop;
    Tools tools = cannedTools();
    ToolSocket socket(
        path,
        [&tools](std::string line, ToolSocket::Completion completion) {
            ToolProtocol::respond(line, "bench", tools.list, tools.call, std::move(completion));
        },
        loop);
    if (!socket.start()) {
        return 1;
    }

    std::printf(
        "load_average_1min=%.2f cores=%u\n", loadAverage(), std::thread::hardware_concurrency());
    constexpr int kRoundTrips = 20000;
    std::vector<double> micros;
    micros.reserve(kRoundTrips);
    int latencyErrors = 0;
    std::thread single([&] {
        Client client(path);
        for (int i = 0; i < kRoundTrips; ++i) {
            std::string line = request(i);
            auto begin = Clock::now();
            std::string reply = client.roundTrip(line);
            micros.push_back(
                std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
            latencyErrors += answers(reply, i) ? 0 : 1;
        }
        loop.post([&] { loop.quit(); });
    });
    loop.run();
    single.join();
    std::sort(micros.begin(), micros.end());
    std::printf("round_trip_us median=%.1f p99=%.1f max=%.1f (n=%d, errors=%d)\n",
                micros[micros.size() / 2],
                micros[micros.size() * 99 / 100],
                micros.back(),
                kRoundTrips,
                latencyErrors);

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
                if (!answers(client.roundTrip(request(id)), id)) {
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
    std::printf("concurrent clients=%d requests=%d errors=%d seconds=%.2f requests_per_s=%.0f\n",
                kClients,
                kClients * kEach,
                errors.load(),
                seconds,
                kClients * kEach / seconds);
    std::printf("cpu_us_per_request=%.1f (clients and server together)\n", cpuPerRequest * 1e6);
    std::printf("rss_kib before=%ld after_first_10000=%ld end=%ld\n",
                rssBefore,
                rssAfterFirst.load(),
                residentKiB());
    return errors == 0 && latencyErrors == 0 ? 0 : 1;
}
