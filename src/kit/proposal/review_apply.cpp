// SPDX-License-Identifier: MIT
#include "kit/proposal/proposal_review.h"

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <unordered_set>

namespace kit::proposal {

using namespace kit::library;

namespace {

void collectDescendants(const Shortcut& shortcut, std::unordered_set<ShortcutID>& out)
{
    for (const auto& member : shortcut.target.members()) {
        out.insert(member.id);
        collectDescendants(member, out);
    }
}

// Writes one bar's rows in order. Replacements in place, appends at the end and removals do not
// depend on where anything stands, so runs of them are gathered and done in one walk of the tree;
// a row with a placement first settles what is gathered, then goes through the library's own
// operations.
class BarWriter
{
public:
    explicit BarWriter(Library& library)
        : m_library(library)
    {}

    void replace(const Shortcut& shortcut)
    {
        settleRemovals();
        collectDescendants(shortcut, m_relocated);
        m_replacements.try_emplace(shortcut.id, &shortcut);
    }

    void append(const Shortcut& shortcut)
    {
        settleRemovals();
        collectDescendants(shortcut, m_relocated);
        m_appends.push_back(&shortcut);
    }

    void remove(const ShortcutID& id)
    {
        settleWrites();
        m_removals.insert(id);
    }

    void place(const Shortcut& shortcut, const Placement& placement, bool isNew)
    {
        settleRemovals();
        collectDescendants(shortcut, m_relocated);
        settleWrites();
        std::optional<size_t> position;
        if (placement.position) {
            position = static_cast<size_t>(*placement.position);
        }
        if (isNew) {
            if (placement.kind == Placement::Kind::Group) {
                try {
                    m_library.addMember(shortcut, placement.group, position);
                    return;
                } catch (const LibraryError&) {
                    // The group went away since the review; the shortcut is not lost.
                }
            }
            m_library.add(shortcut);
            if (placement.kind == Placement::Kind::Top && position) {
                m_library.move(shortcut.id, Library::OutlineDestination{std::nullopt, *position});
            }
            return;
        }
        m_library.update(shortcut);
        m_library.move(
            shortcut.id,
            Library::OutlineDestination{placement.groupID(),
                                        position.value_or(std::numeric_limits<size_t>::max())});
    }

    // Shortcuts already on the bar, none of them a group, each placed at the end of a group or of
    // the top level: the common shape of "move these into that group". Done in two walks of the
    // tree when the moves cannot interfere with each other, one by one otherwise.
    struct Append
    {
        const Shortcut* shortcut;
        std::optional<ShortcutID> group;
    };

    void appendAll(const std::vector<Append>& run)
    {
        settleRemovals();
        for (const auto& append : run) {
            collectDescendants(*append.shortcut, m_relocated);
        }
        settleWrites();
        if (!canAppendTogether(run)) {
            for (const auto& append : run) {
                m_library.update(*append.shortcut);
                m_library.move(
                    append.shortcut->id,
                    Library::OutlineDestination{append.group, std::numeric_limits<size_t>::max()});
            }
            return;
        }
        std::unordered_set<ShortcutID> moving;
        for (const auto& append : run) {
            moving.insert(append.shortcut->id);
        }
        auto takeOut = [&](const auto& self, std::vector<Shortcut>& list) -> void {
            std::erase_if(list, [&](const Shortcut& s) { return moving.contains(s.id); });
            for (auto& shortcut : list) {
                if (auto* group = shortcut.target.groupTarget()) {
                    self(self, group->members);
                }
            }
        };
        takeOut(takeOut, m_library.shortcuts);
        std::unordered_map<ShortcutID, std::vector<const Shortcut*>> intoGroups;
        for (const auto& append : run) {
            if (append.group) {
                intoGroups[*append.group].push_back(append.shortcut);
            }
        }
        auto putIn = [&](const auto& self, std::vector<Shortcut>& list) -> void {
            for (auto& shortcut : list) {
                if (auto* group = shortcut.target.groupTarget()) {
                    self(self, group->members);
                    if (auto it = intoGroups.find(shortcut.id); it != intoGroups.end()) {
                        for (const Shortcut* member : it->second) {
                            group->members.push_back(*member);
                        }
                    }
                }
            }
        };
        if (!intoGroups.empty()) {
            putIn(putIn, m_library.shortcuts);
        }
        for (const auto& append : run) {
            if (!append.group) {
                m_library.shortcuts.push_back(*append.shortcut);
            }
        }
    }

    void finish()
    {
        settleWrites();
        settleRemovals();
    }

private:
    void settleWrites()
    {
        if (m_replacements.empty() && m_relocated.empty() && m_appends.empty()) {
            return;
        }
        walk(m_library.shortcuts);
        for (const Shortcut* shortcut : m_appends) {
            m_library.shortcuts.push_back(*shortcut);
        }
        m_replacements.clear();
        m_relocated.clear();
        m_appends.clear();
    }

    // Members a written group brings are taken from wherever they stood; a replaced shortcut is
    // not walked into, since what it holds now is what the review wrote.
    void walk(std::vector<Shortcut>& list)
    {
        if (!m_relocated.empty()) {
            std::erase_if(list, [&](const Shortcut& s) { return m_relocated.contains(s.id); });
        }
        for (auto& shortcut : list) {
            if (auto it = m_replacements.find(shortcut.id); it != m_replacements.end()) {
                shortcut = *it->second;
            } else if (auto* group = shortcut.target.groupTarget()) {
                walk(group->members);
            }
        }
    }

    void settleRemovals()
    {
        if (!m_removals.empty()) {
            removeFrom(m_library.shortcuts);
            m_removals.clear();
        }
    }

    void removeFrom(std::vector<Shortcut>& list)
    {
        std::erase_if(list, [&](const Shortcut& s) { return m_removals.contains(s.id); });
        for (auto& shortcut : list) {
            if (auto* group = shortcut.target.groupTarget()) {
                removeFrom(group->members);
            }
        }
    }

    // True when every shortcut of the run stands on the bar once, outside the others, and every
    // group it goes into stands outside all of them: then the order of the moves cannot matter
    // beyond the order of the appends.
    bool canAppendTogether(const std::vector<Append>& run) const
    {
        std::unordered_map<ShortcutID, int> found;
        std::unordered_set<ShortcutID> groups;
        std::unordered_set<ShortcutID> carried;
        for (const auto& append : run) {
            if (!found.emplace(append.shortcut->id, 0).second) {
                return false;
            }
            if (append.group) {
                groups.insert(*append.group);
            }
            collectDescendants(*append.shortcut, carried);
        }
        std::unordered_set<ShortcutID> groupsFound;
        bool clear = true;
        auto visit = [&](const auto& self, const std::vector<Shortcut>& list, bool inside) -> void {
            for (const auto& shortcut : list) {
                auto it = found.find(shortcut.id);
                bool moving = it != found.end();
                if (moving) {
                    clear = clear && !inside && ++it->second == 1;
                }
                if (groups.contains(shortcut.id)) {
                    clear = clear && !inside && !moving && shortcut.target.isGroup();
                    groupsFound.insert(shortcut.id);
                }
                if (const auto* group = shortcut.target.groupTarget()) {
                    self(self, group->members, inside || moving);
                }
            }
        };
        visit(visit, m_library.shortcuts, false);
        if (!clear || groupsFound.size() != groups.size()) {
            return false;
        }
        for (const auto& [id, count] : found) {
            if (count != 1 || carried.contains(id) || groups.contains(id)) {
                return false;
            }
        }
        return std::none_of(
            groups.begin(), groups.end(), [&](const ShortcutID& g) { return carried.contains(g); });
    }

    Library& m_library;
    std::unordered_map<ShortcutID, const Shortcut*> m_replacements;
    std::unordered_set<ShortcutID> m_relocated;
    std::vector<const Shortcut*> m_appends;
    std::unordered_set<ShortcutID> m_removals;
};

} // namespace

void BarReview::apply(Library& library) const
{
    BarWriter writer(library);
    std::vector<BarWriter::Append> run;
    auto flushRun = [&] {
        if (!run.empty()) {
            writer.appendAll(run);
            run.clear();
        }
    };
    for (const auto& row : items) {
        if (row.depth > 0 || !row.verdict.writes()) {
            continue;
        }
        if (row.verdict.kind == Verdict::Kind::Removed) {
            flushRun();
            writer.remove(row.id);
            continue;
        }
        const Shortcut* shortcut = row.shortcut();
        if (shortcut == nullptr) {
            continue;
        }
        bool isNew = row.verdict.kind == Verdict::Kind::Added;
        bool positioned =
            row.placement
            && (row.placement->kind == Placement::Kind::Group || row.placement->position || !isNew);
        // A group brings members that may be mentioned elsewhere, so it is placed on its own.
        if (positioned && !isNew && !row.placement->position && !shortcut->target.isGroup()) {
            run.push_back({shortcut, row.placement->groupID()});
            continue;
        }
        flushRun();
        if (positioned) {
            writer.place(*shortcut, *row.placement, isNew);
        } else if (isNew) {
            writer.append(*shortcut);
        } else {
            writer.replace(*shortcut);
        }
    }
    flushRun();
    writer.finish();
}

} // namespace kit::proposal
