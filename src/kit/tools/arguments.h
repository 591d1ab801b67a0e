// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace kit::tools {

// A tool's arguments object, read key by key. Absent bytes read as an empty object; an absent
// key and a null one both read as nothing; a key of the wrong type throws
// mcp::ToolError::badArguments saying which key and what it should be. Keys not asked for are
// ignored.
class Arguments
{
public:
    static Arguments parse(const std::optional<std::string>& bytes);
    explicit Arguments(nlohmann::json object)
        : m_json(std::move(object))
    {}

    const nlohmann::json& raw() const { return m_json; }
    bool has(const char* key) const { return m_json.contains(key); }
    bool isNull(const char* key) const;

    std::optional<std::string> string(const char* key) const;
    std::string requiredString(const char* key) const;
    std::optional<bool> boolean(const char* key) const;
    bool requiredBoolean(const char* key) const;
    std::optional<int64_t> integer(const char* key) const;
    std::optional<double> number(const char* key) const;
    // Null when absent or null.
    const nlohmann::json* array(const char* key) const;
    const nlohmann::json* object(const char* key) const;

private:
    const nlohmann::json* value(const char* key) const;
    [[noreturn]] static void missing(const char* key);

    nlohmann::json m_json;
};

// One line, slashes as they are: how every answer is written. Plain JSON sorts its keys; an
// ordered record keeps them as they were put in.
std::string compact(const nlohmann::json& value);
std::string compact(const nlohmann::ordered_json& value);

} // namespace kit::tools
