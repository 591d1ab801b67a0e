// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/menu.h"
#include "kit/menubar/status_bar.h"
#include "kit/support/main_queue.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kit::menubar {

enum class Edge {
    Top,
    Bottom,
    Left,
    Right,
};

// The panel the application's icon shows. Transient: it closes by itself when the person works
// elsewhere, and reports every closing to the closed handler. Main thread only.
class Popover
{
public:
    virtual ~Popover() = default;

    // Shows the panel at the icon's edge, animated, and makes it the key window.
    virtual void show(StatusItemHandle anchor, Edge edge) = 0;
    virtual void close() = 0;
    virtual bool isShown() const = 0;
    // The panel window's screen rectangle; nothing when it is not shown or not known.
    virtual std::optional<Rect> frame() const = 0;
    virtual void setClosedHandler(std::function<void()> closed) = 0;
};

// Application-wide events the application's icon listens to while its panel is open.
// Main thread only; handlers run on the main thread.
class AppEvents
{
public:
    using Token = size_t;

    virtual ~AppEvents() = default;

    // Left and right mouse-down anywhere outside this application, with the pointer's location.
    virtual Token addGlobalMouseDown(std::function<void(Point)> handler) = 0;
    // The application stopped being the active one.
    virtual Token addResignActive(std::function<void()> handler) = 0;
    virtual void remove(Token token) = 0;
    virtual void activate() = 0;
    virtual bool isActive() const = 0;
};

// What a drag over the application's icon carries.
struct DragData
{
    std::vector<std::string> urls;     // URL objects, read first
    std::optional<std::string> string; // text offered as a URL
};

// Takes drops of files and links onto the application's icon. A drag that carries no URL is
// refused and leaves no highlight.
class DropCatcher
{
public:
    std::function<bool(const std::vector<std::string>& urls)> accept;
    std::function<void(bool over)> over;

    // The URLs a drag carries: its URL objects, else its text when that is one address.
    static std::vector<std::string> urls(const DragData& drag);

    // True when a copy is offered.
    bool entered(const DragData& drag);
    void exited();
    bool perform(const DragData& drag);
    bool isReceiving() const { return m_receiving; }

private:
    void setReceiving(bool receiving);

    bool m_receiving = false;
};

// The application's own icon: its image, its clicks (the application menu or the panel), drops
// and hover, and the monitors that close the panel on a click elsewhere. Main thread only; the
// status bar, popover, events and queue must outlive it.
class StatusItemController
{
public:
    static constexpr const char* kDefaultSymbol = "vantorel-symbolic";

    StatusItemController(StatusBar& bar,
                         Popover& popover,
                         AppEvents& events,
                         support::MainQueue& queue,
                         std::string appName);
    ~StatusItemController();
    StatusItemController(const StatusItemController&) = delete;
    StatusItemController& operator=(const StatusItemController&) = delete;

    // What the icon draws. Each change schedules one render on the main queue.
    void setSymbolName(std::string name);
    void setImageName(std::optional<std::string> name);
    void setGauge(std::optional<StatusItemGauge> gauge);
    void setSummary(std::string summary);
    void setAlert(bool alert);
    // Draws for this appearance instead of the menu bar's.
    void setAppearance(std::optional<Appearance> appearance);

    void setMenuProvider(std::function<Menu()> provider) { m_menuProvider = std::move(provider); }
    void setOnOpenSettings(std::function<void()> action) { m_onOpenSettings = std::move(action); }
    void setOnQuit(std::function<void()> action) { m_onQuit = std::move(action); }
    void setOnPanelOpened(std::function<void()> action) { m_onPanelOpened = std::move(action); }
    void setOnPanelClosed(std::function<void()> action) { m_onPanelClosed = std::move(action); }
    void setOnDrop(std::function<bool(const std::vector<std::string>&)> drop);
    void setOnDragOver(std::function<void(bool)> action) { m_onDragOver = std::move(action); }

    // Creates the icon and draws it; once.
    void install();
    // Draws the icon unless it would draw the same as last time.
    void render();
    void statusItemClicked(const std::optional<Click>& event);
    void togglePopover();
    void showPopover(Edge edge = Edge::Bottom);
    void showMenu();
    Menu defaultMenu() const;
    void installMonitors();
    void removeMonitors();
    void popoverDidClose();
    // Pops the menu under the icon.
    void open(const Menu& menu);
    void menuOpenSettings();
    void menuQuit();
    // The pointer entered or left the icon.
    void hoverChanged(bool inside);

    DropCatcher& dropCatcher() { return m_dropCatcher; }
    std::optional<StatusItemHandle> statusItem() const { return m_statusItem; }
    const std::optional<AppIconImage>& rendered() const { return m_rendered; }
    bool hasMonitors() const { return !m_monitors.empty(); }

private:
    void setNeedsRender();
    void updateHighlight();
    void dragOver(bool over);
    // The menu shown on a secondary click: the provider's, else the default one.
    Menu applicationMenu() const;

    StatusBar& m_bar;
    Popover& m_popover;
    AppEvents& m_events;
    support::MainQueue& m_queue;
    std::string m_appName;

    std::string m_symbolName = kDefaultSymbol;
    std::optional<std::string> m_imageName;
    std::optional<StatusItemGauge> m_gauge;
    std::string m_summary;
    bool m_alert = false;
    std::optional<Appearance> m_appearance;

    std::function<Menu()> m_menuProvider;
    std::function<void()> m_onOpenSettings;
    std::function<void()> m_onQuit;
    std::function<void()> m_onPanelOpened;
    std::function<void()> m_onPanelClosed;
    std::function<bool(const std::vector<std::string>&)> m_onDrop;
    std::function<void(bool)> m_onDragOver;

    std::optional<StatusItemHandle> m_statusItem;
    bool m_renderPending = false;
    std::optional<AppIconImage> m_rendered;
    std::vector<AppEvents::Token> m_monitors;
    DropCatcher m_dropCatcher;
    bool m_hovering = false;
    bool m_dragging = false;
    bool m_highlighted = false;
    // Held weakly by queued renders and by the host's callbacks.
    std::shared_ptr<StatusItemController*> m_self;
};

} // namespace kit::menubar
