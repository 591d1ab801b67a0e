// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_bar.h"
#include "kit/menubar/status_item_controller.h"
#include "kit/menubar/tray_host.h"
#include "support/manual_queue.h"

#include <algorithm>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace testing_support {

using namespace kit::menubar;

// A tray host that records every request and keeps its icons in on-screen order, adding new ones
// on the side it was told to.
class FakeStatusBar final : public StatusBar
{
public:
    struct Item
    {
        StatusItemHandle handle;
        std::string identifier;
        StatusItemEvents events;
        std::optional<Glyph> image;
        std::string title;
        std::string toolTip;
        std::string label;
        std::string name;
        std::optional<AppIconImage> appImage;
        bool highlighted = false;
        int draws = 0; // image, title or app image set
        std::vector<Menu> popped;
        std::optional<Rect> geometry;
        Appearance appearance = Appearance::Light;
    };

    FakeStatusBar()
        : FakeStatusBar(trayHost(TrayHostKind::XEmbed))
    {}
    explicit FakeStatusBar(TrayHost host)
        : m_host(std::move(host))
        , m_goesLeft(m_host.newItems == NewItemPlace::Leftmost)
    {}

    const TrayHost& host() const override { return m_host; }

    std::optional<StatusItemHandle> create(const std::string& identifier,
                                           StatusItemEvents events) override
    {
        if (refuse) {
            return std::nullopt;
        }
        ++created;
        StatusItemHandle handle{m_next++};
        Item item;
        item.handle = handle;
        item.identifier = identifier;
        item.events = std::move(events);
        item.geometry = Rect{static_cast<double>(handle.value) * 24, 0, 24, 24};
        m_items[handle.value] = std::move(item);
        if (m_host.newItems == NewItemPlace::ByTitle) {
            m_row.push_back(handle); // placed by name when asked for the row
        } else if (m_goesLeft) {
            m_row.insert(m_row.begin(), handle);
        } else {
            m_row.push_back(handle);
        }
        return handle;
    }
    void remove(StatusItemHandle handle) override
    {
        ++removed;
        if (auto found = m_items.find(handle.value); found != m_items.end()) {
            m_gone.push_back(std::move(found->second));
            m_items.erase(found);
        }
        std::erase(m_row, handle);
    }
    void setImage(StatusItemHandle handle, const Glyph& glyph) override
    {
        with(handle, [&](Item& item) {
            item.image = glyph;
            item.title.clear();
            ++item.draws;
        });
    }
    void setTitle(StatusItemHandle handle, const std::string& title) override
    {
        with(handle, [&](Item& item) {
            item.title = title;
            item.image.reset();
            ++item.draws;
        });
    }
    void setAppImage(StatusItemHandle handle, const AppIconImage& image) override
    {
        with(handle, [&](Item& item) {
            item.appImage = image;
            ++item.draws;
        });
    }
    void setToolTip(StatusItemHandle handle, const std::string& toolTip) override
    {
        with(handle, [&](Item& item) { item.toolTip = toolTip; });
    }
    void setName(StatusItemHandle handle, const std::string& name) override
    {
        with(handle, [&](Item& item) { item.name = name; });
    }
    void setAccessibilityLabel(StatusItemHandle handle, const std::string& label) override
    {
        with(handle, [&](Item& item) { item.label = label; });
    }
    void setHighlighted(StatusItemHandle handle, bool highlighted) override
    {
        with(handle, [&](Item& item) { item.highlighted = highlighted; });
    }
    void popMenu(StatusItemHandle handle, const Menu& menu) override
    {
        with(handle, [&](Item& item) { item.popped.push_back(menu); });
    }
    std::optional<Rect> geometry(StatusItemHandle handle) const override
    {
        auto found = m_items.find(handle.value);
        return found == m_items.end() ? std::nullopt : found->second.geometry;
    }
    Appearance appearance(StatusItemHandle handle) const override
    {
        auto found = m_items.find(handle.value);
        return found == m_items.end() ? Appearance::Light : found->second.appearance;
    }

    // The identifiers of the icons from left to right.
    std::vector<std::string> row() const
    {
        std::vector<std::string> ids;
        auto row = m_row;
        if (m_host.newItems == NewItemPlace::ByTitle) {
            std::stable_sort(row.begin(), row.end(), [this](auto a, auto b) {
                return m_items.at(a.value).name < m_items.at(b.value).name;
            });
        }
        for (auto handle : row) {
            ids.push_back(m_items.at(handle.value).identifier);
        }
        return ids;
    }
    Item& item(const std::string& identifier)
    {
        for (auto& [value, item] : m_items) {
            if (item.identifier == identifier) {
                return item;
            }
        }
        throw std::out_of_range("no icon " + identifier);
    }
    Item* find(StatusItemHandle handle)
    {
        auto found = m_items.find(handle.value);
        return found == m_items.end() ? nullptr : &found->second;
    }
    // Changes an icon still there; the host ignores requests for one removed.
    void with(StatusItemHandle handle, const std::function<void(Item&)>& change)
    {
        if (auto* item = find(handle)) {
            change(*item);
        }
    }
    // Icons already removed, with the callbacks the host would still hold.
    std::vector<Item>& gone() { return m_gone; }
    int totalDraws() const
    {
        int draws = 0;
        for (const auto& [value, item] : m_items) {
            draws += item.draws;
        }
        return draws;
    }

    bool refuse = false;
    int created = 0;
    int removed = 0;

private:
    TrayHost m_host;
    bool m_goesLeft;
    uint64_t m_next = 1;
    std::map<uint64_t, Item> m_items;
    std::vector<StatusItemHandle> m_row;
    std::vector<Item> m_gone;
};

inline std::vector<std::string> titles(const Menu& menu)
{
    std::vector<std::string> result;
    for (const auto& item : menu.items) {
        result.push_back(item.kind == MenuItem::Kind::Separator ? "---" : item.title);
    }
    return result;
}

} // namespace testing_support
