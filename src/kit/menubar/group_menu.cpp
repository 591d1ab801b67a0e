// SPDX-License-Identifier: MIT
#include "kit/menubar/group_menu.h"

namespace kit::menubar {

using library::Shortcut;

std::vector<MenuItem> GroupMenuBuilder::rows(const std::vector<Shortcut>& members, const Open& open)
{
    std::vector<MenuItem> result;
    for (const auto& member : members) {
        if (member.target.isDivider()) {
            // A line at either end or beside another line separates nothing.
            if (!result.empty() && result.back().kind != MenuItem::Kind::Separator) {
                result.push_back(MenuItem::separator());
            }
        } else if (member.target.isGroup()) {
            result.push_back(MenuItem::submenu(member.name, rows(member.target.members(), open)));
        } else {
            std::function<void()> action;
            if (open) {
                action = [open, member] { open(member); };
            }
            result.push_back(MenuItem::command(member.name, std::move(action)));
        }
    }
    if (!result.empty() && result.back().kind == MenuItem::Kind::Separator) {
        result.pop_back();
    }
    if (result.empty()) {
        result.push_back(MenuItem::heading(kEmptyTitle));
    }
    return result;
}

Menu GroupMenuBuilder::menu(const Shortcut& group, const Open& open, const Edit& edit)
{
    Menu menu{rows(group.target.members(), open)};
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
