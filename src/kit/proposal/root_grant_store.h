// SPDX-License-Identifier: MIT
#pragma once

#include "kit/proposal/proposal_review.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kit::storage {
template <class Value> class JsonStore;
}

namespace kit::proposal {

// The folders the person granted access to, kept across launches.
struct RootGrants
{
    std::vector<Bookmark> folders;

    bool operator==(const RootGrants&) const = default;
};

std::string encodeRootGrants(const RootGrants& grants);
// Throws library::DecodeError.
RootGrants decodeRootGrants(std::string_view text);

// A folder's grant: its identity (device and inode) next to its path; none when the path is not
// an existing folder.
std::optional<Bookmark> folderGrant(const std::filesystem::path& folder);

// Owns "grants.json" in the support folder and answers which grant covers a path. Main thread
// only; saving is debounced and done off the main thread. An unreadable file is never written
// over: the store then holds no grants and keeps none.
class RootGrantStore
{
public:
    static constexpr const char* kFileName = "grants.json";
    static constexpr std::chrono::milliseconds kSaveDelay{400};

    explicit RootGrantStore(const std::filesystem::path& file,
                            std::chrono::milliseconds interval = kSaveDelay);
    ~RootGrantStore();
    RootGrantStore(const RootGrantStore&) = delete;
    RootGrantStore& operator=(const RootGrantStore&) = delete;

    const std::vector<Bookmark>& grants() const { return m_grants.folders; }
    std::map<std::string, Bookmark> byPath() const;
    bool isHeld() const { return m_held; }

    // Records the folder the person chose; false when it is not an absolute path to a folder.
    bool grant(const std::filesystem::path& folder);
    bool revoke(const std::string& path);
    // For an absolute path, the grant of the innermost granted folder holding it.
    std::optional<Bookmark> reach(const std::string& path) const;
    // `reach` as a function; the store must outlive it.
    Reach reacher() const;
    void flush();

private:
    void save();

    std::unique_ptr<storage::JsonStore<RootGrants>> m_store;
    RootGrants m_grants;
    bool m_held = false;
};

} // namespace kit::proposal
