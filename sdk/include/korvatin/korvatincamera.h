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
#include <string>

namespace korvatin {
class CameraConnection;
class StreamChannel;
struct ConversionContext;
} // namespace korvatin

// One object per camera the application talks to; it may connect, disconnect and connect to
// another device any number of times. Failures are thrown as CKorvatinException.
//
// Threads: feature access, connect and disconnect are meant for one thread at a time (the
// application's GUI thread). ListDevices, FindDevice and the static network tools may run on
// any thread.
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

    // Finds one device: `id` is a dotted IP address, a MAC address (six hex pairs separated by
    // '-' or ':') or a serial number. A device named by its IP address is asked directly
    // (unicast discovery from each chosen interface), so it is found on any subnet the host
    // can route to, also when it answers only on its own address; otherwise discovery goes to
    // the broadcast address `settings->broadcast` asks for. Either way the pass ends as soon as
    // the device has answered, at the latest after `settings->timeoutMs`. True with `device`
    // filled when it answered. A null `settings` means every interface, directed, 100 ms.
    static bool FindDevice(const char* id, GigEVisionDeviceInfo* device,
                           const ListDevicesSettings* settings);

    // Network tools. They name the device by its MAC address ("0a-3c-51-06-1a-fb": a text with
    // '-' or ':' is a MAC and must be a well-formed one) or by its serial number (any other
    // text), and work on every interface (KORVATIN_GEV_INTERFACES, when set, says which those
    // are) or only on the one whose dotted address is `interfaceAddress`. A serial number is
    // resolved to its device by a broadcast discovery that ends when the device answers.
    //
    // ForceIPEx sends GVCP FORCEIP for the device's MAC to 255.255.255.255 and waits for the
    // device's acknowledgement: the device takes the address, mask and gateway at once (until
    // its next restart). IP "0.0.0.0" (mask and gateway then do not matter) makes the device
    // restart its IP configuration: its persistent address when persistent IP is enabled, else
    // DHCP or link-local as the device does them. Throws QRN_ERR_INVALID for a malformed MAC or
    // address, QRN_ERR_NOT_FOUND for a device that does not answer at all, QRN_ERR_TIMEOUT for
    // a device that answers discovery but does not acknowledge FORCEIP, QRN_ERR_IO when the
    // device refuses the command.
    static void ForceIPEx(const char* macOrSerial, const char* ip, const char* subnetMask,
                          const char* gateway, const char* interfaceAddress = nullptr);
    // Finds the device, opens a control channel, executes its DeviceReset command and closes
    // without waiting for the device, which restarts. Throws QRN_ERR_NOT_FOUND for a device
    // that does not answer, QRN_ERR_ACCESS when another host controls the device (it is then
    // not reset), QRN_ERR_UNSUPPORTED for a device without DeviceReset.
    static void ForceReboot(const char* macOrSerial, const char* interfaceAddress = nullptr);

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
    // Opens the device as Connect does, for reading: when another host controls the device it
    // is opened without control, as GigE Vision lets a host that does not control a device read
    // its registers and memory; writes and streaming then fail.
    void ConnectForReading(const GigEVisionDeviceInfo& device, const char* xmlPath);
    // True when the connection holds control of the device; false for a ConnectForReading that
    // found another host in control, or when not connected.
    bool HoldsControl() const;
    // The address of the host that controls the device, as the device tells it (its primary
    // application address register), "an address the device does not tell" when it does not,
    // or empty when no host controls it. Asks from a socket of its own, so a connection of this
    // process counts as another host. Throws when the device does not answer.
    static std::string ControllingHost(const GigEVisionDeviceInfo& device);
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

    // The connected device's IP configuration from its bootstrap registers: the DHCP and
    // persistent-IP flags (0x0014) and the persistent address, mask and gateway (0x064C,
    // 0x065C, 0x066C). The addresses are in network byte order, the form of in_addr::s_addr,
    // so `inet_ntoa(in_addr{ip})` gives the dotted text.
    void ReadIpConfigure(bool& dhcp, bool& persistentIp, uint32_t& ip, uint32_t& subnetMask,
                         uint32_t& gateway);
    // Writes the persistent address, mask and gateway (dotted texts), then the two flags; the
    // other configuration bits (link-local) are kept. With `persistentIp` the address must be a
    // unicast address and the mask a contiguous, non-zero one (QRN_ERR_INVALID otherwise,
    // before anything is written). The device uses the configuration when it next restarts its
    // IP configuration: after a reset or a FORCEIP to 0.0.0.0 (ForceIPEx).
    void WriteIpConfigure(bool dhcp, bool persistentIp, const char* ip, const char* subnetMask,
                          const char* gateway);

    // Writes the firmware image in `file` into the connected camera's file "Firmware", or
    // "FirmwareAlternate" (the alternate flash address) when `alternate` is set, through the
    // standard file access features, one FileAccessBuffer at a time; then reads it back and
    // compares. Progress goes to `callback` (may be null) on the calling thread: event 1 at the
    // start, 2 with the percentage (of the bytes written and read back) as decimal text and as
    // `value`, 3 before the verification, and 4 exactly once at the end with the final text, on
    // failure too. Returns 0 or the failure's code; throws nothing. With QRN_DEBUG_EEPROM_UPDATE
    // set to 0 the file and the camera are checked and nothing is written.
    QRN_ERROR FirmwareUpgrade(const char* file, bool alternate, ProgressCallback callback,
                              void* context);
    // The same for a GenICam description (plain XML or a zip holding one) into the file
    // "DeviceDescription"; the file must load as a description in this SDK before anything is
    // written.
    QRN_ERROR ProgramXML(const char* file, ProgressCallback callback, void* context);

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
    // Images lost since ClearDroppedFrameCount: every block id the stream skipped between two
    // complete images (closed incomplete, or never given a buffer), and the incomplete images
    // since the last complete one.
    uint32_t GetDroppedFrameCount();
    void ClearDroppedFrameCount();
    // Since ClearDroppedFrameCount, as Aravis counts them: packets the camera sent again on
    // request, and images closed incomplete. Tells a lossy network (many packets resent) from
    // a host that falls behind (images lost with few resends).
    uint64_t GetResentPacketCount();
    uint64_t GetIncompleteFrameCount();
    // The same counts and the packets Aravis gave up on (missing), since this camera object was
    // made and never cleared: a statistics view takes its own starting point.
    struct StreamTotals {
        uint64_t droppedFrames = 0;
        uint64_t incompleteFrames = 0;
        uint64_t resentPackets = 0;
        uint64_t missingPackets = 0;
    };
    StreamTotals GetStreamTotals();
    // Buffers from AllocateFrameBuffer not yet freed: a buffer released while the stream holds
    // it counts until the stream lets it go. For leak checks.
    size_t AllocatedFrameBufferCount();
    // Scratch memory and worker threads for CKorvatinFrame::Convert; lives as long as the camera.
    void* ConversionContext();

private:
    // Connect and ConnectForReading: a connection with or without control of the device.
    void Open(const GigEVisionDeviceInfo& device, const char* xmlPath, bool control);
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
