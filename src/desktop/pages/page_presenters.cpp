// SPDX-License-Identifier: MIT
#include "desktop/pages/page_presenters.h"

namespace desktop::pages {

PagePresenters::PagePresenters(Services services)
    : m_services(std::move(services))
{}

void PagePresenters::setAnchorFallback(decltype(Services::anchorFallback) fallback)
{
    m_services.anchorFallback = std::move(fallback);
}

void PagePresenters::setIconRect(decltype(Services::iconRect) iconRect)
{
    m_services.iconRect = std::move(iconRect);
}

std::optional<kit::opening::Anchor>
PagePresenters::anchorFallback(const kit::library::ShortcutID& shortcut)
{
    return m_services.anchorFallback ? m_services.anchorFallback(shortcut) : std::nullopt;
}

Pages* PagePresenters::pagesOrBrowser(const kit::library::Shortcut& shortcut)
{
    // A page is asked for: the first one's load is timed from here.
    m_services.loader.host().askedAt = std::chrono::steady_clock::now();
    markStart(m_services.loader.host().startMarks, "page asked for");
    if (Pages* pages = m_services.loader.load()) {
        return pages;
    }
    const auto* target = shortcut.target.urlTarget();
    const auto& open = m_services.loader.host().openInBrowser;
    if (target && open) {
        open(target->url);
    }
    return nullptr;
}

void PagePresenters::showPanel(const kit::library::Shortcut& shortcut,
                               const kit::library::ResolvedBrowsing& settings,
                               kit::opening::Anchor anchor)
{
    if (Pages* pages = pagesOrBrowser(shortcut)) {
        pages->showPanel(
            shortcut, settings, m_services.iconRect ? m_services.iconRect(anchor) : QRect());
    }
}

void PagePresenters::prepare(const kit::library::Shortcut& shortcut)
{
    markStart(m_services.loader.host().startMarks, "engine asked for ahead");
    if (Pages* pages = m_services.loader.load()) {
        pages->prepare(shortcut);
        markStart(m_services.loader.host().startMarks, "engine ready ahead");
    }
}

bool PagePresenters::bringToFront(const kit::library::ShortcutID& shortcut)
{
    // Without the module no page can be in a window, and asking must not load it.
    Pages* pages = m_services.loader.loaded();
    return pages && pages->bringToFront(shortcut);
}

void PagePresenters::showWindow(const kit::library::Shortcut& shortcut,
                                const kit::library::ResolvedBrowsing& settings)
{
    if (Pages* pages = pagesOrBrowser(shortcut)) {
        pages->showWindow(shortcut, settings);
    }
}

} // namespace desktop::pages
