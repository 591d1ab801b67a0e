// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_item_controller.h"

#include <QObject>

#include <functional>
#include <string>
#include <vector>

namespace desktop {

// The application's icon has a menu and no panel of its own yet: the panel never shows, so every
// click on the icon pops the application menu. GUI thread only.
class NoPopover final : public kit::menubar::Popover
{
public:
    void show(kit::menubar::StatusItemHandle /*anchor*/, kit::menubar::Edge /*edge*/) override {}
    void close() override {}
    bool isShown() const override { return false; }
    std::optional<kit::menubar::Rect> frame() const override { return std::nullopt; }
    void setClosedHandler(std::function<void()> /*closed*/) override {}
};

// Application-wide events over Qt: whether one of our windows is active, and activation. A tray
// application sees no clicks outside itself, so global mouse-downs never arrive; the resign
// handler closes whatever listens when our windows lose the focus. GUI thread only.
class QtAppEvents final : public QObject, public kit::menubar::AppEvents
{
public:
    QtAppEvents();

    Token addGlobalMouseDown(std::function<void(kit::menubar::Point)> handler) override;
    Token addResignActive(std::function<void()> handler) override;
    void remove(Token token) override;
    void activate() override;
    bool isActive() const override;

private:
    void stateChanged(Qt::ApplicationState state);

    std::vector<std::pair<Token, std::function<void()>>> m_resign;
    Token m_next = 1;
};

// What the clipboard offers as links, one a line: its URLs (a file manager's copied files) when
// it has any, else its text.
std::string clipboardText();

} // namespace desktop
