// The live image: frame hand-off, averaging, contrast stretch, conversion, painting, zoom, pan and
// region selection.
#include "qwidgetgrabbedframe.h"

#include "qframesplittercentral.h"

#include <korvatinframeconverted.h>

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cstring>

namespace {
// log2(value) when value is a power of two above 1, else 0.
int32_t PowerOfTwoShift(int32_t value) {
    if (value < 2 || (value & (value - 1)) != 0)
        return 0;
    int32_t shift = 0;
    while ((1 << shift) < value)
        ++shift;
    return shift;
}
} // namespace

CQwidgetGrabbedFrame::CQwidgetGrabbedFrame(QWidget* parent)
    : QOpenGLWidget(parent), m_parentFrame(parent) {
    m_greyTable.reserve(256);
    for (uint32_t i = 0; i < 256; ++i)
        m_greyTable.append(QRgb(0xFF000000u + i * 0x010101u));
    connect(this, &CQwidgetGrabbedFrame::changeGeometry, this,
            &CQwidgetGrabbedFrame::ChangeGeometry);
    // The central frame announces its resizes; inside any other parent the widget is fitted
    // only when the view changes.
    if (auto* frame = qobject_cast<CQFrameSplitterCentral*>(parent))
        connect(frame, &CQFrameSplitterCentral::resized, this,
                &CQwidgetGrabbedFrame::ChangeGeometry);
}

CQwidgetGrabbedFrame::~CQwidgetGrabbedFrame() {
    if (m_overrideCursorSet)
        QApplication::restoreOverrideCursor();
}

CKorvatinFrameConverted* CQwidgetGrabbedFrame::SetFrame(CKorvatinFrameConverted* frame) {
    CKorvatinFrameConverted* previous = m_currentFrame;
    m_currentFrame = frame;
    m_newFrame = true;
    const CKorvatinFrame* raw = frame ? frame->SourceRawFrame() : nullptr;
    if (!raw)
        return previous;

    if (raw->Width() != m_imageWidth || raw->Height() != m_imageHeight) {
        m_imageWidth = raw->Width();
        m_imageHeight = raw->Height();
        m_zoomView.SetSize(int32_t(m_imageWidth), int32_t(m_imageHeight));
        m_pressPosition = QPoint();
        m_selection = QRect();
        m_mouseMode = m_savedMode;
        m_savedMode = ModeZoomSelect;
        m_dragState = DragIdle;
        emit changeGeometry();
        emit zoomedPanChanged();
    }

    if (m_averageCount == 1)
        return previous;
    const size_t bytes = raw->DataSize();
    if (m_sums && bytes != m_frameBytes)
        FreeAveraging();
    if (((raw->PixelType() >> 16) & 0xFF) != 8)
        return previous;

    if (!m_sums) {
        m_frameBytes = bytes;
        // The averaging has always cleared only the first S bytes of the 2 S bytes of sums and
        // let the upper half start with what the allocation held; the allocation is zeroed, so
        // that what it holds is defined.
        m_sums.reset(new uint16_t[bytes]());
    }
    const uint8_t* pixels = raw->Data();
    uint16_t* sums = m_sums.get();
    std::unique_ptr<uint8_t[]> buffer;
    if (m_history.size() >= size_t(m_averageCount)) {
        buffer = std::move(m_history.front());
        m_history.erase(m_history.begin());
        const uint8_t* old = buffer.get();
        for (size_t i = 0; i < bytes; ++i)
            sums[i] = uint16_t(sums[i] + pixels[i] - old[i]);
    } else {
        buffer.reset(new uint8_t[bytes]);
        for (size_t i = 0; i < bytes; ++i)
            sums[i] = uint16_t(sums[i] + pixels[i]);
    }
    std::memcpy(buffer.get(), pixels, bytes);
    m_history.push_back(std::move(buffer));
    return previous;
}

CKorvatinFrameConverted* CQwidgetGrabbedFrame::TakeFrame() {
    CKorvatinFrameConverted* frame = m_currentFrame;
    // The picture stays on screen, but the holder goes back to the session, whose conversion
    // thread writes into it again: the image gets pixels of its own. A frame not painted yet is
    // built first, as the image then still shows the holder given back before it.
    if (frame) {
        if (m_newFrame)
            BuildImage();
        if (m_image)
            *m_image = m_image->copy();
    }
    m_currentFrame = nullptr;
    m_newFrame = false;
    return frame;
}

void CQwidgetGrabbedFrame::ClearImage() {
    FreeAveraging();
    m_image.reset();
    m_imageWidth = m_imageHeight = 0;
    m_zoomView.SetSize(0, 0);
    update();
}

void CQwidgetGrabbedFrame::ZoomIn() {
    m_zoomView.ZoomIn();
    emit changeGeometry();
}

void CQwidgetGrabbedFrame::ZoomOut() {
    m_zoomView.ZoomOut();
    emit changeGeometry();
}

void CQwidgetGrabbedFrame::ResetView() {
    m_pressPosition = QPoint();
    m_selection = QRect();
    m_mouseMode = m_savedMode;
    m_savedMode = ModeZoomSelect;
    m_zoomView.Reset();
    emit changeGeometry();
    update();
}

void CQwidgetGrabbedFrame::SetPanMode(bool pan) {
    m_mouseMode = pan ? ModePan : ModeZoomSelect;
}

void CQwidgetGrabbedFrame::SetAverage(int count) {
    FreeAveraging();
    m_averageCount = count;
    m_averageShift = PowerOfTwoShift(count);
}

void CQwidgetGrabbedFrame::SetContrast(int contrast) {
    m_contrast = contrast;
    m_halfContrast = contrast / 2;
    m_contrastShift = PowerOfTwoShift(contrast);
}

void CQwidgetGrabbedFrame::GetView(QRect& visible, int& zoom) const {
    visible = m_zoomView.Visible();
    zoom = m_zoomView.Zoom();
}

void CQwidgetGrabbedFrame::FreeAveraging() {
    m_history.clear();
    m_sums.reset();
    m_frameBytes = 0;
}

void CQwidgetGrabbedFrame::ApplyContrast(uint8_t* data, size_t size) const {
    if (size == 0)
        return;
    uint64_t total = 0;
    for (size_t i = 0; i < size; ++i)
        total += data[i];
    const int32_t mean = int32_t(total / size);
    const int32_t offset = mean > m_halfContrast ? mean - m_halfContrast : 0;
    // The stretch depends on the level alone for the whole frame: one table of the 256 levels,
    // then a lookup per pixel instead of a division.
    uint8_t stretched[256];
    for (int32_t p = 0; p < 256; ++p) {
        int32_t out;
        if (p < offset)
            out = 0;
        else if (m_contrastShift != 0)
            out = std::min((p - offset) << (8 - m_contrastShift), 255);
        else
            out = std::min(((p - offset) << 8) / m_contrast, 255);
        stretched[p] = uint8_t(out);
    }
    for (size_t i = 0; i < size; ++i)
        data[i] = stretched[data[i]];
}

void CQwidgetGrabbedFrame::BuildImage() {
    m_image.reset();
    CKorvatinFrame* raw = m_currentFrame ? m_currentFrame->SourceRawFrame() : nullptr;
    if (raw && raw->Data()) {
        const size_t bytes = raw->DataSize();
        if (m_sums && m_history.size() == size_t(m_averageCount) && bytes == m_frameBytes) {
            uint8_t* pixels = raw->Data();
            const uint16_t* sums = m_sums.get();
            for (size_t i = 0; i < bytes; ++i)
                pixels[i] = uint8_t(m_averageShift != 0 ? sums[i] >> m_averageShift
                                                        : sums[i] / m_averageCount);
        }
        if (m_contrast != 0)
            ApplyContrast(raw->Data(), bytes);
    }

    const CKorvatinFrame* source = m_currentFrame;
    if (m_currentFrame && raw && m_currentFrame->PixelType() != kDisplayMono8 &&
        m_currentFrame->PixelType() != kDisplayRgb8 && m_outputFrame) {
        if (m_outputFrame->Convert(*raw, m_bayerMode | 4, 8, 1, m_conversionContext) == 0)
            source = m_outputFrame;
    }
    if (source && source->Data()) {
        const int w = int(source->Width());
        const int h = int(source->Height());
        if (source->PixelType() == kDisplayMono8) {
            const qsizetype stride = source->Stride() ? source->Stride() : w;
            m_image =
                std::make_unique<QImage>(source->Data(), w, h, stride, QImage::Format_Indexed8);
            m_image->setColorTable(m_greyTable);
            ++m_paintedFrameCount;
        } else if (source->PixelType() == kDisplayRgb8) {
            const qsizetype stride = source->Stride() ? source->Stride() : 3 * w;
            m_image = std::make_unique<QImage>(source->Data(), w, h, stride, QImage::Format_RGB888);
            ++m_paintedFrameCount;
        }
    }
    m_newFrame = false;
}

void CQwidgetGrabbedFrame::paintGL() {
    if (m_newFrame)
        BuildImage();
    QPainter painter(this);
    const QRect target(0, 0, width(), height());
    if (!m_image) {
        painter.fillRect(target, QColor(255, 255, 255, 255));
        return;
    }
    const bool whole = m_zoomView.Zoom() == 100;
    const QRect visible = m_zoomView.Visible();
    if (m_image->format() != QImage::Format_Indexed8 && m_image->height() <= 1200) {
        if (whole)
            painter.drawImage(target, *m_image);
        else
            painter.drawImage(target, *m_image, visible);
    } else {
        // Indexed and very tall images are scaled down on the CPU with the fast transformation
        // rather than handing a large source to the painter.
        const QImage part = whole ? *m_image : m_image->copy(visible);
        painter.drawImage(
            0, 0, part.scaled(target.size(), Qt::IgnoreAspectRatio, Qt::FastTransformation));
    }
    if (m_dragState == DragDragging &&
        (m_mouseMode == ModeZoomSelect || m_mouseMode == ModeAutoRoiSelect)) {
        painter.setPen(m_mouseMode == ModeZoomSelect ? Qt::blue : Qt::yellow);
        painter.drawRect(m_selection);
    }
    if (!m_overlayText.isEmpty())
        DrawOverlay(painter);
}

void CQwidgetGrabbedFrame::SetOverlayText(const QString& text, bool atTop) {
    if (text == m_overlayText && (text.isEmpty() || atTop == m_overlayAtTop))
        return;
    m_overlayText = text;
    m_overlayAtTop = atTop;
    update();
}

void CQwidgetGrabbedFrame::DrawOverlay(QPainter& painter) const {
    // White on a dark box that lets the picture show through, readable over any image.
    const QFontMetrics metrics(font());
    const QRect text = metrics.boundingRect(m_overlayText);
    const int margin = 4;
    QRect box(0, 0, std::min(width(), text.width() + 2 * margin), metrics.height() + 2 * margin);
    box.moveTopLeft(QPoint(0, m_overlayAtTop ? 0 : std::max(0, height() - box.height())));
    painter.fillRect(box, QColor(0, 0, 0, 170));
    painter.setPen(Qt::white);
    painter.setFont(font());
    painter.drawText(box.adjusted(margin, margin, -margin, -margin),
                     Qt::AlignLeft | Qt::AlignVCenter, m_overlayText);
}

Qt::CursorShape CQwidgetGrabbedFrame::ModeCursor() const {
    return m_mouseMode == ModePan ? Qt::OpenHandCursor : Qt::CrossCursor;
}

void CQwidgetGrabbedFrame::ChangeOverrideCursor() {
    if (m_overrideCursorSet)
        QApplication::changeOverrideCursor(ModeCursor());
}

void CQwidgetGrabbedFrame::enterEvent(QEnterEvent* event) {
    QOpenGLWidget::enterEvent(event);
    if (!m_overrideCursorSet) {
        QApplication::setOverrideCursor(ModeCursor());
        m_overrideCursorSet = true;
    }
}

void CQwidgetGrabbedFrame::leaveEvent(QEvent* event) {
    QOpenGLWidget::leaveEvent(event);
    if (m_overrideCursorSet) {
        QApplication::restoreOverrideCursor();
        m_overrideCursorSet = false;
    }
}

void CQwidgetGrabbedFrame::mousePressEvent(QMouseEvent* event) {
    // A press that was never followed by a drag leaves the state at "pressed", and every further
    // press is ignored until a drag completes; kept as the widget always behaved.
    if (m_dragState != DragIdle)
        return;
    if (event->button() == Qt::LeftButton) {
        m_savedMode = m_mouseMode;
    } else if (event->button() == Qt::RightButton) {
        m_savedMode = m_mouseMode;
        m_mouseMode = ModeAutoRoiSelect;
    } else {
        return;
    }
    m_dragState = DragPressed;
    m_pressPosition = event->position().toPoint();
}

void CQwidgetGrabbedFrame::mouseMoveEvent(QMouseEvent* event) {
    const QPoint pos = event->position().toPoint();
    if (m_dragState == DragPressed) {
        if (!(event->buttons() & (Qt::LeftButton | Qt::RightButton)))
            return;
        if ((pos - m_pressPosition).manhattanLength() < QApplication::startDragDistance())
            return;
        m_dragState = DragDragging;
        ChangeOverrideCursor();
    }
    if (m_dragState != DragDragging)
        return;
    if (m_mouseMode == ModePan) {
        const int dx = m_pressPosition.x() - pos.x();
        const int dy = m_pressPosition.y() - pos.y();
        const QRect visible = m_zoomView.Visible();
        const int ix = width() > 0 ? visible.width() * dx / width() : 0;
        const int iy = height() > 0 ? visible.height() * dy / height() : 0;
        // A move too small to shift the image by a whole pixel keeps its start point, so that
        // slow drags still add up.
        if (!(dx != 0 && dy != 0 && ix == 0 && iy == 0)) {
            m_zoomView.Pan(ix, iy);
            m_pressPosition = pos;
        }
    } else {
        m_selection = QRect(m_pressPosition, pos).normalized();
    }
    update();
}

void CQwidgetGrabbedFrame::mouseReleaseEvent(QMouseEvent* event) {
    if (m_dragState != DragDragging)
        return;
    const QRect inner(0, 0, width() - 1, height() - 1);
    const bool usable =
        inner.contains(m_selection) && m_selection.width() != 0 && m_selection.height() != 0;
    if (event->button() == Qt::LeftButton && m_mouseMode == ModeZoomSelect) {
        if (usable) {
            m_zoomView.ZoomToRect(MapToImage(m_selection));
            emit changeGeometry();
            emit zoomedPanChanged();
        }
    } else if (event->button() == Qt::RightButton && m_mouseMode == ModeAutoRoiSelect) {
        if (usable) {
            const QRect r = MapToImage(m_selection);
            emit autoROIChanged(uint(r.x()), uint(r.y()), uint(r.width()), uint(r.height()));
        }
    }
    EndDrag();
    update();
}

void CQwidgetGrabbedFrame::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::RightButton)
        return;
    emit autoROIReset();
    EndDrag();
}

void CQwidgetGrabbedFrame::EndDrag() {
    m_pressPosition = QPoint();
    m_selection = QRect();
    m_mouseMode = m_savedMode;
    m_savedMode = ModeZoomSelect;
    m_dragState = DragIdle;
    ChangeOverrideCursor();
}

QRect CQwidgetGrabbedFrame::MapToImage(const QRect& r) const {
    const QRect v = m_zoomView.Visible();
    const int W = width();
    const int H = height();
    return QRect(v.x() + v.width() * r.x() / W, v.y() + v.height() * r.y() / H,
                 v.width() * r.width() / W, v.height() * r.height() / H);
}

void CQwidgetGrabbedFrame::ChangeGeometry() {
    if (!m_parentFrame)
        return;
    const int P = m_parentFrame->width() - 10;
    const int Q = m_parentFrame->height() - 10;
    const QRect visible = m_zoomView.Visible();
    const int64_t vw = visible.width();
    const int64_t vh = visible.height();
    int w, h;
    if (vw == 0 || vh == 0) {
        w = int(vw);
        h = int(vh);
    } else if (vh * P < vw * Q) {
        w = P;
        h = int(vh * P / vw);
    } else {
        h = Q;
        w = int(vw * Q / vh);
    }
    move((P - w) / 2 + 5, (Q - h) / 2 + 5);
    ResizeFramebuffer(w, h);
}

void CQwidgetGrabbedFrame::ResizeFramebuffer(int w, int h) {
    // A 0 x 0 widget keeps its framebuffer; back to an area, QOpenGLWidget makes a new one, but
    // the window's compositor refreshes its own reference to the framebuffer's texture only when
    // the size differs from the one it knew. Coming back at the very size it had before (the
    // same camera connected again), the window would show the deleted texture, black, while
    // the widget paints every frame. A step through another size makes the compositor take the
    // new texture.
    if (size().isEmpty() && w > 0 && h > 0 && QSize(w, h) == m_lastShownSize)
        resize(w + 1, h);
    resize(w, h);
    if (w > 0 && h > 0)
        m_lastShownSize = QSize(w, h);
}
