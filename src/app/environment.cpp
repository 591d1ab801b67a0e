// SPDX-License-Identifier: MIT
#include "app/environment.h"

#include <unistd.h>

#include <cstdlib>
#include <system_error>

namespace app {

Environment Environment::current()
{
    std::error_code error;
    std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    if (error) {
        temporary = "/tmp";
    }
    return Environment{
        [](const char* name) -> std::optional<std::string> {
            // Nothing in this process changes the environment.
            const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
            return value ? std::optional<std::string>(value) : std::nullopt;
        },
        static_cast<long>(::getpid()),
        temporary,
    };
}

bool Environment::isRunningTests() const
{
    for (const char* name : kTestRunVariables) {
        if (variable && variable(name)) {
            return true;
        }
    }
    return false;
}

std::optional<std::filesystem::path> Environment::configHome() const
{
    if (!variable) {
        return std::nullopt;
    }
    // Relative values are ignored, as the XDG rules ask.
    if (auto config = variable("XDG_CONFIG_HOME");
        config && !config->empty() && (*config)[0] == '/') {
        return std::filesystem::path(*config);
    }
    if (auto home = variable("HOME"); home && !home->empty()) {
        return std::filesystem::path(*home) / ".config";
    }
    return std::nullopt;
}

} // namespace app
