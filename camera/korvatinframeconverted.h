// A converted frame: the display and recording holder that stands for one received raw frame.
#pragma once

#include <korvatin/korvatinframe.h>

// A frame with a conversion buffer of its own, handed from the conversion thread to the display.
// It remembers which raw frame's pixels it currently stands for, so that the raw frame can go
// back to the spares when the holder is done with.
class CKorvatinFrameConverted : public CKorvatinFrame {
public:
    CKorvatinFrameConverted() = default;
    virtual ~CKorvatinFrameConverted();

    // The raw frame this holder stands for; null while the holder is free. Borrowed: the raw
    // frame belongs to the session.
    CKorvatinFrame* SourceRawFrame() const { return m_sourceRawFrame; }
    void SetSourceRawFrame(CKorvatinFrame* raw) { m_sourceRawFrame = raw; }

private:
    CKorvatinFrame* m_sourceRawFrame = nullptr;
};
