// SPDX-License-Identifier: MIT
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace testing_support {

// A plain client of the tool socket for tests: blocking sends, and reads that never block so a
// test can poll it while its own thread runs the main loop.
class SocketClient
{
public:
    explicit SocketClient(const std::string& path)
    {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(
            address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
        if (::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }
    ~SocketClient() { close(); }
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    bool connected() const { return m_fd >= 0; }

    bool send(std::string_view bytes)
    {
        while (!bytes.empty()) {
            ssize_t written = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (written < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return false;
            }
            bytes.remove_prefix(static_cast<size_t>(written));
        }
        return true;
    }

    // Takes what has arrived; answers the complete lines received so far (without newlines).
    const std::vector<std::string>& poll()
    {
        char buffer[65536];
        for (;;) {
            ssize_t count = ::recv(m_fd, buffer, sizeof buffer, MSG_DONTWAIT);
            if (count > 0) {
                m_pending.append(buffer, static_cast<size_t>(count));
                continue;
            }
            if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
                m_ended = true;
            }
            break;
        }
        for (size_t newline; (newline = m_pending.find('\n')) != std::string::npos;) {
            m_lines.push_back(m_pending.substr(0, newline));
            m_pending.erase(0, newline + 1);
        }
        return m_lines;
    }

    // True once the server has closed the connection (seen by poll()).
    bool ended() const { return m_ended; }
    const std::vector<std::string>& lines() const { return m_lines; }

    void close()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }

private:
    int m_fd = -1;
    std::string m_pending;
    std::vector<std::string> m_lines;
    bool m_ended = false;
};

} // namespace testing_support
