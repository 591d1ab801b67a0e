// SPDX-License-Identifier: MIT
#include "kit/support/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <system_error>
#include <vector>

namespace kit::support {

namespace {

constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr std::string_view kTemporaryUnique = "XXXXXX";
constexpr mode_t kNewFileMode = 0600;
constexpr mode_t kNewFolderMode = 0700;

std::string reasonFor(int code)
{
    // std::error_code's message is the thread-safe strerror.
    return std::generic_category().message(code);
}

std::string quoted(const std::filesystem::path& file)
{
    return "“" + file.filename().string() + "”";
}

std::string saveFailure(const std::filesystem::path& file, const std::string& reason)
{
    return "Could not save " + quoted(file) + ": " + reason + ".";
}

// The temporary file until it is renamed into place: closed and removed on every other way out.
class Temporary
{
public:
    Temporary() = default;
    ~Temporary()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        if (!m_path.empty()) {
            ::unlink(m_path.c_str());
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    // Answers the errno value on failure.
    int create(const std::filesystem::path& folder, const std::string& name)
    {
        std::string pattern =
            (folder
             / ("." + name + "." + std::string(kTemporaryUnique) + std::string(kTemporarySuffix)))
                .string();
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        m_fd = ::mkostemps(buffer.data(), static_cast<int>(kTemporarySuffix.size()), O_CLOEXEC);
        if (m_fd < 0) {
            return errno;
        }
        m_path = buffer.data();
        return 0;
    }

    int fd() const { return m_fd; }
    const std::string& path() const { return m_path; }

    int close()
    {
        int result = ::close(m_fd);
        m_fd = -1;
        // Linux releases the descriptor even when close fails; only the error is worth keeping.
        return result == 0 ? 0 : errno;
    }

    // After the rename there is nothing left to remove.
    void release() { m_path.clear(); }

private:
    int m_fd = -1;
    std::string m_path;
};

int writeAll(int fd, std::string_view data)
{
    while (!data.empty()) {
        ssize_t written = ::write(fd, data.data(), data.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        data.remove_prefix(static_cast<size_t>(written));
    }
    return 0;
}

// Writing through a link keeps the person's arrangement (a library kept elsewhere and linked in).
std::filesystem::path resolvedTarget(const std::filesystem::path& file)
{
    std::error_code ec;
    if (!std::filesystem::is_symlink(file, ec)) {
        return file;
    }
    auto resolved = std::filesystem::weakly_canonical(file, ec);
    return ec ? file : resolved;
}

} // namespace

std::optional<std::string> writeFileAtomically(const std::filesystem::path& file,
                                               std::string_view data)
{
    const auto target = resolvedTarget(file);
    auto folder = target.parent_path();
    if (folder.empty()) {
        folder = ".";
    }
    if (auto ec = createPrivateFolders(folder)) {
        return saveFailure(file, ec.message());
    }

    mode_t mode = kNewFileMode;
    struct stat existing
    {};
    if (::stat(target.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) {
        mode = existing.st_mode & 07777;
    }

    Temporary temporary;
    if (int error = temporary.create(folder, target.filename().string())) {
        return saveFailure(file, reasonFor(error));
    }
    if (::fchmod(temporary.fd(), mode) != 0) {
        return saveFailure(file, reasonFor(errno));
    }
    if (int error = writeAll(temporary.fd(), data)) {
        return saveFailure(file, reasonFor(error));
    }
    // Without this, a crash soon after the rename can leave an empty file under the old name.
    if (::fsync(temporary.fd()) != 0) {
        return saveFailure(file, reasonFor(errno));
    }
    if (int error = temporary.close()) {
        return saveFailure(file, reasonFor(error));
    }
    if (::rename(temporary.path().c_str(), target.c_str()) != 0) {
        return saveFailure(file, reasonFor(errno));
    }
    temporary.release();

    // The rename itself is durable only once the folder is synced.
    int folderFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderFd >= 0) {
        int error = ::fsync(folderFd) == 0 ? 0 : errno;
        ::close(folderFd);
        // Some file systems cannot sync a folder (EINVAL); the data is in place regardless.
        if (error != 0 && error != EINVAL) {
            return saveFailure(file, reasonFor(error));
        }
    }
    return std::nullopt;
}

bool isTemporaryNameOf(std::string_view name, std::string_view target)
{
    const size_t expected =
        1 + target.size() + 1 + kTemporaryUnique.size() + kTemporarySuffix.size();
    return name.size() == expected && name.front() == '.' && name.substr(1, target.size()) == target
           && name[1 + target.size()] == '.' && name.ends_with(kTemporarySuffix);
}

size_t removeLeftoverTemporaries(const std::filesystem::path& file, std::chrono::seconds age)
{
    const auto target = resolvedTarget(file);
    auto folder = target.parent_path();
    if (folder.empty()) {
        folder = ".";
    }
    const auto name = target.filename().string();
    const auto cutoff = std::filesystem::file_time_type::clock::now() - age;
    size_t removed = 0;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end;
         it.increment(ec)) {
        if (!isTemporaryNameOf(it->path().filename().string(), name)) {
            continue;
        }
        std::error_code entryError;
        if (it->is_regular_file(entryError) && it->last_write_time(entryError) < cutoff
            && !entryError && std::filesystem::remove(it->path(), entryError)) {
            ++removed;
        }
    }
    return removed;
}

bool ReadError::isMissing() const
{
    return code == ENOENT;
}

std::error_code createPrivateFolders(const std::filesystem::path& folder)
{
    std::error_code ec;
    if (std::filesystem::is_directory(folder, ec)) {
        return {};
    }
    auto parent = folder.parent_path();
    if (!parent.empty() && parent != folder) {
        if (auto error = createPrivateFolders(parent)) {
            return error;
        }
    }
    if (::mkdir(folder.c_str(), kNewFolderMode) != 0 && errno != EEXIST) {
        return {errno, std::generic_category()};
    }
    if (!std::filesystem::is_directory(folder, ec)) {
        return std::make_error_code(std::errc::not_a_directory);
    }
    return {};
}

std::string describeSize(size_t bytes)
{
    constexpr const char* kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    double value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < std::size(kUnits)) {
        value /= 1024;
        ++unit;
    }
    if (unit == 0) {
        return std::to_string(bytes) + " bytes";
    }
    char text[32];
    double whole = static_cast<double>(static_cast<long long>(value));
    if (value == whole) {
        std::snprintf(text, sizeof text, "%.0f %s", value, kUnits[unit]);
    } else {
        std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    }
    return text;
}

std::variant<std::string, ReadError> readWholeFile(const std::filesystem::path& file, size_t limit)
{
    auto failure = [&](int code, const std::string& reason) {
        return ReadError{code, "Could not read " + quoted(file) + ": " + reason + "."};
    };
    // Non-blocking, so that a pipe put where the file belongs cannot hang the open.
    int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        int code = errno;
        return failure(code, reasonFor(code));
    }
    struct Closer
    {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};

    struct stat info
    {};
    if (::fstat(fd, &info) != 0) {
        int code = errno;
        return failure(code, reasonFor(code));
    }
    if (S_ISDIR(info.st_mode)) {
        return failure(EISDIR, "it is a folder");
    }
    if (!S_ISREG(info.st_mode)) {
        return failure(EINVAL, "it is not a regular file");
    }

    auto tooLarge = [&] { return failure(EFBIG, "it is larger than " + describeSize(limit)); };
    if (static_cast<unsigned long long>(info.st_size) > limit) {
        return tooLarge();
    }

    std::string contents;
    contents.reserve(static_cast<size_t>(info.st_size));
    constexpr size_t kChunk = size_t{64} * 1024;
    for (;;) {
        size_t used = contents.size();
        // One byte past the limit tells a file that grew while being read.
        size_t room = limit - used;
        size_t want = room >= kChunk ? kChunk : room + 1;
        contents.resize(used + want);
        ssize_t got = ::read(fd, contents.data() + used, want);
        if (got < 0) {
            if (errno == EINTR) {
                contents.resize(used);
                continue;
            }
            int code = errno;
            return failure(code, reasonFor(code));
        }
        contents.resize(used + static_cast<size_t>(got));
        if (contents.size() > limit) {
            return tooLarge();
        }
        if (got == 0) {
            return contents;
        }
    }
}

} // namespace kit::support
