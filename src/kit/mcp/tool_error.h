// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace kit::mcp {

// What a client may assume of a tool before running it, for those that ask the person first.
struct ToolAnnotations
{
    bool readOnly = false;
    bool destructive = true;
    bool idempotent = false;
    bool openWorld = true;

    bool operator==(const ToolAnnotations&) const = default;
};

// One tool as tools/list shows it. The schema stays text until the list is answered.
struct ToolDescription
{
    std::string name;
    std::string description;
    std::string inputSchema;
    // Neither is listed when absent.
    std::string title = {};
    std::optional<ToolAnnotations> annotations = {};

    bool operator==(const ToolDescription&) const = default;
};

// Every way a tool call can fail that the assistant is told about in a sentence.
class ToolError
{
public:
    enum class Kind {
        UnknownTool,
        BadArguments,
        UnknownBar,
        UnknownShortcut,
        UnknownSession,
        WritesOff,
    };

    static ToolError unknownTool(std::string name) { return {Kind::UnknownTool, std::move(name)}; }
    static ToolError badArguments(std::string detail)
    {
        return {Kind::BadArguments, std::move(detail)};
    }
    static ToolError unknownBar(std::string text) { return {Kind::UnknownBar, std::move(text)}; }
    static ToolError unknownShortcut(std::string id)
    {
        return {Kind::UnknownShortcut, std::move(id)};
    }
    static ToolError unknownSession(std::string text)
    {
        return {Kind::UnknownSession, std::move(text)};
    }
    static ToolError writesOff() { return {Kind::WritesOff, {}}; }

    Kind kind() const { return m_kind; }
    const std::string& payload() const { return m_payload; }
    std::string message() const;

    bool operator==(const ToolError&) const = default;

private:
    ToolError(Kind kind, std::string payload)
        : m_kind(kind)
        , m_payload(std::move(payload))
    {}

    Kind m_kind;
    std::string m_payload;
};

// What a tool call ends with: the answer's JSON text, or the sentence saying why it failed
// (a ToolError's message, or a JSON decoder's own words).
class ToolResult
{
public:
    static ToolResult success(std::string json) { return ToolResult(std::move(json), {}, true); }
    static ToolResult failure(const ToolError& error)
    {
        return ToolResult(error.message(), error, false);
    }
    static ToolResult failure(std::string message)
    {
        return ToolResult(std::move(message), {}, false);
    }
    // The caller took the call back: no answer is due at all.
    static ToolResult withdrawn()
    {
        ToolResult result({}, {}, false);
        result.m_withdrawn = true;
        return result;
    }

    bool ok() const { return m_ok; }
    // The answer's JSON text when ok(), otherwise the failure's sentence.
    const std::string& text() const { return m_text; }
    const std::optional<ToolError>& error() const { return m_error; }
    bool isWithdrawn() const { return m_withdrawn; }

    bool operator==(const ToolResult&) const = default;

private:
    ToolResult(std::string text, std::optional<ToolError> error, bool ok)
        : m_text(std::move(text))
        , m_error(std::move(error))
        , m_ok(ok)
    {}

    std::string m_text;
    std::optional<ToolError> m_error;
    bool m_ok;
    bool m_withdrawn = false;
};

} // namespace kit::mcp
