// SPDX-License-Identifier: MIT
#pragma once

#include "kit/opening/presenters.h"

#include <QMessageBox>
#include <QPointer>

#include <functional>
#include <string>

namespace desktop {

// Failures as message boxes titled with the shortcut's name. The box is modal to the application
// but does not block the caller: opening returns at once and the box stays until dismissed.
// GUI thread only.
class MessageBoxAlerts final : public kit::opening::AlertPresenter
{
public:
    void showAlert(const std::string& title, const std::string& message) override;

    // The box shown last, while it is open; for tests.
    QMessageBox* current() const { return m_current; }

private:
    QPointer<QMessageBox> m_current;
};

// Asks once whether Vantorel should start at login; `answer` hears the choice, false when the box
// is closed without one. Does not block. GUI thread only.
QMessageBox* offerLoginItem(std::function<void(bool yes)> answer);

// A yes-or-no question asked in a modal box; true for yes.
bool confirm(const std::string& question);

} // namespace desktop
