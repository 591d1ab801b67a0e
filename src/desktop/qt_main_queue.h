// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/main_queue.h"

#include <QObject>

#include <memory>

namespace desktop {

// The main queue over Qt's event loop: tasks run on the thread that created this object (the GUI
// thread), in the order posted. post and postAfter are safe from any thread; tasks still queued
// when this object is destroyed are dropped.
class QtMainQueue final : public kit::support::MainQueue
{
public:
    QtMainQueue();
    ~QtMainQueue() override;
    QtMainQueue(const QtMainQueue&) = delete;
    QtMainQueue& operator=(const QtMainQueue&) = delete;

    void post(std::function<void()> task) override;
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override;

private:
    // Receives the queued calls; deleting it cancels those not yet run.
    std::unique_ptr<QObject> m_context;
};

} // namespace desktop
