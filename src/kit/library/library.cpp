// SPDX-License-Identifier: MIT
#include "kit/library/library.h"

#include <algorithm>

namespace kit::library {

namespace {

const char* describe(LibraryError::Code code)
{
    switch (code) {
    case LibraryError::Code::UnknownShortcut:
        return "no shortcut has this id";
    case LibraryError::Code::NotAGroup:
        return "the shortcut is not a group";
    case LibraryError::Code::DuplicateID:
        return "the id is already in the library";
    }
    return "library error";
}

template <class List, class Visit>
bool walk(List& list, std::optional<ShortcutID> parent, int depth, Visit& visit)
{
    for (auto& shortcut : list) {
        if (!visit(shortcut, parent, depth)) {
            return false;
        }
        if (auto* group = shortcut.target.groupTarget()) {
            if (!walk(group->members, shortcut.id, depth + 1, visit)) {
                return false;
            }
        }
    }
    return true;
}

// Calls visit(shortcut, parent, depth) depth first until it answers false.
template <class List, class Visit> void forEachShortcut(List& list, Visit visit)
{
    walk(list, std::nullopt, 0, visit);
}

} // namespace

LibraryError::LibraryError(Code code)
    : std::runtime_error(describe(code))
    , m_code(code)
{}

std::string Violation::description() const
{
    if (kind == Kind::DuplicateShortcut) {
        return "duplicate shortcut " + shortcut.string();
    }
    return "session " + (session ? session->string() : std::string()) + " on shortcut "
           + shortcut.string() + " does not exist";
}

std::vector<const Shortcut*> Library::flatten(const std::vector<Shortcut>& list)
{
    std::vector<const Shortcut*> all;
    forEachShortcut(list, [&](const Shortcut& s, const auto&, int) {
        all.push_back(&s);
        return true;
    });
    return all;
}

std::vector<const Shortcut*> Library::allShortcuts() const
{
    return flatten(shortcuts);
}

const Shortcut* Library::shortcut(const ShortcutID& id) const
{
    const Shortcut* found = nullptr;
    forEachShortcut(shortcuts, [&](const Shortcut& s, const auto&, int) {
        if (s.id == id) {
            found = &s;
        }
        return found == nullptr;
    });
    return found;
}

Shortcut* Library::shortcut(const ShortcutID& id)
{
    return const_cast<Shortcut*>(std::as_const(*this).shortcut(id));
}

std::optional<ShortcutID> Library::parent(const ShortcutID& id) const
{
    std::optional<ShortcutID> result;
    forEachShortcut(shortcuts,
                    [&](const Shortcut& s, const std::optional<ShortcutID>& parent, int) {
                        if (s.id == id) {
                            result = parent;
                            return false;
                        }
                        return true;
                    });
    return result;
}

std::vector<ShortcutID> Library::ancestors(const ShortcutID& id) const
{
    std::vector<ShortcutID> path;
    std::vector<ShortcutID> found;
    // Depth-first with an explicit path: the path at the moment the id is met is its ancestry.
    auto visit = [&](const auto& self, const std::vector<Shortcut>& list) -> bool {
        for (const auto& s : list) {
            if (s.id == id) {
                found = path;
                return true;
            }
            if (const auto* group = s.target.groupTarget()) {
                path.push_back(s.id);
                if (self(self, group->members)) {
                    return true;
                }
                path.pop_back();
            }
        }
        return false;
    };
    visit(visit, shortcuts);
    return found;
}

std::optional<int> Library::depth(const ShortcutID& id) const
{
    std::optional<int> result;
    forEachShortcut(shortcuts, [&](const Shortcut& s, const auto&, int depth) {
        if (s.id == id) {
            result = depth;
        }
        return !result;
    });
    return result;
}

bool Library::isSelfOrInside(const ShortcutID& id, const ShortcutID& groupID) const
{
    if (id == groupID) {
        return true;
    }
    auto path = ancestors(id);
    return std::find(path.begin(), path.end(), groupID) != path.end();
}

std::vector<Shortcut> Library::members(const ShortcutID& groupID) const
{
    const Shortcut* group = shortcut(groupID);
    return group ? group->target.members() : std::vector<Shortcut>{};
}

std::vector<const Shortcut*> Library::groups() const
{
    std::vector<const Shortcut*> result;
    forEachShortcut(shortcuts, [&](const Shortcut& s, const auto&, int) {
        if (s.target.isGroup()) {
            result.push_back(&s);
        }
        return true;
    });
    return result;
}

std::unordered_set<SessionID> Library::sessionIDsInUse() const
{
    std::unordered_set<SessionID> result;
    forEachShortcut(shortcuts, [&](const Shortcut& s, const auto&, int) {
        if (const auto* url = s.target.urlTarget(); url && url->sessionID) {
            result.insert(*url->sessionID);
        }
        return true;
    });
    return result;
}

std::vector<Library::OutlineRow>
Library::outline(const std::unordered_set<ShortcutID>& expanded) const
{
    std::vector<OutlineRow> rows;
    auto visit = [&](const auto& self,
                     const std::vector<Shortcut>& list,
                     const std::optional<ShortcutID>& parent,
                     int depth) -> void {
        for (const auto& s : list) {
            rows.push_back({s.id, parent, depth});
            if (s.target.isGroup() && expanded.contains(s.id)) {
                self(self, s.target.members(), s.id, depth + 1);
            }
        }
    };
    visit(visit, shortcuts, std::nullopt, 0);
    return rows;
}

std::vector<const Shortcut*> Library::groupsThatCanHold(const ShortcutID& id) const
{
    std::vector<const Shortcut*> result;
    for (const Shortcut* group : groups()) {
        if (!isSelfOrInside(group->id, id)) {
            result.push_back(group);
        }
    }
    return result;
}

std::vector<Violation> Library::validate(const std::unordered_set<SessionID>& knownSessions) const
{
    std::vector<Violation> violations;
    std::unordered_set<ShortcutID> seen;
    auto visit = [&](const auto& self, const std::vector<Shortcut>& list) -> void {
        for (const auto& s : list) {
            if (!seen.insert(s.id).second) {
                violations.push_back(Violation::duplicateShortcut(s.id));
                continue; // dropped with everything inside it
            }
            if (const auto* url = s.target.urlTarget();
                url && url->sessionID && !knownSessions.contains(*url->sessionID)) {
                violations.push_back(Violation::danglingSession(*url->sessionID, s.id));
            }
            if (s.target.isGroup()) {
                self(self, s.target.members());
            }
        }
    };
    visit(visit, shortcuts);
    return violations;
}

Library Library::repaired(std::unordered_set<ShortcutID>& seen,
                          const std::unordered_set<SessionID>& known) const
{
    auto repairList = [&](const auto& self,
                          const std::vector<Shortcut>& list) -> std::vector<Shortcut> {
        std::vector<Shortcut> kept;
        kept.reserve(list.size());
        for (const auto& s : list) {
            if (!seen.insert(s.id).second) {
                continue;
            }
            Shortcut copy = s;
            if (auto* url = copy.target.urlTarget();
                url && url->sessionID && !known.contains(*url->sessionID)) {
                url->sessionID.reset();
            }
            if (auto* group = copy.target.groupTarget()) {
                group->members = self(self, group->members);
            }
            kept.push_back(std::move(copy));
        }
        return kept;
    };
    return Library{schemaVersion, repairList(repairList, shortcuts)};
}

std::vector<Violation> Library::repair(const std::unordered_set<SessionID>& knownSessions)
{
    auto violations = validate(knownSessions);
    if (!violations.empty()) {
        std::unordered_set<ShortcutID> seen;
        *this = repaired(seen, knownSessions);
    }
    return violations;
}

} // namespace kit::library
