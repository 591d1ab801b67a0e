// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/bar_hot_keys.h"
#include "kit/keys/bar_wheel.h"
#include "kit/keys/clock.h"
#include "kit/keys/modifier_watch.h"
#include "support/manual_queue.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

namespace keys_testing {

using namespace std::chrono_literals;

// Ends a fake registration by running `onEnd`.
class FakeSubscription final : public kit::keys::Subscription
{
public:
    explicit FakeSubscription(std::function<void()> onEnd)
        : m_onEnd(std::move(onEnd))
    {}
    ~FakeSubscription() override { m_onEnd(); }

private:
    std::function<void()> m_onEnd;
};

// A clock that moves only in advance(), firing due timers in order on the calling thread.
class FakeClock final : public kit::keys::Clock
{
public:
    kit::keys::Instant now() const override { return m_now; }

    std::unique_ptr<kit::keys::Subscription> repeat(std::chrono::milliseconds interval,
                                                    std::function<void()> tick) override
    {
        auto timer = std::make_shared<Timer>(Timer{interval, m_now + interval, std::move(tick)});
        m_timers.push_back(timer);
        return std::make_unique<FakeSubscription>([timer] { timer->live = false; });
    }

    void advance(std::chrono::milliseconds by)
    {
        const auto end = m_now + by;
        for (;;) {
            std::erase_if(m_timers, [](const auto& t) { return !t->live; });
            auto next =
                std::min_element(m_timers.begin(),
                                 m_timers.end(),
                                 [](const auto& a, const auto& b) { return a->due < b->due; });
            if (next == m_timers.end() || (*next)->due > end) {
                break;
            }
            auto timer = *next; // kept alive while its tick may end it
            m_now = timer->due;
            timer->due += timer->interval;
            timer->tick();
        }
        m_now = end;
    }

    size_t liveTimers() const
    {
        return static_cast<size_t>(
            std::count_if(m_timers.begin(), m_timers.end(), [](const auto& t) { return t->live; }));
    }

private:
    struct Timer
    {
        std::chrono::milliseconds interval;
        kit::keys::Instant due;
        std::function<void()> tick;
        bool live = true;
    };

    kit::keys::Instant m_now{};
    std::vector<std::shared_ptr<Timer>> m_timers;
};

using FakeMainQueue = testing_support::ManualQueue;

struct Registration
{
    uint16_t keyCode = 0;
    kit::keys::ModifierSet modifiers;
    uint32_t id = 0;

    bool operator==(const Registration&) const = default;
};

// Hot keys held in a table; refuses combos listed as taken and any combo already held, as a
// system would refuse one held by another application.
class FakeHotKeyService final : public kit::keys::HotKeyService
{
public:
    void installHandler(std::function<void(uint32_t, uint32_t)> onPress) override
    {
        ++handlersInstalled;
        m_onPress = std::move(onPress);
    }

    std::unique_ptr<kit::keys::Subscription> registerHotKey(uint16_t keyCode,
                                                            kit::keys::ModifierSet modifiers,
                                                            uint32_t signature,
                                                            uint32_t id) override
    {
        auto combo = std::make_pair(keyCode, modifiers.raw());
        if (taken.contains(combo) || m_live.contains(combo)) {
            return nullptr;
        }
        m_live.insert(combo);
        m_registered.push_back({keyCode, modifiers, id});
        signatures.insert(signature);
        return std::make_unique<FakeSubscription>([this, combo, id] {
            m_live.erase(combo);
            std::erase_if(m_registered, [id](const Registration& r) { return r.id == id; });
        });
    }

    void press(uint32_t signature, uint32_t id) const { m_onPress(signature, id); }

    // What is registered now, in registration order.
    const std::vector<Registration>& registered() const { return m_registered; }
    const Registration* withID(uint32_t id) const
    {
        auto it = std::find_if(
            m_registered.begin(), m_registered.end(), [id](const auto& r) { return r.id == id; });
        return it == m_registered.end() ? nullptr : &*it;
    }

    std::set<std::pair<uint16_t, uint32_t>> taken;
    std::set<uint32_t> signatures;
    int handlersInstalled = 0;

private:
    std::function<void(uint32_t, uint32_t)> m_onPress;
    std::set<std::pair<uint16_t, uint32_t>> m_live;
    std::vector<Registration> m_registered;
};

class FakeModifierSource final : public kit::keys::ModifierSource
{
public:
    kit::keys::ModifierSet held() const override { return heldNow; }
    kit::keys::ModifierSet heldNow;
};

class FakeScrollMonitoring final : public kit::keys::ScrollMonitoring
{
public:
    std::unique_ptr<kit::keys::Subscription>
    addLocalMonitor(std::function<void(const kit::keys::ScrollEvent&)> handler) override
    {
        return add(m_local, std::move(handler));
    }
    std::unique_ptr<kit::keys::Subscription>
    addGlobalMonitor(std::function<void(const kit::keys::ScrollEvent&)> handler) override
    {
        return add(m_global, std::move(handler));
    }

    void sendLocal(const kit::keys::ScrollEvent& event) const { send(m_local, event); }
    void sendGlobal(const kit::keys::ScrollEvent& event) const { send(m_global, event); }
    size_t monitorCount() const { return m_local.size() + m_global.size(); }

private:
    using Handlers =
        std::vector<std::pair<int, std::function<void(const kit::keys::ScrollEvent&)>>>;

    std::unique_ptr<kit::keys::Subscription>
    add(Handlers& handlers, std::function<void(const kit::keys::ScrollEvent&)> handler)
    {
        int id = m_nextID++;
        handlers.emplace_back(id, std::move(handler));
        return std::make_unique<FakeSubscription>([&handlers, id] {
            std::erase_if(handlers, [id](const auto& h) { return h.first == id; });
        });
    }
    static void send(const Handlers& handlers, const kit::keys::ScrollEvent& event)
    {
        for (const auto& [id, handler] : handlers) {
            handler(event);
        }
    }

    Handlers m_local;
    Handlers m_global;
    int m_nextID = 0;
};

} // namespace keys_testing
