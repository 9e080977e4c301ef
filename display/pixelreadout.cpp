// The status bar's pixel read-out: the image coordinates under the pointer and the value the
// camera sent there, through every zoom and pan of the display.
#include "pixelreadout.h"

#include "pacedrefresh.h"
#include "pixelvalue.h"
#include "qwidgetgrabbedframe.h"

#include <korvatinframeconverted.h>

#include <QEvent>
#include <QLabel>
#include <QMouseEvent>

CPixelReadout::CPixelReadout(CQwidgetGrabbedFrame* display, QLabel* label, QObject* parent)
    : QObject(parent), m_display(display), m_label(label),
      m_refresh(new CPacedRefresh(
          kFrameRefreshMs, [this] { Write(); }, this)) {
    m_display->setMouseTracking(true);
    m_display->installEventFilter(this);
    m_label->installEventFilter(this);
    m_label->hide();
}

bool CPixelReadout::ImagePosition(const QRect& visible, const QSize& widgetSize, const QPoint& pos,
                                  QPoint* image) {
    if (visible.isEmpty() || widgetSize.isEmpty() || pos.x() < 0 || pos.y() < 0 ||
        pos.x() >= widgetSize.width() || pos.y() >= widgetSize.height())
        return false;
    // The display draws the visible part stretched over the whole widget: widget pixel p shows
    // image pixel left + p * visible / widget, as its selections map.
    *image = QPoint(visible.x() + int(int64_t(visible.width()) * pos.x() / widgetSize.width()),
                    visible.y() + int(int64_t(visible.height()) * pos.y() / widgetSize.height()));
    return true;
}

QString CPixelReadout::TextAt(const QPoint& pos) const {
    const CKorvatinFrameConverted* holder = m_display->CurrentFrame();
    if (holder == nullptr || m_display->Image() == nullptr)
        return QString();
    // The frame as received; a holder the recorder converted already still knows it.
    const CKorvatinFrame* raw = holder->SourceRawFrame() ? holder->SourceRawFrame() : holder;
    QRect visible;
    int zoom = 0;
    m_display->GetView(visible, zoom);
    QPoint image;
    if (!ImagePosition(visible, m_display->size(), pos, &image))
        return QString();
    const CPixelValue value = CPixelValue::Read(*raw, uint32_t(image.x()), uint32_t(image.y()));
    if (value.kind == CPixelValue::None)
        return QString("X %1  Y %2").arg(image.x()).arg(image.y());
    return QString("X %1  Y %2  %3")
        .arg(image.x())
        .arg(image.y())
        .arg(QString::fromStdString(value.Text()));
}

void CPixelReadout::Write() {
    int zoom = 0;
    m_display->GetView(m_shownView, zoom);
    m_shownSize = m_display->size();
    const QString text = m_pointerInside ? TextAt(m_pointer) : QString();
    m_label->setText(text);
    // An empty field takes no room after the status bar's own ones.
    const bool wasVisible = m_label->isVisible();
    m_label->setVisible(!text.isEmpty());
    if (wasVisible || text.isEmpty())
        ShowWhereItFits();
    else
        // Shown just now: its room is known once the status bar has laid it out.
        QMetaObject::invokeMethod(this, &CPixelReadout::ShowWhereItFits, Qt::QueuedConnection);
}

void CPixelReadout::ShowWhereItFits() {
    if (!m_display)
        return;
    const QString text = m_label->isVisible() ? m_label->text() : QString();
    const bool fits =
        m_label->fontMetrics().horizontalAdvance(text) <= m_label->contentsRect().width();
    m_display->SetOverlayText(fits ? QString() : text, m_pointer.y() >= m_display->height() / 2);
}

void CPixelReadout::RefreshAfterPaint() {
    QRect view;
    int zoom = 0;
    m_display->GetView(view, zoom);
    if (view != m_shownView || m_display->size() != m_shownSize)
        m_refresh->Now();
    else if (!m_refresh->Waiting() && TextAt(m_pointer) != m_label->text())
        m_refresh->Soon();
}

bool CPixelReadout::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_label && event->type() == QEvent::Resize)
        ShowWhereItFits();
    // Not while the display is being taken down (its own part already gone), when leaving it
    // sends a last Leave.
    if (watched == m_display && qobject_cast<CQwidgetGrabbedFrame*>(watched)) {
        switch (event->type()) {
        case QEvent::MouseMove:
            m_pointer = static_cast<QMouseEvent*>(event)->position().toPoint();
            m_pointerInside = true;
            m_refresh->Now();
            break;
        case QEvent::Enter:
            m_pointerInside = true;
            m_pointer = m_display->mapFromGlobal(QCursor::pos());
            m_refresh->Now();
            break;
        case QEvent::Leave:
            m_pointerInside = false;
            m_refresh->Now();
            break;
        case QEvent::Paint:
            // The frame under a resting pointer changed, or the view moved.
            if (m_pointerInside)
                RefreshAfterPaint();
            break;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}
