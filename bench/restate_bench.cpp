// SPDX-License-Identifier: MIT
// Prints how long an assistant waits when it restates a whole 10,000-shortcut bar with propose
// and nothing would change: from the request line's arrival at the app's socket to its reply's
// write, as the app serves it (ToolSocket, ToolProtocol and ToolService on a RunLoop main thread,
// a LibraryStore of 20 bars, the app's allocator settings). The target is 50 ms. Figures: median
// and worst of 15 requests, the line's size, and the CPU time per request. Run from the release
// preset: build/release/bench/restate_bench
#include "kit/mcp/tool_protocol.h"
#include "kit/mcp/tool_socket.h"
#include "kit/storage/library_store.h"
#include "kit/support/memory.h"
#include "kit/support/run_loop.h"
#include "kit/tools/tool_service.h"
#include "library_fixture.h"
#include "support/temp_dir.h"

#include <nlohmann/json.hpp>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using kit::mcp::ToolProtocol;
using kit::mcp::ToolSocket;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

namespace {

double cpuSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int connectTo(const std::string& path)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::perror("connect");
        std::exit(1);
    }
    return fd;
}

std::string readLine(int fd)
{
    std::string line;
    char buffer[65536];
    while (line.find('\n') == std::string::npos) {
        ssize_t count = ::recv(fd, buffer, sizeof buffer, 0);
        if (count <= 0) {
            return {};
        }
        line.append(buffer, static_cast<size_t>(count));
    }
    return line.substr(0, line.find('\n'));
}

} // namespace

int main()
{
    // The allocator settings the app runs with.
    kit::support::returnFreedMemoryPromptly();
    constexpr int kRequests = 15;
    testing_support::TempDir dir;
    bench_support::writeRealisticLibrary(dir.path() / "library", 10'000);
    kit::storage::LibraryStore store(kit::storage::SupportDirectory{dir.path() / "library", true});
    kit::support::RunLoop loop;
    kit::tools::ToolService::Bindings bindings;
    bindings.onProposal = [](kit::proposal::Proposal, auto) {};
    kit::tools::ToolService service(store, loop, nullptr, nullptr, bindings);

    // The bar as list_shortcuts shows it, proposed back unchanged.
    std::string listed;
    service.call("list_shortcuts", std::nullopt, "bench", [&](kit::mcp::ToolResult result) {
        listed = result.text();
    });
    json document = {{"bars",
                      json::array({{{"destination", {{"kind", "active"}}},
                                    {"shortcuts", json::parse(listed)["shortcuts"]}}})}};
    const std::string line = json{{"jsonrpc", "2.0"},
                                  {"id", 1},
                                  {"method", "tools/call"},
                                  {"params", {{"name", "propose"}, {"arguments", document}}}}
                                 .dump()
                             + "\n";

    // The time the line takes in the app, from its arrival to the write of its reply.
    std::vector<double> millis;
    Clock::time_point arrived;
    const std::string path = (dir.path() / "bench.sock").string();
    ToolSocket socket(
        path,
        [&](std::string request, ToolSocket::Completion completion) {
            ToolProtocol::respond(
                request,
                "bench",
                [] { return kit::tools::ToolService::descriptions(); },
                [&](ToolProtocol::Call call, ToolProtocol::ToolCompletion done) {
                    if (call.argumentsText) {
                        service.call(call.name, call.argumentsText, "bench", std::move(done));
                    } else {
                        service.callDecoded(
                            call.name, std::move(call.arguments), "bench", std::move(done));
                    }
                },
                {},
                completion,
                &kit::tools::ToolService::readsStrictly);
        },
        loop);
    socket.start();

    std::string reply;
    double cpu = 0;
    std::thread client([&] {
        int fd = connectTo(path);
        for (int i = 0; i < kRequests; ++i) {
            // The line's last byte leaves when the app has the whole line; the reply is read
            // once written, so the difference is the app's time plus a copy each way.
            if (::send(fd, line.data(), line.size() - 1, MSG_NOSIGNAL) < 0) {
                std::exit(1);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            double before = cpuSeconds();
            arrived = Clock::now();
            ::send(fd, "\n", 1, MSG_NOSIGNAL);
            reply = readLine(fd);
            millis.push_back(
                std::chrono::duration<double, std::milli>(Clock::now() - arrived).count());
            cpu += cpuSeconds() - before;
        }
        ::close(fd);
        loop.post([&] { loop.quit(); });
    });
    loop.run();
    client.join();

    std::string status = json::parse(
        json::parse(reply)["result"]["content"][0]["text"].get<std::string>())["status"];
    std::sort(millis.begin(), millis.end());
    std::printf(
        "restate_10000 reply_ms median=%.1f max=%.1f cpu_ms_per_request=%.1f line=%zu bytes "
        "status=%s target=50\n",
        millis[millis.size() / 2],
        millis.back(),
        cpu / kRequests * 1e3,
        line.size(),
        status.c_str());
    return status == "nothing" ? 0 : 1;
}
