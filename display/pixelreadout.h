// The status bar's pixel read-out: the image coordinates under the pointer and the value the
// camera sent there, through every zoom and pan of the display.
#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QRect>
#include <QSize>
#include <QString>

class CQwidgetGrabbedFrame;
class CPacedRefresh;
class QLabel;

class CPixelReadout : public QObject {
    Q_OBJECT
public:
    // Follows the pointer over `display` (turning its mouse tracking on) and writes into
    // `label`, which stays owned by its parent.
    CPixelReadout(CQwidgetGrabbedFrame* display, QLabel* label, QObject* parent = nullptr);

    // The image pixel shown at widget position `pos` of a display of `widgetSize` showing the
    // `visible` part of the image, as the display scales it; false outside the image.
    static bool ImagePosition(const QRect& visible, const QSize& widgetSize, const QPoint& pos,
                              QPoint* image);

    // "X 12  Y 34  Grey 4095" for the pointer at `pos` over the display; empty outside the
    // image or without a frame.
    QString TextAt(const QPoint& pos) const;

protected:
    // GUI thread: the display's pointer moves and leaves, and its paints (a new frame under a
    // resting pointer).
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Writes the value under the pointer, for the view shown now.
    void Write();
    // After a paint: a moved view or a resized display is written now, a new frame under a resting
    // pointer at most every kFrameRefreshMs.
    void RefreshAfterPaint();
    // A reading the label has no room for (a small window with every status bar field shown) is
    // also drawn over the picture, in the corner away from the pointer.
    void ShowWhereItFits();

    // The display goes before the status bar's label when the window is taken down.
    QPointer<CQwidgetGrabbedFrame> m_display;
    QLabel* m_label;
    QPoint m_pointer;
    bool m_pointerInside = false;
    // The view and the display's size the label was last written for: either changed, the
    // pointer rests on another pixel.
    QRect m_shownView;
    QSize m_shownSize;
    // A resting pointer follows the frames at the pace the value can be read at; pointer moves
    // and a moved view are written at once.
    static constexpr int kFrameRefreshMs = 250;
    CPacedRefresh* m_refresh;
};
