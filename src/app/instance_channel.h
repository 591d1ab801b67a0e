// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_socket.h"
#include "kit/support/main_queue.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace app {

// One running Vantorel per person: the first process takes a lock in the runtime folder and
// listens beside it for requests from later ones (open a document, settings changed, show
// yourself). A later process sends its request and exits. Main thread only, except `send`.
class InstanceChannel
{
public:
    static constexpr const char* kLockName = "vantorel.lock";
    static constexpr const char* kSocketName = "vantorel-instance.sock";
    static constexpr std::chrono::milliseconds kReplyWait{10'000};

    // Answers one request line with one reply line (JSON objects, without the newline).
    using Handler = std::function<std::string(const std::string& request)>;
    // Answers one request later, on the main thread, by calling `reply` once.
    using Reply = std::function<void(std::string reply)>;
    using LaterHandler = std::function<void(const std::string& request, Reply reply)>;

    explicit InstanceChannel(std::filesystem::path folder);
    ~InstanceChannel();
    InstanceChannel(const InstanceChannel&) = delete;
    InstanceChannel& operator=(const InstanceChannel&) = delete;

    // True when this process now holds the lock and listens; false when another process does.
    bool becomePrimary(Handler handler, kit::support::MainQueue& mainQueue);
    bool becomePrimary(LaterHandler handler, kit::support::MainQueue& mainQueue);
    bool isPrimary() const { return m_socket != nullptr; }
    // Stops listening and gives the lock back.
    void stop();

    const std::filesystem::path& folder() const { return m_folder; }

    // Sends one request to the process holding the lock; its reply, or nothing when no process
    // answers in time.
    static std::optional<std::string> send(const std::filesystem::path& folder,
                                           const std::string& request,
                                           std::chrono::milliseconds wait = kReplyWait);

private:
    std::filesystem::path m_folder;
    int m_lockFD = -1;
    std::unique_ptr<kit::mcp::ToolSocket> m_socket;
};

} // namespace app
