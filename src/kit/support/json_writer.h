// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kit::support {

// Writes JSON straight into a string, laid out as nlohmann's dump(2) lays it out: two-space
// indent, "key": value, slashes unescaped, UTF-8 kept (ill-formed bytes become U+FFFD).
// The caller writes an object's keys in sorted order. For files too large to build a tree for.
class PrettyJsonWriter
{
public:
    explicit PrettyJsonWriter(size_t reserve = 0);

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(std::string_view name);

    void value(std::string_view text);
    void value(const char* text) { value(std::string_view(text)); }
    void value(bool flag);
    void value(int64_t number);
    void value(int number) { value(static_cast<int64_t>(number)); }
    // Whole numbers are written without a fraction.
    void value(double number);
    void null();

    const std::string& text() const { return m_out; }
    std::string take() { return std::move(m_out); }

private:
    void beforeValue();
    void newline(size_t depth);
    void writeString(std::string_view text);

    std::string m_out;
    // Per open container: whether it has a member yet.
    std::vector<bool> m_hasMember;
    bool m_afterKey = false;
};

} // namespace kit::support
