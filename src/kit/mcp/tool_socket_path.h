// SPDX-License-Identifier: MIT
#pragma once

#include <sys/un.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kit::mcp {

// Where the tool socket lives; the app and the bridge both ask here, so they cannot disagree.
struct ToolSocketPath
{
    static constexpr std::string_view kFileName = "vantorel.sock";
    // The longest path a Unix-domain address holds on this platform (its field ends in a zero).
    static constexpr std::size_t kMaxPathBytes = sizeof(sockaddr_un::sun_path) - 1;

    // Reads one environment variable; nothing when it is unset.
    using Environment = std::function<std::optional<std::string>(const char* name)>;

    // The socket in the folder the app listens in.
    static std::string inside(std::string_view containerHome);

    // The folder of the socket on this system: $XDG_RUNTIME_DIR (private to the user and cleared
    // at logout), else the support folder ($XDG_DATA_HOME/Vantorel or ~/.local/share/Vantorel).
    // Relative values are ignored, as the XDG rules ask. Nothing when no home can be found.
    static std::optional<std::string> containerHome(const Environment& environment);
    // inside(containerHome(...)) with the process's own environment.
    static std::optional<std::string> current();

    static bool fits(std::string_view path) { return path.size() <= kMaxPathBytes; }
};

} // namespace kit::mcp
