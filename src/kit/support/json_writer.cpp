// SPDX-License-Identifier: MIT
#include "kit/support/json_writer.h"

#include "kit/support/utf8.h"

#include <charconv>
#include <cmath>

namespace kit::support {

PrettyJsonWriter::PrettyJsonWriter(size_t reserve)
{
    m_out.reserve(reserve);
}

void PrettyJsonWriter::newline(size_t depth)
{
    m_out.push_back('\n');
    m_out.append(depth * 2, ' ');
}

void PrettyJsonWriter::beforeValue()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_hasMember.empty()) {
        if (m_hasMember.back()) {
            m_out.push_back(',');
        }
        m_hasMember.back() = true;
        newline(m_hasMember.size());
    }
}

void PrettyJsonWriter::beginObject()
{
    beforeValue();
    m_out.push_back('{');
    m_hasMember.push_back(false);
}

void PrettyJsonWriter::endObject()
{
    bool any = m_hasMember.back();
    m_hasMember.pop_back();
    if (any) {
        newline(m_hasMember.size());
    }
    m_out.push_back('}');
}

void PrettyJsonWriter::beginArray()
{
    beforeValue();
    m_out.push_back('[');
    m_hasMember.push_back(false);
}

void PrettyJsonWriter::endArray()
{
    bool any = m_hasMember.back();
    m_hasMember.pop_back();
    if (any) {
        newline(m_hasMember.size());
    }
    m_out.push_back(']');
}

void PrettyJsonWriter::key(std::string_view name)
{
    beforeValue();
    writeString(name);
    m_out.append(": ");
    m_afterKey = true;
}

void PrettyJsonWriter::value(std::string_view text)
{
    beforeValue();
    writeString(text);
}

void PrettyJsonWriter::value(bool flag)
{
    beforeValue();
    m_out.append(flag ? "true" : "false");
}

void PrettyJsonWriter::value(int64_t number)
{
    beforeValue();
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
    m_out.append(buffer, result.ptr);
}

void PrettyJsonWriter::value(double number)
{
    if (std::isfinite(number) && std::floor(number) == number && std::fabs(number) < 1e15) {
        value(static_cast<int64_t>(number));
        return;
    }
    beforeValue();
    if (!std::isfinite(number)) {
        m_out.append("null"); // JSON has no infinities
        return;
    }
    char buffer[32];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
    m_out.append(buffer, result.ptr);
}

void PrettyJsonWriter::null()
{
    beforeValue();
    m_out.append("null");
}

void PrettyJsonWriter::writeString(std::string_view text)
{
    static constexpr char kHex[] = "0123456789abcdef";
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t size = text.size();
    m_out.push_back('"');
    size_t i = 0;
    while (i < size) {
        size_t run = i;
        while (run < size && s[run] >= 0x20 && s[run] < 0x80 && s[run] != '"' && s[run] != '\\') {
            ++run;
        }
        m_out.append(text.data() + i, run - i);
        i = run;
        if (i >= size) {
            break;
        }
        unsigned char c = s[i];
        if (c >= 0x80) {
            size_t length = utf8SequenceLength(s + i, size - i);
            if (length == 0) {
                m_out.append("\xEF\xBF\xBD");
                ++i;
            } else {
                m_out.append(text.data() + i, length);
                i += length;
            }
            continue;
        }
        ++i;
        switch (c) {
        case '"':
            m_out.append("\\\"");
            break;
        case '\\':
            m_out.append("\\\\");
            break;
        case '\b':
            m_out.append("\\b");
            break;
        case '\f':
            m_out.append("\\f");
            break;
        case '\n':
            m_out.append("\\n");
            break;
        case '\r':
            m_out.append("\\r");
            break;
        case '\t':
            m_out.append("\\t");
            break;
        default:
            m_out.append("\\u00");
            m_out.push_back(kHex[c >> 4]);
            m_out.push_back(kHex[c & 0xF]);
            break;
        }
    }
    m_out.push_back('"');
}

} // namespace kit::support
