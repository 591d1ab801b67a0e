// SPDX-License-Identifier: MIT
#include "desktop/qt_main_queue.h"

#include <QMetaObject>
#include <QTimer>

#include <algorithm>

namespace desktop {

QtMainQueue::QtMainQueue()
    : m_context(std::make_unique<QObject>())
{}

QtMainQueue::~QtMainQueue() = default;

void QtMainQueue::post(std::function<void()> task)
{
    QMetaObject::invokeMethod(m_context.get(), std::move(task), Qt::QueuedConnection);
}

void QtMainQueue::postAfter(std::chrono::milliseconds delay, std::function<void()> task)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + delay;
    QObject* context = m_context.get();
    // A timer must be started on its own thread, so hop to the GUI thread first; the time the hop
    // takes is counted against the delay.
    post([context, deadline, task = std::move(task)]() mutable {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        // A coarse timer may fire up to 5% early; the delay is a promise of "not before".
        QTimer::singleShot(std::max(left, std::chrono::milliseconds(0)),
                           Qt::PreciseTimer,
                           context,
                           std::move(task));
    });
}

} // namespace desktop
