// SPDX-License-Identifier: MIT
#include "kit/tools/arguments.h"

#include "kit/library/library_json.h"
#include "kit/mcp/tool_error.h"

#include <cmath>
#include <limits>

namespace kit::tools {

using mcp::ToolError;
using nlohmann::json;

namespace {

[[noreturn]] void wrongType(const char* key, const char* what, const json& value)
{
    throw ToolError::badArguments(std::string(key) + " must be " + what + ", but is "
                                  + value.type_name() + ".");
}

} // namespace

Arguments Arguments::parse(const std::optional<std::string>& bytes)
{
    if (!bytes) {
        return Arguments(json::object());
    }
    json parsed;
    try {
        parsed = library::parseJson(*bytes);
    } catch (const std::exception& error) {
        throw ToolError::badArguments(library::plainMessage(error));
    }
    if (!parsed.is_object()) {
        throw ToolError::badArguments(std::string("the arguments must be an object, but are ")
                                      + parsed.type_name() + ".");
    }
    return Arguments(std::move(parsed));
}

const json* Arguments::value(const char* key) const
{
    auto it = m_json.find(key);
    if (it == m_json.end() || it->is_null()) {
        return nullptr;
    }
    return &*it;
}

void Arguments::missing(const char* key)
{
    throw ToolError::badArguments(std::string(key) + " is required.");
}

bool Arguments::isNull(const char* key) const
{
    auto it = m_json.find(key);
    return it != m_json.end() && it->is_null();
}

std::optional<std::string> Arguments::string(const char* key) const
{
    const json* v = value(key);
    if (!v) {
        return std::nullopt;
    }
    if (!v->is_string()) {
        wrongType(key, "a string", *v);
    }
    return v->get<std::string>();
}

std::string Arguments::requiredString(const char* key) const
{
    auto text = string(key);
    if (!text) {
        missing(key);
    }
    return *text;
}

std::optional<bool> Arguments::boolean(const char* key) const
{
    const json* v = value(key);
    if (!v) {
        return std::nullopt;
    }
    if (!v->is_boolean()) {
        wrongType(key, "true or false", *v);
    }
    return v->get<bool>();
}

bool Arguments::requiredBoolean(const char* key) const
{
    auto flag = boolean(key);
    if (!flag) {
        missing(key);
    }
    return *flag;
}

std::optional<int64_t> Arguments::integer(const char* key) const
{
    const json* v = value(key);
    if (!v) {
        return std::nullopt;
    }
    if (v->is_number_unsigned()) {
        auto n = v->get<uint64_t>();
        return n > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())
                   ? std::numeric_limits<int64_t>::max()
                   : static_cast<int64_t>(n);
    }
    if (v->is_number_integer()) {
        return v->get<int64_t>();
    }
    // 40.0 is as good as 40; 40.5 is not a count.
    if (v->is_number_float()) {
        double d = v->get<double>();
        if (std::isfinite(d) && std::floor(d) == d && std::fabs(d) < 9e15) {
            return static_cast<int64_t>(d);
        }
    }
    wrongType(key, "a whole number", *v);
}

std::optional<double> Arguments::number(const char* key) const
{
    const json* v = value(key);
    if (!v) {
        return std::nullopt;
    }
    if (!v->is_number()) {
        wrongType(key, "a number", *v);
    }
    return v->get<double>();
}

const json* Arguments::array(const char* key) const
{
    const json* v = value(key);
    if (v && !v->is_array()) {
        wrongType(key, "an array", *v);
    }
    return v;
}

const json* Arguments::object(const char* key) const
{
    const json* v = value(key);
    if (v && !v->is_object()) {
        wrongType(key, "an object", *v);
    }
    return v;
}

std::string compact(const json& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string compact(const nlohmann::ordered_json& value)
{
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace kit::tools
