// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_error.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::mcp {

// Turns one received JSON-RPC line into at most one reply line (compact, sorted keys, "/" left
// unescaped, ending in a newline). Stateless and reentrant; runs `list` and `call` on the caller's
// thread; nothing throws out of it.
class ToolProtocol
{
public:
    using ToolList = std::function<std::vector<ToolDescription>()>;
    // Must be called exactly once, perhaps later and on another thread.
    using ToolCompletion = std::function<void(ToolResult)>;
    // The tool's name and its arguments object as JSON text (nothing when absent or not an object).
    using ToolCall = std::function<void(
        const std::string& name, std::optional<std::string> arguments, ToolCompletion completion)>;
    using SyncToolCall =
        std::function<ToolResult(const std::string& name, std::optional<std::string> arguments)>;
    // The reply line, or nothing when none is due.
    using ReplyCompletion = std::function<void(std::optional<std::string> reply)>;

    static constexpr std::string_view kDefaultProtocolVersion = "2025-06-18";
    static constexpr std::string_view kServerName = "Vantorel";
    // Deeper lines are refused as unreadable: writing a reply recurses once per level.
    static constexpr int kMaxDepth = 512;

    static constexpr int kParseError = -32700;
    static constexpr int kInvalidRequest = -32600;
    static constexpr int kMethodNotFound = -32601;
    static constexpr int kInvalidParams = -32602;

    ToolProtocol() = delete;

    // The request's "method" when the line is a JSON object whose method is a string.
    static std::optional<std::string> method(std::string_view line);

    // The asynchronous form, the one the socket uses. `completion` receives the reply once the
    // tool (if any) has answered; a tool's failure is a result with isError true, never an error.
    static void respond(std::string_view line,
                        std::string_view version,
                        const ToolList& list,
                        const ToolCall& call,
                        ReplyCompletion completion);
    // The synchronous form, for callers whose tools answer at once.
    static std::optional<std::string> respond(std::string_view line,
                                              std::string_view version,
                                              const ToolList& list,
                                              const SyncToolCall& call);

    static std::string error(const nlohmann::json& id, int code, std::string_view message);
    static std::string result(const nlohmann::json& id, const nlohmann::json& value);

    // Whether respond() answers this line at all: false only for notifications.
    static bool expectsReply(std::string_view line);
    // The error reply for a line that cannot be served at all (the server is unreachable):
    // `message` under `code` with the request's id, the parse error for an unreadable line, and
    // nothing when no reply is due.
    static std::optional<std::string>
    refuse(std::string_view line, int code, std::string_view message);

    // The text sent with initialize, in this build's words.
    static const std::string& instructions();
};

} // namespace kit::mcp
