// SPDX-License-Identifier: MIT
#include "kit/keys/hot_key_combo.h"

#include <array>
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
    {36, "Enter"},
    {48, "Tab"},
    {49, "Space"},
    {51, "Backspace"},
    {53, "Esc"},
    {117, "Delete"},
    {115, "Home"},
    {119, "End"},
    {116, "PgUp"},
    {121, "PgDown"},
    {114, "Insert"},
    {76, "Keypad Enter"},
    {123, "Left"},
    {124, "Right"},
    {125, "Down"},
    {126, "Up"},
    {71, "Num Lock"},
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

bool HotKeyCombo::isUsable() const
{
    return !modifierSet().empty() || functionNumber(keyCode).has_value();
}

std::string HotKeyCombo::display() const
{
    const std::string modifiers = modifierSet().words();
    return modifiers.empty() ? name(keyCode) : modifiers + "+" + name(keyCode);
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

} // namespace kit::keys
