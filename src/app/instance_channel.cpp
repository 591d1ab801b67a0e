// SPDX-License-Identifier: MIT
#include "app/instance_channel.h"

#include "kit/support/log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace app {

namespace {

constexpr kit::support::Logger kLog("app");

bool sendAll(int fd, const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    return true;
}

} // namespace

InstanceChannel::InstanceChannel(std::filesystem::path folder)
    : m_folder(std::move(folder))
{}

InstanceChannel::~InstanceChannel()
{
    stop();
}

bool InstanceChannel::becomePrimary(Handler handler, kit::support::MainQueue& mainQueue)
{
    return becomePrimary(
        [handler = std::move(handler)](const std::string& request, const Reply& reply) {
            reply(handler(request));
        },
        mainQueue);
}

bool InstanceChannel::becomePrimary(LaterHandler handler, kit::support::MainQueue& mainQueue)
{
    if (isPrimary()) {
        return true;
    }
    std::error_code error;
    std::filesystem::create_directories(m_folder, error);
    const std::string lockPath = (m_folder / kLockName).string();
    int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        kLog.error("cannot open the instance lock " + lockPath + ": "
                   + std::generic_category().message(errno));
        return false;
    }
    // The lock goes with the process, so a crash never leaves a later start locked out.
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return false;
    }
    m_lockFD = fd;
    auto respond = [handler =
                        std::move(handler)](const std::string& line,
                                            const kit::mcp::ToolSocket::Completion& completion) {
        handler(line, [completion](const std::string& reply) { completion(reply + "\n"); });
    };
    m_socket = std::make_unique<kit::mcp::ToolSocket>(
        (m_folder / kSocketName).string(), std::move(respond), mainQueue);
    if (!m_socket->start()) {
        kLog.error("cannot listen for other starts of Vantorel; each will run on its own");
    }
    return true;
}

void InstanceChannel::stop()
{
    m_socket.reset();
    if (m_lockFD >= 0) {
        ::close(m_lockFD);
        m_lockFD = -1;
    }
}

std::optional<std::string> InstanceChannel::send(const std::filesystem::path& folder,
                                                 const std::string& request,
                                                 std::chrono::milliseconds wait)
{
    const std::string path = (folder / kSocketName).string();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return std::nullopt;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return std::nullopt;
    }
    std::optional<std::string> reply;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0
        && sendAll(fd, request + "\n")) {
        std::string received;
        const auto deadline = std::chrono::steady_clock::now() + wait;
        char buffer[4096];
        while (true) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                break;
            }
            pollfd poller{fd, POLLIN, 0};
            int ready = ::poll(&poller, 1, static_cast<int>(left.count()));
            if (ready < 0 && errno == EINTR) {
                continue;
            }
            if (ready <= 0) {
                break;
            }
            ssize_t n = ::recv(fd, buffer, sizeof(buffer), 0);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                break;
            }
            received.append(buffer, static_cast<size_t>(n));
            if (auto end = received.find('\n'); end != std::string::npos) {
                reply = received.substr(0, end);
                break;
            }
        }
    }
    ::close(fd);
    return reply;
}

} // namespace app
