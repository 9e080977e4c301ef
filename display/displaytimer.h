// The display's pacing clock: an interface with a timer-based and a thread-based implementation.
#pragma once

#include <QObject>

#include <cstdint>

// Emits Timeout() periodically once started. Timeout() may be emitted on a thread of the
// implementation's own (see CDisplayTimerPrecise): connect to it with a queued connection.
class CDisplayTimer : public QObject {
    Q_OBJECT

public:
    explicit CDisplayTimer(QObject* parent = nullptr) : QObject(parent) {}

public slots:
    virtual void start() = 0;
    virtual void stop() = 0;
    virtual bool isActive() = 0;
    virtual void setInterval(uint ms) { m_interval = ms; }
    virtual uint interval() { return m_interval; }

signals:
    void Timeout();

protected:
    uint32_t m_interval = 30; // milliseconds
};
