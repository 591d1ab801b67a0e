// SPDX-License-Identifier: MIT
#include "desktop/dialogs.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>
#include <memory>

namespace desktop {

namespace {

QString toQt(const std::string& text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// A box that deletes itself once dismissed and is brought in front of whatever has the focus:
// the person clicked an icon in the panel, so no window of ours is active.
void showInFront(QMessageBox* box)
{
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
    box->raise();
    box->activateWindow();
}

} // namespace

void MessageBoxAlerts::showAlert(const std::string& title, const std::string& message)
{
    auto* box = new QMessageBox(QMessageBox::Warning, toQt(title), toQt(message), QMessageBox::Ok);
    box->setWindowModality(Qt::ApplicationModal);
    showInFront(box);
    m_current = box;
}

WelcomeWindow::WelcomeWindow(QWidget* parent)
    : QWidget(parent, Qt::Window)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("Welcome to Vantorel"));
    setObjectName(QStringLiteral("welcome"));

    auto* heading = new QLabel(QStringLiteral("Your shortcuts are in the menu bar"));
    QFont bigger = heading->font();
    bigger.setPointSizeF(bigger.pointSizeF() * 1.3);
    bigger.setBold(true);
    heading->setFont(bigger);

    auto* text = new QLabel(QStringLiteral(
        "Each icon beside Vantorel's own opens one shortcut: a page, an app, a file or a folder. "
        "Click an icon to open it; right-click it for its settings.\n\n"
        "Vantorel's own icon, the rightmost, switches between your bars, adds a copied link or "
        "file as a new shortcut, and opens Settings."));
    text->setWordWrap(true);

    auto* done = new QPushButton(QStringLiteral("Got It"));
    done->setDefault(true);
    connect(done, &QPushButton::clicked, this, &QWidget::close);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(done);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addWidget(text);
    layout->addLayout(buttons);
    // A wrapping label only knows its height once the width is fixed.
    text->setFixedWidth(356);
    text->setMinimumHeight(text->heightForWidth(356));
    setFixedWidth(380);
}

void WelcomeWindow::present(const std::optional<kit::menubar::Rect>& place)
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

QMessageBox* offerLoginItem(std::function<void(bool yes)> answer)
{
    auto* box = new QMessageBox(QMessageBox::Question,
                                QStringLiteral("Vantorel"),
                                QStringLiteral("Start Vantorel when you log in?"));
    box->setInformativeText(QStringLiteral("Your shortcuts are then in the menu bar from the "
                                           "start. You can change this in Settings."));
    QPushButton* yes = box->addButton(QStringLiteral("Start at Login"), QMessageBox::AcceptRole);
    box->addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole);
    box->setDefaultButton(yes);
    auto once = std::make_shared<std::function<void(bool)>>(std::move(answer));
    QObject::connect(box, &QMessageBox::finished, box, [box, yes, once](int) {
        if (*once) {
            auto told = std::move(*once);
            *once = nullptr;
            told(box->clickedButton() == yes);
        }
    });
    showInFront(box);
    return box;
}

bool confirm(const std::string& question)
{
    QMessageBox box(QMessageBox::Question, QStringLiteral("Vantorel"), toQt(question));
    QPushButton* yes = box.addButton(QStringLiteral("Remove"), QMessageBox::DestructiveRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == yes;
}

} // namespace desktop
