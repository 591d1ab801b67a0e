// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_socket.h"

#include "kit/mcp/tool_protocol.h"
#include "kit/mcp/tool_socket_path.h"
#include "kit/support/run_loop.h"
#include "socket_client.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kit::mcp::ToolProtocol;
using kit::mcp::ToolResult;
using kit::mcp::ToolSocket;
using kit::support::RunLoop;
using testing_support::SocketClient;

size_t countEntries(const char* folder)
{
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
        ++count;
    }
    return count;
}

// A socket in a temporary folder, served by a RunLoop on the test's own thread. By default each
// line is answered with "re:" and the line; lines starting with "hold" keep their completion in
// `m_held` until the test answers them.
class ToolSocketTest : public testing::Test
{
protected:
    void SetUp() override { startSocket(); }

    void startSocket()
    {
        m_socket = std::make_unique<ToolSocket>(
            m_path,
            [this](std::string line, ToolSocket::Completion completion) {
                EXPECT_EQ(std::this_thread::get_id(), m_testThread);
                m_received.push_back(line);
                if (line.rfind("hold", 0) == 0) {
                    m_held.push_back(std::move(completion));
                } else {
                    completion("re:" + line + "\n");
                }
            },
            m_loop);
        ASSERT_TRUE(m_socket->start());
    }

    // Serves until the client holds `count` lines; answers them.
    std::vector<std::string>
    awaitLines(SocketClient& client, size_t count, std::chrono::milliseconds timeout = 5s)
    {
        m_loop.runUntil([&] { return client.poll().size() >= count; }, timeout);
        return client.lines();
    }

    testing_support::TempDir m_dir;
    std::string m_path = m_dir.file("vantorel.sock").string();
    RunLoop m_loop;
    std::vector<std::string> m_received;
    std::vector<ToolSocket::Completion> m_held;
    std::unique_ptr<ToolSocket> m_socket;
    std::thread::id m_testThread = std::this_thread::get_id();
};

using Lines = std::vector<std::string>;

std::string line(const std::string& reply)
{
    return reply.substr(0, reply.size() - 1);
}

// Sets a signal's action for one scope.
class SignalAction
{
public:
    SignalAction(int signal, void (*handler)(int))
        : m_signal(signal)
        , m_previous(std::signal(signal, handler))
    {}
    ~SignalAction() { std::signal(m_signal, m_previous); }
    SignalAction(const SignalAction&) = delete;
    SignalAction& operator=(const SignalAction&) = delete;

private:
    int m_signal;
    void (*m_previous)(int);
};

// Turning assistants on and off is driven through the app's own tests; here what only the file
// shows.
TEST_F(ToolSocketTest, FileIsOwnerOnlyAndGoesWithStop)
{
    struct stat info
    {};
    ASSERT_EQ(::stat(m_path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    m_socket->stop();
    EXPECT_FALSE(std::filesystem::exists(m_path));
    EXPECT_FALSE(SocketClient(m_path).connected());
}

TEST_F(ToolSocketTest, AStaleFileIsReplaced)
{
    m_socket.reset();
    testing_support::writeFile(m_path, "left over");
    startSocket();
    SocketClient client(m_path);
    ASSERT_TRUE(client.send("hi\n"));
    EXPECT_EQ(awaitLines(client, 1), (Lines{"re:hi"}));
}

struct StartFailure
{
    const char* name;
    std::string (*path)(const std::filesystem::path& dir);
    const char* logged;
};

const StartFailure kStartFailures[] = {
    {"PathTooLong",
     [](const std::filesystem::path& dir) {
         return (dir / std::string(kit::mcp::ToolSocketPath::kMaxPathBytes, 'x')).string();
     },
     "tools: error: tool socket: path too long: /"},
    {"FolderMissing",
     [](const std::filesystem::path& dir) { return (dir / "missing" / "vantorel.sock").string(); },
     "tools: error: tool socket: bind failed: No such file or directory"},
};

TEST(ToolSocketStartFailure, LeavesTheServerOffAndSaysWhy)
{
    for (const StartFailure& param : kStartFailures) {
        SCOPED_TRACE(param.name);
        testing_support::TempDir dir;
        RunLoop loop;
        std::string path = param.path(dir.path());
        ToolSocket socket(
            path, [](std::string, ToolSocket::Completion) {}, loop);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(socket.start());
        std::string log = testing::internal::GetCapturedStderr();
        EXPECT_FALSE(socket.isListening());
        EXPECT_NE(log.find(param.logged), std::string::npos) << log;
    }
}

TEST_F(ToolSocketTest, AClientThatHangsUpBeforeItsReplyDoesNotHurtTheServer)
{
    // With the default action a write to the closed connection would end the test run.
    SignalAction pipe(SIGPIPE, SIG_DFL);
    {
        SocketClient client(m_path);
        ASSERT_TRUE(client.send("hold this\n"));
        m_loop.runUntil([&] { return !m_held.empty(); }, 5s);
        ASSERT_EQ(m_held.size(), 1U);
    }
    // Large enough that the write meets the closed connection rather than a kernel buffer.
    m_held[0](std::string(4 << 20, 'r') + "\n");
    m_loop.runUntil([&] { return m_socket->clientCount() == 0; }, 5s);
    EXPECT_EQ(m_socket->clientCount(), 0U);

    SocketClient next(m_path);
    ASSERT_TRUE(next.send("still here\n"));
    EXPECT_EQ(awaitLines(next, 1), (Lines{"re:still here"}));
}

TEST_F(ToolSocketTest, AThousandDroppedConnectionsLeakNoDescriptorsOrThreads)
{
    {
        SocketClient warmUp(m_path);
        ASSERT_TRUE(warmUp.send("warm\n"));
        awaitLines(warmUp, 1);
    }
    m_loop.runUntil([&] { return m_socket->clientCount() == 0; }, 5s);
    size_t descriptors = countEntries("/proc/self/fd");
    size_t threads = countEntries("/proc/self/task");

    for (int i = 0; i < 1000; ++i) {
        SocketClient client(m_path);
        ASSERT_TRUE(client.connected()) << i;
        // Every third leaves a request behind, every seventh half a line.
        if (i % 3 == 0) {
            client.send("gone " + std::to_string(i) + "\n");
        } else if (i % 7 == 0) {
            client.send("{\"id\":");
        }
        if (i % 50 == 0) {
            m_loop.runFor(1ms);
        }
    }
    // Connections still in the backlog are accepted and served after the loop above ends.
    m_loop.runUntil(
        [&] {
            return countEntries("/proc/self/fd") <= descriptors
                   && countEntries("/proc/self/task") <= threads;
        },
        10s);
    EXPECT_LE(countEntries("/proc/self/fd"), descriptors);
    EXPECT_LE(countEntries("/proc/self/task"), threads);
    EXPECT_EQ(m_socket->clientCount(), 0U);

    SocketClient last(m_path);
    ASSERT_TRUE(last.send("last\n"));
    EXPECT_EQ(awaitLines(last, 1), (Lines{"re:last"}));
}

// Resets the peak resident size so the next peakGrowthKiB() sees only what comes after.
class PeakMemory
{
public:
    PeakMemory()
    {
        std::ofstream("/proc/self/clear_refs") << "5";
        m_base = statusKiB("VmRSS:");
    }
    long growthKiB() const { return statusKiB("VmHWM:") - m_base; }

private:
    static long statusKiB(const std::string& key)
    {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind(key, 0) == 0) {
                return std::stol(line.substr(key.size()));
            }
        }
        return 0;
    }
    long m_base = 0;
};

// ThreadSanitizer's shadow pages count in the resident size, about four times what they shadow.
#if defined(__SANITIZE_THREAD__)
#define UNDER_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define UNDER_TSAN 1
#endif
#endif
#ifdef UNDER_TSAN
constexpr long kResidentScale = 5;
#else
constexpr long kResidentScale = 1;
#endif

TEST_F(ToolSocketTest, ASixtyFourMebibyteLineIsRefusedInBoundedMemory)
{
    SocketClient client(m_path);
    PeakMemory peak;
    // Written a chunk at a time, so the only large buffer would be the server's.
    std::thread writer([&] {
        std::string chunk(1 << 16, 'a');
        chunk.front() = '{';
        for (size_t sent = 0; sent < (64U << 20); sent += chunk.size()) {
            ASSERT_TRUE(client.send(chunk));
            chunk.front() = 'a';
        }
        client.send("\nsmall\n");
    });
    auto lines = awaitLines(client, 2, 30s);
    writer.join();
    EXPECT_EQ(lines, (Lines{line(ToolProtocol::lineTooLong()), "re:small"}));
    EXPECT_EQ(m_received, (Lines{"small"}));
    EXPECT_LT(peak.growthKiB(), (40 << 10) * kResidentScale);
}

TEST_F(ToolSocketTest, ALineOfExactlyTheLimitIsServedWhole)
{
    std::string big(ToolProtocol::kMaxLineBytes, 'b');
    m_socket.reset();
    m_socket = std::make_unique<ToolSocket>(
        m_path,
        [&big](std::string line, ToolSocket::Completion done) {
            done(std::to_string(line.size()) + (line == big ? " intact" : "") + "\n");
        },
        m_loop);
    ASSERT_TRUE(m_socket->start());
    SocketClient client(m_path);
    std::thread writer([&] { client.send(big + "\nsmall\n"); });
    auto lines = awaitLines(client, 2, 20s);
    writer.join();
    EXPECT_EQ(lines, (Lines{std::to_string(big.size()) + " intact", "5"}));
}

TEST_F(ToolSocketTest, ALongWaitForOneReplyDoesNotHoldUpOthers)
{
    SocketClient waiting(m_path);
    ASSERT_TRUE(waiting.send("hold for the person\nafter\n"));
    m_loop.runUntil([&] { return !m_held.empty(); }, 5s);

    for (int i = 0; i < 3; ++i) {
        SocketClient other(m_path);
        ASSERT_TRUE(other.send("quick\n"));
        EXPECT_EQ(awaitLines(other, 1), (Lines{"re:quick"}));
    }
    EXPECT_TRUE(waiting.poll().empty());

    m_held[0]("decided\n");
    EXPECT_EQ(awaitLines(waiting, 2), (Lines{"decided", "re:after"}));
}

TEST_F(ToolSocketTest, DestroyingWithClientsConnectedEndsThemPromptly)
{
    SocketClient idle(m_path);
    SocketClient half(m_path);
    SocketClient waiting(m_path);
    ASSERT_TRUE(half.send("{\"id\""));
    ASSERT_TRUE(waiting.send("hold forever\n"));
    m_loop.runUntil([&] { return !m_held.empty(); }, 5s);
    SocketClient queued(m_path);
    ASSERT_TRUE(queued.send("never served\n"));
    // Let the line reach the main queue without running it.
    std::this_thread::sleep_for(20ms);

    auto begin = std::chrono::steady_clock::now();
    m_socket.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_FALSE(std::filesystem::exists(m_path));

    // What was queued for the main thread finds the socket gone and does nothing.
    m_loop.runFor(10ms);
    EXPECT_EQ(m_received, (Lines{"hold forever"}));
    m_held[0]("too late\n");
    for (SocketClient* client : {&idle, &half, &waiting, &queued}) {
        client->poll();
        EXPECT_TRUE(client->ended());
        EXPECT_TRUE(client->lines().empty());
    }
}

// A client waiting on the person can still cancel: the line that passes reaches the main thread
// at once, lines sent for the waiting request come before its reply, and the rest keep order.
TEST_F(ToolSocketTest, WhileAReplyIsAwaitedPassingLinesGetThroughAndNotificationsComeFirst)
{
    m_socket.reset();
    m_socket = std::make_unique<ToolSocket>(
        m_path,
        [this](std::string line, ToolSocket::Completion completion) {
            m_received.push_back(line);
            if (line == "wait") {
                completion.send("progress 1\n");
                m_held.push_back(std::move(completion));
            } else if (line.rfind("cancel", 0) == 0) {
                m_held.at(0).send("progress 2\n");
                completion("never written\n");
            } else {
                completion("re:" + line + "\n");
            }
        },
        m_loop,
        [](std::string_view line) { return line.rfind("cancel", 0) == 0; });
    ASSERT_TRUE(m_socket->start());
    SocketClient client(m_path);
    ASSERT_TRUE(client.send("wait\nnext\ncancel wait\n"));
    EXPECT_EQ(awaitLines(client, 2), (Lines{"progress 1", "progress 2"}));
    EXPECT_EQ(m_received, (Lines{"wait", "cancel wait"}));

    m_held[0]("done\n");
    m_held[0].send("too late\n");
    EXPECT_EQ(awaitLines(client, 4), (Lines{"progress 1", "progress 2", "done", "re:next"}));
    EXPECT_NE(m_held[0].client(), 0u);
}

} // namespace
