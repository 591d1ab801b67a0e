// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"

#include <memory>
#include <optional>
#include <string>

namespace kit::opening {

// Where a bookmark leads now; stale when it had to be found again and should be made afresh.
struct ResolvedBookmark
{
    std::string path;
    bool isStale = false;

    bool operator==(const ResolvedBookmark&) const = default;
};

// Turns a bookmark back into a place, and a place into a bookmark, without asking the person.
// Access to a resolved place is held between startAccessing and stopAccessing (a no-op where the
// system grants no scoped access). Main thread only.
class BookmarkResolver
{
public:
    virtual ~BookmarkResolver() = default;

    // Nothing when the bookmark leads nowhere any more.
    virtual std::optional<ResolvedBookmark> resolve(const library::Bookmark& bookmark) = 0;
    // Nothing when the place cannot be bookmarked (it does not exist).
    virtual std::optional<library::Bookmark> make(const std::string& path) = 0;
    // Whether access was started and must be stopped.
    virtual bool startAccessing(const std::string& path);
    virtual void stopAccessing(const std::string& path);
};

// Access to a resolved place, held while an open or launch is in flight and given back when the
// hold is destroyed. The resolver must outlive it.
class BookmarkHold
{
public:
    BookmarkHold(BookmarkResolver& resolver, std::string path);
    ~BookmarkHold();
    BookmarkHold(const BookmarkHold&) = delete;
    BookmarkHold& operator=(const BookmarkHold&) = delete;

    const std::string& path() const { return m_path; }
    bool started() const { return m_started; }

private:
    BookmarkResolver& m_resolver;
    std::string m_path;
    bool m_started;
};

// Bookmarks made of the file's identity (device and inode) beside its absolute path, as JSON.
// Resolving answers the path while it still names that file. Otherwise the former folder is
// searched for the inode (a rename: stale); failing that, a file now at the path is taken (an
// editor that saves by replacing the file: stale); else the bookmark cannot be resolved. Data of
// another format (a bookmark made on another system) falls back to the display path, stale.
class InodeBookmarkResolver final : public BookmarkResolver
{
public:
    std::optional<ResolvedBookmark> resolve(const library::Bookmark& bookmark) override;
    std::optional<library::Bookmark> make(const std::string& path) override;
};

// A bookmark of the file or folder at `path` as InodeBookmarkResolver reads it.
std::optional<library::Bookmark> makeInodeBookmark(const std::string& path);

// "file:///home/a%20b.txt" for "/home/a b.txt"; the path is made absolute first.
std::string fileURL(const std::string& path);
// The path of a "file://" URL with an empty or "localhost" host, percent-decoded.
std::optional<std::string> pathOfFileURL(const std::string& url);

} // namespace kit::opening
