// SPDX-License-Identifier: MIT
#include "kit/keys/modifiers.h"

#include <string_view>

namespace kit::keys {

namespace {

std::string_view symbol(Modifier modifier)
{
    switch (modifier) {
    case Modifier::Control:
        return "⌃";
    case Modifier::Option:
        return "⌥";
    case Modifier::Shift:
        return "⇧";
    case Modifier::Command:
        return "⌘";
    }
    return "";
}

std::string_view name(Modifier modifier)
{
    switch (modifier) {
    case Modifier::Control:
        return "Control";
    case Modifier::Option:
        return "Option";
    case Modifier::Shift:
        return "Shift";
    case Modifier::Command:
        return "Command";
    }
    return "";
}

} // namespace

std::string ModifierSet::symbols() const
{
    std::string out;
    for (Modifier modifier : kShownOrder) {
        if (contains(modifier)) {
            out += symbol(modifier);
        }
    }
    return out;
}

std::string ModifierSet::names() const
{
    std::string out;
    for (Modifier modifier : kShownOrder) {
        if (contains(modifier)) {
            if (!out.empty()) {
                out += ' ';
            }
            out += name(modifier);
        }
    }
    return out;
}

} // namespace kit::keys
