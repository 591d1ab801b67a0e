// SPDX-License-Identifier: MIT
#include "desktop/gio_workspace.h"

#include "kit/support/log.h"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

namespace desktop {

namespace {

constexpr kit::support::Logger kLog("opening");

struct ObjectUnref
{
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T> using GObjectPtr = std::unique_ptr<T, ObjectUnref>;

struct ErrorFree
{
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPtr = std::unique_ptr<GError, ErrorFree>;

std::string quoted(const std::string& name)
{
    return "\u201C" + name + "\u201D";
}

using kit::opening::OpenFailure;

OpenFailure failureOf(const GError* error)
{
    if (error == nullptr) {
        return OpenFailure::Other;
    }
    if (error->domain == G_IO_ERROR) {
        switch (error->code) {
        case G_IO_ERROR_NOT_FOUND:
            return OpenFailure::Missing;
        case G_IO_ERROR_PERMISSION_DENIED:
            return OpenFailure::Permission;
        case G_IO_ERROR_NOT_SUPPORTED:
            return OpenFailure::NoApp;
        default:
            return OpenFailure::Other;
        }
    }
    if (error->domain == G_SPAWN_ERROR) {
        switch (error->code) {
        case G_SPAWN_ERROR_NOENT:
            return OpenFailure::AppNotInstalled;
        case G_SPAWN_ERROR_ACCES:
        case G_SPAWN_ERROR_PERM:
            return OpenFailure::Permission;
        default:
            return OpenFailure::Other;
        }
    }
    return OpenFailure::Other;
}

bool isExecutableFile(const std::string& path)
{
    struct stat info
    {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)
           && ::access(path.c_str(), X_OK) == 0;
}

// The app an application location names, or nothing.
GObjectPtr<GAppInfo> appInfo(const std::string& application)
{
    if (application.empty()) {
        return nullptr;
    }
    if (application.ends_with(".desktop") && application.find('/') != std::string::npos) {
        return GObjectPtr<GAppInfo>(
            G_APP_INFO(g_desktop_app_info_new_from_filename(application.c_str())));
    }
    if (application.find('/') == std::string::npos) {
        const std::string id =
            application.ends_with(".desktop") ? application : application + ".desktop";
        return GObjectPtr<GAppInfo>(G_APP_INFO(g_desktop_app_info_new(id.c_str())));
    }
    if (isExecutableFile(application)) {
        gchar* command = g_shell_quote(application.c_str());
        const std::string line = std::string(command) + " %U";
        g_free(command);
        GError* raw = nullptr;
        GAppInfo* info = g_app_info_create_from_commandline(
            line.c_str(), nullptr, G_APP_INFO_CREATE_SUPPORTS_URIS, &raw);
        ErrorPtr error(raw);
        if (error) {
            kLog.error("cannot run " + application + ": " + error->message);
        }
        return GObjectPtr<GAppInfo>(info);
    }
    return nullptr;
}

std::string displayName(GAppInfo* info, const std::string& application)
{
    const char* name = g_app_info_get_display_name(info);
    return name && *name ? name : application;
}

void launch(const std::vector<std::string>& urls,
            const std::string& application,
            const kit::opening::WorkspaceOpening::Completion& completion)
{
    auto report = [&](std::optional<std::string> error) {
        if (completion) {
            completion(std::move(error));
        }
    };
    GObjectPtr<GAppInfo> info = appInfo(application);
    if (!info) {
        report("The app at " + quoted(application) + " cannot be found.");
        return;
    }
    GList* list = nullptr;
    for (auto it = urls.rbegin(); it != urls.rend(); ++it) {
        list = g_list_prepend(list, const_cast<char*>(it->c_str()));
    }
    GObjectPtr<GAppLaunchContext> context(g_app_launch_context_new());
    GError* raw = nullptr;
    const bool started = g_app_info_launch_uris(info.get(), list, context.get(), &raw);
    g_list_free(list);
    ErrorPtr error(raw);
    if (!started) {
        const std::string name = displayName(info.get(), application);
        const std::string why = error ? error->message : "no reason given";
        kLog.error("launch " + application + ": " + why);
        report(kit::opening::couldNotOpen(name, failureOf(error.get()), why));
        return;
    }
    report(std::nullopt);
}

} // namespace

kit::opening::OpenResult GioWorkspace::open(const std::string& url)
{
    GObjectPtr<GAppLaunchContext> context(g_app_launch_context_new());
    GError* raw = nullptr;
    const bool opened = g_app_info_launch_default_for_uri(url.c_str(), context.get(), &raw);
    ErrorPtr error(raw);
    if (!opened) {
        kLog.error("open " + url + ": " + (error ? error->message : "no handler"));
        return kit::opening::OpenResult::failed(failureOf(error.get()));
    }
    return kit::opening::OpenResult::opened();
}

void GioWorkspace::open(const std::vector<std::string>& urls,
                        const std::string& application,
                        Completion completion)
{
    launch(urls, application, completion);
}

void GioWorkspace::openApplication(const std::string& application, Completion completion)
{
    launch({}, application, completion);
}

std::optional<std::string> GioWorkspace::urlForApplication(const std::string& bundleID)
{
    if (bundleID.empty() || bundleID.find('/') != std::string::npos) {
        return std::nullopt;
    }
    const std::string id = bundleID.ends_with(".desktop") ? bundleID : bundleID + ".desktop";
    GObjectPtr<GDesktopAppInfo> info(g_desktop_app_info_new(id.c_str()));
    if (!info) {
        return std::nullopt;
    }
    const char* file = g_desktop_app_info_get_filename(info.get());
    if (!file) {
        return std::nullopt;
    }
    return std::string(file);
}

} // namespace desktop
