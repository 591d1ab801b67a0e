// SPDX-License-Identifier: MIT
// One received line through the protocol, with a small tool list and tools that answer canned
// texts or fail. Whatever the bytes: no crash, at most one reply, and a reply is one line of JSON
// with the JSON-RPC shape, due exactly when expectsReply says so. The same bytes as a tool's
// answer must come back exactly as the JSON library would write them. The id an over-long line
// is answered under is never read from inside the request: an object without an id shows none.
// And the bytes as a long line's arguments get the same reply whether the tool reads them strictly
// itself (the protocol skipping its own check) or the protocol checks the line first.
#include "kit/mcp/tool_protocol.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

using kit::mcp::ToolDescription;
using kit::mcp::ToolError;
using kit::mcp::ToolProtocol;
using kit::mcp::ToolResult;
using nlohmann::json;

namespace {

std::vector<ToolDescription> tools()
{
    return {
        {"list_bars", "The bars.", R"({"type":"object","properties":{"bar":{"type":"string"}}})"},
        {"broken", "Bad schema.", "{\"type\":"},
        {"nested", "Deep schema.", std::string(600, '[') + std::string(600, ']')}};
}

ToolResult call(const std::string& name, const std::optional<std::string>& arguments)
{
    if (name == "list_bars") {
        return ToolResult::success(R"({"bars":[{"name":"Main","url":"https://example.com/"}]})");
    }
    if (name == "echo") {
        // Arguments travel back as the answer's text, bytes and all.
        return ToolResult::success(arguments.value_or(""));
    }
    if (name == "decode") {
        return ToolResult::failure(std::string("type must be string, but is number"));
    }
    if (name == "writes") {
        return ToolResult::failure(ToolError::writesOff());
    }
    return ToolResult::failure(ToolError::unknownTool(name));
}

void checkAnswerText(const std::string& text)
{
    auto reply =
        ToolProtocol::respond(R"({"id":1,"method":"tools/call","params":{"name":"raw"}})",
                              "0.1",
                              &tools,
                              [&text](const std::string&, const std::optional<std::string>&) {
                                  return ToolResult::success(text);
                              });
    json answer = {{"content", json::array({{{"type", "text"}, {"text", text}}})},
                   {"isError", false}};
    if (reply != ToolProtocol::result(1, answer)) {
        std::abort();
    }
}

// The reply to a tools/call line whose arguments are `arguments` padded past the size at which a
// strict tool gets the bytes unchecked; with `strict` false the protocol checks the line first.
std::optional<std::string> longCall(std::string_view arguments, bool strict)
{
    std::string line = R"({"id":5,"method":"tools/call","params":{"name":"strict","arguments":)";
    line.append(arguments);
    line.append(70'000, ' ');
    line.append("}}");
    std::optional<std::string> reply;
    ToolProtocol::respond(
        line,
        "0.1",
        &tools,
        [](ToolProtocol::Call call, const ToolProtocol::ToolCompletion& done) {
            const json read = call.argumentsText ? json::parse(*call.argumentsText, nullptr, false)
                              : call.arguments   ? *call.arguments
                                                 : json(json::value_t::discarded);
            done(read.is_discarded() ? ToolResult::failure(std::string("unreadable"))
                                     : ToolResult::success(read.dump()));
        },
        {},
        [&reply](std::optional<std::string> text) { reply = std::move(text); },
        [strict](const std::string& name, std::string_view) { return strict && name == "strict"; });
    return reply;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view line(reinterpret_cast<const char*>(data), size);
    if (longCall(line, true) != longCall(line, false)) {
        std::abort();
    }
    (void)ToolProtocol::method(line);
    if (std::optional<json> id = ToolProtocol::visibleID(line, line)) {
        json whole = json::parse(line, nullptr, false);
        if (!whole.is_discarded() && whole.is_object() && !whole.contains("id")) {
            std::abort();
        }
    }
    std::optional<std::string> reply = ToolProtocol::respond(line, "0.1", &tools, &call);
    if (reply.has_value() != ToolProtocol::expectsReply(line)) {
        std::abort();
    }
    if (!reply) {
        checkAnswerText(std::string(line));
        return 0;
    }
    if (reply->empty() || reply->back() != '\n' || reply->find('\n') != reply->size() - 1) {
        std::abort();
    }
    json parsed = json::parse(*reply, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object() || parsed.value("jsonrpc", "") != "2.0"
        || !parsed.contains("id") || (parsed.contains("result") == parsed.contains("error"))) {
        std::abort();
    }
    checkAnswerText(std::string(line));
    return 0;
}
