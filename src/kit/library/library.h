// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"

#include <cstddef>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <variant>
#include <vector>

namespace kit::library {

// Thrown by the group operations; the library is unchanged when it is.
class LibraryError : public std::runtime_error
{
public:
    enum class Code {
        UnknownShortcut,
        NotAGroup,
        DuplicateID,
    };
    explicit LibraryError(Code code);
    Code code() const { return m_code; }

private:
    Code m_code;
};

// A broken invariant found by validation and mended by repair.
struct Violation
{
    enum class Kind {
        DuplicateShortcut,
        DanglingSession,
    };
    Kind kind = Kind::DuplicateShortcut;
    ShortcutID shortcut;
    std::optional<SessionID> session; // for a dangling session

    static Violation duplicateShortcut(ShortcutID id) { return {Kind::DuplicateShortcut, id, {}}; }
    static Violation danglingSession(SessionID session, ShortcutID shortcut)
    {
        return {Kind::DanglingSession, shortcut, session};
    }
    std::string description() const;

    bool operator==(const Violation&) const = default;
};

// One field of a shortcut set from a menu or a tool. An empty optional means "follow the defaults".
namespace change {
struct OpenModeTo
{
    std::optional<OpenMode> value;
    bool operator==(const OpenModeTo&) const = default;
};
struct Account
{
    std::optional<SessionID> value;
    bool operator==(const Account&) const = default;
};
struct Browser
{
    std::optional<std::string> value;
    bool operator==(const Browser&) const = default;
};
struct UserAgent
{
    std::optional<BrowserAgent> value;
    std::optional<std::string> custom; // kept when the agent is custom
    bool operator==(const UserAgent&) const = default;
};
struct Appearance
{
    std::optional<PageAppearance> value;
    bool operator==(const Appearance&) const = default;
};
struct BlocksAds
{
    std::optional<bool> value;
    bool operator==(const BlocksAds&) const = default;
};
struct ReloadsOnOpen
{
    bool value = false;
    bool operator==(const ReloadsOnOpen&) const = default;
};
struct KeepsPlaying
{
    bool value = false;
    bool operator==(const KeepsPlaying&) const = default;
};
struct StaysOnTop
{
    bool value = false;
    bool operator==(const StaysOnTop&) const = default;
};
struct PopoverSize
{
    std::optional<ContentSize> value;
    bool operator==(const PopoverSize&) const = default;
};
struct WindowSize
{
    std::optional<ContentSize> value;
    bool operator==(const WindowSize&) const = default;
};
struct NewWindows
{
    std::optional<NewWindowLinks> value;
    bool operator==(const NewWindows&) const = default;
};
struct Zoom
{
    std::optional<double> value;
    bool operator==(const Zoom&) const = default;
};
struct OpenWith
{
    std::optional<std::string> value;
    bool operator==(const OpenWith&) const = default;
};
struct ShowInMenuBar
{
    bool value = true;
    bool operator==(const ShowInMenuBar&) const = default;
};
} // namespace change

using ShortcutChange = std::variant<change::OpenModeTo,
                                    change::Account,
                                    change::Browser,
                                    change::UserAgent,
                                    change::Appearance,
                                    change::BlocksAds,
                                    change::ReloadsOnOpen,
                                    change::KeepsPlaying,
                                    change::StaysOnTop,
                                    change::PopoverSize,
                                    change::WindowSize,
                                    change::NewWindows,
                                    change::Zoom,
                                    change::OpenWith,
                                    change::ShowInMenuBar>;

// The shortcuts of one bar, with every change, tree question and outline operation on them.
// A plain value; operations on an unknown id change nothing.
struct Library
{
    static constexpr int kCurrentSchemaVersion = 1;

    int schemaVersion = kCurrentSchemaVersion;
    std::vector<Shortcut> shortcuts;

    static Library empty() { return {}; }

    struct OutlineRow
    {
        ShortcutID id;
        std::optional<ShortcutID> parent;
        int depth = 0;
        bool isMember() const { return parent.has_value(); }
        bool operator==(const OutlineRow&) const = default;
    };

    struct OutlineDestination
    {
        std::optional<ShortcutID> parent; // none: the top level
        size_t index = 0;
        bool operator==(const OutlineDestination&) const = default;
    };

    // Queries.
    // Every shortcut, depth first, a group before its members.
    std::vector<const Shortcut*> allShortcuts() const;
    static std::vector<const Shortcut*> flatten(const std::vector<Shortcut>& list);
    const Shortcut* shortcut(const ShortcutID& id) const;
    Shortcut* shortcut(const ShortcutID& id);
    // The group holding the shortcut; none at the top level or for an unknown id.
    std::optional<ShortcutID> parent(const ShortcutID& id) const;
    // Outermost first.
    std::vector<ShortcutID> ancestors(const ShortcutID& id) const;
    // 0 at the top level; none for an unknown id.
    std::optional<int> depth(const ShortcutID& id) const;
    bool isSelfOrInside(const ShortcutID& id, const ShortcutID& groupID) const;
    // The members of a group; empty when it is not a group.
    std::vector<Shortcut> members(const ShortcutID& groupID) const;
    std::vector<const Shortcut*> groups() const;
    std::unordered_set<SessionID> sessionIDsInUse() const;

    // Changes.
    void add(Shortcut shortcut);
    void update(const Shortcut& shortcut);
    std::optional<ShortcutID> duplicate(const ShortcutID& id);
    void remove(const ShortcutID& id);
    void moveShortcuts(const std::vector<size_t>& fromOffsets, size_t toOffset);
    void addMember(Shortcut member, const ShortcutID& groupID, std::optional<size_t> at = {});
    void
    moveMembers(const ShortcutID& groupID, const std::vector<size_t>& fromOffsets, size_t toOffset);
    void refreshBookmark(const ShortcutID& id, const Bookmark& bookmark);
    void setPopoverSize(const ShortcutID& id, const ContentSize& size);
    void setWindowSize(const ShortcutID& id, const ContentSize& size);
    void setLastVisitedURL(const ShortcutID& id, const std::optional<std::string>& url);
    void apply(const ShortcutChange& change, const ShortcutID& id);
    void forget(const SessionID& session);

    // Outline.
    std::vector<OutlineRow> outline(const std::unordered_set<ShortcutID>& expanded) const;
    void outlineMove(const std::vector<size_t>& fromRows,
                     size_t toRow,
                     const std::unordered_set<ShortcutID>& expanded);
    std::vector<const Shortcut*> groupsThatCanHold(const ShortcutID& id) const;
    void move(const ShortcutID& id, const ShortcutID& toPositionOf);
    // False (and nothing changed) when the destination is the shortcut itself, inside it, or not a
    // group.
    bool move(const ShortcutID& id, const OutlineDestination& destination);

    // Validation and repair.
    std::vector<Violation> validate(const std::unordered_set<SessionID>& knownSessions) const;
    // `seen` is shared across every bar being repaired so that ids stay unique across bars.
    Library repaired(std::unordered_set<ShortcutID>& seen,
                     const std::unordered_set<SessionID>& known) const;
    std::vector<Violation> repair(const std::unordered_set<SessionID>& knownSessions);

    bool operator==(const Library&) const = default;
};

// Items at the given offsets are taken out, keeping their order, and inserted before the item that
// stood at `toOffset` in the original list (the list's length means the end).
template <class T>
void moveOffsets(std::vector<T>& list, const std::vector<size_t>& fromOffsets, size_t toOffset);

// One entry of the bar list.
struct Bar
{
    BarID id;
    std::string name;
    std::string file;

    bool operator==(const Bar&) const = default;
};

// The bars in the person's order, and which one is showing.
struct BarIndex
{
    static constexpr const char* kFileName = "bars.json";
    static constexpr const char* kFirstBarFile = "library.json";
    static constexpr const char* kFirstBarName = "Shortcuts";

    std::vector<Bar> bars;
    BarID activeID;

    static BarIndex standard();
    // The bar whose id is `activeID`, else the first; the index must not be empty.
    const Bar& active() const;
    const Bar* bar(const BarID& id) const;
    std::string unusedFileName() const;

    bool operator==(const BarIndex&) const = default;
};

// A browsing account: its own cookies and site data.
struct Session
{
    static constexpr int kColourCount = 8;

    SessionID id;
    std::string name;
    std::optional<int> colour;

    static int colourIndex(const Session& session);
    static int nextColour(const std::vector<Session>& after);
    // Gives every session without a colour the least-used one; false when none lacked one.
    static bool spreadColours(std::vector<Session>& sessions);

    bool operator==(const Session&) const = default;
};

struct SessionIndex
{
    static constexpr const char* kFileName = "sessions.json";

    std::vector<Session> sessions;

    bool operator==(const SessionIndex&) const = default;
};

template <class T>
void moveOffsets(std::vector<T>& list, const std::vector<size_t>& fromOffsets, size_t toOffset)
{
    std::set<size_t> offsets;
    for (size_t offset : fromOffsets) {
        if (offset < list.size()) {
            offsets.insert(offset);
        }
    }
    if (offsets.empty()) {
        return;
    }
    std::vector<T> moved;
    std::vector<T> rest;
    moved.reserve(offsets.size());
    rest.reserve(list.size() - offsets.size());
    size_t insertAt = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        if (offsets.contains(i)) {
            moved.push_back(std::move(list[i]));
        } else {
            if (i < toOffset) {
                ++insertAt;
            }
            rest.push_back(std::move(list[i]));
        }
    }
    rest.insert(rest.begin() + static_cast<std::ptrdiff_t>(insertAt),
                std::make_move_iterator(moved.begin()),
                std::make_move_iterator(moved.end()));
    list = std::move(rest);
}

} // namespace kit::library
