// SPDX-License-Identifier: MIT
#pragma once

#include "app/platform.h"

#include <filesystem>
#include <optional>
#include <string>

namespace app {

// Starting at login as freedesktop sessions do it: an autostart entry,
// $XDG_CONFIG_HOME/autostart/vantorel.desktop, that runs this executable. Main thread only.
class XdgLoginItem final : public app::LoginItem
{
public:
    static constexpr const char* kFileName = "vantorel.desktop";

    // The entry in the autostart folder of `configHome`, running `executable`.
    XdgLoginItem(const std::filesystem::path& configHome, std::filesystem::path executable);
    // The person's config folder and the running executable; nothing without a home.
    static std::optional<XdgLoginItem> current();

    // True when the entry is there and not switched off by Hidden or the GNOME key.
    bool isEnabled() const override;
    bool enable() override;
    // Removes the entry; true when none is left.
    bool disable() override;

    const std::filesystem::path& file() const { return m_file; }
    // The entry's text.
    std::string entry() const;

private:
    std::filesystem::path m_file;
    std::filesystem::path m_executable;
};

} // namespace app
