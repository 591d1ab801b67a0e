// SPDX-License-Identifier: MIT
#include "kit/settings/app_settings.h"

#include "kit/support/log.h"
#include "kit/support/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>

namespace kit::settings {

using library::enumFromWord;
using library::enumWord;
using library::EnumWords;

namespace {

using support::trimmed;

constexpr support::Logger kLog("settings");

constexpr std::array<std::string_view, AppSettings::kKeyCount> kKeyNames{
    "activeBarHotKey",
    "shortcutKeys",
    "customShortcutModifiers",
    "menuHotKey",
    "appearance",
    "assistantsEnabled",
    "assistantWritesEnabled",
    "blocksAds",
    "asksWhereToSaveDownloads",
    "newWindowLinks",
    "wheelSwitchesBars",
    "welcomeShown",
    "loginItemOffered",
};

static_assert(static_cast<size_t>(AppSettings::Key::LoginItemOffered) + 1
              == AppSettings::kKeyCount);

std::string curlyQuoted(std::string_view text)
{
    return "“" + std::string(text) + "”";
}

std::string lowered(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(std::tolower(c));
    });
    return out;
}

template <class Integer> std::optional<Integer> wholeNumber(std::string_view text)
{
    text = trimmed(text);
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    Integer number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

// Settings files kept as INI text hold every value as text, so text that spells the wanted type
// counts as that type.
std::optional<bool> asBool(const std::optional<Value>& stored)
{
    if (!stored) {
        return std::nullopt;
    }
    if (const auto* flag = std::get_if<bool>(&*stored)) {
        return *flag;
    }
    if (const auto* number = std::get_if<std::int64_t>(&*stored)) {
        if (*number == 0 || *number == 1) {
            return *number == 1;
        }
    }
    if (const auto* text = std::get_if<std::string>(&*stored)) {
        if (*text == "true") {
            return true;
        }
        if (*text == "false") {
            return false;
        }
    }
    return std::nullopt;
}

std::optional<std::string> asText(const std::optional<Value>& stored)
{
    if (stored) {
        if (const auto* text = std::get_if<std::string>(&*stored)) {
            return *text;
        }
    }
    return std::nullopt;
}

template <class E> E readEnum(const std::optional<Value>& stored, E fallback)
{
    const auto text = asText(stored);
    return text ? enumFromWord<E>(*text).value_or(fallback) : fallback;
}

std::optional<std::uint32_t> asModifiers(const std::optional<Value>& stored)
{
    if (!stored) {
        return std::nullopt;
    }
    std::optional<std::int64_t> number;
    if (const auto* whole = std::get_if<std::int64_t>(&*stored)) {
        number = *whole;
    } else if (const auto* text = std::get_if<std::string>(&*stored)) {
        number = wholeNumber<std::int64_t>(*text);
    }
    if (!number || *number < 0 || *number > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(*number);
}

struct ModifierName
{
    std::uint32_t flag;
    std::string_view name;
};
// In the order menus show them, in this desktop's words. The stored format's own words are still
// taken, so a line written for another desktop works here too.
constexpr std::array<ModifierName, 4> kModifierNames{{
    {modifier::kControl, "Ctrl"},
    {modifier::kOption, "Alt"},
    {modifier::kShift, "Shift"},
    {modifier::kCommand, "Super"},
}};
constexpr std::array<ModifierName, 6> kOtherModifierNames{{
    {modifier::kControl, "control"},
    {modifier::kOption, "option"},
    {modifier::kCommand, "command"},
    {modifier::kCommand, "meta"},
    {modifier::kCommand, "cmd"},
    {modifier::kShift, "shift"},
}};

std::optional<std::uint32_t> modifierNamed(std::string_view word)
{
    const std::string name = lowered(word);
    for (const auto& known : kModifierNames) {
        if (lowered(known.name) == name) {
            return known.flag;
        }
    }
    for (const auto& known : kOtherModifierNames) {
        if (known.name == name) {
            return known.flag;
        }
    }
    return std::nullopt;
}

// Virtual key codes of the ANSI layout, for the keys a hot key is usually made of.
struct KeyName
{
    std::uint16_t code;
    std::string_view name;
};
constexpr std::array<KeyName, 37> kKeyNamesByCode{{
    {0, "A"},  {11, "B"}, {8, "C"},  {2, "D"},  {14, "E"},     {3, "F"},  {5, "G"},  {4, "H"},
    {34, "I"}, {38, "J"}, {40, "K"}, {37, "L"}, {46, "M"},     {45, "N"}, {31, "O"}, {35, "P"},
    {12, "Q"}, {15, "R"}, {1, "S"},  {17, "T"}, {32, "U"},     {9, "V"},  {13, "W"}, {7, "X"},
    {16, "Y"}, {6, "Z"},  {29, "0"}, {18, "1"}, {19, "2"},     {20, "3"}, {21, "4"}, {23, "5"},
    {22, "6"}, {26, "7"}, {28, "8"}, {25, "9"}, {49, "Space"},
}};

std::string keyText(std::uint16_t code)
{
    for (const auto& key : kKeyNamesByCode) {
        if (key.code == code) {
            return std::string(key.name);
        }
    }
    return "#" + std::to_string(code);
}

std::optional<std::uint16_t> keyFromText(std::string_view text)
{
    if (text.size() > 1 && text.front() == '#') {
        return wholeNumber<std::uint16_t>(text.substr(1));
    }
    const std::string name = lowered(text);
    for (const auto& key : kKeyNamesByCode) {
        if (lowered(key.name) == name) {
            return key.code;
        }
    }
    return std::nullopt;
}

std::vector<std::string_view> splitPlus(std::string_view text)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (;;) {
        const size_t plus = text.find('+', start);
        parts.push_back(trimmed(text.substr(start, plus - start)));
        if (plus == std::string_view::npos) {
            return parts;
        }
        start = plus + 1;
    }
}

template <class E> std::string wordsList()
{
    const auto& words = EnumWords<E>::kWords;
    std::string list;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i > 0) {
            list += i + 1 == words.size() ? " or " : ", ";
        }
        list += words[i];
    }
    return list;
}

std::string takesSentence(std::string_view key, const std::string& takes)
{
    return curlyQuoted(key) + " takes " + takes + ".";
}

} // namespace

void AppSettings::reportOtherThread() const
{
    kLog.error("settings read off the main thread; the value may be torn or stale");
}

AppSettings::AppSettings(KeyValueStore& store)
    : m_store(store)
{
    readAll();
    m_storeToken = m_store.observe([this](const std::string& name) { storeChanged(name); });
}

AppSettings::~AppSettings()
{
    m_store.removeObserver(m_storeToken);
}

std::string_view AppSettings::keyName(Key key)
{
    return kKeyNames[static_cast<size_t>(key)];
}

std::optional<AppSettings::Key> AppSettings::keyNamed(std::string_view name)
{
    for (size_t i = 0; i < kKeyNames.size(); ++i) {
        if (kKeyNames[i] == name) {
            return static_cast<Key>(i);
        }
    }
    return std::nullopt;
}

support::Bytes AppSettings::hotKeyData(const std::optional<HotKeyCombo>& combo)
{
    if (!combo) {
        return {};
    }
    const std::string text =
        nlohmann::json{{"keyCode", combo->keyCode}, {"modifiers", combo->modifiers}}.dump();
    return support::Bytes(text.begin(), text.end());
}

std::optional<HotKeyCombo> AppSettings::readHotKey(const std::optional<Value>& stored,
                                                   const std::optional<HotKeyCombo>& fallback)
{
    if (!stored) {
        return fallback;
    }
    std::string text;
    if (const auto* bytes = std::get_if<support::Bytes>(&*stored)) {
        text.assign(bytes->begin(), bytes->end());
    } else if (const auto* string = std::get_if<std::string>(&*stored)) {
        text = *string;
    } else {
        return std::nullopt;
    }
    if (text.empty()) {
        return std::nullopt;
    }
    const auto document = nlohmann::json::parse(text, nullptr, false);
    if (!document.is_object()) {
        return std::nullopt;
    }
    const auto keyCode = document.find("keyCode");
    const auto modifiers = document.find("modifiers");
    if (keyCode == document.end() || modifiers == document.end() || !keyCode->is_number_unsigned()
        || !modifiers->is_number_unsigned()
        || keyCode->get<std::uint64_t>() > std::numeric_limits<std::uint16_t>::max()
        || modifiers->get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return HotKeyCombo{keyCode->get<std::uint16_t>(), modifiers->get<std::uint32_t>()};
}

void AppSettings::readAll()
{
    for (size_t i = 0; i < kKeyCount; ++i) {
        read(static_cast<Key>(i));
    }
}

bool AppSettings::read(Key key)
{
    const auto stored = m_store.value(std::string(keyName(key)));
    const auto update = [](auto& property, auto value) {
        if (property == value) {
            return false;
        }
        property = std::move(value);
        return true;
    };
    const auto flag = [&](bool& property, bool fallback) {
        return update(property, asBool(stored).value_or(fallback));
    };
    switch (key) {
    case Key::ActiveBarHotKey:
        return update(m_activeBarHotKey, readHotKey(stored, kActiveBarHotKeyDefault));
    case Key::ShortcutKeys:
        return update(m_shortcutKeys, readEnum(stored, DigitKeys::ControlCommand));
    case Key::CustomShortcutModifiers:
        return update(m_customShortcutModifiers,
                      asModifiers(stored).value_or(kCustomModifiersDefault));
    case Key::MenuHotKey:
        return update(m_menuHotKey, readHotKey(stored, kMenuHotKeyDefault));
    case Key::Appearance:
        return update(m_appearance, readEnum(stored, AppAppearance::System));
    case Key::AssistantsEnabled:
        return flag(m_assistantsEnabled, false);
    case Key::AssistantWritesEnabled:
        return flag(m_assistantWritesEnabled, true);
    case Key::BlocksAds:
        return flag(m_blocksAds, library::BrowsingDefaults::standard().blocksAds);
    case Key::AsksWhereToSaveDownloads:
        return flag(m_asksWhereToSaveDownloads,
                    library::BrowsingDefaults::standard().asksWhereToSaveDownloads);
    case Key::NewWindowLinks:
        return update(m_newWindowLinks,
                      readEnum(stored, library::BrowsingDefaults::standard().newWindowLinks));
    case Key::WheelSwitchesBars:
        return flag(m_wheelSwitchesBars, true);
    case Key::WelcomeShown:
        return flag(m_welcomeShown, false);
    case Key::LoginItemOffered:
        return flag(m_loginItemOffered, false);
    }
    return false;
}

void AppSettings::storeChanged(const std::string& name)
{
    if (const auto key = keyNamed(name); key && read(*key)) {
        notify(*key);
    }
}

void AppSettings::notify(Key key)
{
    const auto observers = m_observers;
    for (const auto& [token, observer] : observers) {
        observer(key);
    }
}

void AppSettings::write(Key key, Value value)
{
    const std::string name(keyName(key));
    m_store.setValue(name, std::move(value));
    // A store that does not announce its own writes still gets the property re-read.
    storeChanged(name);
}

void AppSettings::setActiveBarHotKey(std::optional<HotKeyCombo> combo)
{
    write(Key::ActiveBarHotKey, Value(hotKeyData(combo)));
}
void AppSettings::setShortcutKeys(DigitKeys keys)
{
    write(Key::ShortcutKeys, Value(std::string(enumWord(keys))));
}
void AppSettings::setCustomShortcutModifiers(std::uint32_t modifiers)
{
    write(Key::CustomShortcutModifiers, Value(static_cast<std::int64_t>(modifiers)));
}
void AppSettings::setMenuHotKey(std::optional<HotKeyCombo> combo)
{
    write(Key::MenuHotKey, Value(hotKeyData(combo)));
}
void AppSettings::setAppearance(AppAppearance appearance)
{
    write(Key::Appearance, Value(std::string(enumWord(appearance))));
}
void AppSettings::setAssistantsEnabled(bool enabled)
{
    write(Key::AssistantsEnabled, Value(enabled));
}
void AppSettings::setAssistantWritesEnabled(bool enabled)
{
    write(Key::AssistantWritesEnabled, Value(enabled));
}
void AppSettings::setBlocksAds(bool blocks)
{
    write(Key::BlocksAds, Value(blocks));
}
void AppSettings::setAsksWhereToSaveDownloads(bool asks)
{
    write(Key::AsksWhereToSaveDownloads, Value(asks));
}
void AppSettings::setNewWindowLinks(library::NewWindowLinks links)
{
    write(Key::NewWindowLinks, Value(std::string(enumWord(links))));
}
void AppSettings::setWheelSwitchesBars(bool switches)
{
    write(Key::WheelSwitchesBars, Value(switches));
}
void AppSettings::setWelcomeShown(bool shown)
{
    write(Key::WelcomeShown, Value(shown));
}
void AppSettings::setLoginItemOffered(bool offered)
{
    write(Key::LoginItemOffered, Value(offered));
}

library::BrowsingDefaults AppSettings::browsing() const
{
    auto defaults = library::BrowsingDefaults::standard();
    defaults.blocksAds = checked(m_blocksAds);
    defaults.asksWhereToSaveDownloads = m_asksWhereToSaveDownloads;
    defaults.newWindowLinks = m_newWindowLinks;
    return defaults;
}

size_t AppSettings::observe(Key key, std::function<void()> observer)
{
    return observeAll([key, observer = std::move(observer)](Key changed) {
        if (changed == key) {
            observer();
        }
    });
}

size_t AppSettings::observeAll(std::function<void(Key)> observer)
{
    const size_t token = m_nextObserver++;
    m_observers.emplace_back(token, std::move(observer));
    return token;
}

void AppSettings::removeObserver(size_t token)
{
    std::erase_if(m_observers, [token](const auto& entry) { return entry.first == token; });
}

std::string AppSettings::modifiersText(std::uint32_t modifiers)
{
    std::string text;
    for (const auto& known : kModifierNames) {
        if ((modifiers & known.flag) != 0) {
            text += text.empty() ? "" : "+";
            text += known.name;
            modifiers &= ~known.flag;
        }
    }
    if (modifiers != 0) {
        char hex[16];
        const auto end = std::to_chars(hex, hex + sizeof hex, modifiers, 16).ptr;
        text += text.empty() ? "0x" : "+0x";
        text.append(hex, end);
    }
    return text.empty() ? "none" : text;
}

std::optional<std::uint32_t> AppSettings::modifiersFromText(std::string_view text)
{
    text = trimmed(text);
    if (lowered(text) == "none") {
        return 0;
    }
    std::uint32_t modifiers = 0;
    for (const auto part : splitPlus(text)) {
        if (auto flag = modifierNamed(part)) {
            modifiers |= *flag;
        } else if (auto number = wholeNumber<std::uint32_t>(part)) {
            modifiers |= *number;
        } else {
            return std::nullopt;
        }
    }
    return modifiers;
}

std::string AppSettings::hotKeyText(const std::optional<HotKeyCombo>& combo)
{
    if (!combo) {
        return "off";
    }
    const std::string key = keyText(combo->keyCode);
    return combo->modifiers == 0 ? key : modifiersText(combo->modifiers) + "+" + key;
}

std::optional<std::optional<HotKeyCombo>> AppSettings::hotKeyFromText(std::string_view text)
{
    text = trimmed(text);
    if (lowered(text) == "off") {
        // Built in place: g++ 12 at -O2 warns falsely about copying an empty inner optional.
        std::optional<std::optional<HotKeyCombo>> off(std::in_place);
        return off;
    }
    auto parts = splitPlus(text);
    const auto key = keyFromText(parts.back());
    if (!key) {
        return std::nullopt;
    }
    parts.pop_back();
    std::uint32_t modifiers = 0;
    for (const auto part : parts) {
        const auto flag = modifierNamed(part);
        if (!flag) {
            return std::nullopt;
        }
        modifiers |= *flag;
    }
    return std::optional<HotKeyCombo>(HotKeyCombo{*key, modifiers});
}

AppSettings::KeyDescription AppSettings::describe(Key key)
{
    const std::string_view name = keyName(key);
    switch (key) {
    case Key::ActiveBarHotKey:
    case Key::MenuHotKey:
        return {name, ValueType::HotKey, "a key with modifiers, such as Ctrl+Super+G, or off"};
    case Key::ShortcutKeys:
        return {name, ValueType::Choice, wordsList<DigitKeys>()};
    case Key::Appearance:
        return {name, ValueType::Choice, wordsList<AppAppearance>()};
    case Key::NewWindowLinks:
        return {name, ValueType::Choice, wordsList<library::NewWindowLinks>()};
    case Key::CustomShortcutModifiers:
        return {name, ValueType::Modifiers, "modifiers joined by +, such as Ctrl+Alt"};
    case Key::AssistantsEnabled:
    case Key::AssistantWritesEnabled:
    case Key::BlocksAds:
    case Key::AsksWhereToSaveDownloads:
    case Key::WheelSwitchesBars:
    case Key::WelcomeShown:
    case Key::LoginItemOffered:
        break;
    }
    return {name, ValueType::Boolean, "true or false"};
}

std::vector<std::string> AppSettings::keys() const
{
    return {kKeyNames.begin(), kKeyNames.end()};
}

std::vector<AppSettings::KeyDescription> AppSettings::keyDescriptions()
{
    std::vector<KeyDescription> keys;
    keys.reserve(kKeyCount);
    for (size_t i = 0; i < kKeyCount; ++i) {
        keys.push_back(describe(static_cast<Key>(i)));
    }
    return keys;
}

std::string AppSettings::unknownKeyMessage(std::string_view key)
{
    std::string message = curlyQuoted(key) + " is not a setting. Settings are: ";
    for (size_t i = 0; i < kKeyNames.size(); ++i) {
        message += i == 0 ? "" : ", ";
        message += kKeyNames[i];
    }
    return message + ".";
}

std::optional<std::string> AppSettings::get(std::string_view name) const
{
    const auto key = keyNamed(name);
    if (!key) {
        return std::nullopt;
    }
    const auto flag = [](bool value) { return std::string(value ? "true" : "false"); };
    switch (*key) {
    case Key::ActiveBarHotKey:
        return hotKeyText(m_activeBarHotKey);
    case Key::ShortcutKeys:
        return std::string(enumWord(m_shortcutKeys));
    case Key::CustomShortcutModifiers:
        return modifiersText(m_customShortcutModifiers);
    case Key::MenuHotKey:
        return hotKeyText(m_menuHotKey);
    case Key::Appearance:
        return std::string(enumWord(m_appearance));
    case Key::AssistantsEnabled:
        return flag(m_assistantsEnabled);
    case Key::AssistantWritesEnabled:
        return flag(m_assistantWritesEnabled);
    case Key::BlocksAds:
        return flag(m_blocksAds);
    case Key::AsksWhereToSaveDownloads:
        return flag(m_asksWhereToSaveDownloads);
    case Key::NewWindowLinks:
        return std::string(enumWord(m_newWindowLinks));
    case Key::WheelSwitchesBars:
        return flag(m_wheelSwitchesBars);
    case Key::WelcomeShown:
        return flag(m_welcomeShown);
    case Key::LoginItemOffered:
        return flag(m_loginItemOffered);
    }
    return std::nullopt;
}

std::optional<std::string> AppSettings::set(std::string_view name, std::string_view text)
{
    const auto key = keyNamed(name);
    if (!key) {
        return unknownKeyMessage(name);
    }
    if (!assign(*key, trimmed(text))) {
        return takesSentence(name, describe(*key).takes);
    }
    // A store that could not save the value (an unreadable file) says so in its own words.
    return m_store.error();
}

bool AppSettings::assign(Key key, std::string_view word)
{
    const auto flag = [&](void (AppSettings::*setter)(bool)) {
        const std::string lower = lowered(word);
        if (lower != "true" && lower != "false") {
            return false;
        }
        (this->*setter)(lower == "true");
        return true;
    };
    const auto hotKey = [&](void (AppSettings::*setter)(std::optional<HotKeyCombo>)) {
        const auto combo = hotKeyFromText(word);
        if (!combo) {
            return false;
        }
        (this->*setter)(*combo);
        return true;
    };
    const auto choice = [&](auto setter, auto parsed) {
        if (!parsed) {
            return false;
        }
        (this->*setter)(*parsed);
        return true;
    };
    switch (key) {
    case Key::ActiveBarHotKey:
        return hotKey(&AppSettings::setActiveBarHotKey);
    case Key::MenuHotKey:
        return hotKey(&AppSettings::setMenuHotKey);
    case Key::ShortcutKeys:
        return choice(&AppSettings::setShortcutKeys, enumFromWord<DigitKeys>(word));
    case Key::Appearance:
        return choice(&AppSettings::setAppearance, enumFromWord<AppAppearance>(word));
    case Key::NewWindowLinks:
        return choice(&AppSettings::setNewWindowLinks, enumFromWord<library::NewWindowLinks>(word));
    case Key::CustomShortcutModifiers:
        return choice(&AppSettings::setCustomShortcutModifiers, modifiersFromText(word));
    case Key::AssistantsEnabled:
        return flag(&AppSettings::setAssistantsEnabled);
    case Key::AssistantWritesEnabled:
        return flag(&AppSettings::setAssistantWritesEnabled);
    case Key::BlocksAds:
        return flag(&AppSettings::setBlocksAds);
    case Key::AsksWhereToSaveDownloads:
        return flag(&AppSettings::setAsksWhereToSaveDownloads);
    case Key::WheelSwitchesBars:
        return flag(&AppSettings::setWheelSwitchesBars);
    case Key::WelcomeShown:
        return flag(&AppSettings::setWelcomeShown);
    case Key::LoginItemOffered:
        return flag(&AppSettings::setLoginItemOffered);
    }
    return false;
}

} // namespace kit::settings
