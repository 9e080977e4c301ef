// A converted frame: the display and recording holder that stands for one received raw frame.
#include "korvatinframeconverted.h"

// The conversion buffer is released by the session (ReleaseFrameBuffer) before the holder goes.
CKorvatinFrameConverted::~CKorvatinFrameConverted() = default;
