// Display pacing by a thread of its own that emits and sleeps, free of the GUI event loop's timers.
#include "displaytimerprecise.h"

#include <functional>

namespace {
// The thread body is the timer's Run(); the thread object itself carries no state.
class CTimerThread : public QThread {
public:
    explicit CTimerThread(std::function<void()> body) : m_body(std::move(body)) {}

protected:
    void run() override { m_body(); }

private:
    std::function<void()> m_body;
};
} // namespace

CDisplayTimerPrecise::CDisplayTimerPrecise(QObject* parent)
    : CDisplayTimer(parent), m_thread(new CTimerThread([this] { Run(); })) {}

CDisplayTimerPrecise::~CDisplayTimerPrecise() {
    m_running = false;
    m_thread->wait();
}

void CDisplayTimerPrecise::start() {
    if (m_thread->isRunning())
        return;
    // Set here, before the thread exists, rather than by the thread: a stop() right after this
    // start() could otherwise clear the flag before the new thread sets it, and then wait for
    // a thread that never ends.
    m_running = true;
    m_thread->start(QThread::InheritPriority);
}

void CDisplayTimerPrecise::stop() {
    m_running = false;
    m_thread->wait();
}

bool CDisplayTimerPrecise::isActive() {
    return m_running;
}

void CDisplayTimerPrecise::setInterval(uint ms) {
    CDisplayTimer::setInterval(ms);
    m_intervalMs = ms;
}

uint CDisplayTimerPrecise::interval() {
    return m_intervalMs;
}

void CDisplayTimerPrecise::Run() {
    do {
        emit Timeout();
        QThread::msleep(m_intervalMs);
    } while (m_running);
}
