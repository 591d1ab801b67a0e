// SPDX-License-Identifier: MIT
#include "desktop/manager/manager_introduction.h"

#include "desktop/qt_text.h"
#include "kit/keys/hot_key_combo.h"
#include "kit/keys/number_keys.h"
#include "kit/settings/app_settings.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

namespace desktop {

namespace {

constexpr int kTextWidth = 400;

QLabel* section(const QString& title, QWidget* parent)
{
    auto* label = new QLabel(title, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

QLabel* paragraph(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    label->setFixedWidth(kTextWidth);
    return label;
}

} // namespace

QString ManagerIntroduction::keysText(const kit::settings::AppSettings& settings)
{
    QStringList lines;
    if (auto keys = kit::keys::NumberKeys::fromSettings(settings)) {
        lines << QStringLiteral("%1 to %2 open the first nine icons, counted from the left.")
                     .arg(toQt(keys->display(1).value_or("")), toQt(keys->display(9).value_or("")));
    } else {
        lines << QStringLiteral("Number keys for the icons are off; Settings turns them on.");
    }
    if (const auto& menu = settings.menuHotKey()) {
        lines << QStringLiteral("%1 opens the icons' shortcuts as a menu.")
                     .arg(toQt(kit::keys::HotKeyCombo(*menu).display()));
    }
    if (const auto& bar = settings.activeBarHotKey()) {
        lines << QStringLiteral("%1 opens everything on the showing bar as a menu.")
                     .arg(toQt(kit::keys::HotKeyCombo(*bar).display()));
    }
    if (settings.wheelSwitchesBars()) {
        lines << QStringLiteral("Scrolling over an icon switches to the bar before or after.");
    }
    return lines.join(QLatin1Char('\n'));
}

ManagerIntroduction::ManagerIntroduction(const kit::settings::AppSettings& settings,
                                         const std::function<void()>& manageBars,
                                         const std::function<void()>& openSettings,
                                         const std::string& place,
                                         QWidget* parent)
    : QWidget(parent, Qt::Window)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("Welcome to Vantorel"));
    setObjectName(QStringLiteral("welcome"));

    auto* title = new QLabel(QStringLiteral("Your shortcuts are in the menu bar"), this);
    QFont bigger = title->font();
    bigger.setPointSizeF(bigger.pointSizeF() * 1.3);
    bigger.setBold(true);
    title->setFont(bigger);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 16, 18, 14);
    layout->setSpacing(6);
    layout->addWidget(title);
    layout->addSpacing(4);
    layout->addWidget(section(QStringLiteral("Bars and icons"), this));
    layout->addWidget(paragraph(
        QStringLiteral("Each icon beside Vantorel's own opens one shortcut: a page, an app, a "
                       "file, a folder, or a group of them as a menu. ")
            + QString::fromStdString(place),
        this));
    layout->addSpacing(4);
    layout->addWidget(section(QStringLiteral("Keys"), this));
    m_keys = paragraph(keysText(settings), this);
    m_keys->setObjectName(QStringLiteral("keys"));
    layout->addWidget(m_keys);
    layout->addSpacing(4);
    layout->addWidget(section(QStringLiteral("Assistants"), this));
    layout->addWidget(paragraph(
        QStringLiteral("An AI assistant can read your bars and propose changes; nothing changes "
                       "until you review them. Turn it on in Settings, under Assistants, and "
                       "Vantorel shows what to add to the assistant."),
        this));
    layout->addSpacing(8);

    auto* manage = new QPushButton(QStringLiteral("Manage Bars…"), this);
    manage->setEnabled(static_cast<bool>(manageBars));
    auto* settingsButton = new QPushButton(QStringLiteral("Settings…"), this);
    settingsButton->setEnabled(static_cast<bool>(openSettings));
    auto* done = new QPushButton(QStringLiteral("Got It"), this);
    done->setDefault(true);
    done->setFocus();
    connect(manage, &QPushButton::clicked, this, [this, manageBars] {
        close();
        manageBars();
    });
    connect(settingsButton, &QPushButton::clicked, this, [this, openSettings] {
        close();
        openSettings();
    });
    connect(done, &QPushButton::clicked, this, &QWidget::close);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(manage);
    buttons->addWidget(settingsButton);
    buttons->addStretch(1);
    buttons->addWidget(done);
    layout->addLayout(buttons);
}

void ManagerIntroduction::present(const std::optional<kit::menubar::Rect>& place)
{
    adjustSize();
    QScreen* screen = QGuiApplication::primaryScreen();
    if (place) {
        const QPoint under(static_cast<int>(place->x), static_cast<int>(place->y + place->height));
        if (QScreen* at = QGuiApplication::screenAt(under)) {
            screen = at;
        }
    }
    if (screen) {
        const QRect area = screen->availableGeometry();
        QPoint at = area.center() - QPoint(width() / 2, height() / 2);
        if (place) {
            // Below the icon, or above it when the panel is at the bottom of the screen.
            const int below = static_cast<int>(place->y + place->height) + 4;
            const int above = static_cast<int>(place->y) - height() - 4;
            at = QPoint(static_cast<int>(place->x + place->width / 2) - width() / 2,
                        below + height() <= area.bottom() ? below : above);
        }
        at.setX(std::clamp(at.x(), area.left(), std::max(area.left(), area.right() - width())));
        at.setY(std::clamp(at.y(), area.top(), std::max(area.top(), area.bottom() - height())));
        move(at);
    }
    show();
    raise();
    activateWindow();
}

} // namespace desktop
