// A refresh that runs at most every so many milliseconds: a request within that time runs once
// at its end. For what changes with every frame of a live image but is read by a person (a
// figure, a pixel value): faster it cannot be read, and each change of a plain widget beside the
// OpenGL display has the whole window's picture copied to compose it.
#pragma once

#include <QElapsedTimer>
#include <QObject>

#include <functional>

class QTimer;

class CPacedRefresh : public QObject {
    Q_OBJECT
public:
    CPacedRefresh(int intervalMs, std::function<void()> refresh, QObject* parent = nullptr);

    // Refreshes now; a refresh waiting is dropped.
    void Now();
    // Refreshes now if the last refresh is an interval old, else once when it is.
    void Soon();
    // A refresh is waiting for its time.
    bool Waiting() const;

private:
    const int m_intervalMs;
    const std::function<void()> m_refresh;
    QElapsedTimer m_last;
    QTimer* m_late;
};
