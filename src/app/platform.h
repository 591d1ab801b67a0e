// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/bar_hot_keys.h"
#include "kit/keys/bar_wheel.h"
#include "kit/keys/clock.h"
#include "kit/keys/modifier_watch.h"
#include "kit/menubar/icon_renderer.h"
#include "kit/menubar/status_bar.h"
#include "kit/menubar/status_item_controller.h"
#include "kit/opening/presenters.h"
#include "kit/opening/workspace_opening.h"

#include <functional>
#include <optional>
#include <string>

namespace app {

// Starting at login: the system's login item for this application. Main thread only.
class LoginItem
{
public:
    virtual ~LoginItem() = default;
    virtual bool isEnabled() const = 0;
    // False when the system refused; the reason is logged by the implementation.
    virtual bool enable() = 0;
    virtual bool disable() = 0;
};

// What a build with a display hands the composition root: the adapters that carry its requests
// to the system, and the windows it shows. Without one the app runs headless. The objects must
// outlive AppDependencies; every pointer marked optional may be null and leaves its piece out.
struct Platform
{
    kit::opening::WorkspaceOpening* workspace = nullptr;
    kit::opening::AlertPresenter* alerts = nullptr;
    kit::menubar::StatusBar* statusBar = nullptr;
    const kit::menubar::IconRenderer* icons = nullptr;
    kit::menubar::Popover* popover = nullptr;
    kit::menubar::AppEvents* appEvents = nullptr;

    // Optional: pages open in the browser without them.
    kit::opening::PagePresenter* panels = nullptr;
    kit::opening::WindowPresenter* windows = nullptr;
    // Optional, all three or none: no global keys and no number badges without them.
    kit::keys::HotKeyService* hotKeys = nullptr;
    kit::keys::Clock* clock = nullptr;
    kit::keys::ModifierSource* modifiers = nullptr;
    // Optional: the wheel does not switch bars without it.
    kit::keys::ScrollMonitoring* scroll = nullptr;
    // Whether a window a scroll event names is one of the icons.
    std::function<bool(kit::keys::WindowRef)> isIconWindow;
    // Optional: never offered without it.
    LoginItem* loginItem = nullptr;

    // False when the host never says where an icon stands, so the introduction does not wait
    // for a place that will not come.
    bool iconPlacesKnown = true;

    std::function<void()> showSettings;
    // Optional: the manager window on the bars; the application menu has no row for it without.
    std::function<void()> showManager;
    std::function<void()> quit;
    // What the clipboard holds as text, links one a line.
    std::function<std::string()> clipboardText;
    // Asks the person once whether to start at login; the answer comes back through `answer`.
    std::function<void(std::function<void(bool yes)> answer)> offerLoginItem;
    // Shows the introduction beside the application's icon, at `place` when known.
    std::function<void(std::optional<kit::menubar::Rect> place)> showWelcome;
    // A yes-or-no question before a change that takes more than the person clicked.
    std::function<bool(const std::string& question)> confirm;
};

} // namespace app
