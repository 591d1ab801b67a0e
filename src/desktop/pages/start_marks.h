// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/log.h"

#include <time.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace desktop::pages {

// Where a cold first page's time goes: each step of it logged with the milliseconds since the
// first sign of it (the pointer reaching an icon, or the click). Only when VANTOREL_START_MARKS
// is set; marks after the first page's first paints are dropped. Main thread.
class StartMarks
{
public:
    // Null unless the environment asks for marks.
    static std::shared_ptr<StartMarks> fromEnvironment()
    {
        // Read on the main thread at start, before any thread could change the environment.
        const char* wanted = std::getenv("VANTOREL_START_MARKS"); // NOLINT(concurrency-mt-unsafe)
        return wanted && *wanted ? std::make_shared<StartMarks>() : nullptr;
    }

    void mark(std::string_view what)
    {
        const auto now = std::chrono::steady_clock::now();
        if (m_done) {
            return;
        }
        if (!m_origin) {
            m_origin = now;
        }
        const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(now - *m_origin);
        // The main thread's own time tells work from waiting.
        timespec used{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
        const long usedMs = used.tv_sec * 1000 + used.tv_nsec / 1'000'000;
        if (!m_usedAtOrigin) {
            m_usedAtOrigin = usedMs;
        }
        kit::support::Logger("start").info(
            "first page: " + std::string(what) + " at " + std::to_string(since.count())
            + " ms, main thread busy " + std::to_string(usedMs - *m_usedAtOrigin) + " ms");
    }

    // Nothing more is marked.
    void finish() { m_done = true; }

private:
    std::optional<std::chrono::steady_clock::time_point> m_origin;
    std::optional<long> m_usedAtOrigin;
    bool m_done = false;
};

// Marks through a Host's optional marks.
inline void markStart(const std::shared_ptr<StartMarks>& marks, std::string_view what)
{
    if (marks) {
        marks->mark(what);
    }
}

} // namespace desktop::pages
