// The part of an image that the display shows, and how zooming and panning move it.
#pragma once

#include <QRect>

#include <cstdint>

// A plain value: the image size, the anchor rectangle the user last asked for, the visible
// rectangle actually on screen, and the zoom in percent of image area over visible area
// (100 = the whole image).
class CZoomView {
public:
    // Whole image at 100 %.
    void SetSize(int32_t width, int32_t height);
    void Reset() { SetSize(m_width, m_height); }
    // Shows exactly `rect` (image coordinates); ignored when empty or at the zoom limit.
    void ZoomToRect(const QRect& rect);
    // Moves the visible rectangle by whole image pixels, stopping at the image's edges.
    void Pan(int dx, int dy);
    // Shows `zoom` percent around the anchor's centre, keeping the anchor's aspect when it fits.
    void SetZoom(int32_t zoom);
    void ZoomIn();
    void ZoomOut();

    int32_t Width() const { return m_width; }
    int32_t Height() const { return m_height; }
    QRect Anchor() const { return m_anchor; }
    QRect Visible() const { return m_visible; }
    int32_t Zoom() const { return m_zoom; }

    static constexpr int32_t kMaxZoom = 100000;

private:
    int32_t m_width = 0;
    int32_t m_height = 0;
    QRect m_anchor;
    QRect m_visible;
    int32_t m_zoom = 100;
};
