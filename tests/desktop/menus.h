// SPDX-License-Identifier: MIT
#pragma once

#include <QAction>
#include <QMenu>

#include <string>
#include <vector>

namespace desktop {

// The rows a menu shows, one text per row: "-" for a line, "[x]" for a disabled row, "> x"
// for a submenu, whose rows follow indented.
inline void
describe(const QMenu& menu, std::vector<std::string>& out, const std::string& indent = "")
{
    for (QAction* action : menu.actions()) {
        if (action->isSeparator()) {
            out.push_back(indent + "-");
            continue;
        }
        std::string text = action->text().toStdString();
        if (action->menu()) {
            out.push_back(indent + "> " + text);
            describe(*action->menu(), out, indent + "  ");
            continue;
        }
        out.push_back(indent + (action->isEnabled() ? text : "[" + text + "]"));
    }
}

inline std::vector<std::string> describe(const QMenu& menu)
{
    std::vector<std::string> out;
    describe(menu, out);
    return out;
}

inline QAction* findAction(const QMenu& menu, const QString& text)
{
    for (QAction* action : menu.actions()) {
        if (action->text() == text) {
            return action;
        }
        if (action->menu()) {
            if (QAction* found = findAction(*action->menu(), text)) {
                return found;
            }
        }
    }
    return nullptr;
}

} // namespace desktop
