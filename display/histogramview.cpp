// Draws a histogram: one curve per channel, linear or logarithmic, clipping marked.
#include "histogramview.h"

#include <QPainter>
#include <QPainterPath>
#include <QPolygon>

#include <algorithm>
#include <cmath>

CHistogramView::CHistogramView(QWidget* parent) : QWidget(parent) {
    setMinimumHeight(60);
    setObjectName("histogramView");
}

void CHistogramView::SetHistogram(const CFrameHistogram& histogram) {
    m_histogram = histogram;
    update();
}

void CHistogramView::SetLogarithmic(bool logarithmic) {
    m_logarithmic = logarithmic;
    update();
}

void CHistogramView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), QColor(20, 20, 20));
    const auto& channels = m_histogram.Channels();
    if (channels.empty() || width() < 16 || height() < 4)
        return;
    // A margin keeps the end levels, where clipped pixels pile up, off the widget's edges.
    const int margin = 4;
    const int w = width() - 2 * margin;
    const int h = height();
    const size_t levels = channels.front().bins.size();
    // Each column shows the largest count of the levels it covers, so a narrow peak stays.
    auto column = [&](const std::vector<uint64_t>& bins, int x) {
        const size_t first = size_t(x) * levels / size_t(w);
        const size_t last = std::max(first + 1, size_t(x + 1) * levels / size_t(w));
        uint64_t top = 0;
        for (size_t level = first; level < last && level < levels; ++level)
            top = std::max(top, bins[level]);
        return top;
    };
    auto scale = [&](uint64_t n) {
        return m_logarithmic ? std::log10(1.0 + double(n)) : double(n);
    };
    double peak = 0;
    for (const auto& channel : channels)
        for (uint64_t n : channel.bins)
            peak = std::max(peak, scale(n));
    if (peak <= 0)
        return;
    static const QColor kColours[] = {QColor(230, 60, 60), QColor(60, 200, 60),
                                      QColor(80, 120, 255)};
    painter.setRenderHint(QPainter::Antialiasing, false);
    // Colour curves add up: where all three lie on each other they show white.
    if (channels.size() > 1)
        painter.setCompositionMode(QPainter::CompositionMode_Plus);
    for (size_t c = 0; c < channels.size(); ++c) {
        const QColor colour = channels.size() == 1 ? QColor(220, 220, 220) : kColours[c];
        QPainterPath path;
        path.moveTo(margin, h);
        for (int x = 0; x < w; ++x)
            path.lineTo(margin + x, h - 1 - (h - 2) * scale(column(channels[c].bins, x)) / peak);
        path.lineTo(margin + w - 1, h);
        painter.setPen(QPen(colour, 2));
        QColor fill = colour;
        fill.setAlpha(channels.size() == 1 ? 110 : 60);
        painter.setBrush(fill);
        painter.drawPath(path);
        // A level alone in its column is a spike one pixel wide: drawn as a line so it shows.
        for (int x = 0; x < w; ++x) {
            const uint64_t n = column(channels[c].bins, x);
            if (n > 0)
                painter.drawLine(margin + x, h - 1, margin + x,
                                 int(h - 1 - (h - 2) * scale(n) / peak));
        }
    }
    // Pixels at the lowest or highest level: a corner mark at that end, blue for the low end,
    // red for the high end, so over-exposure shows at a glance without hiding the curve there.
    bool low = false, high = false;
    for (const auto& channel : channels) {
        low = low || channel.bins.front() > 0;
        high = high || channel.bins.back() > 0;
    }
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setPen(Qt::NoPen);
    if (low) {
        painter.setBrush(QColor(60, 140, 255));
        painter.drawPolygon(QPolygon({QPoint(0, 0), QPoint(9, 0), QPoint(0, 9)}));
    }
    if (high) {
        painter.setBrush(QColor(255, 40, 40));
        const int right = width();
        painter.drawPolygon(QPolygon({QPoint(right, 0), QPoint(right - 9, 0), QPoint(right, 9)}));
    }
}
