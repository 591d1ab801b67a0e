// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/bar_hot_keys.h"
#include "kit/keys/bar_wheel.h"
#include "kit/keys/clock.h"
#include "kit/keys/modifier_watch.h"
#include "kit/keys/modifiers.h"
#include "kit/keys/subscription.h"

#include <QObject>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace desktop {

// Global hot keys as X key grabs on the root window, one per key code the keysym has, each also
// grabbed with NumLock and CapsLock held so those locks do not disable it. Presses (not their
// auto-repeats) reach the handler on the GUI thread. Off X11 (Wayland, offscreen) it grabs nothing
// and answers null. GUI thread only; handles may outlive the service, the
// service must not outlive the QApplication whose connection it uses.
class X11HotKeys final : public kit::keys::HotKeyService
{
public:
    // Grabs on the display Qt itself runs on, reading its events through a native event filter;
    // unavailable, silently, when Qt runs elsewhere.
    X11HotKeys();
    // Grabs on an own connection to `display` (such as ":78"), read on the GUI thread whatever
    // platform Qt runs on; unavailable, saying so in the log, when the display cannot be opened.
    explicit X11HotKeys(const std::string& display);
    ~X11HotKeys() override;
    X11HotKeys(const X11HotKeys&) = delete;
    X11HotKeys& operator=(const X11HotKeys&) = delete;

    // Whether keys can be grabbed at all.
    bool isAvailable() const;

    void installHandler(std::function<void(uint32_t signature, uint32_t id)> onPress) override;
    // Null when the key has no X equivalent, is not on the keyboard, or another client holds the
    // combination.
    std::unique_ptr<kit::keys::Subscription> registerHotKey(uint16_t keyCode,
                                                            kit::keys::ModifierSet modifiers,
                                                            uint32_t signature,
                                                            uint32_t id) override;

    // The X keysym of a stored key code; none for a key X has no equivalent of.
    static std::optional<uint32_t> keysymFor(uint16_t keyCode);

    struct Impl;

private:
    std::shared_ptr<Impl> m_impl;
};

// The modifiers held now: the X pointer query's mask on X11 (Super as Command, Alt as Option),
// Qt's idea of the keyboard elsewhere. GUI thread.
class X11ModifierSource final : public kit::keys::ModifierSource
{
public:
    X11ModifierSource();
    kit::keys::ModifierSet held() const override;

private:
    // Null off X11.
    void* m_connection = nullptr;
    uint32_t m_root = 0;
    // The X modifier bits Alt and Super sit on, read once from the keyboard's modifier map.
    uint16_t m_altMask = 0;
    uint16_t m_superMask = 0;
};

// Time from the steady clock; repeating timers as QTimers on the GUI thread. A handle may be
// destroyed from inside its own tick.
class QtClock final : public kit::keys::Clock
{
public:
    kit::keys::Instant now() const override;
    std::unique_ptr<kit::keys::Subscription> repeat(std::chrono::milliseconds interval,
                                                    std::function<void()> tick) override;
};

// Wheel events over the application's own windows and tray icons. An XEmbed tray icon passes
// the wheel on to its QSystemTrayIcon, which is then the event's window; a StatusNotifierItem host
// keeps the wheel to itself. Events sent to other applications are not visible to us, so the
// global monitor never fires. GUI thread.
class QtScrollMonitoring final : public kit::keys::ScrollMonitoring
{
public:
    std::unique_ptr<kit::keys::Subscription>
    addLocalMonitor(std::function<void(const kit::keys::ScrollEvent&)> handler) override;
    std::unique_ptr<kit::keys::Subscription>
    addGlobalMonitor(std::function<void(const kit::keys::ScrollEvent&)> handler) override;

    // How a tray icon or a top-level widget appears as a ScrollEvent's window, for
    // BarWheel::isOverIcon.
    static kit::keys::WindowRef windowRefOf(const QObject* iconOrWindow)
    {
        return reinterpret_cast<kit::keys::WindowRef>(iconOrWindow);
    }
};

} // namespace desktop
