// SPDX-License-Identifier: MIT
#include "kit/library/library.h"

#include <algorithm>

namespace kit::library {

namespace {

struct Place
{
    std::vector<Shortcut>* list = nullptr;
    size_t index = 0;
};

// Where a shortcut stands: the list holding it and its index there.
Place find(std::vector<Shortcut>& list, const ShortcutID& id)
{
    for (size_t i = 0; i < list.size(); ++i) {
        if (list[i].id == id) {
            return {&list, i};
        }
        if (auto* group = list[i].target.groupTarget()) {
            if (Place inside = find(group->members, id); inside.list) {
                return inside;
            }
        }
    }
    return {};
}

Shortcut takeOut(const Place& place)
{
    Shortcut taken = std::move((*place.list)[place.index]);
    place.list->erase(place.list->begin() + static_cast<std::ptrdiff_t>(place.index));
    return taken;
}

// Inserts beside the anchor, wherever it stands; at the end of the top level when it is gone.
void putBeside(std::vector<Shortcut>& top, const ShortcutID& anchor, Shortcut shortcut, bool after)
{
    Place at = find(top, anchor);
    if (at.list == nullptr) {
        top.push_back(std::move(shortcut));
        return;
    }
    at.list->insert(at.list->begin() + static_cast<std::ptrdiff_t>(at.index + (after ? 1 : 0)),
                    std::move(shortcut));
}

std::vector<Shortcut>* listOf(Library& library, const std::optional<ShortcutID>& parent)
{
    if (!parent) {
        return &library.shortcuts;
    }
    Shortcut* group = library.shortcut(*parent);
    if (!group) {
        return nullptr;
    }
    auto* payload = group->target.groupTarget();
    return payload ? &payload->members : nullptr;
}

template <class Edit> void editURL(Library& library, const ShortcutID& id, Edit edit)
{
    if (Shortcut* s = library.shortcut(id)) {
        if (auto* url = s->target.urlTarget()) {
            edit(*url);
        }
    }
}

template <class... Fs> struct Overloaded : Fs...
{
    using Fs::operator()...;
};
template <class... Fs> Overloaded(Fs...) -> Overloaded<Fs...>;

} // namespace

void Library::add(Shortcut shortcut)
{
    shortcuts.push_back(std::move(shortcut));
}

void Library::update(const Shortcut& replacement)
{
    if (Shortcut* s = shortcut(replacement.id)) {
        *s = replacement;
    }
}

std::optional<ShortcutID> Library::duplicate(const ShortcutID& id)
{
    Place place = find(shortcuts, id);
    if (!place.list) {
        return std::nullopt;
    }
    Shortcut copy = (*place.list)[place.index].copy();
    ShortcutID copyID = copy.id;
    place.list->insert(place.list->begin() + static_cast<std::ptrdiff_t>(place.index + 1),
                       std::move(copy));
    return copyID;
}

void Library::remove(const ShortcutID& id)
{
    Place place = find(shortcuts, id);
    if (place.list) {
        place.list->erase(place.list->begin() + static_cast<std::ptrdiff_t>(place.index));
    }
}

void Library::moveShortcuts(const std::vector<size_t>& fromOffsets, size_t toOffset)
{
    moveOffsets(shortcuts, fromOffsets, toOffset);
}

void Library::addMember(Shortcut member, const ShortcutID& groupID, std::optional<size_t> at)
{
    Shortcut* group = shortcut(groupID);
    if (!group) {
        throw LibraryError(LibraryError::Code::UnknownShortcut);
    }
    auto* payload = group->target.groupTarget();
    if (!payload) {
        throw LibraryError(LibraryError::Code::NotAGroup);
    }
    const std::vector<Shortcut> incomingList{member};
    for (const Shortcut* incoming : flatten(incomingList)) {
        if (shortcut(incoming->id)) {
            throw LibraryError(LibraryError::Code::DuplicateID);
        }
    }
    auto& list = payload->members;
    size_t index = std::min(at.value_or(list.size()), list.size());
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(index), std::move(member));
}

void Library::moveMembers(const ShortcutID& groupID,
                          const std::vector<size_t>& fromOffsets,
                          size_t toOffset)
{
    if (Shortcut* group = shortcut(groupID)) {
        if (auto* payload = group->target.groupTarget()) {
            moveOffsets(payload->members, fromOffsets, toOffset);
        }
    }
}

void Library::refreshBookmark(const ShortcutID& id, const Bookmark& bookmark)
{
    Shortcut* s = shortcut(id);
    if (!s) {
        return;
    }
    if (auto* file = s->target.fileTarget()) {
        file->bookmark = bookmark;
    } else if (auto* app = s->target.appTarget()) {
        app->bookmark = bookmark;
    }
}

void Library::setPopoverSize(const ShortcutID& id, const ContentSize& size)
{
    editURL(*this, id, [&](URLTarget& url) { url.popoverSize = size; });
}

void Library::setWindowSize(const ShortcutID& id, const ContentSize& size)
{
    editURL(*this, id, [&](URLTarget& url) { url.windowSize = size; });
}

void Library::setLastVisitedURL(const ShortcutID& id, const std::optional<std::string>& address)
{
    editURL(*this, id, [&](URLTarget& url) { url.lastVisitedURL = address; });
}

void Library::apply(const ShortcutChange& change, const ShortcutID& id)
{
    Shortcut* s = shortcut(id);
    if (!s) {
        return;
    }
    URLTarget* url = s->target.urlTarget();
    auto onURL = [url](auto edit) {
        if (url) {
            edit(*url);
        }
    };
    std::visit(
        Overloaded{
            [&](const change::OpenModeTo& c) {
                onURL([&](URLTarget& u) { u.openMode = c.value; });
            },
            [&](const change::Account& c) { onURL([&](URLTarget& u) { u.sessionID = c.value; }); },
            [&](const change::Browser& c) {
                onURL([&](URLTarget& u) { u.browserBundleID = c.value; });
            },
            [&](const change::UserAgent& c) {
                onURL([&](URLTarget& u) {
                    u.userAgent = c.value;
                    if (c.value == BrowserAgent::Custom) {
                        u.customUserAgent = c.custom;
                    }
                });
            },
            [&](const change::Appearance& c) {
                onURL([&](URLTarget& u) { u.pageAppearance = c.value; });
            },
            [&](const change::BlocksAds& c) {
                onURL([&](URLTarget& u) { u.blocksAds = c.value; });
            },
            [&](const change::ReloadsOnOpen& c) {
                onURL([&](URLTarget& u) { u.reloadsOnOpen = c.value; });
            },
            [&](const change::KeepsPlaying& c) {
                onURL([&](URLTarget& u) { u.keepsPlaying = c.value; });
            },
            [&](const change::StaysOnTop& c) {
                onURL([&](URLTarget& u) { u.staysOnTop = c.value; });
            },
            [&](const change::PopoverSize& c) {
                onURL([&](URLTarget& u) { u.popoverSize = c.value; });
            },
            [&](const change::WindowSize& c) {
                onURL([&](URLTarget& u) { u.windowSize = c.value; });
            },
            [&](const change::NewWindows& c) {
                onURL([&](URLTarget& u) { u.newWindowLinks = c.value; });
            },
            [&](const change::Zoom& c) {
                onURL([&](URLTarget& u) {
                    u.pageZoom =
                        c.value ? std::optional<double>(PageZoom::clamped(*c.value)) : std::nullopt;
                });
            },
            [&](const change::OpenWith& c) {
                if (auto* file = s->target.fileTarget()) {
                    file->openWith = c.value;
                }
            },
            [&](const change::ShowInMenuBar& c) { s->isInMenuBar = c.value; },
        },
        change);
}

void Library::forget(const SessionID& session)
{
    auto visit = [&](const auto& self, std::vector<Shortcut>& list) -> void {
        for (auto& s : list) {
            if (auto* url = s.target.urlTarget(); url && url->sessionID == session) {
                url->sessionID.reset();
            }
            if (auto* group = s.target.groupTarget()) {
                self(self, group->members);
            }
        }
    };
    visit(visit, shortcuts);
}

bool Library::move(const ShortcutID& id, const OutlineDestination& destination)
{
    Place place = find(shortcuts, id);
    if (place.list == nullptr) {
        return false;
    }
    if (destination.parent) {
        const Shortcut* parent = shortcut(*destination.parent);
        if (!parent || !parent->target.isGroup() || isSelfOrInside(*destination.parent, id)) {
            return false;
        }
    }
    Shortcut moving = takeOut(place);
    std::vector<Shortcut>* list = listOf(*this, destination.parent);
    if (list == nullptr) {
        list = &shortcuts; // unreachable: the destination was checked above
    }
    size_t index = std::min(destination.index, list->size());
    list->insert(list->begin() + static_cast<std::ptrdiff_t>(index), std::move(moving));
    return true;
}

void Library::move(const ShortcutID& id, const ShortcutID& toPositionOf)
{
    if (id == toPositionOf || isSelfOrInside(toPositionOf, id)) {
        return;
    }
    Place from = find(shortcuts, id);
    Place to = find(shortcuts, toPositionOf);
    if (from.list == nullptr || to.list == nullptr) {
        return;
    }
    // Moving down within one list lands after the other shortcut, so it takes that position.
    bool after = from.list == to.list && from.index < to.index;
    putBeside(shortcuts, toPositionOf, takeOut(from), after);
}

void Library::outlineMove(const std::vector<size_t>& fromRows,
                          size_t toRow,
                          const std::unordered_set<ShortcutID>& expanded)
{
    auto rows = outline(expanded);
    std::set<size_t> from(fromRows.begin(), fromRows.end());
    std::vector<ShortcutID> moving;
    for (size_t row : from) {
        if (row >= rows.size()) {
            continue;
        }
        // A member of a group that moves goes with its group.
        auto path = ancestors(rows[row].id);
        bool carried = std::any_of(moving.begin(), moving.end(), [&](const ShortcutID& m) {
            return std::find(path.begin(), path.end(), m) != path.end();
        });
        if (!carried) {
            moving.push_back(rows[row].id);
        }
    }
    // The first row at or after the drop point that is not being moved is the anchor.
    std::optional<ShortcutID> anchor;
    for (size_t row = toRow; row < rows.size(); ++row) {
        bool moved = std::any_of(moving.begin(), moving.end(), [&](const ShortcutID& m) {
            return isSelfOrInside(rows[row].id, m);
        });
        if (!moved) {
            anchor = rows[row].id;
            break;
        }
    }
    for (const auto& id : moving) {
        if (!anchor) {
            move(id, OutlineDestination{std::nullopt, shortcuts.size()});
            continue;
        }
        Place place = find(shortcuts, id);
        if (place.list != nullptr) {
            putBeside(shortcuts, *anchor, takeOut(place), false);
        }
    }
}

} // namespace kit::library
