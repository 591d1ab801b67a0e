// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

namespace testing_support {

using namespace kit::library;

inline Shortcut webLink(const std::string& name, const std::string& url = "https://example.com/")
{
    URLTarget target;
    target.url = url;
    return Shortcut::make(name, Target::url(target));
}

// A url target that follows the defaults in everything it does not name.
inline URLTarget webTarget(std::string address,
                           std::optional<std::string> templateID = {},
                           std::optional<OpenMode> openMode = {})
{
    URLTarget url;
    url.url = std::move(address);
    url.templateID = std::move(templateID);
    url.openMode = openMode;
    return url;
}

inline Shortcut group(const std::string& name, std::vector<Shortcut> members)
{
    return Shortcut::make(name, Target::group(std::move(members)));
}

inline Shortcut fileShortcut(const std::string& name, const std::string& path)
{
    return Shortcut::make(name, Target::file(FileTarget{Bookmark{{1, 2, 3}, path}, std::nullopt}));
}

inline std::vector<std::string> names(const std::vector<Shortcut>& list)
{
    std::vector<std::string> result;
    for (const auto& s : list) {
        result.push_back(s.name);
    }
    return result;
}

} // namespace testing_support
