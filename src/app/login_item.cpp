// SPDX-License-Identifier: MIT
#include "app/login_item.h"

#include "app/environment.h"
#include "kit/support/atomic_file.h"
#include "kit/support/log.h"

#include <fstream>
#include <sstream>
#include <system_error>

namespace app {

namespace {

constexpr kit::support::Logger kLog("login");

// Exec= arguments are quoted when they hold anything the desktop entry format treats specially.
std::string quotedExec(const std::string& path)
{
    if (path.find_first_of(" \t\"'\\$`%") == std::string::npos) {
        return path;
    }
    std::string quoted = "\"";
    for (char c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') {
            quoted += "\\\\";
        }
        if (c == '%') {
            quoted += '%';
        }
        quoted += c;
    }
    return quoted + "\"";
}

} // namespace

XdgLoginItem::XdgLoginItem(const std::filesystem::path& configHome,
                           std::filesystem::path executable)
    : m_file(configHome / "autostart" / kFileName)
    , m_executable(std::move(executable))
{}

std::optional<XdgLoginItem> XdgLoginItem::current()
{
    auto config = app::Environment::current().configHome();
    if (!config) {
        return std::nullopt;
    }
    std::error_code error;
    auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        executable = "vantorel";
    }
    return XdgLoginItem(*config, executable);
}

bool XdgLoginItem::isEnabled() const
{
    std::ifstream in(m_file);
    if (!in) {
        return false;
    }
    for (std::string line; std::getline(in, line);) {
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false") {
            return false;
        }
    }
    return true;
}

std::string XdgLoginItem::entry() const
{
    std::ostringstream text;
    text << "[Desktop Entry]\n"
         << "Type=Application\n"
         << "Name=Vantorel\n"
         << "Comment=Your shortcuts in the menu bar\n"
         << "Exec=" << quotedExec(m_executable.string()) << "\n"
         << "Icon=io.vantorel.Vantorel\n"
         << "Terminal=false\n"
         << "X-GNOME-Autostart-enabled=true\n";
    return text.str();
}

bool XdgLoginItem::enable()
{
    std::error_code error;
    std::filesystem::create_directories(m_file.parent_path(), error);
    if (error) {
        kLog.error("could not make " + m_file.parent_path().string() + ": " + error.message());
        return false;
    }
    if (auto failure = kit::support::writeFileAtomically(m_file, entry())) {
        kLog.error(*failure);
        return false;
    }
    kLog.info("Vantorel starts at login");
    return true;
}

bool XdgLoginItem::disable()
{
    std::error_code error;
    std::filesystem::remove(m_file, error);
    if (error) {
        kLog.error("could not remove " + m_file.string() + ": " + error.message());
        return false;
    }
    return true;
}

} // namespace app
