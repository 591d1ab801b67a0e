// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_socket.h"

#include "kit/mcp/tool_socket_path.h"
#include "kit/support/log.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <exception>
#include <system_error>
#include <utility>

namespace kit::mcp {

namespace {

constexpr support::Logger kLog("tools");

// Above this a framer's buffer is freed after its line rather than kept for the next one.
constexpr std::size_t kReleaseAboveBytes = std::size_t{1} << 20;

std::string systemError(int error)
{
    return std::system_category().message(error);
}

// Linux keeps thread names to 15 bytes.
void nameThisThread(const char* name)
{
    pthread_setname_np(pthread_self(), name);
}

bool writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        // MSG_NOSIGNAL: a client that hung up must not take the process down with SIGPIPE.
        ssize_t written = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
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

} // namespace

bool LineFramer::feed(std::string_view bytes, const Sink& sink)
{
    while (!bytes.empty()) {
        size_t newline = bytes.find('\n');
        std::string_view piece = bytes.substr(0, newline);
        bytes.remove_prefix(newline == std::string_view::npos ? bytes.size() : newline + 1);
        if (!m_overLimit && m_pending.size() + piece.size() > m_maxLineBytes) {
            m_overLimit = true;
            m_overStart = m_pending.substr(0, kKeptEdgeBytes);
            m_overStart.append(piece.substr(0, kKeptEdgeBytes - m_overStart.size()));
            m_overEnd.clear();
            if (m_pending.size() < kKeptEdgeBytes) {
                m_overEnd = m_pending;
            } else {
                m_overEnd.assign(m_pending, m_pending.size() - kKeptEdgeBytes);
            }
            std::string().swap(m_pending);
        }
        if (m_overLimit) {
            // Only the last few bytes are kept of what follows.
            m_overEnd.append(piece.substr(piece.size() - std::min(piece.size(), kKeptEdgeBytes)));
            if (m_overEnd.size() > kKeptEdgeBytes) {
                m_overEnd.erase(0, m_overEnd.size() - kKeptEdgeBytes);
            }
        }
        if (newline == std::string_view::npos) {
            if (!m_overLimit) {
                m_pending.append(piece);
            }
            break;
        }
        if (m_overLimit) {
            m_overLimit = false;
            bool more = sink(std::nullopt);
            m_overStart.clear();
            m_overEnd.clear();
            if (!more) {
                return false;
            }
            continue;
        }
        // Most lines arrive whole in one read and go out without a copy.
        std::string_view line = piece;
        if (!m_pending.empty()) {
            m_pending.append(piece);
            line = m_pending;
        }
        bool more = line.empty() || sink(line);
        if (m_pending.capacity() > kReleaseAboveBytes) {
            // A huge line's memory goes back rather than staying with the client for good.
            std::string().swap(m_pending);
        } else {
            m_pending.clear();
        }
        if (!more) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> LineFramer::takeRest()
{
    bool wasOver = std::exchange(m_overLimit, false);
    std::string rest = std::exchange(m_pending, {});
    if (wasOver) {
        return std::nullopt;
    }
    return rest;
}

struct ToolSocket::Client
{
    std::mutex mutex;
    // Guarded by mutex: closed and set to -1 by the client's own thread as it ends.
    int fd = -1;
    // Guarded by mutex: wakes the client's thread for a reply, a notification or the socket
    // closing; closed by the thread as it ends, since a completion may outlive it.
    int wake = -1;
    // The request now waiting for its reply; a completion for any other is ignored.
    uint64_t request = 0;
    bool hasReply = false;
    std::optional<std::string> reply;
    std::vector<std::string> unsent;
    size_t unsentBytes = 0;
    bool closing = false;
    std::atomic<bool> finished = false;
    std::thread thread;

    Client()
        : wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {}
    ~Client()
    {
        if (wake >= 0) {
            ::close(wake);
        }
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void signal()
    {
        std::lock_guard lock(mutex);
        if (wake >= 0) {
            uint64_t one = 1;
            [[maybe_unused]] ssize_t ignored = ::write(wake, &one, sizeof one);
        }
    }

    void deliver(uint64_t forRequest, std::optional<std::string> line)
    {
        {
            std::lock_guard lock(mutex);
            if (forRequest == 0 || forRequest != request || hasReply) {
                return;
            }
            reply = std::move(line);
            hasReply = true;
        }
        signal();
    }

    void send(uint64_t forRequest, std::string line)
    {
        {
            std::lock_guard lock(mutex);
            if (forRequest == 0 || forRequest != request || hasReply
                || unsentBytes + line.size() > kMostUnsentBytes) {
                return;
            }
            unsentBytes += line.size();
            unsent.push_back(std::move(line));
        }
        signal();
    }

    // Wakes the thread from its wait.
    void close()
    {
        {
            std::lock_guard lock(mutex);
            closing = true;
            if (fd >= 0) {
                ::shutdown(fd, SHUT_RDWR);
            }
        }
        signal();
    }
};

void ToolSocket::Completion::operator()(std::optional<std::string> reply) const
{
    if (m_client) {
        m_client->deliver(m_request, std::move(reply));
    }
}

void ToolSocket::Completion::send(std::string line) const
{
    if (m_client) {
        m_client->send(m_request, std::move(line));
    }
}

std::uint64_t ToolSocket::Completion::client() const
{
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(m_client.get()));
}

ToolSocket::ToolSocket(std::string path,
                       Respond respond,
                       support::MainQueue& mainQueue,
                       Passes passes)
    : m_path(std::move(path))
    , m_respond(std::make_shared<const Respond>(std::move(respond)))
    , m_mainQueue(mainQueue)
    , m_passes(std::move(passes))
{}

ToolSocket::~ToolSocket()
{
    stop();
    std::vector<std::shared_ptr<Client>> clients;
    {
        std::lock_guard lock(m_clientsMutex);
        clients.swap(m_clients);
    }
    for (const auto& client : clients) {
        client->close();
    }
    for (const auto& client : clients) {
        if (client->thread.joinable()) {
            client->thread.join();
        }
    }
    m_respond.reset();
}

bool ToolSocket::start()
{
    std::lock_guard lock(m_lock);
    if (m_fd >= 0) {
        return true;
    }
    ::unlink(m_path.c_str());

    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        kLog.error("tool socket: socket() failed: " + systemError(errno));
        return false;
    }
    if (!ToolSocketPath::fits(m_path)) {
        kLog.error("tool socket: path too long: " + m_path);
        ::close(fd);
        return false;
    }
    // Linux gives the file the socket's own mode at bind, so no other user can ever connect in
    // the moment between bind and chmod.
    ::fchmod(fd, S_IRUSR | S_IWUSR);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, m_path.data(), m_path.size());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        kLog.error("tool socket: bind failed: " + systemError(errno));
        ::close(fd);
        return false;
    }
    ::chmod(m_path.c_str(), S_IRUSR | S_IWUSR);
    if (::listen(fd, kBacklog) != 0) {
        kLog.error("tool socket: listen failed: " + systemError(errno));
        ::unlink(m_path.c_str());
        ::close(fd);
        return false;
    }
    try {
        m_acceptThread = std::thread([this, fd] { acceptLoop(fd); });
    } catch (const std::exception& error) {
        kLog.error(std::string("tool socket: no accept thread: ") + error.what());
        ::unlink(m_path.c_str());
        ::close(fd);
        return false;
    }
    m_fd = fd;
    kLog.info("tool socket listening at " + m_path);
    return true;
}

void ToolSocket::stop()
{
    std::lock_guard lock(m_lock);
    if (m_fd < 0) {
        return;
    }
    // Closing alone does not wake a thread blocked in accept on Linux; shutting down does. The
    // descriptor is closed only after the accept thread is gone, so its number is not reused
    // under it.
    ::shutdown(m_fd, SHUT_RDWR);
    if (m_acceptThread.joinable()) {
        m_acceptThread.join();
    }
    ::close(m_fd);
    m_fd = -1;
    ::unlink(m_path.c_str());
}

bool ToolSocket::isListening() const
{
    std::lock_guard lock(m_lock);
    return m_fd >= 0;
}

std::size_t ToolSocket::clientCount() const
{
    std::lock_guard lock(m_clientsMutex);
    return static_cast<std::size_t>(std::count_if(
        m_clients.begin(), m_clients.end(), [](const auto& client) { return !client->finished; }));
}

void ToolSocket::acceptLoop(int listener)
{
    nameThisThread("tools.accept");
    for (;;) {
        int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            int error = errno;
            if (error == EINTR || error == ECONNABORTED || error == EPROTO) {
                continue;
            }
            if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM) {
                // Out of descriptors or memory for now: pending clients wait in the backlog.
                kLog.error("tool socket: accept failed: " + systemError(error));
                pollfd wait{listener, 0, 0};
                ::poll(&wait, 1, 100);
                continue;
            }
            // The listener was shut down (or is broken): the loop ends.
            return;
        }
        reapFinished();
        auto client = std::make_shared<Client>();
        client->fd = fd;
        try {
            client->thread = std::thread([this, client] { serve(client); });
        } catch (const std::exception& error) {
            kLog.error(std::string("tool socket: no thread for a client: ") + error.what());
            ::close(fd);
            continue;
        }
        std::lock_guard lock(m_clientsMutex);
        m_clients.push_back(std::move(client));
    }
}

void ToolSocket::reapFinished()
{
    std::vector<std::shared_ptr<Client>> finished;
    {
        std::lock_guard lock(m_clientsMutex);
        auto done = std::stable_partition(
            m_clients.begin(), m_clients.end(), [](const auto& c) { return !c->finished; });
        finished.assign(std::make_move_iterator(done), std::make_move_iterator(m_clients.end()));
        m_clients.erase(done, m_clients.end());
    }
    for (const auto& client : finished) {
        client->thread.join();
    }
}

void ToolSocket::serve(const std::shared_ptr<Client>& client)
{
    nameThisThread("tools.client");
    const int fd = client->fd;
    std::vector<char> chunk(kChunkBytes);
    LineFramer framer;
    // Lines read but not yet handed on, in order; an over-long line is queued as its answer.
    struct Queued
    {
        std::string text;
        bool isAnswer = false;
    };
    std::deque<Queued> queued;
    // Lines that go ahead of the queue, handed on once the request before them is.
    std::vector<std::string> passing;
    uint64_t request = 0;
    bool waiting = false;
    bool reading = true;
    auto sink = [&](std::optional<std::string_view> line) {
        if (!line) {
            queued.push_back(
                {ToolProtocol::lineTooLong(framer.overLongStart(), framer.overLongEnd()), true});
        } else if ((waiting || !queued.empty()) && m_passes && m_passes(*line)) {
            passing.emplace_back(*line);
        } else {
            queued.push_back({std::string(*line), false});
        }
        return true;
    };
    for (;;) {
        while (!waiting && !queued.empty()) {
            Queued next = std::move(queued.front());
            queued.pop_front();
            if (next.isAnswer) {
                if (!writeAll(fd, next.text)) {
                    reading = false;
                    queued.clear();
                }
                continue;
            }
            if (!post(client, ++request, std::move(next.text))) {
                queued.clear();
                reading = false;
                break;
            }
            waiting = true;
        }
        for (auto& line : passing) {
            if (!post(client, 0, std::move(line))) {
                reading = false;
            }
        }
        passing.clear();
        if (!waiting && !reading) {
            break;
        }
        // A descriptor of -1 is left out of the poll: a hung-up client would otherwise wake it
        // again and again.
        const bool readMore = reading && queued.size() < kMostQueuedLines;
        pollfd events[2] = {{readMore ? fd : -1, POLLIN, 0}, {client->wake, POLLIN, 0}};
        if (::poll(events, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        if (events[1].revents != 0) {
            uint64_t count = 0;
            [[maybe_unused]] ssize_t ignored = ::read(client->wake, &count, sizeof count);
            std::vector<std::string> unsent;
            std::optional<std::optional<std::string>> reply;
            {
                std::lock_guard lock(client->mutex);
                if (client->closing) {
                    break;
                }
                unsent.swap(client->unsent);
                client->unsentBytes = 0;
                if (client->hasReply) {
                    reply = std::move(client->reply);
                    client->hasReply = false;
                    // Nothing more is accepted for this request.
                    client->request = 0;
                }
            }
            bool written = true;
            for (const auto& line : unsent) {
                written = written && writeAll(fd, line);
            }
            if (reply) {
                waiting = false;
                written = written && (!*reply || writeAll(fd, **reply));
            }
            if (!written) {
                break;
            }
        }
        if (readMore && events[0].revents != 0) {
            ssize_t count = ::read(fd, chunk.data(), chunk.size());
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                // Lines already read are still answered: a client may close its side and wait.
                reading = false;
            } else if (!framer.feed(std::string_view(chunk.data(), static_cast<size_t>(count)),
                                    sink)) {
                break;
            }
        }
    }
    {
        std::lock_guard lock(client->mutex);
        ::close(client->fd);
        client->fd = -1;
        ::close(client->wake);
        client->wake = -1;
    }
    client->finished = true;
}

bool ToolSocket::post(const std::shared_ptr<Client>& client, uint64_t request, std::string line)
{
    {
        std::lock_guard lock(client->mutex);
        if (client->closing) {
            return false;
        }
        if (request != 0) {
            client->request = request;
            client->hasReply = false;
            client->reply.reset();
            client->unsent.clear();
            client->unsentBytes = 0;
        }
    }
    std::weak_ptr<const Respond> respond = m_respond;
    m_mainQueue.post([respond, client, request, line = std::move(line)]() mutable {
        auto handler = respond.lock();
        if (!handler) {
            return;
        }
        try {
            (*handler)(std::move(line), Completion(client, request));
        } catch (const std::exception& error) {
            kLog.error(std::string("tool socket: a request failed: ") + error.what());
            client->deliver(request, std::nullopt);
        }
    });
    return true;
}

} // namespace kit::mcp
