// SPDX-License-Identifier: MIT
#include "kit/proposal/proposal_review.h"

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
    for (const auto& row : items) {
        if (row.depth > 0 || !row.verdict.writes()) {
            continue;
        }
        if (row.verdict.kind == Verdict::Kind::Removed) {
            writer.remove(row.id);
            continue;
        }
        if (!row.shortcut) {
            continue;
        }
        bool isNew = row.verdict.kind == Verdict::Kind::Added;
        bool positioned =
            row.placement
            && (row.placement->kind == Placement::Kind::Group || row.placement->position || !isNew);
        if (positioned) {
            writer.place(*row.shortcut, *row.placement, isNew);
        } else if (isNew) {
            writer.append(*row.shortcut);
        } else {
            writer.replace(*row.shortcut);
        }
    }
    writer.finish();
}

} // namespace kit::proposal
