// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace kit::proposal {

using library::Bar;
using library::BarID;
using library::Bookmark;
using library::Library;
using library::Session;
using library::SessionID;
using library::Shortcut;
using library::ShortcutID;
using library::Target;

struct BarRename
{
    BarID id;
    std::string name;

    bool operator==(const BarRename&) const = default;
};

// Which bar a proposed bar or a move goes to: the showing one, one that exists, or one to make.
struct BarDestination
{
    enum class Kind {
        Active,
        Existing,
        New,
    };
    Kind kind = Kind::Active;
    BarID id;         // for an existing bar
    std::string name; // for a new bar

    static BarDestination active() { return {}; }
    static BarDestination existing(BarID id) { return {Kind::Existing, id, {}}; }
    static BarDestination newBar(std::string name) { return {Kind::New, {}, std::move(name)}; }
    bool isNew() const { return kind == Kind::New; }

    bool operator==(const BarDestination& other) const;
};

struct ShortcutMove
{
    ShortcutID id;
    std::optional<BarID> from; // none: the review finds the bar it is on
    BarDestination to;

    bool operator==(const ShortcutMove&) const = default;
};

// Where a proposed shortcut goes on its bar: the top level or inside a group, at a zero-based
// position or (none) at the end.
struct Placement
{
    enum class Kind {
        Top,
        Group,
    };
    Kind kind = Kind::Top;
    ShortcutID group;
    std::optional<int> position;

    static Placement top(std::optional<int> position = {}) { return {Kind::Top, {}, position}; }
    static Placement inGroup(ShortcutID group, std::optional<int> position = {})
    {
        return {Kind::Group, group, position};
    }
    std::optional<ShortcutID> groupID() const
    {
        return kind == Kind::Group ? std::optional<ShortcutID>(group) : std::nullopt;
    }

    bool operator==(const Placement& other) const;
};

struct ProposedShortcut;

// A target in document shape: files and folders by path, their access grant optional.
struct ProposedTarget
{
    Target::Kind kind = Target::Kind::Divider;
    std::string bundleID;                  // app
    std::string path;                      // file, folder
    std::optional<std::string> openWith;   // file, folder
    std::optional<Bookmark> bookmark;      // file, folder
    library::URLTarget url;                // url
    std::vector<ProposedShortcut> members; // group

    static ProposedTarget app(std::string bundleID);
    static ProposedTarget file(std::string path, std::optional<Bookmark> bookmark = {});
    static ProposedTarget folder(std::string path, std::optional<Bookmark> bookmark = {});
    static ProposedTarget link(library::URLTarget url);
    static ProposedTarget group(std::vector<ProposedShortcut> members);
    static ProposedTarget divider();
    // The persisted target in document shape; a file keeps its grant, its path is the grant's.
    static ProposedTarget from(const Target& target);

    // Without access to files and folders and without what pages remembered, at any depth.
    ProposedTarget portable() const;
    bool isFileOrFolder() const
    {
        return kind == Target::Kind::File || kind == Target::Kind::Folder;
    }

    bool operator==(const ProposedTarget& other) const;
};

// A shortcut in document shape.
struct ProposedShortcut
{
    ShortcutID id = ShortcutID::make();
    std::string name;
    ProposedTarget target;
    std::optional<library::IconOverride> icon;
    std::optional<library::IconTint> iconTint;
    std::optional<double> iconOpacity;
    bool isInMenuBar = true;
    std::optional<Placement> placement;

    static ProposedShortcut from(const Shortcut& shortcut);

    bool isDivider() const { return target.kind == Target::Kind::Divider; }
    // Each shortcut followed by its group members, depth first.
    static std::vector<const ProposedShortcut*> flatten(const std::vector<ProposedShortcut>& list);

    bool operator==(const ProposedShortcut&) const = default;
};

// One row of a proposal the person can uncheck. A shortcut entry covers both a proposed shortcut
// and a removal of that id; a session entry covers both an account to bring and one to remove.
struct ProposalEntry
{
    enum class Kind {
        Shortcut,
        Move,
        BarRename,
        BarRemoval,
        Session,
        NewBar,
    };
    Kind kind = Kind::Shortcut;
    support::Uuid id;

    static ProposalEntry shortcut(const ShortcutID& id) { return {Kind::Shortcut, id.uuid}; }
    static ProposalEntry move(const ShortcutID& id) { return {Kind::Move, id.uuid}; }
    static ProposalEntry barRename(const BarID& id) { return {Kind::BarRename, id.uuid}; }
    static ProposalEntry barRemoval(const BarID& id) { return {Kind::BarRemoval, id.uuid}; }
    static ProposalEntry session(const SessionID& id) { return {Kind::Session, id.uuid}; }
    // A new bar has no id until it is made, so its entry stands for the name it is proposed by.
    static ProposalEntry newBar(std::string_view name);

    bool operator==(const ProposalEntry&) const = default;
};

struct ProposalEntryHash
{
    size_t operator()(const ProposalEntry& entry) const noexcept
    {
        return std::hash<support::Uuid>{}(entry.id) * 31 + static_cast<size_t>(entry.kind);
    }
};

using ProposalEntries = std::unordered_set<ProposalEntry, ProposalEntryHash>;

struct ProposedBar
{
    BarDestination destination;
    std::vector<ProposedShortcut> shortcuts;
    std::vector<ShortcutID> removals;

    bool operator==(const ProposedBar&) const = default;
};

// A set of changes to the bars in document shape: what a document, an assistant or an export
// carries. A plain value; nothing here touches the live library.
struct Proposal
{
    static constexpr int kCurrentFormatVersion = 1;
    static constexpr const char* kFileExtension = "vantorel";
    static constexpr const char* kFileType = "application/x-vantorel";

    int formatVersion = kCurrentFormatVersion;
    std::optional<std::string> source;
    std::optional<std::string> title;
    std::vector<Session> sessions;
    std::vector<ProposedBar> bars;
    std::vector<BarID> removeBars;
    std::vector<BarRename> renameBars;
    std::vector<SessionID> removeSessions;
    std::vector<ShortcutMove> moves;

    // Throws library::DecodeError with a one-sentence reason.
    static Proposal decode(std::string_view data);
    // Pretty-printed, keys sorted, slashes unescaped.
    std::string encoded() const;

    // Every bar as a new bar of the same name; sessions cut down to those the links use.
    static Proposal exportBars(const std::vector<std::pair<Bar, Library>>& bars,
                               const std::vector<Session>& sessions,
                               bool portable,
                               std::optional<std::string> source = {},
                               std::optional<std::string> title = {});
    // A document that adds the one shortcut to the showing bar.
    static Proposal exportShortcut(const Shortcut& shortcut,
                                   const std::vector<Session>& sessions,
                                   bool portable,
                                   std::optional<std::string> source = {},
                                   std::optional<std::string> title = {});

    // The shortcuts of all bars, bar by bar, each followed by its members.
    std::vector<const ProposedShortcut*> allShortcuts() const;

    // A copy without the rows named; a left-out shortcut goes with its members.
    Proposal leavingOut(const ProposalEntries& entries) const;
    // Swaps in the shortcut with the same id wherever it stands; false when there is none.
    bool replace(const ProposedShortcut& shortcut);
    // Gives the proposed file or folder its access grant; false when there is no such one.
    bool reach(const ShortcutID& id, const Bookmark& bookmark);

    bool operator==(const Proposal&) const = default;
};

inline bool BarDestination::operator==(const BarDestination& other) const
{
    if (kind != other.kind) {
        return false;
    }
    switch (kind) {
    case Kind::Active:
        return true;
    case Kind::Existing:
        return id == other.id;
    case Kind::New:
        return name == other.name;
    }
    return false;
}

inline bool Placement::operator==(const Placement& other) const
{
    return kind == other.kind && position == other.position
           && (kind == Kind::Top || group == other.group);
}

inline bool ProposedTarget::operator==(const ProposedTarget& other) const
{
    return kind == other.kind && bundleID == other.bundleID && path == other.path
           && openWith == other.openWith && bookmark == other.bookmark && url == other.url
           && members == other.members;
}

// The same codings through a JSON tree: the yardstick the streamed coding is tested against.
namespace reference {
Proposal decode(std::string_view data);
std::string encode(const Proposal& proposal);
} // namespace reference

} // namespace kit::proposal
