// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/uuid.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

class QObject;
class QWebEngineProfile;

namespace desktop::pages {

class CookieSites;

// One persistent profile per session (its storage name the session's UUID), a shared one for
// pages without a session, and fresh off-the-record ones for private pages. Owns the persistent
// profiles; whoever takes a private one owns it. Main thread; pages must go before their profile.
class Profiles
{
public:
    static constexpr const char* kDefaultName = "Default";

    Profiles(std::filesystem::path storageRoot, std::filesystem::path cacheRoot);
    ~Profiles();
    Profiles(const Profiles&) = delete;
    Profiles& operator=(const Profiles&) = delete;

    // Made on first use; profiles are told apart by their storage name.
    QWebEngineProfile* profile(const std::optional<kit::support::Uuid>& session);
    QWebEngineProfile* existing(const std::optional<kit::support::Uuid>& session) const;
    std::unique_ptr<QWebEngineProfile> makePrivate();
    // The agent the engine sends before anyone changes it; known once a profile was made.
    const std::string& engineAgent() const { return m_engineAgent; }

    // Counts the sites with cookies in the store once the engine has reported them all; answers
    // on the main thread.
    void siteCount(const std::optional<kit::support::Uuid>& session, std::function<void(int)> done);
    // Drops the profile; its folders can be removed once the engine has let go.
    void release(const std::optional<kit::support::Uuid>& session);

    std::filesystem::path storageFolder(const std::optional<kit::support::Uuid>& session) const;
    std::filesystem::path cacheFolder(const std::optional<kit::support::Uuid>& session) const;

    // Called for every profile made, private ones included, before any page uses it.
    std::function<void(QWebEngineProfile&)> onMade;

private:
    void noteEngineAgent(const QWebEngineProfile& profile);
    static std::string nameOf(const std::optional<kit::support::Uuid>& session);

    std::filesystem::path m_storageRoot;
    std::filesystem::path m_cacheRoot;
    std::map<std::string, std::unique_ptr<QWebEngineProfile>> m_profiles;
    // Owned by their profile.
    std::map<std::string, CookieSites*> m_cookieSites;
    std::string m_engineAgent;
};

} // namespace desktop::pages
