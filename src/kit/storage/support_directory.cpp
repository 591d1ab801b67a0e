// SPDX-License-Identifier: MIT
#include "kit/storage/support_directory.h"

#include "kit/support/atomic_file.h"

#include <cstdlib>
#include <vector>

namespace kit::storage {

std::optional<std::filesystem::path> xdgDataHome()
{
    // Nothing in this program sets the environment, so reading it from any thread is safe.
    const char* data = std::getenv("XDG_DATA_HOME"); // NOLINT(concurrency-mt-unsafe)
    if (data != nullptr && *data == '/') {
        return std::filesystem::path(data);
    }
    const char* home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe)
    if (home != nullptr && *home != '\0') {
        return std::filesystem::path(home) / ".local" / "share";
    }
    return std::nullopt;
}

std::optional<SupportDirectory> SupportDirectory::application(std::string_view name,
                                                              std::string* error)
{
    auto base = xdgDataHome();
    if (!base) {
        if (error) {
            *error = "Neither XDG_DATA_HOME nor HOME is set, so there is no place for the library.";
        }
        return std::nullopt;
    }
    std::filesystem::path folder = *base / name;
    std::error_code ec = support::createPrivateFolders(folder);
    if (ec || !std::filesystem::is_directory(folder)) {
        if (error) {
            *error = "Could not make the folder “" + folder.string() + "”: "
                     + (ec ? ec.message() : std::string("a file stands in its place")) + ".";
        }
        return std::nullopt;
    }
    // A folder made by an earlier build may still be open to other users; its files go with it.
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ec);
    return SupportDirectory{folder, false};
}

std::optional<SupportDirectory> SupportDirectory::temporary(std::string_view name)
{
    std::string pattern =
        (std::filesystem::temp_directory_path() / (std::string(name) + "-XXXXXX")).string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) {
        return std::nullopt;
    }
    return SupportDirectory{std::filesystem::path(buffer.data()), true};
}

} // namespace kit::storage
