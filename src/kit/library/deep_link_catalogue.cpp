// SPDX-License-Identifier: MIT
#include "kit/library/deep_link.h"

#include <array>

namespace kit::library {

namespace {

constexpr std::string_view kSettingsApp = "System Settings";
constexpr std::string_view kSettingsBundle = "com.apple.systempreferences";
constexpr std::string_view kSettingsScheme = "x-apple.systempreferences:";

struct AppRow
{
    std::string_view appName;
    std::string_view bundleID;
    std::string_view title;
    std::string_view address;
    std::string_view placeholder; // empty for a complete link
    std::string_view suggestedName;
    bool typed;
    std::string_view icon; // an icon-theme name; empty for the application's own icon
};

// Rows with a placeholder and typed == false are filled from a pasted link by reading().
constexpr std::array kAppRows{
    AppRow{"Slack",
           "com.tinyspeck.slackmacgap",
           "Open a channel",
           "slack://channel?team={workspace}&id={channel}",
           "in Slack, right-click the channel and choose Copy link",
           "Slack channel",
           false,
           ""},
    AppRow{"Slack",
           "com.tinyspeck.slackmacgap",
           "Message a person",
           "slack://user?team={workspace}&id={person}",
           "in Slack, right-click the person and choose Copy link",
           "Slack message",
           false,
           ""},
    AppRow{"Slack",
           "com.tinyspeck.slackmacgap",
           "Open a file",
           "slack://file?team={workspace}&id={file}",
           "in Slack, copy the file's link",
           "Slack file",
           false,
           ""},
    AppRow{"Slack",
           "com.tinyspeck.slackmacgap",
           "Open a workspace",
           "slack://open?team={workspace}",
           "paste the workspace's web address",
           "Slack",
           false,
           ""},
    AppRow{"WhatsApp",
           "net.whatsapp.WhatsApp",
           "Message a number",
           "whatsapp://send?phone={phone number}",
           "the number with its country code; a + or spaces are fine",
           "WhatsApp chat",
           true,
           ""},
    AppRow{"WhatsApp",
           "net.whatsapp.WhatsApp",
           "Message a number, with the message ready",
           "whatsapp://send?phone={phone number}&text={message}",
           "the number, and the message to have waiting in the field",
           "WhatsApp message",
           true,
           ""},
    AppRow{"Figma",
           "com.figma.Desktop",
           "Open a file",
           "figma://file/{file key}",
           "paste the file's web address and this fills itself in",
           "Figma file",
           false,
           ""},
    AppRow{"Notion",
           "notion.id",
           "Open a page",
           "notion://www.notion.so/{page}",
           "paste the page's web address",
           "Notion page",
           false,
           ""},
    AppRow{"Zoom",
           "us.zoom.xos",
           "Join a meeting",
           "zoommtg://zoom.us/join?confno={meeting number}",
           "the meeting number, or paste the invitation's link",
           "Zoom meeting",
           true,
           ""},
    AppRow{"Telegram",
           "ru.keepcoder.Telegram",
           "Open a person or channel",
           "tg://resolve?domain={username}",
           "the @name without its @, or paste a Telegram link",
           "Telegram chat",
           true,
           ""},
    AppRow{"Spotify",
           "com.spotify.client",
           "Open a playlist",
           "spotify:playlist:{playlist id}",
           "paste the playlist's web address",
           "Spotify playlist",
           false,
           ""},
    AppRow{"Spotify",
           "com.spotify.client",
           "Open an album",
           "spotify:album:{album id}",
           "paste the album's web address",
           "Spotify album",
           false,
           ""},
    AppRow{"Shortcuts",
           "com.apple.shortcuts",
           "Run a shortcut",
           "shortcuts://run-shortcut?name={name}",
           "the shortcut's name",
           "Shortcut",
           true,
           ""},
    AppRow{"Raycast",
           "com.raycast.macos",
           "Run a command",
           "raycast://extensions/{author/extension/command}",
           "author/extension/command",
           "Raycast command",
           true,
           ""},
    AppRow{"Obsidian",
           "md.obsidian",
           "Open a vault",
           "obsidian://open?vault={vault}",
           "the vault's name",
           "Obsidian vault",
           true,
           ""},
    AppRow{"Obsidian",
           "md.obsidian",
           "Open a note",
           "obsidian://open?vault={vault}&file={note}",
           "the vault's name, and the note's",
           "Obsidian note",
           true,
           ""},
    AppRow{"Bear",
           "net.shinyfrog.bear",
           "Open a note",
           "bear://x-callback-url/open-note?title={title}",
           "the note's title",
           "Bear note",
           true,
           ""},
    AppRow{"Visual Studio Code",
           "com.microsoft.VSCode",
           "Open a folder",
           "vscode://file/{path}",
           "the folder's path",
           "Code folder",
           true,
           ""},
    AppRow{"Things",
           "com.culturedcode.ThingsMac",
           "Show Today",
           "things:///show?id=today",
           "",
           "Today",
           false,
           ""},
    AppRow{"Things",
           "com.culturedcode.ThingsMac",
           "Show the Inbox",
           "things:///show?id=inbox",
           "",
           "Inbox",
           false,
           ""},
    AppRow{"OmniFocus",
           "com.omnigroup.OmniFocus4",
           "Show the Inbox",
           "omnifocus:///inbox",
           "",
           "OmniFocus Inbox",
           false,
           ""},
    AppRow{"Microsoft Teams",
           "com.microsoft.teams2",
           "Chat with someone",
           "msteams:/l/chat/0/0?users={email}",
           "who the chat is with",
           "Teams chat",
           true,
           ""},
    AppRow{"Discord",
           "com.hnc.Discord",
           "Open a channel",
           "discord://discord.com/channels/{server}/{channel}",
           "the two ids in the channel's own link",
           "Discord channel",
           false,
           ""},
    AppRow{kSettingsApp,
           kSettingsBundle,
           "Another pane, by its identifier",
           "x-apple.systempreferences:com.apple.{pane}",
           "what follows com.apple. in the pane's identifier: Mouse-Settings.extension, say",
           "Settings",
           true,
           "preferences-system"},
};

struct PaneRow
{
    std::string_view identifier;
    std::string_view name;
    std::string_view icon; // an icon-theme name
};

constexpr std::array kPanes{
    PaneRow{"com.apple.systempreferences.GeneralSettings", "General", "preferences-system"},
    PaneRow{"com.apple.Software-Update-Settings.extension",
            "Software Update",
            "system-software-update"},
    PaneRow{"com.apple.settings.Storage", "Storage", "drive-harddisk"},
    PaneRow{
        "com.apple.AirDrop-Handoff-Settings.extension", "AirDrop & Handoff", "folder-publicshare"},
    PaneRow{"com.apple.LoginItems-Settings.extension", "Login Items", "system-run"},
    PaneRow{"com.apple.Localization-Settings.extension",
            "Language & Region",
            "preferences-desktop-locale"},
    PaneRow{"com.apple.Date-Time-Settings.extension", "Date & Time", "preferences-system-time"},
    PaneRow{"com.apple.Sharing-Settings.extension", "Sharing", "folder-remote"},
    PaneRow{"com.apple.Time-Machine-Settings.extension", "Time Machine", "document-open-recent"},
    PaneRow{"com.apple.Startup-Disk-Settings.extension", "Startup Disk", "drive-harddisk-system"},
    PaneRow{"com.apple.Touch-ID-Settings.extension", "Touch ID & Password", "dialog-password"},
    PaneRow{"com.apple.Siri-Settings.extension", "Siri", "audio-input-microphone"},
    PaneRow{"com.apple.Battery-Settings.extension", "Battery", "battery"},
    PaneRow{"com.apple.systempreferences.AppleIDSettings:icloud", "iCloud", "network-server"},
    PaneRow{"com.apple.Users-Groups-Settings.extension", "Users & Groups", "system-users"},
    PaneRow{"com.apple.Keyboard-Settings.extension", "Keyboard", "input-keyboard"},
    PaneRow{"com.apple.Internet-Accounts-Settings.extension", "Internet Accounts", "internet-mail"},
    PaneRow{"com.apple.wifi-settings-extension", "Wi-Fi", "network-wireless"},
    PaneRow{"com.apple.Screen-Time-Settings.extension", "Screen Time", "appointment-soon"},
    PaneRow{"com.apple.Network-Settings.extension", "Network", "network-wired"},
    PaneRow{"com.apple.Sound-Settings.extension", "Sound", "audio-volume-high"},
    PaneRow{"com.apple.settings.PrivacySecurity.extension", "Privacy & Security", "security-high"},
    PaneRow{"com.apple.Wallpaper-Settings.extension", "Wallpaper", "preferences-desktop-wallpaper"},
    PaneRow{"com.apple.Spotlight-Settings.extension", "Spotlight", "system-search"},
    PaneRow{"com.apple.Game-Center-Settings.extension", "Game Center", "applications-games"},
    PaneRow{"com.apple.ControlCenter-Settings.extension", "Control Center", "preferences-desktop"},
    PaneRow{"com.apple.Appearance-Settings.extension", "Appearance", "preferences-desktop-theme"},
    PaneRow{"com.apple.Bluetooth-Settings.extension", "Bluetooth", "bluetooth"},
    PaneRow{"com.apple.Accessibility-Settings.extension",
            "Accessibility",
            "preferences-desktop-accessibility"},
    PaneRow{"com.apple.Trackpad-Settings.extension", "Trackpad", "input-touchpad"},
    PaneRow{"com.apple.Displays-Settings.extension", "Displays", "video-display"},
    PaneRow{"com.apple.Notifications-Settings.extension",
            "Notifications",
            "preferences-system-notifications"},
    PaneRow{"com.apple.Lock-Screen-Settings.extension", "Lock Screen", "system-lock-screen"},
    PaneRow{"com.apple.WalletSettingsExtension", "Wallet & Apple Pay", "emblem-money"},
    PaneRow{"com.apple.Focus-Settings.extension", "Focus", "weather-clear-night"},
    PaneRow{"com.apple.Desktop-Settings.extension", "Desktop & Dock", "user-desktop"},
    PaneRow{"com.apple.Print-Scan-Settings.extension", "Printers & Scanners", "printer"},
};

std::optional<IconOverride> themeIcon(std::string_view name)
{
    if (name.empty()) {
        return std::nullopt;
    }
    return IconOverride::symbol(std::string(name));
}

std::vector<DeepLinkTemplate> buildCatalogue()
{
    std::vector<DeepLinkTemplate> all;
    all.reserve(kAppRows.size() + kPanes.size());
    for (const AppRow& row : kAppRows) {
        all.push_back(DeepLinkTemplate{
            std::string(row.appName),
            std::string(row.bundleID),
            std::string(row.title),
            std::string(row.address),
            row.placeholder.empty() ? std::nullopt
                                    : std::optional<std::string>(std::string(row.placeholder)),
            std::string(row.suggestedName),
            row.typed,
            themeIcon(row.icon),
        });
    }
    for (const PaneRow& pane : kPanes) {
        all.push_back(DeepLinkTemplate{
            std::string(kSettingsApp),
            std::string(kSettingsBundle),
            std::string(pane.name),
            std::string(kSettingsScheme) + std::string(pane.identifier),
            std::nullopt,
            std::string(pane.name),
            false,
            themeIcon(pane.icon),
        });
    }
    return all;
}

// The macOS bundle identifiers of the catalogue and the desktop entries of the same applications
// on Linux (distribution package or vendor package first, then Flatpak). Applications without a
// Linux build have no row. System Settings has none on purpose: its panes' links open nothing
// here, so the app should not be reported as installed.
struct DesktopEntries
{
    std::string_view bundleID;
    std::array<std::string_view, 2> ids;
    std::size_t count;
};

constexpr std::array kDesktopEntries{
    DesktopEntries{"com.tinyspeck.slackmacgap", {"slack", "com.slack.Slack"}, 2},
    DesktopEntries{"us.zoom.xos", {"Zoom", "us.zoom.Zoom"}, 2},
    DesktopEntries{"ru.keepcoder.Telegram", {"org.telegram.desktop", ""}, 1},
    DesktopEntries{"com.spotify.client", {"spotify", "com.spotify.Client"}, 2},
    DesktopEntries{"md.obsidian", {"obsidian", "md.obsidian.Obsidian"}, 2},
    DesktopEntries{"com.microsoft.VSCode", {"code", "com.visualstudio.code"}, 2},
    DesktopEntries{"com.hnc.Discord", {"discord", "com.discordapp.Discord"}, 2},
};

} // namespace

const std::vector<DeepLinkTemplate>& DeepLinkTemplates::all()
{
    static const std::vector<DeepLinkTemplate> catalogue = buildCatalogue();
    return catalogue;
}

std::span<const std::string_view> DeepLinkTemplates::desktopEntryIDs(std::string_view bundleID)
{
    for (const DesktopEntries& row : kDesktopEntries) {
        if (row.bundleID == bundleID) {
            return std::span<const std::string_view>(row.ids.data(), row.count);
        }
    }
    return {};
}

} // namespace kit::library
