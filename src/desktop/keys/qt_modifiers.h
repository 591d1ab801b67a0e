// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/modifiers.h"

#include <Qt>

namespace desktop {

// Qt's modifier flags as the four the core knows (Alt is Option, Meta is Super); the keypad and
// group-switch flags are dropped.
inline kit::keys::ModifierSet modifierSet(Qt::KeyboardModifiers modifiers)
{
    using kit::keys::Modifier;
    kit::keys::ModifierSet set;
    set = modifiers.testFlag(Qt::ShiftModifier) ? set.with(Modifier::Shift) : set;
    set = modifiers.testFlag(Qt::ControlModifier) ? set.with(Modifier::Control) : set;
    set = modifiers.testFlag(Qt::AltModifier) ? set.with(Modifier::Option) : set;
    set = modifiers.testFlag(Qt::MetaModifier) ? set.with(Modifier::Command) : set;
    return set;
}

} // namespace desktop
