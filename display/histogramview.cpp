// Draws a histogram: one curve per channel, linear or logarithmic, clipping marked.
#include "histogramview.h"

#include <QPainter>
#include <QPolygon>

#include <algorithm>
#include <cmath>
#include <vector>

CHistogramView::CHistogramView(QWidget* parent) : QOpenGLWidget(parent) {
    setMinimumHeight(60);
    setObjectName("histogramView");
}

void CHistogramView::SetHistogram(const CFrameHistogram& histogram, const QImage& picture,
                                  bool logarithmic) {
    // A live image whose histogram holds still (a still scene, a steady light) often gives the
    // same picture frame after frame: the view is then not painted, nor composed, again.
    const bool same =
        !picture.isNull() && logarithmic == m_pictureLogarithmic && picture == m_picture;
    m_histogram = histogram;
    m_picture = picture;
    m_pictureLogarithmic = logarithmic;
    if (!same)
        update();
}

void CHistogramView::SetLogarithmic(bool logarithmic) {
    m_logarithmic = logarithmic;
    update();
}

void CHistogramView::paintGL() {
    if (m_picture.size() != size() || m_pictureLogarithmic != m_logarithmic) {
        m_picture = Render(m_histogram, size(), m_logarithmic);
        m_pictureLogarithmic = m_logarithmic;
    }
    QPainter painter(this);
    painter.drawImage(0, 0, m_picture);
}

QImage CHistogramView::Render(const CFrameHistogram& histogram, const QSize& size,
                              bool logarithmic) {
    // Opaque: drawn onto the window without blending.
    QImage picture(size.expandedTo(QSize(1, 1)), QImage::Format_RGB32);
    picture.fill(QColor(20, 20, 20));
    const auto& channels = histogram.Channels();
    if (channels.empty() || picture.width() < 16 || picture.height() < 4)
        return picture;
    // A margin keeps the end levels, where clipped pixels pile up, off the picture's edges.
    const int margin = 4;
    const int w = picture.width() - 2 * margin;
    const int h = picture.height();
    const size_t levels = channels.front().bins.size();
    auto scale = [&](uint64_t n) { return logarithmic ? std::log10(1.0 + double(n)) : double(n); };
    // Each column shows the largest count of the levels it covers, so a narrow peak stays.
    // The height is that of the largest count between the two end levels: pixels clipped at an
    // end pile up by the hundred thousand and would flatten the rest of the curve to its base
    // line; their column stands at full height instead, and the corner mark says they are there.
    std::vector<std::vector<uint64_t>> columns(channels.size(), std::vector<uint64_t>(size_t(w)));
    double peak = 0, peakWithEnds = 0;
    for (size_t c = 0; c < channels.size(); ++c) {
        const std::vector<uint64_t>& bins = channels[c].bins;
        for (int x = 0; x < w; ++x) {
            const size_t first = size_t(x) * levels / size_t(w);
            const size_t last = std::max(first + 1, size_t(x + 1) * levels / size_t(w));
            uint64_t top = 0, inner = 0;
            for (size_t level = first; level < last && level < levels; ++level) {
                top = std::max(top, bins[level]);
                if (level != 0 && level + 1 != levels)
                    inner = std::max(inner, bins[level]);
            }
            columns[c][size_t(x)] = top;
            peak = std::max(peak, scale(inner));
            peakWithEnds = std::max(peakWithEnds, scale(top));
        }
    }
    if (peak <= 0)
        peak = peakWithEnds; // every pixel at an end
    if (peak <= 0)
        return picture;
    // Drawn pixel by pixel: a painter path through a spiky histogram (a few levels only, as
    // with a test pattern) takes milliseconds to fill, this takes microseconds. Each channel adds
    // its colour, so that where the three colour curves lie on each other they show white: the
    // area under a curve at a part of its colour, the curve itself whole.
    static const QRgb kColours[] = {qRgb(230, 60, 60), qRgb(60, 200, 60), qRgb(80, 120, 255)};
    const int bottom = h - 1;
    auto add = [&](int x, int y0, int y1, QRgb colour, int part) {
        for (int y = y0; y <= y1; ++y) {
            QRgb* pixel = reinterpret_cast<QRgb*>(picture.scanLine(y)) + x;
            *pixel = qRgb(std::min(255, qRed(*pixel) + qRed(colour) * part / 256),
                          std::min(255, qGreen(*pixel) + qGreen(colour) * part / 256),
                          std::min(255, qBlue(*pixel) + qBlue(colour) * part / 256));
        }
    };
    for (size_t c = 0; c < channels.size(); ++c) {
        const QRgb colour = channels.size() == 1 ? qRgb(220, 220, 220) : kColours[c];
        const int fill = channels.size() == 1 ? 110 : 80;
        int previousTop = bottom;
        for (int x = 0; x < w; ++x) {
            const uint64_t n = columns[c][size_t(x)];
            // Any count at all rises at least a pixel above the base line, so a level alone in
            // its column shows.
            int rise = int(std::lround((h - 2) * std::min(1.0, scale(n) / peak)));
            if (n > 0)
                rise = std::max(rise, 1);
            const int top = bottom - rise;
            if (top < bottom)
                add(margin + x, top + 1, bottom, colour, fill);
            add(margin + x, std::min(top, previousTop), std::max(top, previousTop), colour, 256);
            previousTop = top;
        }
    }
    QPainter painter(&picture);
    // Pixels at the lowest or highest level: a corner mark at that end, blue for the low end,
    // red for the high end, so over-exposure shows at a glance without hiding the curve there.
    bool low = false, high = false;
    for (const auto& channel : channels) {
        low = low || channel.bins.front() > 0;
        high = high || channel.bins.back() > 0;
    }
    painter.setPen(Qt::NoPen);
    if (low) {
        painter.setBrush(QColor(60, 140, 255));
        painter.drawPolygon(QPolygon({QPoint(0, 0), QPoint(9, 0), QPoint(0, 9)}));
    }
    if (high) {
        painter.setBrush(QColor(255, 40, 40));
        const int right = picture.width();
        painter.drawPolygon(QPolygon({QPoint(right, 0), QPoint(right - 9, 0), QPoint(right, 9)}));
    }
    return picture;
}
