// SPDX-License-Identifier: MIT
#include "kit/opening/bookmark_resolver.h"

#include "kit/library/web_address.h"

#include <nlohmann/json.hpp>

#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace kit::opening {

namespace fs = std::filesystem;

bool BookmarkResolver::startAccessing(const std::string& /*path*/)
{
    return false;
}

void BookmarkResolver::stopAccessing(const std::string& /*path*/) {}

BookmarkHold::BookmarkHold(BookmarkResolver& resolver, std::string path)
    : m_resolver(resolver)
    , m_path(std::move(path))
    , m_started(m_resolver.startAccessing(m_path))
{}

BookmarkHold::~BookmarkHold()
{
    if (m_started) {
        m_resolver.stopAccessing(m_path);
    }
}

namespace {

struct Identity
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(const Identity&) const = default;
};

std::optional<Identity> identityOf(const std::string& path)
{
    struct stat status
    {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return Identity{static_cast<std::uint64_t>(status.st_dev),
                    static_cast<std::uint64_t>(status.st_ino)};
}

struct Stored
{
    Identity identity;
    std::string path;
};

std::optional<Stored> decode(const library::Bookmark& bookmark)
{
    const auto document = nlohmann::json::parse(bookmark.data, nullptr, false);
    if (!document.is_object()) {
        return std::nullopt;
    }
    const auto device = document.find("device");
    const auto inode = document.find("inode");
    const auto path = document.find("path");
    if (device == document.end() || inode == document.end() || path == document.end()
        || !device->is_number_unsigned() || !inode->is_number_unsigned() || !path->is_string()) {
        return std::nullopt;
    }
    return Stored{{device->get<std::uint64_t>(), inode->get<std::uint64_t>()},
                  path->get<std::string>()};
}

// The entry of `folder` that is the file with this identity, if it is still there.
std::optional<std::string> findInFolder(const fs::path& folder, const Identity& identity)
{
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const std::string candidate = it->path().string();
        if (identityOf(candidate) == identity) {
            return candidate;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<ResolvedBookmark> InodeBookmarkResolver::resolve(const library::Bookmark& bookmark)
{
    const auto stored = decode(bookmark);
    if (!stored) {
        if (!bookmark.displayPath.empty() && identityOf(bookmark.displayPath)) {
            return ResolvedBookmark{bookmark.displayPath, true};
        }
        return std::nullopt;
    }
    const auto now = identityOf(stored->path);
    if (now == stored->identity) {
        return ResolvedBookmark{stored->path, false};
    }
    if (auto moved = findInFolder(fs::path(stored->path).parent_path(), stored->identity)) {
        return ResolvedBookmark{*moved, true};
    }
    if (now) {
        return ResolvedBookmark{stored->path, true};
    }
    return std::nullopt;
}

std::optional<library::Bookmark> InodeBookmarkResolver::make(const std::string& path)
{
    return makeInodeBookmark(path);
}

std::optional<library::Bookmark> makeInodeBookmark(const std::string& path)
{
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error).lexically_normal();
    if (error) {
        return std::nullopt;
    }
    std::string text = absolute.string();
    // "/a/b/" names the same place as "/a/b"; the folder search needs the name last.
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    const auto identity = identityOf(text);
    if (!identity) {
        return std::nullopt;
    }
    const std::string data = nlohmann::json{
        {"device", identity->device},
        {"inode", identity->inode},
        {"path", text}}.dump();
    return library::Bookmark{support::Bytes(data.begin(), data.end()), text};
}

std::string fileURL(const std::string& path)
{
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    const std::string text = error ? path : absolute.lexically_normal().string();
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string url = "file://";
    for (const unsigned char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')
                           || (c >= '0' && c <= '9')
                           || std::string_view("/-._~!$&'()*+,;=:@").find(static_cast<char>(c))
                                  != std::string_view::npos;
        if (plain) {
            url += static_cast<char>(c);
        } else {
            url += '%';
            url += kHex[c >> 4];
            url += kHex[c & 0xF];
        }
    }
    return url;
}

std::optional<std::string> pathOfFileURL(const std::string& url)
{
    const auto parts = library::WebAddress::parts(url);
    if (!parts || parts->scheme != "file" || (!parts->host.empty() && parts->host != "localhost")
        || parts->path.empty()) {
        return std::nullopt;
    }
    return library::WebAddress::percentDecoded(parts->path);
}

} // namespace kit::opening
