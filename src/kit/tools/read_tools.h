// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_error.h"
#include "kit/tools/tool_context.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::tools {

// The ten tools that look at the bars and the app's defaults without changing anything. Stateless;
// each call answers from the context it is given. Main thread, as the context is taken there.
class ReadTools
{
public:
    ReadTools() = delete;

    static const std::vector<mcp::ToolDescription>& descriptions();
    static const std::vector<std::string>& names();
    static bool handles(std::string_view name);
    // Whether the answer depends on nothing but the bars and the arguments, so that it can be
    // kept until the bars change.
    static bool answersFromBarsAlone(std::string_view name);

    // The answer's JSON text. Throws mcp::ToolError (unknownTool for a name not among the ten).
    static std::string call(const std::string& name,
                            const std::optional<std::string>& arguments,
                            const ToolContext& context);

    static constexpr int kDefaultIconLimit = 40;
    static constexpr int kDefaultAppLimit = 50;
    static constexpr const char* kSessionsNote =
        "A link with no sessionID uses the shared default session, which is not listed because it "
        "cannot be renamed or removed.";
    static constexpr const char* kIconsNote = "An icon of kind symbol takes one of these names as "
                                              "its value. A symbol or letters can take "
                                              "a colour (#RRGGBB); an emoji or a picture cannot.";
    static constexpr const char* kDeepLinksNote =
        "Fill each {blank} in the address and propose it as a url target with openMode system. A "
        "link into an app that is not installed opens nothing.";
};

// A shortcut in the shape documents and list_shortcuts use: members nested, a file or folder by
// its path (its access grant left out: it means nothing to an assistant).
nlohmann::json documentShape(const library::Shortcut& shortcut);

} // namespace kit::tools
