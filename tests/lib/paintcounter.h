// Counts the paint events of the widgets it is installed on, and calls onPaint, when set, at
// each one, before the filters installed earlier and the widget itself see it.
#pragma once

#include <QEvent>
#include <QObject>

#include <cstdint>
#include <functional>

class PaintCounter : public QObject {
public:
    uint32_t count = 0;
    std::function<void()> onPaint;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint) {
            ++count;
            if (onPaint)
                onPaint();
        }
        return QObject::eventFilter(watched, event);
    }
};
