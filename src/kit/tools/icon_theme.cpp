// SPDX-License-Identifier: MIT
#include "kit/tools/icon_theme.h"

#include "kit/support/atomic_file.h"
#include "kit/support/text.h"
#include "kit/tools/installed_apps.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>

namespace kit::tools {

namespace fs = std::filesystem;

namespace {

// The index's folders with their contexts, in the order the index lists them.
std::vector<std::pair<std::string, std::string>> readIndex(const fs::path& file)
{
    auto read = support::readWholeFile(file, size_t{4} << 20);
    std::istringstream in(std::holds_alternative<std::string>(read) ? std::get<std::string>(read)
                                                                    : std::string());
    std::vector<std::string> listed;
    std::map<std::string, std::string> contexts;
    std::string section;
    std::string line;
    auto split = [&](std::string_view value) {
        while (!value.empty()) {
            auto comma = value.find(',');
            std::string_view item = support::trimmed(value.substr(0, comma), " \t\r");
            if (!item.empty()) {
                listed.emplace_back(item);
            }
            value = comma == std::string_view::npos ? std::string_view() : value.substr(comma + 1);
        }
    };
    while (std::getline(in, line)) {
        std::string_view text = support::trimmed(line, " \t\r");
        if (text.empty() || text.front() == '#') {
            continue;
        }
        if (text.front() == '[' && text.back() == ']') {
            section = text.substr(1, text.size() - 2);
            continue;
        }
        auto equals = text.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        std::string_view key = support::trimmed(text.substr(0, equals), " \t\r");
        std::string_view value = support::trimmed(text.substr(equals + 1), " \t\r");
        if (section == "Icon Theme" && (key == "Directories" || key == "ScaledDirectories")) {
            split(value);
        } else if (key == "Context") {
            contexts[section] = value;
        }
    }
    std::vector<std::pair<std::string, std::string>> folders;
    std::set<std::string> seen;
    for (const auto& folder : listed) {
        if (seen.insert(folder).second) {
            auto it = contexts.find(folder);
            folders.emplace_back(folder, it == contexts.end() ? std::string() : it->second);
        }
    }
    return folders;
}

bool isIconFile(const fs::path& file)
{
    auto extension = file.extension();
    return extension == ".png" || extension == ".svg" || extension == ".xpm";
}

// A theme folder without an index still has its icons: the folder's own name is the best
// category there is (actions -> Actions).
std::string categoryFromFolder(const fs::path& folder)
{
    std::string name = folder.filename().string();
    if (!name.empty() && name.front() >= 'a' && name.front() <= 'z') {
        name.front() = static_cast<char>(name.front() - 'a' + 'A');
    }
    return name;
}

} // namespace

IconThemeScanner::IconThemeScanner(std::string theme,
                                   std::optional<std::vector<fs::path>> dataFolders)
    : m_theme(std::move(theme))
    , m_dataFolders(std::move(dataFolders))
{}

IconList IconThemeScanner::icons()
{
    if (!m_icons) {
        m_icons = std::make_shared<const std::vector<IconEntry>>(scan());
    }
    return m_icons;
}

std::vector<IconEntry> IconThemeScanner::scan() const
{
    std::vector<std::string> themes{m_theme};
    if (m_theme != "hicolor") {
        themes.emplace_back("hicolor");
    }
    std::map<std::string, std::string> found; // name -> category; the first sighting wins
    auto add = [&](const fs::path& folder, const std::string& category) {
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end;
             it.increment(error)) {
            const fs::path& file = it->path();
            if (isIconFile(file) && file.filename().string().front() != '.') {
                found.emplace(file.stem().string(), category);
            }
        }
    };
    const auto folders = m_dataFolders ? *m_dataFolders : xdgDataFolders();
    for (const auto& theme : themes) {
        for (const auto& data : folders) {
            const fs::path root = data / "icons" / theme;
            std::error_code error;
            if (!fs::is_directory(root, error)) {
                continue;
            }
            if (fs::exists(root / "index.theme", error)) {
                for (const auto& [folder, context] : readIndex(root / "index.theme")) {
                    add(root / folder, context);
                }
                continue;
            }
            for (fs::recursive_directory_iterator it(root, error), end; !error && it != end;
                 it.increment(error)) {
                if (it->is_directory(error)) {
                    add(it->path(), categoryFromFolder(it->path()));
                }
            }
        }
    }
    std::vector<IconEntry> icons;
    icons.reserve(found.size());
    for (auto& [name, category] : found) {
        icons.push_back({name, category});
    }
    return icons;
}

} // namespace kit::tools
