// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kit::support {

// Replaces `file` with `data` so that a reader, or the file after a crash or power loss, sees
// either the whole old content or the whole new one. Creates missing parent folders. The data goes
// to a hidden temporary file beside the target (".<name>.XXXXXX.tmp", so it never collides with a
// leftover of a killed process), is synced, renamed over the target, and the folder is synced.
// A symbolic link is written through, not replaced. Keeps the old file's permissions, else 0600;
// folders it makes are 0700, since the library is nobody else's business.
// Answers nothing on success, else one sentence naming the file, such as
// "Could not save “library.json”: No space left on device."; the target is then untouched and the
// temporary file removed. Blocks on the disk: call it off the main thread.
std::optional<std::string> writeFileAtomically(const std::filesystem::path& file,
                                               std::string_view data);

// Removes temporary files of `file` that writeFileAtomically left behind in a process that died,
// if they are older than `age` (a younger one may belong to a write still running).
// Answers how many it removed.
size_t removeLeftoverTemporaries(const std::filesystem::path& file, std::chrono::seconds age);

// Whether `name` is the name of one of writeFileAtomically's temporary files for `target`.
bool isTemporaryNameOf(std::string_view name, std::string_view target);

// Why a file could not be read: the errno value and a sentence naming the file.
struct ReadError
{
    int code = 0;
    std::string message;

    bool isMissing() const;
    bool operator==(const ReadError&) const = default;
};

// The largest file any reader takes unless it says otherwise.
inline constexpr size_t kDefaultReadLimit = size_t{256} << 20;

// The whole content of a regular file of at most `limit` bytes. Anything else (a folder, a pipe,
// a device, a larger file) is an error with a sentence, found without blocking on it and without
// taking more than `limit` bytes of memory.
std::variant<std::string, ReadError> readWholeFile(const std::filesystem::path& file,
                                                   size_t limit = kDefaultReadLimit);

// "12 MiB", "256 MiB", "1.5 KiB": a size as a person reads it.
std::string describeSize(size_t bytes);

// Makes the folder and any missing parents, each new one readable by its owner only.
std::error_code createPrivateFolders(const std::filesystem::path& folder);

} // namespace kit::support
