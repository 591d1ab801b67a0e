// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/pages.h"

#include <QLibrary>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace desktop::pages {

// Where profiles keep their data: one folder per profile under each root.
struct ProfileRoots
{
    std::filesystem::path storage;
    std::filesystem::path cache;

    // Under the application's data and cache locations; needs the application name set.
    static ProfileRoots standard();
};

// Loads the pages module on first use, so the web engine starts with the first page and never
// in an idle app. A module that cannot be loaded is tried once; error() then tells why. Main
// thread; the Host must hold everything the module needs before the first load().
class PagesLoader
{
public:
    PagesLoader(Host host, std::vector<std::filesystem::path> candidates);
    ~PagesLoader();
    PagesLoader(const PagesLoader&) = delete;
    PagesLoader& operator=(const PagesLoader&) = delete;

    // Beside the executable, then the installed library folder.
    static std::vector<std::filesystem::path> defaultCandidates();

    Host& host() { return m_host; }
    // Loads the module when it is not yet; null when it cannot be.
    Pages* load();
    // Null until load() succeeded.
    Pages* loaded() const { return m_pages.get(); }
    const std::string& error() const { return m_error; }
    // Closes every page; the module stays loaded and the next load() starts afresh.
    void close();

private:
    Host m_host;
    std::vector<std::filesystem::path> m_candidates;
    QLibrary m_library;
    std::unique_ptr<Pages> m_pages;
    bool m_tried = false;
    std::string m_error;
};

} // namespace desktop::pages
