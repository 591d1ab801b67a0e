// SPDX-License-Identifier: MIT
#include "kit/tools/installed_apps.h"

#include "kit/support/atomic_file.h"
#include "kit/support/text.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>

namespace kit::tools {

namespace fs = std::filesystem;

namespace {

struct DesktopEntry
{
    std::string name;
    std::string type;
    bool hidden = false;
};

// Only the [Desktop Entry] group counts; actions and other groups may repeat its keys.
std::optional<DesktopEntry> readEntry(const fs::path& file)
{
    // Anything can sit among the entries: a pipe must not hang the scan, nor a huge file fill
    // memory.
    auto read = support::readWholeFile(file, size_t{1} << 20);
    if (!std::holds_alternative<std::string>(read)) {
        return std::nullopt;
    }
    std::istringstream in(std::get<std::string>(read));
    DesktopEntry entry;
    bool inMain = false;
    std::string line;
    while (std::getline(in, line)) {
        std::string_view text = support::trimmed(line, " \t\r");
        if (text.empty() || text.front() == '#') {
            continue;
        }
        if (text.front() == '[') {
            if (inMain) {
                break;
            }
            inMain = text == "[Desktop Entry]";
            continue;
        }
        if (!inMain) {
            continue;
        }
        auto equals = text.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        std::string_view key = support::trimmed(text.substr(0, equals), " \t\r");
        std::string_view value = support::trimmed(text.substr(equals + 1), " \t\r");
        if (key == "Name") {
            entry.name = value;
        } else if (key == "Type") {
            entry.type = value;
        } else if ((key == "NoDisplay" || key == "Hidden") && value == "true") {
            entry.hidden = true;
        }
    }
    return entry;
}

std::string lowered(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return out;
}

} // namespace

std::vector<fs::path> xdgDataFolders()
{
    std::vector<fs::path> folders;
    std::optional<fs::path> dataHome;
    // Nothing in this program sets the environment, so reading it from any thread is safe.
    const char* set = std::getenv("XDG_DATA_HOME"); // NOLINT(concurrency-mt-unsafe)
    const char* home = std::getenv("HOME");         // NOLINT(concurrency-mt-unsafe)
    if (set && *set) {
        dataHome = fs::path(set);
    } else if (home && *home) {
        dataHome = fs::path(home) / ".local/share";
    }
    if (dataHome) {
        folders.push_back(*dataHome);
    }
    const char* dataDirs = std::getenv("XDG_DATA_DIRS"); // NOLINT(concurrency-mt-unsafe)
    std::string_view dirs =
        dataDirs && *dataDirs ? std::string_view(dataDirs) : "/usr/local/share:/usr/share";
    while (!dirs.empty()) {
        auto colon = dirs.find(':');
        std::string_view dir = dirs.substr(0, colon);
        if (!dir.empty()) {
            folders.emplace_back(std::string(dir));
        }
        dirs = colon == std::string_view::npos ? std::string_view() : dirs.substr(colon + 1);
    }
    // Flatpak exports its apps here; a session started without its profile script leaves them
    // out of XDG_DATA_DIRS, and the person still expects to find those apps.
    std::vector<fs::path> exports;
    if (dataHome) {
        exports.push_back(*dataHome / "flatpak/exports/share");
    }
    exports.emplace_back("/var/lib/flatpak/exports/share");
    for (auto& folder : exports) {
        if (std::find(folders.begin(), folders.end(), folder) == folders.end()) {
            folders.push_back(std::move(folder));
        }
    }
    return folders;
}

InstalledApps::InstalledApps(std::optional<std::vector<fs::path>> dataFolders)
    : m_dataFolders(std::move(dataFolders))
{}

std::vector<InstalledApp> InstalledApps::scan()
{
    std::vector<InstalledApp> apps;
    std::set<std::string> seen;
    for (const auto& folder : m_dataFolders ? *m_dataFolders : xdgDataFolders()) {
        const fs::path root = folder / "applications";
        std::error_code error;
        // Sorted so that two entries of one id in one folder tree resolve the same way each time.
        std::vector<fs::path> files;
        for (fs::recursive_directory_iterator
                 it(root, fs::directory_options::follow_directory_symlink, error),
             end;
             !error && it != end;
             it.increment(error)) {
            if (it->path().filename().string().starts_with('.')) {
                if (it->is_directory(error)) {
                    it.disable_recursion_pending();
                }
                continue;
            }
            if (it->path().extension() == ".desktop" && it->is_regular_file(error)) {
                files.push_back(it->path());
            }
        }
        std::sort(files.begin(), files.end());
        for (const auto& file : files) {
            // Entries in subfolders take their folder names as a prefix: kde/okular -> kde-okular.
            std::string id = file.lexically_relative(root).replace_extension().generic_string();
            std::replace(id.begin(), id.end(), '/', '-');
            if (id.empty() || id.front() == '.' || !seen.insert(id).second) {
                continue;
            }
            auto entry = readEntry(file);
            if (!entry || entry->hidden || entry->name.empty()
                || (!entry->type.empty() && entry->type != "Application")) {
                continue;
            }
            apps.push_back({std::move(entry->name), std::move(id)});
        }
    }
    std::stable_sort(apps.begin(), apps.end(), [](const InstalledApp& a, const InstalledApp& b) {
        return lowered(a.name) < lowered(b.name);
    });
    m_cached = std::make_shared<const std::vector<InstalledApp>>(apps);
    return apps;
}

AppList InstalledApps::list()
{
    if (!m_cached) {
        scan();
    }
    return m_cached;
}

} // namespace kit::tools
