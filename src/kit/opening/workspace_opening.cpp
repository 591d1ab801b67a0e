// SPDX-License-Identifier: MIT
#include "kit/opening/workspace_opening.h"

#include "kit/library/web_address.h"
#include "kit/support/log.h"

#include <array>

namespace kit::opening {

namespace {

constexpr support::Logger kLog("opening");

} // namespace

std::string whyNotOpened(OpenFailure failure)
{
    switch (failure) {
    case OpenFailure::NoApp:
        return "No app on this computer is set up to open this kind of file.";
    case OpenFailure::AppNotInstalled:
        return "The app that opens it is not installed any more.";
    case OpenFailure::Missing:
        return "It was moved or deleted, or is on a disk that is not connected.";
    case OpenFailure::Permission:
        return "You do not have permission to open it.";
    case OpenFailure::Other:
        break;
    }
    return {};
}

std::string couldNotOpen(const std::string& name, OpenFailure failure, const std::string& detail)
{
    const std::string quoted = "\u201C" + name + "\u201D";
    const std::string why = whyNotOpened(failure);
    if (!why.empty()) {
        return quoted + " could not be opened. " + why;
    }
    return quoted + " could not be opened" + (detail.empty() ? "" : " (" + detail + ")") + ".";
}

AppleShortcutRun AppleShortcutRun::fromEventStatus(int status, const std::string& errorText)
{
    // Statuses that say the event could not reach a runner, rather than that the run went wrong.
    static constexpr std::array<int, 5> kUnreachable{-600, -609, -1708, -1743, -1744};
    switch (status) {
    case 0:
        return {Kind::Ran, {}};
    case -128:
        return {Kind::Cancelled, {}};
    case -1728:
        return {Kind::NotFound, {}};
    default:
        break;
    }
    for (const int unreachable : kUnreachable) {
        if (status == unreachable) {
            kLog.info("Shortcuts Events refused the run (" + std::to_string(status)
                      + "); opening the address instead");
            return {Kind::Unavailable, {}};
        }
    }
    kLog.error("Shortcuts Events: " + std::to_string(status) + " " + errorText);
    const std::string detail = errorText.empty() ? std::to_string(status) : errorText;
    return failed("The Shortcut stopped with an error (" + detail + ").");
}

void UnavailableAppleShortcutRunner::run(const std::string& /*name*/, Done done)
{
    done({AppleShortcutRun::Kind::Unavailable, {}});
}

std::optional<std::string> AppleShortcutLink::name(const std::string& address)
{
    const auto parts = library::WebAddress::parts(address);
    if (!parts || parts->scheme != "shortcuts" || parts->host != "run-shortcut"
        || !(parts->path.empty() || parts->path == "/")) {
        return std::nullopt;
    }
    auto name = library::WebAddress::queryValue(parts->query, "name");
    if (!name || name->empty()) {
        return std::nullopt;
    }
    return name;
}

} // namespace kit::opening
