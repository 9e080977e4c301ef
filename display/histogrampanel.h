// The live histogram panel: takes each frame the display shows, counts it on a thread of its own
// (over the part shown when zoomed), and draws the curves and the figures.
#pragma once

#include "histogramview.h"

#include <framehistogram.h>

#include <QWidget>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class CPacedRefresh;
class CQwidgetGrabbedFrame;
class QCheckBox;
class QLabel;
class QThread;
class QTimer;

class CHistogramPanel : public QWidget {
    Q_OBJECT
public:
    // Follows the frames `display` paints while this panel is visible.
    explicit CHistogramPanel(CQwidgetGrabbedFrame* display, QWidget* parent = nullptr);
    // Stops the counting thread and waits for it.
    ~CHistogramPanel() override;

    // The histogram shown now and how many were computed since construction.
    const CFrameHistogram& Shown() const { return m_view->Histogram(); }
    uint32_t ComputedCount() const { return m_computed; }
    // The region the shown histogram covers (empty: the whole frame).
    CFrameHistogram::Region ShownRegion() const { return m_shownRegion; }
    // The figures as the panel words them, one line each.
    static QString FiguresText(const CFrameHistogram& histogram);

signals:
    // GUI thread: a new histogram is on screen.
    void histogramShown();

protected:
    // GUI thread: the display's paints, each of which may bring a new frame, and the window's
    // update requests, with which a counted histogram goes on screen.
    bool eventFilter(QObject* watched, QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    // A histogram counted on the worker, with its picture drawn for the view's size and scale
    // at the time, and the region it covers.
    struct Counted {
        CFrameHistogram histogram;
        QImage picture;
        bool logarithmic = false;
        CFrameHistogram::Region region;
    };

    void TakeFrame();
    // Keeps a counted histogram until the window repaints anyway.
    void Arrived(const Counted& counted);
    void Show();

    struct FrameCopy;

    CQwidgetGrabbedFrame* m_display;
    CHistogramView* m_view;
    QCheckBox* m_logarithmic;
    QLabel* m_figures;
    QThread* m_thread;
    QObject* m_worker; // lives on m_thread; counts one frame at a time
    std::shared_ptr<FrameCopy> m_copy;
    // Set on the GUI thread when a frame is handed to the worker, cleared on the GUI thread when
    // its result arrives: a frame shown meanwhile is not counted, so counting never queues up
    // behind the display.
    bool m_busy = false;
    const void* m_lastFrame = nullptr;
    uint64_t m_lastBlockId = 0;
    uint32_t m_computed = 0;
    CFrameHistogram::Region m_shownRegion;
    // Counted and not yet on screen. Every repaint in a window that holds the OpenGL display
    // composes the whole window again; so the histogram goes on screen in the same repaint as
    // the display's next frame, and by m_showLate only when no such repaint comes.
    std::optional<Counted> m_pending;
    QTimer* m_showLate;
    // The figures' text, at most every kFiguresMs; the curve keeps the display's pace.
    static constexpr int kFiguresMs = 250;
    CPacedRefresh* m_figuresRefresh;
    QObject* m_watchedWindow = nullptr;
};
