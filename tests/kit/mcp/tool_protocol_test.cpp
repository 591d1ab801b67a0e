// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_protocol.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace {

using kit::mcp::ToolDescription;
using kit::mcp::ToolError;
using kit::mcp::ToolProtocol;
using kit::mcp::ToolResult;
using nlohmann::json;

std::vector<ToolDescription> tools()
{
    return {
        {"list_bars", "The bars.", R"({"type":"object","properties":{}})"},
        {"broken", "Schema is not JSON.", "{not json"},
        {"array_schema", "Schema is not an object.", "[1]"},
    };
}

// Answers each tool by name: "echo" returns its arguments (or "none"), "fail" a ToolError,
// "bytes" a text with invalid UTF-8 and a URL.
ToolResult cannedCall(const std::string& name, const std::optional<std::string>& arguments)
{
    if (name == "echo") {
        return ToolResult::success(arguments.value_or("none"));
    }
    if (name == "bytes") {
        return ToolResult::success("{\"url\":\"https://example.com/a\",\"bad\":\"\xff\xfe\"}");
    }
    if (name == "decode") {
        return ToolResult::failure(std::string("key 'name' not found"));
    }
    return ToolResult::failure(ToolError::unknownTool(name));
}

std::optional<std::string> answer(std::string_view line)
{
    return ToolProtocol::respond(line, "1.2.3", &tools, &cannedCall);
}

struct LineCase
{
    const char* name;
    const char* line;
    std::optional<std::string> reply;
};

const LineCase kLines[] = {
    {"Ping",
     R"({"jsonrpc":"2.0","id":1,"method":"ping"})",
     R"({"id":1,"jsonrpc":"2.0","result":{}})"},
    {"StringIDEchoed",
     R"({"id":"abc","method":"ping"})",
     R"({"id":"abc","jsonrpc":"2.0","result":{}})"},
    {"ArrayIsParseError",
     "[1,2]",
     R"({"error":{"code":-32700,"message":"Parse error: not a JSON object"},"id":null,"jsonrpc":"2.0"})"},
    {"GarbageIsParseError",
     "{\"id\":1,",
     R"({"error":{"code":-32700,"message":"Parse error: not a JSON object"},"id":null,"jsonrpc":"2.0"})"},
    {"NotificationWithoutID", R"({"method":"tools/list"})", std::nullopt},
    {"NotificationWithNullID", R"({"id":null,"method":"tools/list"})", std::nullopt},
    {"NotificationOfToolCallDoesNothing",
     R"({"method":"tools/call","params":{"name":"echo"}})",
     std::nullopt},
    {"NoMethodWithID",
     R"({"id":"a"})",
     R"({"error":{"code":-32600,"message":"Invalid request: no method"},"id":"a","jsonrpc":"2.0"})"},
    {"NoMethodNoID", "{}", std::nullopt},
    {"UnknownMethod",
     R"({"id":7,"method":"resources/list"})",
     R"({"error":{"code":-32601,"message":"Method not found: resources/list"},"id":7,"jsonrpc":"2.0"})"},
    {"CallWithoutName",
     R"({"id":8,"method":"tools/call","params":{"arguments":{}}})",
     R"({"error":{"code":-32602,"message":"Invalid params: no tool name"},"id":8,"jsonrpc":"2.0"})"},
    {"CallArgumentsSortedCompact",
     R"({"id":9,"method":"tools/call","params":{"name":"echo","arguments":{"b":1, "a":"x/y"}}})",
     R"({"id":9,"jsonrpc":"2.0","result":{"content":[{"text":"{\"a\":\"x/y\",\"b\":1}","type":"text"}],"isError":false}})"},
    {"CallArgumentsNotAnObjectPassNothing",
     R"({"id":9,"method":"tools/call","params":{"name":"echo","arguments":[1]}})",
     R"({"id":9,"jsonrpc":"2.0","result":{"content":[{"text":"none","type":"text"}],"isError":false}})"},
    {"CallFailureIsAResult",
     R"({"id":10,"method":"tools/call","params":{"name":"create_apple_shortcut"}})",
     "{\"id\":10,\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":\"There is no tool called "
     "\u201Ccreate_apple_shortcut\u201D.\",\"type\":\"text\"}],\"isError\":true}}"},
    {"DecoderMessagePassesThrough",
     R"({"id":11,"method":"tools/call","params":{"name":"decode"}})",
     R"({"id":11,"jsonrpc":"2.0","result":{"content":[{"text":"key 'name' not found","type":"text"}],"isError":true}})"},
    {"AnswerSlashesUnescapedAndBadBytesReplaced",
     R"({"id":12,"method":"tools/call","params":{"name":"bytes"}})",
     "{\"id\":12,\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":\"{\\\"url\\\":\\\"https://"
     "example.com/"
     "a\\\",\\\"bad\\\":\\\"\uFFFD\uFFFD\\\"}\",\"type\":\"text\"}],\"isError\":false}}"},
};

// Nothing in a row's reply when none is due.
TEST(ToolProtocolLines, AnswerExactly)
{
    for (const LineCase& c : kLines) {
        SCOPED_TRACE(c.name);
        const auto expected = c.reply ? std::optional(*c.reply + "\n") : std::nullopt;
        EXPECT_EQ(answer(c.line), expected);
        EXPECT_EQ(ToolProtocol::expectsReply(c.line), expected.has_value());
    }
}

struct VersionCase
{
    const char* name;
    const char* params;
    const char* expected;
};

const VersionCase kVersions[] = {
    {"Given", R"(,"params":{"protocolVersion":"2024-11-05"})", "2024-11-05"},
    {"NoParams", "", "2025-06-18"},
    {"NumericVersion", R"(,"params":{"protocolVersion":20250618})", "2025-06-18"},
};

TEST(ToolProtocolInitialize, EchoesAStringVersionElseTheDefault)
{
    for (const VersionCase& param : kVersions) {
        SCOPED_TRACE(param.name);
        std::string line = std::string(R"({"id":1,"method":"initialize")") + param.params + "}";
        json reply = json::parse(*answer(line));
        const json& result = reply.at("result");
        EXPECT_EQ(result.at("protocolVersion"), param.expected);
        EXPECT_EQ(result.at("capabilities"), json::parse(R"({"tools":{}})"));
        EXPECT_EQ(result.at("serverInfo"), json::parse(R"({"name":"Vantorel","version":"1.2.3"})"));
        EXPECT_EQ(result.at("instructions"), ToolProtocol::instructions());
    }
}

TEST(ToolProtocol, ListsToolsInOrderWithParsedOrFallbackSchemasAndHintsWhereGiven)
{
    auto described = tools();
    described[0].title = "List bars";
    described[0].annotations = kit::mcp::ToolAnnotations{true, false, true, false};
    json listed = json::parse(*ToolProtocol::respond(R"({"id":1,"method":"tools/list"})",
                                                     "1",
                                                     [&] { return described; },
                                                     &cannedCall))["result"]["tools"];
    ASSERT_EQ(listed.size(), 3U);
    EXPECT_EQ(listed[0],
              json::parse(R"({"name":"list_bars","title":"List bars","description":"The bars.",
                "inputSchema":{"type":"object","properties":{}},
                "annotations":{"readOnlyHint":true,"destructiveHint":false,
                               "idempotentHint":true,"openWorldHint":false}})"));
    EXPECT_EQ(listed[1], json::parse(R"({"name":"broken","description":"Schema is not JSON.",
                                         "inputSchema":{"type":"object"}})"));
    EXPECT_EQ(listed[2]["inputSchema"], json::parse(R"({"type":"object"})"));
}

TEST(ToolProtocol, AThrowingToolStillGetsOneResult)
{
    auto reply =
        ToolProtocol::respond(R"({"id":1,"method":"tools/call","params":{"name":"x"}})",
                              "1",
                              &tools,
                              [](const std::string&, std::optional<std::string>) -> ToolResult {
                                  throw std::runtime_error("disk on fire");
                              });
    ASSERT_TRUE(reply);
    json parsed = json::parse(*reply);
    EXPECT_EQ(parsed.at("result").at("isError"), true);
    EXPECT_EQ(parsed.at("result").at("content")[0].at("text"), "disk on fire");
}

// A tool's answer is written into the reply by a path of its own; it must give exactly the bytes
// the JSON library would, replacing what is not UTF-8.
struct AnswerTextCase
{
    const char* name;
    std::string text;
};

const AnswerTextCase kAnswerTexts[] = {
    {"QuotesAndBackslashes", "say \"hi\" \\ C:\\path"},
    {"ShortEscapes", "\b\f\n\r\t"},
    {"OtherControls", std::string("\x00\x01\x1f\x7f end", 8)},
    {"MultiByte", "caf\u00e9 \u201cquoted\u201d \u203a \U0001F600"},
    {"LoneContinuation",
     "a\x80"
     "b"},
    {"Overlong", "\xc0\xaf"},
    {"Surrogate", "\xed\xa0\x80"},
    {"PastTheLastCodePoint", "\xf4\x90\x80\x80"},
    {"TruncatedAtTheEnd", "ok \xe2\x80"},
};

TEST(ToolProtocolAnswerText, IsWrittenAsTheJsonLibraryWritesIt)
{
    for (const AnswerTextCase& param : kAnswerTexts) {
        SCOPED_TRACE(param.name);
        for (bool ok : {true, false}) {
            const std::string& text = param.text;
            auto reply = ToolProtocol::respond(
                R"({"id":"x","method":"tools/call","params":{"name":"t"}})",
                "1",
                &tools,
                [&](const std::string&, const std::optional<std::string>&) {
                    return ok ? ToolResult::success(text) : ToolResult::failure(text);
                });
            json expected = {{"content", json::array({{{"type", "text"}, {"text", text}}})},
                             {"isError", !ok}};
            EXPECT_EQ(reply, ToolProtocol::result("x", expected));
        }
    }
}

TEST(ToolProtocol, DeepNestingIsAParseErrorNotAStackOverflow)
{
    EXPECT_EQ(answer(std::string(100'000, '[')), ToolProtocol::refuse("nonsense", 0, ""));
}

struct EdgeCase
{
    const char* name;
    const char* start;
    const char* end;
    std::optional<json> id;
};

const EdgeCase kEdges[] = {
    {"FirstMember", R"({"id":7,"method":"tools/call","params":{"argu)", "", json(7)},
    {"AfterSmallMembers",
     R"( { "jsonrpc" : "2.0", "meta":{"id":1,"a":[1,{"b":"}"}]}, "id" : "r-1", "params":{)",
     "",
     json("r-1")},
    {"NestedOnlyInTheStart",
     R"({"method":"tools/call","params":{"id":3,"arguments":{"x)",
     "",
     std::nullopt},
    {"NumberCutByTheEdge", R"({"id":12)", "", std::nullopt},
    {"NullID", R"({"id":null,"method":"x")", "", std::nullopt},
    {"LastMember", "", R"(xx"}]}},"jsonrpc":"2.0","id":42})", json(42)},
    {"LastMemberStringWithEscapes", "", R"(xx"}}, "id" : "a\"b\\" } )", json("a\"b\\")},
    {"NestedLastMember", "", R"(xx","arguments":{"id":5}}})", std::nullopt},
    {"InsideAString", "", R"(xx"text":"a,\"id\":5}"})", std::nullopt},
    {"KeyMerelyEndingInID", "", R"(xx","uuid":5})", std::nullopt},
    {"StartWinsOverEnd", R"({"id":1,"params":{)", R"(,"id":2})", json(1)},
};

// An over-long line's answer carries its id only when the kept bytes show it beyond doubt.
TEST(ToolProtocolVisibleID, ReadsOnlyATopLevelID)
{
    for (const EdgeCase& param : kEdges) {
        SCOPED_TRACE(param.name);
        EXPECT_EQ(ToolProtocol::visibleID(param.start, param.end), param.id);
    }
}

TEST(ToolProtocol, AnOverLongLineIsAnsweredUnderTheIDItShows)
{
    json reply = json::parse(ToolProtocol::lineTooLong(R"({"id":"big","params":{)", ""));
    EXPECT_EQ(reply["id"], "big");
    EXPECT_EQ(reply["error"]["code"], ToolProtocol::kParseError);
    EXPECT_EQ(ToolProtocol::lineTooLong("{\"params\":", "}}"), ToolProtocol::lineTooLong());
}

// A cancellation is a notification: it names its request and is never answered; the call it
// names, completed as withdrawn, is not answered either.
TEST(ToolProtocol, CancellationReachesTheCallAndNothingIsAnswered)
{
    std::optional<ToolProtocol::Call> called;
    ToolProtocol::ToolCompletion later;
    std::vector<json> cancelled;
    std::vector<std::optional<std::string>> replies;
    auto respond = [&](std::string_view line) {
        ToolProtocol::respond(
            line,
            "1",
            &tools,
            [&](ToolProtocol::Call call, ToolProtocol::ToolCompletion done) {
                called = std::move(call);
                later = std::move(done);
            },
            [&](const json& id) { cancelled.push_back(id); },
            [&](std::optional<std::string> reply) { replies.push_back(std::move(reply)); });
    };
    respond(
        R"({"id":"c1","method":"tools/call","params":{"name":"add_bar","arguments":{"name":"P"},"_meta":{"progressToken":5}}})");
    ASSERT_TRUE(called);
    EXPECT_EQ(called->id, "c1");
    EXPECT_EQ(called->progressToken, json(5));
    EXPECT_EQ(called->arguments, json::parse(R"({"name":"P"})"));

    respond(
        R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":"c1","reason":"gone"}})");
    EXPECT_EQ(cancelled, (std::vector<json>{"c1"}));
    later(ToolResult::withdrawn());
    later(ToolResult::success("{}"));
    EXPECT_EQ(replies, (std::vector<std::optional<std::string>>{std::nullopt, std::nullopt}));
    EXPECT_TRUE(ToolProtocol::isCancellation(
        R"({"method":"notifications/cancelled","params":{"requestId":1}})"));
    EXPECT_FALSE(ToolProtocol::isCancellation(
        R"({"id":1,"method":"tools/call","params":{"name":"notifications/cancelled"}})"));
}

// Answers a line whose call `tool` completes at once; the reply, if any, comes back.
std::optional<std::string> serve(const std::string& line,
                                 const ToolProtocol::CallTool& tool,
                                 const ToolProtocol::ReadsStrictly& strictly = {})
{
    std::optional<std::string> reply;
    ToolProtocol::respond(
        line,
        "1",
        &tools,
        tool,
        {},
        [&](std::optional<std::string> line) { reply = std::move(line); },
        strictly);
    return reply;
}

// A long call's arguments reach the tool as the request's own bytes, never rebuilt, while the
// line as a whole is held to JSON exactly as a short one is.
TEST(ToolProtocol, ALongCallsArgumentsAreTheRequestsOwnBytes)
{
    const std::string arguments =
        R"({ "note" : ")" + std::string(70'000, 'x') + R"(", "bars": [ ] , "note": "last" })";
    const std::string line = R"({"id":4, "method":"tools/call","params":{"arguments":)" + arguments
                             + R"(,"name":"propose","_meta":{"progressToken":"p"}}})";
    std::optional<ToolProtocol::Call> called;
    std::optional<std::string> reply;
    auto respond = [&](const std::string& text) {
        called.reset();
        reply = serve(text, [&](ToolProtocol::Call call, ToolProtocol::ToolCompletion done) {
            called = std::move(call);
            done(ToolResult::success("{}"));
        });
    };
    respond(line);
    ASSERT_TRUE(called);
    EXPECT_EQ(called->name, "propose");
    EXPECT_EQ(called->argumentsText, arguments);
    EXPECT_FALSE(called->arguments);
    EXPECT_EQ(called->progressToken, json("p"));
    EXPECT_EQ(json::parse(*reply)["id"], 4);

    respond(line.substr(0, line.size() - 1));
    EXPECT_FALSE(called);
    EXPECT_EQ(json::parse(*reply)["error"]["code"], ToolProtocol::kParseError);

    // Nesting is held to the same limit as a short line's: the line, params and arguments
    // objects, then the lists.
    for (int depth : {ToolProtocol::kMaxDepth, ToolProtocol::kMaxDepth + 1}) {
        const size_t lists = static_cast<size_t>(depth - 3);
        respond(R"({"id":5,"method":"tools/call","params":{"name":"propose","arguments":{"pad":")"
                + std::string(70'000, 'x') + R"(","n":)" + std::string(lists, '[')
                + std::string(lists, ']') + "}}}");
        EXPECT_EQ(called.has_value(), depth == ToolProtocol::kMaxDepth) << depth;
    }
}

// However a long line spells its arguments, the tool gets what the tree would hold.
TEST(ToolProtocol, ALongCallsArgumentsAreTheOnesTheTreeHolds)
{
    const std::string big = R"({"pad":")" + std::string(70'000, 'x') + R"("})";
    const std::string head = R"({"id":1,"method":"tools/call",)";
    const std::vector<std::string> lines = {
        head + R"("params":{"name":"propose","arguments":)" + big
            + R"(},"params":{"name":"propose","arguments":{"b":1}}})",
        head + R"("params":{"name":"propose","arguments":{"b":1}},"params":{"name":"propose",)"
            + R"("arguments":)" + big + "}}",
        head + R"("params":{"name":"propose","arguments":)" + big + R"(,"arguments":{"b":2}}})",
        head + R"("params":{"name":"propose","arguments":[)" + big + "]}}",
    };
    for (const auto& line : lines) {
        SCOPED_TRACE(line.substr(0, 90));
        std::optional<json> seen;
        serve(line, [&](ToolProtocol::Call call, ToolProtocol::ToolCompletion done) {
            seen = call.argumentsText ? json::parse(*call.argumentsText) : call.arguments;
            done(ToolResult::success("{}"));
        });
        const json params = json::parse(line)["params"];
        if (params.is_object() && params.contains("arguments") && params["arguments"].is_object()) {
            EXPECT_EQ(seen, params["arguments"]);
        } else {
            EXPECT_FALSE(seen && seen->contains("pad"));
        }
    }
}

// A tool that reads its long arguments strictly itself gets them unchecked, and the line is held
// to JSON only when the tool fails: a fault anywhere in the line is the parse error either way.
TEST(ToolProtocol, ALongLineForAStrictReaderIsHeldToJsonAllTheSame)
{
    const std::string pad = std::string(70'000, 'x');
    const std::string valid = R"({"pad":")" + pad + R"(","b":[1,{"c":"\"}"}]})";
    const std::string head = R"({"id":3,"method":"tools/call","params":{"name":"propose",)";
    struct Case
    {
        std::string line;
        bool toolReads;       // false: the tool fails without reading, as when writes are off
        std::string expected; // "ok", "failed" or "parse"
        int toolCalls;
    };
    const std::vector<Case> cases = {
        {head + R"("arguments":)" + valid + "}}", true, "ok", 1},
        {head + R"("arguments":)" + valid + "}}", false, "failed", 1},
        {head + R"("arguments":{"pad":")" + pad + R"(","b":[1,]}}})", true, "parse", 1},
        {head + R"("arguments":{"pad":")" + pad + R"(","b":tru}}})", false, "parse", 1},
        {head + R"("arguments":{"pad":")" + pad + "\x01\"}}}", true, "parse", 1},
        {head + R"("arguments":)" + valid + "}} x", true, "parse", 0},
        {head + R"("arguments":)" + valid + R"(,"name":7}})", true, "other", 0},
        // Keys spelled with escapes are read the checked way.
        {head + R"("argum\u0065nts":)" + valid + "}}", true, "ok", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line.substr(c.line.size() - 40));
        int calls = 0;
        auto reply = serve(
            c.line,
            [&](ToolProtocol::Call call, const ToolProtocol::ToolCompletion& done) {
                ++calls;
                if (!call.argumentsText && !call.arguments) {
                    done(ToolResult::failure(std::string("no arguments")));
                    return;
                }
                const json arguments = call.argumentsText
                                           ? json::parse(*call.argumentsText, nullptr, false)
                                           : *call.arguments;
                if (!c.toolReads || arguments.is_discarded()) {
                    done(ToolResult::failure(std::string("refused")));
                    return;
                }
                EXPECT_EQ(arguments, json::parse(valid));
                done(ToolResult::success("{}"));
            },
            [](const std::string& name, std::string_view arguments) {
                return name == "propose" && arguments.size() > 65'536;
            });
        ASSERT_TRUE(reply);
        const json answer = json::parse(*reply);
        const std::string outcome =
            answer.contains("error")
                ? (answer["error"]["code"] == ToolProtocol::kParseError ? "parse" : "other")
                : (answer["result"]["isError"] ? "failed" : "ok");
        EXPECT_EQ(outcome, c.expected);
        EXPECT_EQ(calls, c.toolCalls);
    }
}

} // namespace
