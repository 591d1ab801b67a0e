// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_protocol.h"

#include "kit/support/platform_words.h"

#include <atomic>
#include <exception>
#include <memory>
#include <utility>

namespace kit::mcp {

using nlohmann::json;

namespace {

constexpr int kInternalError = -32603;

// Counts nesting outside strings, so a hostile line cannot make parsing or writing recurse
// without bound.
bool withinDepth(std::string_view text, int maxDepth)
{
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxDepth) {
                return false;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

std::optional<json> parse(std::string_view text)
{
    if (!withinDepth(text, ToolProtocol::kMaxDepth)) {
        return std::nullopt;
    }
    json value = json::parse(text.begin(), text.end(), nullptr, false);
    if (value.is_discarded()) {
        return std::nullopt;
    }
    return value;
}

std::string encode(const json& reply)
{
    try {
        std::string line = reply.dump(-1, ' ', false, json::error_handler_t::replace);
        line.push_back('\n');
        return line;
    } catch (const std::exception&) {
        return "\n";
    }
}

std::string parseError()
{
    return ToolProtocol::error(
        nullptr, ToolProtocol::kParseError, "Parse error: not a JSON object");
}

json toolsList(const ToolProtocol::ToolList& list)
{
    json tools = json::array();
    for (const auto& tool : list()) {
        std::optional<json> schema = parse(tool.inputSchema);
        if (!schema || !schema->is_object()) {
            schema = json{{"type", "object"}};
        }
        tools.push_back({{"name", tool.name},
                         {"description", tool.description},
                         {"inputSchema", std::move(*schema)}});
    }
    return {{"tools", std::move(tools)}};
}

// Mirrors respond(): a notification is a request with a method and an absent or null id; a
// request without a method is answered only when it carries an id.
bool replyDue(const json& request)
{
    auto id = request.find("id");
    if (id == request.end()) {
        return false;
    }
    auto method = request.find("method");
    return !id->is_null() || method == request.end() || !method->is_string();
}

json toolAnswer(const ToolResult& answer)
{
    return {{"content", json::array({{{"type", "text"}, {"text", answer.text()}}})},
            {"isError", !answer.ok()}};
}

// Delivers the reply of one tools/call at most once, whichever of the tool and respond's own
// failure handling gets there first.
class CallReply
{
public:
    CallReply(json id, ToolProtocol::ReplyCompletion completion)
        : m_id(std::move(id))
        , m_completion(std::move(completion))
    {}

    void deliver(const ToolResult& answer)
    {
        if (!m_done.exchange(true)) {
            m_completion(ToolProtocol::result(m_id, toolAnswer(answer)));
        }
    }

    bool done() const { return m_done; }

private:
    json m_id;
    ToolProtocol::ReplyCompletion m_completion;
    std::atomic<bool> m_done = false;
};

} // namespace

std::optional<std::string> ToolProtocol::method(std::string_view line)
{
    std::optional<json> request = parse(line);
    if (!request || !request->is_object()) {
        return std::nullopt;
    }
    auto it = request->find("method");
    if (it == request->end() || !it->is_string()) {
        return std::nullopt;
    }
    return it->get<std::string>();
}

void ToolProtocol::respond(std::string_view line,
                           std::string_view version,
                           const ToolList& list,
                           const ToolCall& call,
                           ReplyCompletion completion)
{
    std::optional<json> request = parse(line);
    if (!request || !request->is_object()) {
        completion(parseError());
        return;
    }
    auto idEntry = request->find("id");
    const bool hasID = idEntry != request->end();
    json id = hasID ? *idEntry : json();

    auto methodEntry = request->find("method");
    if (methodEntry == request->end() || !methodEntry->is_string()) {
        completion(hasID ? std::optional(error(id, kInvalidRequest, "Invalid request: no method"))
                         : std::nullopt);
        return;
    }
    if (id.is_null()) {
        completion(std::nullopt);
        return;
    }
    const std::string& name = methodEntry->get_ref<const std::string&>();
    json params = json::object();
    if (auto it = request->find("params"); it != request->end() && it->is_object()) {
        params = std::move(*it);
    }

    if (name == "tools/call") {
        auto tool = params.find("name");
        if (tool == params.end() || !tool->is_string()) {
            completion(error(id, kInvalidParams, "Invalid params: no tool name"));
            return;
        }
        std::optional<std::string> arguments;
        if (auto it = params.find("arguments"); it != params.end() && it->is_object()) {
            arguments = it->dump(-1, ' ', false, json::error_handler_t::replace);
        }
        auto reply = std::make_shared<CallReply>(id, std::move(completion));
        try {
            call(tool->get<std::string>(), std::move(arguments), [reply](ToolResult answer) {
                reply->deliver(answer);
            });
        } catch (const std::exception& failure) {
            reply->deliver(ToolResult::failure(std::string(failure.what())));
        } catch (...) {
            reply->deliver(ToolResult::failure(std::string("The tool failed.")));
        }
        return;
    }

    std::string reply;
    try {
        if (name == "initialize") {
            auto requested = params.find("protocolVersion");
            json protocolVersion = requested != params.end() && requested->is_string()
                                       ? *requested
                                       : json(kDefaultProtocolVersion);
            reply = result(id,
                           {{"protocolVersion", std::move(protocolVersion)},
                            {"capabilities", {{"tools", json::object()}}},
                            {"serverInfo", {{"name", kServerName}, {"version", version}}},
                            {"instructions", instructions()}});
        } else if (name == "ping") {
            reply = result(id, json::object());
        } else if (name == "tools/list") {
            reply = result(id, toolsList(list));
        } else {
            reply = error(id, kMethodNotFound, "Method not found: " + name);
        }
    } catch (const std::exception& failure) {
        reply = error(id, kInternalError, std::string("Internal error: ") + failure.what());
    }
    completion(std::move(reply));
}

std::optional<std::string> ToolProtocol::respond(std::string_view line,
                                                 std::string_view version,
                                                 const ToolList& list,
                                                 const SyncToolCall& call)
{
    std::optional<std::string> answer;
    respond(
        line,
        version,
        list,
        [&call](const std::string& name,
                std::optional<std::string> arguments,
                const ToolCompletion& completion) { completion(call(name, std::move(arguments))); },
        [&answer](std::optional<std::string> reply) { answer = std::move(reply); });
    return answer;
}

std::string ToolProtocol::error(const json& id, int code, std::string_view message)
{
    return encode(
        {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}});
}

std::string ToolProtocol::result(const json& id, const json& value)
{
    return encode({{"jsonrpc", "2.0"}, {"id", id}, {"result", value}});
}

bool ToolProtocol::expectsReply(std::string_view line)
{
    std::optional<json> request = parse(line);
    return !request || !request->is_object() || replyDue(*request);
}

std::optional<std::string>
ToolProtocol::refuse(std::string_view line, int code, std::string_view message)
{
    std::optional<json> request = parse(line);
    if (!request || !request->is_object()) {
        return parseError();
    }
    if (!replyDue(*request)) {
        return std::nullopt;
    }
    auto id = request->find("id");
    return error(id == request->end() ? json() : *id, code, message);
}

const std::string& ToolProtocol::instructions()
{
    static const std::string kInstructions = support::inPlatformWords(
        "Vantorel puts the things a person opens every day in the macOS menu bar: websites (in "
        "Vantorel's own panel, a window, or a browser), apps, files, folders, and groups of those "
        "behind one icon. Read before you write: list_bars, then list_shortcuts, so a change "
        "starts from what is there. A menu bar has room for about five icons, so prefer a group "
        "when adding several things. Every write tool only proposes: Vantorel shows the person "
        "what would change and the call answers once they apply or decline, or after a while with "
        "status waiting if they have not decided; do not repeat a proposal. Removing a shortcut, a "
        "group, a bar or an account goes through the same review, and a group takes everything in "
        "it. Choose icons from search_icons and links into apps from list_deep_links rather than "
        "guessing names or URL schemes.");
    return kInstructions;
}

} // namespace kit::mcp
