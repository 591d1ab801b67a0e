// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/visible_text.h"

#include <QString>
#include <QTextDocument>

#include <string_view>

namespace desktop {

// The core's UTF-8 text as Qt's.
inline QString toQt(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// Text from outside (a name, a title) as a person should see it: control characters as their
// pictures, so nothing hides or reorders what follows.
inline QString shownText(std::string_view text)
{
    return toQt(kit::support::visibleText(text));
}

// A tooltip that shows its text as it is: Qt takes text that looks like markup for rich text.
inline QString plainToolTip(std::string_view text)
{
    QString shown = shownText(text);
    if (!Qt::mightBeRichText(shown)) {
        return shown;
    }
    return QStringLiteral("<p style='white-space:pre'>%1</p>").arg(shown.toHtmlEscaped());
}

} // namespace desktop
