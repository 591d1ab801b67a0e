// SPDX-License-Identifier: MIT
#include "kit/storage/json_store.h"

#include "kit/support/atomic_file.h"
#include "kit/support/log.h"

#include <algorithm>
#include <mutex>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace kit::storage {

namespace {

constexpr support::Logger kLog("storage");

// Files larger than this leave enough freed memory behind to be worth returning to the system.
constexpr size_t kTrimAfterBytes = size_t{1} << 20;

// Old enough that no write of a living process can still be using the temporary file.
constexpr std::chrono::seconds kLeftoverAge{60};

// A failed write is tried again after this, doubling up to the cap: a full disk or a read-only
// folder usually takes a person's action to clear, so hammering it gains nothing.
constexpr std::chrono::milliseconds kFirstRetry{1000};
constexpr std::chrono::milliseconds kLongestRetry{60000};

} // namespace

struct DebouncedWriter::State
{
    State(std::filesystem::path file, std::weak_ptr<support::Scheduler> scheduler)
        : file(std::move(file))
        , scheduler(std::move(scheduler))
    {}

    // Runs on the scheduler only, so writes of one file never overlap. Answers whether the write
    // failed and its content is kept for another try.
    void writeNow()
    {
        Encode encode;
        {
            std::lock_guard guard(lock);
            encode = std::move(pending);
            pending = nullptr;
            writeScheduled = false;
        }
        if (!encode) {
            return;
        }

        std::optional<std::string> error;
        bool diskFailed = false;
        size_t written = 0;
        try {
            std::string data = encode();
            written = data.size();
            error = support::writeFileAtomically(file, data);
            diskFailed = error.has_value();
        } catch (const std::exception& e) {
            std::string reason = e.what();
            if (!reason.ends_with('.')) {
                reason += '.';
            }
            error = "Could not save “" + file.filename().string() + "”: " + reason;
        } catch (...) {
            error = "Could not save “" + file.filename().string() + "”: it could not be encoded.";
        }
        if (!error && !sweptLeftovers) {
            // Temporaries of a process killed mid-write would otherwise stay forever.
            sweptLeftovers = true;
            support::removeLeftoverTemporaries(file, kLeftoverAge);
        }
        if (error) {
            kLog.error(*error + " (" + file.string() + ")");
        }
#ifdef __GLIBC__
        // Encoding a large file leaves megabytes free in this thread's arena that glibc would
        // otherwise keep for good; give them back while the process idles between writes.
        if (written > kTrimAfterBytes) {
            malloc_trim(0);
        }
#endif

        bool scheduleRetry = false;
        std::chrono::milliseconds delay{};
        std::function<void()> tell;
        {
            std::lock_guard guard(lock);
            if (lastSaveError != error) {
                tell = told;
            }
            lastSaveError = std::move(error);
            if (!lastSaveError) {
                ++writeCount;
                retryDelay = kFirstRetry;
            } else if (diskFailed) {
                // Kept unless something newer came meanwhile: a failed write must not lose the
                // change that the caller was told is made.
                if (!pending) {
                    pending = std::move(encode);
                }
                if (!retryScheduled && !closed) {
                    retryScheduled = true;
                    scheduleRetry = true;
                    delay = retryDelay;
                    retryDelay = std::min(retryDelay * 2, kLongestRetry);
                }
            }
        }
        if (tell) {
            tell();
        }
        auto queue = scheduler.lock();
        if (scheduleRetry && queue) {
            queue->after(delay, [weak = self] {
                if (auto state = weak.lock()) {
                    {
                        std::lock_guard guard(state->lock);
                        state->retryScheduled = false;
                    }
                    state->writeNow();
                }
            });
        }
    }

    const std::filesystem::path file;
    // Weak: the writer owns its queue, and a queue must never be destroyed on its own worker.
    const std::weak_ptr<support::Scheduler> scheduler;
    std::weak_ptr<State> self;
    mutable std::mutex lock;
    Encode pending;
    std::function<void()> told;
    bool writeScheduled = false;
    bool retryScheduled = false;
    bool closed = false; // no retries once the owner is gone
    std::chrono::milliseconds retryDelay = kFirstRetry;
    std::optional<std::string> lastSaveError;
    size_t writeCount = 0;
    bool sweptLeftovers = false; // scheduler only
};

DebouncedWriter::DebouncedWriter(std::filesystem::path file,
                                 std::chrono::milliseconds interval,
                                 std::shared_ptr<support::Scheduler> scheduler)
    : m_file(std::move(file))
    , m_interval(interval)
    , m_scheduler(std::move(scheduler))
{
    if (!m_scheduler) {
        m_scheduler = std::make_shared<support::SerialQueue>("store." + m_file.filename().string());
    }
    m_state = std::make_shared<State>(m_file, m_scheduler);
    m_state->self = m_state;
}

DebouncedWriter::~DebouncedWriter()
{
    {
        // A queue being torn down runs what is scheduled at once; a retry that rescheduled
        // itself there would never end.
        std::lock_guard guard(m_state->lock);
        m_state->closed = true;
    }
    flush();
}

void DebouncedWriter::submit(Encode encode)
{
    {
        std::lock_guard guard(m_state->lock);
        m_state->pending = std::move(encode);
        if (m_state->writeScheduled) {
            return;
        }
        m_state->writeScheduled = true;
    }
    // Scheduling outside the lock: a scheduler that runs the task at once must not deadlock.
    m_scheduler->after(m_interval, [weak = std::weak_ptr<State>(m_state)] {
        if (auto state = weak.lock()) {
            state->writeNow();
        }
    });
}

void DebouncedWriter::flush()
{
    // Always through the scheduler: a write taken off `pending` may still be under way there.
    m_scheduler->sync([state = m_state] { state->writeNow(); });
}

void DebouncedWriter::onOutcome(std::function<void()> told)
{
    std::lock_guard guard(m_state->lock);
    m_state->told = std::move(told);
}

std::optional<std::string> DebouncedWriter::lastSaveError() const
{
    std::lock_guard guard(m_state->lock);
    return m_state->lastSaveError;
}

size_t DebouncedWriter::writeCount() const
{
    std::lock_guard guard(m_state->lock);
    return m_state->writeCount;
}

std::variant<std::string, LoadUnreadable, LoadMissing>
readStoreFile(const std::filesystem::path& file)
{
    auto read = support::readWholeFile(file);
    if (auto* error = std::get_if<support::ReadError>(&read)) {
        if (error->isMissing()) {
            return LoadMissing{};
        }
        return LoadUnreadable{std::move(error->message)};
    }
    return std::move(std::get<std::string>(read));
}

} // namespace kit::storage
