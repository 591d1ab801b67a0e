// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kit::opening {

// Why the system could not open something, as far as it says; the desktop layer maps its own
// errors onto these.
enum class OpenFailure {
    NoApp,           // nothing is set up to open this kind of file or link
    AppNotInstalled, // the app that should open it is gone
    Missing,         // the file or folder is not where it was
    Permission,      // the person may not open it
    Other,
};

// What the person can do about a failure: the sentence said after "“Name” could not be opened.";
// empty when the system gave no usable reason.
std::string whyNotOpened(OpenFailure failure);
// "“Name” could not be opened." with the reason after it, when there is one; for a failure of no
// known kind, the system's own words (`detail`) in brackets, if it gave any.
std::string
couldNotOpen(const std::string& name, OpenFailure failure, const std::string& detail = {});

// The answer to opening an address: true when it opened.
struct OpenResult
{
    std::optional<OpenFailure> failure;

    static OpenResult opened() { return {}; }
    static OpenResult failed(OpenFailure why) { return {why}; }
    explicit operator bool() const { return !failure; }
    bool operator==(const OpenResult&) const = default;
};

// The system's workspace, through which every opening reaches the desktop (GIO by desktop-entry
// id on Linux). Every open or launch brings what it opened to the front. Called on the main
// thread; completions may arrive on any thread.
class WorkspaceOpening
{
public:
    // Nothing when the application started, else the sentences for the person saying why not
    // (couldNotOpen's).
    using Completion = std::function<void(std::optional<std::string> error)>;

    virtual ~WorkspaceOpening() = default;

    // Opens a web address, a link into an application or a file:// URL with the system's default
    // handler; false, with the reason, when it did not open.
    virtual OpenResult open(const std::string& url) = 0;
    // Opens the URLs with the application at `application` (a location urlForApplication gave
    // or a resolved bookmark named).
    virtual void open(const std::vector<std::string>& urls,
                      const std::string& application,
                      Completion completion) = 0;
    virtual void openApplication(const std::string& application, Completion completion) = 0;
    // Where the application with this id (a desktop-entry id without ".desktop") is installed.
    virtual std::optional<std::string> urlForApplication(const std::string& bundleID) = 0;
};

// What running an Apple Shortcut came to.
struct AppleShortcutRun
{
    enum class Kind {
        Ran,
        Cancelled,
        Unavailable, // no runner here: the system is handed the Shortcut's address instead
        NotFound,
        Failed, // `message` says why
    };
    Kind kind = Kind::Ran;
    std::string message;

    static AppleShortcutRun failed(std::string message)
    {
        return {Kind::Failed, std::move(message)};
    }
    // The result for a reply status of the Shortcuts scripting event (0 ran, -128 cancelled, ...);
    // statuses that mean the runner cannot be reached are logged and become Unavailable.
    static AppleShortcutRun fromEventStatus(int status, const std::string& errorText);

    bool operator==(const AppleShortcutRun&) const = default;
};

// Runs an Apple Shortcut by name, asynchronously; `done` may be called on any thread.
class AppleShortcutRunning
{
public:
    using Done = std::function<void(AppleShortcutRun)>;

    virtual ~AppleShortcutRunning() = default;
    virtual void run(const std::string& name, Done done) = 0;
};

// The runner of systems without Apple Shortcuts: every run is Unavailable, so the address goes to
// whatever handles "shortcuts:" links, if anything does.
class UnavailableAppleShortcutRunner final : public AppleShortcutRunning
{
public:
    void run(const std::string& name, Done done) override;
};

// Recognises the links that run an Apple Shortcut: "shortcuts://run-shortcut?name=...".
struct AppleShortcutLink
{
    // The Shortcut's name (percent-decoded), or nothing when the address is not such a link.
    static std::optional<std::string> name(const std::string& address);
};

} // namespace kit::opening
