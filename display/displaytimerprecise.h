// Display pacing by a thread of its own that emits and sleeps, free of the GUI event loop's timers.
#pragma once

#include "displaytimer.h"

#include <QThread>

#include <atomic>
#include <memory>

// Timeout() is emitted on the timer's own thread; receivers on the GUI thread get it queued.
// The period is the interval plus the time to emit; a new interval applies after the current
// sleep.
class CDisplayTimerPrecise : public CDisplayTimer {
    Q_OBJECT

public:
    explicit CDisplayTimerPrecise(QObject* parent = nullptr);
    // Stops the thread and waits for it before the object goes.
    ~CDisplayTimerPrecise() override;

    void start() override;
    // Clears the running flag and waits, without a time limit, for the thread to end.
    void stop() override;
    bool isActive() override;
    void setInterval(uint ms) override;
    uint interval() override;

private:
    // Runs on the timer thread.
    void Run();

    std::unique_ptr<QThread> m_thread;
    std::atomic<bool> m_running{false};     // set by start(), cleared by stop()
    std::atomic<uint32_t> m_intervalMs{30}; // read by the timer thread before each sleep
};
