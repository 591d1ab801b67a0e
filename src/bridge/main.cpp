// SPDX-License-Identifier: MIT
// vantorel-mcp: relays an assistant's JSON-RPC lines from standard input to the app's tool socket
// and the replies back to standard output. While the app cannot be reached, each request is
// answered with an error saying what to do, and the next request tries to connect again.
#include "kit/mcp/instance_marker.h"
#include "kit/mcp/tool_protocol.h"
#include "kit/mcp/tool_socket.h"
#include "kit/mcp/tool_socket_path.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using kit::mcp::InstanceMarker;
using kit::mcp::LineFramer;
using kit::mcp::ToolProtocol;
using kit::mcp::ToolSocketPath;

namespace {

constexpr int kUnavailable = -32000;
// The app keeps its marker while it runs and its socket only while assistants are on.
constexpr std::string_view kNotRunning = "Vantorel is not running; start Vantorel, then try again.";
constexpr std::string_view kAssistantsOff =
    "Vantorel has assistants turned off; turn them on in Vantorel's Settings, then try again.";
constexpr size_t kChunkBytes = 65536;

constexpr std::string_view kUsage =
    "Usage: vantorel-mcp\n"
    "Connects an AI assistant to Vantorel: the assistant starts this program as an MCP server and "
    "writes one JSON-RPC request per line to its standard input; each line is passed to the "
    "running Vantorel through its tool socket ($XDG_RUNTIME_DIR/vantorel.sock, or the socket in "
    "Vantorel's data folder when no runtime folder is set) and each reply is written to standard "
    "output as one line. Turn on assistants in Vantorel's Settings first; while Vantorel cannot be "
    "reached every request is answered with an error saying so. The program ends when its "
    "standard input closes, once the replies due have been written.\n";

bool writeAll(int fd, std::string_view bytes, int flags)
{
    while (!bytes.empty()) {
        ssize_t written = flags != 0 ? ::send(fd, bytes.data(), bytes.size(), flags)
                                     : ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

int connectTo(const std::string& path)
{
    if (!ToolSocketPath::fits(path)) {
        return -1;
    }
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    while (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno != EINTR) {
            ::close(fd);
            return -1;
        }
    }
    return fd;
}

// Splits the app's replies into lines, keeping an unfinished one for the next chunk. Unlike
// requests, replies have no length limit and an empty one still counts.
class ReplySplitter
{
public:
    template <class Sink> void feed(std::string_view bytes, Sink&& sink)
    {
        m_pending.append(bytes);
        size_t start = 0;
        for (;;) {
            size_t newline = m_pending.find('\n', m_scanned);
            if (newline == std::string::npos) {
                m_scanned = m_pending.size();
                break;
            }
            sink(std::string_view(m_pending).substr(start, newline - start));
            start = newline + 1;
            m_scanned = start;
        }
        m_pending.erase(0, start);
        m_scanned -= start;
    }

private:
    std::string m_pending;
    size_t m_scanned = 0;
};

// Standard output is shared by the reader of replies and the answers given without the app.
// The reader thread owns the connection's reading side; the main thread writes requests and
// alone opens and closes connections.
class Bridge
{
public:
    explicit Bridge(std::optional<std::string> path)
        : m_path(std::move(path))
    {}

    void request(std::string_view line)
    {
        std::optional<ToolProtocol::ReplyDue> due = ToolProtocol::replyDue(line);
        int fd = connection();
        {
            std::lock_guard lock(m_mutex);
            if (fd < 0 || !m_connected) {
                if (due) {
                    output(ToolProtocol::refuse(*due, kUnavailable, whyUnavailable()));
                }
                return;
            }
            // What is still owed a reply, should the app go away before it answers.
            if (due) {
                m_waiting.push_back(std::move(*due));
            } else if (ToolProtocol::isCancellation(line)) {
                // The app sends no reply to a cancelled request, and neither will we.
                nlohmann::json cancel = nlohmann::json::parse(line, nullptr, false);
                if (cancel.is_object() && cancel["params"].is_object()) {
                    forget(cancel["params"].value("requestId", nlohmann::json()));
                }
            }
        }
        std::string framed(line);
        framed.push_back('\n');
        if (!writeAll(fd, framed, MSG_NOSIGNAL)) {
            // The reader sees the end too and answers what is still waiting.
            ::shutdown(fd, SHUT_RDWR);
        }
    }

    // A line over the limit never goes to the app, which would refuse it the same way.
    void refuseTooLong(std::string_view start, std::string_view end)
    {
        std::lock_guard lock(m_mutex);
        output(ToolProtocol::lineTooLong(start, end));
    }

    // Lets the app answer what it has been sent, then waits for those replies.
    void finish()
    {
        if (m_fd >= 0) {
            ::shutdown(m_fd, SHUT_WR);
            m_reader.join();
            ::close(m_fd);
            m_fd = -1;
        }
    }

private:
    int connection()
    {
        {
            std::lock_guard lock(m_mutex);
            if (m_connected) {
                return m_fd;
            }
        }
        if (m_fd >= 0) {
            m_reader.join();
            ::close(m_fd);
            m_fd = -1;
        }
        if (!m_path) {
            return -1;
        }
        m_fd = connectTo(*m_path);
        if (m_fd < 0) {
            if (!m_toldWhy) {
                // Standard error ends up in the assistant's log, where a person looks first.
                std::fprintf(
                    stderr, "vantorel-mcp: cannot reach Vantorel at %s\n", m_path->c_str());
                m_toldWhy = true;
            }
            return -1;
        }
        {
            std::lock_guard lock(m_mutex);
            m_connected = true;
        }
        m_reader = std::thread([this, fd = m_fd] { readReplies(fd); });
        return m_fd;
    }

    void readReplies(int fd)
    {
        ReplySplitter replies;
        std::vector<char> chunk(kChunkBytes);
        for (;;) {
            ssize_t count = ::read(fd, chunk.data(), chunk.size());
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                break;
            }
            replies.feed(std::string_view(chunk.data(), static_cast<size_t>(count)),
                         [this](std::string_view reply) {
                             std::lock_guard lock(m_mutex);
                             settle(reply);
                             std::string line(reply);
                             line.push_back('\n');
                             output(line);
                         });
        }
        std::lock_guard lock(m_mutex);
        m_connected = false;
        if (!m_waiting.empty()) {
            std::string_view why = whyUnavailable();
            for (const auto& due : m_waiting) {
                output(ToolProtocol::refuse(due, kUnavailable, why));
            }
            m_waiting.clear();
        }
    }

    // Called with m_mutex held. The app writes keys in sorted order, so a line that starts with
    // "jsonrpc" has neither error nor id: a notification (progress), which answers no request. A
    // cancelled request gets no reply, so a reply settles the request with its id rather than
    // simply the oldest.
    void settle(std::string_view line)
    {
        if (line.starts_with(R"({"jsonrpc")")) {
            return;
        }
        std::optional<nlohmann::json> id = ToolProtocol::visibleID(
            line.substr(0, std::min(line.size(), LineFramer::kKeptEdgeBytes)), {});
        forget(id ? *id : nlohmann::json());
    }

    // Called with m_mutex held.
    void forget(const nlohmann::json& id)
    {
        auto it = std::find_if(
            m_waiting.begin(), m_waiting.end(), [&](const auto& due) { return due.id == id; });
        if (it != m_waiting.end()) {
            m_waiting.erase(it);
        }
    }

    std::string_view whyUnavailable() const
    {
        if (m_path && InstanceMarker(InstanceMarker::besideSocket(*m_path)).isRunning()) {
            return kAssistantsOff;
        }
        return kNotRunning;
    }

    // Called with m_mutex held.
    static void output(std::string_view line)
    {
        if (!writeAll(STDOUT_FILENO, line, 0)) {
            // Nobody reads our answers any more.
            ::_exit(0);
        }
    }

    std::optional<std::string> m_path;
    bool m_toldWhy = false;
    int m_fd = -1;
    std::thread m_reader;
    std::mutex m_mutex;
    bool m_connected = false;
    // The requests still waiting for their replies, to be answered should the app go away.
    std::deque<ToolProtocol::ReplyDue> m_waiting;
};

// Relays requests from standard input to the app until the input ends.
void relayStandardInput()
{
    Bridge bridge(ToolSocketPath::current());
    LineFramer requests;
    auto relay = [&bridge, &requests](std::optional<std::string_view> line) {
        if (line) {
            bridge.request(*line);
        } else {
            bridge.refuseTooLong(requests.overLongStart(), requests.overLongEnd());
        }
        return true;
    };
    std::vector<char> chunk(kChunkBytes);
    for (;;) {
        ssize_t count = ::read(STDIN_FILENO, chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        requests.feed(std::string_view(chunk.data(), static_cast<size_t>(count)), relay);
    }
    // A last request without its newline is still a request.
    std::optional<std::string> rest = requests.takeRest();
    if (!rest || !rest->empty()) {
        relay(rest);
    }
    bridge.finish();
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            std::fwrite(kUsage.data(), 1, kUsage.size(), stdout);
            return 0;
        }
        std::fprintf(stderr, "vantorel-mcp: unknown option %s (try --help)\n", argv[i]);
        return 2;
    }
    // A reader that went away is noticed on the write; the signal would end us first.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        relayStandardInput();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vantorel-mcp: %s\n", error.what());
        return 1;
    }
    return 0;
}
