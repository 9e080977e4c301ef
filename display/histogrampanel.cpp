// The live histogram panel: counts each frame the display shows on a thread of its own.
#include "histogrampanel.h"

#include "pacedrefresh.h"
#include "qwidgetgrabbedframe.h"

#include <korvatinframeconverted.h>

#include <QCheckBox>
#include <QEvent>
#include <QLabel>
#include <QThread>
#include <QTimer>
#include <QVBoxLayout>

#include <memory>

#ifdef Q_OS_LINUX
#include <sys/resource.h>
#endif

// One frame handed to the counting thread: its own copy of the pixels, because the display
// gives the frame back to the pipeline on its next tick. One is kept and filled again for each
// frame (the counting thread has it only while m_busy), so that no frame costs an allocation.
struct CHistogramPanel::FrameCopy {
    std::vector<uint8_t> pixels;
    CKorvatinFrame frame;
    uint32_t bayerMode = 0;
    CFrameHistogram::Region region;
    // The view's size and scale when the frame was taken: the picture is drawn for them.
    QSize viewSize;
    bool logarithmic = false;
};

CHistogramPanel::CHistogramPanel(CQwidgetGrabbedFrame* display, QWidget* parent)
    : QWidget(parent), m_display(display) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->setSpacing(2);
    m_view = new CHistogramView(this);
    m_logarithmic = new QCheckBox("Logarithmic", this);
    m_logarithmic->setObjectName("checkBox_histogramLog");
    m_figures = new QLabel(this);
    m_figures->setObjectName("label_histogramFigures");
    m_figures->setStyleSheet("color: rgb(255, 255, 255);");
    m_logarithmic->setStyleSheet("color: rgb(255, 255, 255);");
    layout->addWidget(m_view);
    layout->addWidget(m_logarithmic);
    layout->addWidget(m_figures);
    connect(m_logarithmic, &QCheckBox::toggled, m_view, &CHistogramView::SetLogarithmic);

    m_showLate = new QTimer(this);
    m_showLate->setSingleShot(true);
    m_showLate->setInterval(250);
    connect(m_showLate, &QTimer::timeout, this, &CHistogramPanel::Show);
    m_figuresRefresh = new CPacedRefresh(
        kFiguresMs, [this] { m_figures->setText(FiguresText(m_view->Histogram())); }, this);

    m_copy = std::make_shared<FrameCopy>();

    m_thread = new QThread(this);
    m_thread->setObjectName("histogram");
    m_worker = new QObject;
    m_worker->moveToThread(m_thread);
    m_thread->start();
#ifdef Q_OS_LINUX
    // The display and the capture come first: the counting thread runs at the lowest priority
    // of normal threads (QThread's priorities change nothing under Linux' default scheduler),
    // so on a machine with no time to spare it counts fewer of the frames shown rather than
    // slowing them down; it still gets a share when the machine is busy, so it never stops.
    QMetaObject::invokeMethod(
        m_worker, [] { setpriority(PRIO_PROCESS, 0, 19); }, Qt::QueuedConnection);
#endif
    m_display->installEventFilter(this);
}

CHistogramPanel::~CHistogramPanel() {
    // The display may be gone already (it is not this panel's); the filter goes with this
    // object. The producer stops (no new frame is handed over), the thread ends after the count it
    // may be doing, then the worker goes.
    m_thread->quit();
    m_thread->wait();
    delete m_worker;
}

void CHistogramPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // The window this panel is in now; its update requests bring the histogram on screen.
    QObject* top = window();
    if (top != m_watchedWindow) {
        if (m_watchedWindow)
            m_watchedWindow->removeEventFilter(this);
        m_watchedWindow = top;
        m_watchedWindow->installEventFilter(this);
        connect(m_watchedWindow, &QObject::destroyed, this, [this](QObject* gone) {
            if (gone == m_watchedWindow)
                m_watchedWindow = nullptr;
        });
    }
}

bool CHistogramPanel::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_display && event->type() == QEvent::Paint && isVisible())
        TakeFrame();
    // Marked for repainting before the window repaints what is due: one composition for both.
    if (watched == m_watchedWindow && event->type() == QEvent::UpdateRequest && m_pending)
        Show();
    return QWidget::eventFilter(watched, event);
}

void CHistogramPanel::TakeFrame() {
    const CKorvatinFrameConverted* holder = m_display->CurrentFrame();
    // One frame counted at a time: a frame shown while the last one is being counted is left
    // out, so the histogram follows the display as fast as counting keeps up, and never queues.
    if (holder == nullptr || m_busy)
        return;
    const CKorvatinFrame* raw = holder->SourceRawFrame() ? holder->SourceRawFrame() : holder;
    if (raw->Data() == nullptr || raw->DataSize() == 0)
        return;
    // A paint without a new frame (a resize, a repaint) counts nothing new.
    if (raw == m_lastFrame && raw->BlockId() == m_lastBlockId)
        return;
    m_lastFrame = raw;
    m_lastBlockId = raw->BlockId();

    std::shared_ptr<FrameCopy> copy = m_copy;
    copy->pixels.assign(raw->Data(), raw->Data() + raw->DataSize());
    copy->frame.UpdateFrame(*raw);
    copy->frame.Describe(copy->pixels.data(), copy->pixels.size(), copy->pixels.size(),
                         raw->Stride(), raw->BlockId(), raw->Timestamp(), nullptr);
    copy->bayerMode = m_display->BayerMode();
    copy->viewSize = m_view->size();
    copy->logarithmic = m_view->Logarithmic();
    QRect visible;
    int zoom = 0;
    m_display->GetView(visible, zoom);
    // Zoomed in, the histogram is that of the part on screen.
    copy->region = {};
    if (zoom > 100 && !visible.isEmpty())
        copy->region = {uint32_t(visible.x()), uint32_t(visible.y()), uint32_t(visible.width()),
                        uint32_t(visible.height())};
    m_busy = true;
    QMetaObject::invokeMethod(
        m_worker,
        [this, copy] {
            // Counting thread.
            Counted counted;
            counted.histogram.Add(copy->frame, copy->bayerMode, copy->region, nullptr);
            // Drawn here too: the GUI thread only puts the picture on screen.
            if (!counted.histogram.Channels().empty())
                counted.picture =
                    CHistogramView::Render(counted.histogram, copy->viewSize, copy->logarithmic);
            counted.logarithmic = copy->logarithmic;
            counted.region = copy->region;
            QMetaObject::invokeMethod(
                this, [this, counted] { Arrived(counted); }, Qt::QueuedConnection);
        },
        Qt::QueuedConnection);
}

void CHistogramPanel::Arrived(const Counted& counted) {
    m_busy = false;
    if (counted.histogram.Channels().empty())
        return;
    m_pending = counted;
    m_showLate->start();
}

void CHistogramPanel::Show() {
    m_showLate->stop();
    if (!m_pending)
        return;
    ++m_computed;
    m_shownRegion = m_pending->region;
    m_view->SetHistogram(m_pending->histogram, m_pending->picture, m_pending->logarithmic);
    m_pending.reset();
    // The figures follow at a pace they can be read at; the curve keeps the display's.
    m_figuresRefresh->Soon();
    emit histogramShown();
}

QString CHistogramPanel::FiguresText(const CFrameHistogram& histogram) {
    QStringList lines;
    for (const CFrameHistogram::Channel& channel : histogram.Channels()) {
        const CFrameHistogram::Figures f = CFrameHistogram::FiguresOf(channel.bins);
        const double total = f.count ? double(f.count) : 1.0;
        const QString name = QString::fromStdString(channel.name);
        lines << QString("%1 min %2 max %3").arg(name).arg(f.minimum).arg(f.maximum);
        lines << QString("  mean %1 sd %2").arg(f.mean, 0, 'f', 2).arg(f.stddev, 0, 'f', 2);
        lines << QString("  low %1 (%2 %)")
                     .arg(f.clippedLow)
                     .arg(100.0 * f.clippedLow / total, 0, 'f', 2);
        lines << QString("  high %1 (%2 %)")
                     .arg(f.clippedHigh)
                     .arg(100.0 * f.clippedHigh / total, 0, 'f', 2);
    }
    return lines.join('\n');
}
