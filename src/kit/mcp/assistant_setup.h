// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kit::mcp {

// The texts Settings shows so a person can register the bridge with an assistant.
struct AssistantSetup
{
    // The server's key in an assistant's configuration.
    static constexpr std::string_view kServerKey = "vantorel";
    static constexpr std::string_view kGuideURL = "https://vantorel.app/docs/assistants/";

    // A client configuration file naming the bridge as the command of the "vantorel" server (no
    // trailing newline). The path is escaped as a JSON string needs.
    static std::string configJSON(std::string_view executable);
    // "<cli> mcp add [extraFlags] vantorel -- \"<executable>\"", for command-line clients that
    // register servers this way. The path is escaped for the shell's double quotes.
    static std::string
    addCommand(std::string_view cli, std::string_view executable, std::string_view extraFlags = {});
};

} // namespace kit::mcp
