// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace kit::library {

enum class OpenMode {
    System,  // the user's browser, or the app a deep link names
    Popover, // the panel under the icon
    Window,  // a window of its own
};

enum class PageAppearance {
    System,
    Light,
    Dark,
    ForcedDark, // colours inverted by a page script
};

enum class NewWindowLinks {
    ThisPage,
    NewWindow,
    Browser,
};

enum class BrowserAgent {
    DefaultSafari,
    Chrome,
    Firefox,
    IpadSafari,
    IphoneSafari,
    Custom,
};

enum class SizePreset {
    Phone,
    Tablet,
    Desktop,
};

enum class MediaPermission {
    Camera,
    Microphone,
    CameraAndMicrophone,
};

// The words an enumeration is written as, in declaration order.
template <class E> struct EnumWords;

template <> struct EnumWords<OpenMode>
{
    static constexpr std::array<std::string_view, 3> kWords{"system", "popover", "window"};
};
template <> struct EnumWords<PageAppearance>
{
    static constexpr std::array<std::string_view, 4> kWords{
        "system", "light", "dark", "forcedDark"};
};
template <> struct EnumWords<NewWindowLinks>
{
    static constexpr std::array<std::string_view, 3> kWords{"thisPage", "newWindow", "browser"};
};
template <> struct EnumWords<BrowserAgent>
{
    static constexpr std::array<std::string_view, 6> kWords{
        "defaultSafari", "chrome", "firefox", "ipadSafari", "iphoneSafari", "custom"};
};
template <> struct EnumWords<SizePreset>
{
    static constexpr std::array<std::string_view, 3> kWords{"phone", "tablet", "desktop"};
};
template <> struct EnumWords<MediaPermission>
{
    static constexpr std::array<std::string_view, 3> kWords{
        "camera", "microphone", "cameraAndMicrophone"};
};

template <class E> constexpr std::string_view enumWord(E value)
{
    return EnumWords<E>::kWords[static_cast<size_t>(value)];
}

template <class E> constexpr std::optional<E> enumFromWord(std::string_view word)
{
    const auto& words = EnumWords<E>::kWords;
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i] == word) {
            return static_cast<E>(i);
        }
    }
    return std::nullopt;
}

// How a choice reads to the person, the same in a shortcut's menu and in a review.
constexpr std::string_view readableWord(OpenMode mode)
{
    constexpr std::array<std::string_view, 3> kWords{"In a browser", "In a panel", "In a window"};
    return kWords[static_cast<size_t>(mode)];
}

constexpr std::string_view readableWord(PageAppearance appearance)
{
    constexpr std::array<std::string_view, 4> kWords{
        "As the system", "Light", "Dark", "Forced dark"};
    return kWords[static_cast<size_t>(appearance)];
}

constexpr std::string_view readableWord(BrowserAgent agent)
{
    constexpr std::array<std::string_view, 6> kWords{
        "Standard", "Chrome", "Firefox", "Tablet", "Phone", "Custom"};
    return kWords[static_cast<size_t>(agent)];
}

} // namespace kit::library
