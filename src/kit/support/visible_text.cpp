// SPDX-License-Identifier: MIT
#include "kit/support/visible_text.h"

#include "kit/support/utf8.h"

#include <cstdint>
#include <utility>

namespace kit::support {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD"; // U+FFFD

// The code point at `at` and its length in bytes; length 0 for a byte that starts no valid
// sequence (overlong forms, surrogates and values past U+10FFFF included).
std::pair<char32_t, size_t> decodeAt(std::string_view text, size_t at)
{
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(at);
    if (first < 0x80) {
        return {first, 1};
    }
    size_t length = 0;
    char32_t c = 0;
    char32_t least = 0;
    if ((first & 0xE0) == 0xC0) {
        length = 2;
        c = first & 0x1F;
        least = 0x80;
    } else if ((first & 0xF0) == 0xE0) {
        length = 3;
        c = first & 0x0F;
        least = 0x800;
    } else if ((first & 0xF8) == 0xF0) {
        length = 4;
        c = first & 0x07;
        least = 0x10000;
    } else {
        return {0, 0};
    }
    if (at + length > text.size()) {
        return {0, 0};
    }
    for (size_t i = 1; i < length; ++i) {
        const uint8_t next = byte(at + i);
        if ((next & 0xC0) != 0x80) {
            return {0, 0};
        }
        c = (c << 6) | (next & 0x3F);
    }
    if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        return {0, 0};
    }
    return {c, length};
}

// Marks that change the order or the joining of what follows, so a name could show one thing
// and be another.
bool reorders(char32_t c)
{
    return (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x200E
           || c == 0x200F || c == 0x061C;
}

template <class Show> std::string rewrite(std::string_view text, Show show)
{
    std::string out;
    out.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        auto [c, length] = decodeAt(text, at);
        if (length == 0) {
            out += kReplacement;
            ++at;
            continue;
        }
        show(out, c, text.substr(at, length));
        at += length;
    }
    return out;
}

} // namespace

std::string visibleText(std::string_view text)
{
    return rewrite(text, [](std::string& out, char32_t c, std::string_view bytes) {
        if (c < 0x20) {
            appendUtf8(out, 0x2400 + c);
        } else if (c == 0x7F) {
            appendUtf8(out, 0x2421);
        } else if ((c >= 0x80 && c < 0xA0) || reorders(c)) {
            out += kReplacement;
        } else {
            out += bytes;
        }
    });
}

std::string validUtf8(std::string_view text)
{
    return rewrite(text, [](std::string& out, char32_t, std::string_view bytes) { out += bytes; });
}

} // namespace kit::support
