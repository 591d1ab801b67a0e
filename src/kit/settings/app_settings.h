// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"
#include "kit/settings/key_value_store.h"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace kit::settings {

// Raw modifier flags as the settings store them (the same on every platform, so files travel).
namespace modifier {
inline constexpr std::uint32_t kShift = 0x20000;
inline constexpr std::uint32_t kControl = 0x40000;
inline constexpr std::uint32_t kOption = 0x80000;   // Alt
inline constexpr std::uint32_t kCommand = 0x100000; // Super
} // namespace modifier

// A global hot key: a virtual key code (0 is A, 5 is G on the ANSI layout) and raw modifiers.
struct HotKeyCombo
{
    std::uint16_t keyCode = 0;
    std::uint32_t modifiers = 0;

    bool operator==(const HotKeyCombo&) const = default;
};

// Which modifiers, held with a digit, open the n-th shortcut of the showing bar.
enum class DigitKeys {
    OptionCommand,
    ControlCommand,
    ShiftControl,
    Custom, // customShortcutModifiers
    Off,
};

enum class AppAppearance {
    System,
    Light,
    Dark,
};

// The person's app-wide choices, read once from the store and kept in memory; setting one writes
// its key at once. Observers hear of each property that changed, also when another process
// changed the store and it was reloaded. Main thread only; the store must outlive this object.
class AppSettings
{
public:
    enum class Key {
        ActiveBarHotKey,
        ShortcutKeys,
        CustomShortcutModifiers,
        MenuHotKey,
        Appearance,
        AssistantsEnabled,
        AssistantWritesEnabled,
        BlocksAds,
        AsksWhereToSaveDownloads,
        NewWindowLinks,
        WheelSwitchesBars,
        WelcomeShown,
        LoginItemOffered,
    };
    static constexpr size_t kKeyCount = 13;

    static constexpr HotKeyCombo kActiveBarHotKeyDefault{0,
                                                         modifier::kControl | modifier::kCommand};
    static constexpr HotKeyCombo kMenuHotKeyDefault{5, modifier::kControl | modifier::kCommand};
    static constexpr std::uint32_t kCustomModifiersDefault = modifier::kControl | modifier::kOption;

    explicit AppSettings(KeyValueStore& store);
    ~AppSettings();
    AppSettings(const AppSettings&) = delete;
    AppSettings& operator=(const AppSettings&) = delete;

    // The stored name of a key ("activeBarHotKey").
    static std::string_view keyName(Key key);
    static std::optional<Key> keyNamed(std::string_view name);

    // Nothing: the hot key is off.
    const std::optional<HotKeyCombo>& activeBarHotKey() const { return checked(m_activeBarHotKey); }
    void setActiveBarHotKey(std::optional<HotKeyCombo> combo);
    DigitKeys shortcutKeys() const { return checked(m_shortcutKeys); }
    void setShortcutKeys(DigitKeys keys);
    std::uint32_t customShortcutModifiers() const { return checked(m_customShortcutModifiers); }
    void setCustomShortcutModifiers(std::uint32_t modifiers);
    const std::optional<HotKeyCombo>& menuHotKey() const { return checked(m_menuHotKey); }
    void setMenuHotKey(std::optional<HotKeyCombo> combo);
    AppAppearance appearance() const { return checked(m_appearance); }
    void setAppearance(AppAppearance appearance);
    bool assistantsEnabled() const { return checked(m_assistantsEnabled); }
    void setAssistantsEnabled(bool enabled);
    bool assistantWritesEnabled() const { return checked(m_assistantWritesEnabled); }
    void setAssistantWritesEnabled(bool enabled);
    bool blocksAds() const { return checked(m_blocksAds); }
    void setBlocksAds(bool blocks);
    bool asksWhereToSaveDownloads() const { return checked(m_asksWhereToSaveDownloads); }
    void setAsksWhereToSaveDownloads(bool asks);
    library::NewWindowLinks newWindowLinks() const { return checked(m_newWindowLinks); }
    void setNewWindowLinks(library::NewWindowLinks links);
    bool wheelSwitchesBars() const { return checked(m_wheelSwitchesBars); }
    void setWheelSwitchesBars(bool switches);
    bool welcomeShown() const { return checked(m_welcomeShown); }
    void setWelcomeShown(bool shown);
    bool loginItemOffered() const { return checked(m_loginItemOffered); }
    void setLoginItemOffered(bool offered);

    // The standard browsing defaults with this object's ad blocking, downloads and new-window
    // choices.
    library::BrowsingDefaults browsing() const;

    // Called after the property changed, once per change.
    size_t observe(Key key, std::function<void()> observer);
    // Called with every property that changed.
    size_t observeAll(std::function<void(Key)> observer);
    void removeObserver(size_t token);

    // By name, for a command line. Values are written as they are read back: true/false, the
    // enumeration's word, modifiers as "Ctrl+Alt", hot keys as "Ctrl+Super+G" or "off"; the stored
    // format's own modifier words ("control+command+G") are taken too.
    enum class ValueType {
        Boolean,
        Choice,    // one of a few words
        Modifiers, // modifier names joined by +
        HotKey,    // modifiers and a key joined by +, or off
    };
    struct KeyDescription
    {
        std::string_view name;
        ValueType type;
        // What the key takes, as the end of "“name” takes ...": "true or false".
        std::string takes;
    };
    // Every key's name, in stored order.
    std::vector<std::string> keys() const;
    // Every key with the type of value it takes, in stored order.
    static std::vector<KeyDescription> keyDescriptions();
    // Nothing for an unknown key.
    std::optional<std::string> get(std::string_view key) const;
    // Nothing when set and saved, else one sentence saying why not: an unknown key, a value of
    // the wrong type, or the store's reason for not saving it.
    std::optional<std::string> set(std::string_view key, std::string_view text);
    static std::string unknownKeyMessage(std::string_view key);

    // Text forms of the values, shared with whoever shows or takes them as text.
    static std::string modifiersText(std::uint32_t modifiers);
    static std::optional<std::uint32_t> modifiersFromText(std::string_view text);
    static std::string hotKeyText(const std::optional<HotKeyCombo>& combo);
    // Outer nothing: not a hot key; inner nothing: "off".
    static std::optional<std::optional<HotKeyCombo>> hotKeyFromText(std::string_view text);

    // How hot keys are stored: JSON data of the combo; empty data is off.
    static support::Bytes hotKeyData(const std::optional<HotKeyCombo>& combo);
    // The stored value read as the table says: no value gives the fallback, empty data or data
    // that is not a combo gives off.
    static std::optional<HotKeyCombo> readHotKey(const std::optional<Value>& stored,
                                                 const std::optional<HotKeyCombo>& fallback);

private:
    // Values are read on the thread that made this object; a read elsewhere is a race with the
    // next write, so it is reported.
    template <class T> const T& checked(const T& value) const
    {
        if (std::this_thread::get_id() != m_thread) {
            reportOtherThread();
        }
        return value;
    }
    void reportOtherThread() const;
    void readAll();
    // Re-reads one key; true when its property changed.
    bool read(Key key);
    void write(Key key, Value value);
    void storeChanged(const std::string& name);
    void notify(Key key);
    static KeyDescription describe(Key key);
    // Sets the key from its text form; false when the text is not a value of its type.
    bool assign(Key key, std::string_view word);

    KeyValueStore& m_store;
    size_t m_storeToken = 0;
    std::thread::id m_thread = std::this_thread::get_id();

    std::optional<HotKeyCombo> m_activeBarHotKey = kActiveBarHotKeyDefault;
    DigitKeys m_shortcutKeys = DigitKeys::ControlCommand;
    std::uint32_t m_customShortcutModifiers = kCustomModifiersDefault;
    std::optional<HotKeyCombo> m_menuHotKey = kMenuHotKeyDefault;
    AppAppearance m_appearance = AppAppearance::System;
    bool m_assistantsEnabled = false;
    bool m_assistantWritesEnabled = true;
    bool m_blocksAds = true;
    bool m_asksWhereToSaveDownloads = true;
    library::NewWindowLinks m_newWindowLinks = library::NewWindowLinks::Browser;
    bool m_wheelSwitchesBars = true;
    bool m_welcomeShown = false;
    bool m_loginItemOffered = false;

    std::vector<std::pair<size_t, std::function<void(Key)>>> m_observers;
    size_t m_nextObserver = 1;
};

} // namespace kit::settings

namespace kit::library {

template <> struct EnumWords<settings::DigitKeys>
{
    static constexpr std::array<std::string_view, 5> kWords{
        "optionCommand", "controlCommand", "shiftControl", "custom", "off"};
};
template <> struct EnumWords<settings::AppAppearance>
{
    static constexpr std::array<std::string_view, 3> kWords{"system", "light", "dark"};
};

} // namespace kit::library
