// SPDX-License-Identifier: MIT
#include "desktop/tray/menu_builder.h"

#include "desktop/qt_text.h"
#include "desktop/tray/qt_icon_renderer.h"

#include <QAction>
#include <QCoreApplication>
#include <QMenu>

namespace desktop {

using kit::menubar::MenuItem;

namespace {

// Menus are drawn on the menu's own background, whatever the bar looks like.
kit::menubar::Appearance appearanceOf(const QMenu& menu)
{
    return menu.palette().color(QPalette::Window).lightness() < 128
               ? kit::menubar::Appearance::Dark
               : kit::menubar::Appearance::Light;
}

QIcon rowIcon(const QtIconRenderer& icons, const kit::menubar::Glyph& glyph, const QMenu& menu)
{
    QIcon icon;
    const auto appearance = appearanceOf(menu);
    // The menu's icon size, and twice it for screens that scale by two.
    for (const int side : {16, 32}) {
        icon.addPixmap(QPixmap::fromImage(icons.draw(glyph, side, appearance)));
    }
    return icon;
}

void addRows(QMenu& menu, const std::vector<MenuItem>& rows, const QtIconRenderer* icons)
{
    for (const MenuItem& row : rows) {
        switch (row.kind) {
        case MenuItem::Kind::Separator:
            menu.addSeparator();
            break;
        case MenuItem::Kind::Heading: {
            QAction* heading = menu.addAction(menuText(row.title));
            heading->setEnabled(false);
            QFont font = heading->font();
            font.setBold(true);
            heading->setFont(font);
            break;
        }
        case MenuItem::Kind::Submenu: {
            QMenu* submenu = menu.addMenu(menuText(row.title));
            submenu->setEnabled(row.enabled && !row.items.empty());
            if (icons && row.icon) {
                submenu->setIcon(rowIcon(*icons, *row.icon, menu));
            }
            addRows(*submenu, row.items, icons);
            break;
        }
        case MenuItem::Kind::Action: {
            QAction* action = menu.addAction(menuText(row.title));
            action->setEnabled(row.enabled && static_cast<bool>(row.action));
            if (row.checked) {
                action->setCheckable(true);
                action->setChecked(true);
            }
            if (icons && row.icon) {
                action->setIcon(rowIcon(*icons, *row.icon, menu));
            }
            if (!row.keyEquivalent.empty()) {
                action->setShortcut(keyEquivalent(row.keyEquivalent));
                // Shown as a hint only: the tray menu is not a window that owns shortcuts.
                action->setShortcutContext(Qt::WidgetShortcut);
            }
            if (row.action) {
                // Queued on the application, not the action: the action and its menu may be
                // gone by the time the call runs.
                QObject::connect(
                    action,
                    &QAction::triggered,
                    QCoreApplication::instance(),
                    [run = row.action] { run(); },
                    Qt::QueuedConnection);
            }
            break;
        }
        }
    }
}

} // namespace

void fillMenu(QMenu& menu, const kit::menubar::Menu& rows, const QtIconRenderer* icons)
{
    addRows(menu, rows.items, icons);
}

QString menuText(const std::string& title)
{
    QString text = shownText(title);
    text.replace(QLatin1Char('&'), QLatin1String("&&"));
    return text;
}

QKeySequence keyEquivalent(const std::string& key)
{
    const QString text = QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
    if (text.size() != 1) {
        return {};
    }
    const QChar letter = text.at(0);
    QKeyCombination combination(Qt::ControlModifier, Qt::Key(letter.toUpper().unicode()));
    if (letter.isUpper()) {
        combination =
            QKeyCombination(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key(letter.unicode()));
    }
    return QKeySequence(combination);
}

} // namespace desktop
