// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_protocol.h"

#include "kit/support/json_reader.h"
#include "kit/support/platform_words.h"

#include <array>
#include <atomic>
#include <cctype>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

namespace kit::mcp {

using nlohmann::json;

namespace {

constexpr int kInternalError = -32603;

std::optional<json> parse(std::string_view text)
{
    // A hostile line must not make parsing or writing recurse without bound.
    if (!support::nestsWithin(text, ToolProtocol::kMaxDepth)) {
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

// Takes the value by value so a tool's long answer is moved into the reply, not copied again.
std::string encodeResult(const json& id, json value)
{
    json reply = json::object();
    reply["id"] = id;
    reply["jsonrpc"] = "2.0";
    reply["result"] = std::move(value);
    return encode(reply);
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
        json entry = {{"name", tool.name},
                      {"description", tool.description},
                      {"inputSchema", std::move(*schema)}};
        if (!tool.title.empty()) {
            entry["title"] = tool.title;
        }
        if (const auto& hints = tool.annotations) {
            entry["annotations"] = {{"readOnlyHint", hints->readOnly},
                                    {"destructiveHint", hints->destructive},
                                    {"idempotentHint", hints->idempotent},
                                    {"openWorldHint", hints->openWorld}};
        }
        tools.push_back(std::move(entry));
    }
    return {{"tools", std::move(tools)}};
}

// Mirrors respond(): a notification is a request with a method and an absent or null id; a
// request without a method is answered only when it carries an id.
bool isReplyDue(const json& request)
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

// The length of the UTF-8 sequence starting at `at`, or 0 when it is not one (overlong forms,
// surrogates and code points past U+10FFFF included, as the JSON library decides).
size_t sequenceLength(std::string_view text, size_t at)
{
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    auto continues = [&](size_t i, unsigned char low, unsigned char high) {
        return i < text.size() && byte(i) >= low && byte(i) <= high;
    };
    unsigned char lead = byte(at);
    if (lead >= 0xC2 && lead <= 0xDF) {
        return continues(at + 1, 0x80, 0xBF) ? 2 : 0;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;
        unsigned char high = lead == 0xED ? 0x9F : 0xBF;
        return continues(at + 1, low, high) && continues(at + 2, 0x80, 0xBF) ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        unsigned char low = lead == 0xF0 ? 0x90 : 0x80;
        unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;
        return continues(at + 1, low, high) && continues(at + 2, 0x80, 0xBF)
                       && continues(at + 3, 0x80, 0xBF)
                   ? 4
                   : 0;
    }
    return 0;
}

// The bytes `text` takes inside a JSON string, or nothing when it is not valid UTF-8. Measured
// first so a long answer is written into a buffer of the right size at once.
std::optional<size_t> escapedSize(std::string_view text)
{
    // What each ASCII byte takes escaped; 0 for the bytes of multi-byte sequences, checked whole.
    static constexpr auto kWidth = [] {
        std::array<unsigned char, 256> width{};
        for (size_t c = 0; c < 0x80; ++c) {
            width[c] = c < 0x20 ? 6 : 1;
        }
        for (unsigned char c : {'"', '\\', '\b', '\f', '\n', '\r', '\t'}) {
            width[c] = 2;
        }
        return width;
    }();
    size_t size = 0;
    size_t i = 0;
    while (i < text.size()) {
        const unsigned char width = kWidth[static_cast<unsigned char>(text[i])];
        if (width != 0) {
            size += width;
            ++i;
            continue;
        }
        size_t length = sequenceLength(text, i);
        if (length == 0) {
            return std::nullopt;
        }
        size += length;
        i += length;
    }
    return size;
}

// Appends `text` as the body of a JSON string, escaped exactly as the JSON library writes it, with
// `reserve` more bytes of room for what follows. False, with `out` untouched, when the text is
// not valid UTF-8. Writes through a pointer into space made once: a long answer has a quote every
// few bytes, and appending piece by piece costs several times more.
bool appendEscaped(std::string& out, std::string_view text, size_t reserve)
{
    static constexpr char kHex[] = "0123456789abcdef";
    std::optional<size_t> size = escapedSize(text);
    if (!size) {
        return false;
    }
    size_t start = out.size();
    out.reserve(start + *size + reserve);
    out.resize(start + *size);
    char* to = out.data() + start;
    for (char byte : text) {
        auto c = static_cast<unsigned char>(byte);
        // Bytes of multi-byte sequences, already checked, go through as they are.
        if (c >= 0x20 && c != '"' && c != '\\') {
            *to++ = byte;
            continue;
        }
        *to++ = '\\';
        switch (c) {
        case '"':
            *to++ = '"';
            break;
        case '\\':
            *to++ = '\\';
            break;
        case '\b':
            *to++ = 'b';
            break;
        case '\f':
            *to++ = 'f';
            break;
        case '\n':
            *to++ = 'n';
            break;
        case '\r':
            *to++ = 'r';
            break;
        case '\t':
            *to++ = 't';
            break;
        default:
            *to++ = 'u';
            *to++ = '0';
            *to++ = '0';
            *to++ = kHex[c >> 4];
            *to++ = kHex[c & 0xF];
        }
    }
    return true;
}

// The reply to a tools/call. Written directly rather than through a json value: a long answer
// (a whole bar's shortcuts) would otherwise be copied twice and escaped a byte at a time. The
// keys are in sorted order, as encode() writes them; text that is not valid UTF-8 takes the
// general path, which replaces the bad bytes.
std::string toolReply(const json& id, const ToolResult& answer)
{
    constexpr std::string_view kOkTail = R"(","type":"text"}],"isError":false}})";
    constexpr std::string_view kFailedTail = R"(","type":"text"}],"isError":true}})";
    const std::string& text = answer.text();
    std::string reply;
    try {
        reply = "{\"id\":" + id.dump(-1, ' ', false, json::error_handler_t::replace)
                + R"(,"jsonrpc":"2.0","result":{"content":[{"text":")";
    } catch (const std::exception&) {
        return "\n";
    }
    if (!appendEscaped(reply, text, kOkTail.size() + 1)) {
        return encodeResult(id, toolAnswer(answer));
    }
    reply += answer.ok() ? kOkTail : kFailedTail;
    reply.push_back('\n');
    return reply;
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
        if (m_done.exchange(true)) {
            return;
        }
        if (answer.isWithdrawn()) {
            m_completion(std::nullopt);
        } else {
            m_completion(toolReply(m_id, answer));
        }
    }

    bool done() const { return m_done; }
    // The completion, for a reply made another way; nothing is delivered here after.
    ToolProtocol::ReplyCompletion take()
    {
        m_done = true;
        return std::move(m_completion);
    }

private:
    json m_id;
    ToolProtocol::ReplyCompletion m_completion;
    std::atomic<bool> m_done = false;
};

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isNumberByte(char c)
{
    return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
}

// An id is a string or a number; anything else, or a token that does not parse, is none.
std::optional<json> idToken(std::string_view token)
{
    json value = json::parse(token.begin(), token.end(), nullptr, false);
    if (value.is_discarded() || !(value.is_string() || value.is_number())) {
        return std::nullopt;
    }
    return value;
}

// A quote or a bracket: what a skip over a value's bytes stops at.
bool isStructural(char c)
{
    static constexpr auto kStructural = [] {
        std::array<bool, 256> structural{};
        for (unsigned char b : {'"', '{', '}', '[', ']'}) {
            structural[b] = true;
        }
        return structural;
    }();
    return kStructural[static_cast<unsigned char>(c)];
}

// Reads an object's members from its bytes without decoding the values: a cut-off line's
// first bytes.
class LeadingScan
{
public:
    explicit LeadingScan(std::string_view text)
        : m_text(text)
    {}

    // The first top-level "id" within the bytes, which may end anywhere.
    std::optional<json> id()
    {
        std::optional<json> found;
        members(0, [&](std::string_view key, size_t start, size_t length) {
            // A number running into the end of the bytes may have been cut short.
            if (key != "\"id\"" || start + length >= m_text.size()) {
                return key != "\"id\"";
            }
            found = idToken(m_text.substr(start, length));
            return false;
        });
        return found;
    }

    // Where params.arguments lies in a whole line, found from its structure alone: the value
    // the tree would hold for any valid line (the last of twin keys counts). Nothing when a key
    // at either level is spelled with escapes, which would take decoding to compare.
    std::optional<std::pair<size_t, size_t>> argumentsSpan()
    {
        std::optional<std::pair<size_t, size_t>> found;
        bool plain = true;
        auto named = [&](std::string_view key, std::string_view name) {
            plain = plain && key.find('\\') == std::string_view::npos;
            return key.size() == name.size() + 2 && key.substr(1, name.size()) == name;
        };
        const bool whole = membersInPlace(0, [&](std::string_view key) {
            if (!named(key, "params")) {
                return plain && skipValue();
            }
            found.reset();
            if (m_at >= m_text.size() || m_text[m_at] != '{') {
                return skipValue();
            }
            const size_t outer = m_at;
            const bool read = membersInPlace(outer, [&](std::string_view inner) {
                const size_t start = m_at;
                if (!skipValue()) {
                    return false;
                }
                if (named(inner, "arguments")) {
                    found.emplace(start, m_at - start);
                }
                return plain;
            });
            return read && plain;
        });
        if (!whole || !plain) {
            return std::nullopt;
        }
        return found;
    }

private:
    // Tells `visit` each member's key (quoted) and value span in turn until it answers false;
    // true when the object was read to its end.
    template <class Visit> bool members(size_t from, const Visit& visit)
    {
        return membersInPlace(from, [&](std::string_view key) {
            size_t start = m_at;
            return skipValue() && visit(key, start, m_at - start);
        });
    }

    // The same, with `visit` passing over the value itself (the cursor at its start).
    template <class Visit> bool membersInPlace(size_t from, const Visit& visit)
    {
        m_at = from;
        skipSpace();
        if (!take('{')) {
            return false;
        }
        for (;;) {
            skipSpace();
            std::optional<std::string_view> key = string();
            skipSpace();
            if (!key || !take(':')) {
                return false;
            }
            skipSpace();
            if (!visit(*key)) {
                return false;
            }
            skipSpace();
            if (take('}')) {
                return true;
            }
            if (!take(',')) {
                return false;
            }
        }
    }

    void skipSpace()
    {
        while (m_at < m_text.size() && isSpace(m_text[m_at])) {
            ++m_at;
        }
    }

    bool take(char c)
    {
        if (m_at < m_text.size() && m_text[m_at] == c) {
            ++m_at;
            return true;
        }
        return false;
    }

    // The string at the cursor with its quotes.
    std::optional<std::string_view> string()
    {
        size_t start = m_at;
        if (!take('"')) {
            return std::nullopt;
        }
        // From quote to quote, a quote ending the string when an even run of backslashes
        // stands before it: long strings are most of a long line.
        for (;;) {
            const void* quote = m_at < m_text.size()
                                    ? std::memchr(m_text.data() + m_at, '"', m_text.size() - m_at)
                                    : nullptr;
            if (quote == nullptr) {
                m_at = m_text.size();
                return std::nullopt;
            }
            const size_t at = static_cast<size_t>(static_cast<const char*>(quote) - m_text.data());
            size_t slashes = 0;
            while (m_text[at - 1 - slashes] == '\\') {
                ++slashes;
            }
            m_at = at + 1;
            if (slashes % 2 == 0) {
                return m_text.substr(start, m_at - start);
            }
        }
    }

    bool skipValue()
    {
        if (m_at >= m_text.size()) {
            return false;
        }
        char c = m_text[m_at];
        if (c == '"') {
            return string().has_value();
        }
        if (c != '{' && c != '[') {
            while (m_at < m_text.size()
                   && (isNumberByte(m_text[m_at])
                       || std::isalpha(static_cast<unsigned char>(m_text[m_at])))) {
                ++m_at;
            }
            return true;
        }
        int depth = 0;
        while (m_at < m_text.size()) {
            // Between strings, only brackets count.
            while (m_at < m_text.size() && !isStructural(m_text[m_at])) {
                ++m_at;
            }
            if (m_at == m_text.size()) {
                break;
            }
            c = m_text[m_at];
            if (c == '"') {
                if (!string()) {
                    return false;
                }
                continue;
            }
            ++m_at;
            if (c == '{' || c == '[') {
                ++depth;
            } else if ((c == '}' || c == ']') && --depth == 0) {
                return true;
            }
        }
        return false;
    }

    std::string_view m_text;
    size_t m_at = 0;
};

// The id as the last member of the object the bytes end: `"id":7}` or `, "id" : "a"}`. Inside a
// string the quotes around id would be escaped, and a nested object ends in more than one brace.
std::optional<json> trailingID(std::string_view text)
{
    auto back = [&] {
        while (!text.empty() && isSpace(text.back())) {
            text.remove_suffix(1);
        }
    };
    back();
    if (text.empty() || text.back() != '}') {
        return std::nullopt;
    }
    text.remove_suffix(1);
    back();
    size_t end = text.size();
    size_t start = end;
    if (!text.empty() && text.back() == '"') {
        // The opening quote is the first one before that is not escaped.
        size_t at = end - 1;
        for (;;) {
            size_t quote = at == 0 ? std::string_view::npos : text.rfind('"', at - 1);
            if (quote == std::string_view::npos) {
                return std::nullopt;
            }
            size_t slashes = 0;
            while (slashes < quote && text[quote - 1 - slashes] == '\\') {
                ++slashes;
            }
            at = quote;
            if (slashes % 2 == 0) {
                break;
            }
        }
        start = at;
    } else {
        while (start > 0 && isNumberByte(text[start - 1])) {
            --start;
        }
    }
    if (start == end) {
        return std::nullopt;
    }
    std::string_view token = text.substr(start, end - start);
    text = text.substr(0, start);
    back();
    if (text.empty() || text.back() != ':') {
        return std::nullopt;
    }
    text.remove_suffix(1);
    back();
    if (!text.ends_with("\"id\"")) {
        return std::nullopt;
    }
    text.remove_suffix(4);
    back();
    if (text.empty() || (text.back() != ',' && text.back() != '{')) {
        return std::nullopt;
    }
    return idToken(token);
}

// Above this a tools/call line's arguments are not built into a tree: the tool gets them as the
// request's own bytes, and only the rest of the line is decoded. The whole line is still checked
// to be JSON, so a bad one is the same parse error either way.
constexpr size_t kArgumentsAsTextAbove = std::size_t{64} << 10;

struct Request
{
    std::optional<json> value;
    std::optional<std::string> argumentsText;
    // Whether argumentsText was taken from the line's structure without reading it as JSON.
    bool unchecked = false;
};

// Where the value of params.arguments lies in the line (its offset and length), found in the
// one pass that checks the whole line is strict JSON, no deeper than the limit, without building
// anything. The last of twin keys counts, as in the tree. Nothing when the pull reader doubts the
// line: that goes the slow way, so the tree parser still has the last word on what is JSON.
std::optional<std::pair<size_t, size_t>> argumentsSpan(std::string_view line)
{
    using support::JsonReader;
    try {
        // Counts nesting as nestsWithin() does, so a line too deep is refused the slow way.
        JsonReader reader(line, ToolProtocol::kMaxDepth);
        std::optional<std::pair<size_t, size_t>> found;
        reader.readObject([&](std::string_view key) {
            if (key != "params") {
                reader.skipValue();
                return;
            }
            found.reset();
            if (reader.peek() != JsonReader::Type::Object) {
                reader.skipValue();
                return;
            }
            reader.readObject([&](std::string_view inner) {
                const bool arguments = inner == "arguments";
                reader.peek(); // past the space before the value
                const size_t start = reader.position();
                reader.skipValue();
                if (arguments) {
                    found.emplace(start, reader.position() - start);
                }
            });
        });
        reader.expectEnd();
        return found;
    } catch (const support::JsonReadError&) {
        return std::nullopt;
    }
}

// The line with {} in place of its arguments.
std::string withoutArguments(std::string_view line, std::pair<size_t, size_t> arguments)
{
    std::string rest;
    rest.reserve(line.size() - arguments.second + 2);
    rest.append(line.substr(0, arguments.first));
    rest.append("{}");
    rest.append(line.substr(arguments.first + arguments.second));
    return rest;
}

Request readRequest(std::string_view line)
{
    if (line.size() <= kArgumentsAsTextAbove) {
        return {parse(line), std::nullopt, false};
    }
    auto arguments = argumentsSpan(line);
    if (!arguments || line[arguments->first] != '{') {
        return {parse(line), std::nullopt, false};
    }
    return {json::parse(withoutArguments(line, *arguments), nullptr, false),
            std::string(line.substr(arguments->first, arguments->second)),
            false};
}

// The way for a tool that reads its arguments strictly itself: their place is found from the
// line's structure alone and only the rest is parsed, so the long part is read once, by the tool.
// Nothing unless the line is a long tools/call request for such a tool.
std::optional<Request> readUnchecked(std::string_view line,
                                     const ToolProtocol::ReadsStrictly& readsStrictly)
{
    if (line.size() <= kArgumentsAsTextAbove) {
        return std::nullopt;
    }
    auto span = LeadingScan(line).argumentsSpan();
    if (!span || line[span->first] != '{') {
        return std::nullopt;
    }
    std::optional<json> value = parse(withoutArguments(line, *span));
    if (!value || !value->is_object()) {
        return std::nullopt;
    }
    auto id = value->find("id");
    auto method = value->find("method");
    auto params = value->find("params");
    if (id == value->end() || id->is_null() || method == value->end() || *method != "tools/call"
        || params == value->end() || !params->is_object()) {
        return std::nullopt;
    }
    auto name = params->find("name");
    std::string_view arguments = line.substr(span->first, span->second);
    if (name == params->end() || !name->is_string()
        || !readsStrictly(name->get_ref<const std::string&>(), arguments)) {
        return std::nullopt;
    }
    return Request{std::move(value), std::string(arguments), true};
}

// A failure told while a tool with unchecked arguments is still being called, kept back until
// the line is known to be JSON. Locked: a completion may come from another thread.
class HeldFailure
{
public:
    bool hold(const ToolResult& answer)
    {
        std::lock_guard lock(m_mutex);
        if (!m_calling || answer.ok() || answer.isWithdrawn()) {
            return false;
        }
        m_failure = answer;
        return true;
    }

    // Ends the call; what was held, if anything.
    std::optional<ToolResult> release()
    {
        std::lock_guard lock(m_mutex);
        m_calling = false;
        return std::move(m_failure);
    }

private:
    std::mutex m_mutex;
    bool m_calling = true;
    std::optional<ToolResult> m_failure;
};

void serve(Request read,
           std::string_view line,
           std::string_view version,
           const ToolProtocol::ToolList& list,
           const ToolProtocol::CallTool& call,
           const ToolProtocol::Cancel& cancel,
           ToolProtocol::ReplyCompletion completion);

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
    respond(
        line,
        version,
        list,
        [&call](Call request, ToolCompletion done) {
            std::optional<std::string> arguments = std::move(request.argumentsText);
            if (!arguments && request.arguments) {
                arguments = request.arguments->dump(-1, ' ', false, json::error_handler_t::replace);
            }
            call(request.name, std::move(arguments), std::move(done));
        },
        {},
        std::move(completion));
}

void ToolProtocol::respond(std::string_view line,
                           std::string_view version,
                           const ToolList& list,
                           const CallTool& call,
                           const Cancel& cancel,
                           ReplyCompletion completion,
                           const ReadsStrictly& readsStrictly)
{
    std::optional<Request> read;
    if (readsStrictly) {
        read = readUnchecked(line, readsStrictly);
    }
    serve(read ? std::move(*read) : readRequest(line),
          line,
          version,
          list,
          call,
          cancel,
          std::move(completion));
}

namespace {

void serve(Request read,
           std::string_view line,
           std::string_view version,
           const ToolProtocol::ToolList& list,
           const ToolProtocol::CallTool& call,
           const ToolProtocol::Cancel& cancel,
           ToolProtocol::ReplyCompletion completion)
{
    std::optional<json>& request = read.value;
    if (!request || !request->is_object()) {
        completion(parseError());
        return;
    }
    auto idEntry = request->find("id");
    const bool hasID = idEntry != request->end();
    json id = hasID ? *idEntry : json();

    auto methodEntry = request->find("method");
    if (methodEntry == request->end() || !methodEntry->is_string()) {
        completion(hasID ? std::optional(ToolProtocol::error(
                       id, ToolProtocol::kInvalidRequest, "Invalid request: no method"))
                         : std::nullopt);
        return;
    }
    const std::string& name = methodEntry->get_ref<const std::string&>();
    json params = json::object();
    if (auto it = request->find("params"); it != request->end() && it->is_object()) {
        params = std::move(*it);
    }
    if (id.is_null()) {
        if (name == "notifications/cancelled" && cancel) {
            if (auto it = params.find("requestId"); it != params.end() && !it->is_null()) {
                cancel(*it);
            }
        }
        completion(std::nullopt);
        return;
    }

    if (name == "tools/call") {
        auto tool = params.find("name");
        if (tool == params.end() || !tool->is_string()) {
            completion(ToolProtocol::error(
                id, ToolProtocol::kInvalidParams, "Invalid params: no tool name"));
            return;
        }
        ToolProtocol::Call request{
            tool->get<std::string>(), std::nullopt, std::nullopt, id, std::nullopt};
        if (read.argumentsText) {
            request.argumentsText = std::move(read.argumentsText);
        } else if (auto it = params.find("arguments"); it != params.end() && it->is_object()) {
            request.arguments = std::move(*it);
        }
        if (auto meta = params.find("_meta"); meta != params.end() && meta->is_object()) {
            auto token = meta->find("progressToken");
            if (token != meta->end() && (token->is_string() || token->is_number())) {
                request.progressToken = *token;
            }
        }
        auto reply = std::make_shared<CallReply>(id, std::move(completion));
        auto held = read.unchecked ? std::make_shared<HeldFailure>() : nullptr;
        ToolProtocol::ToolCompletion done = [reply, held](const ToolResult& answer) {
            if (!held || !held->hold(answer)) {
                reply->deliver(answer);
            }
        };
        try {
            call(std::move(request), done);
        } catch (const std::exception& failure) {
            done(ToolResult::failure(std::string(failure.what())));
        } catch (...) {
            done(ToolResult::failure(std::string("The tool failed.")));
        }
        if (std::optional<ToolResult> failure = held ? held->release() : std::nullopt) {
            // The tool stopped before it had read its arguments whole: the line is held to JSON
            // as any other, and when that takes the tree, served again that way.
            Request checked = readRequest(line);
            if (checked.argumentsText) {
                reply->deliver(*failure);
            } else {
                serve(std::move(checked), line, version, list, call, cancel, reply->take());
            }
        }
        return;
    }

    std::string reply;
    try {
        if (name == "initialize") {
            auto requested = params.find("protocolVersion");
            json protocolVersion = requested != params.end() && requested->is_string()
                                       ? *requested
                                       : json(ToolProtocol::kDefaultProtocolVersion);
            reply = ToolProtocol::result(
                id,
                {{"protocolVersion", std::move(protocolVersion)},
                 {"capabilities", {{"tools", json::object()}}},
                 {"serverInfo", {{"name", ToolProtocol::kServerName}, {"version", version}}},
                 {"instructions", ToolProtocol::instructions()}});
        } else if (name == "ping") {
            reply = ToolProtocol::result(id, json::object());
        } else if (name == "tools/list") {
            reply = ToolProtocol::result(id, toolsList(list));
        } else {
            reply =
                ToolProtocol::error(id, ToolProtocol::kMethodNotFound, "Method not found: " + name);
        }
    } catch (const std::exception& failure) {
        reply = ToolProtocol::error(
            id, kInternalError, std::string("Internal error: ") + failure.what());
    }
    completion(std::move(reply));
}

} // namespace

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
    return encodeResult(id, value);
}

bool ToolProtocol::expectsReply(std::string_view line)
{
    return replyDue(line).has_value();
}

std::optional<ToolProtocol::ReplyDue> ToolProtocol::replyDue(std::string_view line)
{
    std::optional<json> request = parse(line);
    if (!request || !request->is_object()) {
        return ReplyDue{json(), false};
    }
    if (!isReplyDue(*request)) {
        return std::nullopt;
    }
    auto id = request->find("id");
    return ReplyDue{id == request->end() ? json() : std::move(*id), true};
}

std::string ToolProtocol::refuse(const ReplyDue& due, int code, std::string_view message)
{
    return due.readable ? error(due.id, code, message) : parseError();
}

std::optional<std::string>
ToolProtocol::refuse(std::string_view line, int code, std::string_view message)
{
    std::optional<ReplyDue> due = replyDue(line);
    if (!due) {
        return std::nullopt;
    }
    return refuse(*due, code, message);
}

const std::string& ToolProtocol::lineTooLong()
{
    static const std::string kReply = error(nullptr,
                                            kParseError,
                                            "Parse error: the line is longer than "
                                                + std::to_string(kMaxLineBytes >> 20) + " MiB");
    return kReply;
}

std::optional<json> ToolProtocol::visibleID(std::string_view start, std::string_view end)
{
    if (auto id = LeadingScan(start).id()) {
        return id;
    }
    return trailingID(end);
}

std::string ToolProtocol::lineTooLong(std::string_view start, std::string_view end)
{
    std::optional<json> id = visibleID(start, end);
    if (!id) {
        return lineTooLong();
    }
    return error(*id,
                 kParseError,
                 "Parse error: the line is longer than " + std::to_string(kMaxLineBytes >> 20)
                     + " MiB");
}

std::string ToolProtocol::progress(const json& token, double progress, std::string_view message)
{
    return encode(
        {{"jsonrpc", "2.0"},
         {"method", "notifications/progress"},
         {"params", {{"progressToken", token}, {"progress", progress}, {"message", message}}}});
}

bool ToolProtocol::isCancellation(std::string_view line)
{
    // A cancellation names one request and perhaps a reason; anything longer is something else.
    constexpr size_t kMostBytes = 4096;
    if (line.size() > kMostBytes
        || line.find("notifications/cancelled") == std::string_view::npos) {
        return false;
    }
    return method(line) == "notifications/cancelled";
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
