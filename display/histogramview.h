// Draws a histogram: one curve per channel (grey, or red, green and blue), linear or
// logarithmic counts, with the lowest and highest level marked when pixels are clipped there.
#pragma once

#include <framehistogram.h>

#include <QWidget>

class CHistogramView : public QWidget {
    Q_OBJECT
public:
    explicit CHistogramView(QWidget* parent = nullptr);

    void SetHistogram(const CFrameHistogram& histogram);
    void SetLogarithmic(bool logarithmic);
    bool Logarithmic() const { return m_logarithmic; }
    const CFrameHistogram& Histogram() const { return m_histogram; }

    QSize sizeHint() const override { return QSize(200, 90); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    CFrameHistogram m_histogram;
    bool m_logarithmic = false;
};
