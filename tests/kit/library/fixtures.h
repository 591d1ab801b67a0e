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

// A link with every setting away from its default.
inline Shortcut everyField()
{
    URLTarget url;
    url.url = "https://mail.example.com/inbox?a=1&b=2";
    url.templateID = "com.example.mail/Open the inbox";
    url.openMode = OpenMode::Window;
    url.sessionID = SessionID::make();
    url.browserBundleID = "org.mozilla.firefox";
    url.userAgent = BrowserAgent::Custom;
    url.customUserAgent = "Agent/1.0";
    url.pageAppearance = PageAppearance::ForcedDark;
    url.blocksAds = false;
    url.popoverSize = ContentSize{420.5, 600};
    url.windowSize = ContentSize{1200, 900};
    url.lastVisitedURL = "https://mail.example.com/thread/7";
    url.isPrivate = true;
    url.staysOnTop = true;
    url.reloadsOnOpen = true;
    url.keepsPlaying = true;
    url.newWindowLinks = NewWindowLinks::NewWindow;
    url.pageZoom = 1.25;
    Shortcut s = Shortcut::make("Mail “work” ✉", Target::url(url));
    s.icon = IconOverride::image({0, 1, 2, 250, 251, 255});
    s.iconTint = IconTint::colour("#FF8800");
    s.iconOpacity = 0.6;
    s.isInMenuBar = false;
    return s;
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
