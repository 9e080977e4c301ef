// The central frame of the main window's splitter: it says when its area was resized.
#include "qframesplittercentral.h"

void CQFrameSplitterCentral::resizeEvent(QResizeEvent* event) {
    QFrame::resizeEvent(event);
    emit resized();
}
