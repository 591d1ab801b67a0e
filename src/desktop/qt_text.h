// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <string_view>

namespace desktop {

// The core's UTF-8 text as Qt's.
inline QString toQt(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace desktop
