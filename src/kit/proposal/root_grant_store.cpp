// SPDX-License-Identifier: MIT
#include "kit/proposal/root_grant_store.h"

#include "kit/library/library_json.h"
#include "kit/storage/json_store.h"

#include <sys/stat.h>

namespace kit::proposal {

using namespace kit::library;

namespace {

void appendLittleEndian(Bytes& out, uint64_t value)
{
    for (int i = 0; i < 8; ++i) {
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

// Lexically normal, without a trailing separator, so prefixes compare component by component.
std::string normalised(const std::filesystem::path& path)
{
    std::string text = path.lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

// The path with every link that exists followed and "." and ".." taken out; nothing when that
// cannot be told (a loop of links, a folder that may not be searched).
std::optional<std::string> resolved(const std::filesystem::path& path)
{
    std::error_code ec;
    auto real = std::filesystem::weakly_canonical(path, ec);
    if (ec) {
        return std::nullopt;
    }
    return normalised(real);
}

bool holds(const std::string& folder, const std::string& path)
{
    if (folder == "/") {
        return true;
    }
    return path.size() >= folder.size() && path.compare(0, folder.size(), folder) == 0
           && (path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace

std::string encodeRootGrants(const RootGrants& grants)
{
    return prettyJson(nlohmann::json{{"folders", grants.folders}});
}

RootGrants decodeRootGrants(std::string_view text)
{
    try {
        auto document = parseJson(text);
        if (!document.is_object()) {
            throw DecodeError("the grants file must hold an object");
        }
        RootGrants grants;
        readOr(document, "folders", grants.folders);
        return grants;
    } catch (const DecodeError&) {
        throw;
    } catch (const std::exception& error) {
        throw DecodeError(plainMessage(error));
    }
}

std::optional<Bookmark> folderGrant(const std::filesystem::path& folder)
{
    if (!folder.is_absolute()) {
        return std::nullopt;
    }
    std::string path = normalised(folder);
    struct stat info = {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        return std::nullopt;
    }
    Bookmark bookmark;
    appendLittleEndian(bookmark.data, static_cast<uint64_t>(info.st_dev));
    appendLittleEndian(bookmark.data, static_cast<uint64_t>(info.st_ino));
    bookmark.displayPath = path;
    return bookmark;
}

RootGrantStore::RootGrantStore(const std::filesystem::path& file,
                               std::chrono::milliseconds interval)
    : m_store(std::make_unique<storage::JsonStore<RootGrants>>(
        file, interval, storage::JsonCoding<RootGrants>{&encodeRootGrants, &decodeRootGrants}))
{
    auto loaded = m_store->load();
    if (auto* grants = std::get_if<RootGrants>(&loaded)) {
        m_grants = std::move(*grants);
    } else if (std::holds_alternative<storage::LoadUnreadable>(loaded)) {
        m_held = true;
    }
}

RootGrantStore::~RootGrantStore()
{
    flush();
}

std::map<std::string, Bookmark> RootGrantStore::byPath() const
{
    std::map<std::string, Bookmark> out;
    for (const auto& grant : m_grants.folders) {
        out.emplace(grant.displayPath, grant);
    }
    return out;
}

bool RootGrantStore::grant(const std::filesystem::path& folder)
{
    auto bookmark = folderGrant(folder);
    if (!bookmark) {
        return false;
    }
    bool replaced = false;
    for (auto& existing : m_grants.folders) {
        if (existing.displayPath == bookmark->displayPath) {
            existing = *bookmark;
            replaced = true;
        }
    }
    if (!replaced) {
        m_grants.folders.push_back(std::move(*bookmark));
    }
    save();
    return true;
}

bool RootGrantStore::revoke(const std::string& path)
{
    std::string folder = normalised(path);
    auto removed =
        std::erase_if(m_grants.folders, [&](const Bookmark& b) { return b.displayPath == folder; });
    if (removed > 0) {
        save();
    }
    return removed > 0;
}

std::optional<Bookmark> RootGrantStore::reach(const std::string& path) const
{
    std::filesystem::path asked(path);
    if (!asked.is_absolute()) {
        return std::nullopt;
    }
    // Where the path really leads, after links and "..": a link inside a granted folder that
    // points out of it reaches nothing. The answer is the same whether the file exists or not.
    auto real = resolved(asked);
    if (!real) {
        return std::nullopt;
    }
    const Bookmark* best = nullptr;
    size_t bestLength = 0;
    for (const auto& grant : m_grants.folders) {
        auto folder = resolved(grant.displayPath);
        if (folder && holds(*folder, *real) && (!best || folder->size() > bestLength)) {
            best = &grant;
            bestLength = folder->size();
        }
    }
    return best ? std::optional<Bookmark>(*best) : std::nullopt;
}

Reach RootGrantStore::reacher() const
{
    return [this](const std::string& path) { return reach(path); };
}

void RootGrantStore::flush()
{
    m_store->flush();
}

void RootGrantStore::save()
{
    // An unreadable file stays as it is until the person deals with it.
    if (!m_held) {
        m_store->save(m_grants);
    }
}

} // namespace kit::proposal
