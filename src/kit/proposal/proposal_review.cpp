// SPDX-License-Identifier: MIT
#include "kit/proposal/proposal_review.h"

#include "kit/library/words.h"
#include "kit/support/text.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace kit::proposal {

using namespace kit::library;

namespace {

using support::trimmed;

std::string folded(const std::string& text)
{
    std::string out = text;
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(std::tolower(c));
    });
    return out;
}

std::string quoted(const std::string& name)
{
    return "\u201C" + name + "\u201D";
}

// Where each shortcut of one library stands, built once per review: one flat open-addressed
// block, so a 100,000-shortcut bar costs two allocations rather than a node per shortcut.
class LibraryIndex
{
public:
    struct Entry
    {
        const Shortcut* shortcut = nullptr;
        const Shortcut* parent = nullptr;
        uint32_t index = 0;
        // Set and cleared by one walk that must meet each shortcut once.
        mutable bool isMarked = false;
    };

    explicit LibraryIndex(const Library& library)
    {
        size_t count = 0;
        countIn(library.shortcuts, count);
        size_t capacity = 16;
        while (capacity < count * 2) {
            capacity *= 2;
        }
        m_mask = capacity - 1;
        m_slots.assign(capacity, Slot{});
        add(library.shortcuts, nullptr);
    }

    const Entry* find(const ShortcutID& id) const
    {
        for (size_t at = std::hash<ShortcutID>{}(id)&m_mask;; at = (at + 1) & m_mask) {
            const Slot& slot = m_slots[at];
            if (slot.entry.shortcut == nullptr) {
                return nullptr;
            }
            if (slot.id == id) {
                return &slot.entry;
            }
        }
    }

    // True when `id` is `ancestor` or stands inside it.
    bool isSelfOrInside(const ShortcutID& id, const ShortcutID& ancestor) const
    {
        for (const Entry* entry = find(id); entry != nullptr;
             entry = entry->parent ? find(entry->parent->id) : nullptr) {
            if (entry->shortcut->id == ancestor) {
                return true;
            }
        }
        return false;
    }

private:
    // The id is kept beside its entry so a probe does not reach into the library.
    struct Slot
    {
        ShortcutID id;
        Entry entry;
    };

    static void countIn(const std::vector<Shortcut>& list, size_t& count)
    {
        count += list.size();
        for (const auto& shortcut : list) {
            countIn(shortcut.target.members(), count);
        }
    }

    void add(const std::vector<Shortcut>& list, const Shortcut* parent)
    {
        for (size_t i = 0; i < list.size(); ++i) {
            insert(list[i].id, Entry{&list[i], parent, static_cast<uint32_t>(i)});
            add(list[i].target.members(), &list[i]);
        }
    }

    // The first of two shortcuts with one id keeps it, as a map's try_emplace would.
    void insert(const ShortcutID& id, const Entry& entry)
    {
        for (size_t at = std::hash<ShortcutID>{}(id)&m_mask;; at = (at + 1) & m_mask) {
            Slot& slot = m_slots[at];
            if (slot.entry.shortcut == nullptr) {
                slot = Slot{id, entry};
                return;
            }
            if (slot.id == id) {
                return;
            }
        }
    }

    std::vector<Slot> m_slots;
    size_t m_mask = 0;
};

// Shortcut ids to a small value, the first insert of an id winning, in one open-addressed block
// that doubles as it fills: a review meets every id of a big bar, and a node apiece costs more
// than the lookups.
template <class Value> class IdTable
{
public:
    void reserve(size_t count)
    {
        if (count * 2 > m_slots.size()) {
            rehash(capacityFor(count));
        }
    }

    // False when the id was already there.
    bool insert(const ShortcutID& id, const Value& value)
    {
        if ((m_size + 1) * 2 > m_slots.size()) {
            rehash(capacityFor(m_size + 1));
        }
        Slot& slot = m_slots[slotOf(id)];
        if (slot.used) {
            return false;
        }
        slot = Slot{id, value, true};
        ++m_size;
        return true;
    }

    size_t size() const { return m_size; }

    const Value* find(const ShortcutID& id) const
    {
        if (m_slots.empty()) {
            return nullptr;
        }
        const Slot& slot = m_slots[slotOf(id)];
        return slot.used ? &slot.value : nullptr;
    }

private:
    struct Slot
    {
        ShortcutID id;
        Value value{};
        bool used = false;
    };

    static size_t capacityFor(size_t count)
    {
        size_t capacity = 16;
        while (capacity < count * 2) {
            capacity *= 2;
        }
        return capacity;
    }

    // The id's slot, or the empty one where it would go.
    size_t slotOf(const ShortcutID& id) const
    {
        const size_t mask = m_slots.size() - 1;
        for (size_t at = std::hash<ShortcutID>{}(id)&mask;; at = (at + 1) & mask) {
            const Slot& slot = m_slots[at];
            if (!slot.used || slot.id == id) {
                return at;
            }
        }
    }

    void rehash(size_t capacity)
    {
        std::vector<Slot> old = std::exchange(m_slots, std::vector<Slot>(capacity));
        for (Slot& slot : old) {
            if (slot.used) {
                m_slots[slotOf(slot.id)] = std::move(slot);
            }
        }
    }

    std::vector<Slot> m_slots;
    size_t m_size = 0;
};

// The shortcuts of a proposed list and of its groups, counted without listing them.
size_t countIn(const std::vector<ProposedShortcut>& list)
{
    size_t count = list.size();
    for (const auto& shortcut : list) {
        count += countIn(shortcut.target.members);
    }
    return count;
}

std::string positionText(std::optional<size_t> position)
{
    return position ? ", at " + std::to_string(*position + 1) : std::string();
}

std::string describe(const LibraryIndex& index, const Placement& placement)
{
    std::string place = "On the bar";
    if (placement.kind == Placement::Kind::Group) {
        if (const auto* group = index.find(placement.group)) {
            place = "In " + quoted(group->shortcut->name);
        }
    }
    std::optional<size_t> position;
    if (placement.position) {
        position = static_cast<size_t>(*placement.position);
    }
    return place + positionText(position);
}

std::string describePlace(const LibraryIndex::Entry* entry)
{
    if (entry == nullptr) {
        return "On the bar";
    }
    std::string place = entry->parent ? "In " + quoted(entry->parent->name) : "On the bar";
    return place + positionText(entry->index);
}

bool isAlready(const LibraryIndex::Entry* entry, const Placement& placement)
{
    if (entry == nullptr) {
        return false;
    }
    bool sameList = placement.kind == Placement::Kind::Top
                        ? entry->parent == nullptr
                        : entry->parent != nullptr && entry->parent->id == placement.group;
    return sameList && (!placement.position || entry->index == size_t(*placement.position));
}

// Field values as the person reads them.
std::string yesNo(bool value)
{
    return value ? "Yes" : "No";
}

std::string iconText(const std::optional<IconOverride>& icon)
{
    if (!icon) {
        return "Its own icon";
    }
    switch (icon->kind) {
    case IconOverride::Kind::Symbol:
        return "Symbol " + icon->text;
    case IconOverride::Kind::Emoji:
        return icon->text;
    case IconOverride::Kind::Image:
        // Pictures are kept as data, so there is no address to show.
        return "A picture";
    }
    return {};
}

std::string tintText(const std::optional<IconTint>& tint)
{
    if (!tint) {
        return "Its own colours";
    }
    return tint->kind == IconTint::Kind::Monochrome ? "Without its colours" : tint->value;
}

std::string percent(double factor)
{
    return std::to_string(static_cast<long long>(std::llround(factor * 100))) + "%";
}

std::string opacityText(const std::optional<double>& opacity)
{
    return opacity ? percent(*opacity) : "100%";
}

std::string kindText(Target::Kind kind)
{
    switch (kind) {
    case Target::Kind::App:
        return "App";
    case Target::Kind::File:
        return "File";
    case Target::Kind::Folder:
        return "Folder";
    case Target::Kind::Url:
        return "Link";
    case Target::Kind::Group:
        return "Group";
    case Target::Kind::Divider:
        return "Divider";
    }
    return {};
}

constexpr std::string_view kFollowsDefault = words::kFollowsDefault;

std::string openModeText(const std::optional<OpenMode>& mode)
{
    return std::string(mode ? readableWord(*mode) : kFollowsDefault);
}

std::string agentText(const URLTarget& url)
{
    if (!url.userAgent) {
        return std::string(kFollowsDefault);
    }
    if (*url.userAgent == BrowserAgent::Custom) {
        return "Custom: " + url.customUserAgent.value_or("");
    }
    return std::string(readableWord(*url.userAgent));
}

std::string appearanceText(const std::optional<PageAppearance>& appearance)
{
    return std::string(appearance ? readableWord(*appearance) : kFollowsDefault);
}

std::string newWindowsText(const std::optional<NewWindowLinks>& links)
{
    if (!links) {
        return std::string(kFollowsDefault);
    }
    switch (*links) {
    case NewWindowLinks::ThisPage:
        return "In this page";
    case NewWindowLinks::NewWindow:
        return "In a new window";
    case NewWindowLinks::Browser:
        return "In the browser";
    }
    return {};
}

std::string membersText(const std::vector<Shortcut>& members)
{
    if (members.empty()) {
        return "None";
    }
    std::string text;
    for (const auto& member : members) {
        if (!text.empty()) {
            text += ", ";
        }
        text += member.target.isDivider() ? "Divider" : member.name;
    }
    return text;
}

using SessionName = std::function<std::string(const SessionID&)>;

std::string accountText(const std::optional<SessionID>& id, const SessionName& name)
{
    return id ? name(*id) : std::string(words::kDefaultAccount);
}

// The path a person would recognise for a target that has one.
std::optional<std::string> pathOf(const Target& target)
{
    if (const auto* file = target.fileTarget()) {
        return file->bookmark.displayPath;
    }
    if (const auto* app = target.appTarget()) {
        return app->bundleID;
    }
    return std::nullopt;
}

// Appends the differences to `changes`.
void differences(const Shortcut& a,
                 const Shortcut& b,
                 const SessionName& name,
                 std::vector<FieldChange>& changes)
{
    auto add = [&](std::string_view field, std::string from, std::string to) {
        changes.push_back({std::string(field), std::move(from), std::move(to)});
    };
    if (a.name != b.name) {
        add("Name", a.name, b.name);
    }
    if (a.icon != b.icon) {
        add("Icon", iconText(a.icon), iconText(b.icon));
    }
    if (a.iconTint != b.iconTint) {
        add("Colour", tintText(a.iconTint), tintText(b.iconTint));
    }
    if (a.iconOpacity != b.iconOpacity) {
        add("Opacity", opacityText(a.iconOpacity), opacityText(b.iconOpacity));
    }
    if (a.isInMenuBar != b.isInMenuBar) {
        add("In the menu bar", yesNo(a.isInMenuBar), yesNo(b.isInMenuBar));
    }
    const Target& ta = a.target;
    const Target& tb = b.target;
    if (ta.kind() != tb.kind()) {
        add("Kind", kindText(ta.kind()), kindText(tb.kind()));
    }
    // A field that the new kind does not have is not shown; the kind's change says enough.
    if (auto to = pathOf(tb); to && pathOf(ta) != to) {
        add("Path", pathOf(ta).value_or("None"), *to);
    }
    if (const auto* fb = tb.fileTarget()) {
        const auto* fa = ta.fileTarget();
        auto openWith = [](const FileTarget* f) {
            return f && f->openWith ? *f->openWith : std::string("The default app");
        };
        if (!fa || fa->openWith != fb->openWith) {
            add("Opens in", openWith(fa), openWith(fb));
        }
    }
    if (tb.isGroup() && ta.members() != tb.members()) {
        std::string from = membersText(ta.members());
        std::string to = membersText(tb.members());
        if (from == to) {
            to += " (changed inside)";
        }
        add("Members", std::move(from), std::move(to));
    }
    if (const auto* ub = tb.urlTarget()) {
        static const URLTarget kNone;
        const auto* found = ta.urlTarget();
        const URLTarget& ua = found ? *found : kNone;
        if (ua.url != ub->url) {
            add("Address", found ? ua.url : "None", ub->url);
        }
        if (ua.templateID != ub->templateID) {
            add("Template", ua.templateID.value_or("None"), ub->templateID.value_or("None"));
        }
        if (ua.openMode != ub->openMode) {
            add(words::kOpens, openModeText(ua.openMode), openModeText(ub->openMode));
        }
        if (ua.isPrivate != ub->isPrivate) {
            add("Private", yesNo(ua.isPrivate), yesNo(ub->isPrivate));
        }
        if (ua.sessionID != ub->sessionID) {
            add(words::kAccount, accountText(ua.sessionID, name), accountText(ub->sessionID, name));
        }
        if (ua.browserBundleID != ub->browserBundleID) {
            add("Browser",
                ua.browserBundleID.value_or("The default browser"),
                ub->browserBundleID.value_or("The default browser"));
        }
        if (ua.userAgent != ub->userAgent
            || (ub->userAgent == BrowserAgent::Custom
                && ua.customUserAgent != ub->customUserAgent)) {
            add(words::kBrowserAgent, agentText(ua), agentText(*ub));
        }
        if (ua.pageAppearance != ub->pageAppearance) {
            add(words::kAppearance,
                appearanceText(ua.pageAppearance),
                appearanceText(ub->pageAppearance));
        }
        if (ua.blocksAds != ub->blocksAds) {
            auto text = [](const std::optional<bool>& v) {
                return v ? yesNo(*v) : std::string(kFollowsDefault);
            };
            add(words::kBlocksAds, text(ua.blocksAds), text(ub->blocksAds));
        }
        if (ua.staysOnTop != ub->staysOnTop) {
            add("Stays on top", yesNo(ua.staysOnTop), yesNo(ub->staysOnTop));
        }
        if (ua.reloadsOnOpen != ub->reloadsOnOpen) {
            add("Reloads on open", yesNo(ua.reloadsOnOpen), yesNo(ub->reloadsOnOpen));
        }
        if (ua.keepsPlaying != ub->keepsPlaying) {
            add("Keeps playing", yesNo(ua.keepsPlaying), yesNo(ub->keepsPlaying));
        }
        if (ua.newWindowLinks != ub->newWindowLinks) {
            add("New windows",
                newWindowsText(ua.newWindowLinks),
                newWindowsText(ub->newWindowLinks));
        }
        if (ua.pageZoom != ub->pageZoom) {
            auto text = [](const std::optional<double>& z) {
                return z ? percent(*z) : std::string(kFollowsDefault);
            };
            add("Zoom", text(ua.pageZoom), text(ub->pageZoom));
        }
    }
}

constexpr const char* kPlaceLabel = "Place";

} // namespace

// Adds a bar review's rows, keeping their names, notes, changes and shortcuts in the bar's store.
class ItemRows
{
public:
    explicit ItemRows(BarReview& bar)
        : m_rows(bar.items)
        , m_store(std::make_shared<ItemStore>())
    {
        bar.m_store = m_store;
    }

    void reserve(size_t rows) { m_rows.reserve(rows); }

    size_t add(const ShortcutID& id, std::string_view name, Target::Kind kind, int depth)
    {
        ItemReview row;
        row.id = id;
        row.kind = kind;
        row.depth = depth;
        row.m_store = m_store.get();
        row.m_name = put(name);
        m_rows.push_back(std::move(row));
        return m_rows.size() - 1;
    }

    ItemReview& operator[](size_t row) { return m_rows[row]; }

    void setName(size_t row, std::string_view name) { m_rows[row].m_name = put(name); }
    void setNote(size_t row, std::string_view note) { m_rows[row].m_note = put(note); }

    void setShortcut(size_t row, Shortcut shortcut)
    {
        auto& chunks = m_store->m_shortcuts;
        if (chunks.empty() || chunks.back().size() == ItemStore::kChunk) {
            chunks.emplace_back().reserve(ItemStore::kChunk);
        }
        chunks.back().push_back(std::move(shortcut));
        m_rows[row].m_shortcut = static_cast<uint32_t>((chunks.size() - 1) * ItemStore::kChunk
                                                       + chunks.back().size() - 1);
    }

    // A row's changes are appended between the two calls, nothing else's in between.
    std::vector<FieldChange>& beginChanges(size_t row)
    {
        m_rows[row].m_changes = static_cast<uint32_t>(m_store->m_changes.size());
        return m_store->m_changes;
    }
    void endChanges(size_t row)
    {
        ItemReview& item = m_rows[row];
        item.m_changeCount = static_cast<uint32_t>(m_store->m_changes.size() - item.m_changes);
    }

private:
    ItemReview::Text put(std::string_view text)
    {
        ItemReview::Text range{static_cast<uint32_t>(m_store->m_text.size()),
                               static_cast<uint32_t>(text.size())};
        m_store->m_text += text;
        return range;
    }

    std::vector<ItemReview>& m_rows;
    std::shared_ptr<ItemStore> m_store;
};

namespace {

class Reviewer
{
public:
    Reviewer(const Proposal& proposal, const LibrarySnapshot& snapshot, const Reach& reach)
        : m_proposal(proposal)
        , m_snapshot(snapshot)
        , m_reach(reach)
        , m_sessions(snapshot.sessions)
    {
        for (const auto& bar : snapshot.bars) {
            m_bars.try_emplace(bar.id, &bar);
        }
        for (size_t i = 0; i < m_sessions.size(); ++i) {
            m_sessionIndex.try_emplace(m_sessions[i].id, i);
            m_sessionByName.try_emplace(folded(m_sessions[i].name), i);
        }
    }

    ProposalReview run()
    {
        reviewSessions();
        reviewSessionRemovals();
        for (const auto& bar : m_proposal.bars) {
            reviewBar(bar);
        }
        reviewBarRemovals();
        reviewBarRenames();
        reviewMoves();
        return std::move(m_review);
    }

private:
    struct Destination
    {
        const Library* library = nullptr;
        const LibraryIndex* index = nullptr;
    };

    std::string sessionName(const SessionID& id) const
    {
        auto it = m_sessionIndex.find(id);
        return it == m_sessionIndex.end() ? "Unknown account" : m_sessions[it->second].name;
    }

    const LibraryIndex& indexOf(const Library& library)
    {
        auto it = m_indexes.find(&library);
        if (it == m_indexes.end()) {
            it = m_indexes.try_emplace(&library, library).first;
        }
        return it->second;
    }

    const Library* libraryOf(const BarID& id) const { return m_snapshot.library(id); }

    // Which bar holds each shortcut, over every bar; built when first needed.
    const IdTable<BarID>& everywhere()
    {
        if (!m_everywhere) {
            m_everywhere.emplace();
            std::vector<std::pair<const Bar*, std::vector<const Shortcut*>>> bars;
            size_t count = 0;
            for (const auto& bar : m_snapshot.bars) {
                if (const Library* library = libraryOf(bar.id)) {
                    bars.emplace_back(&bar, library->allShortcuts());
                    count += bars.back().second.size();
                }
            }
            m_everywhere->reserve(count);
            for (const auto& [bar, shortcuts] : bars) {
                for (const Shortcut* s : shortcuts) {
                    m_everywhere->insert(s->id, bar->id);
                }
            }
        }
        return *m_everywhere;
    }

    // Whether a bar other than the one `index` covers holds the id. Asked only of ids that bar
    // lacks, so a proposal for the only bar builds no table of every shortcut.
    bool isOnAnotherBar(const ShortcutID& id, const LibraryIndex& index)
    {
        for (const auto& bar : m_snapshot.bars) {
            if (const Library* library = libraryOf(bar.id)) {
                const LibraryIndex& other = indexOf(*library);
                if (&other != &index && other.find(id) != nullptr) {
                    return true;
                }
            }
        }
        return false;
    }

    int linksUsing(const SessionID& session)
    {
        if (!m_usage) {
            m_usage.emplace();
            for (const auto& [id, library] : m_snapshot.libraries) {
                for (const Shortcut* s : library.allShortcuts()) {
                    if (const auto* url = s->target.urlTarget(); url && url->sessionID) {
                        ++(*m_usage)[*url->sessionID];
                    }
                }
            }
        }
        auto it = m_usage->find(session);
        return it == m_usage->end() ? 0 : it->second;
    }

    void reviewSessions()
    {
        std::unordered_set<SessionID> taken;
        for (const auto& proposed : m_proposal.sessions) {
            if (!taken.insert(proposed.id).second) {
                continue;
            }
            std::string name(trimmed(proposed.name));
            SessionReview row{proposed.id, proposed, {}};
            if (auto it = m_sessionIndex.find(proposed.id); it != m_sessionIndex.end()) {
                Session& current = m_sessions[it->second];
                if (!name.empty() && name != current.name) {
                    row.verdict.kind = SessionReview::Verdict::Kind::Renamed;
                    row.verdict.from = current.name;
                    current.name = name;
                    m_sessionByName.try_emplace(folded(name), it->second);
                } else {
                    row.verdict.kind = SessionReview::Verdict::Kind::Unchanged;
                }
                row.session = current;
            } else if (auto named = name.empty() ? m_sessionByName.end()
                                                 : m_sessionByName.find(folded(name));
                       named != m_sessionByName.end()) {
                const Session& existing = m_sessions[named->second];
                row.verdict.kind = SessionReview::Verdict::Kind::MatchedByName;
                row.session = existing;
                m_sessionMap[proposed.id] = existing.id;
            } else {
                row.verdict.kind = SessionReview::Verdict::Kind::Added;
                row.session =
                    Session{proposed.id, name.empty() ? "Session" : name, proposed.colour};
                m_sessions.push_back(row.session);
                m_sessionIndex.try_emplace(proposed.id, m_sessions.size() - 1);
                m_sessionByName.try_emplace(folded(row.session.name), m_sessions.size() - 1);
            }
            m_review.sessions.push_back(std::move(row));
        }
    }

    void reviewSessionRemovals()
    {
        std::unordered_map<SessionID, const Session*> existing;
        for (const auto& session : m_snapshot.sessions) {
            existing.try_emplace(session.id, &session);
        }
        std::unordered_set<SessionID> brought;
        for (const auto& session : m_proposal.sessions) {
            brought.insert(session.id);
        }
        std::unordered_set<SessionID> taken;
        for (const auto& id : m_proposal.removeSessions) {
            if (!taken.insert(id).second) {
                continue;
            }
            SessionReview row{id, Session{id, {}, {}}, {}};
            auto it = existing.find(id);
            if (it == existing.end()) {
                row.verdict.kind = SessionReview::Verdict::Kind::Refused;
                row.verdict.refusal = Refusal::UnknownSession;
            } else if (brought.contains(id)) {
                row.session = *it->second;
                row.verdict.kind = SessionReview::Verdict::Kind::Refused;
                row.verdict.refusal = Refusal::Duplicate;
            } else {
                row.session = *it->second;
                row.verdict.kind = SessionReview::Verdict::Kind::Removed;
                row.verdict.shortcutCount = linksUsing(id);
            }
            m_review.sessions.push_back(std::move(row));
        }
    }

    void reviewBar(const ProposedBar& proposed)
    {
        BarReview bar;
        bar.destination = proposed.destination;
        const Library* library = nullptr;
        switch (proposed.destination.kind) {
        case BarDestination::Kind::Active:
            if (m_snapshot.activeBarID) {
                library = libraryOf(*m_snapshot.activeBarID);
            }
            if (library) {
                bar.barID = m_snapshot.activeBarID;
                auto it = m_bars.find(*m_snapshot.activeBarID);
                bar.name = it == m_bars.end() ? std::string() : it->second->name;
            } else {
                bar.refusal = Refusal::UnknownBar;
            }
            break;
        case BarDestination::Kind::Existing:
            bar.barID = proposed.destination.id;
            if (m_bars.contains(proposed.destination.id)) {
                library = libraryOf(proposed.destination.id);
            }
            if (library) {
                bar.name = m_bars.at(proposed.destination.id)->name;
            } else {
                bar.refusal = Refusal::UnknownBar;
            }
            break;
        case BarDestination::Kind::New:
            // The store refuses to make a bar without a name, so the review does too.
            bar.name = trimmed(proposed.destination.name);
            if (bar.name.empty()) {
                bar.refusal = Refusal::EmptyName;
            } else {
                bar.isNew = true;
                library = &m_emptyLibrary;
            }
            break;
        }
        if (bar.refusal) {
            m_review.bars.push_back(std::move(bar));
            return;
        }
        const LibraryIndex& index = indexOf(*library);
        const size_t proposedCount = countIn(proposed.shortcuts);
        ItemRows rows(bar);
        rows.reserve(proposedCount + proposed.removals.size());
        m_seen.reserve(m_seen.size() + proposedCount);
        for (const auto& shortcut : proposed.shortcuts) {
            reviewShortcut(shortcut, 0, nullptr, index, rows);
        }
        reviewRemovals(proposed.removals, index, rows);
        m_review.bars.push_back(std::move(bar));
    }

    // Adds the shortcut's row and its members' rows; answers what its group would hold of it.
    std::optional<Shortcut> reviewShortcut(const ProposedShortcut& proposed,
                                           int depth,
                                           const ProposedShortcut* parent,
                                           const LibraryIndex& index,
                                           ItemRows& rows)
    {
        const size_t at = rows.add(proposed.id, proposed.name, proposed.target.kind, depth);
        rows[at].placement = depth == 0 ? proposed.placement : std::nullopt;

        std::optional<Refusal> refusal;
        if (!m_seen.insert(proposed.id, true)) {
            refusal = Refusal::Duplicate;
        } else if (!proposed.isDivider() && trimmed(proposed.name).empty()) {
            refusal = Refusal::EmptyName;
        }
        const auto* existingEntry = index.find(proposed.id);
        const Shortcut* existing = existingEntry ? existingEntry->shortcut : nullptr;
        // Copied: the members' rows below may move the vector.
        const std::optional<Placement> placement = rows[at].placement;
        if (!refusal && placement && placement->kind == Placement::Kind::Group) {
            const auto* group = index.find(placement->group);
            if (group == nullptr) {
                refusal = Refusal::UnknownGroup;
            } else if (!group->shortcut->target.isGroup()) {
                refusal = Refusal::NotAGroup;
            } else if (index.isSelfOrInside(placement->group, proposed.id)) {
                refusal = Refusal::GroupInsideItself;
            }
        }

        Target target;
        std::optional<std::string> unreachable;
        const ProposedTarget& pt = proposed.target;
        switch (pt.kind) {
        case Target::Kind::App: {
            AppTarget app{pt.bundleID, std::nullopt};
            if (existing) {
                if (const auto* old = existing->target.appTarget();
                    old && old->bundleID == app.bundleID) {
                    app.bookmark = old->bookmark;
                }
            }
            target = Target::app(std::move(app));
            break;
        }
        case Target::Kind::File:
        case Target::Kind::Folder: {
            auto bookmark = resolve(pt, existing);
            if (!bookmark) {
                unreachable = pt.path;
            }
            FileTarget file{bookmark.value_or(Bookmark{{}, pt.path}), pt.openWith};
            target = pt.kind == Target::Kind::File ? Target::file(std::move(file))
                                                   : Target::folder(std::move(file));
            break;
        }
        case Target::Kind::Url: {
            URLTarget url = pt.url;
            if (url.sessionID) {
                if (auto mapped = m_sessionMap.find(*url.sessionID); mapped != m_sessionMap.end()) {
                    url.sessionID = mapped->second;
                }
                // A link never names an account that would not exist; it falls back to the default.
                if (!m_sessionIndex.contains(*url.sessionID)) {
                    url.sessionID.reset();
                }
            }
            // Documents made for another computer leave out where pages were; keep ours.
            if (!url.lastVisitedURL && existing) {
                if (const auto* old = existing->target.urlTarget()) {
                    url.lastVisitedURL = old->lastVisitedURL;
                }
            }
            target = Target::url(std::move(url));
            break;
        }
        case Target::Kind::Group: {
            std::vector<Shortcut> members;
            members.reserve(pt.members.size());
            for (const auto& member : pt.members) {
                if (auto kept = reviewShortcut(member, depth + 1, &proposed, index, rows)) {
                    members.push_back(std::move(*kept));
                }
            }
            target = Target::group(std::move(members));
            break;
        }
        case Target::Kind::Divider:
            break;
        }

        ItemReview& row = rows[at];
        // Only a group reads what its members keep; a top-level row's copy would be thrown away.
        const bool kept = depth > 0;
        if (refusal) {
            row.verdict = Verdict::refused(*refusal);
            // A member that stays as it is keeps its place in a group written around it.
            return kept && refusal != Refusal::Duplicate && existing
                       ? std::optional<Shortcut>(*existing)
                       : std::nullopt;
        }
        if (unreachable) {
            row.verdict = Verdict::needsAccess(*unreachable);
            rows.setNote(at, kNotReachedNote);
            return kept && existing ? std::optional<Shortcut>(*existing) : std::nullopt;
        }
        Shortcut shortcut{proposed.id,
                          proposed.name,
                          std::move(target),
                          proposed.icon,
                          proposed.iconTint,
                          proposed.iconOpacity,
                          proposed.isInMenuBar};
        if (!existing) {
            // Ids are unique across bars: one that stands on another bar is written as a copy.
            if (isOnAnotherBar(shortcut.id, index)) {
                shortcut.id = ShortcutID::make();
            }
            row.verdict = Verdict::added();
            return written(rows, at, std::move(shortcut), kept);
        }
        std::vector<FieldChange>& changes = rows.beginChanges(at);
        differences(
            *existing, shortcut, [this](const SessionID& id) { return sessionName(id); }, changes);
        if (depth == 0 && placement && !isAlready(existingEntry, *placement)) {
            changes.push_back(
                {kPlaceLabel, describePlace(existingEntry), describe(index, *placement)});
        } else if (depth > 0
                   && (!existingEntry->parent || existingEntry->parent->id != parent->id)) {
            changes.push_back(
                {kPlaceLabel, describePlace(existingEntry), "In " + quoted(parent->name)});
        }
        rows.endChanges(at);
        const auto made = row.changes();
        if (made.empty()) {
            row.verdict = Verdict::unchanged();
            return kept ? std::optional<Shortcut>(*existing) : std::nullopt;
        }
        bool onlyPlace = made.size() == 1 && made.front().field == kPlaceLabel;
        row.verdict = onlyPlace ? Verdict::moved() : Verdict::changed();
        return written(rows, at, std::move(shortcut), kept);
    }

    static std::optional<Shortcut> written(ItemRows& rows, size_t at, Shortcut shortcut, bool kept)
    {
        if (!kept) {
            rows.setShortcut(at, std::move(shortcut));
            return std::nullopt;
        }
        rows.setShortcut(at, shortcut);
        return shortcut;
    }

    // The access a proposed file or folder gets: the one it already has, or, inside a granted
    // folder, its own grant or the folder's. A grant the proposal brings is never enough on its
    // own: an assistant could bring one for any file.
    std::optional<Bookmark> resolve(const ProposedTarget& target, const Shortcut* existing) const
    {
        const bool reached = m_reach && m_reach(target.path);
        if (reached && target.bookmark
            && (target.bookmark->displayPath.empty()
                || target.bookmark->displayPath == target.path)) {
            Bookmark bookmark = *target.bookmark;
            bookmark.displayPath = target.path;
            return bookmark;
        }
        if (existing) {
            if (const auto* file = existing->target.fileTarget();
                file && file->bookmark.displayPath == target.path) {
                return file->bookmark;
            }
        }
        if (reached) {
            // The folder's grant covers the file; the file's own identity is taken when opened.
            return Bookmark{{}, target.path};
        }
        return std::nullopt;
    }

    void reviewRemovals(const std::vector<ShortcutID>& removals,
                        const LibraryIndex& index,
                        ItemRows& rows)
    {
        // Ids on the bar are marked in its index rather than gathered in a table of their own:
        // a big table freed at the heap's top would be handed back and faulted in again.
        std::unordered_set<ShortcutID> unknown;
        for (const auto& id : removals) {
            const auto* entry = index.find(id);
            if (entry == nullptr) {
                if (unknown.insert(id).second) {
                    const size_t at = rows.add(id, {}, Target::Kind::Divider, 0);
                    rows[at].verdict = Verdict::refused(Refusal::UnknownShortcut);
                }
                continue;
            }
            if (std::exchange(entry->isMarked, true)) {
                continue;
            }
            const size_t at = rows.add(id, {}, Target::Kind::Divider, 0);
            ItemReview& row = rows[at];
            const Shortcut& shortcut = *entry->shortcut;
            rows.setName(at, shortcut.name);
            row.kind = shortcut.target.kind();
            row.verdict = Verdict::removed();
            size_t inside = Library::flatten(shortcut.target.members()).size();
            if (inside == 1) {
                rows.setNote(at, "The item inside it goes too.");
            } else if (inside > 1) {
                rows.setNote(at, "The " + std::to_string(inside) + " items inside it go too.");
            }
        }
        for (const auto& id : removals) {
            if (const auto* entry = index.find(id)) {
                entry->isMarked = false;
            }
        }
    }

    void reviewBarRemovals()
    {
        size_t remaining = m_snapshot.bars.size();
        std::unordered_set<BarID> taken;
        for (const auto& id : m_proposal.removeBars) {
            if (!taken.insert(id).second) {
                continue;
            }
            BarRemovalReview row{id, {}, 0, {}};
            auto it = m_bars.find(id);
            if (it == m_bars.end()) {
                row.verdict = Verdict::refused(Refusal::UnknownBar);
            } else {
                row.name = it->second->name;
                if (const Library* library = libraryOf(id)) {
                    row.shortcutCount = static_cast<int>(library->allShortcuts().size());
                }
                if (remaining >= 2) {
                    row.verdict = Verdict::removed();
                    --remaining;
                } else {
                    row.verdict = Verdict::refused(Refusal::LastBar);
                }
            }
            m_review.barRemovals.push_back(std::move(row));
        }
    }

    void reviewBarRenames()
    {
        std::unordered_set<BarID> taken;
        for (const auto& rename : m_proposal.renameBars) {
            if (!taken.insert(rename.id).second) {
                continue;
            }
            BarRenameReview row{rename.id, {}, std::string(trimmed(rename.name)), {}};
            auto it = m_bars.find(rename.id);
            if (it == m_bars.end()) {
                row.verdict = Verdict::refused(Refusal::UnknownBar);
            } else {
                row.from = it->second->name;
                if (row.to.empty()) {
                    row.verdict = Verdict::refused(Refusal::EmptyName);
                } else if (row.to == row.from) {
                    row.verdict = Verdict::unchanged();
                } else {
                    row.verdict = Verdict::changed();
                }
            }
            m_review.barRenames.push_back(std::move(row));
        }
    }

    void reviewMoves()
    {
        std::unordered_set<ShortcutID> taken;
        for (const auto& move : m_proposal.moves) {
            MoveReview row{move.id, {}, Target::Kind::Divider, {}, {}, move.to, {}, {}};
            std::optional<Refusal> refusal;
            if (!taken.insert(move.id).second) {
                refusal = Refusal::Duplicate;
            }
            // Where it is now.
            const Shortcut* shortcut = nullptr;
            if (move.from) {
                row.fromBar = move.from;
                const Library* library =
                    m_bars.contains(*move.from) ? libraryOf(*move.from) : nullptr;
                if (!library) {
                    refusal = refusal.value_or(Refusal::UnknownBar);
                } else if (const auto* entry = indexOf(*library).find(move.id)) {
                    shortcut = entry->shortcut;
                }
            } else if (const BarID* holder = everywhere().find(move.id)) {
                row.fromBar = *holder;
                shortcut = indexOf(*libraryOf(*holder)).find(move.id)->shortcut;
            }
            if (row.fromBar && m_bars.contains(*row.fromBar)) {
                row.fromName = m_bars.at(*row.fromBar)->name;
            }
            if (shortcut) {
                row.name = shortcut->name;
                row.kind = shortcut->target.kind();
            } else {
                refusal = refusal.value_or(Refusal::UnknownShortcut);
            }
            // Where it goes.
            std::optional<BarID> toBar;
            switch (move.to.kind) {
            case BarDestination::Kind::Active:
                if (m_snapshot.activeBarID && libraryOf(*m_snapshot.activeBarID)) {
                    toBar = m_snapshot.activeBarID;
                }
                break;
            case BarDestination::Kind::Existing:
                if (m_bars.contains(move.to.id) && libraryOf(move.to.id)) {
                    toBar = move.to.id;
                }
                break;
            case BarDestination::Kind::New:
                row.toName = trimmed(move.to.name);
                if (row.toName.empty()) {
                    refusal = refusal.value_or(Refusal::EmptyName);
                }
                break;
            }
            if (toBar) {
                row.toName = m_bars.contains(*toBar) ? m_bars.at(*toBar)->name : std::string();
            } else if (!move.to.isNew()) {
                refusal = refusal.value_or(Refusal::UnknownBar);
            }
            if (refusal) {
                row.verdict = Verdict::refused(*refusal);
            } else if (toBar && toBar == row.fromBar) {
                row.verdict = Verdict::unchanged();
            } else {
                row.verdict = Verdict::moved();
            }
            m_review.moves.push_back(std::move(row));
        }
    }

    const Proposal& m_proposal;
    const LibrarySnapshot& m_snapshot;
    const Reach& m_reach;
    ProposalReview m_review;
    Library m_emptyLibrary;

    std::unordered_map<BarID, const Bar*> m_bars;
    std::vector<Session> m_sessions;
    std::unordered_map<SessionID, size_t> m_sessionIndex;
    std::unordered_map<std::string, size_t> m_sessionByName;
    std::unordered_map<SessionID, SessionID> m_sessionMap;
    IdTable<bool> m_seen;
    std::unordered_map<const Library*, LibraryIndex> m_indexes;
    std::optional<IdTable<BarID>> m_everywhere;
    std::optional<std::unordered_map<SessionID, int>> m_usage;
};

std::string counted(int count, const char* singular, const char* plural)
{
    return std::to_string(count) + " " + (count == 1 ? singular : plural);
}

} // namespace

std::string_view description(Refusal refusal)
{
    switch (refusal) {
    case Refusal::UnknownBar:
        return "The bar it names is not here.";
    case Refusal::UnknownGroup:
        return "The group it should go in is not on this bar.";
    case Refusal::NotAGroup:
        return "What it should go in is not a group.";
    case Refusal::GroupInsideItself:
        return "A group cannot go inside itself.";
    case Refusal::EmptyName:
        return "It has no name.";
    case Refusal::Duplicate:
        return "The document mentions it twice.";
    case Refusal::UnknownShortcut:
        return "There is nothing with this id on the bar.";
    case Refusal::LastBar:
        return "The last bar stays; there would be nowhere to put a shortcut.";
    case Refusal::UnknownSession:
        return "There is no account with this id.";
    }
    return {};
}

std::string_view word(Verdict::Kind kind)
{
    switch (kind) {
    case Verdict::Kind::Added:
        return "added";
    case Verdict::Kind::Changed:
        return "changed";
    case Verdict::Kind::Moved:
        return "moved";
    case Verdict::Kind::Removed:
        return "removed";
    case Verdict::Kind::Unchanged:
        return "unchanged";
    case Verdict::Kind::NeedsAccess:
        return "needsAccess";
    case Verdict::Kind::Refused:
        return "refused";
    }
    return {};
}

bool ItemReview::operator==(const ItemReview& other) const
{
    auto same = [](const Shortcut* a, const Shortcut* b) { return a ? b && *a == *b : !b; };
    auto changes = this->changes();
    auto otherChanges = other.changes();
    return id == other.id && kind == other.kind && depth == other.depth && verdict == other.verdict
           && placement == other.placement && name() == other.name() && note() == other.note()
           && same(shortcut(), other.shortcut())
           && std::equal(changes.begin(), changes.end(), otherChanges.begin(), otherChanges.end());
}

bool BarReview::operator==(const BarReview& other) const
{
    return destination == other.destination && name == other.name && barID == other.barID
           && isNew == other.isNew && refusal == other.refusal && items == other.items;
}

bool BarReview::writes() const
{
    return isEmptyNewBar() || std::any_of(items.begin(), items.end(), [](const ItemReview& item) {
               return item.verdict.writes();
           });
}

bool BarReview::isEmptyNewBar() const
{
    return isNew && !refusal && items.empty();
}

std::vector<const ItemReview*> ProposalReview::items() const
{
    std::vector<const ItemReview*> out;
    for (const auto& bar : bars) {
        for (const auto& item : bar.items) {
            out.push_back(&item);
        }
    }
    return out;
}

std::vector<Session> ProposalReview::sessionsToWrite() const
{
    std::vector<Session> out;
    for (const auto& row : sessions) {
        if (row.verdict.writes() && !row.verdict.isRemoval()) {
            out.push_back(row.session);
        }
    }
    return out;
}

std::vector<SessionID> ProposalReview::sessionsToRemove() const
{
    std::vector<SessionID> out;
    for (const auto& row : sessions) {
        if (row.verdict.isRemoval()) {
            out.push_back(row.id);
        }
    }
    return out;
}

int ProposalReview::count(Verdict::Kind kind) const
{
    int n = 0;
    for (const auto& bar : bars) {
        n += static_cast<int>(
            std::count_if(bar.items.begin(), bar.items.end(), [&](const ItemReview& i) {
                return i.verdict.kind == kind;
            }));
    }
    auto add = [&](const auto& rows) {
        for (const auto& row : rows) {
            n += row.verdict.kind == kind ? 1 : 0;
        }
    };
    add(barRemovals);
    add(barRenames);
    add(moves);
    return n;
}

bool ProposalReview::hasWork() const
{
    auto writes = [](const auto& row) { return row.verdict.writes(); };
    return std::any_of(sessions.begin(), sessions.end(), writes)
           || std::any_of(bars.begin(), bars.end(), [](const BarReview& b) { return b.writes(); })
           || std::any_of(barRemovals.begin(), barRemovals.end(), writes)
           || std::any_of(barRenames.begin(), barRenames.end(), writes)
           || std::any_of(moves.begin(), moves.end(), writes);
}

bool ProposalReview::isEmpty() const
{
    return sessions.empty()
           && std::all_of(
               bars.begin(),
               bars.end(),
               [](const BarReview& b) { return b.items.empty() && !b.refusal && !b.isNew; })
           && barRemovals.empty() && barRenames.empty() && moves.empty();
}

ProposalReview review(const Proposal& proposal, const LibrarySnapshot& snapshot, const Reach& reach)
{
    return Reviewer(proposal, snapshot, reach).run();
}

ReviewSummary ReviewSummary::of(const ProposalReview& review)
{
    ReviewSummary s;
    for (const auto& bar : review.bars) {
        for (const auto& item : bar.items) {
            switch (item.verdict.kind) {
            case Verdict::Kind::Added:
                ++s.added;
                break;
            case Verdict::Kind::Changed:
                ++s.changed;
                break;
            case Verdict::Kind::Moved:
                ++s.moved;
                break;
            case Verdict::Kind::Removed:
                ++s.removed;
                break;
            case Verdict::Kind::Unchanged:
                ++s.unchanged;
                break;
            case Verdict::Kind::NeedsAccess:
                ++s.needsAccess;
                break;
            case Verdict::Kind::Refused:
                ++s.refused;
                break;
            }
        }
    }
    for (const auto& row : review.sessions) {
        using Kind = SessionReview::Verdict::Kind;
        if (row.verdict.kind == Kind::Added) {
            ++s.accountsToAdd;
        } else if (row.verdict.kind == Kind::Renamed) {
            ++s.accountsToRename;
        } else if (row.verdict.kind == Kind::Removed) {
            ++s.accountsToRemove;
            s.linksToDefaultAccount += row.verdict.shortcutCount;
        }
    }
    // One bar is made per distinct new name, whether shortcuts are placed or moved onto it.
    std::unordered_set<std::string> newBars;
    for (const auto& bar : review.bars) {
        if (bar.isNew && bar.writes()) {
            newBars.insert(bar.name);
        }
    }
    for (const auto& move : review.moves) {
        if (move.verdict.writes()) {
            ++s.toAnotherBar;
            if (move.to.isNew()) {
                newBars.insert(move.toName);
            }
        }
    }
    s.barsToMake = static_cast<int>(newBars.size());
    for (const auto& row : review.barRenames) {
        s.barsToRename += row.verdict.writes() ? 1 : 0;
    }
    for (const auto& row : review.barRemovals) {
        s.barsToRemove += row.verdict.writes() ? 1 : 0;
    }
    return s;
}

std::vector<std::string> ReviewSummary::phrases() const
{
    std::vector<std::string> out;
    auto phrase = [&](int count, const char* singular, const char* plural) {
        if (count > 0) {
            out.push_back(counted(count, singular, plural));
        }
    };
    phrase(added, "shortcut to add", "shortcuts to add");
    phrase(changed, "shortcut to change", "shortcuts to change");
    phrase(moved, "shortcut to move", "shortcuts to move");
    phrase(removed, "shortcut to remove", "shortcuts to remove");
    phrase(accountsToAdd, "account to add", "accounts to add");
    phrase(accountsToRename, "account to rename", "accounts to rename");
    phrase(accountsToRemove, "account to remove", "accounts to remove");
    phrase(barsToMake, "bar to make", "bars to make");
    phrase(barsToRename, "bar to rename", "bars to rename");
    phrase(barsToRemove, "bar to remove", "bars to remove");
    phrase(toAnotherBar, "to move to another bar", "to move to another bar");
    phrase(linksToDefaultAccount,
           "link goes back to the default account",
           "links go back to the default account");
    phrase(needsAccess, "left out without access", "left out without access");
    phrase(refused, "that cannot be done", "that cannot be done");
    return out;
}

std::string summaryLine(const ProposalReview& review)
{
    if (review.isEmpty()) {
        return kMentionsNothing;
    }
    if (!review.hasWork()) {
        return kNothingToDo;
    }
    std::string line;
    for (const auto& phrase : ReviewSummary::of(review).phrases()) {
        line += line.empty() ? phrase : ", " + phrase;
    }
    return line;
}

bool isAlready(const Library& library, const ShortcutID& id, const Placement& placement)
{
    return isAlready(LibraryIndex(library).find(id), placement);
}

std::string describe(const Library& library, const Placement& placement)
{
    return describe(LibraryIndex(library), placement);
}

std::string describePlace(const Library& library, const ShortcutID& id)
{
    return describePlace(LibraryIndex(library).find(id));
}

std::vector<FieldChange> ShortcutDifference::changes(const Shortcut& from,
                                                     const Shortcut& to,
                                                     const std::vector<Session>& sessions)
{
    std::vector<FieldChange> changes;
    differences(
        from,
        to,
        [&](const SessionID& id) {
            for (const auto& session : sessions) {
                if (session.id == id) {
                    return session.name;
                }
            }
            return std::string("Unknown account");
        },
        changes);
    return changes;
}

} // namespace kit::proposal
