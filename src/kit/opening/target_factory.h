// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"
#include "kit/opening/bookmark_resolver.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kit::opening {

// Makes a new shortcut's target from what the person dropped or chose: a web address or link
// into an application, or a file, folder or application (a desktop entry) on disk. Reads the
// file system; main thread only.
class TargetFactory
{
public:
    // A proposed name and target for a new shortcut.
    struct Draft
    {
        std::string name;
        library::Target target;

        bool operator==(const Draft&) const = default;
    };

    // Why nothing can be made; what() is one sentence for the person.
    class Failure : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    explicit TargetFactory(BookmarkResolver& bookmarks);

    // `url` is a web address, a "file://" URL or an absolute path. Throws Failure.
    Draft draft(const std::string& url) const;

    // The kind a file on disk becomes: an application when it is a package or desktop entry
    // with an id, a folder when it is a plain directory, else a file.
    static library::Target::Kind inferKind(std::string_view pathExtension,
                                           bool isDirectory,
                                           bool isPackage,
                                           const std::optional<std::string>& bundleID);
    // A name from the last part of the path: a file without its extension, an application without
    // ".desktop" or ".app", a folder as it is.
    static std::string suggestedName(library::Target::Kind kind, std::string_view displayPath);
    // The "Name=" of a desktop entry's main group, or nothing.
    static std::optional<std::string> appName(const std::string& desktopEntryPath);

private:
    Draft draftFile(const std::string& path) const;

    BookmarkResolver& m_bookmarks;
};

} // namespace kit::opening
