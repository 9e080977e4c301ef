// The camera session: the SDK camera together with everything one streaming session owns.
#pragma once

#include <korvatin/korvatincamera.h>

#include <QObject>
#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>

class CAppSettings;
class CKorvatinFrame;

// The one object through which the main window talks to a connected camera. Created once from
// the application settings and reused for every connection. All operations run on the GUI
// thread; the settings are copied once, in the constructor.
class CKorvatinCameraViewlane : public QObject, public CKorvatinCamera {
    Q_OBJECT
public:
    // The code carried by every error the session raises itself.
    static constexpr QRN_ERROR kSessionError = QRN_ERR_SESSION;
    // Fewer stream buffers than this cannot keep a stream going.
    static constexpr int32_t kMinimumBufferCount = 8;

    static constexpr uint32_t kPixelMono8 = 0x01080001;
    static constexpr uint32_t kPixelMono10Packed = 0x010C0004;
    static constexpr uint32_t kPixelMono10 = 0x01100003;
    static constexpr uint32_t kPixelBGR8Packed = 0x02180015;
    static constexpr uint32_t kPixelRGB10Packed = 0x02300018;

    explicit CKorvatinCameraViewlane(const CAppSettings& settings);
    ~CKorvatinCameraViewlane() override;

    // Connects to `device` with the configured heartbeat and GenICam description, then reads
    // the largest image size every frame buffer is sized from. Throws CKorvatinException: the
    // session's own with kSessionError, the SDK's unchanged.
    void ConnectDevice(const GigEVisionDeviceInfo& device);
    // Closes the connection; harmless when not connected.
    void DisconnectDevice();

    // The pixel type frames are displayed in, for a bound on the bits per pixel: the first of
    // Mono8, Mono10Packed, Mono10, BGR8Packed whose size in bits reaches the bound, else
    // RGB10Packed.
    static uint32_t SelectDisplayPixelType(int32_t maxBitsPerPixel);

    uint32_t MaxWidth() const { return m_maxWidth; }
    uint32_t MaxHeight() const { return m_maxHeight; }
    const QString& XmlFilePath() const { return m_xmlFilePath; }
    bool Heartbeat() const { return m_heartbeat; }
    int32_t RawFrameBufferCount() const { return m_rawFrameBufferCount; }
    int32_t MaxBitsPerPixel() const { return m_maxBitsPerPixel; }
    uint32_t DisplayPixelType() const { return m_displayPixelType; }
    // The raw frames, RawFrameBufferCount() entries; null until streaming fills them.
    CKorvatinFrame* RawFrame(int32_t index) const { return m_rawFrames[index]; }
    int32_t RawFramesAllocated() const { return m_rawFramesAllocated; }
    int32_t GetFrameTimeout() const { return m_getFrameTimeoutMs; }

    // Frames received since the stream started. Written by the grab thread, read without a lock
    // by the frame-rate timer on the GUI thread; atomic so that each read sees a whole count.
    std::atomic<uint32_t> grabbedFrameCount{0};

private:
    QString m_xmlFilePath;         // empty: the camera's own description
    bool m_heartbeat;              // keep the connection's heartbeat on
    int32_t m_rawFrameBufferCount; // number of stream buffers, at least 1
    uint32_t m_maxWidth = 0;       // GetUInt32Max("Width") at the last connect
    uint32_t m_maxHeight = 0;      // GetUInt32Max("Height") at the last connect
    int32_t m_maxBitsPerPixel;     // bound for the display pixel type, at least 1
    uint32_t m_displayPixelType;   // GigE Vision pixel-type code of displayed frames
    std::unique_ptr<CKorvatinFrame*[]> m_rawFrames; // m_rawFrameBufferCount entries
    int32_t m_rawFramesAllocated = 0;               // entries of m_rawFrames that hold a frame
    int32_t m_getFrameTimeoutMs;                    // time-out of each frame wait

signals:
    // Declared for the main window's connections; the session itself does not emit it.
    void ConnectionStatusChanged(QString str);
    // True after a recording file has been opened, false when a recording ends by
    // StopRecording or by reaching its frame limit. Emitted on the GUI thread, except when the
    // frame limit ends a recording: then on the conversion thread, so receivers connect queued.
    void RecordStarted(bool start);
};
