// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/enums.h"

#include <string>
#include <string_view>

// What a link's settings and their values are called, wherever a person meets them: the
// shortcut's menu, the editor, the manager and a review. The values of the choices themselves
// are readableWord's (enums.h).
namespace kit::library::words {

inline constexpr std::string_view kOpens = "Opens";
inline constexpr std::string_view kBrowser = "Browser";
// A session, to the person: the sign-ins and site data pages share.
inline constexpr std::string_view kAccount = "Account";
inline constexpr std::string_view kAccounts = "Accounts";
inline constexpr std::string_view kNewAccount = "New Account";
inline constexpr std::string_view kPrivate = "Private";
inline constexpr std::string_view kBrowserAgent = "Browser agent";
inline constexpr std::string_view kAppearance = "Appearance";
inline constexpr std::string_view kBlocksAds = "Blocks ads";
inline constexpr std::string_view kZoom = "Zoom";
inline constexpr std::string_view kStaysOnTop = "Stays on top";
inline constexpr std::string_view kReloadsOnOpen = "Reloads on open";
inline constexpr std::string_view kKeepsPlaying = "Keeps playing";
inline constexpr std::string_view kNewWindows = "New windows";
inline constexpr std::string_view kNotifications = "Notifications";
inline constexpr std::string_view kHiddenPagesUnload = "Unload hidden pages after";

// Values that are not a choice of their own.
inline constexpr std::string_view kDefaultAccount = "Default";
inline constexpr std::string_view kUnknownAccount = "Unknown account";
inline constexpr std::string_view kDefaultBrowser = "The default browser";
inline constexpr std::string_view kFollowsDefault = "Follows the default";
inline constexpr std::string_view kYes = "Yes";
inline constexpr std::string_view kNo = "No";
inline constexpr std::string_view kOff = "Off";

// "Follows the default (In a panel)": a setting left to the default, with what that is now.
inline std::string followsDefault(std::string_view now)
{
    return std::string(kFollowsDefault) + " (" + std::string(now) + ")";
}

inline std::string_view yesNo(bool yes)
{
    return yes ? kYes : kNo;
}

// "15 minutes"; zero is "Off".
inline std::string minutesOrOff(long minutes)
{
    if (minutes <= 0) {
        return std::string(kOff);
    }
    return std::to_string(minutes) + (minutes == 1 ? " minute" : " minutes");
}

} // namespace kit::library::words
