// SPDX-License-Identifier: MIT
#include "desktop/dialogs.h"

#include "desktop/qt_text.h"

#include <QMessageBox>
#include <QPushButton>

#include <memory>

namespace desktop {

namespace {

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
    // The message names a shortcut, whose name is the person's text, never markup.
    box->setTextFormat(Qt::PlainText);
    box->setWindowModality(Qt::ApplicationModal);
    showInFront(box);
    m_current = box;
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
