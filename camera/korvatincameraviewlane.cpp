// The camera session: the SDK camera together with everything one streaming session owns.
#include "korvatincameraviewlane.h"

#include "appsettings.h"
#include "avirecordingthread.h"
#include "framegrabthread.h"
#include "korvatinframeconverted.h"
#include "metatypes.h"

#include <QByteArray>
#include <QFileInfo>
#include <QMutexLocker>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

namespace {

const char* const kTooFewBuffers =
    "Too few buffers have been allocated. A minimum of 8 buffers should be allocated.";
const char* const kGrabStartedAlready = "GrabThread started already. Stop it before restarting.";
const char* const kAllocationFailed = "fail to allocate memory.";

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

// Threads and frame buffers are stopped and released by DisconnectDevice before this runs; a
// thread still running here ends the process from its own destructor.
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
    // Shutdown order: the consumer of raw frames first, so that no holder refers to a raw frame
    // when the grab side releases the buffers; then the producer and the stream; then the device.
    StopConversion();
    StopGrab();
    Disconnect();
}

void CKorvatinCameraViewlane::StartAcquisition() {
    StartGrab();

    for (int i = 0; i < kConvertedFrameCount; ++i) {
        auto* holder = new CKorvatinFrameConverted;
        m_convertedFrames[i] = holder;
        holder->SetWidth(m_maxWidth);
        holder->SetHeight(m_maxHeight);
        holder->SetPixelType(m_displayPixelType);
        holder->SetConversionAttributes(11, 8);
        if (AllocateFrameBuffer(holder, 0) != QRN_OK) {
            // Not yet allocated: nothing to release for this one.
            m_convertedFrames[i] = nullptr;
            delete holder;
            ReleaseConvertedFrames();
            throw CKorvatinException(kAllocationFailed, kSessionError);
        }
        QMutexLocker lock(&m_convertedListMutex);
        m_freeConvertedFrames.append(holder);
    }

    m_readyConvertedFramesPeak = 0;
    m_conversionRunning = true;
    m_conversionThread = std::make_unique<CAviRecordingThread>(this);
    m_conversionThread->start(QThread::InheritPriority);
}

void CKorvatinCameraViewlane::StartGrab() {
    if (m_grabThread)
        throw CKorvatinException(kGrabStartedAlready, kSessionError);

    grabbedFrameCount = 0;
    framesWithoutSpare = 0;
    // A stream that does not start shows as no frame arriving; the grab thread only waits.
    StartStream(nullptr);
    m_rawFramesAllocated = 0;

    for (int32_t i = 0; i < m_rawFrameBufferCount; ++i) {
        auto* raw = new CKorvatinFrame;
        raw->SetWidth(m_maxWidth);
        raw->SetHeight(m_maxHeight);
        raw->SetPixelType(m_displayPixelType);
        QRN_ERROR result = AllocateFrameBuffer(raw, 1);
        if (result == QRN_ERR_NO_MEMORY) {
            raw->SetWidth(kFallbackWidth);
            raw->SetHeight(kFallbackHeight);
            raw->SetPixelType(kPixelBayerGR8);
            result = AllocateFrameBuffer(raw, 1);
        }
        if (result != QRN_OK) {
            // Deliberately silent: the stream runs with the buffers obtained so far.
            delete raw;
            break;
        }
        if (i < kSpareWrapperCount) {
            auto* wrapper = new CKorvatinFrame;
            m_spareWrappers[i] = wrapper;
            wrapper->UpdateFrame(*raw);
            QMutexLocker lock(&m_rawListMutex);
            m_spareRawFrames.append(wrapper);
        } else if (QueueFrame(raw) != QRN_OK) {
            ReleaseFrameBuffer(raw);
            delete raw;
            break;
        }
        m_rawFrames[i] = raw;
        ++m_rawFramesAllocated;
    }

    // A barrier: everything written above is visible to the grab thread.
    m_rawListMutex.lock();
    m_rawListMutex.unlock();

    // Set here rather than by the thread, so that a StopGrab right after this always finds the
    // thread running and waits for it.
    m_grabRunning = true;
    m_grabThread = std::make_unique<CFrameGrabThread>(this);
    m_grabThread->start(QThread::InheritPriority);
}

void CKorvatinCameraViewlane::StopGrab() {
    m_grabRunning = false;
    if (m_grabThread) {
        // The loop ends when its current frame wait returns: at most one time-out (100 ms when
        // the configured one is 0 or negative).
        m_grabThread->wait();
        m_grabThread.reset();
    }

    for (int32_t i = 0; i < m_rawFramesAllocated; ++i) {
        ReleaseFrameBuffer(m_rawFrames[i]);
        delete m_rawFrames[i];
        m_rawFrames[i] = nullptr;
    }
    m_rawFramesAllocated = 0;

    StopStream();

    QMutexLocker lock(&m_rawListMutex);
    for (CKorvatinFrame*& wrapper : m_spareWrappers) {
        delete wrapper;
        wrapper = nullptr;
    }
    m_spareRawFrames.clear();
    m_grabbedRawFrames.clear();
}

CKorvatinFrameConverted* CKorvatinCameraViewlane::TakeDisplayFrame() {
    QMutexLocker lock(&m_convertedListMutex);
    if (m_readyConvertedFrames.isEmpty())
        return nullptr;
    return m_readyConvertedFrames.takeFirst();
}

void CKorvatinCameraViewlane::ReturnDisplayFrame(CKorvatinFrameConverted* frame) {
    QMutexLocker lock(&m_convertedListMutex);
    if (frame->SourceRawFrame())
        ReturnRawFrame(frame->SourceRawFrame());
    frame->SetSourceRawFrame(nullptr);
    m_freeConvertedFrames.append(frame);
    frame->SetPixelType(0);
}

void CKorvatinCameraViewlane::ReturnRawFrame(CKorvatinFrame* raw) {
    QMutexLocker lock(&m_rawListMutex);
    m_spareRawFrames.append(raw);
}

void CKorvatinCameraViewlane::StartRecording(const char* fileName, uint32_t bayerMode,
                                             int32_t maxFrames) {
    // The camera is read before the record lock is taken: the conversion thread takes that lock
    // for every frame, and four reads over the network would hold it up long enough to lose
    // frames at the start of every recording. A failed read fails the start with the SDK's text.
    const uint32_t width = GetUInt32("Width");
    const uint32_t height = GetUInt32("Height");
    const double frameRate = double(GetUInt32("FrameRate"));
    char pixelFormat[64] = {};
    GetEnum("PixelFormat", pixelFormat, sizeof(pixelFormat));
    bool colour = true;
    if (std::strncmp(pixelFormat, "Mono", 4) == 0)
        colour = false;
    else if (std::strncmp(pixelFormat, "Bayer", 5) == 0 && bayerMode == kBayerNone)
        colour = false; // the mosaic recorded without interpolation is grey

    // Holders sized for a display type of fewer than 3 bytes per pixel (a low
    // resource/maxBitsPerPixel) cannot take a colour frame: refused here rather than found by
    // the conversion.
    const size_t needed = size_t(width) * height * (colour ? 3 : 1);
    const CKorvatinFrameConverted* holder = m_convertedFrames[0];
    if (holder && holder->BufferSize() < needed)
        throw CKorvatinException(
            QString("a %1 x %2 colour frame needs %3 bytes, but the recording buffers hold %4 "
                    "(resource/maxBitsPerPixel %5 is too low for colour; 17 or more is needed)")
                .arg(width)
                .arg(height)
                .arg(needed)
                .arg(holder->BufferSize())
                .arg(m_maxBitsPerPixel)
                .toStdString(),
            kSessionError);

    {
        QMutexLocker lock(&m_recordMutex);
        m_bayerConversionMode = bayerMode;
        m_maxFramesToRecord = maxFrames;
        m_framesRecorded = 0;
        m_recordingEndReason.clear();

        m_aviFile.SetWidth(width);
        m_aviFile.SetHeight(height);
        m_aviFile.SetFrameRate(frameRate);
        m_aviFile.SetColor(colour);
        m_aviFile.SetFileName(fileName);
        if (m_aviFile.Open() != QRN_OK) {
            lock.unlock();
            throw CKorvatinException(CKorvatinCameraViewlane::kAviOpenFailed, kSessionError);
        }
        m_recording = true;
        // Announced under the lock: the conversion thread cannot end this recording, and so
        // announce its end, before its start is announced.
        emit RecordStarted(true);
    }
}

QString CKorvatinCameraViewlane::RecordingMismatch(const CKorvatinFrame& raw,
                                                   const CKorvatinFrame& holder) {
    uint32_t type = 0;
    size_t bytes = 0;
    const QRN_ERROR layout = CKorvatinFrame::ConvertedLayout(
        raw, m_bayerConversionMode | kRecordingConvertCode, kRecordingBitDepth, &type, &bytes);
    const QString pixelType = QString("0x%1").arg(raw.PixelType(), 8, 16, QChar('0'));
    if (layout == QRN_ERR_UNSUPPORTED)
        return QString("the camera sends pixel type %1, which cannot be converted for recording")
            .arg(pixelType);
    if (layout != QRN_OK)
        return QString("a %1 x %2 frame of pixel type %3 could not be read")
            .arg(raw.Width())
            .arg(raw.Height())
            .arg(pixelType);
    if (raw.Width() != m_aviFile.Width() || raw.Height() != m_aviFile.Height())
        return QString("the image size changed from %1 x %2 to %3 x %4")
            .arg(m_aviFile.Width())
            .arg(m_aviFile.Height())
            .arg(raw.Width())
            .arg(raw.Height());
    const bool colour = type != kRecordingGreyType;
    if (colour != m_aviFile.Color())
        return colour ? QString("the images changed from grey to colour (pixel type %1)")
                            .arg(pixelType)
                      : QString("the images changed from colour to grey (pixel type %1)")
                            .arg(pixelType);
    if (bytes > holder.BufferSize())
        return QString("a %1 x %2 frame needs %3 bytes, but the recording buffers hold %4")
            .arg(raw.Width())
            .arg(raw.Height())
            .arg(bytes)
            .arg(holder.BufferSize());
    return QString();
}

void CKorvatinCameraViewlane::EndRecordingLocked(const QString& reason) {
    m_aviFile.Close();
    m_recording = false;
    m_recordingEndReason = QString("%1; %2 holds the %3 frames recorded until then")
                               .arg(reason, QString::fromLocal8Bit(m_aviFile.FileName()))
                               .arg(m_aviFile.FrameCount());
}

QString CKorvatinCameraViewlane::TakeRecordingEndReason() {
    QMutexLocker lock(&m_recordMutex);
    return std::exchange(m_recordingEndReason, QString());
}

void CKorvatinCameraViewlane::StopRecording() {
    {
        QMutexLocker lock(&m_recordMutex);
        if (!m_recording)
            return;
        m_aviFile.Close();
        m_recording = false;
        emit RecordStarted(false);
    }
}

void CKorvatinCameraViewlane::StopConversion() {
    m_conversionRunning = false;
    if (m_conversionThread) {
        m_conversionThread->wait();
        m_conversionThread.reset();
    }

    {
        QMutexLocker lock(&m_convertedListMutex);
        for (CKorvatinFrameConverted* holder : m_readyConvertedFrames) {
            ReturnRawFrame(holder->SourceRawFrame());
            holder->SetSourceRawFrame(nullptr);
        }
        m_readyConvertedFrames.clear();
        m_freeConvertedFrames.clear();
    }
    ReleaseConvertedFrames();

    QMutexLocker lock(&m_recordMutex);
    if (m_recording) {
        // Closed without RecordStarted(false): the session is going away, not the recording.
        m_aviFile.Close();
        m_recording = false;
    }
}

void CKorvatinCameraViewlane::ReleaseConvertedFrames() {
    for (CKorvatinFrameConverted*& holder : m_convertedFrames) {
        if (!holder)
            continue;
        ReleaseFrameBuffer(holder);
        delete holder;
        holder = nullptr;
    }
}

CKorvatinCameraViewlane::PipelineState CKorvatinCameraViewlane::Pipeline() {
    PipelineState state;
    QMutexLocker convertedLock(&m_convertedListMutex);
    QMutexLocker rawLock(&m_rawListMutex);
    state.spareRawFrames = m_spareRawFrames;
    state.grabbedRawFrames = m_grabbedRawFrames;
    state.freeConvertedFrames = m_freeConvertedFrames;
    state.readyConvertedFrames = m_readyConvertedFrames;
    return state;
}

bool CKorvatinCameraViewlane::IsRecording() {
    QMutexLocker lock(&m_recordMutex);
    return m_recording;
}

int32_t CKorvatinCameraViewlane::FramesRecorded() {
    QMutexLocker lock(&m_recordMutex);
    return m_framesRecorded;
}

uint32_t CKorvatinCameraViewlane::RecordedFileFrames() {
    QMutexLocker lock(&m_recordMutex);
    return m_aviFile.FrameCount();
}

QString CKorvatinCameraViewlane::RecordingError() {
    QMutexLocker lock(&m_recordMutex);
    return QString::fromLocal8Bit(m_aviFile.LastError());
}

namespace {

std::string codeText(QRN_ERROR code) {
    switch (code) {
    case QRN_ERR_NOT_FOUND:
        return "no such file or directory";
    case QRN_ERR_IO:
        return "input/output error";
    case QRN_ERR_NO_MEMORY:
        return "out of memory";
    case QRN_ERR_ACCESS:
        return "permission denied";
    case QRN_ERR_INVALID:
        return "invalid frame or argument";
    case QRN_ERR_UNSUPPORTED:
        return "pixel format not supported";
    default:
        return "error " + std::to_string(code);
    }
}

} // namespace

void CKorvatinCameraViewlane::SaveFrame(const CKorvatinFrame& raw, const char* fileName, int format,
                                        uint32_t bayerMode) {
    QRN_ERROR result = QRN_OK;
    if (format == 0) {
        result = FrameSave(&raw, fileName, 0, 0, ConversionContext());
    } else if (format == 1 || format == 2) {
        const bool tiff = format == 1;
        CKorvatinFrame converted;
        converted.SetWidth(m_maxWidth);
        converted.SetHeight(m_maxHeight);
        converted.SetPixelType(kPixelRGB10Packed);
        if (tiff)
            converted.SetConversionAttributes(3, 0);
        else
            converted.SetConversionAttributes(11, 8);
        if (AllocateFrameBuffer(&converted, 0) != QRN_OK)
            throw CKorvatinException("fail to allocate memory.", kSessionError);
        struct Released {
            CKorvatinCameraViewlane& session;
            CKorvatinFrame& frame;
            ~Released() { session.ReleaseFrameBuffer(&frame); }
        } release{*this, converted};
        const QRN_ERROR converting = converted.Convert(raw, bayerMode | (tiff ? 4 : 12),
                                                       tiff ? 0 : 8, 1, ConversionContext());
        if (converting != QRN_OK) {
            char type[16];
            std::snprintf(type, sizeof(type), "0x%08X", raw.PixelType());
            throw CKorvatinException(std::string("cannot convert the frame (pixel type ") + type +
                                         "): " + codeText(converting),
                                     converting);
        }
        result = FrameSave(&converted, fileName, tiff ? 1 : 2, 0, nullptr);
    }
    if (result != QRN_OK)
        throw CKorvatinException(
            std::string("cannot create \"") + fileName + "\": " +
                (result == QRN_ERR_IO ? WhyNotWritable(fileName) : std::string(codeText(result))),
            result);
}

std::string CKorvatinCameraViewlane::WhyNotWritable(const char* fileName) {
    // Told after the write failed, from what the file system shows now.
    const std::string reason = WhyCannotWrite(fileName);
    return reason.empty() ? "input/output error (the disk may be full)" : reason;
}

std::string CKorvatinCameraViewlane::WhyCannotWrite(const char* fileName) {
    const QFileInfo file(QString::fromLocal8Bit(fileName));
    const QFileInfo folder(file.absolutePath());
    const std::string folderName = folder.absoluteFilePath().toLocal8Bit().toStdString();
    if (!folder.exists())
        return "the folder " + folderName + " does not exist";
    if (!folder.isDir())
        return folderName + " is not a folder";
    if (file.exists() && file.isDir())
        return "it is a folder";
    if (file.exists() && !file.isWritable())
        return "the file is not writable (permission denied)";
    if (!file.exists() && !folder.isWritable())
        return "the folder " + folderName + " is not writable (permission denied)";
    return std::string();
}
