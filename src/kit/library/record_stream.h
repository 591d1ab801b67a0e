// SPDX-License-Identifier: MIT
// Streamed reading and writing of the library's records, without a JSON tree: shared by bar files
// and proposal documents, which carry the same shortcuts. The results equal the record codings of
// library_json.cpp, which the tests and the fuzzers hold them to.
#pragma once

#include "kit/library/library_json.h"
#include "kit/support/base64.h"
#include "kit/support/json_reader.h"
#include "kit/support/json_writer.h"

#include <cstring>
#include <optional>
#include <string>
#include <utility>

namespace kit::library {

using support::JsonReader;
using support::JsonReadError;
using support::PrettyJsonWriter;

// A key compared with a word of known length, which compiles to a few loads rather than a call.
template <size_t N> bool is(std::string_view key, const char (&word)[N])
{
    return key.size() == N - 1 && std::memcmp(key.data(), word, N - 1) == 0;
}

inline DecodeError missingKey(const char* key)
{
    return DecodeError(std::string("key \"") + key + "\" is missing");
}

class RecordReader
{
public:
    explicit RecordReader(std::string_view text)
        : m_reader(text, kMaxJsonDepth)
    {}

    support::JsonReader& json() { return m_reader; }

    Library library()
    {
        if (m_reader.peek() != JsonReader::Type::Object) {
            throw DecodeError(std::string("a bar file must be an object, but is ")
                              + JsonReader::typeName(m_reader.peek()));
        }
        Library library;
        m_reader.readObject([&](std::string_view key) {
            if (is(key, "schemaVersion")) {
                readSchemaVersion();
            } else if (is(key, "shortcuts")) {
                if (!m_reader.skipNull()) {
                    library.shortcuts = shortcutList();
                }
            } else {
                m_reader.skipValue();
            }
        });
        m_reader.expectEnd();
        return library;
    }

    void readSchemaVersion()
    {
        if (m_reader.skipNull()) {
            return;
        }
        if (m_reader.peek() != JsonReader::Type::Number) {
            throw DecodeError(std::string("schemaVersion must be a number, but is ")
                              + JsonReader::typeName(m_reader.peek()));
        }
        double version = m_reader.readDouble();
        if (version > Library::kCurrentSchemaVersion) {
            PrettyJsonWriter number;
            number.value(version);
            throw DecodeError("written by a newer Vantorel (schema " + number.text()
                              + ", this build reads up to "
                              + std::to_string(Library::kCurrentSchemaVersion) + ")");
        }
    }

    std::vector<Shortcut> shortcutList()
    {
        std::vector<Shortcut> list;
        m_reader.readArray([&] { list.push_back(shortcut()); });
        return list;
    }

    template <class T, class Read> void optional(std::optional<T>& out, Read read)
    {
        if (!m_reader.skipNull()) {
            out = read();
        }
    }

    template <class T, class Read> void orDefault(T& out, Read read)
    {
        if (!m_reader.skipNull()) {
            out = read();
        }
    }

    template <class E> E enumeration()
    {
        std::string_view word = m_reader.readStringView(m_scratch);
        auto value = enumFromWord<E>(word);
        if (!value) {
            throw DecodeError("unknown value: " + std::string(word));
        }
        return *value;
    }

    template <class Kind> ID<Kind> identifier()
    {
        std::string_view text = m_reader.readStringView(m_scratch);
        auto id = ID<Kind>::parse(text);
        if (!id) {
            throw DecodeError("not a valid identifier: " + std::string(text));
        }
        return *id;
    }

    void requireObject(const char* what)
    {
        if (m_reader.peek() != JsonReader::Type::Object) {
            throw DecodeError(std::string(what) + " must be an object, but is "
                              + JsonReader::typeName(m_reader.peek()));
        }
    }

    Bytes bytes()
    {
        auto decoded = support::base64Decode(m_reader.readString());
        if (!decoded) {
            throw DecodeError("data is not valid base64");
        }
        return std::move(*decoded);
    }

    ContentSize size()
    {
        requireObject("a size");
        std::optional<double> width;
        std::optional<double> height;
        m_reader.readObject([&](std::string_view key) {
            if (is(key, "width")) {
                width = m_reader.readDouble();
            } else if (is(key, "height")) {
                height = m_reader.readDouble();
            } else {
                m_reader.skipValue();
            }
        });
        if (!width) {
            throw missingKey("width");
        }
        if (!height) {
            throw missingKey("height");
        }
        return {*width, *height};
    }

    Bookmark bookmark()
    {
        requireObject("a bookmark");
        Bookmark bookmark;
        m_reader.readObject([&](std::string_view key) {
            if (is(key, "data")) {
                orDefault(bookmark.data, [&] { return bytes(); });
            } else if (is(key, "displayPath")) {
                orDefault(bookmark.displayPath, [&] { return m_reader.readString(); });
            } else {
                m_reader.skipValue();
            }
        });
        return bookmark;
    }

    // Icons and tints are both {"kind", "value"} objects; which members each kind needs is theirs.
    std::pair<std::optional<std::string>, std::optional<std::string>> kindAndValue(const char* what)
    {
        requireObject(what);
        std::optional<std::string> kind;
        std::optional<std::string> value;
        m_reader.readObject([&](std::string_view key) {
            if (is(key, "kind")) {
                kind = m_reader.readString();
            } else if (is(key, "value")) {
                value = m_reader.readString();
            } else {
                m_reader.skipValue();
            }
        });
        return {std::move(kind), std::move(value)};
    }

    IconOverride icon()
    {
        auto [kind, value] = kindAndValue("an icon");
        if (!kind) {
            throw missingKey("kind");
        }
        if (!value) {
            throw missingKey("value");
        }
        if (*kind == "symbol") {
            return IconOverride::symbol(std::move(*value));
        }
        if (*kind == "emoji") {
            return IconOverride::emoji(std::move(*value));
        }
        if (*kind == "image") {
            auto data = support::base64Decode(*value);
            if (!data) {
                throw DecodeError("data is not valid base64");
            }
            return IconOverride::image(std::move(*data));
        }
        throw DecodeError("unknown icon kind: " + *kind);
    }

    IconTint tint()
    {
        auto [kind, value] = kindAndValue("a tint");
        if (!kind) {
            throw missingKey("kind");
        }
        if (*kind == "colour") {
            if (!value) {
                throw missingKey("value");
            }
            return IconTint::colour(std::move(*value));
        }
        if (*kind == "monochrome") {
            return IconTint::monochrome();
        }
        throw DecodeError("unknown tint kind: " + *kind);
    }

    Shortcut shortcut()
    {
        requireObject("a shortcut");
        Shortcut s;
        bool hasID = false;
        bool hasTarget = false;
        m_reader.readObject([&](std::string_view key) {
            if (is(key, "id")) {
                s.id = identifier<ShortcutKind>();
                hasID = true;
            } else if (is(key, "name")) {
                orDefault(s.name, [&] { return m_reader.readString(); });
            } else if (is(key, "target")) {
                s.target = target();
                hasTarget = true;
            } else if (is(key, "icon")) {
                optional(s.icon, [&] { return icon(); });
            } else if (is(key, "iconTint")) {
                optional(s.iconTint, [&] { return tint(); });
            } else if (is(key, "iconOpacity")) {
                optional(s.iconOpacity, [&] { return m_reader.readDouble(); });
            } else if (is(key, "isInMenuBar")) {
                orDefault(s.isInMenuBar, [&] { return m_reader.readBool(); });
            } else {
                m_reader.skipValue();
            }
        });
        if (!hasID) {
            throw missingKey("id");
        }
        if (!hasTarget) {
            throw missingKey("target");
        }
        return s;
    }

    // Everything a target object can hold; only the fields of its kind are read.
    struct TargetFields
    {
        std::optional<std::string> bundleID;
        std::optional<Bookmark> bookmark;
        std::optional<std::string> openWith;
        std::optional<std::string> url;
        URLTarget link;
        std::vector<Shortcut> members;
    };

    void urlField(std::string_view key, TargetFields& f)
    {
        URLTarget& u = f.link;
        if (is(key, "url")) {
            f.url = m_reader.readString();
        } else if (is(key, "template")) {
            optional(u.templateID, [&] { return m_reader.readString(); });
        } else if (is(key, "openMode")) {
            optional(u.openMode, [&] { return enumeration<OpenMode>(); });
        } else if (is(key, "sessionID")) {
            optional(u.sessionID, [&] { return identifier<SessionKind>(); });
        } else if (is(key, "browserBundleID")) {
            optional(u.browserBundleID, [&] { return m_reader.readString(); });
        } else if (is(key, "userAgent")) {
            optional(u.userAgent, [&] { return enumeration<BrowserAgent>(); });
        } else if (is(key, "customUserAgent")) {
            optional(u.customUserAgent, [&] { return m_reader.readString(); });
        } else if (is(key, "pageAppearance")) {
            optional(u.pageAppearance, [&] { return enumeration<PageAppearance>(); });
        } else if (is(key, "blocksAds")) {
            optional(u.blocksAds, [&] { return m_reader.readBool(); });
        } else if (is(key, "popoverSize")) {
            optional(u.popoverSize, [&] { return size(); });
        } else if (is(key, "windowSize")) {
            optional(u.windowSize, [&] { return size(); });
        } else if (is(key, "lastVisitedURL")) {
            optional(u.lastVisitedURL, [&] { return m_reader.readString(); });
        } else if (is(key, "isPrivate")) {
            orDefault(u.isPrivate, [&] { return m_reader.readBool(); });
        } else if (is(key, "staysOnTop")) {
            orDefault(u.staysOnTop, [&] { return m_reader.readBool(); });
        } else if (is(key, "reloadsOnOpen")) {
            orDefault(u.reloadsOnOpen, [&] { return m_reader.readBool(); });
        } else if (is(key, "keepsPlaying")) {
            orDefault(u.keepsPlaying, [&] { return m_reader.readBool(); });
        } else if (is(key, "newWindowLinks")) {
            optional(u.newWindowLinks, [&] { return enumeration<NewWindowLinks>(); });
        } else if (is(key, "pageZoom")) {
            optional(u.pageZoom, [&] { return m_reader.readDouble(); });
        } else {
            m_reader.skipValue();
        }
    }

    void field(Target::Kind kind, std::string_view key, TargetFields& f)
    {
        switch (kind) {
        case Target::Kind::App:
            if (is(key, "bundleID")) {
                f.bundleID = m_reader.readString();
            } else if (is(key, "bookmark")) {
                optional(f.bookmark, [&] { return bookmark(); });
            } else {
                m_reader.skipValue();
            }
            break;
        case Target::Kind::File:
        case Target::Kind::Folder:
            if (is(key, "bookmark")) {
                f.bookmark = bookmark();
            } else if (is(key, "openWith")) {
                optional(f.openWith, [&] { return m_reader.readString(); });
            } else {
                m_reader.skipValue();
            }
            break;
        case Target::Kind::Url:
            urlField(key, f);
            break;
        case Target::Kind::Group:
            if (is(key, "members")) {
                if (++m_groupDepth > kMaxGroupDepth) {
                    throw DecodeError("groups are nested deeper than "
                                      + std::to_string(kMaxGroupDepth) + " levels");
                }
                orDefault(f.members, [&] { return shortcutList(); });
                --m_groupDepth;
            } else {
                m_reader.skipValue();
            }
            break;
        case Target::Kind::Divider:
            m_reader.skipValue();
            break;
        }
    }

    Target target()
    {
        requireObject("a target");
        std::optional<Target::Kind> kind;
        TargetFields f;
        // Members met before "kind" are read once the kind is known.
        std::vector<std::pair<std::string, size_t>> early;
        m_reader.readObject([&](std::string_view key) {
            if (is(key, "kind")) {
                std::string word = m_reader.readString();
                kind = enumFromWord<Target::Kind>(word);
                if (!kind) {
                    throw DecodeError("unknown target kind: " + word);
                }
            } else if (!kind) {
                early.emplace_back(std::string(key), m_reader.position());
                m_reader.skipValue();
            } else {
                field(*kind, key, f);
            }
        });
        if (!kind) {
            throw missingKey("kind");
        }
        if (!early.empty()) {
            size_t resume = m_reader.position();
            for (const auto& [key, position] : early) {
                m_reader.seek(position);
                field(*kind, key, f);
            }
            m_reader.seek(resume);
        }
        switch (*kind) {
        case Target::Kind::App:
            if (!f.bundleID) {
                throw missingKey("bundleID");
            }
            return Target::app(AppTarget{std::move(*f.bundleID), std::move(f.bookmark)});
        case Target::Kind::File:
        case Target::Kind::Folder: {
            if (!f.bookmark) {
                throw missingKey("bookmark");
            }
            FileTarget file{std::move(*f.bookmark), std::move(f.openWith)};
            return *kind == Target::Kind::File ? Target::file(std::move(file))
                                               : Target::folder(std::move(file));
        }
        case Target::Kind::Url:
            if (!f.url) {
                throw missingKey("url");
            }
            f.link.url = std::move(*f.url);
            return Target::url(std::move(f.link));
        case Target::Kind::Group:
            return Target::group(std::move(f.members));
        case Target::Kind::Divider:
            break;
        }
        return Target::divider();
    }

private:
    JsonReader m_reader;
    int m_groupDepth = 0;
    std::string m_scratch;
};

class RecordWriter
{
public:
    explicit RecordWriter(size_t reserve)
        : m_out(reserve)
    {}

    std::string library(const Library& library)
    {
        m_out.beginObject();
        m_out.key("schemaVersion");
        m_out.value(library.schemaVersion);
        m_out.key("shortcuts");
        list(library.shortcuts);
        m_out.endObject();
        return m_out.take();
    }

    support::PrettyJsonWriter& json() { return m_out; }

    void list(const std::vector<Shortcut>& shortcuts)
    {
        m_out.beginArray();
        for (const auto& s : shortcuts) {
            shortcut(s);
        }
        m_out.endArray();
    }

    template <class E> void word(const char* key, const std::optional<E>& value)
    {
        if (value) {
            m_out.key(key);
            m_out.value(enumWord(*value));
        }
    }

    void text(const char* key, const std::optional<std::string>& value)
    {
        if (value) {
            m_out.key(key);
            m_out.value(*value);
        }
    }

    void size(const char* key, const std::optional<ContentSize>& value)
    {
        if (value) {
            m_out.key(key);
            m_out.beginObject();
            m_out.key("height");
            m_out.value(value->height);
            m_out.key("width");
            m_out.value(value->width);
            m_out.endObject();
        }
    }

    void flag(const char* key, bool value)
    {
        m_out.key(key);
        m_out.value(value);
    }

    void bookmark(const Bookmark& b)
    {
        m_out.beginObject();
        m_out.key("data");
        m_out.value(support::base64Encode(b.data));
        m_out.key("displayPath");
        m_out.value(b.displayPath);
        m_out.endObject();
    }

    void kind(Target::Kind k)
    {
        m_out.key("kind");
        m_out.value(enumWord(k));
    }

    void target(const Target& t)
    {
        m_out.beginObject();
        switch (t.kind()) {
        case Target::Kind::App: {
            const auto& app = *t.appTarget();
            if (app.bookmark) {
                m_out.key("bookmark");
                bookmark(*app.bookmark);
            }
            m_out.key("bundleID");
            m_out.value(app.bundleID);
            kind(t.kind());
            break;
        }
        case Target::Kind::File:
        case Target::Kind::Folder: {
            const auto& file = *t.fileTarget();
            m_out.key("bookmark");
            bookmark(file.bookmark);
            kind(t.kind());
            text("openWith", file.openWith);
            break;
        }
        case Target::Kind::Url:
            urlMembers(*t.urlTarget());
            break;
        case Target::Kind::Group:
            kind(t.kind());
            m_out.key("members");
            list(t.members());
            break;
        case Target::Kind::Divider:
            kind(t.kind());
            break;
        }
        m_out.endObject();
    }

    // A url target's members, its kind among them, in key order.
    void urlMembers(const URLTarget& u)
    {
        if (u.blocksAds) {
            flag("blocksAds", *u.blocksAds);
        }
        text("browserBundleID", u.browserBundleID);
        text("customUserAgent", u.customUserAgent);
        flag("isPrivate", u.isPrivate);
        flag("keepsPlaying", u.keepsPlaying);
        kind(Target::Kind::Url);
        text("lastVisitedURL", u.lastVisitedURL);
        word("newWindowLinks", u.newWindowLinks);
        word("openMode", u.openMode);
        word("pageAppearance", u.pageAppearance);
        if (u.pageZoom) {
            m_out.key("pageZoom");
            m_out.value(*u.pageZoom);
        }
        size("popoverSize", u.popoverSize);
        flag("reloadsOnOpen", u.reloadsOnOpen);
        if (u.sessionID) {
            m_out.key("sessionID");
            m_out.value(u.sessionID->string());
        }
        flag("staysOnTop", u.staysOnTop);
        text("template", u.templateID);
        m_out.key("url");
        m_out.value(u.url);
        word("userAgent", u.userAgent);
        size("windowSize", u.windowSize);
    }

    void icon(const IconOverride& icon)
    {
        m_out.beginObject();
        static constexpr const char* kKinds[] = {"symbol", "emoji", "image"};
        m_out.key("kind");
        m_out.value(kKinds[static_cast<int>(icon.kind)]);
        m_out.key("value");
        m_out.value(icon.kind == IconOverride::Kind::Image ? support::base64Encode(icon.data)
                                                           : icon.text);
        m_out.endObject();
    }

    void tint(const IconTint& tint)
    {
        m_out.beginObject();
        m_out.key("kind");
        m_out.value(tint.kind == IconTint::Kind::Colour ? "colour" : "monochrome");
        if (tint.kind == IconTint::Kind::Colour) {
            m_out.key("value");
            m_out.value(tint.value);
        }
        m_out.endObject();
    }

    void shortcut(const Shortcut& s)
    {
        m_out.beginObject();
        if (s.icon) {
            m_out.key("icon");
            icon(*s.icon);
        }
        if (s.iconOpacity) {
            m_out.key("iconOpacity");
            m_out.value(*s.iconOpacity);
        }
        if (s.iconTint) {
            m_out.key("iconTint");
            tint(*s.iconTint);
        }
        m_out.key("id");
        m_out.value(s.id.string());
        flag("isInMenuBar", s.isInMenuBar);
        m_out.key("name");
        m_out.value(s.name);
        m_out.key("target");
        target(s.target);
        m_out.endObject();
    }

private:
    PrettyJsonWriter m_out;
};

} // namespace kit::library
