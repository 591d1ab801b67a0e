// SPDX-License-Identifier: MIT
#include "kit/proposal/proposal.h"

#include "kit/proposal/proposal_json.h"

#include <cmath>
#include <limits>
#include <unordered_set>

namespace kit::proposal {

using library::DecodeError;
using library::number;
using library::readOptional;
using library::readOr;
using library::required;
using library::requireObject;
using library::writeOptional;
using nlohmann::json;

namespace document {

template <class T> std::vector<T> readArray(const json& object, const char* key)
{
    std::vector<T> values;
    readOr(object, key, values);
    return values;
}

// Positions index into lists, so anything but a small whole number is refused.
std::optional<int> readPosition(const json& object)
{
    auto it = object.find("position");
    if (it == object.end() || it->is_null()) {
        return std::nullopt;
    }
    if (!it->is_number_integer() || (it->is_number_unsigned() && it->get<uint64_t>() > INT32_MAX)
        || it->get<int64_t>() < 0 || it->get<int64_t>() > INT32_MAX) {
        throw DecodeError("a position must be a whole number from 0");
    }
    return static_cast<int>(it->get<int64_t>());
}

BarDestination readDestination(const json& j)
{
    requireObject(j, "a bar destination");
    const auto& kind = required(j, "kind").get_ref<const std::string&>();
    if (kind == "active") {
        return BarDestination::active();
    }
    if (kind == "existing") {
        return BarDestination::existing(required(j, "id").get<BarID>());
    }
    if (kind == "new") {
        return BarDestination::newBar(required(j, "name").get<std::string>());
    }
    throw DecodeError("unknown bar destination kind: " + kind);
}

json writeDestination(const BarDestination& destination)
{
    switch (destination.kind) {
    case BarDestination::Kind::Active:
        return json{{"kind", "active"}};
    case BarDestination::Kind::Existing:
        return json{{"kind", "existing"}, {"id", destination.id}};
    case BarDestination::Kind::New:
        return json{{"kind", "new"}, {"name", destination.name}};
    }
    return json::object();
}

Placement readPlacement(const json& j)
{
    requireObject(j, "a placement");
    const auto& kind = required(j, "kind").get_ref<const std::string&>();
    if (kind == "top") {
        return Placement::top(readPosition(j));
    }
    if (kind == "group") {
        return Placement::inGroup(required(j, "group").get<ShortcutID>(), readPosition(j));
    }
    throw DecodeError("unknown placement kind: " + kind);
}

json writePlacement(const Placement& placement)
{
    json j{{"kind", placement.kind == Placement::Kind::Top ? "top" : "group"}};
    if (placement.kind == Placement::Kind::Group) {
        j["group"] = placement.group;
    }
    writeOptional(j, "position", placement.position);
    return j;
}

ProposedShortcut readShortcut(const json& j, int depth);

ProposedTarget readTarget(const json& j, int depth)
{
    requireObject(j, "a target");
    const auto& word = required(j, "kind").get_ref<const std::string&>();
    auto kind = library::enumFromWord<Target::Kind>(word);
    if (!kind) {
        throw DecodeError("unknown target kind: " + word);
    }
    ProposedTarget target;
    target.kind = *kind;
    switch (*kind) {
    case Target::Kind::App:
        target.bundleID = required(j, "bundleID").get<std::string>();
        break;
    case Target::Kind::File:
    case Target::Kind::Folder: {
        readOptional(j, "bookmark", target.bookmark);
        if (auto it = j.find("path"); it != j.end() && !it->is_null()) {
            target.path = it->get<std::string>();
        } else if (target.bookmark) {
            target.path = target.bookmark->displayPath;
        } else {
            throw DecodeError("a " + word + " needs a path");
        }
        readOptional(j, "openWith", target.openWith);
        break;
    }
    case Target::Kind::Url:
        target.url = j.get<library::URLTarget>();
        break;
    case Target::Kind::Group:
        // Bar files refuse deeper groups, so a document may not bring them either.
        if (depth >= library::kMaxGroupDepth) {
            throw DecodeError("groups are nested deeper than "
                              + std::to_string(library::kMaxGroupDepth) + " levels");
        }
        if (auto it = j.find("members"); it != j.end() && !it->is_null()) {
            if (!it->is_array()) {
                throw DecodeError("members must be an array");
            }
            target.members.reserve(it->size());
            for (const json& member : *it) {
                target.members.push_back(readShortcut(member, depth + 1));
            }
        }
        break;
    case Target::Kind::Divider:
        break;
    }
    return target;
}

json writeShortcut(const ProposedShortcut& shortcut);

json writeTarget(const ProposedTarget& target)
{
    json j;
    switch (target.kind) {
    case Target::Kind::App:
        j = json{{"bundleID", target.bundleID}};
        break;
    case Target::Kind::File:
    case Target::Kind::Folder:
        j = json{{"path", target.path}};
        writeOptional(j, "openWith", target.openWith);
        writeOptional(j, "bookmark", target.bookmark);
        break;
    case Target::Kind::Url:
        j = target.url;
        break;
    case Target::Kind::Group: {
        json members = json::array();
        for (const auto& member : target.members) {
            members.push_back(writeShortcut(member));
        }
        j = json{{"members", std::move(members)}};
        break;
    }
    case Target::Kind::Divider:
        j = json::object();
        break;
    }
    j["kind"] = std::string(library::enumWord(target.kind));
    return j;
}

ProposedShortcut readShortcut(const json& j, int depth)
{
    requireObject(j, "a shortcut");
    ProposedShortcut shortcut;
    if (auto it = j.find("id"); it != j.end() && !it->is_null()) {
        shortcut.id = it->get<ShortcutID>();
    }
    readOr(j, "name", shortcut.name);
    shortcut.target = readTarget(required(j, "target"), depth);
    readOptional(j, "icon", shortcut.icon);
    readOptional(j, "iconTint", shortcut.iconTint);
    readOptional(j, "iconOpacity", shortcut.iconOpacity);
    readOr(j, "isInMenuBar", shortcut.isInMenuBar);
    if (auto it = j.find("placement"); it != j.end() && !it->is_null()) {
        shortcut.placement = readPlacement(*it);
    }
    return shortcut;
}

json writeShortcut(const ProposedShortcut& shortcut)
{
    json j{{"id", shortcut.id},
           {"name", shortcut.name},
           {"target", writeTarget(shortcut.target)},
           {"isInMenuBar", shortcut.isInMenuBar}};
    writeOptional(j, "icon", shortcut.icon);
    writeOptional(j, "iconTint", shortcut.iconTint);
    if (shortcut.iconOpacity) {
        j["iconOpacity"] = number(*shortcut.iconOpacity);
    }
    if (shortcut.placement) {
        j["placement"] = writePlacement(*shortcut.placement);
    }
    return j;
}

// The array under the key, or null when it is absent.
const json* arrayAt(const json& object, const char* key)
{
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) {
        return nullptr;
    }
    if (!it->is_array()) {
        throw DecodeError(std::string(key) + " must be an array");
    }
    return &*it;
}

std::vector<ProposedShortcut> readShortcuts(const json& object, const char* key)
{
    std::vector<ProposedShortcut> shortcuts;
    if (auto it = object.find(key); it != object.end() && !it->is_null()) {
        if (!it->is_array()) {
            throw DecodeError(std::string(key) + " must be an array");
        }
        shortcuts.reserve(it->size());
        for (const json& item : *it) {
            shortcuts.push_back(readShortcut(item, 0));
        }
    }
    return shortcuts;
}

int readFormatVersion(const json& document)
{
    auto it = document.find("formatVersion");
    if (it == document.end() || it->is_null()) {
        return Proposal::kCurrentFormatVersion;
    }
    if (!it->is_number()) {
        throw DecodeError(std::string("formatVersion must be a number, but is ") + it->type_name());
    }
    if (it->get<double>() > Proposal::kCurrentFormatVersion) {
        throw DecodeError("written by a newer Vantorel (format " + it->dump()
                          + ", this build reads up to "
                          + std::to_string(Proposal::kCurrentFormatVersion) + ")");
    }
    // Older versions are kept as read; only newer ones are refused.
    if (!it->is_number_integer() || it->get<int64_t>() < std::numeric_limits<int>::min()) {
        throw DecodeError("formatVersion must be a whole number");
    }
    return static_cast<int>(it->get<int64_t>());
}

ProposedBar readBarHead(const json& item)
{
    requireObject(item, "a bar");
    ProposedBar bar;
    if (auto d = item.find("destination"); d != item.end() && !d->is_null()) {
        bar.destination = readDestination(*d);
    }
    bar.removals = readArray<ShortcutID>(item, "removals");
    return bar;
}

Proposal readProposal(const json& document)
{
    requireObject(document, "a document");
    Proposal proposal;
    proposal.formatVersion = readFormatVersion(document);
    readOptional(document, "source", proposal.source);
    readOptional(document, "title", proposal.title);
    proposal.sessions = readArray<Session>(document, "sessions");
    if (auto it = document.find("bars"); it != document.end() && !it->is_null()) {
        if (!it->is_array()) {
            throw DecodeError("bars must be an array");
        }
        for (const json& item : *it) {
            ProposedBar bar = readBarHead(item);
            bar.shortcuts = readShortcuts(item, "shortcuts");
            proposal.bars.push_back(std::move(bar));
        }
    }
    proposal.removeBars = readArray<BarID>(document, "removeBars");
    if (const json* renames = arrayAt(document, "renameBars")) {
        for (const json& item : *renames) {
            requireObject(item, "a bar rename");
            proposal.renameBars.push_back(
                {required(item, "id").get<BarID>(), required(item, "name").get<std::string>()});
        }
    }
    proposal.removeSessions = readArray<SessionID>(document, "removeSessions");
    if (const json* moves = arrayAt(document, "moves")) {
        for (const json& item : *moves) {
            requireObject(item, "a move");
            ShortcutMove move;
            move.id = required(item, "id").get<ShortcutID>();
            readOptional(item, "from", move.from);
            move.to = readDestination(required(item, "to"));
            proposal.moves.push_back(std::move(move));
        }
    }
    return proposal;
}

json writeProposal(const Proposal& proposal)
{
    json j{{"formatVersion", proposal.formatVersion}, {"sessions", proposal.sessions}};
    writeOptional(j, "source", proposal.source);
    writeOptional(j, "title", proposal.title);
    json bars = json::array();
    for (const auto& bar : proposal.bars) {
        json shortcuts = json::array();
        for (const auto& shortcut : bar.shortcuts) {
            shortcuts.push_back(writeShortcut(shortcut));
        }
        json item{{"destination", writeDestination(bar.destination)},
                  {"shortcuts", std::move(shortcuts)}};
        if (!bar.removals.empty()) {
            item["removals"] = bar.removals;
        }
        bars.push_back(std::move(item));
    }
    j["bars"] = std::move(bars);
    if (!proposal.removeBars.empty()) {
        j["removeBars"] = proposal.removeBars;
    }
    if (!proposal.renameBars.empty()) {
        json renames = json::array();
        for (const auto& rename : proposal.renameBars) {
            renames.push_back(json{{"id", rename.id}, {"name", rename.name}});
        }
        j["renameBars"] = std::move(renames);
    }
    if (!proposal.removeSessions.empty()) {
        j["removeSessions"] = proposal.removeSessions;
    }
    if (!proposal.moves.empty()) {
        json moves = json::array();
        for (const auto& move : proposal.moves) {
            json item{{"id", move.id}, {"to", writeDestination(move.to)}};
            writeOptional(item, "from", move.from);
            moves.push_back(std::move(item));
        }
        j["moves"] = std::move(moves);
    }
    return j;
}

} // namespace document

namespace {

void flattenInto(const std::vector<ProposedShortcut>& list,
                 std::vector<const ProposedShortcut*>& out)
{
    for (const auto& shortcut : list) {
        out.push_back(&shortcut);
        flattenInto(shortcut.target.members, out);
    }
}

ProposedShortcut* findIn(std::vector<ProposedShortcut>& list, const ShortcutID& id)
{
    for (auto& shortcut : list) {
        if (shortcut.id == id) {
            return &shortcut;
        }
        if (auto* inside = findIn(shortcut.target.members, id)) {
            return inside;
        }
    }
    return nullptr;
}

void pruneShortcuts(std::vector<ProposedShortcut>& list, const ProposalEntries& entries)
{
    std::erase_if(list, [&](const ProposedShortcut& s) {
        return entries.contains(ProposalEntry::shortcut(s.id));
    });
    for (auto& shortcut : list) {
        pruneShortcuts(shortcut.target.members, entries);
    }
}

std::vector<Session> sessionsInUse(const std::vector<Session>& sessions,
                                   const std::unordered_set<SessionID>& used)
{
    std::vector<Session> kept;
    for (const auto& session : sessions) {
        if (used.contains(session.id)) {
            kept.push_back(session);
        }
    }
    return kept;
}

ProposedShortcut converted(const Shortcut& shortcut, bool portable)
{
    ProposedShortcut proposed = ProposedShortcut::from(shortcut);
    if (portable) {
        proposed.target = proposed.target.portable();
    }
    return proposed;
}

} // namespace

ProposedTarget ProposedTarget::app(std::string bundleID)
{
    ProposedTarget target;
    target.kind = Target::Kind::App;
    target.bundleID = std::move(bundleID);
    return target;
}

ProposedTarget ProposedTarget::file(std::string path, std::optional<Bookmark> bookmark)
{
    ProposedTarget target;
    target.kind = Target::Kind::File;
    target.path = std::move(path);
    target.bookmark = std::move(bookmark);
    return target;
}

ProposedTarget ProposedTarget::folder(std::string path, std::optional<Bookmark> bookmark)
{
    ProposedTarget target = file(std::move(path), std::move(bookmark));
    target.kind = Target::Kind::Folder;
    return target;
}

ProposedTarget ProposedTarget::link(library::URLTarget url)
{
    ProposedTarget target;
    target.kind = Target::Kind::Url;
    target.url = std::move(url);
    return target;
}

ProposedTarget ProposedTarget::group(std::vector<ProposedShortcut> members)
{
    ProposedTarget target;
    target.kind = Target::Kind::Group;
    target.members = std::move(members);
    return target;
}

ProposedTarget ProposedTarget::divider()
{
    return {};
}

ProposedTarget ProposedTarget::from(const Target& target)
{
    switch (target.kind()) {
    case Target::Kind::App:
        return app(target.appTarget()->bundleID);
    case Target::Kind::File:
    case Target::Kind::Folder: {
        const auto& file = *target.fileTarget();
        ProposedTarget proposed = ProposedTarget::file(file.bookmark.displayPath, file.bookmark);
        proposed.kind = target.kind();
        proposed.openWith = file.openWith;
        return proposed;
    }
    case Target::Kind::Url:
        return link(*target.urlTarget());
    case Target::Kind::Group: {
        std::vector<ProposedShortcut> members;
        members.reserve(target.members().size());
        for (const auto& member : target.members()) {
            members.push_back(ProposedShortcut::from(member));
        }
        return group(std::move(members));
    }
    case Target::Kind::Divider:
        break;
    }
    return divider();
}

ProposedTarget ProposedTarget::portable() const
{
    ProposedTarget copy = *this;
    copy.bookmark.reset();
    copy.url.lastVisitedURL.reset();
    for (auto& member : copy.members) {
        member.target = member.target.portable();
    }
    return copy;
}

ProposedShortcut ProposedShortcut::from(const Shortcut& shortcut)
{
    ProposedShortcut proposed;
    proposed.id = shortcut.id;
    proposed.name = shortcut.name;
    proposed.target = ProposedTarget::from(shortcut.target);
    proposed.icon = shortcut.icon;
    proposed.iconTint = shortcut.iconTint;
    proposed.iconOpacity = shortcut.iconOpacity;
    proposed.isInMenuBar = shortcut.isInMenuBar;
    return proposed;
}

std::vector<const ProposedShortcut*>
ProposedShortcut::flatten(const std::vector<ProposedShortcut>& list)
{
    std::vector<const ProposedShortcut*> out;
    flattenInto(list, out);
    return out;
}

Proposal reference::decode(std::string_view data)
{
    try {
        return document::readProposal(library::parseJson(data));
    } catch (const DecodeError&) {
        throw;
    } catch (const std::exception& error) {
        throw DecodeError(library::plainMessage(error));
    }
}

std::string reference::encode(const Proposal& proposal)
{
    return library::prettyJson(document::writeProposal(proposal));
}

Proposal Proposal::exportBars(const std::vector<std::pair<Bar, Library>>& bars,
                              const std::vector<Session>& sessions,
                              bool portable,
                              std::optional<std::string> source,
                              std::optional<std::string> title)
{
    Proposal proposal;
    proposal.source = std::move(source);
    proposal.title = std::move(title);
    std::unordered_set<SessionID> used;
    for (const auto& [bar, library] : bars) {
        ProposedBar proposed{BarDestination::newBar(bar.name), {}, {}};
        proposed.shortcuts.reserve(library.shortcuts.size());
        for (const auto& shortcut : library.shortcuts) {
            proposed.shortcuts.push_back(converted(shortcut, portable));
        }
        used.merge(library.sessionIDsInUse());
        proposal.bars.push_back(std::move(proposed));
    }
    proposal.sessions = sessionsInUse(sessions, used);
    return proposal;
}

Proposal Proposal::exportShortcut(const Shortcut& shortcut,
                                  const std::vector<Session>& sessions,
                                  bool portable,
                                  std::optional<std::string> source,
                                  std::optional<std::string> title)
{
    Proposal proposal;
    proposal.source = std::move(source);
    proposal.title = std::move(title);
    proposal.bars.push_back({BarDestination::active(), {converted(shortcut, portable)}, {}});
    Library alone;
    alone.shortcuts.push_back(shortcut);
    proposal.sessions = sessionsInUse(sessions, alone.sessionIDsInUse());
    return proposal;
}

std::vector<const ProposedShortcut*> Proposal::allShortcuts() const
{
    std::vector<const ProposedShortcut*> out;
    for (const auto& bar : bars) {
        flattenInto(bar.shortcuts, out);
    }
    return out;
}

ProposalEntry ProposalEntry::newBar(std::string_view name)
{
    // Two FNV-1a hashes of the name fill the entry's sixteen bytes.
    ProposalEntry entry{Kind::NewBar, {}};
    uint64_t halves[2] = {0xcbf29ce484222325ULL, 0x84222325cbf29ce4ULL};
    for (uint64_t& half : halves) {
        for (char c : name) {
            half = (half ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
        }
    }
    for (size_t i = 0; i < 16; ++i) {
        entry.id.bytes[i] = static_cast<uint8_t>(halves[i / 8] >> (8 * (i % 8)));
    }
    return entry;
}

Proposal Proposal::leavingOut(const ProposalEntries& entries) const
{
    if (entries.empty()) {
        return *this;
    }
    Proposal copy = *this;
    // A new bar goes when its own row is left out, or when every row on it is: it was asked for
    // to hold them, and an empty bar is made only when one was asked for as such.
    std::erase_if(copy.bars, [&](ProposedBar& bar) {
        const bool asked = !bar.shortcuts.empty() || !bar.removals.empty();
        pruneShortcuts(bar.shortcuts, entries);
        std::erase_if(bar.removals, [&](const ShortcutID& id) {
            return entries.contains(ProposalEntry::shortcut(id));
        });
        const bool empty = bar.shortcuts.empty() && bar.removals.empty();
        return bar.destination.isNew() && empty
               && (asked || entries.contains(ProposalEntry::newBar(bar.destination.name)));
    });
    std::erase_if(copy.moves, [&](const ShortcutMove& move) {
        return entries.contains(ProposalEntry::move(move.id));
    });
    std::erase_if(copy.renameBars, [&](const BarRename& rename) {
        return entries.contains(ProposalEntry::barRename(rename.id));
    });
    std::erase_if(copy.removeBars,
                  [&](const BarID& id) { return entries.contains(ProposalEntry::barRemoval(id)); });
    // An account row may stand in both lists; leaving out one must not let the other through.
    std::erase_if(copy.sessions, [&](const Session& session) {
        return entries.contains(ProposalEntry::session(session.id));
    });
    std::erase_if(copy.removeSessions, [&](const SessionID& id) {
        return entries.contains(ProposalEntry::session(id));
    });
    return copy;
}

bool Proposal::replace(const ProposedShortcut& shortcut)
{
    for (auto& bar : bars) {
        if (ProposedShortcut* found = findIn(bar.shortcuts, shortcut.id)) {
            *found = shortcut;
            return true;
        }
    }
    return false;
}

bool Proposal::reach(const ShortcutID& id, const Bookmark& bookmark)
{
    for (auto& bar : bars) {
        ProposedShortcut* found = findIn(bar.shortcuts, id);
        if (found == nullptr) {
            continue;
        }
        if (!found->target.isFileOrFolder()) {
            return false;
        }
        found->target.bookmark = bookmark;
        if (!bookmark.displayPath.empty()) {
            found->target.path = bookmark.displayPath;
        }
        return true;
    }
    return false;
}

} // namespace kit::proposal
