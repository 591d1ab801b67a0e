// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kit::support {

// Text from outside (a name, a title, a file name) made safe to show anywhere as it reads: valid
// UTF-8 in which nothing can act on a terminal or hide what follows. C0 controls and DEL become
// their visible pictures (NUL "␀", ESC "␛", line feed "␊"), C1 controls and the marks that
// reorder text become "�", and so do bytes that are not UTF-8.
std::string visibleText(std::string_view text);

// Valid UTF-8 with every bad byte as "�" and everything else kept, controls included: for text
// that must stay text (a JSON string) but need not be shown.
std::string validUtf8(std::string_view text);

} // namespace kit::support
