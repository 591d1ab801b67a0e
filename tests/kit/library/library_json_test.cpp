// SPDX-License-Identifier: MIT
#include "kit/library/library_json.h"

#include "kit/library/fixtures.h"
#include "support/library_generator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kit::library;
using namespace testing_support;
using ::testing::HasSubstr;

namespace {

Library serializedAndReadBack(const Library& library)
{
    return decodeLibrary(encodeLibrary(library));
}

std::string decodeFailure(const std::string& text)
{
    try {
        decodeLibrary(text);
    } catch (const DecodeError& error) {
        return error.what();
    }
    return "decoded";
}

} // namespace

TEST(LibraryJson, ReadsLeniently)
{
    EXPECT_EQ(decodeLibrary("{}"), Library::empty());
    Library library = decodeLibrary(R"({"shortcuts": [
        {"id": "2b0f6f0e-8b7a-4c39-9a0e-3f5c1d2e4a10", "target": {"kind": "divider"}},
        {"id": "2B0F6F0E-8B7A-4C39-9A0E-3F5C1D2E4A11", "name": "Site",
         "target": {"kind": "url", "url": "https://x.org", "openMode": null}}]})");
    ASSERT_EQ(library.shortcuts.size(), 2u);
    EXPECT_TRUE(library.shortcuts[0].target.isDivider());
    EXPECT_TRUE(library.shortcuts[0].isInMenuBar);
    EXPECT_EQ(library.shortcuts[0].name, "");
    const URLTarget* url = library.shortcuts[1].target.urlTarget();
    ASSERT_NE(url, nullptr);
    EXPECT_FALSE(url->openMode.has_value());
    EXPECT_FALSE(url->isPrivate);
    EXPECT_EQ(library.shortcuts[1].id.string(), "2B0F6F0E-8B7A-4C39-9A0E-3F5C1D2E4A11");
}

TEST(LibraryJson, RefusesWithAReadableReason)
{
    EXPECT_EQ(decodeFailure(R"({"schemaVersion": 2})"),
              "written by a newer Vantorel (schema 2, this build reads up to 1)");
    EXPECT_EQ(decodeFailure(R"({"shortcuts": [{"id": "2b0f6f0e-8b7a-4c39-9a0e-3f5c1d2e4a10",
              "target": {"kind": "link"}}]})"),
              "unknown target kind: link");
    EXPECT_THAT(decodeFailure("not json"), HasSubstr("syntax error"));
    EXPECT_THAT(decodeFailure("[]"), HasSubstr("must be an object"));
    EXPECT_THAT(decodeFailure(R"({"shortcuts": [{"id": "nope", "target": {"kind": "divider"}}]})"),
                HasSubstr("not a valid identifier"));
    EXPECT_THAT(decodeFailure(R"({"shortcuts": [{"id": "2b0f6f0e-8b7a-4c39-9a0e-3f5c1d2e4a10",
              "target": {"kind": "url"}}]})"),
                HasSubstr("\"url\" is missing"));
    EXPECT_THAT(decodeFailure(R"({"shortcuts": [{"id": "2b0f6f0e-8b7a-4c39-9a0e-3f5c1d2e4a10",
              "target": {"kind": "url", "url": "x", "openMode": "sideways"}}]})"),
                HasSubstr("unknown value: sideways"));
    EXPECT_THAT(decodeFailure(R"({"shortcuts": [{"id": "2b0f6f0e-8b7a-4c39-9a0e-3f5c1d2e4a10",
              "icon": {"kind": "image", "value": "***"}, "target": {"kind": "divider"}}]})"),
                HasSubstr("base64"));
}

TEST(LibraryJson, DeepNestingIsRefusedNotOverflowed)
{
    // Within the bound: 64 nested groups read back.
    Shortcut inner = webLink("leaf");
    for (int i = 0; i < kMaxGroupDepth; ++i) {
        inner = group("g", {inner});
    }
    Library ok;
    ok.add(inner);
    EXPECT_EQ(serializedAndReadBack(ok), ok);

    Library tooDeep;
    tooDeep.add(group("g", {inner}));
    EXPECT_THAT(decodeFailure(encodeLibrary(tooDeep)), HasSubstr("nested deeper than 64"));

    // Raw brackets far beyond any real file fail before the parser recurses or allocates.
    std::string bomb = R"({"shortcuts":)" + std::string(200000, '[');
    EXPECT_THAT(decodeFailure(bomb), HasSubstr("must be an object"));
    std::string objects;
    for (int i = 0; i < 100000; ++i) {
        objects += R"({"x":)";
    }
    EXPECT_THAT(decodeFailure(objects), HasSubstr("nested too deeply"));
    EXPECT_THROW(reference::decodeLibrary(objects), DecodeError);
}

// Round trips and the gathering of older files are the store's tests; an unset colour is left out.
TEST(SessionJson, AnUnsetColourIsNotWritten)
{
    SessionIndex index{{Session{SessionID::make(), "Home", std::nullopt}}};
    EXPECT_EQ(encodeSessionIndex(index).find("colour"), std::string::npos);
    EXPECT_EQ(decodeSessionIndex(encodeSessionIndex(index)), index);
    EXPECT_TRUE(decodeLegacySessions("{}").empty());
}

TEST(LibraryFile, StreamedCodingMatchesTheRecordCodings)
{
    // Every kind and every field away from its default, in both codings.
    auto library = testing_support::generateLibrary(600, {SessionID::make()});
    library.add(everyField());
    library.add(
        Shortcut::make("Editor",
                       Target::app(AppTarget{"org.gnome.TextEditor",
                                             Bookmark{{9}, "/usr/share/applications/x.desktop"}})));
    library.add(Shortcut::make(
        "Home", Target::folder(FileTarget{Bookmark{{}, "/home/me"}, "org.gnome.Nautilus"})));
    Shortcut nested = group("Inner", {webLink("Deep")});
    nested.icon = IconOverride::emoji("🚀");
    Shortcut outer = group("Outer", {nested, Shortcut::make("", Target::divider())});
    outer.iconTint = IconTint::monochrome();
    library.add(outer);
    library.add(Shortcut::make("Tab\there \"quoted\" \\ \x01 ünï 🚀", Target::divider()));
    std::string streamed = encodeLibrary(library);
    EXPECT_EQ(streamed, reference::encodeLibrary(library));
    EXPECT_EQ(decodeLibrary(streamed), library);
    EXPECT_EQ(reference::decodeLibrary(streamed), library);
}

TEST(LibraryFile, ReadsKeysInAnyOrderAndEscapes)
{
    // "kind" last, escapes in keys and values, unknown keys with nested values skipped.
    Library library = decodeLibrary(R"({"shortcuts": [{"target": {"url": "https:\/\/x.org\u00e9",
        "openMode": "window", "extra": {"a": [1, {"b": null}]}, "kind": "url"},
        "n\u0061me": "\ud83d\ude80", "id": "2b0f6f0e-8b7a-4c39-9a0e-3f5c1d2e4a10"},
        {"id": "2b0f6f0e-8b7a-4c39-9a0e-3f5c1d2e4a11", "target": {"members": [], "kind": "group"}}],
        "schemaVersion": 1})");
    ASSERT_EQ(library.shortcuts.size(), 2u);
    EXPECT_EQ(library.shortcuts[0].name, "🚀");
    EXPECT_EQ(library.shortcuts[0].target.urlTarget()->url, "https://x.orgé");
    EXPECT_EQ(library.shortcuts[0].target.urlTarget()->openMode, OpenMode::Window);
    EXPECT_TRUE(library.shortcuts[1].target.isGroup());
}

TEST(LibraryFile, RefusesMalformedText)
{
    const std::vector<std::vector<std::string>> groups{
        {"", "{", R"({"shortcuts": [})", R"({"a" 1})", R"({} trailing)", R"({"a": tru})"},
        {R"({"a": 01})", R"({"a": 1e999})", R"({"a": -})"},
        {R"({"a": "\x"})", "{\"a\": \"\xff\"}", R"({"a": "\ud800"})", "{\"a\": \"line\nbreak\"}"},
    };
    for (const auto& texts : groups) {
        for (const std::string& bad : texts) {
            EXPECT_THROW(decodeLibrary(bad), DecodeError) << bad;
            EXPECT_THROW(reference::decodeLibrary(bad), DecodeError) << bad;
        }
    }
}
