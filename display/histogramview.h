// Draws a histogram: one curve per channel (grey, or red, green and blue), linear or
// logarithmic counts, with the lowest and highest level marked when pixels are clipped there.
#pragma once

#include <framehistogram.h>

#include <QImage>
#include <QOpenGLWidget>

class CHistogramView : public QOpenGLWidget {
    Q_OBJECT
public:
    explicit CHistogramView(QWidget* parent = nullptr);

    // Draws `histogram` as this view shows it, into a picture of `size`. Any thread: the live
    // panel draws on its counting thread, so that the GUI thread only copies the picture.
    static QImage Render(const CFrameHistogram& histogram, const QSize& size, bool logarithmic);

    // With the picture Render drew for it; drawn again here if the view has since changed size
    // or scale. A picture equal to the one shown repaints nothing.
    void SetHistogram(const CFrameHistogram& histogram, const QImage& picture, bool logarithmic);
    void SetLogarithmic(bool logarithmic);
    bool Logarithmic() const { return m_logarithmic; }
    const CFrameHistogram& Histogram() const { return m_histogram; }

    QSize sizeHint() const override { return QSize(200, 90); }

protected:
    void paintGL() override;

private:
    CFrameHistogram m_histogram;
    bool m_logarithmic = false;
    // m_histogram drawn at the view's size, with m_pictureLogarithmic; null until drawn.
    QImage m_picture;
    bool m_pictureLogarithmic = false;
};
