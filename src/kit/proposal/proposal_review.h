// SPDX-License-Identifier: MIT
#pragma once

#include "kit/proposal/library_snapshot.h"
#include "kit/proposal/proposal.h"

#include <functional>
#include <memory>
#include <optional>
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

// An optional value kept on the heap, copied and compared as the value itself: a review row holds
// the whole shortcut it would write only when it writes one, so the rest stay small.
template <class T> class Boxed
{
public:
    Boxed() = default;
    // Implicit, as std::optional's, so it stands in for one.
    Boxed(std::nullopt_t) {} // NOLINT(google-explicit-constructor)
    Boxed(T value)           // NOLINT(google-explicit-constructor)
        : m_value(std::make_unique<T>(std::move(value)))
    {}
    Boxed(const Boxed& other)
        : m_value(other.m_value ? std::make_unique<T>(*other.m_value) : nullptr)
    {}
    Boxed(Boxed&&) noexcept = default;
    Boxed& operator=(const Boxed& other)
    {
        if (this != &other) {
            m_value = other.m_value ? std::make_unique<T>(*other.m_value) : nullptr;
        }
        return *this;
    }
    Boxed& operator=(Boxed&&) noexcept = default;
    Boxed& operator=(T&& value)
    {
        m_value = std::make_unique<T>(std::move(value));
        return *this;
    }
    ~Boxed() = default;

    explicit operator bool() const { return m_value != nullptr; }
    bool has_value() const { return m_value != nullptr; } // NOLINT(readability-identifier-naming)
    const T& operator*() const { return *m_value; }
    T& operator*() { return *m_value; }
    const T* operator->() const { return m_value.get(); }
    T* operator->() { return m_value.get(); }
    std::optional<T> optional() const
    {
        return m_value ? std::optional<T>(*m_value) : std::nullopt;
    }

    bool operator==(const Boxed& other) const
    {
        return m_value ? other.m_value && *m_value == *other.m_value : !other.m_value;
    }

private:
    std::unique_ptr<T> m_value;
};

struct ItemReview
{
    ShortcutID id;
    std::string name;
    Target::Kind kind = Target::Kind::Divider;
    int depth = 0;
    Verdict verdict;
    Boxed<Shortcut> shortcut; // what applying would write
    std::optional<Placement> placement;
    std::vector<FieldChange> changes;
    std::optional<std::string> note;

    bool operator==(const ItemReview&) const = default;
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

    bool operator==(const BarReview&) const = default;
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
