// The live image: frame hand-off, averaging, contrast stretch, conversion, painting, zoom, pan and
// region selection.
#pragma once

#include "zoomview.h"

#include <QOpenGLWidget>
#include <QRgb>
#include <QString>
#include <QVector>

#include <cstdint>
#include <memory>
#include <vector>

class CKorvatinFrame;
class CKorvatinFrameConverted;
class QImage;
class QPainter;

// GUI thread only. The holders it is given belong to the camera session; SetFrame() and
// TakeFrame() hand the previous one back to the caller, who returns it to the session. The
// widget keeps itself fitted, with a 5-pixel margin, to the aspect of the visible image region
// inside its parent frame.
class CQwidgetGrabbedFrame : public QOpenGLWidget {
    Q_OBJECT

public:
    // Pixel types of the two display formats the conversion produces.
    static constexpr uint32_t kDisplayMono8 = 0x21084001;
    static constexpr uint32_t kDisplayRgb8 = 0x23088005;

    enum MouseMode : int32_t { ModeZoomSelect = 0, ModePan = 1, ModeAutoRoiSelect = 2 };
    enum DragState : int32_t { DragIdle = 0, DragPressed = 1, DragDragging = 2 };

    explicit CQwidgetGrabbedFrame(QWidget* parent = nullptr);
    ~CQwidgetGrabbedFrame() override;

    // Shows `frame` on the next paint and returns the holder shown until now (may be null).
    CKorvatinFrameConverted* SetFrame(CKorvatinFrameConverted* frame);
    // Gives the current holder back (display switched off); null when there is none. The image
    // shown stays, with a copy of the holder's pixels.
    CKorvatinFrameConverted* TakeFrame();
    // Forgets the image, the averaging state and the view (on disconnect), and repaints.
    void ClearImage();

    void ZoomIn();
    void ZoomOut();
    void ResetView();
    void SetPanMode(bool pan);
    void SetAverage(int count);
    void SetContrast(int contrast);
    void GetView(QRect& visible, int& zoom) const;

    // The conversion target, owned by the main window (prepared at connect).
    void SetOutputFrame(CKorvatinFrame* frame) { m_outputFrame = frame; }
    // Bayer interpolation code for the conversion: 0 none, 1 nearest neighbour, 3 bilinear.
    void SetBayerMode(uint32_t mode) { m_bayerMode = mode; }
    uint32_t BayerMode() const { return m_bayerMode; }
    // The camera's conversion context, or null while disconnected.
    void SetConversionContext(void* context) { m_conversionContext = context; }

    // A short text drawn over the picture, in a box at its top left corner (`atTop`) or its
    // bottom left one: the pixel read-out when the status bar has no room for it. Empty: none.
    void SetOverlayText(const QString& text, bool atTop);
    const QString& OverlayText() const { return m_overlayText; }
    bool OverlayAtTop() const { return m_overlayAtTop; }

    // Images built from frames since the last reset; read by the display-rate read-out.
    uint32_t PaintedFrameCount() const { return m_paintedFrameCount; }
    void ResetPaintedFrameCount() { m_paintedFrameCount = 0; }

    const QImage* Image() const { return m_image.get(); }
    CKorvatinFrameConverted* CurrentFrame() const { return m_currentFrame; }
    const CZoomView& ZoomView() const { return m_zoomView; }
    int32_t MouseModeValue() const { return m_mouseMode; }
    int32_t DragStateValue() const { return m_dragState; }
    QRect Selection() const { return m_selection; }
    int AverageCount() const { return m_averageCount; }
    int ContrastValue() const { return m_contrast; }
    // Frames currently kept for averaging.
    int AverageHistorySize() const { return int(m_history.size()); }

signals:
    void changeGeometry();
    void zoomedPanChanged();
    void autoROIChanged(uint x, uint y, uint width, uint height);
    void autoROIReset();

public slots:
    // Fits the widget to the visible region's aspect inside the parent, 5 pixels from its edges.
    void ChangeGeometry();

protected:
    void paintGL() override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    void BuildImage();
    void FreeAveraging();
    void ApplyContrast(uint8_t* data, size_t size) const;
    QRect MapToImage(const QRect& widgetRect) const;
    void EndDrag();
    Qt::CursorShape ModeCursor() const;
    void ChangeOverrideCursor();
    void ResizeFramebuffer(int width, int height);
    void DrawOverlay(QPainter& painter) const;

    QWidget* m_parentFrame = nullptr;
    // The last size with an area, kept while the widget is 0 x 0 (no image).
    QSize m_lastShownSize;
    std::unique_ptr<QImage> m_image;
    CKorvatinFrameConverted* m_currentFrame = nullptr;
    CKorvatinFrame* m_outputFrame = nullptr;
    uint32_t m_bayerMode = 0;
    uint32_t m_imageWidth = 0;
    uint32_t m_imageHeight = 0;
    QVector<QRgb> m_greyTable;
    bool m_newFrame = false;
    uint32_t m_paintedFrameCount = 0;
    CZoomView m_zoomView;
    QPoint m_pressPosition;
    QRect m_selection;
    int32_t m_mouseMode = ModeZoomSelect;
    int32_t m_savedMode = ModeZoomSelect;
    int32_t m_dragState = DragIdle;
    bool m_overrideCursorSet = false;
    void* m_conversionContext = nullptr;
    int32_t m_averageCount = 1;
    int32_t m_averageShift = 0;
    std::vector<std::unique_ptr<uint8_t[]>> m_history; // oldest first
    std::unique_ptr<uint16_t[]> m_sums;
    size_t m_frameBytes = 0;
    int32_t m_contrast = 0;
    int32_t m_contrastShift = 0;
    int32_t m_halfContrast = 0;
    QString m_overlayText;
    bool m_overlayAtTop = false;
};
