// SPDX-License-Identifier: MIT
#include "kit/library/library_json.h"

#include "kit/support/json_reader.h"

#include <cmath>

namespace kit::library {

using nlohmann::json;

namespace {

// Group nesting of the Target being decoded; bounds the recursion of from_json.
thread_local int decodingGroupDepth = 0;

struct GroupDepthGuard
{
    GroupDepthGuard()
    {
        if (++decodingGroupDepth > kMaxGroupDepth) {
            --decodingGroupDepth;
            throw DecodeError("groups are nested deeper than " + std::to_string(kMaxGroupDepth)
                              + " levels");
        }
    }
    ~GroupDepthGuard() { --decodingGroupDepth; }
    GroupDepthGuard(const GroupDepthGuard&) = delete;
    GroupDepthGuard& operator=(const GroupDepthGuard&) = delete;
};

Bytes decodeBytes(const json& j)
{
    auto bytes = support::base64Decode(j.get_ref<const std::string&>());
    if (!bytes) {
        throw DecodeError("data is not valid base64");
    }
    return std::move(*bytes);
}

template <class T, class Decode> T decodeWhole(std::string_view text, Decode decode)
{
    try {
        json document = parseJson(text);
        return decode(document);
    } catch (const DecodeError&) {
        throw;
    } catch (const std::exception& error) {
        throw DecodeError(plainMessage(error));
    }
}

} // namespace

json number(double value)
{
    if (std::isfinite(value) && std::floor(value) == value && std::fabs(value) < 1e15) {
        return static_cast<int64_t>(value);
    }
    return value;
}

const json& required(const json& object, const char* key)
{
    auto it = object.find(key);
    if (it == object.end()) {
        throw DecodeError(std::string("key \"") + key + "\" is missing");
    }
    return *it;
}

void requireObject(const json& j, const char* what)
{
    if (!j.is_object()) {
        throw DecodeError(std::string(what) + " must be an object, but is " + j.type_name());
    }
}

json parseJson(std::string_view text, int maxDepth)
{
    if (!support::nestsWithin(text, maxDepth)) {
        throw DecodeError("the data is nested too deeply");
    }
    try {
        return json::parse(text.begin(), text.end());
    } catch (const json::exception& error) {
        throw DecodeError(plainMessage(error));
    }
}

std::string prettyJson(const json& value)
{
    return value.dump(2, ' ', false, json::error_handler_t::replace);
}

std::string compactJson(const json& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string plainMessage(const std::exception& error)
{
    std::string_view text = error.what();
    if (text.starts_with("[json.exception.")) {
        if (auto end = text.find("] "); end != std::string_view::npos) {
            text.remove_prefix(end + 2);
        }
    }
    return std::string(text);
}

void to_json(json& j, const ContentSize& v)
{
    j = json{{"width", number(v.width)}, {"height", number(v.height)}};
}

void from_json(const json& j, ContentSize& v)
{
    requireObject(j, "a size");
    v.width = required(j, "width").get<double>();
    v.height = required(j, "height").get<double>();
}

void to_json(json& j, const IconOverride& v)
{
    static constexpr const char* kKinds[] = {"symbol", "emoji", "image"};
    j = json{{"kind", kKinds[static_cast<int>(v.kind)]}};
    j["value"] =
        v.kind == IconOverride::Kind::Image ? json(support::base64Encode(v.data)) : json(v.text);
}

void from_json(const json& j, IconOverride& v)
{
    requireObject(j, "an icon");
    const auto& kind = required(j, "kind").get_ref<const std::string&>();
    const json& value = required(j, "value");
    if (kind == "symbol") {
        v = IconOverride::symbol(value.get<std::string>());
    } else if (kind == "emoji") {
        v = IconOverride::emoji(value.get<std::string>());
    } else if (kind == "image") {
        v = IconOverride::image(decodeBytes(value));
    } else {
        throw DecodeError("unknown icon kind: " + kind);
    }
}

void to_json(json& j, const IconTint& v)
{
    if (v.kind == IconTint::Kind::Colour) {
        j = json{{"kind", "colour"}, {"value", v.value}};
    } else {
        j = json{{"kind", "monochrome"}};
    }
}

void from_json(const json& j, IconTint& v)
{
    requireObject(j, "a tint");
    const auto& kind = required(j, "kind").get_ref<const std::string&>();
    if (kind == "colour") {
        v = IconTint::colour(required(j, "value").get<std::string>());
    } else if (kind == "monochrome") {
        v = IconTint::monochrome();
    } else {
        throw DecodeError("unknown tint kind: " + kind);
    }
}

void to_json(json& j, const Bookmark& v)
{
    j = json{{"data", support::base64Encode(v.data)}, {"displayPath", v.displayPath}};
}

void from_json(const json& j, Bookmark& v)
{
    requireObject(j, "a bookmark");
    v = Bookmark{};
    if (auto it = j.find("data"); it != j.end() && !it->is_null()) {
        v.data = decodeBytes(*it);
    }
    readOr(j, "displayPath", v.displayPath);
}

void to_json(json& j, const URLTarget& v)
{
    j = json::object();
    j["url"] = v.url;
    writeOptional(j, "template", v.templateID);
    writeOptional(j, "openMode", v.openMode);
    writeOptional(j, "sessionID", v.sessionID);
    writeOptional(j, "browserBundleID", v.browserBundleID);
    writeOptional(j, "userAgent", v.userAgent);
    writeOptional(j, "customUserAgent", v.customUserAgent);
    writeOptional(j, "pageAppearance", v.pageAppearance);
    writeOptional(j, "blocksAds", v.blocksAds);
    writeOptional(j, "popoverSize", v.popoverSize);
    writeOptional(j, "windowSize", v.windowSize);
    writeOptional(j, "lastVisitedURL", v.lastVisitedURL);
    j["isPrivate"] = v.isPrivate;
    j["staysOnTop"] = v.staysOnTop;
    j["reloadsOnOpen"] = v.reloadsOnOpen;
    j["keepsPlaying"] = v.keepsPlaying;
    writeOptional(j, "newWindowLinks", v.newWindowLinks);
    if (v.pageZoom) {
        j["pageZoom"] = number(*v.pageZoom);
    }
}

void from_json(const json& j, URLTarget& v)
{
    v = URLTarget{};
    v.url = required(j, "url").get<std::string>();
    readOptional(j, "template", v.templateID);
    readOptional(j, "openMode", v.openMode);
    readOptional(j, "sessionID", v.sessionID);
    readOptional(j, "browserBundleID", v.browserBundleID);
    readOptional(j, "userAgent", v.userAgent);
    readOptional(j, "customUserAgent", v.customUserAgent);
    readOptional(j, "pageAppearance", v.pageAppearance);
    readOptional(j, "blocksAds", v.blocksAds);
    readOptional(j, "popoverSize", v.popoverSize);
    readOptional(j, "windowSize", v.windowSize);
    readOptional(j, "lastVisitedURL", v.lastVisitedURL);
    readOr(j, "isPrivate", v.isPrivate);
    readOr(j, "staysOnTop", v.staysOnTop);
    readOr(j, "reloadsOnOpen", v.reloadsOnOpen);
    readOr(j, "keepsPlaying", v.keepsPlaying);
    readOptional(j, "newWindowLinks", v.newWindowLinks);
    readOptional(j, "pageZoom", v.pageZoom);
}

void to_json(json& j, const Target& v)
{
    switch (v.kind()) {
    case Target::Kind::App: {
        const auto& app = *v.appTarget();
        j = json{{"bundleID", app.bundleID}};
        writeOptional(j, "bookmark", app.bookmark);
        break;
    }
    case Target::Kind::File:
    case Target::Kind::Folder: {
        const auto& file = *v.fileTarget();
        j = json{{"bookmark", file.bookmark}};
        writeOptional(j, "openWith", file.openWith);
        break;
    }
    case Target::Kind::Url:
        to_json(j, *v.urlTarget());
        break;
    case Target::Kind::Group:
        j = json{{"members", v.members()}};
        break;
    case Target::Kind::Divider:
        j = json::object();
        break;
    }
    j["kind"] = std::string(enumWord(v.kind()));
}

void from_json(const json& j, Target& v)
{
    requireObject(j, "a target");
    const auto& word = required(j, "kind").get_ref<const std::string&>();
    auto kind = enumFromWord<Target::Kind>(word);
    if (!kind) {
        throw DecodeError("unknown target kind: " + word);
    }
    switch (*kind) {
    case Target::Kind::App: {
        AppTarget app;
        app.bundleID = required(j, "bundleID").get<std::string>();
        readOptional(j, "bookmark", app.bookmark);
        v = Target::app(std::move(app));
        break;
    }
    case Target::Kind::File:
    case Target::Kind::Folder: {
        FileTarget file;
        file.bookmark = required(j, "bookmark").get<Bookmark>();
        readOptional(j, "openWith", file.openWith);
        v = *kind == Target::Kind::File ? Target::file(std::move(file))
                                        : Target::folder(std::move(file));
        break;
    }
    case Target::Kind::Url:
        v = Target::url(j.get<URLTarget>());
        break;
    case Target::Kind::Group: {
        GroupDepthGuard guard;
        GroupTarget group;
        readOr(j, "members", group.members);
        v = Target::group(std::move(group));
        break;
    }
    case Target::Kind::Divider:
        v = Target::divider();
        break;
    }
}

void to_json(json& j, const Shortcut& v)
{
    j = json{{"id", v.id}, {"name", v.name}, {"target", v.target}, {"isInMenuBar", v.isInMenuBar}};
    writeOptional(j, "icon", v.icon);
    writeOptional(j, "iconTint", v.iconTint);
    if (v.iconOpacity) {
        j["iconOpacity"] = number(*v.iconOpacity);
    }
}

void from_json(const json& j, Shortcut& v)
{
    requireObject(j, "a shortcut");
    v = Shortcut{};
    v.id = required(j, "id").get<ShortcutID>();
    readOr(j, "name", v.name);
    v.target = required(j, "target").get<Target>();
    readOptional(j, "icon", v.icon);
    readOptional(j, "iconTint", v.iconTint);
    readOptional(j, "iconOpacity", v.iconOpacity);
    readOr(j, "isInMenuBar", v.isInMenuBar);
}

void to_json(json& j, const Library& v)
{
    j = json{{"schemaVersion", v.schemaVersion}, {"shortcuts", v.shortcuts}};
}

void from_json(const json& j, Library& v)
{
    requireObject(j, "a bar file");
    v = Library{};
    if (auto it = j.find("schemaVersion"); it != j.end() && !it->is_null()) {
        if (!it->is_number()) {
            throw DecodeError(std::string("schemaVersion must be a number, but is ")
                              + it->type_name());
        }
        if (it->get<double>() > Library::kCurrentSchemaVersion) {
            throw DecodeError("written by a newer Vantorel (schema " + it->dump()
                              + ", this build reads up to "
                              + std::to_string(Library::kCurrentSchemaVersion) + ")");
        }
        // Older or odd versions read as the current layout; the next save writes it.
    }
    readOr(j, "shortcuts", v.shortcuts);
}

void to_json(json& j, const Bar& v)
{
    j = json{{"id", v.id}, {"name", v.name}, {"file", v.file}};
}

void from_json(const json& j, Bar& v)
{
    requireObject(j, "a bar");
    v.id = required(j, "id").get<BarID>();
    v.name = required(j, "name").get<std::string>();
    v.file = required(j, "file").get<std::string>();
}

void to_json(json& j, const BarIndex& v)
{
    j = json{{"bars", v.bars}, {"activeID", v.activeID}};
}

void from_json(const json& j, BarIndex& v)
{
    requireObject(j, "the bar list");
    v = BarIndex{};
    readOr(j, "bars", v.bars);
    if (auto it = j.find("activeID"); it != j.end() && !it->is_null()) {
        v.activeID = it->get<BarID>();
    } else if (!v.bars.empty()) {
        v.activeID = v.bars.front().id;
    }
}

void to_json(json& j, const Session& v)
{
    j = json{{"id", v.id}, {"name", v.name}};
    writeOptional(j, "colour", v.colour);
}

void from_json(const json& j, Session& v)
{
    requireObject(j, "a session");
    v = Session{};
    v.id = required(j, "id").get<SessionID>();
    readOr(j, "name", v.name);
    if (auto it = j.find("colour"); it != j.end() && it->is_number()) {
        // Kept as written when it fits; anything else is reduced into the palette.
        double n = it->get<double>();
        if (it->is_number_integer() && n >= -1e9 && n <= 1e9) {
            v.colour = static_cast<int>(it->get<int64_t>());
        } else if (std::isfinite(n)) {
            v.colour = static_cast<int>(std::fmod(std::floor(n), Session::kColourCount));
        }
    }
}

void to_json(json& j, const SessionIndex& v)
{
    j = json{{"sessions", v.sessions}};
}

void from_json(const json& j, SessionIndex& v)
{
    requireObject(j, "the session list");
    v = SessionIndex{};
    readOr(j, "sessions", v.sessions);
}

namespace reference {

Library decodeLibrary(std::string_view text)
{
    return decodeWhole<Library>(text, [](const json& j) { return j.get<Library>(); });
}

std::string encodeLibrary(const Library& library)
{
    return prettyJson(library);
}

} // namespace reference

BarIndex decodeBarIndex(std::string_view text)
{
    return decodeWhole<BarIndex>(text, [](const json& j) { return j.get<BarIndex>(); });
}

std::string encodeBarIndex(const BarIndex& index)
{
    return prettyJson(index);
}

SessionIndex decodeSessionIndex(std::string_view text)
{
    return decodeWhole<SessionIndex>(text, [](const json& j) { return j.get<SessionIndex>(); });
}

std::string encodeSessionIndex(const SessionIndex& index)
{
    return prettyJson(index);
}

std::vector<Session> decodeLegacySessions(std::string_view text)
{
    return decodeWhole<std::vector<Session>>(text, [](const json& j) {
        std::vector<Session> sessions;
        if (j.is_object()) {
            readOr(j, "sessions", sessions);
        }
        return sessions;
    });
}

} // namespace kit::library
