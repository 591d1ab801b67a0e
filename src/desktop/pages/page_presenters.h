// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/pages_loader.h"
#include "kit/opening/presenters.h"

#include <QRect>

#include <functional>
#include <optional>

namespace desktop::pages {

// The opener's in-app pages: panels under tray icons and windows of their own, shown by the
// pages module, which loads with the first page. When the module cannot load, the page opens
// in the browser instead, so a click is never lost. Main thread only.
class PagePresenters final : public kit::opening::PagePresenter,
                             public kit::opening::WindowPresenter
{
public:
    struct Services
    {
        PagesLoader& loader;
        // The icon a shortcut's panel hangs under when none was clicked.
        std::function<std::optional<kit::opening::Anchor>(const kit::library::ShortcutID&)>
            anchorFallback;
        // The icon's place on screen; empty when the tray does not tell.
        std::function<QRect(kit::opening::Anchor)> iconRect;
    };

    explicit PagePresenters(Services services);

    std::optional<kit::opening::Anchor>
    anchorFallback(const kit::library::ShortcutID& shortcut) override;
    void showPanel(const kit::library::Shortcut& shortcut,
                   const kit::library::ResolvedBrowsing& settings,
                   kit::opening::Anchor anchor) override;
    bool bringToFront(const kit::library::ShortcutID& shortcut) override;
    // Loads the engine and readies the shortcut's profile, as for a page about to be asked for.
    void prepare(const kit::library::Shortcut& shortcut);
    void showWindow(const kit::library::Shortcut& shortcut,
                    const kit::library::ResolvedBrowsing& settings) override;

    void setAnchorFallback(decltype(Services::anchorFallback) fallback);
    void setIconRect(decltype(Services::iconRect) iconRect);

private:
    // The module, or null after the page was handed to the browser.
    Pages* pagesOrBrowser(const kit::library::Shortcut& shortcut);

    Services m_services;
};

} // namespace desktop::pages
