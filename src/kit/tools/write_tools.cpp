// SPDX-License-Identifier: MIT
#include "kit/tools/write_tools.h"

#include "kit/library/library_json.h"
#include "kit/proposal/proposal_json.h"
#include "kit/support/platform_words.h"
#include "kit/tools/arguments.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace kit::tools {

using library::Bar;
using library::Shortcut;
using library::ShortcutID;
using library::Target;
using mcp::ToolDescription;
using mcp::ToolError;
using nlohmann::json;
using proposal::BarDestination;
using proposal::Placement;
using proposal::Proposal;
using proposal::ProposalReview;
using proposal::ProposedBar;
using proposal::ProposedShortcut;
using proposal::ProposedTarget;
using proposal::Verdict;

namespace {

constexpr const char* kNothingChanges =
    " Nothing changes until the person reviews it in Vantorel and applies; the answer says what "
    "would happen.";

ToolDescription describe(const char* name, const std::string& description, const char* schema)
{
    return {name,
            support::inPlatformWords(description + kNothingChanges),
            support::inPlatformWords(schema)};
}

std::string curly(const std::string& text)
{
    return "“" + text + "”";
}

[[noreturn]] void refuse(std::string detail)
{
    throw ToolError::badArguments(std::move(detail));
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator)
{
    std::string out;
    for (const auto& part : parts) {
        if (!out.empty()) {
            out += separator;
        }
        out += part;
    }
    return out;
}

std::string counted(size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// --- Reading arguments ------------------------------------------------------------------------

template <class E> E enumArgument(const Arguments& args, const char* key)
{
    const std::string word = args.requiredString(key);
    if (auto value = library::enumFromWord<E>(word)) {
        return *value;
    }
    std::vector<std::string> words;
    words.reserve(std::size(library::EnumWords<E>::kWords));
    for (auto w : library::EnumWords<E>::kWords) {
        words.emplace_back(w);
    }
    refuse(std::string(key) + " must be one of " + joined(words, ", ") + ", but is " + curly(word)
           + ".");
}

template <class T, class Read> Setting<T> setting(const Arguments& args, const char* key, Read read)
{
    if (!args.has(key)) {
        return Setting<T>::absent();
    }
    if (args.isNull(key)) {
        return Setting<T>::cleared();
    }
    return Setting<T>::of(read());
}

library::ContentSize sizeArgument(const Arguments& args, const char* key)
{
    const Arguments size(*args.object(key));
    auto width = size.number("width");
    auto height = size.number("height");
    if (!width || !height || !std::isfinite(*width) || !std::isfinite(*height) || *width <= 0
        || *height <= 0) {
        refuse(std::string(key) + " needs a width and a height above 0.");
    }
    return library::ContentSize{*width, *height};
}

std::optional<library::IconOverride> iconArgument(const json& value)
{
    try {
        return value.get<library::IconOverride>();
    } catch (const std::exception& error) {
        refuse("icon: " + library::plainMessage(error));
    }
}

// Shortcuts in document shape, read by the same rules as a whole document.
struct DecodedShortcuts
{
    std::vector<ProposedShortcut> shortcuts;
    std::vector<library::Session> sessions;
};

DecodedShortcuts decodeShortcuts(const json* shortcuts, const json* sessions)
{
    json document{{"bars", json::array({json{{"shortcuts", shortcuts ? *shortcuts : json()}}})}};
    if (sessions) {
        document["sessions"] = *sessions;
    }
    try {
        Proposal decoded = Proposal::decode(compact(document));
        return {std::move(decoded.bars.front().shortcuts), std::move(decoded.sessions)};
    } catch (const std::exception& error) {
        refuse(library::plainMessage(error));
    }
}

bool isWebAddress(const std::string& url)
{
    std::string lower = folded(url.substr(0, 8));
    return lower.starts_with("http://") || lower.starts_with("https://");
}

const library::Session* findSession(const std::vector<library::Session>& sessions,
                                    const std::string& text)
{
    const std::string wanted = trimmed(text);
    if (auto id = library::SessionID::parse(wanted)) {
        for (const auto& session : sessions) {
            if (session.id == *id) {
                return &session;
            }
        }
        return nullptr;
    }
    const std::string name = folded(wanted);
    for (const auto& session : sessions) {
        if (folded(session.name) == name) {
            return &session;
        }
    }
    return nullptr;
}

const library::Session& resolveSession(const ToolContext& context, const std::string& text)
{
    if (const auto* session = findSession(context.snapshot->sessions, text)) {
        return *session;
    }
    throw ToolError::unknownSession(text);
}

std::string nonEmptyName(const Arguments& args, const char* key, const char* refusal)
{
    std::string name = trimmed(args.requiredString(key));
    if (name.empty()) {
        refuse(refusal);
    }
    return name;
}

// --- Building proposals -----------------------------------------------------------------------

BarDestination destinationOf(const Arguments& args, const ToolContext& context)
{
    auto bar = args.string("bar");
    return bar ? BarDestination::existing(resolve(*context.snapshot, *bar).id)
               : BarDestination::active();
}

// The shortcut as it is, to be changed in one respect and proposed at its place.
struct Edit
{
    FoundShortcut found;
    ProposedShortcut shortcut;
    Proposal proposal;

    std::string name() const { return found.shortcut->name; }
    library::URLTarget& link(const char* refusal)
    {
        if (shortcut.target.kind != Target::Kind::Url) {
            refuse(curly(name()) + refusal);
        }
        return shortcut.target.url;
    }
    Proposal done(std::string title) &&
    {
        proposal.title = std::move(title);
        proposal.bars.push_back(
            {BarDestination::existing(found.bar->id), {std::move(shortcut)}, {}});
        return std::move(proposal);
    }
};

Edit edit(const Arguments& args, const ToolContext& context)
{
    auto found = findShortcut(*context.snapshot, args.requiredString("id"), args.string("bar"));
    return {found, ProposedShortcut::from(*found.shortcut), {}};
}

Proposal addShortcuts(const Arguments& args, const ToolContext& context)
{
    const json* shortcuts = args.array("shortcuts");
    if (!shortcuts) {
        refuse("shortcuts is required.");
    }
    if (shortcuts->empty()) {
        refuse("shortcuts is empty.");
    }
    auto decoded = decodeShortcuts(shortcuts, args.array("sessions"));
    Proposal proposal;
    proposal.title = args.string("title");
    if (!proposal.title || trimmed(*proposal.title).empty()) {
        proposal.title = decoded.shortcuts.size() == 1 && !decoded.shortcuts.front().name.empty()
                             ? "Add " + curly(decoded.shortcuts.front().name)
                             : "Add " + counted(decoded.shortcuts.size(), "shortcut", "shortcuts");
    }
    proposal.sessions = std::move(decoded.sessions);
    proposal.bars.push_back({destinationOf(args, context), std::move(decoded.shortcuts), {}});
    return proposal;
}

Proposal addGroup(const Arguments& args, const ToolContext& context)
{
    ProposedShortcut group;
    group.name = nonEmptyName(args, "name", "A group needs a name.");
    if (const json* icon = args.object("icon")) {
        group.icon = iconArgument(*icon);
    }
    std::vector<ProposedShortcut> members;
    if (const json* list = args.array("members"); list && !list->empty()) {
        members = decodeShortcuts(list, nullptr).shortcuts;
    }
    group.target = ProposedTarget::group(std::move(members));
    group.isInMenuBar = args.boolean("isInMenuBar").value_or(true);
    Proposal proposal;
    proposal.title = "Add the group " + curly(group.name);
    proposal.bars.push_back({destinationOf(args, context), {std::move(group)}, {}});
    return proposal;
}

Proposal renameShortcut(const Arguments& args, const ToolContext& context)
{
    Edit e = edit(args, context);
    e.shortcut.name = nonEmptyName(args, "name", "A shortcut needs a name.");
    std::string title = "Rename " + curly(e.name());
    return std::move(e).done(std::move(title));
}

Proposal setOpenMode(const Arguments& args, const ToolContext& context)
{
    Edit e = edit(args, context);
    auto& link = e.link(" is not a link; only a link has an open mode.");
    std::optional<library::OpenMode> mode;
    if (args.string("openMode")) {
        mode = enumArgument<library::OpenMode>(args, "openMode");
    }
    if (mode && *mode != library::OpenMode::System && !isWebAddress(link.url)) {
        refuse(curly(e.name()) + " is not a web address, so it can only open in its app (system).");
    }
    link.openMode = mode;
    std::string title = "Change where " + curly(e.name()) + " opens";
    return std::move(e).done(std::move(title));
}

bool isHexColour(const std::string& text)
{
    return text.size() == 7 && text[0] == '#'
           && std::all_of(
               text.begin() + 1, text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

Proposal setIcon(const Arguments& args, const ToolContext& context)
{
    Edit e = edit(args, context);
    if (args.has("icon")) {
        const json* icon = args.object("icon");
        e.shortcut.icon = icon ? iconArgument(*icon) : std::nullopt;
    }
    if (args.has("colour")) {
        auto colour = args.string("colour");
        if (!colour) {
            e.shortcut.iconTint.reset();
        } else if (trimmed(*colour) == "monochrome") {
            e.shortcut.iconTint = library::IconTint::monochrome();
        } else if (isHexColour(trimmed(*colour))) {
            std::string hex = trimmed(*colour);
            std::transform(hex.begin(), hex.end(), hex.begin(), [](unsigned char c) {
                return static_cast<char>(std::toupper(c));
            });
            e.shortcut.iconTint = library::IconTint::colour(hex);
        } else {
            refuse(curly(*colour) + " is not a colour; use #RRGGBB.");
        }
    }
    std::string title = "Change the icon of " + curly(e.name());
    return std::move(e).done(std::move(title));
}

Proposal moveShortcut(const Arguments& args, const ToolContext& context)
{
    Edit e = edit(args, context);
    std::optional<int> position;
    if (auto at = args.integer("position")) {
        if (*at < 0 || *at > INT32_MAX) {
            refuse("position must be a whole number from 0.");
        }
        position = static_cast<int>(*at);
    }
    if (auto group = args.string("group")) {
        auto id = ShortcutID::parse(trimmed(*group));
        const Shortcut* found = id ? e.found.library->shortcut(*id) : nullptr;
        if (!found || !found->target.isGroup()) {
            refuse(*group + " is not a group id.");
        }
        e.shortcut.placement = Placement::inGroup(*id, position);
    } else {
        e.shortcut.placement = Placement::top(position);
    }
    std::string title = "Move " + curly(e.name());
    return std::move(e).done(std::move(title));
}

Proposal showInMenuBar(const Arguments& args, const ToolContext& context)
{
    Edit e = edit(args, context);
    const bool shown = args.requiredBoolean("shown");
    if (e.found.library->parent(e.found.shortcut->id)) {
        refuse(curly(e.name()) + " is inside a group; it is behind the group's icon either way.");
    }
    e.shortcut.isInMenuBar = shown;
    std::string title = curly(e.name()) + (shown ? " in the menu bar" : " off the menu bar");
    return std::move(e).done(std::move(title));
}

Proposal setAccount(const Arguments& args, const ToolContext& context)
{
    Edit e = edit(args, context);
    auto& link = e.link(" is not a link; only a link has an account.");
    if (args.has("session")) {
        auto text = args.string("session");
        if (!text) {
            link.sessionID.reset();
        } else if (const auto* session = findSession(context.snapshot->sessions, *text)) {
            link.sessionID = session->id;
        } else if (library::SessionID::parse(trimmed(*text))) {
            throw ToolError::unknownSession(*text);
        } else {
            std::string name = trimmed(*text);
            if (name.empty()) {
                refuse("An account needs a name.");
            }
            library::Session made{library::SessionID::make(), name, std::nullopt};
            link.sessionID = made.id;
            e.proposal.sessions.push_back(std::move(made));
        }
    }
    if (auto isPrivate = args.boolean("private")) {
        link.isPrivate = *isPrivate;
    }
    std::string title = "Change the account of " + curly(e.name());
    return std::move(e).done(std::move(title));
}

Proposal setLinkOptions(const Arguments& args, const ToolContext& context)
{
    Edit e = edit(args, context);
    auto& link = e.link(" is not a link; these options are a link's.");
    if (auto on = args.boolean("staysOnTop")) {
        link.staysOnTop = *on;
    }
    if (auto on = args.boolean("keepsPlaying")) {
        link.keepsPlaying = *on;
    }
    if (auto on = args.boolean("reloadsOnOpen")) {
        link.reloadsOnOpen = *on;
    }
    setting<bool>(args, "blocksAds", [&] {
        return *args.boolean("blocksAds");
    }).applyTo(link.blocksAds);
    setting<double>(args, "pageZoom", [&] {
        double zoom = *args.number("pageZoom");
        if (!std::isfinite(zoom)) {
            refuse("pageZoom must be a number from 0.5 to 3.");
        }
        return library::PageZoom::clamped(zoom);
    }).applyTo(link.pageZoom);
    setting<library::ContentSize>(args, "windowSize", [&] {
        return sizeArgument(args, "windowSize");
    }).applyTo(link.windowSize);
    setting<library::ContentSize>(args, "popoverSize", [&] {
        return sizeArgument(args, "popoverSize");
    }).applyTo(link.popoverSize);
    auto agent = setting<library::BrowserAgent>(
        args, "userAgent", [&] { return enumArgument<library::BrowserAgent>(args, "userAgent"); });
    if (agent.state == Setting<library::BrowserAgent>::State::Value
        && agent.value == library::BrowserAgent::Custom) {
        refuse("userAgent custom needs the agent's text; propose it as a whole document instead.");
    }
    agent.applyTo(link.userAgent);
    if (agent.state != Setting<library::BrowserAgent>::State::Absent) {
        link.customUserAgent.reset();
    }
    setting<library::PageAppearance>(args, "appearance", [&] {
        return enumArgument<library::PageAppearance>(args, "appearance");
    }).applyTo(link.pageAppearance);
    setting<library::NewWindowLinks>(args, "newWindowLinks", [&] {
        return enumArgument<library::NewWindowLinks>(args, "newWindowLinks");
    }).applyTo(link.newWindowLinks);
    std::string title = "Change the options of " + curly(e.name());
    return std::move(e).done(std::move(title));
}

Proposal moveToBar(const Arguments& args, const ToolContext& context)
{
    auto found = findShortcut(*context.snapshot, args.requiredString("id"), args.string("bar"));
    const std::string to = args.requiredString("to");
    BarDestination destination;
    std::string toName;
    try {
        const Bar& bar = resolve(*context.snapshot, to);
        destination = BarDestination::existing(bar.id);
        toName = bar.name;
    } catch (const ToolError&) {
        toName = trimmed(to);
        if (toName.empty()) {
            refuse("A bar needs a name.");
        }
        destination = BarDestination::newBar(toName);
    }
    Proposal proposal;
    proposal.title = "Move " + curly(found.shortcut->name) + " to " + curly(toName);
    proposal.moves.push_back({found.shortcut->id, found.bar->id, destination});
    return proposal;
}

Proposal addBar(const Arguments& args, const ToolContext&)
{
    std::string name = nonEmptyName(args, "name", "A bar needs a name.");
    Proposal proposal;
    proposal.title = "Add the bar " + curly(name);
    proposal.bars.push_back({BarDestination::newBar(name), {}, {}});
    return proposal;
}

Proposal renameBar(const Arguments& args, const ToolContext& context)
{
    const Bar& bar = resolve(*context.snapshot, args.requiredString("bar"));
    std::string name = nonEmptyName(args, "name", "A bar needs a name.");
    Proposal proposal;
    proposal.title = "Rename the bar " + curly(bar.name);
    proposal.renameBars.push_back({bar.id, std::move(name)});
    return proposal;
}

Proposal addSession(const Arguments& args, const ToolContext&)
{
    std::string name = nonEmptyName(args, "name", "An account needs a name.");
    Proposal proposal;
    proposal.title = "Add the account " + curly(name);
    proposal.sessions.push_back({library::SessionID::make(), std::move(name), std::nullopt});
    return proposal;
}

Proposal renameSession(const Arguments& args, const ToolContext& context)
{
    const library::Session& session = resolveSession(context, args.requiredString("session"));
    std::string name = nonEmptyName(args, "name", "An account needs a name.");
    Proposal proposal;
    proposal.title = "Rename the account " + curly(session.name);
    proposal.sessions.push_back({session.id, std::move(name), session.colour});
    return proposal;
}

Proposal removeSession(const Arguments& args, const ToolContext& context)
{
    const library::Session& session = resolveSession(context, args.requiredString("session"));
    Proposal proposal;
    proposal.title = "Remove the account " + curly(session.name);
    proposal.removeSessions.push_back(session.id);
    return proposal;
}

Proposal removeShortcuts(const Arguments& args, const ToolContext& context)
{
    const Bar& bar = resolveOrShowing(*context.snapshot, args.string("bar"));
    const json* ids = args.array("ids");
    if (!ids) {
        refuse("ids is required.");
    }
    if (ids->empty()) {
        refuse("ids is empty.");
    }
    const library::Library* library = context.snapshot->library(bar.id);
    std::vector<ShortcutID> removals;
    std::string firstName;
    for (const json& item : *ids) {
        if (!item.is_string()) {
            refuse(std::string("ids must hold strings, but one is ") + item.type_name() + ".");
        }
        const auto& text = item.get_ref<const std::string&>();
        auto id = ShortcutID::parse(trimmed(text));
        const Shortcut* shortcut = id && library ? library->shortcut(*id) : nullptr;
        if (!shortcut) {
            throw ToolError::unknownShortcut(text);
        }
        if (std::find(removals.begin(), removals.end(), *id) == removals.end()) {
            removals.push_back(*id);
            if (firstName.empty()) {
                firstName = shortcut->name;
            }
        }
    }
    Proposal proposal;
    proposal.title = removals.size() == 1 && !firstName.empty()
                         ? "Remove " + curly(firstName)
                         : "Remove " + counted(removals.size(), "shortcut", "shortcuts");
    proposal.bars.push_back({BarDestination::existing(bar.id), {}, std::move(removals)});
    return proposal;
}

Proposal removeBar(const Arguments& args, const ToolContext& context)
{
    const Bar& bar = resolve(*context.snapshot, args.requiredString("bar"));
    Proposal proposal;
    proposal.title = "Remove the bar " + curly(bar.name);
    proposal.removeBars.push_back(bar.id);
    return proposal;
}

Proposal propose(const Arguments& args, const ToolContext&)
{
    try {
        // Read from the arguments as decoded: writing them out for the streamed reader would
        // cost more than the whole review.
        return proposal::document::readProposal(args.raw());
    } catch (const std::exception& error) {
        refuse(library::plainMessage(error));
    }
}

using Builder = Proposal (*)(const Arguments&, const ToolContext&);

struct Tool
{
    ToolDescription description;
    Builder build;
};

constexpr const char* kShowingBar =
    R"("bar":{"type":"string","description":"The bar's id or name. Omit for the bar that is showing."})";
constexpr const char* kAnyBar =
    R"("bar":{"type":"string","description":"The bar's id or name. Omit to look on every bar."})";
constexpr const char* kIconObject =
    R"({"type":"object","properties":{"kind":{"type":"string","enum":["symbol","emoji","image"]},"value":{"type":"string"}},"required":["kind","value"],"description":"An SF Symbol name, up to three characters of text, or the address of a picture."})";

std::string schema(std::initializer_list<std::string> properties,
                   std::initializer_list<const char*> required = {})
{
    std::string text = R"({"type":"object","properties":{)";
    bool first = true;
    for (const auto& property : properties) {
        text += first ? "" : ",";
        text += property;
        first = false;
    }
    text += "}";
    if (required.size() > 0) {
        text += R"(,"required":[)";
        first = true;
        for (const char* key : required) {
            text += std::string(first ? "" : ",") + "\"" + key + "\"";
            first = false;
        }
        text += "]";
    }
    text += R"(,"additionalProperties":false})";
    return text;
}

std::vector<Tool> makeTools()
{
    const std::string id = R"("id":{"type":"string"})";
    const std::string name = R"("name":{"type":"string"})";
    const std::string iconProperty = std::string(R"("icon":)") + kIconObject;
    const std::string nullableIcon =
        R"("icon":{"type":["object","null"],"properties":{"kind":{"type":"string","enum":["symbol","emoji","image"]},"value":{"type":"string"}},"required":["kind","value"],"description":"An SF Symbol name, up to three characters of text, or the address of a picture."})";
    const std::string members = R"("members":{"type":"array","items":{"type":"object"}})";
    const std::string sessionsProperty =
        R"("sessions":{"type":"array","items":{"type":"object","properties":{"id":{"type":"string"},"name":{"type":"string"}},"required":["id","name"]},"description":"Browsing accounts the links name and Vantorel does not have yet."})";
    const std::string sessionArg =
        R"("session":{"type":"string","description":"The session's id or name."})";
    const std::string size =
        R"({"type":["object","null"],"properties":{"width":{"type":"number"},"height":{"type":"number"}},"required":["width","height"]})";
    auto make = [](const char* toolName,
                   const char* description,
                   const std::string& schemaText,
                   Builder build) {
        ToolDescription d = describe(toolName, description, "");
        d.inputSchema = support::inPlatformWords(schemaText);
        return Tool{std::move(d), build};
    };
    return {
        make(
            "add_shortcuts",
            "Adds one or more shortcuts to a bar. Each is in the document shape: name; target "
            "(kind url with url and optionally openMode system|popover|window, sessionID, "
            "isPrivate, staysOnTop, keepsPlaying, reloadsOnOpen, pageZoom; kind app with bundleID "
            "from find_apps; kind folder or file with path, which Vantorel can only reach if it "
            "already has access; kind group with members; kind divider); optional icon ({kind: "
            "symbol|emoji|image, value}), iconTint, isInMenuBar, placement ({kind: top, position} "
            "or {kind: group, group: <id>, position}). Omit ids. To use a new browsing account, "
            "list it under sessions with a fresh UUID and a name, and name that UUID as the "
            "link's sessionID.",
            schema(
                {kShowingBar,
                 R"("title":{"type":"string","description":"What to call the change, in a few words."})",
                 R"("shortcuts":{"type":"array","items":{"type":"object"},"description":"Shortcuts in the document shape, as list_shortcuts answers them."})",
                 sessionsProperty},
                {"shortcuts"}),
            addShortcuts),
        make(
            "add_group",
            "Adds a group: one icon in the menu bar with a list of shortcuts behind it. Members "
            "are in the document shape (see add_shortcuts); a member may itself be a group. "
            "Prefer a group when adding more than three related things, since a menu bar has room "
            "for about five icons.",
            schema(
                {kShowingBar,
                 name,
                 iconProperty,
                 members,
                 R"("isInMenuBar":{"type":"boolean","description":"False keeps the group off the menu bar, reachable from Vantorel's own icon."})"},
                {"name"}),
            addGroup),
        make("rename_shortcut",
             "Gives a shortcut, or a group, a new name.",
             schema({id, kAnyBar, name}, {"id", "name"}),
             renameShortcut),
        make(
            "set_open_mode",
            "Where a link opens: popover (Vantorel's own panel, off the menu bar icon), window (a "
            "window of its own), system (a browser), or null to follow the app's default. Only a "
            "web link (http or https) can open in the panel or a window; any other scheme is "
            "handed to its app.",
            schema(
                {id,
                 kAnyBar,
                 R"("openMode":{"type":["string","null"],"enum":["system","popover","window",null]})"},
                {"id"}),
            setOpenMode),
        make(
            "set_icon",
            "The icon a shortcut wears in the menu bar: an SF Symbol name (kind symbol), up to "
            "three characters such as an emoji or initials (kind emoji), a picture at a web "
            "address (kind image), or null for the icon Vantorel draws from the target itself (an "
            "app's own, a site's favicon). colour is #RRGGBB for a symbol or letters, "
            "\"monochrome\" to take the colours out of an icon that came with some, or null.",
            schema(
                {id,
                 kAnyBar,
                 nullableIcon,
                 R"("colour":{"type":["string","null"],"description":"#RRGGBB, \"monochrome\", or null."})"},
                {"id"}),
            setIcon),
        make(
            "move_shortcut",
            "Moves a shortcut to the top level of its bar or into a group on it, at a position "
            "counted from 0 (omit for the end). A group moves with everything in it, and cannot "
            "go inside itself. Bars are separate: this does not move between bars.",
            schema(
                {id,
                 kAnyBar,
                 R"("group":{"type":["string","null"],"description":"The id of the group to move into, from list_groups. Omit or null for the top level."})",
                 R"("position":{"type":"integer"})"},
                {"id"}),
            moveShortcut),
        make("show_in_menu_bar",
             "Whether a top-level shortcut wears an icon in the menu bar. Off keeps it, reachable "
             "from Vantorel's own icon and menu, without spending one of the few slots a menu bar "
             "has.",
             schema({id, kAnyBar, R"("shown":{"type":"boolean"})"}, {"id", "shown"}),
             showInMenuBar),
        make(
            "set_account",
            "Which browsing account a link uses: a session by id or name from list_sessions, null "
            "for the shared default, or private for a page that keeps nothing. A session that "
            "does not exist yet is made.",
            schema(
                {id,
                 kAnyBar,
                 R"("session":{"type":["string","null"],"description":"A session's id or name; null for the default account."})",
                 R"("private":{"type":"boolean","description":"True keeps nothing: no cookies, no logins. Overrides session."})"},
                {"id"}),
            setAccount),
        make(
            "set_link_options",
            "The rest of what a link can be set to, any of: staysOnTop (a window above every "
            "other), keepsPlaying (after its panel closes), reloadsOnOpen (fresh at its own "
            "address every time), blocksAds (true, false, or null to follow the app), pageZoom "
            "(0.5 to 3, or null), windowSize and popoverSize ({width, height} in points, or null), "
            "userAgent (defaultSafari, chrome, firefox, ipadSafari, iphoneSafari, or null), "
            "appearance (system, light, dark, forcedDark, or null), newWindowLinks (thisPage, "
            "newWindow, browser, or null). Only the fields given change.",
            schema(
                {id,
                 R"("bar":{"type":"string"})",
                 R"("staysOnTop":{"type":"boolean"})",
                 R"("keepsPlaying":{"type":"boolean"})",
                 R"("reloadsOnOpen":{"type":"boolean"})",
                 R"("blocksAds":{"type":["boolean","null"]})",
                 R"("pageZoom":{"type":["number","null"]})",
                 R"("windowSize":)" + size,
                 R"("popoverSize":)" + size,
                 R"("userAgent":{"type":["string","null"],"enum":["defaultSafari","chrome","firefox","ipadSafari","iphoneSafari",null]})",
                 R"("appearance":{"type":["string","null"],"enum":["system","light","dark","forcedDark",null]})",
                 R"("newWindowLinks":{"type":["string","null"],"enum":["thisPage","newWindow","browser",null]})"},
                {"id"}),
            setLinkOptions),
        make(
            "move_to_bar",
            "Carries a shortcut, or a whole group, to another bar, with everything it was set to "
            "and the account it uses. The other bar is named by id or name; a name no bar has "
            "makes a new bar of that name.",
            schema(
                {id,
                 R"("bar":{"type":"string","description":"The bar it is on. Omit to look on every bar."})",
                 R"("to":{"type":"string","description":"The other bar's id or name."})"},
                {"id", "to"}),
            moveToBar),
        make(
            "add_bar",
            "Makes a new, empty bar. A bar is a whole menu bar switched as a set; use one for work "
            "and one for home, or one per project. Shortcuts go on it with add_shortcuts and a bar "
            "argument once it exists, or in one go with propose and a destination of kind new.",
            schema({name}, {"name"}),
            addBar),
        make("rename_bar",
             "Gives a bar a new name.",
             schema({R"("bar":{"type":"string","description":"The bar's id or name."})", name},
                    {"bar", "name"}),
             renameBar),
        make("add_session",
             "Makes a browsing account (session): a profile with logins of its own, so two links "
             "to one site can be two accounts. The person signs in the first time a link opens "
             "with it.",
             schema({name}, {"name"}),
             addSession),
        make("rename_session",
             "Gives a browsing account a new name. Its logins stay.",
             schema({sessionArg, name}, {"session", "name"}),
             renameSession),
        make("remove_session",
             "Removes a browsing account and its logins. Every link that used it goes back to the "
             "shared default account; the review says how many.",
             schema({sessionArg}, {"session"}),
             removeSession),
        make(
            "remove_shortcuts",
            "Removes shortcuts or groups from a bar, by id. A group goes with everything in it, "
            "and the review says how much that is. Nothing is removed until the person applies "
            "the review.",
            schema(
                {kShowingBar,
                 R"("ids":{"type":"array","items":{"type":"string"},"description":"Shortcut ids, from list_shortcuts or search_shortcuts."})"},
                {"ids"}),
            removeShortcuts),
        make("remove_bar",
             "Removes a whole bar with everything on it. The last bar always stays. Nothing is "
             "removed until the person applies the review.",
             schema({R"("bar":{"type":"string","description":"The bar's id or name."})"}, {"bar"}),
             removeBar),
        make(
            "propose",
            "Proposes a whole document: the shape list_shortcuts answers in, with sessions and one "
            "or more bars, each with a destination ({kind: active} for the bar showing, {kind: "
            "existing, id} or {kind: new, name}), its shortcuts and optionally removals (shortcut "
            "ids to take off it); removeBars lists whole bars to remove, renameBars ([{id, name}]) "
            "renames them, removeSessions lists accounts to remove, and moves ([{id, from?, to: "
            "destination}]) carry shortcuts between bars. An entry with a known id replaces that "
            "shortcut's name, icon and target; one without an id is added; nothing unmentioned "
            "changes, and a group's unmentioned members stay. Use this for anything the narrower "
            "tools do not say: an account, private browsing, a window that stays on top, a zoom, "
            "several changes at once.",
            schema(
                {R"("title":{"type":"string"})",
                 R"("sessions":{"type":"array","items":{"type":"object"}})",
                 R"("bars":{"type":"array","items":{"type":"object","properties":{"destination":{"type":"object"},"shortcuts":{"type":"array","items":{"type":"object"}},"removals":{"type":"array","items":{"type":"string"}}}}})",
                 R"("removeBars":{"type":"array","items":{"type":"string"}})"}),
            propose),
    };
}

const std::vector<Tool>& tools()
{
    static const std::vector<Tool> kTools = makeTools();
    return kTools;
}

// --- Answers ----------------------------------------------------------------------------------

// The review's words, except two that read better to an assistant.
std::string verdictWord(Verdict::Kind kind)
{
    switch (kind) {
    case Verdict::Kind::Unchanged:
        return "already there";
    case Verdict::Kind::NeedsAccess:
        return "out of reach";
    default:
        return std::string(proposal::word(kind));
    }
}

std::string accessDetail(const std::string& path)
{
    return "Vantorel has no access to " + path
           + ", so it is left out. The person can grant the folder in Vantorel under Advanced, "
             "Folders Vantorel may reach.";
}

WriteTools::Item refusedItem(std::string id, std::string name, proposal::Refusal refusal)
{
    return {std::move(id), std::move(name), "refused", std::string(proposal::description(refusal))};
}

void addOnce(std::vector<std::string>& list, const std::string& text)
{
    if (std::find(list.begin(), list.end(), text) == list.end()) {
        list.push_back(text);
    }
}

// A string as the tree's compact dump writes it. Plain ASCII, the usual case, is copied as it
// stands; anything that needs escaping or UTF-8 care is left to the tree's own writer.
void appendString(std::string& out, const std::string& text)
{
    const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
        return c >= 0x20 && c <= 0x7E && c != '"' && c != '\\';
    });
    if (plain) {
        out += '"';
        out += text;
        out += '"';
    } else {
        out += compact(nlohmann::ordered_json(text));
    }
}

} // namespace

WriteTools::Answer WriteTools::Answer::of(const ProposalReview& review, std::string title)
{
    Answer answer;
    answer.status = review.hasWork() ? Status::Waiting : Status::Nothing;
    answer.title = std::move(title);
    answer.message = std::string(WriteTools::message(answer.status));
    std::vector<std::string> outOfReach;
    bool anyRefused = false;
    size_t rows = 0;
    for (const auto& bar : review.bars) {
        rows += bar.items.size();
    }
    answer.items.reserve(rows);
    auto item = [&](Item row) {
        anyRefused = anyRefused || row.verdict == "refused";
        answer.items.push_back(std::move(row));
    };

    for (const auto& session : review.sessions) {
        using Kind = proposal::SessionReview::Verdict::Kind;
        switch (session.verdict.kind) {
        case Kind::Added:
            answer.newSessions.push_back(session.session.name);
            break;
        case Kind::Removed:
            answer.removedSessions.push_back(
                session.session.name + " ("
                + counted(static_cast<size_t>(session.verdict.shortcutCount),
                          "link goes back to the default account)",
                          "links go back to the default account)"));
            break;
        case Kind::Refused:
            item(refusedItem(session.id.string(), session.session.name, session.verdict.refusal));
            break;
        case Kind::MatchedByName:
        case Kind::Unchanged:
        case Kind::Renamed:
            break;
        }
    }
    for (const auto& bar : review.bars) {
        if (bar.refusal) {
            item(refusedItem(
                bar.barID ? bar.barID->string() : std::string(), bar.name, *bar.refusal));
            continue;
        }
        if (bar.isNew) {
            addOnce(answer.newBars, bar.name);
        }
        for (const auto& row : bar.items) {
            Item entry{row.id.string(),
                       std::string(row.name()),
                       verdictWord(row.verdict.kind),
                       std::nullopt};
            if (row.verdict.kind == Verdict::Kind::Refused) {
                entry.detail = std::string(proposal::description(row.verdict.refusal));
            } else if (row.verdict.kind == Verdict::Kind::NeedsAccess) {
                entry.detail = accessDetail(row.verdict.path);
                outOfReach.push_back(row.verdict.path);
            }
            item(std::move(entry));
        }
    }
    for (const auto& removal : review.barRemovals) {
        if (removal.verdict.kind == Verdict::Kind::Refused) {
            item(refusedItem(removal.id.string(), removal.name, removal.verdict.refusal));
        } else if (removal.verdict.writes()) {
            answer.removedBars.push_back(
                removal.name + " ("
                + counted(static_cast<size_t>(removal.shortcutCount), "shortcut)", "shortcuts)"));
        }
    }
    for (const auto& rename : review.barRenames) {
        if (rename.verdict.kind == Verdict::Kind::Refused) {
            item(refusedItem(rename.id.string(), rename.from, rename.verdict.refusal));
        } else if (rename.verdict.writes()) {
            answer.renamedBars.push_back(rename.from + " → " + rename.to);
        }
    }
    for (const auto& move : review.moves) {
        if (move.verdict.kind == Verdict::Kind::Refused) {
            item(refusedItem(move.id.string(), move.name, move.verdict.refusal));
        } else if (move.verdict.writes()) {
            answer.moves.push_back(move.name + " → " + move.toName);
            if (move.to.isNew()) {
                addOnce(answer.newBars, move.toName);
            }
        }
    }
    if (anyRefused) {
        answer.hints.emplace_back("Refused entries were left out; each one's detail says why. Fix "
                                  "and propose those again if they matter.");
    }
    if (!outOfReach.empty()) {
        answer.hints.push_back(
            "Out of reach: " + joined(outOfReach, ", ")
            + ". Vantorel can only reach files and folders inside a folder the person has granted. "
              "Tell them: in Vantorel, choose Advanced in the sidebar, then under Folders Vantorel "
              "may reach press Add Folder and pick the folder (or one above it). Then propose "
              "these "
              "again.");
    }
    return answer;
}

WriteTools::Answer
WriteTools::Answer::decided(const proposal::ProposalInbox::Decision& decision) const
{
    using Kind = proposal::ProposalInbox::Decision::Kind;
    Answer answer = *this;
    switch (decision.kind) {
    case Kind::Applied:
        if (decision.review) {
            answer = of(*decision.review, title);
        }
        answer.status = Status::Applied;
        answer.leftOut = decision.leftOut;
        answer.message =
            std::string(WriteTools::message(Status::Applied, !decision.leftOut.empty()));
        if (decision.saveError) {
            answer.message += " But it could not be saved yet (" + *decision.saveError
                              + "), so it lasts only while Vantorel runs unless a later save "
                                "succeeds; the person has been told.";
        }
        if (!decision.leftOut.empty()) {
            answer.hints.push_back(
                "The person unchecked these before applying, so they were not done: "
                + joined(decision.leftOut, ", ")
                + ". That was their choice; do not propose them again unless they ask.");
        }
        break;
    case Kind::Declined:
        answer.status = Status::Declined;
        answer.message = std::string(WriteTools::message(Status::Declined));
        break;
    case Kind::Replaced:
        answer.status = Status::Replaced;
        answer.message = std::string(WriteTools::message(Status::Replaced));
        break;
    }
    return answer;
}

std::string WriteTools::Answer::encoded() const
{
    // Keys in a fixed order, the status and its message first: what the assistant reads first.
    using Record = nlohmann::ordered_json;
    // A restated bar answers with thousands of rows: they are written straight to text rather
    // than built into a tree first, then set in the place the empty list holds.
    std::string items = "[";
    items.reserve(this->items.size() * 96);
    for (const auto& item : this->items) {
        items += items.size() == 1 ? "{\"id\":" : ",{\"id\":";
        appendString(items, item.id);
        items += ",\"name\":";
        appendString(items, item.name);
        items += ",\"verdict\":";
        appendString(items, item.verdict);
        if (item.detail) {
            items += ",\"detail\":";
            appendString(items, *item.detail);
        }
        items += '}';
    }
    items += ']';
    // The first `"items":[]` is the member: inside a string its quotes would be escaped.
    constexpr std::string_view kEmptyItems = "\"items\":[]";
    std::string text = compact(Record{{"status", word(status)},
                                      {"title", title},
                                      {"message", message},
                                      {"items", Record::array()},
                                      {"newBars", newBars},
                                      {"removedBars", removedBars},
                                      {"renamedBars", renamedBars},
                                      {"moves", moves},
                                      {"newSessions", newSessions},
                                      {"removedSessions", removedSessions},
                                      {"hints", hints},
                                      {"leftOut", leftOut}});
    text.replace(text.find(kEmptyItems) + kEmptyItems.size() - 2, 2, items);
    return text;
}

std::string_view WriteTools::word(Status status)
{
    switch (status) {
    case Status::Waiting:
        return "waiting";
    case Status::Nothing:
        return "nothing";
    case Status::Applied:
        return "applied";
    case Status::Declined:
        return "declined";
    case Status::Replaced:
        return "replaced";
    }
    return "nothing";
}

std::string_view WriteTools::message(Status status, bool unchecked)
{
    switch (status) {
    case Status::Waiting:
        return "Vantorel is showing this review to the person, who has not decided yet. Nothing "
               "has changed; it changes only if they apply it. Do not repeat the proposal; ask "
               "them, or read the bar again later.";
    case Status::Nothing:
        return "Nothing here would change anything: everything is already as proposed, out of "
               "reach, or refused. No review was shown.";
    case Status::Applied:
        return unchecked
                   ? "The person applied it, after unchecking some of it. Everything marked added, "
                     "changed, moved or removed is now so; anything out of reach or refused was "
                     "left out, and so was what they unchecked, which leftOut names."
                   : "The person applied it. Everything marked added, changed, moved or removed is "
                     "now so; anything out of reach or refused was left out.";
    case Status::Declined:
        return "The person looked at the review and did not apply it. Nothing changed. Do not "
               "propose the same thing again unless they ask.";
    case Status::Replaced:
        return "Another proposal replaced this one before the person decided. Nothing from this "
               "one changed.";
    }
    return {};
}

const std::vector<ToolDescription>& WriteTools::descriptions()
{
    static const std::vector<ToolDescription> kDescriptions = [] {
        std::vector<ToolDescription> list;
        for (const auto& tool : tools()) {
            list.push_back(tool.description);
        }
        return list;
    }();
    return kDescriptions;
}

const std::vector<std::string>& WriteTools::names()
{
    static const std::vector<std::string> kNames = namesOf(descriptions());
    return kNames;
}

bool WriteTools::handles(std::string_view name)
{
    return isNamed(names(), name);
}

WriteTools::Call WriteTools::call(const std::string& name,
                                  const std::optional<std::string>& arguments,
                                  const ToolContext& context,
                                  const std::string& source)
{
    if (!handles(name)) {
        throw ToolError::unknownTool(name);
    }
    // A long document goes to the streamed reader as it came, without a tree in between.
    if (arguments && readsStrictly(name, *arguments)) {
        Proposal proposal;
        try {
            proposal = Proposal::decode(*arguments);
        } catch (const std::exception& error) {
            refuse(library::plainMessage(error));
        }
        return reviewed(std::move(proposal), context, source);
    }
    return call(name, Arguments::parse(arguments), context, source);
}

WriteTools::Call WriteTools::call(const std::string& name,
                                  const Arguments& args,
                                  const ToolContext& context,
                                  const std::string& source)
{
    const auto& all = tools();
    auto tool = std::find_if(
        all.begin(), all.end(), [&](const Tool& t) { return t.description.name == name; });
    if (tool == all.end()) {
        throw ToolError::unknownTool(name);
    }
    return reviewed(tool->build(args, context), context, source);
}

WriteTools::Call WriteTools::reviewed(proposal::Proposal proposal,
                                      const ToolContext& context,
                                      const std::string& source)
{
    Call call;
    call.proposal = std::move(proposal);
    call.proposal.source = source;
    call.review = proposal::review(call.proposal, *context.snapshot, context.reach);
    std::string title = call.proposal.title && !trimmed(*call.proposal.title).empty()
                            ? *call.proposal.title
                            : std::string(kUntitled);
    call.answer = Answer::of(call.review, std::move(title));
    return call;
}

} // namespace kit::tools
