// SPDX-License-Identifier: MIT
#include "kit/keys/hot_key_combo.h"

#include <array>
#include <limits>
#include <string_view>
#include <utility>

namespace kit::keys {

namespace {

constexpr std::array<uint16_t, 10> kDigitCodes{29, 18, 19, 20, 21, 23, 22, 26, 28, 25};

constexpr std::array<std::pair<uint16_t, std::string_view>, 67> kNames{{
    {0, "A"},
    {11, "B"},
    {8, "C"},
    {2, "D"},
    {14, "E"},
    {3, "F"},
    {5, "G"},
    {4, "H"},
    {34, "I"},
    {38, "J"},
    {40, "K"},
    {37, "L"},
    {46, "M"},
    {45, "N"},
    {31, "O"},
    {35, "P"},
    {12, "Q"},
    {15, "R"},
    {1, "S"},
    {17, "T"},
    {32, "U"},
    {9, "V"},
    {13, "W"},
    {7, "X"},
    {16, "Y"},
    {6, "Z"},
    {29, "0"},
    {18, "1"},
    {19, "2"},
    {20, "3"},
    {21, "4"},
    {23, "5"},
    {22, "6"},
    {26, "7"},
    {28, "8"},
    {25, "9"},
    {27, "-"},
    {24, "="},
    {33, "["},
    {30, "]"},
    {42, "\\"},
    {41, ";"},
    {39, "'"},
    {43, ","},
    {47, "."},
    {44, "/"},
    {50, "`"},
    {36, "Return"},
    {48, "Tab"},
    {49, "Space"},
    {51, "Delete"},
    {53, "Escape"},
    {117, "Forward Delete"},
    {115, "Home"},
    {119, "End"},
    {116, "Page Up"},
    {121, "Page Down"},
    {114, "Help"},
    {76, "Enter"},
    {123, "←"},
    {124, "→"},
    {125, "↓"},
    {126, "↑"},
    {71, "Clear"},
    {65, "Keypad ."},
    {67, "Keypad *"},
    {69, "Keypad +"},
}};

// F1 to F20 in order.
constexpr std::array<uint16_t, 20> kFunctionCodes{122, 120, 99,  118, 96,  97,  98, 100, 101, 109,
                                                  103, 111, 105, 107, 113, 106, 64, 79,  80,  90};

} // namespace

uint16_t digitKeyCode(int digit)
{
    return kDigitCodes.at(static_cast<size_t>(digit));
}

uint32_t HotKeyCombo::carbonModifiers() const
{
    ModifierSet set = modifierSet();
    uint32_t out = 0;
    out |= set.contains(Modifier::Command) ? 256U : 0U;
    out |= set.contains(Modifier::Shift) ? 512U : 0U;
    out |= set.contains(Modifier::Option) ? 2048U : 0U;
    out |= set.contains(Modifier::Control) ? 4096U : 0U;
    return out;
}

bool HotKeyCombo::isUsable() const
{
    return !modifierSet().empty() || functionNumber(keyCode).has_value();
}

std::string HotKeyCombo::display() const
{
    return modifierSet().symbols() + name(keyCode);
}

std::string HotKeyCombo::name(uint16_t keyCode)
{
    if (auto number = functionNumber(keyCode)) {
        return "F" + std::to_string(*number);
    }
    for (const auto& [code, text] : kNames) {
        if (code == keyCode) {
            return std::string(text);
        }
    }
    return "Key " + std::to_string(keyCode);
}

std::optional<int> HotKeyCombo::functionNumber(uint16_t keyCode)
{
    for (size_t i = 0; i < kFunctionCodes.size(); ++i) {
        if (kFunctionCodes[i] == keyCode) {
            return static_cast<int>(i) + 1;
        }
    }
    return std::nullopt;
}

void to_json(nlohmann::json& j, const HotKeyCombo& combo)
{
    j = nlohmann::json{{"keyCode", combo.keyCode}, {"modifiers", combo.modifiers}};
}

void from_json(const nlohmann::json& j, HotKeyCombo& combo)
{
    auto unsignedIn = [&j](const char* key, uint64_t limit) {
        const auto& value = j.at(key);
        // The parser types every non-negative integer as unsigned.
        if (!value.is_number_unsigned()) {
            throw nlohmann::json::type_error::create(
                302, std::string(key) + " is not an unsigned integer", &j);
        }
        auto number = value.get<uint64_t>();
        if (number > limit) {
            throw nlohmann::json::out_of_range::create(
                406, std::string(key) + " is out of range", &j);
        }
        return number;
    };
    combo.keyCode =
        static_cast<uint16_t>(unsignedIn("keyCode", std::numeric_limits<uint16_t>::max()));
    combo.modifiers =
        static_cast<uint32_t>(unsignedIn("modifiers", std::numeric_limits<uint32_t>::max()));
}

std::optional<HotKeyCombo> readStoredHotKey(const std::optional<std::string>& data,
                                            std::optional<HotKeyCombo> fallback)
{
    if (!data) {
        return fallback;
    }
    if (data->empty()) {
        return std::nullopt;
    }
    auto json = nlohmann::json::parse(*data, nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        return std::nullopt;
    }
    try {
        return json.get<HotKeyCombo>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

std::string storedHotKeyData(const std::optional<HotKeyCombo>& combo)
{
    return combo ? nlohmann::json(*combo).dump() : std::string();
}

} // namespace kit::keys
