// SPDX-License-Identifier: MIT
#include "kit/support/json_reader.h"
#include "kit/support/json_writer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <optional>
#include <string>

namespace kit::support {
namespace {

std::string readString(std::string_view text)
{
    JsonReader reader(text, 8);
    std::string value = reader.readString();
    reader.expectEnd();
    return value;
}

bool refused(std::string_view text, int depth = 8)
{
    try {
        JsonReader reader(text, depth);
        reader.skipValue();
        reader.expectEnd();
        return false;
    } catch (const JsonReadError&) {
        return true;
    }
}

TEST(JsonReader, DecodesEveryEscapeAndSurrogatePairs)
{
    struct Case
    {
        const char* json;
        std::string decoded;
    };
    const Case cases[] = {
        {R"("\" \\ \/ \b \f \n \r \t")", "\" \\ / \b \f \n \r \t"},
        {R"("\u0000")", std::string(1, '\0')},
        {R"("\u00e9\u20AC")", "\xC3\xA9\xE2\x82\xAC"},
        {R"("\ud83d\ude00")", "\xF0\x9F\x98\x80"},
        {R"("\uD83D\uDE00")", "\xF0\x9F\x98\x80"},
        {R"("\ud800\udc00")", "\xF0\x90\x80\x80"}, // the first and last pairs
        {R"("\udbff\udfff")", "\xF4\x8F\xBF\xBF"},
        {"\"\xF4\x8F\xBF\xBF\"", "\xF4\x8F\xBF\xBF"}, // U+10FFFF as raw bytes
    };
    for (const auto& c : cases) {
        EXPECT_EQ(readString(c.json), c.decoded) << c.json;
    }
}

TEST(JsonReader, RefusesWhatStrictJsonRefuses)
{
    const std::pair<const char*, std::vector<std::string>> groups[] = {
        {"lone, reversed, doubled or cut surrogates",
         {R"("\ud83d")", R"("\ud83d\u0041")", R"("\ude00")", R"("\ud83d\ud83d")", R"("\ud83d\")"}},
        {"escapes, raw controls, no end", {R"("\u12")", R"("\x41")", "\"a\nb\"", "\"abc"}},
        {"overlong, surrogate, past U+10FFFF and cut UTF-8",
         {"\"\xC0\xAF\"", "\"\xED\xA0\x80\"", "\"\xF4\x90\x80\x80\"", "\"\xE2\x82\""}},
        {"numbers", {"01", "-01", "00", "1.e5", "-.5", "1e+", "--1", "1e309", "1.", ".5", "-"}},
        {"signs, hex and non-finite numbers", {"+1", "1e", "0x10", "NaN", "Infinity"}},
        {"structure", {"[1,]", "{\"a\":1,}", "{\"a\"}", "[1 2]", "tru", "[] []"}},
    };
    for (const auto& [kind, texts] : groups) {
        for (const std::string& text : texts) {
            EXPECT_TRUE(refused(text)) << kind << ": " << text;
        }
    }
}

// Strings are scanned several bytes at a time: a byte that needs care is found at any offset.
TEST(JsonReader, FindsTheByteThatNeedsCareAtEveryOffset)
{
    for (size_t at = 0; at < 20; ++at) {
        const std::string before(at, 'a');
        const std::string after(20 - at, 'b');
        for (std::string bad : {"\x01", "\x1F", "\x80", "\xFF"}) {
            EXPECT_TRUE(refused("\"" + before + bad + after + "\"")) << at;
            EXPECT_TRUE(refused("{\"" + before + bad + after + "\":1}")) << at;
        }
        EXPECT_EQ(readString("\"" + before + "\\\"\x7F\xC3\xA9" + after + "\""),
                  before + "\"\x7F\xC3\xA9" + after)
            << at;
        EXPECT_EQ(readString("\"" + before + "\""), before);
    }
}

TEST(JsonReader, ReadsNumbersAtTheirEdges)
{
    const std::pair<const char*, double> cases[] = {
        {"0", 0.0},
        {"-0", -0.0},
        {"1.7976931348623157e308", std::numeric_limits<double>::max()},
        {"5e-324", std::numeric_limits<double>::denorm_min()},
        {"9007199254740993", 9007199254740992.0},
        {"-12.5E+2", -1250.0},
        {"-9223372036854775808", -9223372036854775808.0},
        {"18446744073709551616", 18446744073709551616.0},
        {"0e0", 0.0},
        {"1E+2", 100.0},
        {"1e-400", 0.0}, // too small to hold: zero, not an error
        // Short decimals take a quicker way that must round exactly as the general one.
        {"0.1", 0.1},
        {"0.3", 0.3},
        {"-9.99999999999999", -9.99999999999999},
        {"1234567.8901234", 1234567.8901234},
        {"0.000000000000001", 1e-15},
        {"123456789012345", 123456789012345.0},
        {"0.1234567890123456", 0.1234567890123456},
    };
    for (const auto& [json, value] : cases) {
        JsonReader reader(json, 8);
        EXPECT_EQ(reader.readDouble(), value) << json;
        reader.expectEnd();
    }
    JsonReader negativeZero("-0", 8);
    EXPECT_TRUE(std::signbit(negativeZero.readDouble()));
}

TEST(JsonReader, BoundsNestingAndSaysWhere)
{
    EXPECT_FALSE(refused("[[[[]]]]", 4));
    EXPECT_TRUE(refused("[[[[[]]]]]", 4));
    EXPECT_FALSE(refused(R"({"a":{"a":{"a":{"a":1}}}})", 4));
    EXPECT_TRUE(refused(R"({"a":{"a":{"a":{"a":{}}}}})", 4));
    EXPECT_TRUE(refused(R"([{"a":[{"a":[]}]}])", 4));
    EXPECT_TRUE(refused(std::string(100000, '['), 64)); // no stack overflow
    try {
        JsonReader reader("{\n  \"a\": tru\n}", 8);
        reader.skipValue();
        FAIL() << "read a broken literal";
    } catch (const JsonReadError& error) {
        EXPECT_NE(std::string(error.what()).find("line 2"), std::string::npos) << error.what();
    }
}

std::string written(std::string_view text)
{
    PrettyJsonWriter writer;
    writer.value(text);
    return writer.text();
}

TEST(PrettyJsonWriter, EscapesControlsAndReplacesEachIllFormedByte)
{
    const std::string replaced = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> cases[] = {
        {std::string("a\0b", 3), R"("a\u0000b")"}, // not cut at the NUL
        {"\x1f\x7f", "\"\\u001f\x7f\""},           // DEL needs no escape
        {"\xF0\x9F\x98\x80", "\"\xF0\x9F\x98\x80\""},
        {"\xED\xA0\x80", "\"" + replaced + replaced + replaced + "\""}, // an encoded surrogate
        {"\xF4\x90\x80\x80", "\"" + replaced + replaced + replaced + replaced + "\""},
        {"\xC0\xAF", "\"" + replaced + replaced + "\""},   // overlong
        {"a\xE2\x82", "\"a" + replaced + replaced + "\""}, // cut at the end
    };
    for (const auto& [text, json] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(written(text), json);
        JsonReader reader(json, 1);
        reader.readString(); // what is written must be strict JSON again
    }
}

TEST(PrettyJsonWriter, NumbersReadBackAsWrittenAndNonFiniteOnesAreNull)
{
    PrettyJsonWriter integers;
    integers.beginArray();
    integers.value(std::numeric_limits<int64_t>::max());
    integers.value(std::numeric_limits<int64_t>::min());
    integers.endArray();
    EXPECT_EQ(integers.text(), "[\n  9223372036854775807,\n  -9223372036854775808\n]");

    const double most = std::numeric_limits<double>::max();
    for (double number : {0.1, 1e15, 999999999999999.0, -1e-300, 5e-324, most, -most}) {
        PrettyJsonWriter writer;
        writer.value(number);
        JsonReader reader(writer.text(), 1);
        EXPECT_EQ(reader.readDouble(), number) << writer.text();
    }
    for (double number : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        PrettyJsonWriter writer;
        writer.value(number);
        EXPECT_EQ(writer.text(), "null");
    }
}

TEST(JsonReader, PeeksAStringMemberFromTheStructureAlone)
{
    struct Case
    {
        const char* text;
        std::optional<std::string> kind;
    };
    const Case cases[] = {
        {R"({"a":1,"kind":"url","z":2})", "url"},
        {R"( { "a" : {"kind":"app"} , "kind" : "url" })", "url"},
        {R"({"a":["kind","x"],"b":"\"kind\":\"app\"","kind":"url"})", "url"},
        {R"({"kind":"app","kind":"url"})", "app"},
        {R"({"kind":7,"kind":"url"})", std::nullopt},
        {R"({"kind":"u\u0072l"})", std::nullopt},
        {R"({"a":{"kind":"app"}})", std::nullopt},
        {R"({"b":"x\\","kind":"url"})", "url"},
        {R"({"kind":"url)", std::nullopt},
        {R"(["kind","url"])", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        JsonReader reader(c.text, 8);
        const size_t start = reader.position();
        std::optional<std::string_view> found = reader.peekStringMember("kind");
        EXPECT_EQ(found ? std::optional<std::string>(*found) : std::nullopt, c.kind);
        EXPECT_EQ(reader.position(), start);
    }
}

TEST(PrettyJsonWriter, WritesWhatNlohmannWritesAndMendsBrokenUtf8)
{
    PrettyJsonWriter writer;
    writer.beginObject();
    writer.key("a/b");
    writer.value(std::string_view("q\"\\\n\x01/\xC3\xA9"));
    writer.key("broken");
    writer.value(std::string_view("x\xFFy\xC3"));
    writer.key("list");
    writer.beginArray();
    writer.value(true);
    writer.null();
    writer.value(int64_t{-9007199254740993});
    writer.value(2.0);
    writer.value(0.1);
    writer.endArray();
    writer.key("none");
    writer.beginArray();
    writer.endArray();
    writer.endObject();

    nlohmann::json expected = {
        {"a/b", "q\"\\\n\x01/\xC3\xA9"},
        {"broken", "x\xEF\xBF\xBDy\xEF\xBF\xBD"},
        {"list", {true, nullptr, int64_t{-9007199254740993}, 2, 0.1}},
        {"none", nlohmann::json::array()},
    };
    EXPECT_EQ(writer.text(), expected.dump(2));
    EXPECT_EQ(nlohmann::json::parse(writer.text()), expected);
}

} // namespace
} // namespace kit::support
