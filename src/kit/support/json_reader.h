// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kit::support {

// Thrown for malformed JSON or a value of the wrong type; what() is a one-line reason.
class JsonReadError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// A pull parser over JSON text that decodes straight into records without building a tree, for
// files too large for a DOM to read quickly. Strict JSON (RFC 8259, UTF-8 checked); nesting is
// bounded so no input can exhaust the stack. Not thread-safe; the text must outlive the reader.
class JsonReader
{
public:
    enum class Type {
        Null,
        Boolean,
        Number,
        String,
        Array,
        Object,
    };

    JsonReader(std::string_view text, int maxDepth);

    // The type of the next value, without consuming it.
    Type peek();
    static const char* typeName(Type type);

    bool readBool();
    double readDouble();
    std::string readString();
    // The next string as it stands in the text when it has no escapes, else decoded into
    // `scratch`: valid until the next read.
    std::string_view readStringView(std::string& scratch);
    // True and consumed when the next value is null.
    bool skipNull()
    {
        // Any other value is for the read that follows, which reports a fault in it.
        if (m_pos < m_text.size() && m_text[m_pos] != 'n'
            && static_cast<unsigned char>(m_text[m_pos]) > ' ') {
            return false;
        }
        return skipNullRun();
    }
    void skipValue();

    // Calls member(key) for each member; member must consume the value (read or skip it).
    template <class Member> void readObject(Member&& member);
    // Calls element() for each element; element must consume it.
    template <class Element> void readArray(Element&& element);

    // The first member `key` of the object at the cursor when it is a string, found from the
    // text's structure alone without moving, and scanning no further: for a member that decides
    // how the ones before it read. Nothing when it is absent, not a string, or written with
    // escapes. What it finds is read again in its turn, which is where a fault is caught.
    std::optional<std::string_view> peekStringMember(std::string_view key) const;

    // Where the next value starts, to come back and read it later.
    size_t position() const { return m_pos; }
    void seek(size_t position) { m_pos = position; }

    // Only white space may follow the top-level value.
    void expectEnd();
    [[noreturn]] void fail(const std::string& message) const;
    [[noreturn]] void typeError(const char* wanted);

private:
    // Inline with a quick way out: compact text has no white space, and these run between
    // every two tokens.
    void skipSpace()
    {
        if (m_pos < m_text.size() && static_cast<unsigned char>(m_text[m_pos]) > ' ') {
            return;
        }
        skipSpaceRun();
    }
    void skipSpaceRun();
    bool skipNullRun();
    // The string at the cursor, consumed, when it holds no escape and no byte that needs
    // checking; otherwise nothing and the cursor stays at its opening quote.
    std::optional<std::string_view> takePlainString();
    void enter();
    void leave() { --m_depth; }
    bool consume(char c)
    {
        if (m_pos < m_text.size() && m_text[m_pos] == c) {
            ++m_pos;
            return true;
        }
        return false;
    }
    std::string_view readKey();
    void readStringInto(std::string& out);
    void skipNumber();

    std::string_view m_text;
    size_t m_pos = 0;
    int m_depth = 0;
    int m_maxDepth;
    std::string m_key;
};

template <class Member> void JsonReader::readObject(Member&& member)
{
    if (peek() != Type::Object) {
        typeError("object");
    }
    enter();
    ++m_pos;
    skipSpace();
    if (consume('}')) {
        leave();
        return;
    }
    for (;;) {
        skipSpace();
        std::string_view key = readKey();
        skipSpace();
        if (!consume(':')) {
            fail("expected ':' after an object key");
        }
        member(key);
        skipSpace();
        if (consume(',')) {
            continue;
        }
        if (consume('}')) {
            break;
        }
        fail("expected ',' or '}' in an object");
    }
    leave();
}

template <class Element> void JsonReader::readArray(Element&& element)
{
    if (peek() != Type::Array) {
        typeError("array");
    }
    enter();
    ++m_pos;
    skipSpace();
    if (consume(']')) {
        leave();
        return;
    }
    for (;;) {
        element();
        skipSpace();
        if (consume(',')) {
            continue;
        }
        if (consume(']')) {
            break;
        }
        fail("expected ',' or ']' in an array");
    }
    leave();
}

// Whether no array or object in `text` opens deeper than `maxDepth`, counted outside strings
// without parsing: the guard before a parser that recurses. Malformed text is for the parser.
bool nestsWithin(std::string_view text, int maxDepth);

} // namespace kit::support
