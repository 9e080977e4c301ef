// The camera session: the SDK camera together with everything one streaming session owns.
#include "korvatincameraviewlane.h"

#include "appsettings.h"
#include "metatypes.h"

#include <QByteArray>

namespace {

const char* const kTooFewBuffers =
    "Too few buffers have been allocated. A minimum of 8 buffers should be allocated.";

// Bits 16 to 23 of a GigE Vision pixel-type code: the bits one pixel occupies.
uint32_t bitsPerPixel(uint32_t pixelType) {
    return (pixelType >> 16) & 0xFF;
}

} // namespace

CKorvatinCameraViewlane::CKorvatinCameraViewlane(const CAppSettings& settings)
    : QObject(nullptr), m_xmlFilePath(settings.localXml), m_heartbeat(settings.heartbeat),
      m_rawFrameBufferCount(settings.allocatedBuffersCount < 1 ? 10
                                                               : settings.allocatedBuffersCount),
      m_maxBitsPerPixel(settings.maxBitsPerPixel <= 0 ? 24 : settings.maxBitsPerPixel),
      m_displayPixelType(SelectDisplayPixelType(m_maxBitsPerPixel)),
      m_rawFrames(new CKorvatinFrame*[m_rawFrameBufferCount]()),
      m_getFrameTimeoutMs(settings.getFrameTimeout) {
    RegisterCameraMetaTypes();
    SetGvcpTimeout(settings.GVCPTimeOut);
}

// Threads and frame buffers are stopped and released by DisconnectDevice before this runs.
CKorvatinCameraViewlane::~CKorvatinCameraViewlane() = default;

uint32_t CKorvatinCameraViewlane::SelectDisplayPixelType(int32_t maxBitsPerPixel) {
    static const uint32_t candidates[] = {kPixelMono8, kPixelMono10Packed, kPixelMono10,
                                          kPixelBGR8Packed};
    for (uint32_t candidate : candidates) {
        if (maxBitsPerPixel <= int32_t(bitsPerPixel(candidate)))
            return candidate;
    }
    return kPixelRGB10Packed;
}

void CKorvatinCameraViewlane::ConnectDevice(const GigEVisionDeviceInfo& device) {
    // Checked before anything touches the camera object or the network.
    if (m_rawFrameBufferCount < kMinimumBufferCount)
        throw CKorvatinException(kTooFewBuffers, kSessionError);

    SetHeartbeatDisable(!m_heartbeat);

    // A null path, not an empty one, asks for the camera's own description.
    const QByteArray xmlPath = m_xmlFilePath.toLocal8Bit();
    Connect(device, m_xmlFilePath.isEmpty() ? nullptr : xmlPath.constData());

    m_maxWidth = GetUInt32Max("Width");
    m_maxHeight = GetUInt32Max("Height");
}

void CKorvatinCameraViewlane::DisconnectDevice() {
    // Streaming stops here, before the device is closed: first the conversion thread, then the
    // grab thread, which releases the raw frame buffers. Both arrive with streaming support.
    Disconnect();
}
