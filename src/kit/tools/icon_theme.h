// SPDX-License-Identifier: MIT
#pragma once

#include "kit/tools/icon_provider.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kit::tools {

// The icon names of a freedesktop icon theme and of hicolor, its fallback, found under the XDG
// data folders, each filed under its folder's Context. Scans once, on first use; main thread only.
class IconThemeScanner final : public IconProvider
{
public:
    static constexpr const char* kDefaultTheme = "Adwaita";

    // Without folders, the XDG data folders as they are when scanning.
    explicit IconThemeScanner(std::string theme = kDefaultTheme,
                              std::optional<std::vector<std::filesystem::path>> dataFolders = {});

    IconList icons() override;

private:
    std::vector<IconEntry> scan() const;

    std::string m_theme;
    std::optional<std::vector<std::filesystem::path>> m_dataFolders;
    IconList m_icons;
};

} // namespace kit::tools
