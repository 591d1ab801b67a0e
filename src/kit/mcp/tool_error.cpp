// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_error.h"

namespace kit::mcp {

std::string ToolError::message() const
{
    switch (m_kind) {
    case Kind::UnknownTool:
        return "There is no tool called \u201C" + m_payload + "\u201D.";
    case Kind::BadArguments:
        return "The arguments could not be read: " + m_payload;
    case Kind::UnknownBar:
        return "There is no bar \u201C" + m_payload + "\u201D. list_bars says which there are.";
    case Kind::UnknownShortcut:
        return "There is no shortcut with the id " + m_payload + " on that bar.";
    case Kind::UnknownSession:
        return "There is no account \u201C" + m_payload
               + "\u201D. list_sessions says which there are.";
    case Kind::WritesOff:
        return "The person has turned off changes from assistants in Vantorel's Settings. Reading "
               "still works; ask them to turn it on under Settings \u203A Advanced if they want "
               "this change.";
    }
    return {};
}

} // namespace kit::mcp
