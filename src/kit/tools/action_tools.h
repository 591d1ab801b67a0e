// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_error.h"
#include "kit/tools/tool_context.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::tools {

// The two tools that act on the running app without proposing anything: show another bar, open a
// shortcut. Parsing is here and stateless; the tool service performs the action.
class ActionTools
{
public:
    ActionTools() = delete;

    struct Action
    {
        enum class Kind {
            SwitchBar,
            Open,
        };
        Kind kind = Kind::SwitchBar;
        library::Bar bar;           // switchBar: the bar to show
        library::Shortcut shortcut; // open
        library::BarID barID;       // open: the bar it was found on

        static Action switchBar(library::Bar bar)
        {
            return {Kind::SwitchBar, std::move(bar), {}, {}};
        }
        static Action open(library::Shortcut shortcut, library::BarID barID)
        {
            return {Kind::Open, {}, std::move(shortcut), barID};
        }

        bool operator==(const Action&) const = default;
    };

    struct Answer
    {
        bool done = false;
        std::string message;

        // Pretty-printed, keys sorted.
        std::string encoded() const;

        bool operator==(const Answer&) const = default;
    };

    static const std::vector<mcp::ToolDescription>& descriptions();
    static const std::vector<std::string>& names();
    static bool handles(std::string_view name);

    // Throws mcp::ToolError.
    static Action parse(const std::string& name,
                        const std::optional<std::string>& arguments,
                        const ToolContext& context);

    static Answer switched(const library::Bar& bar);
    static Answer opened(const library::Shortcut& shortcut, bool succeeded);
};

} // namespace kit::tools
