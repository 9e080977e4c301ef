// What the live-display benchmarks share: a display widget fed by a camera session as the
// viewer's window feeds it at connect.
#pragma once

#include <korvatincameraviewlane.h>
#include <loopbackdevice.h>
#include <qwidgetgrabbedframe.h>

#include <korvatin/korvatinframe.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace livedisplay {

// The display's conversion target: RGB10Packed with conversion attributes 1 and 8, as the window
// allocates it.
constexpr uint32_t kOutputPixelType = 0x02300018;

// Connects `session` to the simulator at `address` in `pixelFormat`, with no frame-rate limit
// from the feature (the simulator's --fps sets the rate), allocates `output` as the window's
// conversion target and hands it, the conversion context and `bayerMode` to `widget`. False,
// after saying why on standard error as `bench`, when the target cannot be allocated.
inline bool Connect(const char* bench, CKorvatinCameraViewlane& session,
                    CQwidgetGrabbedFrame& widget, CKorvatinFrame& output,
                    const std::string& address, const std::string& pixelFormat,
                    uint32_t bayerMode) {
    session.ConnectDevice(LoopbackDevice(address.c_str()));
    session.SetEnumByString("PixelFormat", pixelFormat.c_str());
    session.SetUInt32("FrameRate", 0);
    output.SetWidth(session.MaxWidth());
    output.SetHeight(session.MaxHeight());
    output.SetPixelType(kOutputPixelType);
    output.SetConversionAttributes(1, 8);
    if (session.AllocateFrameBuffer(&output, 0) != QRN_OK) {
        std::fprintf(stderr, "%s: no memory for the output frame\n", bench);
        return false;
    }
    widget.SetOutputFrame(&output);
    widget.SetConversionContext(session.ConversionContext());
    widget.SetBayerMode(bayerMode);
    return true;
}

} // namespace livedisplay
