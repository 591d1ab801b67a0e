// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace kit::mcp {

// The file a running app keeps beside its tool socket, so the bridge can tell "not running" from
// "assistants off" (the socket file exists only while assistants are on). The app holds an
// exclusive lock on it while it runs, so a marker left by a crash reads as not running even when
// its pid has been reused. Not thread-safe; one writer per path and process.
class InstanceMarker
{
public:
    static constexpr std::string_view kFileName = "vantorel.pid";

    explicit InstanceMarker(std::string path);
    // Removes the marker if this object wrote it.
    ~InstanceMarker();
    InstanceMarker(const InstanceMarker&) = delete;
    InstanceMarker& operator=(const InstanceMarker&) = delete;

    // The marker in the socket's folder.
    static std::string besideSocket(std::string_view socketPath);

    // Writes the pid and keeps the file locked until remove(). False when the file cannot be
    // written or another live process holds it.
    bool write(pid_t pid);
    // Removes the file and lets go of it. Call before the socket closes at quit, so a bridge that
    // sees its connection end already finds the app gone.
    void remove();
    // True while some live process (this one included) holds the marker.
    bool isRunning() const;
    // The pid written in the file, if it holds one.
    std::optional<pid_t> pid() const;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    int m_fd = -1;
};

} // namespace kit::mcp
