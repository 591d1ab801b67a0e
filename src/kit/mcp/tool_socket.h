// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_protocol.h"
#include "kit/support/main_queue.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kit::mcp {

// Cuts a byte stream into newline-ended lines, for the tool socket and the bridge alike so the two
// cannot disagree. Empty lines are skipped. A line longer than the limit is never gathered: its
// bytes are dropped up to its newline and it is reported as too long, so a peer cannot make us
// hold more than the limit. One instance per stream, on one thread.
class LineFramer
{
public:
    // Gets each complete line, or nothing for a line over the limit; answers false to stop.
    using Sink = std::function<bool(std::optional<std::string_view> line)>;

    explicit LineFramer(std::size_t maxLineBytes = ToolProtocol::kMaxLineBytes)
        : m_maxLineBytes(maxLineBytes)
    {}

    // Hands the lines completed by `bytes` to the sink in order; false when the sink stopped
    // (the rest of `bytes` is then dropped).
    bool feed(std::string_view bytes, const Sink& sink);
    // The unfinished last line, emptied; nothing when it was already over the limit.
    std::optional<std::string> takeRest();
    // Bytes held for the unfinished line.
    std::size_t heldBytes() const { return m_pending.capacity(); }
    // While the sink is told of a line over the limit: its first and last bytes, where a
    // request's id usually is.
    std::string_view overLongStart() const { return m_overStart; }
    std::string_view overLongEnd() const { return m_overEnd; }

    static constexpr std::size_t kKeptEdgeBytes = 4096;

private:
    std::size_t m_maxLineBytes;
    std::string m_pending;
    bool m_overLimit = false;
    std::string m_overStart;
    std::string m_overEnd;
};

// Serves request lines on a Unix-domain socket: an accept thread and a thread per client, which
// hands each line to `respond` on the main queue and waits for its reply before the next; a line
// over the limit is answered with ToolProtocol::lineTooLong() without reaching `respond`. While a
// reply is awaited the client's thread goes on reading, so lines `passes` picks (a cancellation)
// reach `respond` at once. start() and stop() are safe from any thread; destruction disconnects
// clients and joins them, never from inside respond.
class ToolSocket
{
    struct Client;

public:
    // Given with each line; copyable, and may be used later, on any thread.
    class Completion
    {
    public:
        Completion() = default;
        // The reply line, or nothing when none is due; only the first call counts.
        void operator()(std::optional<std::string> reply) const;
        // Writes a line to the same client ahead of the reply (a notification); dropped once
        // the reply is in.
        void send(std::string line) const;
        // Tells clients apart, for a line that names an earlier request of the same client.
        std::uint64_t client() const;

    private:
        friend class ToolSocket;
        Completion(std::shared_ptr<Client> client, std::uint64_t request)
            : m_client(std::move(client))
            , m_request(request)
        {}
        std::shared_ptr<Client> m_client;
        std::uint64_t m_request = 0;
    };
    // Always called on the main queue.
    using Respond = std::function<void(std::string line, Completion completion)>;
    // Whether a line goes to `respond` even while an earlier one awaits its reply. Such a line
    // gets no reply.
    using Passes = std::function<bool(std::string_view line)>;

    // Bytes read at a time; the line being gathered grows up to ToolProtocol::kMaxLineBytes.
    static constexpr std::size_t kChunkBytes = 65536;
    static constexpr int kBacklog = 8;
    // Lines read ahead while a reply is awaited, at most; past this the client is not read.
    static constexpr std::size_t kMostQueuedLines = 64;
    // Notification bytes held for a client that does not read them.
    static constexpr std::size_t kMostUnsentBytes = std::size_t{1} << 20;

    // `mainQueue` must outlive the socket.
    ToolSocket(std::string path,
               Respond respond,
               support::MainQueue& mainQueue,
               Passes passes = {});
    ~ToolSocket();
    ToolSocket(const ToolSocket&) = delete;
    ToolSocket& operator=(const ToolSocket&) = delete;

    // Listens at the path, replacing a stale socket file, with the file readable and writable by
    // the owner only. True when listening afterwards; failures are logged and leave it off.
    bool start();
    // Stops listening and removes the socket file. Clients already connected are served until
    // they hang up.
    void stop();

    bool isListening() const;
    const std::string& path() const { return m_path; }
    // Client threads not yet finished (for tests and figures).
    std::size_t clientCount() const;

private:
    void acceptLoop(int listener);
    void serve(const std::shared_ptr<Client>& client);
    // Hands a line to `respond` on the main queue; request 0 for a line whose reply is not
    // awaited. False when the socket is closing.
    bool post(const std::shared_ptr<Client>& client, std::uint64_t request, std::string line);
    // Joins the threads of clients that have hung up.
    void reapFinished();

    const std::string m_path;
    // Shared so that a task still queued on the main thread after destruction finds it gone.
    std::shared_ptr<const Respond> m_respond;
    support::MainQueue& m_mainQueue;
    Passes m_passes;

    mutable std::mutex m_lock;
    int m_fd = -1;
    std::thread m_acceptThread;

    mutable std::mutex m_clientsMutex;
    std::vector<std::shared_ptr<Client>> m_clients;
};

} // namespace kit::mcp
