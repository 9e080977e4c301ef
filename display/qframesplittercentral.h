// The central frame of the main window's splitter: it says when its area was resized.
#pragma once

#include <QFrame>

// The display widget lives inside it and refits itself to the new area on resized().
class CQFrameSplitterCentral : public QFrame {
    Q_OBJECT

public:
    explicit CQFrameSplitterCentral(QWidget* parent = nullptr) : QFrame(parent) {}

signals:
    void resized();

protected:
    void resizeEvent(QResizeEvent* event) override;
};
