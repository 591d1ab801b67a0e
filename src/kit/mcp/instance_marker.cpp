// SPDX-License-Identifier: MIT
#include "kit/mcp/instance_marker.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <thread>
#include <utility>

namespace kit::mcp {

namespace {

// A bridge tests the lock with a brief shared lock of its own; a start that meets one waits it out.
constexpr int kLockAttempts = 50;
constexpr auto kLockPause = std::chrono::milliseconds(2);

bool processExists(pid_t pid)
{
    return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM);
}

} // namespace

InstanceMarker::InstanceMarker(std::string path)
    : m_path(std::move(path))
{}

InstanceMarker::~InstanceMarker()
{
    remove();
}

std::string InstanceMarker::besideSocket(std::string_view socketPath)
{
    // Built with append on a reserved string: g++ 12 warns falsely (-Wrestrict) on the operators.
    size_t slash = socketPath.rfind('/');
    std::string_view folderPart =
        slash == std::string_view::npos ? std::string_view(".") : socketPath.substr(0, slash);
    std::string folder;
    folder.reserve(folderPart.size() + 1 + std::string_view(kFileName).size());
    folder.append(folderPart.empty() ? std::string_view() : folderPart);
    folder.append("/");
    folder.append(kFileName);
    return folder;
}

bool InstanceMarker::write(pid_t pid)
{
    if (m_fd < 0) {
        int fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0) {
            return false;
        }
        bool locked = false;
        for (int attempt = 0; attempt < kLockAttempts && !locked; ++attempt) {
            locked = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
            if (!locked && errno != EWOULDBLOCK && errno != EINTR) {
                break;
            }
            if (!locked) {
                std::this_thread::sleep_for(kLockPause);
            }
        }
        if (!locked) {
            ::close(fd);
            return false;
        }
        m_fd = fd;
    }
    char text[24];
    char* end = std::to_chars(text, text + sizeof text - 1, static_cast<long long>(pid)).ptr;
    *end++ = '\n';
    auto size = static_cast<size_t>(end - text);
    return ::ftruncate(m_fd, 0) == 0 && ::pwrite(m_fd, text, size, 0) == static_cast<ssize_t>(size);
}

void InstanceMarker::remove()
{
    if (m_fd < 0) {
        return;
    }
    // Unlinked while still locked, so no reader ever finds an unlocked marker of a live app.
    ::unlink(m_path.c_str());
    ::close(m_fd);
    m_fd = -1;
}

bool InstanceMarker::isRunning() const
{
    if (m_fd >= 0) {
        return true;
    }
    int fd = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        return false;
    }
    bool running = false;
    if (::flock(fd, LOCK_SH | LOCK_NB) == 0) {
        running = false;
    } else if (errno == EWOULDBLOCK) {
        running = true;
    } else {
        // A file system without locks: the pid is the best there is.
        ::close(fd);
        auto written = pid();
        return written && processExists(*written);
    }
    ::close(fd);
    return running;
}

std::optional<pid_t> InstanceMarker::pid() const
{
    int fd = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        return std::nullopt;
    }
    char text[24];
    ssize_t count = ::pread(fd, text, sizeof text, 0);
    ::close(fd);
    if (count <= 0) {
        return std::nullopt;
    }
    long long value = 0;
    auto [end, error] = std::from_chars(text, text + count, value);
    if (error != std::errc() || value <= 0 || end == text) {
        return std::nullopt;
    }
    return static_cast<pid_t>(value);
}

} // namespace kit::mcp
