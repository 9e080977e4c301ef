// The part of an image that the display shows, and how zooming and panning move it.
#include "zoomview.h"

#include <algorithm>
#include <cmath>

void CZoomView::SetSize(int32_t width, int32_t height) {
    m_width = width;
    m_height = height;
    m_anchor = m_visible = QRect(0, 0, width, height);
    m_zoom = 100;
}

void CZoomView::ZoomToRect(const QRect& rect) {
    if (m_zoom >= kMaxZoom || rect.isEmpty())
        return;
    m_anchor = m_visible = rect;
    m_zoom = int32_t((int64_t(m_width) * m_height * 100) / (int64_t(rect.width()) * rect.height()));
}

void CZoomView::Pan(int dx, int dy) {
    const QRect& v = m_visible;
    const int left = dx >= 1 ? std::min(v.right() + dx, m_width - 1) - v.width() + 1
                             : std::max(v.left() + dx, 0);
    const int top = dy >= 1 ? std::min(v.bottom() + dy, m_height - 1) - v.height() + 1
                            : std::max(v.top() + dy, 0);
    m_anchor = m_visible = QRect(left, top, v.width(), v.height());
}

void CZoomView::SetZoom(int32_t zoom) {
    const int64_t w = m_width, h = m_height;
    const int64_t aw = m_anchor.width(), ah = m_anchor.height();
    if (w <= 0 || h <= 0 || aw <= 0 || ah <= 0 || zoom <= 0)
        return;
    const int64_t t = (h * w * ah * 100) / (aw * zoom);
    int64_t nh = int64_t(std::sqrt(double(t)));
    int64_t nw = 0;
    bool clipped = false;
    if (nh <= h) {
        nw = aw * nh / ah;
        if (nw > w) {
            nw = w;
            nh = h * w * 100 / (int64_t(zoom) * w);
            clipped = true;
        }
    } else {
        nh = h;
        nw = w * h * 100 / (int64_t(zoom) * h);
        clipped = true;
    }
    const QPoint centre = m_anchor.center();
    int64_t left = std::max<int64_t>(centre.x() - nw / 2, 0);
    int64_t top = std::max<int64_t>(centre.y() - nh / 2, 0);
    bool moved = false;
    if (left + nw >= w) {
        left = w - nw;
        moved = true;
    }
    if (top + nh >= h) {
        top = h - nh;
        moved = true;
    }
    m_visible = QRect(int(left), int(top), int(nw), int(nh));
    // An anchor that fitted keeps the aspect the user asked for; one that did not becomes what is
    // shown, so that zooming back out starts from there.
    if (clipped || moved)
        m_anchor = m_visible;
    m_zoom = zoom;
}

void CZoomView::ZoomIn() {
    const int32_t z = m_zoom;
    if (z >= kMaxZoom)
        return;
    int32_t step;
    if (z >= 100 && z < 200)
        step = 50;
    else if (z >= 200 && z < 400)
        step = 100;
    else if (z >= 400 && z < 800)
        step = 200;
    else if (z >= 800 && z < 1600)
        step = 400;
    else if (z >= 1600 && z < 3200)
        step = 800;
    else
        step = z / 2;
    SetZoom(z + step);
}

void CZoomView::ZoomOut() {
    const int32_t z = m_zoom;
    if (z <= 100)
        return;
    int32_t step;
    if (z > 100 && z <= 200)
        step = 50;
    else if (z > 200 && z <= 400)
        step = 100;
    else if (z > 400 && z <= 800)
        step = 200;
    else if (z > 800 && z <= 1600)
        step = 400;
    else if (z > 1600 && z <= 3200)
        step = 800;
    else
        step = z / 2;
    SetZoom(std::max(z - step, 100));
}
