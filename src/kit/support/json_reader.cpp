// SPDX-License-Identifier: MIT
#include "kit/support/json_reader.h"

#include "kit/support/text.h"
#include "kit/support/utf8.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

namespace kit::support {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// The bytes a string holds as they are: printable ASCII but the quote and the backslash. One
// look-up per byte, in the loops that read most of a document.
constexpr auto kPlainBytes = [] {
    std::array<bool, 256> plain{};
    for (int c = 0x20; c < 0x80; ++c) {
        plain[static_cast<size_t>(c)] = c != '"' && c != '\\';
    }
    return plain;
}();

bool isPlain(char c)
{
    return kPlainBytes[static_cast<unsigned char>(c)];
}

// The end of the run of plain bytes from `from`: eight bytes a step where the bytes' order allows,
// as keys and values are most of a document.
size_t plainRunEnd(std::string_view text, size_t from)
{
    if constexpr (std::endian::native == std::endian::little) {
        constexpr uint64_t kOnes = 0x0101010101010101;
        constexpr uint64_t kHighs = kOnes * 0x80;
        // Each term flags the bytes it is about; a flag can be false only above a true one, so
        // the lowest flag of all is the first byte that is not plain.
        while (from + 8 <= text.size()) {
            uint64_t word = 0;
            std::memcpy(&word, text.data() + from, sizeof word);
            const uint64_t quote = word ^ (kOnes * '"');
            const uint64_t slash = word ^ (kOnes * '\\');
            const uint64_t stop = (((word - kOnes * 0x20) & ~word) | ((quote - kOnes) & ~quote)
                                   | ((slash - kOnes) & ~slash) | word)
                                  & kHighs;
            if (stop != 0) {
                return from + static_cast<size_t>(std::countr_zero(stop) / 8);
            }
            from += 8;
        }
    }
    while (from < text.size() && isPlain(text[from])) {
        ++from;
    }
    return from;
}

// A number written with at most 15 digits and no exponent, as sizes and zoom levels are: its
// digits and its power of ten are both exact in a double, so one division rounds it as
// from_chars would, for a fraction of the work. Nothing for any other number.
std::optional<double> shortDecimal(std::string_view number)
{
    static constexpr std::array<double, 16> kPowers = {
        1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const bool negative = !number.empty() && number.front() == '-';
    uint64_t digits = 0;
    size_t count = 0;
    size_t fraction = 0;
    bool point = false;
    for (size_t i = negative ? 1 : 0; i < number.size(); ++i) {
        const char c = number[i];
        if (c == '.') {
            point = true;
        } else if (isDigit(c)) {
            digits = digits * 10 + static_cast<uint64_t>(c - '0');
            ++count;
            fraction += point ? 1 : 0;
        } else {
            return std::nullopt;
        }
    }
    if (count == 0 || count > 15) {
        return std::nullopt;
    }
    const double value = static_cast<double>(digits) / kPowers[fraction];
    return negative ? -value : value;
}

} // namespace

JsonReader::JsonReader(std::string_view text, int maxDepth)
    : m_text(text)
    , m_maxDepth(maxDepth)
{}

void JsonReader::fail(const std::string& message) const
{
    size_t line = 1;
    size_t column = 1;
    for (size_t i = 0; i < m_pos && i < m_text.size(); ++i) {
        if (m_text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    throw JsonReadError("syntax error at line " + std::to_string(line) + ", column "
                        + std::to_string(column) + ": " + message);
}

void JsonReader::typeError(const char* wanted)
{
    throw JsonReadError(std::string("type must be ") + wanted + ", but is " + typeName(peek()));
}

const char* JsonReader::typeName(Type type)
{
    switch (type) {
    case Type::Null:
        return "null";
    case Type::Boolean:
        return "boolean";
    case Type::Number:
        return "number";
    case Type::String:
        return "string";
    case Type::Array:
        return "array";
    case Type::Object:
        return "object";
    }
    return "value";
}

void JsonReader::skipSpaceRun()
{
    while (m_pos < m_text.size()) {
        char c = m_text[m_pos];
        if (c != ' ' && c != '\n' && c != '\r' && c != '\t') {
            return;
        }
        ++m_pos;
    }
}

void JsonReader::enter()
{
    if (++m_depth > m_maxDepth) {
        throw JsonReadError("the data is nested too deeply");
    }
}

JsonReader::Type JsonReader::peek()
{
    skipSpace();
    if (m_pos >= m_text.size()) {
        fail("unexpected end of input");
    }
    switch (m_text[m_pos]) {
    case '{':
        return Type::Object;
    case '[':
        return Type::Array;
    case '"':
        return Type::String;
    case 't':
    case 'f':
        if (m_text.substr(m_pos, 4) != "true" && m_text.substr(m_pos, 5) != "false") {
            fail("invalid literal");
        }
        return Type::Boolean;
    case 'n':
        if (m_text.substr(m_pos, 4) != "null") {
            fail("invalid literal");
        }
        return Type::Null;
    default:
        if (isDigit(m_text[m_pos]) || m_text[m_pos] == '-') {
            return Type::Number;
        }
        fail("unexpected character");
    }
}

bool JsonReader::skipNullRun()
{
    if (peek() != Type::Null) {
        return false;
    }
    if (m_text.substr(m_pos, 4) != "null") {
        fail("invalid literal");
    }
    m_pos += 4;
    return true;
}

bool JsonReader::readBool()
{
    if (peek() != Type::Boolean) {
        typeError("boolean");
    }
    if (m_text.substr(m_pos, 4) == "true") {
        m_pos += 4;
        return true;
    }
    if (m_text.substr(m_pos, 5) == "false") {
        m_pos += 5;
        return false;
    }
    fail("invalid literal");
}

void JsonReader::skipNumber()
{
    size_t p = m_pos;
    auto digits = [&] {
        size_t start = p;
        while (p < m_text.size() && isDigit(m_text[p])) {
            ++p;
        }
        return p > start;
    };
    if (p < m_text.size() && m_text[p] == '-') {
        ++p;
    }
    if (p < m_text.size() && m_text[p] == '0') {
        ++p;
    } else if (!digits()) {
        m_pos = p;
        fail("invalid number");
    }
    if (p < m_text.size() && m_text[p] == '.') {
        ++p;
        if (!digits()) {
            m_pos = p;
            fail("invalid number");
        }
    }
    if (p < m_text.size() && (m_text[p] == 'e' || m_text[p] == 'E')) {
        ++p;
        if (p < m_text.size() && (m_text[p] == '+' || m_text[p] == '-')) {
            ++p;
        }
        if (!digits()) {
            m_pos = p;
            fail("invalid number");
        }
    }
    m_pos = p;
}

double JsonReader::readDouble()
{
    if (peek() != Type::Number) {
        typeError("number");
    }
    size_t start = m_pos;
    skipNumber();
    double value = 0;
    const char* first = m_text.data() + start;
    const char* last = m_text.data() + m_pos;
    if (auto exact = shortDecimal(std::string_view(first, static_cast<size_t>(last - first)))) {
        return *exact;
    }
    auto result = std::from_chars(first, last, value);
    if (result.ec == std::errc::result_out_of_range) {
        // Tiny numbers round to zero as other parsers do; huge ones are refused.
        std::string_view number(first, static_cast<size_t>(last - first));
        bool negativeExponent = number.find("e-") != std::string_view::npos
                                || number.find("E-") != std::string_view::npos;
        if (!negativeExponent) {
            m_pos = start;
            fail("number overflow");
        }
        value = 0;
    } else if (result.ec != std::errc() || result.ptr != last) {
        m_pos = start;
        fail("invalid number");
    }
    return value;
}

std::string JsonReader::readString()
{
    // Most strings have no escapes and no multi-byte text: one allocation of the right size.
    if (auto plain = takePlainString()) {
        return std::string(*plain);
    }
    std::string out;
    readStringInto(out);
    return out;
}

std::string_view JsonReader::readStringView(std::string& scratch)
{
    if (auto plain = takePlainString()) {
        return *plain;
    }
    scratch.clear();
    readStringInto(scratch);
    return scratch;
}

std::optional<std::string_view> JsonReader::takePlainString()
{
    if (peek() != Type::String) {
        typeError("string");
    }
    const size_t end = plainRunEnd(m_text, m_pos + 1);
    if (end >= m_text.size() || m_text[end] != '"') {
        return std::nullopt;
    }
    const std::string_view plain = m_text.substr(m_pos + 1, end - m_pos - 1);
    m_pos = end + 1;
    return plain;
}

std::string_view JsonReader::readKey()
{
    if (m_pos >= m_text.size() || m_text[m_pos] != '"') {
        fail("expected a string as an object key");
    }
    // Keys without escapes are read in place; they are short, so byte by byte.
    size_t p = m_pos + 1;
    while (p < m_text.size() && isPlain(m_text[p])) {
        ++p;
    }
    if (p < m_text.size() && m_text[p] == '"') {
        std::string_view key = m_text.substr(m_pos + 1, p - m_pos - 1);
        m_pos = p + 1;
        return key;
    }
    m_key.clear();
    readStringInto(m_key);
    return m_key;
}

void JsonReader::readStringInto(std::string& out)
{
    ++m_pos; // the opening quote
    const auto* text = reinterpret_cast<const unsigned char*>(m_text.data());
    const size_t size = m_text.size();
    for (;;) {
        size_t run = plainRunEnd(m_text, m_pos);
        out.append(m_text.data() + m_pos, run - m_pos);
        m_pos = run;
        if (m_pos >= size) {
            fail("unterminated string");
        }
        unsigned char c = text[m_pos];
        if (c == '"') {
            ++m_pos;
            return;
        }
        if (c < 0x20) {
            fail("control character in a string must be escaped");
        }
        if (c >= 0x80) {
            size_t length = utf8SequenceLength(text + m_pos, size - m_pos);
            if (length == 0) {
                fail("ill-formed UTF-8 in a string");
            }
            out.append(m_text.data() + m_pos, length);
            m_pos += length;
            continue;
        }
        // An escape.
        if (m_pos + 1 >= size) {
            fail("unterminated string");
        }
        char e = m_text[m_pos + 1];
        m_pos += 2;
        switch (e) {
        case '"':
            out.push_back('"');
            break;
        case '\\':
            out.push_back('\\');
            break;
        case '/':
            out.push_back('/');
            break;
        case 'b':
            out.push_back('\b');
            break;
        case 'f':
            out.push_back('\f');
            break;
        case 'n':
            out.push_back('\n');
            break;
        case 'r':
            out.push_back('\r');
            break;
        case 't':
            out.push_back('\t');
            break;
        case 'u': {
            auto hex4 = [&]() -> uint32_t {
                if (m_pos + 4 > size) {
                    fail("invalid \\u escape");
                }
                uint32_t value = 0;
                for (int i = 0; i < 4; ++i) {
                    int h = hexValue(m_text[m_pos + static_cast<size_t>(i)]);
                    if (h < 0) {
                        fail("invalid \\u escape");
                    }
                    value = value * 16 + static_cast<uint32_t>(h);
                }
                m_pos += 4;
                return value;
            };
            uint32_t code = hex4();
            if (code >= 0xD800 && code <= 0xDBFF) {
                if (m_text.substr(m_pos, 2) != "\\u") {
                    fail("a high surrogate must be followed by a low one");
                }
                m_pos += 2;
                uint32_t low = hex4();
                if (low < 0xDC00 || low > 0xDFFF) {
                    fail("a high surrogate must be followed by a low one");
                }
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            } else if (code >= 0xDC00 && code <= 0xDFFF) {
                fail("a low surrogate must follow a high one");
            }
            appendUtf8(out, code);
            break;
        }
        default:
            m_pos -= 1;
            fail("invalid escape in a string");
        }
    }
}

void JsonReader::skipValue()
{
    switch (peek()) {
    case Type::Null:
        skipNull();
        break;
    case Type::Boolean:
        readBool();
        break;
    case Type::Number:
        readDouble(); // an overflowing number is an error even where it is not wanted
        break;
    case Type::String: {
        if (takePlainString()) {
            break;
        }
        std::string ignored;
        readStringInto(ignored);
        break;
    }
    case Type::Array:
        readArray([&] { skipValue(); });
        break;
    case Type::Object:
        readObject([&](std::string_view) { skipValue(); });
        break;
    }
}

std::optional<std::string_view> JsonReader::peekStringMember(std::string_view key) const
{
    const size_t size = m_text.size();
    size_t from = m_pos;
    while (from < size
           && (m_text[from] == ' ' || m_text[from] == '\n' || m_text[from] == '\r'
               || m_text[from] == '\t')) {
        ++from;
    }
    if (from >= size || m_text[from] != '{') {
        return std::nullopt;
    }
    // The end of the string opening at `at`, past its closing quote; `escaped` tells whether it
    // held a backslash.
    auto stringEnd = [&](size_t at, bool& escaped) {
        escaped = false;
        for (size_t p = at + 1; p < size; ++p) {
            if (m_text[p] == '\\') {
                escaped = true;
                ++p;
            } else if (m_text[p] == '"') {
                return p + 1;
            }
        }
        return size + 1;
    };
    int depth = 0;
    bool atKey = false;
    for (size_t p = from; p < size;) {
        const char c = m_text[p];
        if (c == '"') {
            bool escaped = false;
            const size_t end = stringEnd(p, escaped);
            if (depth == 1 && atKey) {
                atKey = false;
                if (!escaped && m_text.substr(p + 1, end - p - 2) == key) {
                    size_t value = end;
                    while (value < size
                           && (m_text[value] == ':' || m_text[value] == ' ' || m_text[value] == '\n'
                               || m_text[value] == '\r' || m_text[value] == '\t')) {
                        ++value;
                    }
                    if (value < size && m_text[value] == '"') {
                        const size_t valueEnd = stringEnd(value, escaped);
                        if (!escaped && valueEnd <= size) {
                            return m_text.substr(value + 1, valueEnd - value - 2);
                        }
                    }
                    return std::nullopt;
                }
            }
            p = end;
            continue;
        }
        if (c == '{' || c == '[') {
            ++depth;
            atKey = depth == 1;
        } else if (c == '}' || c == ']') {
            if (--depth == 0) {
                return std::nullopt;
            }
        } else if (c == ',' && depth == 1) {
            atKey = true;
        }
        ++p;
    }
    return std::nullopt;
}

void JsonReader::expectEnd()
{
    skipSpace();
    if (m_pos != m_text.size()) {
        fail("unexpected text after the end");
    }
}

bool nestsWithin(std::string_view text, int maxDepth)
{
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxDepth) {
                return false;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

} // namespace kit::support
