// A refresh that runs at most every so many milliseconds.
#include "pacedrefresh.h"

#include <QTimer>

#include <algorithm>

CPacedRefresh::CPacedRefresh(int intervalMs, std::function<void()> refresh, QObject* parent)
    : QObject(parent), m_intervalMs(intervalMs), m_refresh(std::move(refresh)),
      m_late(new QTimer(this)) {
    m_late->setSingleShot(true);
    connect(m_late, &QTimer::timeout, this, &CPacedRefresh::Now);
}

void CPacedRefresh::Now() {
    m_late->stop();
    m_last.start();
    m_refresh();
}

void CPacedRefresh::Soon() {
    if (m_late->isActive())
        return;
    const qint64 since = m_last.isValid() ? m_last.elapsed() : m_intervalMs;
    // Through the timer even when due: the caller may be in the middle of a paint.
    m_late->start(int(std::max<qint64>(0, m_intervalMs - since)));
}

bool CPacedRefresh::Waiting() const {
    return m_late->isActive();
}
