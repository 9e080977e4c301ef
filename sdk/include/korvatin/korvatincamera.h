// The SDK's camera: discovery, connection, GenICam features and maintenance of one GigE device.
#pragma once

#include "gigevisiondeviceinfo.h"
#include "korvatinexception.h"
#include "korvatinframe.h"
#include "korvatingenicamnodet.h"
#include "qrnerror.h"
#include "qrnparam.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace korvatin {
class CameraConnection;
class StreamChannel;
struct ConversionContext;
} // namespace korvatin

// One object per camera the application talks to; it may connect, disconnect and connect to
// another device any number of times. Failures are thrown as CKorvatinException.
//
// Threads: feature access, connect and disconnect are meant for one thread at a time (the
// application's GUI thread). ListDevices and the static network tools may run on any thread.
class CKorvatinCamera {
public:
    // Called once when the connected device stops answering (Aravis' control-lost); runs on an
    // SDK thread, never on the caller's. `reserved` is always null.
    using ConnectionCallback = void (*)(void* context, void* reserved);
    // Progress of firmware and description transfers: event 1 started, 2 percent as decimal
    // text, 3 message, 4 finished with the final text.
    using ProgressCallback = void (*)(void* context, int event, int value, const char* text);

    CKorvatinCamera();
    virtual ~CKorvatinCamera();
    CKorvatinCamera(const CKorvatinCamera&) = delete;
    CKorvatinCamera& operator=(const CKorvatinCamera&) = delete;

    // Discovery: sends GVCP DISCOVERY on the chosen interfaces and fills `buffer` with at most
    // `maxCount` descriptors, one per device, for `settings->timeoutMs`. Returns the count, also
    // stored in `*count`. A null `settings` means every interface, directed, 100 ms.
    // KORVATIN_GEV_INTERFACES (comma-separated names or addresses), when set, limits what
    // "every interface" means.
    static unsigned int ListDevices(GigEVisionDeviceInfo* buffer, unsigned int maxCount,
                                    unsigned int* count, const ListDevicesSettings* settings);

    // The SDK's version text, naming the Aravis version it runs on.
    static const char* SDKVersion();

    // Writes `frame` to `fileName`: format 0 raw (the image bytes as received, no header), 1 TIFF
    // (8 or 16 bits per sample, grey or RGB), 2 BMP. The two trailing arguments are reserved
    // (0 and null). Returns 0, or an error code; a file that cannot be written is removed.
    static QRN_ERROR FrameSave(const CKorvatinFrame* frame, const char* fileName, int format,
                               int reserved = 0, void* reservedPointer = nullptr);

    // Control-channel time-out in units of 100 ms (5 = 500 ms), applied at the next Connect.
    void SetGvcpTimeout(int32_t units);
    int32_t GvcpTimeout() const;
    // When set, Connect writes GevGVCPHeartbeatDisable (on cameras that have it).
    void SetHeartbeatDisable(bool disable);
    bool HeartbeatDisable() const;

    // Opens the device named by the descriptor's host-interface and current IP addresses and
    // takes control of it. The GenICam description comes from `xmlPath` (XML or zip) when it is
    // not null, else from the device (its first URL, then its second).
    void Connect(const GigEVisionDeviceInfo& device, const char* xmlPath);
    // Releases the device; harmless when not connected.
    void Disconnect();
    bool IsConnected() const;
    // The descriptor given to Connect, or null when not connected.
    const GigEVisionDeviceInfo* ConnectedDeviceInfo() const;
    // 1 when the device's own description had to come from its second URL, else 0.
    int XmlIndexLoaded() const;
    void SetConnectionCallBackFunc(ConnectionCallback callback, void* context);
    // Replaces the connection's GenICam description with the file's (XML or zip).
    void CreateGeniCamTreeFromFile(const char* path);
    // Aravis matches replies by packet id, so no stale reply can remain: succeeds, does nothing.
    QRN_ERROR ClearGvcpReplyBuffer();

    // By-name feature access on the connection's description. A feature the description lacks
    // is an exception naming it; so is a value of the wrong type or out of range.
    uint32_t GetUInt32(const char* name);
    uint32_t GetUInt32Min(const char* name);
    uint32_t GetUInt32Max(const char* name);
    uint32_t GetUInt32Inc(const char* name);
    void SetUInt32(const char* name, uint32_t value);
    int32_t GetInt32(const char* name);
    int32_t GetInt32Min(const char* name);
    int32_t GetInt32Max(const char* name);
    int32_t GetInt32Inc(const char* name);
    void SetInt32(const char* name, int32_t value);
    double GetDouble(const char* name);
    void SetDouble(const char* name, double value);
    bool GetBool(const char* name);
    void SetBool(const char* name, bool value);
    void GetString(const char* name, char* buffer, unsigned long size,
                   unsigned long* length = nullptr);
    void SetString(const char* name, const char* value);
    void GetEnum(const char* name, char* buffer, unsigned long size,
                 unsigned long* length = nullptr);
    void SetEnumByString(const char* name, const char* value);
    void ExecuteCommand(const char* name);
    // Fills `attribute`; a feature the camera lacks gives dataType 0xFFFFFFFF, not an exception.
    void GetParamAttr(const char* name, QrnParamAttribute* attribute);
    CKorvatinGenICamNodeT GetNodeByName(const char* name);
    // The description's "Root" category.
    CKorvatinGenICamNodeT GetGENiCAMRoot();

    // Streaming. Buffers: kind 1 is a stream buffer of at least the camera's PayloadSize (and of
    // the frame's width x height x bits), kind 0 a conversion buffer sized from the frame's width,
    // height and pixel type. Returns 0, or 12 (QRN_ERR_NO_MEMORY) when memory cannot be had.
    // ReleaseFrameBuffer frees the buffer the frame was given by AllocateFrameBuffer; it is safe
    // while that buffer is still queued in the stream (it is then freed when the stream lets it
    // go).
    QRN_ERROR AllocateFrameBuffer(CKorvatinFrame* frame, int kind);
    QRN_ERROR ReleaseFrameBuffer(CKorvatinFrame* frame);
    // Opens the stream channel (packet size negotiated) and starts acquisition; `attributes` is
    // reserved (null). StopStream stops acquisition and closes the channel; buffers still queued
    // are kept until released.
    QRN_ERROR StartStream(void* attributes);
    QRN_ERROR StopStream();
    // Hands the buffer `frame` describes to the stream to be filled.
    QRN_ERROR QueueFrame(CKorvatinFrame* frame);
    // Waits up to `timeoutMs` for the next complete image and makes `frame` describe it; 0, or
    // QRN_ERR_TIMEOUT. Incomplete images are requeued inside the SDK and counted as dropped.
    // Meant for one thread (the grab thread) while another queues.
    QRN_ERROR GetFrame(CKorvatinFrame* frame, uint32_t timeoutMs);
    // Images lost since ClearDroppedFrameCount (incomplete, or lost by the stream).
    uint32_t GetDroppedFrameCount();
    void ClearDroppedFrameCount();
    // Buffers from AllocateFrameBuffer not yet freed: a buffer released while the stream holds
    // it counts until the stream lets it go. For leak checks.
    size_t AllocatedFrameBufferCount();
    // Scratch memory and worker threads for CKorvatinFrame::Convert; lives as long as the camera.
    void* ConversionContext();

private:
    std::unique_ptr<korvatin::CameraConnection> connection_;
    // Frame buffers and the stream; they outlive connections (a buffer may be released after
    // Disconnect).
    std::unique_ptr<korvatin::StreamChannel> stream_;
    std::unique_ptr<korvatin::ConversionContext> conversionContext_;
    int32_t gvcpTimeoutUnits_ = 5;
    bool heartbeatDisable_ = false;
    ConnectionCallback connectionCallback_ = nullptr;
    void* connectionCallbackContext_ = nullptr;
};
