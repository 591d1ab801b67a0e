// SPDX-License-Identifier: MIT
#include "kit/support/utf8.h"

namespace kit::support {

size_t utf8SequenceLength(const unsigned char* s, size_t available)
{
    unsigned char c = s[0];
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        length = 3;
        if (c == 0xE0) {
            low = 0xA0;
        } else if (c == 0xED) {
            high = 0x9F;
        }
    } else if (c >= 0xF0 && c <= 0xF4) {
        length = 4;
        if (c == 0xF0) {
            low = 0x90;
        } else if (c == 0xF4) {
            high = 0x8F;
        }
    } else {
        return 0;
    }
    if (available < length || s[1] < low || s[1] > high) {
        return 0;
    }
    for (size_t i = 2; i < length; ++i) {
        if (s[i] < 0x80 || s[i] > 0xBF) {
            return 0;
        }
    }
    return length;
}

void appendUtf8(std::string& out, uint32_t code)
{
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (code >> 6)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (code >> 12)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (code >> 18)));
        out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

} // namespace kit::support
