// SPDX-License-Identifier: MIT
#include "kit/menubar/group_menu.h"

namespace kit::menubar {

using library::Shortcut;

namespace {

bool endsWithLine(const std::vector<MenuItem>& rows)
{
    return !rows.empty() && rows.back().kind == MenuItem::Kind::Separator;
}

} // namespace

std::vector<MenuItem> GroupMenuBuilder::rows(const std::vector<Shortcut>& members,
                                             const Open& open,
                                             const IconRenderer* icons)
{
    std::vector<MenuItem> result;
    for (const auto& member : members) {
        if (member.target.isDivider()) {
            // A line at either end or beside another line separates nothing.
            if (!result.empty() && !endsWithLine(result)) {
                result.push_back(MenuItem::separator());
            }
            if (!member.name.empty()) {
                result.push_back(MenuItem::heading(member.name));
            }
            continue;
        }
        MenuItem row;
        if (member.target.isGroup()) {
            row = MenuItem::submenu(member.name, rows(member.target.members(), open, icons));
        } else {
            std::function<void()> action;
            if (open) {
                action = [open, member] { open(member); };
            }
            row = MenuItem::command(member.name, std::move(action));
        }
        if (icons) {
            row.icon = icons->glyph(member, kIconPointSize);
        }
        result.push_back(std::move(row));
    }
    // A trailing line, or a heading with nothing under it, leads nowhere.
    while (endsWithLine(result)
           || (!result.empty() && result.back().kind == MenuItem::Kind::Heading)) {
        result.pop_back();
    }
    if (result.empty()) {
        result.push_back(MenuItem::heading(kEmptyTitle));
    }
    return result;
}

Menu GroupMenuBuilder::menu(const Shortcut& group,
                            const Open& open,
                            const Edit& edit,
                            const IconRenderer* icons)
{
    Menu menu{rows(group.target.members(), open, icons)};
    if (edit) {
        menu.items.push_back(MenuItem::separator());
        menu.items.push_back(MenuItem::command(editTitle(group), [edit, group] { edit(group); }));
    }
    return menu;
}

std::string GroupMenuBuilder::editTitle(const Shortcut& group)
{
    return "Edit \u201c" + group.name + "\u201d\u2026";
}

} // namespace kit::menubar
