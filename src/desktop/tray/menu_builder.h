// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/menu.h"

#include <QKeySequence>
#include <QString>

class QMenu;

namespace desktop {

class QtIconRenderer;

// Adds the rows to `menu`: actions (with their check marks and, given a renderer, their icons),
// lines, headings and nested submenus. A row's action runs on the GUI thread once control is back
// in the event loop, after the menu has closed, so an action may safely destroy the menu or the
// icon that popped it.
void fillMenu(QMenu& menu, const kit::menubar::Menu& rows, const QtIconRenderer* icons = nullptr);

// The title as a menu shows it: '&' would otherwise mark the next letter as a mnemonic.
QString menuText(const std::string& title);

// A key equivalent as a shortcut shown beside its row: Ctrl with the key, and Shift as well for
// a capital letter.
QKeySequence keyEquivalent(const std::string& key);

} // namespace desktop
