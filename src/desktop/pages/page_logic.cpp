// SPDX-License-Identifier: MIT
#include "desktop/pages/page_logic.h"

#include "kit/library/shortcut.h"

#include <algorithm>

namespace desktop::pages {

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

QRect panelGeometry(QRect icon, QPoint pointer, QSize size, QRect screen)
{
    size = size.boundedTo(screen.size());
    QRect placed(QPoint(), size);
    if (icon.isValid() && !icon.isEmpty()) {
        placed.moveTopLeft(QPoint(icon.center().x() - size.width() / 2, icon.bottom() + 1));
        // A tray at the foot of the screen: the panel opens upwards.
        if (placed.bottom() > screen.bottom() && icon.top() - size.height() >= screen.top()) {
            placed.moveBottom(icon.top() - 1);
        }
    } else {
        placed.moveTopLeft(QPoint(pointer.x() - size.width() / 2, pointer.y()));
        if (placed.bottom() > screen.bottom()) {
            placed.moveBottom(pointer.y() - 1);
        }
    }
    placed.moveLeft(std::clamp(placed.left(), screen.left(), screen.right() - size.width() + 1));
    placed.moveTop(std::clamp(placed.top(), screen.top(), screen.bottom() - size.height() + 1));
    return placed;
}

std::optional<double> zoomForKey(QKeyCombination key, double current)
{
    // Shift is how "+" is typed on most layouts; the keypad's keys count as the same.
    const auto modifiers = key.keyboardModifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier);
    if (modifiers != Qt::ControlModifier) {
        return std::nullopt;
    }
    switch (key.key()) {
    case Qt::Key_Equal:
    case Qt::Key_Plus:
        return PageZoom::larger(current);
    case Qt::Key_Minus:
    case Qt::Key_Underscore:
        return PageZoom::smaller(current);
    case Qt::Key_0:
        return PageZoom::kNormal;
    default:
        return std::nullopt;
    }
}

} // namespace desktop::pages
