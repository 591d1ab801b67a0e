// SPDX-License-Identifier: MIT
#pragma once

#include "kit/proposal/library_snapshot.h"
#include "kit/proposal/proposal.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kit::proposal {

// For an absolute path, the grant of a granted folder holding it; none when no grant covers it.
using Reach = std::function<std::optional<Bookmark>(const std::string& path)>;

// Why a row cannot be done.
enum class Refusal {
    UnknownBar,
    UnknownGroup,
    NotAGroup,
    GroupInsideItself,
    EmptyName,
    Duplicate,
    UnknownShortcut,
    LastBar,
    UnknownSession,
};

// The sentence shown to the person and returned to assistants.
std::string_view description(Refusal refusal);

// What applying a shortcut, bar removal, bar rename or move row would do.
struct Verdict
{
    enum class Kind {
        Added,
        Changed,
        Moved,
        Removed,
        Unchanged,
        NeedsAccess,
        Refused,
    };
    Kind kind = Kind::Unchanged;
    std::string path;                      // for needsAccess
    Refusal refusal = Refusal::UnknownBar; // for refused

    static Verdict added() { return {Kind::Added, {}, {}}; }
    static Verdict changed() { return {Kind::Changed, {}, {}}; }
    static Verdict moved() { return {Kind::Moved, {}, {}}; }
    static Verdict removed() { return {Kind::Removed, {}, {}}; }
    static Verdict unchanged() { return {Kind::Unchanged, {}, {}}; }
    static Verdict needsAccess(std::string path)
    {
        return {Kind::NeedsAccess, std::move(path), {}};
    }
    static Verdict refused(Refusal refusal) { return {Kind::Refused, {}, refusal}; }

    bool writes() const
    {
        return kind == Kind::Added || kind == Kind::Changed || kind == Kind::Moved
               || kind == Kind::Removed;
    }
    bool operator==(const Verdict& other) const;
};

// "added", "changed", "moved", "removed", "unchanged", "needsAccess", "refused".
std::string_view word(Verdict::Kind kind);

struct SessionReview
{
    struct Verdict
    {
        enum class Kind {
            Added,
            MatchedByName,
            Unchanged,
            Renamed,
            Removed,
            Refused,
        };
        Kind kind = Kind::Unchanged;
        std::string from;      // renamed: the old name
        int shortcutCount = 0; // removed: the links using the account
        Refusal refusal = Refusal::UnknownSession;

        bool writes() const
        {
            return kind == Kind::Added || kind == Kind::Renamed || kind == Kind::Removed;
        }
        bool isRemoval() const { return kind == Kind::Removed; }
        bool operator==(const Verdict&) const = default;
    };

    SessionID id;    // as proposed
    Session session; // as it would be written
    Verdict verdict;

    bool operator==(const SessionReview&) const = default;
};

// One user-facing difference: the field's label and its old and new value as text.
struct FieldChange
{
    std::string field;
    std::string from;
    std::string to;

    bool operator==(const FieldChange&) const = default;
};

class ItemRows;

// What a bar's rows keep out of line, each kind in a few large blocks rather than a block per row:
// the shortcuts the rows would write, their field changes, and their names and notes end to end.
// Filled while the review is made and only read afterwards.
class ItemStore
{
public:
    const Shortcut& shortcut(uint32_t index) const
    {
        return m_shortcuts[index / kChunk][index % kChunk];
    }

private:
    friend class ItemRows;
    friend class ItemReview;
    // Chunks of a few dozen kilobytes: freed, they serve the next review, where blocks of a
    // megabyte at the heap's top would be handed back to the system and faulted in again.
    static constexpr uint32_t kChunk = 64;

    std::vector<std::vector<Shortcut>> m_shortcuts;
    std::vector<FieldChange> m_changes;
    std::string m_text;
};

// One row of a bar's review. Its name, note, changes and shortcut are read from the store of the
// bar review it belongs to: a row is valid while that review, or a copy of it, lives.
class ItemReview
{
public:
    ShortcutID id;
    Target::Kind kind = Target::Kind::Divider;
    int depth = 0;
    Verdict verdict;
    std::optional<Placement> placement;

    std::string_view name() const { return text(m_name); }
    // What applying would write; null when the row writes no shortcut.
    const Shortcut* shortcut() const
    {
        return m_shortcut == kNone ? nullptr : &m_store->shortcut(m_shortcut);
    }
    std::span<const FieldChange> changes() const
    {
        return m_changeCount == 0 ? std::span<const FieldChange>()
                                  : std::span(m_store->m_changes).subspan(m_changes, m_changeCount);
    }
    std::optional<std::string_view> note() const
    {
        return m_note.size == kNone ? std::nullopt : std::optional(text(m_note));
    }

    // As values: where the parts are kept does not matter.
    bool operator==(const ItemReview& other) const;

private:
    friend class ItemRows;
    static constexpr uint32_t kNone = UINT32_MAX;

    // A stretch of the store's text; documents are bounded far below 4 GiB.
    struct Text
    {
        uint32_t at = 0;
        uint32_t size = 0;
    };
    std::string_view text(Text range) const
    {
        return range.size == 0 || range.size == kNone
                   ? std::string_view()
                   : std::string_view(m_store->m_text).substr(range.at, range.size);
    }

    const ItemStore* m_store = nullptr;
    Text m_name;
    Text m_note{0, kNone};
    uint32_t m_changes = 0;
    uint32_t m_changeCount = 0;
    uint32_t m_shortcut = kNone;
};

struct BarReview
{
    BarDestination destination;
    std::string name;
    std::optional<BarID> barID; // none for a new bar and for a refused showing bar
    bool isNew = false;
    std::optional<Refusal> refusal;
    std::vector<ItemReview> items; // depth first, the bar's removals last

    // A new bar writes when a row on it does, or by itself when nothing is proposed for it.
    bool writes() const;
    bool isEmptyNewBar() const;
    // Writes the top-level rows that write into the bar's library; members come with their group.
    void apply(Library& library) const;

    bool operator==(const BarReview& other) const;

private:
    friend class ItemRows;
    // What the rows keep out of line; copies of the review share it.
    std::shared_ptr<const ItemStore> m_store;
};

struct BarRemovalReview
{
    BarID id;
    std::string name;
    int shortcutCount = 0;
    Verdict verdict;

    bool operator==(const BarRemovalReview&) const = default;
};

struct BarRenameReview
{
    BarID id;
    std::string from;
    std::string to;
    Verdict verdict;

    bool operator==(const BarRenameReview&) const = default;
};

struct MoveReview
{
    ShortcutID id;
    std::string name;
    Target::Kind kind = Target::Kind::Divider;
    std::optional<BarID> fromBar;
    std::string fromName;
    BarDestination to;
    std::string toName;
    Verdict verdict;

    bool operator==(const MoveReview&) const = default;
};

// A proposal compared with a snapshot: one row for everything it mentions, each saying what
// applying would do or why it cannot. A plain value; making one never fails and changes nothing.
struct ProposalReview
{
    std::vector<SessionReview> sessions;
    std::vector<BarReview> bars;
    std::vector<BarRemovalReview> barRemovals;
    std::vector<BarRenameReview> barRenames;
    std::vector<MoveReview> moves;

    std::vector<const ItemReview*> items() const;
    // Accounts to add or rename, as they would be written.
    std::vector<Session> sessionsToWrite() const;
    std::vector<SessionID> sessionsToRemove() const;
    // Shortcut, bar removal, bar rename and move rows with a verdict of this kind.
    int count(Verdict::Kind kind) const;
    bool hasWork() const;
    // True when the proposal named nothing at all.
    bool isEmpty() const;

    bool operator==(const ProposalReview&) const = default;
};

ProposalReview
review(const Proposal& proposal, const LibrarySnapshot& snapshot, const Reach& reach);

// The counts behind the review window's summary line and the write tools' answers.
struct ReviewSummary
{
    int added = 0;
    int changed = 0;
    int moved = 0;
    int removed = 0;
    int unchanged = 0;
    int needsAccess = 0;
    int refused = 0;
    int accountsToAdd = 0;
    int accountsToRename = 0;
    int accountsToRemove = 0;
    int barsToMake = 0;
    int barsToRename = 0;
    int barsToRemove = 0;
    int toAnotherBar = 0;
    int linksToDefaultAccount = 0;

    static ReviewSummary of(const ProposalReview& review);
    // "1 account to add", "3 to move to another bar", ...: one phrase per count that is not 0.
    std::vector<std::string> phrases() const;

    bool operator==(const ReviewSummary&) const = default;
};

// The summary line: the phrases, or why there is nothing to do.
std::string summaryLine(const ProposalReview& review);

inline constexpr const char* kNothingToDo = "Everything here is already on your bars.";
inline constexpr const char* kMentionsNothing = "The document mentions nothing.";
inline constexpr const char* kNotReachedNote =
    ": Vantorel has not been given access to it, so it is left out.";

// Place labels and checks on a library: "On the bar", "In “Mail”, at 1".
bool isAlready(const Library& library, const ShortcutID& id, const Placement& placement);
std::string describe(const Library& library, const Placement& placement);
std::string describePlace(const Library& library, const ShortcutID& id);

// The differences a person sees between two shortcuts, in the order of the labels.
struct ShortcutDifference
{
    static std::vector<FieldChange>
    changes(const Shortcut& from, const Shortcut& to, const std::vector<Session>& sessions);
};

inline bool Verdict::operator==(const Verdict& other) const
{
    return kind == other.kind && (kind != Kind::NeedsAccess || path == other.path)
           && (kind != Kind::Refused || refusal == other.refusal);
}

} // namespace kit::proposal
