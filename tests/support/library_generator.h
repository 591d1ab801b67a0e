// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <random>
#include <string>

namespace testing_support {

using namespace kit::library;

// A realistic bar: url targets with most fields set, some apps and files, and groups nested three
// deep, `count` shortcuts in all. Deterministic for a given seed.
inline Library generateLibrary(int count, const std::vector<SessionID>& sessions, unsigned seed = 1)
{
    std::mt19937 random(seed);
    auto makeURL = [&](int n) {
        URLTarget url;
        url.url = "https://service" + std::to_string(n % 97) + ".example.com/workspace/"
                  + std::to_string(n);
        url.openMode = static_cast<OpenMode>(random() % 3);
        if (!sessions.empty() && random() % 2) {
            url.sessionID = sessions[random() % sessions.size()];
        }
        url.browserBundleID = "org.mozilla.firefox";
        url.userAgent = BrowserAgent::Chrome;
        url.pageAppearance = PageAppearance::Dark;
        url.blocksAds = random() % 2 == 0;
        url.popoverSize = ContentSize{420, 640};
        url.windowSize = ContentSize{1200, 800};
        url.lastVisitedURL = url.url + "/last/page?tab=" + std::to_string(random() % 10);
        url.staysOnTop = random() % 4 == 0;
        url.newWindowLinks = NewWindowLinks::NewWindow;
        url.pageZoom = 1.25;
        Shortcut s = Shortcut::make("Shortcut number " + std::to_string(n), Target::url(url));
        s.icon = IconOverride::symbol("globe");
        s.iconTint = IconTint::colour("#3366FF");
        return s;
    };
    auto makeOther = [&](int n) {
        if (n % 2) {
            return Shortcut::make("App " + std::to_string(n),
                                  Target::app(AppTarget{"org.gnome.Calculator", std::nullopt}));
        }
        return Shortcut::make(
            "File " + std::to_string(n),
            Target::file(
                FileTarget{Bookmark{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16},
                                    "/home/someone/Documents/report-" + std::to_string(n) + ".pdf"},
                           std::nullopt}));
    };
    auto leaf = [&](int n) { return n % 10 == 0 ? makeOther(n) : makeURL(n); };

    Library library;
    int made = 0;
    while (made < count) {
        // Every 50 items, a group three deep: group[ 4 items, group[ 4 items, group[ 4 items ] ] ].
        if (made % 50 == 0 && count - made >= 15) {
            std::vector<Shortcut> inner;
            for (int i = 0; i < 4; ++i) {
                inner.push_back(leaf(made + 3 + i));
            }
            std::vector<Shortcut> middle;
            for (int i = 0; i < 4; ++i) {
                middle.push_back(leaf(made + 7 + i));
            }
            middle.push_back(
                Shortcut::make("Inner " + std::to_string(made), Target::group(std::move(inner))));
            std::vector<Shortcut> outer;
            for (int i = 0; i < 4; ++i) {
                outer.push_back(leaf(made + 11 + i));
            }
            outer.push_back(
                Shortcut::make("Middle " + std::to_string(made), Target::group(std::move(middle))));
            library.add(
                Shortcut::make("Group " + std::to_string(made), Target::group(std::move(outer))));
            made += 15;
        } else {
            library.add(leaf(made));
            ++made;
        }
    }
    return library;
}

} // namespace testing_support
