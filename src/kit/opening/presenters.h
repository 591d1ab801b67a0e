// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kit::opening {

// An icon in the menu bar that a panel can hang under: the menu bar's handle of that icon.
struct Anchor
{
    std::uint64_t value = 0;

    bool operator==(const Anchor&) const = default;
};

// Shows pages in panels under menu-bar icons (the in-app browser). Main thread only.
class PagePresenter
{
public:
    virtual ~PagePresenter() = default;

    // The icon to hang the shortcut's panel under when it was opened from no icon: its own, else
    // the icon of the top-level group that holds it; nothing when neither is shown.
    virtual std::optional<Anchor> anchorFallback(const library::ShortcutID& shortcut) = 0;
    virtual void showPanel(const library::Shortcut& shortcut,
                           const library::ResolvedBrowsing& settings,
                           Anchor anchor) = 0;
};

// Shows pages in windows of their own (the in-app browser). Main thread only.
class WindowPresenter
{
public:
    virtual ~WindowPresenter() = default;

    // Brings forward the window holding this shortcut's page; false when there is none.
    virtual bool bringToFront(const library::ShortcutID& shortcut) = 0;
    // Shows the page in a window, or brings its window forward when it has one.
    virtual void showWindow(const library::Shortcut& shortcut,
                            const library::ResolvedBrowsing& settings) = 0;
};

// Tells the person about a failure: brings the application to the front and shows a modal alert.
// Main thread only.
class AlertPresenter
{
public:
    virtual ~AlertPresenter() = default;
    virtual void showAlert(const std::string& title, const std::string& message) = 0;
};

} // namespace kit::opening
