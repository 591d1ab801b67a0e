// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>
#include <string_view>

namespace kit::library {

// A file or document that cannot be decoded; what() is the reason, fit to show to a person.
class DecodeError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Groups nested deeper than this are refused rather than risking the stack.
inline constexpr int kMaxGroupDepth = 64;
// JSON nesting allowed in a file: a few levels per group level plus the records around them.
inline constexpr int kMaxJsonDepth = 4 * kMaxGroupDepth + 16;

// Parses JSON text after checking its nesting depth; throws DecodeError.
nlohmann::json parseJson(std::string_view text, int maxDepth = kMaxJsonDepth);
// Pretty-printed with two spaces, keys sorted, slashes unescaped, as every file is written.
std::string prettyJson(const nlohmann::json& value);
// One line, for the tool protocol.
std::string compactJson(const nlohmann::json& value);
// nlohmann's messages carry a "[json.exception...] " prefix that means nothing to a person.
std::string plainMessage(const std::exception& error);

// Whole files, throwing DecodeError with the reason. Bar files are streamed (library_file.cpp).
Library decodeLibrary(std::string_view text);
std::string encodeLibrary(const Library& library);
// The same through a JSON tree and the record codings below: the yardstick the streamed coding is
// tested against.
namespace reference {
Library decodeLibrary(std::string_view text);
std::string encodeLibrary(const Library& library);
} // namespace reference
BarIndex decodeBarIndex(std::string_view text);
std::string encodeBarIndex(const BarIndex& index);
SessionIndex decodeSessionIndex(std::string_view text);
std::string encodeSessionIndex(const SessionIndex& index);
// The sessions older bar files carried inside themselves.
std::vector<Session> decodeLegacySessions(std::string_view text);

// Record codings. from_json throws nlohmann::json::exception or DecodeError.
void to_json(nlohmann::json& j, const ContentSize& v);
void from_json(const nlohmann::json& j, ContentSize& v);
void to_json(nlohmann::json& j, const IconOverride& v);
void from_json(const nlohmann::json& j, IconOverride& v);
void to_json(nlohmann::json& j, const IconTint& v);
void from_json(const nlohmann::json& j, IconTint& v);
void to_json(nlohmann::json& j, const Bookmark& v);
void from_json(const nlohmann::json& j, Bookmark& v);
void to_json(nlohmann::json& j, const URLTarget& v);
void from_json(const nlohmann::json& j, URLTarget& v);
void to_json(nlohmann::json& j, const Target& v);
void from_json(const nlohmann::json& j, Target& v);
void to_json(nlohmann::json& j, const Shortcut& v);
void from_json(const nlohmann::json& j, Shortcut& v);
void to_json(nlohmann::json& j, const Library& v);
void from_json(const nlohmann::json& j, Library& v);
void to_json(nlohmann::json& j, const Bar& v);
void from_json(const nlohmann::json& j, Bar& v);
void to_json(nlohmann::json& j, const BarIndex& v);
void from_json(const nlohmann::json& j, BarIndex& v);
void to_json(nlohmann::json& j, const Session& v);
void from_json(const nlohmann::json& j, Session& v);
void to_json(nlohmann::json& j, const SessionIndex& v);
void from_json(const nlohmann::json& j, SessionIndex& v);

// Enumerations as their words; an unknown word fails.
template <class E>
requires requires
{
    EnumWords<E>::kWords;
}
void to_json(nlohmann::json& j, const E& v)
{
    j = std::string(enumWord(v));
}

template <class E>
requires requires
{
    EnumWords<E>::kWords;
}
void from_json(const nlohmann::json& j, E& v)
{
    const auto& word = j.get_ref<const std::string&>();
    auto parsed = enumFromWord<E>(word);
    if (!parsed) {
        throw DecodeError("unknown value: " + word);
    }
    v = *parsed;
}

// Reads an optional key leniently: absent or null leaves the default.
template <class T>
void readOptional(const nlohmann::json& object, const char* key, std::optional<T>& out)
{
    auto it = object.find(key);
    if (it != object.end() && !it->is_null()) {
        out = it->template get<T>();
    }
}

template <class T> void readOr(const nlohmann::json& object, const char* key, T& out)
{
    auto it = object.find(key);
    if (it != object.end() && !it->is_null()) {
        out = it->template get<T>();
    }
}

template <class T>
void writeOptional(nlohmann::json& object, const char* key, const std::optional<T>& value)
{
    if (value) {
        object[key] = *value;
    }
}

// Whole numbers are written without a fraction, as people expect to read sizes.
nlohmann::json number(double value);
// The member `key`; a DecodeError names it when it is missing.
const nlohmann::json& required(const nlohmann::json& object, const char* key);
// A DecodeError naming `what` unless `j` is an object.
void requireObject(const nlohmann::json& j, const char* what);

} // namespace kit::library
