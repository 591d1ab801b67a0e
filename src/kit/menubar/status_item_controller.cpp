// SPDX-License-Identifier: MIT
#include "kit/menubar/status_item_controller.h"

#include "kit/menubar/tray_host.h"
#include "kit/support/log.h"
#include "kit/support/platform_words.h"
#include "kit/support/text.h"

#include <algorithm>
#include <cctype>

namespace kit::menubar {

namespace {

using support::trimmed;

constexpr support::Logger kLog("menubar");

bool isSecondary(const std::optional<Click>& event)
{
    return event && (event->kind == Click::Kind::Secondary || event->control);
}

// "scheme:rest" with nothing but an address in it.
bool isAddress(std::string_view text)
{
    auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 == text.size()) {
        return false;
    }
    if (!std::isalpha(static_cast<unsigned char>(text[0]))) {
        return false;
    }
    for (size_t i = 1; i < colon; ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') {
            return false;
        }
    }
    return std::none_of(text.begin(), text.end(), [](char c) {
        return std::isspace(static_cast<unsigned char>(c));
    });
}

} // namespace

std::vector<std::string> DropCatcher::urls(const DragData& drag)
{
    std::vector<std::string> found;
    for (const auto& url : drag.urls) {
        if (!url.empty()) {
            found.push_back(url);
        }
    }
    if (found.empty() && drag.string) {
        auto text = trimmed(*drag.string);
        if (isAddress(text)) {
            found.emplace_back(text);
        }
    }
    return found;
}

bool DropCatcher::entered(const DragData& drag)
{
    if (urls(drag).empty()) {
        return false;
    }
    setReceiving(true);
    return true;
}

void DropCatcher::exited()
{
    setReceiving(false);
}

bool DropCatcher::perform(const DragData& drag)
{
    setReceiving(false);
    auto found = urls(drag);
    if (found.empty() || !accept) {
        return false;
    }
    return accept(found);
}

void DropCatcher::setReceiving(bool receiving)
{
    if (receiving == m_receiving) {
        return;
    }
    m_receiving = receiving;
    if (over) {
        over(receiving);
    }
}

StatusItemController::StatusItemController(StatusBar& bar,
                                           Popover& popover,
                                           AppEvents& events,
                                           support::MainQueue& queue,
                                           std::string appName)
    : m_bar(bar)
    , m_popover(popover)
    , m_events(events)
    , m_queue(queue)
    , m_appName(std::move(appName))
    , m_self(std::make_shared<StatusItemController*>(this))
{
    std::weak_ptr<StatusItemController*> weak = m_self;
    m_popover.setClosedHandler([weak] {
        if (auto self = weak.lock()) {
            (*self)->popoverDidClose();
        }
    });
    m_dropCatcher.over = [weak](bool over) {
        if (auto self = weak.lock()) {
            (*self)->dragOver(over);
        }
    };
}

StatusItemController::~StatusItemController()
{
    m_popover.setClosedHandler({});
    removeMonitors();
    m_self.reset();
    if (m_statusItem) {
        m_bar.remove(*m_statusItem);
    }
}

void StatusItemController::setSymbolName(std::string name)
{
    m_symbolName = std::move(name);
    setNeedsRender();
}

void StatusItemController::setImageName(std::optional<std::string> name)
{
    m_imageName = std::move(name);
    setNeedsRender();
}

void StatusItemController::setGauge(std::optional<StatusItemGauge> gauge)
{
    m_gauge = std::move(gauge);
    setNeedsRender();
}

void StatusItemController::setSummary(std::string summary)
{
    m_summary = std::move(summary);
    setNeedsRender();
}

void StatusItemController::setAlert(bool alert)
{
    m_alert = alert;
    setNeedsRender();
}

void StatusItemController::setAppearance(std::optional<Appearance> appearance)
{
    m_appearance = appearance;
    setNeedsRender();
}

void StatusItemController::setOnDrop(std::function<bool(const std::vector<std::string>&)> drop)
{
    m_onDrop = std::move(drop);
    std::weak_ptr<StatusItemController*> weak = m_self;
    m_dropCatcher.accept = [weak](const std::vector<std::string>& urls) {
        auto self = weak.lock();
        return self && (*self)->m_onDrop && (*self)->m_onDrop(urls);
    };
}

void StatusItemController::setNeedsRender()
{
    // Several changes in one pass of the main queue draw once.
    if (m_renderPending) {
        return;
    }
    m_renderPending = true;
    std::weak_ptr<StatusItemController*> weak = m_self;
    m_queue.post([weak] {
        if (auto self = weak.lock()) {
            (*self)->m_renderPending = false;
            (*self)->render();
        }
    });
}

void StatusItemController::install()
{
    if (m_statusItem) {
        return;
    }
    std::weak_ptr<StatusItemController*> weak = m_self;
    StatusItemEvents events;
    events.clicked = [weak](const std::optional<Click>& event) {
        if (auto self = weak.lock()) {
            (*self)->statusItemClicked(event);
        }
    };
    events.contextMenu = [weak]() -> Menu {
        auto self = weak.lock();
        if (!self) {
            return {};
        }
        if ((*self)->m_popover.isShown()) {
            (*self)->m_popover.close();
        }
        return (*self)->applicationMenu();
    };
    events.hovered = [weak](bool inside) {
        if (auto self = weak.lock()) {
            (*self)->hoverChanged(inside);
        }
    };
    events.appearanceChanged = [weak](Appearance) {
        if (auto self = weak.lock()) {
            (*self)->render();
        }
    };
    m_statusItem = m_bar.create(m_appName, std::move(events));
    if (m_statusItem) {
        m_bar.setName(*m_statusItem, itemTitle(m_bar.host(), m_appName, std::nullopt, ""));
    }
    render();
    kLog.info("status item installed");
}

void StatusItemController::render()
{
    if (!m_statusItem) {
        return;
    }
    AppIconImage image;
    image.gauge = m_gauge;
    image.symbolName = m_symbolName;
    image.imageName = m_imageName;
    image.summary = m_summary;
    image.alert = m_alert;
    image.dark = m_appearance.value_or(m_bar.appearance(*m_statusItem)) == Appearance::Dark;
    if (m_rendered == image) {
        return;
    }
    m_bar.setAppImage(*m_statusItem, image);
    m_bar.setToolTip(*m_statusItem, image.summary);
    m_bar.setAccessibilityLabel(*m_statusItem, image.summary);
    m_rendered = std::move(image);
}

void StatusItemController::statusItemClicked(const std::optional<Click>& event)
{
    // The first press of a double click already acted.
    if (event && event->kind == Click::Kind::DoubleClick) {
        return;
    }
    if (!isSecondary(event) && !m_menuProvider) {
        togglePopover();
        return;
    }
    if (m_popover.isShown()) {
        m_popover.close();
    }
    showMenu();
}

void StatusItemController::togglePopover()
{
    if (m_popover.isShown()) {
        m_popover.close();
    } else {
        showPopover(Edge::Bottom);
    }
}

void StatusItemController::showPopover(Edge edge)
{
    if (!m_statusItem) {
        return;
    }
    m_events.activate();
    m_popover.show(*m_statusItem, edge);
    installMonitors();
    kLog.info(std::string("popover shown; app active=") + (m_events.isActive() ? "1" : "0"));
    if (m_onPanelOpened) {
        m_onPanelOpened();
    }
    updateHighlight();
}

void StatusItemController::showMenu()
{
    open(applicationMenu());
}

Menu StatusItemController::applicationMenu() const
{
    return m_menuProvider ? m_menuProvider() : defaultMenu();
}

Menu StatusItemController::defaultMenu() const
{
    std::weak_ptr<StatusItemController*> weak = m_self;
    Menu menu;
    menu.items.push_back(MenuItem::command(
        support::inPlatformWords("Settings\u2026"),
        [weak] {
            if (auto self = weak.lock()) {
                (*self)->menuOpenSettings();
            }
        },
        ","));
    menu.items.push_back(MenuItem::separator());
    menu.items.push_back(MenuItem::command(
        support::inPlatformWords("Quit " + m_appName),
        [weak] {
            if (auto self = weak.lock()) {
                (*self)->menuQuit();
            }
        },
        "q"));
    return menu;
}

void StatusItemController::installMonitors()
{
    removeMonitors();
    std::weak_ptr<StatusItemController*> weak = m_self;
    m_monitors.push_back(m_events.addGlobalMouseDown([weak](Point pointer) {
        auto self = weak.lock();
        if (!self || !(*self)->m_popover.isShown()) {
            return;
        }
        auto frame = (*self)->m_popover.frame();
        if (!frame || !frame->contains(pointer)) {
            (*self)->m_popover.close();
        }
    }));
    m_monitors.push_back(m_events.addResignActive([weak] {
        auto self = weak.lock();
        if (self && (*self)->m_popover.isShown()) {
            (*self)->m_popover.close();
        }
    }));
}

void StatusItemController::removeMonitors()
{
    for (auto token : m_monitors) {
        m_events.remove(token);
    }
    m_monitors.clear();
}

void StatusItemController::popoverDidClose()
{
    removeMonitors();
    if (m_onPanelClosed) {
        m_onPanelClosed();
    }
    updateHighlight();
}

void StatusItemController::open(const Menu& menu)
{
    if (m_statusItem) {
        m_bar.popMenu(*m_statusItem, menu);
    }
}

void StatusItemController::menuOpenSettings()
{
    if (m_onOpenSettings) {
        m_onOpenSettings();
    }
}

void StatusItemController::menuQuit()
{
    if (m_onQuit) {
        m_onQuit();
    }
}

void StatusItemController::hoverChanged(bool inside)
{
    m_hovering = inside;
    updateHighlight();
}

void StatusItemController::dragOver(bool over)
{
    m_dragging = over;
    if (m_onDragOver) {
        m_onDragOver(over);
    }
    updateHighlight();
}

void StatusItemController::updateHighlight()
{
    bool highlighted = m_hovering || m_dragging || m_popover.isShown();
    if (highlighted == m_highlighted) {
        return;
    }
    m_highlighted = highlighted;
    if (m_statusItem) {
        m_bar.setHighlighted(*m_statusItem, highlighted);
    }
}

} // namespace kit::menubar
