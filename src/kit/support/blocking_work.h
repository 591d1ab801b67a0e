// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/main_queue.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace kit::support {

// Runs work that may block for as long as a file system likes (reading a file from outside) on a
// thread of its own, then runs what the work answers on the main queue. Work still running when
// this object goes is abandoned, not waited for: quitting never hangs on a dead mount, and the
// abandoned work's answer never runs. Main thread only.
class BlockingWork
{
public:
    // What runs on the main queue once the work is done; empty for nothing.
    using Then = std::function<void()>;
    using Work = std::function<Then()>;

    // Each hung read holds a thread for good; past this many nothing more is started.
    static constexpr size_t kMostRunning = 4;

    explicit BlockingWork(MainQueue& mainQueue);
    ~BlockingWork();
    BlockingWork(const BlockingWork&) = delete;
    BlockingWork& operator=(const BlockingWork&) = delete;

    // Starts `work`, which must not touch the model or anything this object's owner owns.
    // Answers false, starting nothing, when kMostRunning works are still running.
    bool start(Work work);
    size_t running() const;

private:
    struct Shared;
    std::shared_ptr<Shared> m_shared;
};

} // namespace kit::support
