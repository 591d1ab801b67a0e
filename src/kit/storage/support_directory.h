// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kit::storage {

// The folder holding the library's files: $XDG_DATA_HOME/Vantorel, or a temporary folder under a
// test runner.
struct SupportDirectory
{
    std::filesystem::path url;
    bool isTemporary = false;

    // The application's folder under the XDG data home, created with its parents if missing.
    // Nothing when no home can be found or the folder cannot be made; `error` then says why.
    static std::optional<SupportDirectory> application(std::string_view name,
                                                       std::string* error = nullptr);
    // A fresh folder under the system's temporary folder.
    static std::optional<SupportDirectory> temporary(std::string_view name);

    std::filesystem::path file(std::string_view name) const { return url / name; }
};

// $XDG_DATA_HOME, else $HOME/.local/share; nothing when neither is set.
std::optional<std::filesystem::path> xdgDataHome();

} // namespace kit::storage
