// SPDX-License-Identifier: MIT
#pragma once

#include "kit/web/web_engine.h"

class QWebEnginePage;

namespace desktop::blocking {

// Turns blocking on for one page: each of its requests is decided by the list's matcher (the
// page's URL as the top URL) and the list's hidden elements get a stylesheet. Main thread.
// A list that is not a kit::blocking::CompiledRuleList is ignored.
void enableBlocking(QWebEnginePage& page, const kit::web::ContentRuleListPtr& list);
void disableBlocking(QWebEnginePage& page);

} // namespace desktop::blocking
