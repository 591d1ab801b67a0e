// SPDX-License-Identifier: MIT
#include "kit/web/page_rules.h"

#include "kit/library/shortcut.h"

namespace kit::web {

using kit::library::BrowserAgent;
using kit::library::PageZoom;

namespace {

constexpr std::string_view kDesktopPlatform = "X11; Linux x86_64";
// Android is what phones and tablets running this engine report; "Mobile" marks the phone.
constexpr std::string_view kTabletPlatform = "Linux; Android 13; Tablet";
constexpr std::string_view kPhonePlatform = "Linux; Android 13; Pixel 7";
constexpr std::string_view kFirefox = "Mozilla/5.0 (X11; Linux x86_64; rv:128.0) Gecko/20100101 "
                                      "Firefox/128.0";

// Sites that see the embedding's own token often serve a reduced page.
std::string withoutEmbedderToken(std::string agent)
{
    const auto at = agent.find("QtWebEngine/");
    if (at != std::string::npos) {
        auto end = agent.find(' ', at);
        agent.erase(at, end == std::string::npos ? std::string::npos : end - at + 1);
    }
    return agent;
}

std::string withPlatform(std::string agent, std::string_view platform)
{
    const auto open = agent.find('(');
    const auto close = agent.find(')', open);
    if (open == std::string::npos || close == std::string::npos) {
        return agent;
    }
    return agent.replace(open + 1, close - open - 1, platform);
}

std::string asPhone(std::string agent)
{
    agent = withPlatform(std::move(agent), kPhonePlatform);
    const auto safari = agent.rfind(" Safari/");
    if (safari != std::string::npos && agent.find(" Mobile ") == std::string::npos) {
        agent.insert(safari, " Mobile");
    }
    return agent;
}

} // namespace

std::string userAgent(std::string_view engineDefault,
                      BrowserAgent agent,
                      const std::optional<std::string>& custom)
{
    std::string desktop =
        withPlatform(withoutEmbedderToken(std::string(engineDefault)), kDesktopPlatform);
    switch (agent) {
    case BrowserAgent::DefaultSafari:
    case BrowserAgent::Chrome:
        return desktop;
    case BrowserAgent::Firefox:
        return std::string(kFirefox);
    case BrowserAgent::IpadSafari:
        return withPlatform(std::move(desktop), kTabletPlatform);
    case BrowserAgent::IphoneSafari:
        return asPhone(std::move(desktop));
    case BrowserAgent::Custom: {
        const bool blank = !custom || custom->find_first_not_of(" \t") == std::string::npos;
        return blank ? desktop : *custom;
    }
    }
    return desktop;
}

std::optional<double> zoomForKey(keys::ModifierSet modifiers, char32_t key, double current)
{
    using keys::Modifier;
    if (!modifiers.contains(Modifier::Control) || modifiers.contains(Modifier::Option)
        || modifiers.contains(Modifier::Command)) {
        return std::nullopt;
    }
    switch (key) {
    case U'=':
    case U'+':
        return PageZoom::larger(current);
    case U'-':
    case U'_':
        return PageZoom::smaller(current);
    case U'0':
        return PageZoom::kNormal;
    default:
        return std::nullopt;
    }
}

} // namespace kit::web
