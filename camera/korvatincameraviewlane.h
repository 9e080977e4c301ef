// The camera session: the SDK camera together with everything one streaming session owns.
#pragma once

#include <korvatin/korvatinavifile.h>
#include <korvatin/korvatincamera.h>

#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

class CAppSettings;
class CAviRecordingThread;
class CFrameGrabThread;
class CKorvatinFrame;
class CKorvatinFrameConverted;

// The one object through which the main window talks to a connected camera. Created once from
// the application settings and reused for every connection. All operations run on the GUI
// thread; the settings are copied once, in the constructor.
//
// Streaming: the grab thread (CFrameGrabThread) receives raw frames into spare wrappers and puts
// them on the grabbed list; the conversion thread (CAviRecordingThread) moves each into a
// converted holder on the ready list, converting and recording it while a recording runs; the
// display takes ready holders (TakeDisplayFrame) and gives them back (ReturnDisplayFrame), which
// returns their raw frame to the spares. Frames move by pointer; pixels are copied only by
// conversion. At any moment each spare wrapper is in exactly one of the spare list, the grabbed
// list or the source of one converted holder; each raw buffer is either queued in the stream or
// described by exactly one wrapper.
//
// Lock order where two are held: m_convertedListMutex, then m_rawListMutex. m_recordMutex is
// always taken alone (a direct receiver of RecordStarted runs under it and must not take the
// others).
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
    // The size stream buffers fall back to when the camera's largest image cannot be had.
    static constexpr uint32_t kPixelBayerGR8 = 0x01080008;
    static constexpr uint32_t kFallbackWidth = 7920;
    static constexpr uint32_t kFallbackHeight = 6004;

    // Raw frames kept out of the stream, free to be swapped in for a received one.
    static constexpr int kSpareWrapperCount = 7;
    // Holders between the conversion thread and the display.
    static constexpr int kConvertedFrameCount = 5;
    // The display is never more than this many frames behind the camera.
    static constexpr int kMaxReadyConvertedFrames = 2;
    // Bayer interpolation codes of CKorvatinFrame::Convert.
    static constexpr uint32_t kBayerNone = 0;
    static constexpr uint32_t kBayerNearest = 1;
    static constexpr uint32_t kBayerBilinear = 3;
    // The text StartRecording throws when the file cannot be opened.
    static constexpr const char* kAviOpenFailed = "fail to open the AVI.";
    // What the conversion thread gives the AVI writer: Convert code bits 2 and 3 (a display
    // type) on top of the Bayer mode, 8 bits per channel; grey comes out as this type.
    static constexpr uint32_t kRecordingConvertCode = 12;
    static constexpr uint32_t kRecordingBitDepth = 8;
    static constexpr uint32_t kRecordingGreyType = 0x21084001;

    explicit CKorvatinCameraViewlane(const CAppSettings& settings);
    ~CKorvatinCameraViewlane() override;

    // Connects to `device` with the configured heartbeat and GenICam description, then reads
    // the largest image size every frame buffer is sized from. Throws CKorvatinException: the
    // session's own with kSessionError, the SDK's unchanged.
    void ConnectDevice(const GigEVisionDeviceInfo& device);
    // Stops the conversion thread, then the grab thread and the stream, then closes the
    // connection; harmless when not connected or not streaming. Converted holders the display
    // still holds are released too: the display gives them back first.
    void DisconnectDevice();

    // Starts streaming right after a connect: StartGrab, then the converted holders and the
    // conversion thread. Throws "GrabThread started already. Stop it before restarting." or
    // "fail to allocate memory." (kSessionError).
    void StartAcquisition();
    // Allocates the raw frame buffers (fewer, silently, when memory runs out), queues all but the
    // spares, starts the stream and the grab thread.
    void StartGrab();
    // Stops the grab thread (after its current frame wait ends), releases the raw frames, stops
    // the stream and drops the spare wrappers. Always after StopConversion.
    void StopGrab();

    // The oldest holder waiting for the display, or null. The caller owns it until it gives it
    // back with ReturnDisplayFrame; its SourceRawFrame() is the received image.
    CKorvatinFrameConverted* TakeDisplayFrame();
    // Gives a holder taken with TakeDisplayFrame back; its raw frame returns to the spares.
    void ReturnDisplayFrame(CKorvatinFrameConverted* frame);
    // Puts a raw frame wrapper back on the spare list.
    void ReturnRawFrame(CKorvatinFrame* raw);

    // Writes the received frame `raw` to `fileName` (local 8-bit encoding) as the viewer saves
    // frames: format 0 the sensor data as received, 1 TIFF through the RGB10Packed frame (more
    // than 8 bits kept as 16 per channel), 2 BMP through the 8-bit display type; Bayer mosaics
    // are interpolated with `bayerMode`. Any other format writes nothing. Throws
    // CKorvatinException when the frame cannot be converted or the file not written.
    void SaveFrame(const CKorvatinFrame& raw, const char* fileName, int format, uint32_t bayerMode);
    // Why `fileName` could not be written: a folder that does not exist or is not writable, a
    // file that is not writable, else an input/output error.
    static std::string WhyNotWritable(const char* fileName);
    // Why `fileName` cannot be created or rewritten as the file system shows it now, asked
    // before writing: the same reasons as WhyNotWritable, or empty when nothing stands in the way.
    static std::string WhyCannotWrite(const char* fileName);

    // Opens `fileName` as an AVI of the camera's current size, frame rate and colour (grey for
    // Mono formats and for Bayer formats recorded with bayerMode 0) and records every frame the
    // conversion thread passes on until StopRecording, or until maxFrames frames when it is above
    // 0 (0 and below: until stopped). Emits RecordStarted(true). Throws "fail to open the AVI."
    // (kSessionError).
    void StartRecording(const char* fileName, uint32_t bayerMode, int32_t maxFrames);
    // Ends a running recording and emits RecordStarted(false); nothing when not recording.
    void StopRecording();
    // Why the conversion thread ended the last recording by itself (a frame the file cannot
    // take: another size, grey turned colour, a format that cannot be converted), with the file
    // and the frames it holds; empty when it ended otherwise. Cleared by reading it and by
    // StartRecording.
    QString TakeRecordingEndReason();
    // Stops the conversion thread, gives the raw frames of waiting holders back, releases the
    // holders, and closes a running recording without announcing it.
    void StopConversion();

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

    // Observers of the streaming state, for tools and tests; each takes the lock that guards
    // what it reads.
    struct PipelineState {
        QList<CKorvatinFrame*> spareRawFrames;
        QList<CKorvatinFrame*> grabbedRawFrames;
        QList<CKorvatinFrameConverted*> freeConvertedFrames;
        QList<CKorvatinFrameConverted*> readyConvertedFrames;
    };
    // The four lists at one instant (both list locks held, in the lock order).
    PipelineState Pipeline();
    // Spare wrapper `index` (0 to kSpareWrapperCount - 1), null when not streaming.
    CKorvatinFrame* SpareWrapper(int index) const { return m_spareWrappers[index]; }
    // Converted holder `index` (0 to kConvertedFrameCount - 1), null when not streaming.
    CKorvatinFrameConverted* ConvertedFrame(int index) const { return m_convertedFrames[index]; }
    bool IsGrabbing() const { return m_grabThread != nullptr; }
    bool IsConverting() const { return m_conversionThread != nullptr; }
    // The most holders the ready list held at once since the conversion thread started.
    int ReadyConvertedFramesPeak() const { return m_readyConvertedFramesPeak.load(); }
    bool IsRecording();
    int32_t FramesRecorded();
    // Why the last recording file could not be opened, from the AVI writer.
    QString RecordingError();
    // Frames in the current recording file, or in the last one once it is closed.
    uint32_t RecordedFileFrames();

    // Frames received since the stream started. Written by the grab thread, read without a lock
    // by the frame-rate timer on the GUI thread; atomic so that each read sees a whole count.
    std::atomic<uint32_t> grabbedFrameCount{0};
    // Frames the grab thread received while no spare wrapper was free, and so gave straight back
    // to the stream: frames lost by the application, not by the network. Since the stream
    // started.
    std::atomic<uint32_t> framesWithoutSpare{0};

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
    CKorvatinFrame* m_spareWrappers[kSpareWrapperCount] = {}; // describe buffers out of the stream
    // Raw frames not queued to the stream, free to be swapped in. Guarded by m_rawListMutex.
    QList<CKorvatinFrame*> m_spareRawFrames;
    // Raw frames holding a received image, oldest first. Guarded by m_rawListMutex.
    QList<CKorvatinFrame*> m_grabbedRawFrames;
    // Guards m_spareRawFrames and m_grabbedRawFrames. Taken by the grab thread, the conversion
    // thread and the GUI thread; after m_convertedListMutex when both are held.
    QMutex m_rawListMutex;
    // Loop flag of the grab thread: set before it starts, cleared by StopGrab (GUI thread).
    std::atomic<bool> m_grabRunning{false};
    int32_t m_getFrameTimeoutMs;                    // time-out of each frame wait
    std::unique_ptr<CFrameGrabThread> m_grabThread; // null when not streaming

    std::unique_ptr<CAviRecordingThread> m_conversionThread; // null when not streaming
    CKorvatinFrameConverted* m_convertedFrames[kConvertedFrameCount] = {};
    // Holders not in use. Guarded by m_convertedListMutex.
    QList<CKorvatinFrameConverted*> m_freeConvertedFrames;
    // Holders waiting for the display, oldest first. Guarded by m_convertedListMutex.
    QList<CKorvatinFrameConverted*> m_readyConvertedFrames;
    // The AVI writer of the current recording. Guarded by m_recordMutex.
    CKorvatinAVIFile m_aviFile;
    int32_t m_maxFramesToRecord = 0; // 0 and below: unlimited. Guarded by m_recordMutex.
    int32_t m_framesRecorded = 0;    // since StartRecording. Guarded by m_recordMutex.
    QString m_recordingEndReason;    // see TakeRecordingEndReason. Guarded by m_recordMutex.
    bool m_recording = false; // between a successful Open and Close. Guarded by m_recordMutex.
    // Guards m_aviFile, m_recording, m_maxFramesToRecord, m_framesRecorded and
    // m_bayerConversionMode. Never held together with another session lock. RecordStarted is
    // emitted while it is held, so every receiver, direct or queued, hears the starts and ends
    // in the order they happened; it is recursive so that a direct receiver may stop or start
    // a recording or ask about it.
    QRecursiveMutex m_recordMutex;
    // Loop flag of the conversion thread: set before it starts, cleared by StopConversion.
    std::atomic<bool> m_conversionRunning{false};
    // Guards m_freeConvertedFrames and m_readyConvertedFrames. Taken by the conversion thread and
    // the GUI thread; before m_rawListMutex when both are held.
    QMutex m_convertedListMutex;
    uint32_t m_bayerConversionMode = kBayerNone;    // Convert mode while recording. m_recordMutex.
    std::atomic<int> m_readyConvertedFramesPeak{0}; // written by the conversion thread

    // Under m_recordMutex while recording: why `raw` cannot go into the open file through
    // `holder` (another size, grey turned colour or back, a format that cannot be converted, a
    // holder too small), or empty when it can.
    QString RecordingMismatch(const CKorvatinFrame& raw, const CKorvatinFrame& holder);
    // Under m_recordMutex: closes the file, ends the recording and keeps `reason` with the file
    // name and its frame count for TakeRecordingEndReason.
    void EndRecordingLocked(const QString& reason);

    friend class CFrameGrabThread;
    friend class CAviRecordingThread;
    // Frees the converted holders' buffers and the holders.
    void ReleaseConvertedFrames();

signals:
    // Declared for the main window's connections; the session itself does not emit it.
    void ConnectionStatusChanged(QString str);
    // True after a recording file has been opened, false when a recording ends by
    // StopRecording or by reaching its frame limit. Emitted on the GUI thread, except when the
    // frame limit ends a recording: then on the conversion thread, so receivers connect queued.
    void RecordStarted(bool start);
};
