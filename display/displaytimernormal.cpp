// Display pacing by a QTimer on the thread that owns it.
#include "displaytimernormal.h"

CDisplayTimerNormal::CDisplayTimerNormal(QObject* parent) : CDisplayTimer(parent) {}

void CDisplayTimerNormal::start() {
    m_forward = connect(&m_timer, &QTimer::timeout, this, &CDisplayTimer::Timeout);
    m_timer.start();
}

void CDisplayTimerNormal::stop() {
    disconnect(m_forward);
    m_timer.stop();
}

bool CDisplayTimerNormal::isActive() {
    return m_timer.isActive();
}

void CDisplayTimerNormal::setInterval(uint ms) {
    CDisplayTimer::setInterval(ms);
    m_timer.setInterval(int(ms));
}
