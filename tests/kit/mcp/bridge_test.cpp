// SPDX-License-Identifier: MIT
// vantorel-mcp run as the assistant runs it: a child process with pipes for its standard streams.
#include "kit/mcp/instance_marker.h"
#include "kit/mcp/tool_protocol.h"
#include "kit/mcp/tool_socket.h"
#include "kit/support/run_loop.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using namespace std::chrono_literals;
using kit::mcp::ToolProtocol;
using kit::mcp::ToolResult;
using kit::mcp::ToolSocket;
using kit::support::RunLoop;
using Lines = std::vector<std::string>;

const std::string kNotRunning = "Vantorel is not running; start Vantorel, then try again.";
const std::string kAssistantsOff =
    "Vantorel has assistants turned off; turn them on in Vantorel's Settings, then try again.";

class BridgeProcess
{
public:
    explicit BridgeProcess(const std::string& runtimeDir)
    {
        // Writing to a bridge that has ended must fail, not end the test run.
        std::signal(SIGPIPE, SIG_IGN);
        int input[2];
        int output[2];
        EXPECT_EQ(::pipe2(input, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(output, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);

        std::vector<std::string> environment;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            if (std::strncmp(*entry, "XDG_RUNTIME_DIR=", 16) != 0) {
                environment.emplace_back(*entry);
            }
        }
        environment.push_back("XDG_RUNTIME_DIR=" + runtimeDir);
        std::string path = VANTOREL_BRIDGE_PATH;
        std::vector<char*> argv{path.data(), nullptr};
        std::vector<char*> envp;
        for (auto& entry : environment) {
            envp.push_back(entry.data());
        }
        envp.push_back(nullptr);
        EXPECT_EQ(posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), envp.data()), 0);
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        m_input = input[1];
        m_output = output[0];
        ::fcntl(m_output, F_SETFL, O_NONBLOCK);
    }

    ~BridgeProcess()
    {
        closeInput();
        ::close(m_output);
        if (m_pid > 0 && !m_exited) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }

    void write(std::string_view bytes)
    {
        while (!bytes.empty()) {
            ssize_t written = ::write(m_input, bytes.data(), bytes.size());
            ASSERT_GT(written, 0);
            bytes.remove_prefix(static_cast<size_t>(written));
        }
    }

    void closeInput()
    {
        if (m_input >= 0) {
            ::close(m_input);
            m_input = -1;
        }
    }

    // Takes what the bridge has written; true once its output has ended.
    bool poll()
    {
        char buffer[4096];
        for (;;) {
            ssize_t count = ::read(m_output, buffer, sizeof buffer);
            if (count > 0) {
                m_pending.append(buffer, static_cast<size_t>(count));
                continue;
            }
            if (count == 0) {
                m_ended = true;
            }
            break;
        }
        for (size_t newline; (newline = m_pending.find('\n')) != std::string::npos;) {
            m_lines.push_back(m_pending.substr(0, newline));
            m_pending.erase(0, newline + 1);
        }
        return m_ended;
    }

    // Waits (without a main loop) for the output to end and the process to exit.
    int finish(std::chrono::milliseconds timeout = 5s)
    {
        auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!poll() && std::chrono::steady_clock::now() < deadline) {
            pollfd wait{m_output, POLLIN, 0};
            ::poll(&wait, 1, 10);
        }
        return exitStatus();
    }

    int exitStatus()
    {
        int status = 0;
        if (::waitpid(m_pid, &status, 0) == m_pid) {
            m_exited = true;
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const Lines& lines() const { return m_lines; }
    const std::string& unfinished() const { return m_pending; }

private:
    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_pending;
    Lines m_lines;
    bool m_ended = false;
    bool m_exited = false;
};

std::string line(const std::string& reply)
{
    return reply.substr(0, reply.size() - 1);
}

// A running app: the protocol over the socket, with tools/call of "wait" held until released.
class BridgeTest : public testing::Test
{
protected:
    void startApp()
    {
        m_socket = std::make_unique<ToolSocket>(
            (m_dir.path() / "vantorel.sock").string(),
            [this](std::string request, ToolSocket::Completion completion) {
                ++m_requests;
                ToolProtocol::respond(
                    request,
                    "1.0",
                    [] { return std::vector<kit::mcp::ToolDescription>{}; },
                    [this](const std::string& name,
                           std::optional<std::string>,
                           ToolProtocol::ToolCompletion done) {
                        if (name == "wait") {
                            m_held.push_back(std::move(done));
                        } else {
                            done(ToolResult::success(R"({"tool":")" + name + "\"}"));
                        }
                    },
                    std::move(completion));
            },
            m_loop);
        ASSERT_TRUE(m_socket->start());
    }

    bool serveUntil(BridgeProcess& bridge, size_t lineCount)
    {
        return m_loop.runUntil(
            [&] {
                bridge.poll();
                return bridge.lines().size() >= lineCount;
            },
            5s);
    }

    testing_support::TempDir m_dir;
    RunLoop m_loop;
    std::unique_ptr<ToolSocket> m_socket;
    std::vector<ToolProtocol::ToolCompletion> m_held;
    size_t m_requests = 0;
};

// What the folder holds besides no listening socket, and what the bridge should say.
struct AbsentCase
{
    const char* name;
    bool marker;
    bool markerHeld;
    bool staleSocket;
    const std::string* message;
};

class BridgeWithoutServer : public BridgeTest, public testing::WithParamInterface<AbsentCase>
{};

TEST_P(BridgeWithoutServer, AnswersEachRequestWithWhatToDo)
{
    const AbsentCase& c = GetParam();
    kit::mcp::InstanceMarker app((m_dir.path() / "vantorel.pid").string());
    if (c.markerHeld) {
        ASSERT_TRUE(app.write(::getpid()));
    } else if (c.marker) {
        // Left by an app that died; the pid is alive but holds no lock.
        testing_support::writeFile(app.path(), std::to_string(::getpid()) + "\n");
    }
    if (c.staleSocket) {
        startApp();
        m_socket.reset();
        testing_support::writeFile(m_dir.path() / "vantorel.sock", "");
    }
    BridgeProcess bridge(m_dir.path().string());
    bridge.write("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\"}\n"
                 "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n"
                 "\n"
                 "nonsense\n"
                 "{\"jsonrpc\":\"2.0\",\"id\":\"two\",\"method\":\"tools/list\"}");
    bridge.closeInput();
    EXPECT_EQ(bridge.finish(), 0);
    EXPECT_EQ(bridge.lines(),
              (Lines{line(ToolProtocol::error(1, -32000, *c.message)),
                     line(ToolProtocol::refuse("nonsense", 0, "").value()),
                     line(ToolProtocol::error("two", -32000, *c.message))}));
    EXPECT_EQ(bridge.unfinished(), "");
}

const AbsentCase kAbsent[] = {
    {"MarkerOfADeadApp", true, false, false, &kNotRunning},
    {"StaleSocketFile", false, false, true, &kNotRunning},
    {"AppRunningWithAssistantsOff", true, true, false, &kAssistantsOff},
};

INSTANTIATE_TEST_SUITE_P(Folders,
                         BridgeWithoutServer,
                         testing::ValuesIn(kAbsent),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(BridgeTest, WaitsForTheRepliesDueAfterItsInputEnds)
{
    startApp();
    BridgeProcess bridge(m_dir.path().string());
    bridge.write("{\"id\":5,\"method\":\"tools/call\",\"params\":{\"name\":\"wait\"}}\n");
    bridge.closeInput();
    m_loop.runUntil([&] { return !m_held.empty(); }, 5s);
    ASSERT_EQ(m_held.size(), 1U);
    m_loop.runFor(50ms);
    EXPECT_FALSE(bridge.poll());
    m_held[0](ToolResult::success(R"({"status":"applied"})"));
    EXPECT_TRUE(m_loop.runUntil([&] { return bridge.poll(); }, 5s));
    ASSERT_EQ(bridge.lines().size(), 1U);
    EXPECT_NE(bridge.lines()[0].find("applied"), std::string::npos);
}

TEST_F(BridgeTest, AnswersWhatIsLeftWhenTheAppGoesAway)
{
    startApp();
    BridgeProcess bridge(m_dir.path().string());
    bridge.write("{\"id\":1,\"method\":\"ping\"}\n"
                 "{\"id\":2,\"method\":\"tools/call\",\"params\":{\"name\":\"wait\"}}\n");
    ASSERT_TRUE(serveUntil(bridge, 1));
    m_loop.runUntil([&] { return !m_held.empty(); }, 5s);
    m_socket.reset();

    bridge.write("{\"method\":\"notifications/cancelled\"}\n{\"id\":3,\"method\":\"ping\"}\n");
    bridge.closeInput();
    EXPECT_EQ(bridge.finish(), 0);
    EXPECT_EQ(bridge.lines(),
              (Lines{R"({"id":1,"jsonrpc":"2.0","result":{}})",
                     line(ToolProtocol::error(2, -32000, kNotRunning)),
                     line(ToolProtocol::error(3, -32000, kNotRunning))}));
}

TEST_F(BridgeTest, ConnectsOnceTheAppListens)
{
    BridgeProcess bridge(m_dir.path().string());
    bridge.write("{\"id\":1,\"method\":\"ping\"}\n");
    ASSERT_TRUE(serveUntil(bridge, 1));
    startApp();
    bridge.write("{\"id\":2,\"method\":\"ping\"}\n");
    ASSERT_TRUE(serveUntil(bridge, 2));
    bridge.closeInput();
    EXPECT_TRUE(m_loop.runUntil([&] { return bridge.poll(); }, 5s));
    EXPECT_EQ(bridge.lines(),
              (Lines{line(ToolProtocol::error(1, -32000, kNotRunning)),
                     R"({"id":2,"jsonrpc":"2.0","result":{}})"}));
}

TEST_F(BridgeTest, ALineOverTheLimitIsAnsweredWithoutReachingTheApp)
{
    startApp();
    BridgeProcess bridge(m_dir.path().string());
    std::thread writer([&] {
        std::string chunk(1 << 16, ' ');
        for (size_t sent = 0; sent <= ToolProtocol::kMaxLineBytes; sent += chunk.size()) {
            bridge.write(chunk);
        }
        bridge.write("\n{\"id\":1,\"method\":\"ping\"}\n");
        bridge.closeInput();
    });
    EXPECT_TRUE(m_loop.runUntil([&] { return bridge.poll(); }, 20s));
    writer.join();
    EXPECT_EQ(bridge.exitStatus(), 0);
    EXPECT_EQ(
        bridge.lines(),
        (Lines{line(ToolProtocol::lineTooLong()), R"({"id":1,"jsonrpc":"2.0","result":{}})"}));
    EXPECT_EQ(m_requests, 1U);
}

} // namespace
