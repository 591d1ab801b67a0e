// SPDX-License-Identifier: MIT
#include "kit/keys/modifiers.h"

#include <string_view>

namespace kit::keys {

namespace {

std::string_view word(Modifier modifier)
{
    switch (modifier) {
    case Modifier::Control:
        return "Ctrl";
    case Modifier::Option:
        return "Alt";
    case Modifier::Shift:
        return "Shift";
    case Modifier::Command:
        return "Super";
    }
    return "";
}

} // namespace

std::string ModifierSet::words() const
{
    std::string out;
    for (Modifier modifier : kShownOrder) {
        if (contains(modifier)) {
            if (!out.empty()) {
                out += '+';
            }
            out += word(modifier);
        }
    }
    return out;
}

} // namespace kit::keys
