// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_socket_path.h"

#include <cstdlib>

namespace kit::mcp {

namespace {

std::optional<std::string> absolute(const ToolSocketPath::Environment& environment,
                                    const char* name)
{
    std::optional<std::string> value = environment(name);
    if (!value || value->empty() || value->front() != '/') {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::string ToolSocketPath::inside(std::string_view containerHome)
{
    std::string path(containerHome);
    path += '/';
    path += kFileName;
    return path;
}

std::optional<std::string> ToolSocketPath::containerHome(const Environment& environment)
{
    if (auto runtime = absolute(environment, "XDG_RUNTIME_DIR")) {
        return runtime;
    }
    if (auto data = absolute(environment, "XDG_DATA_HOME")) {
        return *data + "/Vantorel";
    }
    if (auto home = absolute(environment, "HOME")) {
        return *home + "/.local/share/Vantorel";
    }
    return std::nullopt;
}

std::optional<std::string> ToolSocketPath::current()
{
    auto home = containerHome([](const char* name) -> std::optional<std::string> {
        // Read once at start-up, before any thread of ours could change the environment.
        const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
        return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    });
    if (!home) {
        return std::nullopt;
    }
    return inside(*home);
}

} // namespace kit::mcp
