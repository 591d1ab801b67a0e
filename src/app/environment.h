// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace app {

// What the process learns from its surroundings at start: variables, its id and the system's
// folders. A value, so tests hand in one of their own.
struct Environment
{
    std::function<std::optional<std::string>(const char* name)> variable;
    long processID = 0;
    std::filesystem::path temporaryFolder;

    static Environment current();

    // True when any of the variables a test run sets is present.
    bool isRunningTests() const;
    // $XDG_CONFIG_HOME, else ~/.config; nothing without a home.
    std::optional<std::filesystem::path> configHome() const;
};

// Names whose presence marks a test run, checked in this order.
inline constexpr const char* kTestRunVariables[] = {
    "VANTOREL_RUNNING_TESTS",
    "XCTestBundlePath",
    "XCTestSessionIdentifier",
    "XCTestConfigurationFilePath",
};

} // namespace app
