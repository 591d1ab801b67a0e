// SPDX-License-Identifier: MIT
#include "kit/tools/read_tools.h"

#include "kit/library/deep_link.h"
#include "kit/library/library_json.h"
#include "kit/support/platform_words.h"
#include "kit/tools/arguments.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <unordered_map>

namespace kit::tools {

using library::Bar;
using library::Library;
using library::Shortcut;
using library::Target;
using mcp::ToolDescription;
using mcp::ToolError;
using nlohmann::json;
using proposal::LibrarySnapshot;

namespace {

// Answers keep their keys in a fixed order, what a record is before its details; the shortcuts
// inside them are in document shape, keys sorted as documents have them.
using Record = nlohmann::ordered_json;

constexpr const char* kNoProperties =
    R"({"type":"object","properties":{},"additionalProperties":false})";
constexpr const char* kBarProperty =
    R"({"type":"object","properties":{"bar":{"type":"string","description":"The bar's id or name. Omit for the bar that is showing."}},"additionalProperties":false})";

ToolDescription describe(const char* name, const char* description, const char* schema)
{
    return {name, support::inPlatformWords(description), support::inPlatformWords(schema)};
}

// Whole numbers are written without a fraction, as the files write them.
json number(double value)
{
    if (std::isfinite(value) && std::floor(value) == value && std::fabs(value) < 1e15) {
        return static_cast<int64_t>(value);
    }
    return value;
}

json size(const library::ContentSize& size)
{
    return json{{"width", number(size.width)}, {"height", number(size.height)}};
}

json urlShape(const library::URLTarget& url)
{
    json j = url;
    for (const char* key : {"pageZoom"}) {
        if (auto it = j.find(key); it != j.end() && it->is_number()) {
            *it = number(it->get<double>());
        }
    }
    if (url.popoverSize) {
        j["popoverSize"] = size(*url.popoverSize);
    }
    if (url.windowSize) {
        j["windowSize"] = size(*url.windowSize);
    }
    return j;
}

json targetShape(const Target& target)
{
    json j;
    switch (target.kind()) {
    case Target::Kind::App:
        j = json{{"bundleID", target.appTarget()->bundleID}};
        break;
    case Target::Kind::File:
    case Target::Kind::Folder: {
        const auto& file = *target.fileTarget();
        j = json{{"path", file.bookmark.displayPath}};
        if (file.openWith) {
            j["openWith"] = *file.openWith;
        }
        break;
    }
    case Target::Kind::Url:
        j = urlShape(*target.urlTarget());
        break;
    case Target::Kind::Group: {
        json members = json::array();
        for (const auto& member : target.members()) {
            members.push_back(documentShape(member));
        }
        j = json{{"members", std::move(members)}};
        break;
    }
    case Target::Kind::Divider:
        j = json::object();
        break;
    }
    j["kind"] = std::string(library::enumWord(target.kind()));
    return j;
}

size_t countShortcuts(const std::vector<Shortcut>& list)
{
    size_t count = list.size();
    for (const auto& shortcut : list) {
        count += countShortcuts(shortcut.target.members());
    }
    return count;
}

// Every shortcut with its group path, depth first, a group before its members.
template <class Visit>
void walk(const std::vector<Shortcut>& list, const std::string& path, int depth, Visit& visit)
{
    for (const auto& shortcut : list) {
        visit(shortcut, path, depth);
        if (shortcut.target.isGroup()) {
            walk(shortcut.target.members(),
                 path.empty() ? shortcut.name : path + " › " + shortcut.name,
                 depth + 1,
                 visit);
        }
    }
}

Record nameOrNull(const std::string& text)
{
    return text.empty() ? Record(nullptr) : Record(text);
}

int clampedLimit(std::optional<int64_t> limit, int fallback)
{
    constexpr int64_t kMost = 10'000;
    return static_cast<int>(std::clamp<int64_t>(limit.value_or(fallback), 1, kMost));
}

Record listBars(const ToolContext& context)
{
    const auto& snapshot = *context.snapshot;
    Record bars = Record::array();
    for (const auto& bar : snapshot.bars) {
        const Library* library = snapshot.library(bar.id);
        bars.push_back(Record{{"id", bar.id.string()},
                              {"name", bar.name},
                              {"isShowing", snapshot.activeBarID == bar.id},
                              {"shortcutCount", library ? countShortcuts(library->shortcuts) : 0},
                              {"isReadable", library != nullptr}});
    }
    return Record{{"bars", std::move(bars)}};
}

// Built as a sorted json rather than a Record: its two keys are in order either way, and a whole
// bar copied into an ordered tree would cost as much again as building it.
json listShortcuts(const Arguments& arguments, const ToolContext& context)
{
    const Bar& bar = resolveOrShowing(*context.snapshot, arguments.string("bar"));
    json shortcuts = json::array();
    if (const Library* library = context.snapshot->library(bar.id)) {
        shortcuts.get_ref<json::array_t&>().reserve(library->shortcuts.size());
        for (const auto& shortcut : library->shortcuts) {
            shortcuts.push_back(documentShape(shortcut));
        }
    }
    return json{{"bar", bar.name}, {"shortcuts", std::move(shortcuts)}};
}

Record getShortcut(const Arguments& arguments, const ToolContext& context)
{
    auto found =
        findShortcut(*context.snapshot, arguments.requiredString("id"), arguments.string("bar"));
    return Record{{"bar", found.bar->name},
                  {"path", nameOrNull(groupPath(*found.library, found.shortcut->id))},
                  {"shortcut", Record(documentShape(*found.shortcut))}};
}

Record listGroups(const Arguments& arguments, const ToolContext& context)
{
    const Bar& bar = resolveOrShowing(*context.snapshot, arguments.string("bar"));
    Record groups = Record::array();
    if (const Library* library = context.snapshot->library(bar.id)) {
        auto visit = [&](const Shortcut& shortcut, const std::string& path, int depth) {
            if (shortcut.target.isGroup()) {
                groups.push_back(
                    Record{{"id", shortcut.id.string()},
                           {"name", shortcut.name},
                           {"path", path.empty() ? shortcut.name : path + " › " + shortcut.name},
                           {"memberCount", shortcut.target.members().size()},
                           {"depth", depth}});
            }
        };
        walk(library->shortcuts, std::string(), 0, visit);
    }
    return Record{{"bar", bar.name}, {"groups", std::move(groups)}};
}

Record searchShortcuts(const Arguments& arguments, const ToolContext& context)
{
    const std::string query = arguments.requiredString("query");
    const std::string needle = folded(trimmed(query));
    Record hits = Record::array();
    for (const auto& bar : context.snapshot->bars) {
        const Library* library = context.snapshot->library(bar.id);
        if (!library) {
            continue;
        }
        auto visit = [&](const Shortcut& shortcut, const std::string& path, int) {
            const auto* url = shortcut.target.urlTarget();
            if (containsFolded(shortcut.name, needle)
                || (url && containsFolded(url->url, needle))) {
                hits.push_back(Record{{"bar", bar.name},
                                      {"group", nameOrNull(path)},
                                      {"shortcut", Record(documentShape(shortcut))}});
            }
        };
        walk(library->shortcuts, std::string(), 0, visit);
    }
    return Record{{"query", query}, {"hits", std::move(hits)}};
}

Record listSessions(const ToolContext& context)
{
    std::unordered_map<library::SessionID, int> uses;
    for (const auto& [id, library] : context.snapshot->libraries) {
        auto visit = [&](const Shortcut& shortcut, const std::string&, int) {
            if (const auto* url = shortcut.target.urlTarget(); url && url->sessionID) {
                ++uses[*url->sessionID];
            }
        };
        walk(library.shortcuts, std::string(), 0, visit);
    }
    Record sessions = Record::array();
    for (const auto& session : context.snapshot->sessions) {
        sessions.push_back(Record{{"id", session.id.string()},
                                  {"name", session.name},
                                  {"colour", library::Session::colourIndex(session)},
                                  {"shortcutCount", uses[session.id]}});
    }
    return Record{{"sessions", std::move(sessions)}, {"note", ReadTools::kSessionsNote}};
}

Record getSettings(const ToolContext& context)
{
    const auto& browsing = context.browsing;
    return Record{
        {"appVersion", context.appVersion},
        {"barCount", context.snapshot->bars.size()},
        {"linksOpen", library::enumWord(browsing.openMode)},
        {"browserBundleID",
         browsing.browserBundleID ? Record(*browsing.browserBundleID) : Record(nullptr)},
        {"blocksAds", browsing.blocksAds},
        {"pageZoom", Record(number(browsing.pageZoom))},
        {"pageAppearance", library::enumWord(browsing.pageAppearance)},
        {"popoverSize", Record(size(browsing.popoverSize))},
        {"windowSize", Record(size(browsing.windowSize))},
        {"newWindowLinks", library::enumWord(browsing.newWindowLinks)},
        {"asksWhereToSaveDownloads", browsing.asksWhereToSaveDownloads},
    };
}

Record searchIcons(const Arguments& arguments, const ToolContext& context)
{
    auto query = arguments.string("query");
    const int limit = clampedLimit(arguments.integer("limit"), ReadTools::kDefaultIconLimit);
    const std::string needle = folded(trimmed(query.value_or("")));
    Record symbols = Record::array();
    std::map<std::string, int> categories;
    int total = 0;
    for (const auto& icon : context.iconEntries()) {
        if (query && !containsFolded(icon.name, needle) && !containsFolded(icon.category, needle)) {
            continue;
        }
        ++total;
        ++categories[icon.category];
        if (query && static_cast<int>(symbols.size()) < limit) {
            symbols.push_back(icon.name);
        }
    }
    Record list = Record::array();
    for (const auto& [category, count] : categories) {
        list.push_back(Record{{"category", category}, {"count", count}});
    }
    return Record{{"query", query ? Record(*query) : Record(nullptr)},
                  {"symbols", std::move(symbols)},
                  {"total", total},
                  {"categories", std::move(list)},
                  {"note", ReadTools::kIconsNote}};
}

// The desktop-entry id this machine has for a catalogue app, or nothing when it lacks the app.
std::optional<std::string> installedID(const std::string& bundleID, const ToolContext& context)
{
    const auto& apps = context.apps();
    auto has = [&](std::string_view id) {
        return std::any_of(
            apps.begin(), apps.end(), [&](const InstalledApp& app) { return app.bundleID == id; });
    };
    if (has(bundleID)) {
        return bundleID;
    }
    for (auto id : library::DeepLinkTemplates::desktopEntryIDs(bundleID)) {
        if (has(id)) {
            return std::string(id);
        }
    }
    return std::nullopt;
}

Record listDeepLinks(const Arguments& arguments, const ToolContext& context)
{
    auto app = arguments.string("app");
    const std::string needle = folded(trimmed(app.value_or("")));
    Record apps = Record::array();
    std::map<std::string, size_t> index; // bundle id -> position in apps
    for (const auto& link : library::DeepLinkTemplates::all()) {
        auto ids = library::DeepLinkTemplates::desktopEntryIDs(link.bundleID);
        bool matches = containsFolded(link.appName, needle) || containsFolded(link.bundleID, needle)
                       || std::any_of(ids.begin(), ids.end(), [&](std::string_view id) {
                              return containsFolded(id, needle);
                          });
        if (app && !matches) {
            continue;
        }
        auto [it, isNew] = index.emplace(link.bundleID, apps.size());
        if (isNew) {
            auto installed = installedID(link.bundleID, context);
            std::string shownID = installed     ? *installed
                                  : ids.empty() ? link.bundleID
                                                : std::string(ids.front());
            apps.push_back(Record{{"app", link.appName},
                                  {"bundleID", shownID},
                                  {"installed", installed.has_value()},
                                  {"links", Record::array()}});
        }
        apps[it->second]["links"].push_back(
            Record{{"title", link.title},
                   {"address", link.address},
                   {"blanks", library::DeepLinkTemplates::blanks(link.address)},
                   {"blanksMean", link.placeholder ? Record(*link.placeholder) : Record(nullptr)},
                   {"suggestedName", link.suggestedName},
                   {"icon", link.icon ? Record(json(*link.icon)) : Record(nullptr)}});
    }
    return Record{{"apps", std::move(apps)}, {"note", ReadTools::kDeepLinksNote}};
}

Record findApps(const Arguments& arguments, const ToolContext& context)
{
    auto query = arguments.string("query");
    const int limit = clampedLimit(arguments.integer("limit"), ReadTools::kDefaultAppLimit);
    const std::string needle = folded(trimmed(query.value_or("")));
    Record apps = Record::array();
    int total = 0;
    for (const auto& app : context.apps()) {
        if (!containsFolded(app.name, needle) && !containsFolded(app.bundleID, needle)) {
            continue;
        }
        ++total;
        if (static_cast<int>(apps.size()) < limit) {
            apps.push_back(Record{{"name", app.name}, {"bundleID", app.bundleID}});
        }
    }
    return Record{{"apps", std::move(apps)}, {"total", total}};
}

} // namespace

json documentShape(const Shortcut& shortcut)
{
    json j{{"id", shortcut.id},
           {"name", shortcut.name},
           {"target", targetShape(shortcut.target)},
           {"isInMenuBar", shortcut.isInMenuBar}};
    if (shortcut.icon) {
        j["icon"] = *shortcut.icon;
    }
    if (shortcut.iconTint) {
        j["iconTint"] = *shortcut.iconTint;
    }
    if (shortcut.iconOpacity) {
        j["iconOpacity"] = number(*shortcut.iconOpacity);
    }
    return j;
}

const std::vector<ToolDescription>& ReadTools::descriptions()
{
    static const std::vector<ToolDescription> kDescriptions{
        describe(
            "list_bars",
            "Lists the menu bars Vantorel has. A bar is a whole set of shortcuts switched to as "
            "a set (work, home, a project); one of them is showing. Start here: every other "
            "tool takes a bar by its id or its name and defaults to the one showing.",
            kNoProperties),
        describe("list_shortcuts",
                 "Everything on one bar, in menu-bar order, with a group's members nested inside "
                 "it. Each shortcut is in the document shape: id, name, target (kind "
                 "app/file/folder/url/group/divider with its details), icon, isInMenuBar. Ids are "
                 "UUIDs: quote them exactly when you refer to a shortcut. A url target's sessionID "
                 "names an account from list_sessions; a file or folder shows its path.",
                 kBarProperty),
        describe(
            "get_shortcut",
            "One shortcut by id, with the group it sits in (if any) and the bar it is on. Use "
            "this before proposing a change to it, so the change starts from what is there.",
            R"({"type":"object","properties":{"id":{"type":"string","description":"The shortcut's id, from list_shortcuts or search_shortcuts."},"bar":{"type":"string","description":"The bar's id or name. Omit to look on every bar."}},"required":["id"],"additionalProperties":false})"),
        describe("list_groups",
                 "The groups on a bar, each with its id, its name, its path (Work › Clients) and "
                 "how many things it holds. A group is a shortcut that holds shortcuts behind one "
                 "icon; a shortcut can be placed inside one by its id.",
                 kBarProperty),
        describe(
            "search_shortcuts",
            "Finds shortcuts by name or address across every bar, case-insensitively. Answers "
            "which bar and which group each one is on.",
            R"({"type":"object","properties":{"query":{"type":"string","description":"Part of a name, or part of a link's address."}},"required":["query"],"additionalProperties":false})"),
        describe("list_sessions",
                 "The browsing accounts (sessions). Two shortcuts to one site can be signed in to "
                 "two accounts by naming two sessions. A url target's sessionID refers to one of "
                 "these; no sessionID means the shared default. Answers each session's id, name, "
                 "colour and how many shortcuts use it.",
                 kNoProperties),
        describe("get_settings",
                 "What Vantorel does for a link that says nothing of its own: where it opens (a "
                 "panel off the menu bar, a window, or a browser), whether ads are blocked, the "
                 "page zoom, the default panel and window sizes, where a link that asks for a new "
                 "window goes. Also the app's version and how many bars there are.",
                 kNoProperties),
        describe(
            "search_icons",
            "The SF Symbols this Mac can draw, which are the names set_icon and an icon of "
            "kind symbol take. Search by part of a name or a category (arrows, weather, "
            "devices, communication, and so on); omit the query for the categories and how "
            "many each holds. Only names from here are sure to draw; a guessed name draws "
            "nothing.",
            R"({"type":"object","properties":{"query":{"type":"string","description":"Part of a symbol name or a category name."},"limit":{"type":"integer","description":"At most this many names, 40 by default."}},"additionalProperties":false})"),
        describe(
            "list_deep_links",
            "Links into apps that Vantorel knows the shape of: a WhatsApp chat, a Slack "
            "channel, a Figma file, a Zoom meeting, every System Settings pane by name, and "
            "more. Each has an address with {blanks} to fill in, the app it opens and whether "
            "that app is installed here. Use these addresses rather than guessing an app's URL "
            "scheme; a System Settings pane is only ever right from this list.",
            R"({"type":"object","properties":{"app":{"type":"string","description":"Part of an app's name or bundle id. Omit for every app."}},"additionalProperties":false})"),
        describe(
            "find_apps",
            "The applications installed on this Mac, by name, with the bundle id an app "
            "shortcut carries. Search by part of a name; omit the query for all of them. Use "
            "this before proposing an app shortcut, so the bundle id is one that exists here.",
            R"({"type":"object","properties":{"query":{"type":"string","description":"Part of an app's name or bundle id. Omit for every app."},"limit":{"type":"integer","description":"At most this many, 50 by default."}},"additionalProperties":false})"),
    };
    return kDescriptions;
}

const std::vector<std::string>& ReadTools::names()
{
    static const std::vector<std::string> kNames = namesOf(descriptions());
    return kNames;
}

bool ReadTools::handles(std::string_view name)
{
    return isNamed(names(), name);
}

bool ReadTools::answersFromBarsAlone(std::string_view name)
{
    // Not settings, icons, apps or deep links: those change without the bars changing.
    return name == "list_bars" || name == "list_shortcuts" || name == "get_shortcut"
           || name == "list_groups" || name == "search_shortcuts" || name == "list_sessions";
}

std::string ReadTools::call(const std::string& name,
                            const std::optional<std::string>& arguments,
                            const ToolContext& context)
{
    if (!handles(name)) {
        throw ToolError::unknownTool(name);
    }
    const Arguments args = Arguments::parse(arguments);
    Record answer;
    if (name == "list_bars") {
        answer = listBars(context);
    } else if (name == "list_shortcuts") {
        return compact(listShortcuts(args, context));
    } else if (name == "get_shortcut") {
        answer = getShortcut(args, context);
    } else if (name == "list_groups") {
        answer = listGroups(args, context);
    } else if (name == "search_shortcuts") {
        answer = searchShortcuts(args, context);
    } else if (name == "list_sessions") {
        answer = listSessions(context);
    } else if (name == "get_settings") {
        answer = getSettings(context);
    } else if (name == "search_icons") {
        answer = searchIcons(args, context);
    } else if (name == "list_deep_links") {
        answer = listDeepLinks(args, context);
    } else {
        answer = findApps(args, context);
    }
    return compact(answer);
}

} // namespace kit::tools
