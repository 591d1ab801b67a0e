// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>
#include <QEventLoop>

#include <chrono>

namespace desktop {

using namespace std::chrono_literals;

// Serves the event loop until `done` holds or the time runs out; says whether it held.
template <class Predicate>
inline bool spinUntil(Predicate done, std::chrono::milliseconds limit = 5s)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return done();
}

inline void spinFor(std::chrono::milliseconds time)
{
    spinUntil([] { return false; }, time);
}

} // namespace desktop
