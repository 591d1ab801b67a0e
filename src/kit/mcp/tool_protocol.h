// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_error.h"

#include <nlohmann/json.hpp>

#include <cstddef>
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

    // A tools/call with what a long-running tool needs besides its arguments.
    struct Call
    {
        std::string name;
        // The arguments object as the request's own bytes decoded it, not written out again;
        // for a long line, the bytes themselves instead.
        std::optional<nlohmann::json> arguments;
        std::optional<std::string> argumentsText;
        nlohmann::json id;
        // params._meta.progressToken, for notifications/progress while the call runs.
        std::optional<nlohmann::json> progressToken;
    };
    using CallTool = std::function<void(Call call, ToolCompletion completion)>;
    // Told the id of a request its client cancelled with notifications/cancelled.
    using Cancel = std::function<void(const nlohmann::json& requestId)>;
    // Whether the tool reads these arguments whole with a strict JSON reader, failing on any fault
    // in them, before its call returns. A long line for such a tool is not checked beforehand;
    // when its call fails at once, the line is checked then, and a fault in it is the parse error.
    using ReadsStrictly = std::function<bool(const std::string& name, std::string_view arguments)>;

    static constexpr std::string_view kDefaultProtocolVersion = "2025-06-18";
    static constexpr std::string_view kServerName = "Vantorel";
    // The most one request line may hold. A whole 1,000-shortcut bar written out is about 670 KB,
    // so a proposal of every shortcut fits many times over while a client's memory stays bounded.
    static constexpr std::size_t kMaxLineBytes = std::size_t{8} << 20;
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
    // The same with cancellation and the whole call: a call completed with
    // ToolResult::withdrawn() gets no reply.
    static void respond(std::string_view line,
                        std::string_view version,
                        const ToolList& list,
                        const CallTool& call,
                        const Cancel& cancel,
                        ReplyCompletion completion,
                        const ReadsStrictly& readsStrictly = {});
    // The synchronous form, for callers whose tools answer at once.
    static std::optional<std::string> respond(std::string_view line,
                                              std::string_view version,
                                              const ToolList& list,
                                              const SyncToolCall& call);

    static std::string error(const nlohmann::json& id, int code, std::string_view message);
    static std::string result(const nlohmann::json& id, const nlohmann::json& value);

    // Whether respond() answers this line at all: false only for notifications.
    static bool expectsReply(std::string_view line);

    // A reply respond() owes a line: the id it carries, and whether the line could be read (an
    // unreadable line is answered with the parse error under a null id).
    struct ReplyDue
    {
        nlohmann::json id;
        bool readable = true;
    };
    // Nothing for a notification.
    static std::optional<ReplyDue> replyDue(std::string_view line);
    // The reply to a line that cannot be served at all (the server is unreachable): the parse
    // error for an unreadable line, else `message` under `code` with the line's id.
    static std::string refuse(const ReplyDue& due, int code, std::string_view message);
    // The same for a line: nothing when no reply is due.
    static std::optional<std::string>
    refuse(std::string_view line, int code, std::string_view message);

    // The answer to a line too long to be read (LineFramer's limit): a parse error under a null
    // id, since the id is never seen.
    static const std::string& lineTooLong();
    // The same under the request's own id when its first or last bytes show it.
    static std::string lineTooLong(std::string_view start, std::string_view end);
    // The id a request line shows as a top-level member within its first or last bytes: the
    // first member after the opening brace or one before it, or the last before the closing one.
    static std::optional<nlohmann::json> visibleID(std::string_view start, std::string_view end);

    // A notifications/progress line for a call that is still running.
    static std::string
    progress(const nlohmann::json& token, double progress, std::string_view message);
    // Whether the line is a notifications/cancelled; cheap for long lines, which never are.
    static bool isCancellation(std::string_view line);
    // The text sent with initialize, in this build's words.
    static const std::string& instructions();
};

} // namespace kit::mcp
