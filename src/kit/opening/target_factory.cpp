// SPDX-License-Identifier: MIT
#include "kit/opening/target_factory.h"

#include "kit/library/web_address.h"
#include "kit/support/atomic_file.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace kit::opening {

namespace fs = std::filesystem;
using library::Target;

namespace {

std::string lowered(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(std::tolower(c));
    });
    return out;
}

std::string curlyQuoted(std::string_view text)
{
    return "“" + std::string(text) + "”";
}

bool isApplicationExtension(std::string_view extension)
{
    const std::string lower = lowered(extension);
    return lower == "desktop" || lower == "app";
}

// The last component of a path, ignoring trailing slashes.
std::string_view lastComponent(std::string_view path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos || path.size() == 1 ? path : path.substr(slash + 1);
}

// A desktop entry's id: its path below an "applications" folder with "/" read as "-", without
// ".desktop"; outside such a folder, its file name.
std::string desktopEntryID(const fs::path& path)
{
    std::string id;
    for (fs::path folder = path.parent_path(); folder.has_relative_path();
         folder = folder.parent_path()) {
        if (folder.filename() == "applications") {
            id = path.lexically_relative(folder).replace_extension().string();
            std::replace(id.begin(), id.end(), '/', '-');
            return id;
        }
    }
    return path.stem().string();
}

} // namespace

TargetFactory::TargetFactory(BookmarkResolver& bookmarks)
    : m_bookmarks(bookmarks)
{}

Target::Kind TargetFactory::inferKind(std::string_view pathExtension,
                                      bool isDirectory,
                                      bool isPackage,
                                      const std::optional<std::string>& bundleID)
{
    if (isApplicationExtension(pathExtension) || (isPackage && bundleID && !bundleID->empty())) {
        return Target::Kind::App;
    }
    // Any other package (a bundle of a document) opens as the document it is.
    return isDirectory && !isPackage ? Target::Kind::Folder : Target::Kind::File;
}

std::string TargetFactory::suggestedName(Target::Kind kind, std::string_view displayPath)
{
    const std::string_view last = lastComponent(displayPath);
    if (kind == Target::Kind::Folder) {
        return std::string(last);
    }
    const size_t dot = last.rfind('.');
    // ".profile" has no extension to drop.
    if (dot == std::string_view::npos || dot == 0) {
        return std::string(last);
    }
    if (kind == Target::Kind::App && !isApplicationExtension(last.substr(dot + 1))) {
        return std::string(last);
    }
    return std::string(last.substr(0, dot));
}

std::optional<std::string> TargetFactory::appName(const std::string& desktopEntryPath)
{
    auto read = support::readWholeFile(desktopEntryPath, size_t{1} << 20);
    if (!std::holds_alternative<std::string>(read)) {
        return std::nullopt;
    }
    std::istringstream in(std::get<std::string>(read));
    std::string line;
    bool inMainGroup = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.starts_with("[")) {
            inMainGroup = line == "[Desktop Entry]";
        } else if (inMainGroup && line.starts_with("Name")) {
            const size_t equals = line.find('=');
            if (equals == std::string::npos) {
                continue;
            }
            std::string key = line.substr(0, equals);
            key.erase(key.find_last_not_of(" \t") + 1);
            if (key != "Name") {
                continue; // a translation, Name[de]
            }
            std::string value = line.substr(equals + 1);
            value.erase(0, value.find_first_not_of(" \t"));
            if (!value.empty()) {
                return value;
            }
        }
    }
    return std::nullopt;
}

TargetFactory::Draft TargetFactory::draft(const std::string& url) const
{
    if (auto path = pathOfFileURL(url)) {
        return draftFile(*path);
    }
    if (url.starts_with("/")) {
        return draftFile(url);
    }
    if (lowered(url).starts_with("file:")) {
        throw Failure(curlyQuoted(url) + " is not a file on this computer.");
    }
    const auto address = library::WebAddress::normalized(url);
    if (!address) {
        throw Failure(curlyQuoted(url) + " is not an address a shortcut can open.");
    }
    library::URLTarget target;
    target.url = *address;
    return Draft{library::WebAddress::suggestedName(*address), Target::url(std::move(target))};
}

TargetFactory::Draft TargetFactory::draftFile(const std::string& path) const
{
    const std::string shown(lastComponent(path));
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error || !fs::exists(status)) {
        if (!error || error == std::errc::no_such_file_or_directory) {
            throw Failure(curlyQuoted(shown) + " cannot be found.");
        }
        throw Failure(curlyQuoted(shown) + " cannot be read: " + error.message() + ".");
    }
    const bool isDirectory = fs::is_directory(status);
    const fs::path file(path);
    std::string extension = file.extension().string();
    if (!extension.empty()) {
        extension.erase(0, 1);
    }
    // Desktop entries are this system's application packages.
    const bool isEntry = !isDirectory && lowered(extension) == "desktop";
    const std::optional<std::string> bundleID =
        isEntry ? std::optional(desktopEntryID(file)) : std::nullopt;
    const Target::Kind kind = inferKind(extension, isDirectory, isEntry, bundleID);

    auto bookmark = m_bookmarks.make(path);
    if (!bookmark) {
        throw Failure(curlyQuoted(shown)
                      + " cannot be kept as a shortcut: access to it was refused.");
    }
    switch (kind) {
    case Target::Kind::App: {
        std::string name = isEntry ? appName(path).value_or("") : "";
        if (name.empty()) {
            name = suggestedName(kind, bookmark->displayPath);
        }
        return Draft{std::move(name),
                     Target::app(library::AppTarget{bundleID.value_or(""), std::move(bookmark)})};
    }
    case Target::Kind::Folder: {
        std::string name = suggestedName(kind, bookmark->displayPath);
        return Draft{std::move(name),
                     Target::folder(library::FileTarget{std::move(*bookmark), std::nullopt})};
    }
    default: {
        std::string name = suggestedName(kind, bookmark->displayPath);
        return Draft{std::move(name),
                     Target::file(library::FileTarget{std::move(*bookmark), std::nullopt})};
    }
    }
}

} // namespace kit::opening
