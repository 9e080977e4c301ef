// Display pacing by a QTimer on the thread that owns it.
#pragma once

#include "displaytimer.h"

#include <QTimer>

// Timeout() is emitted on the owner's thread. The QTimer does not take the base's initial 30 ms:
// setInterval() must be called before start().
class CDisplayTimerNormal : public CDisplayTimer {
    Q_OBJECT

public:
    explicit CDisplayTimerNormal(QObject* parent = nullptr);

    void start() override;
    void stop() override;
    bool isActive() override;
    void setInterval(uint ms) override;

private:
    QTimer m_timer;
    QMetaObject::Connection m_forward;
};
