// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/enums.h"
#include "kit/library/ids.h"
#include "kit/support/base64.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kit::library {

using support::Bytes;

// A width and height in points.
struct ContentSize
{
    double width = 0;
    double height = 0;

    static ContentSize unbounded();
    // Each side clamped on its own.
    ContentSize clamped(const ContentSize& min, const ContentSize& max) const;

    bool operator==(const ContentSize&) const = default;
};

// The sizes panels and windows start at and stay within.
struct SurfaceLimits
{
    static constexpr ContentSize kPopoverDefault{400, 600};
    static constexpr ContentSize kWindowDefault{1100, 800};
    static constexpr ContentSize kMinimum{240, 240};
};

// Page zoom factors: the steps the zoom keys walk and the bounds every zoom is held to.
struct PageZoom
{
    static constexpr double kNormal = 1.0;
    static constexpr double kSmallest = 0.5;
    static constexpr double kLargest = 3.0;
    static constexpr std::array<double, 11> kSteps{
        0.5, 0.75, 0.9, 1.0, 1.1, 1.25, 1.5, 1.75, 2.0, 2.5, 3.0};

    static double clamped(double zoom);
    static double larger(double than);
    static double smaller(double than);
    // "125%" for 1.25.
    static std::string title(double zoom);
};

// A chosen icon: a symbol name from the icon theme, an emoji or up to three letters, or image data.
struct IconOverride
{
    enum class Kind {
        Symbol,
        Emoji,
        Image,
    };
    static constexpr size_t kTextLimit = 3;

    Kind kind = Kind::Symbol;
    std::string text; // the symbol's name or the emoji text
    Bytes data;       // the image

    static IconOverride symbol(std::string name) { return {Kind::Symbol, std::move(name), {}}; }
    static IconOverride emoji(std::string text) { return {Kind::Emoji, std::move(text), {}}; }
    static IconOverride image(Bytes data) { return {Kind::Image, {}, std::move(data)}; }

    // Emoji keep their own colours; symbols and images are drawn as templates and take a tint.
    bool takesColour() const { return kind != Kind::Emoji; }

    bool operator==(const IconOverride&) const = default;
};

struct IconTint
{
    enum class Kind {
        Colour,
        Monochrome,
    };
    Kind kind = Kind::Monochrome;
    std::string value; // "#RRGGBB" for a colour

    static IconTint colour(std::string hex) { return {Kind::Colour, std::move(hex)}; }
    static IconTint monochrome() { return {Kind::Monochrome, {}}; }
    std::optional<std::string> hex() const
    {
        return kind == Kind::Colour ? std::optional<std::string>(value) : std::nullopt;
    }

    bool operator==(const IconTint&) const = default;
};

// Access to a file, folder or app the person picked: the platform's grant and the path as picked.
struct Bookmark
{
    Bytes data;
    std::string displayPath;

    bool operator==(const Bookmark&) const = default;
};

struct AppTarget
{
    std::string bundleID;
    std::optional<Bookmark> bookmark;

    bool operator==(const AppTarget&) const = default;
};

// The payload of both file and folder targets.
struct FileTarget
{
    Bookmark bookmark;
    std::optional<std::string> openWith;

    bool operator==(const FileTarget&) const = default;
};

struct URLTarget
{
    std::string url;
    std::optional<std::string> templateID;
    std::optional<OpenMode> openMode;
    std::optional<SessionID> sessionID;
    std::optional<std::string> browserBundleID;
    std::optional<BrowserAgent> userAgent;
    std::optional<std::string> customUserAgent;
    std::optional<PageAppearance> pageAppearance;
    std::optional<bool> blocksAds;
    std::optional<ContentSize> popoverSize;
    std::optional<ContentSize> windowSize;
    std::optional<std::string> lastVisitedURL;
    bool isPrivate = false;
    bool staysOnTop = false;
    bool reloadsOnOpen = false;
    bool keepsPlaying = false;
    std::optional<NewWindowLinks> newWindowLinks;
    std::optional<double> pageZoom;

    bool operator==(const URLTarget&) const = default;
};

struct Shortcut;

struct GroupTarget
{
    std::vector<Shortcut> members;

    bool operator==(const GroupTarget&) const;
};

// What opening a shortcut does: one of six kinds, each with its own payload.
class Target
{
public:
    enum class Kind {
        App,
        File,
        Folder,
        Url,
        Group,
        Divider,
    };

    // A divider.
    Target();
    Target(const Target&);
    Target(Target&&) noexcept;
    Target& operator=(const Target&);
    Target& operator=(Target&&) noexcept;
    ~Target();

    static Target app(AppTarget app);
    static Target file(FileTarget file);
    static Target folder(FileTarget folder);
    static Target url(URLTarget url);
    static Target group(GroupTarget group);
    static Target group(std::vector<Shortcut> members);
    static Target divider();

    Kind kind() const { return m_kind; }
    bool isGroup() const { return m_kind == Kind::Group; }
    bool isDivider() const { return m_kind == Kind::Divider; }

    // The payload, or null when the target is of another kind. File and folder share FileTarget.
    const AppTarget* appTarget() const { return std::get_if<AppTarget>(&m_payload); }
    AppTarget* appTarget() { return std::get_if<AppTarget>(&m_payload); }
    const FileTarget* fileTarget() const { return std::get_if<FileTarget>(&m_payload); }
    FileTarget* fileTarget() { return std::get_if<FileTarget>(&m_payload); }
    const URLTarget* urlTarget() const { return std::get_if<URLTarget>(&m_payload); }
    URLTarget* urlTarget() { return std::get_if<URLTarget>(&m_payload); }
    const GroupTarget* groupTarget() const { return std::get_if<GroupTarget>(&m_payload); }
    GroupTarget* groupTarget() { return std::get_if<GroupTarget>(&m_payload); }

    // Members of a group; empty for every other kind.
    const std::vector<Shortcut>& members() const;

    bool operator==(const Target&) const = default;

private:
    using Payload = std::variant<std::monostate, AppTarget, FileTarget, URLTarget, GroupTarget>;

    template <class P> Target(Kind kind, P payload);

    Kind m_kind = Kind::Divider;
    Payload m_payload;
};

template <> struct EnumWords<Target::Kind>
{
    static constexpr std::array<std::string_view, 6> kWords{
        "app", "file", "folder", "url", "group", "divider"};
};

// One item of a bar: a name, an icon and what opening it does.
struct Shortcut
{
    ShortcutID id;
    std::string name;
    Target target;
    std::optional<IconOverride> icon;
    std::optional<IconTint> iconTint;
    std::optional<double> iconOpacity;
    bool isInMenuBar = true;

    static Shortcut make(std::string name, Target target)
    {
        return Shortcut{ShortcutID::make(), std::move(name), std::move(target), {}, {}, {}, true};
    }

    // A copy with fresh ids, group members included; a non-empty name gets " copy".
    Shortcut copy() const;

    bool operator==(const Shortcut&) const = default;
};

inline bool GroupTarget::operator==(const GroupTarget& other) const
{
    return members == other.members;
}

// Defined here, where Shortcut is complete: a group's payload holds shortcuts.
inline Target::Target() = default;
inline Target::Target(const Target&) = default;
inline Target::Target(Target&&) noexcept = default;
inline Target& Target::operator=(const Target&) = default;
inline Target& Target::operator=(Target&&) noexcept = default;
inline Target::~Target() = default;

template <class P>
Target::Target(Kind kind, P payload)
    : m_kind(kind)
    , m_payload(std::move(payload))
{}

inline Target Target::app(AppTarget app)
{
    return Target(Kind::App, std::move(app));
}
inline Target Target::file(FileTarget file)
{
    return Target(Kind::File, std::move(file));
}
inline Target Target::folder(FileTarget folder)
{
    return Target(Kind::Folder, std::move(folder));
}
inline Target Target::url(URLTarget url)
{
    return Target(Kind::Url, std::move(url));
}
inline Target Target::group(GroupTarget group)
{
    return Target(Kind::Group, std::move(group));
}
inline Target Target::group(std::vector<Shortcut> members)
{
    return group(GroupTarget{std::move(members)});
}
inline Target Target::divider()
{
    return {};
}

// What a url target follows where it says nothing of its own; kept in the settings.
struct BrowsingDefaults
{
    OpenMode openMode = OpenMode::Popover;
    std::optional<std::string> browserBundleID;
    BrowserAgent userAgent = BrowserAgent::DefaultSafari;
    std::optional<std::string> customUserAgent;
    PageAppearance pageAppearance = PageAppearance::System;
    bool blocksAds = true;
    ContentSize popoverSize = SurfaceLimits::kPopoverDefault;
    ContentSize windowSize = SurfaceLimits::kWindowDefault;
    bool asksWhereToSaveDownloads = true;
    NewWindowLinks newWindowLinks = NewWindowLinks::Browser;
    double pageZoom = PageZoom::kNormal;

    static BrowsingDefaults standard() { return {}; }

    bool operator==(const BrowsingDefaults&) const = default;
};

// A url target's settings with the defaults filled in.
struct ResolvedBrowsing
{
    OpenMode openMode = OpenMode::Popover;
    std::optional<std::string> browserBundleID;
    BrowserAgent userAgent = BrowserAgent::DefaultSafari;
    std::optional<std::string> customUserAgent;
    PageAppearance pageAppearance = PageAppearance::System;
    bool blocksAds = true;
    ContentSize popoverSize;
    ContentSize windowSize;
    bool staysOnTop = false;
    bool reloadsOnOpen = false;
    bool keepsPlaying = false;
    NewWindowLinks newWindowLinks = NewWindowLinks::Browser;
    double pageZoom = PageZoom::kNormal;

    static ResolvedBrowsing resolve(const URLTarget& target, const BrowsingDefaults& defaults);

    bool operator==(const ResolvedBrowsing&) const = default;
};

} // namespace kit::library
