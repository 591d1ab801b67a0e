// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kit::tools {

// An application the system can launch: its shown name and its desktop-entry id without
// ".desktop", which is what an app shortcut carries as its bundle id.
struct InstalledApp
{
    std::string name;
    std::string bundleID;

    bool operator==(const InstalledApp&) const = default;
};

using AppList = std::shared_ptr<const std::vector<InstalledApp>>;

// The XDG data folders in lookup order: $XDG_DATA_HOME (else ~/.local/share), then each entry of
// $XDG_DATA_DIRS (else /usr/local/share and /usr/share).
std::vector<std::filesystem::path> xdgDataFolders();

// Lists the desktop entries under the applications/ folder of each data folder. Main thread only.
// The first folder holding an id wins, even when its entry is hidden, as desktop entries override
// by id.
class InstalledApps
{
public:
    // Without folders, the XDG data folders as they are when scanning.
    explicit InstalledApps(std::optional<std::vector<std::filesystem::path>> dataFolders = {});

    // Sorted by name ignoring case; the result is kept in cached().
    std::vector<InstalledApp> scan();
    // The last scan's list; null before the first.
    const AppList& cached() const { return m_cached; }
    // cached(), scanning first when there has been no scan.
    AppList list();

private:
    std::optional<std::vector<std::filesystem::path>> m_dataFolders;
    AppList m_cached;
};

} // namespace kit::tools

// Apps go into sets when lists from several scans are merged or compared.
template <> struct std::hash<kit::tools::InstalledApp>
{
    size_t operator()(const kit::tools::InstalledApp& app) const noexcept
    {
        return std::hash<std::string>{}(app.name) * 31 + std::hash<std::string>{}(app.bundleID);
    }
};
