// The SDK's camera: discovery, connection and by-name GenICam feature access of one device
// (the network tools are in korvatincameranetwork.cpp).
#include "korvatin/korvatincamera.h"

#include "cameraconnection.h"
#include "conversioncontext.h"
#include "gvcpdiscovery.h"
#include "streamchannel.h"

#include <arv.h>

#include <cstring>
#include <string>

#ifndef KORVATIN_SDK_VERSION
#define KORVATIN_SDK_VERSION "unknown"
#endif

namespace {

constexpr int32_t kDefaultDiscoveryTimeoutMs = 100;

// What a camera without the integer FrameRate offers instead (SFNC).
constexpr const char* kFrameRate = "FrameRate";
constexpr const char* kAcquisitionFrameRate = "AcquisitionFrameRate";

} // namespace

CKorvatinCamera::CKorvatinCamera()
    : stream_(std::make_unique<korvatin::StreamChannel>()),
      conversionContext_(std::make_unique<korvatin::ConversionContext>()) {}

CKorvatinCamera::~CKorvatinCamera() {
    Disconnect();
}

unsigned int CKorvatinCamera::ListDevices(GigEVisionDeviceInfo* buffer, unsigned int maxCount,
                                          unsigned int* count,
                                          const ListDevicesSettings* settings) {
    if (count != nullptr)
        *count = 0;
    if (buffer == nullptr && maxCount > 0)
        throw CKorvatinException("ListDevices needs a buffer for the descriptors", QRN_ERR_INVALID);
    const int32_t timeoutMs =
        settings != nullptr ? settings->timeoutMs : kDefaultDiscoveryTimeoutMs;
    const char* interfaceAddress = settings != nullptr ? settings->interfaceAddress : nullptr;
    const bool broadcast = settings != nullptr && settings->broadcast != 0;
    const auto interfaces = korvatin::GvcpDiscovery::ChooseInterfaces(interfaceAddress);
    korvatin::DiscoveryRequest request;
    request.destination = broadcast ? korvatin::DiscoveryRequest::Destination::Broadcast
                                    : korvatin::DiscoveryRequest::Destination::DirectedBroadcast;
    request.timeoutMs = timeoutMs;
    const unsigned int found =
        korvatin::GvcpDiscovery::Discover(interfaces, request, buffer, maxCount);
    if (count != nullptr)
        *count = found;
    return found;
}

const char* CKorvatinCamera::SDKVersion() {
    static const std::string version = std::string("Korvatin SDK ") + KORVATIN_SDK_VERSION +
                                       " on Aravis " + std::to_string(arv_get_major_version()) +
                                       "." + std::to_string(arv_get_minor_version()) + "." +
                                       std::to_string(arv_get_micro_version());
    return version.c_str();
}

void CKorvatinCamera::SetGvcpTimeout(int32_t units) {
    gvcpTimeoutUnits_ = units > 0 ? units : 1;
}

int32_t CKorvatinCamera::GvcpTimeout() const {
    return gvcpTimeoutUnits_;
}

void CKorvatinCamera::SetHeartbeatDisable(bool disable) {
    heartbeatDisable_ = disable;
}

bool CKorvatinCamera::HeartbeatDisable() const {
    return heartbeatDisable_;
}

void CKorvatinCamera::Connect(const GigEVisionDeviceInfo& device, const char* xmlPath) {
    Open(device, xmlPath, true);
}

void CKorvatinCamera::ConnectForReading(const GigEVisionDeviceInfo& device, const char* xmlPath) {
    Open(device, xmlPath, false);
}

void CKorvatinCamera::Open(const GigEVisionDeviceInfo& device, const char* xmlPath, bool control) {
    Disconnect();
    korvatin::CameraConnection::Options options;
    options.gvcpTimeoutUnits = gvcpTimeoutUnits_;
    options.xmlPath = xmlPath;
    options.control = control;
    // Without control nothing is written, the heartbeat setting included.
    if (control)
        options.heartbeatDisable = heartbeatDisable_;
    auto connection = std::make_unique<korvatin::CameraConnection>(device, options);
    connection->SetLostCallback(connectionCallback_, connectionCallbackContext_);
    connection_ = std::move(connection);
}

bool CKorvatinCamera::HoldsControl() const {
    return connection_ && connection_->HoldsControl();
}

void CKorvatinCamera::Disconnect() {
    // A running stream is stopped while the device can still be told to stop acquisition.
    StopStream();
    connection_.reset();
}

bool CKorvatinCamera::IsConnected() const {
    return connection_ != nullptr;
}

const GigEVisionDeviceInfo* CKorvatinCamera::ConnectedDeviceInfo() const {
    return connection_ ? &connection_->Info() : nullptr;
}

int CKorvatinCamera::XmlIndexLoaded() const {
    return connection_ ? connection_->XmlIndex() : 0;
}

void CKorvatinCamera::SetConnectionCallBackFunc(ConnectionCallback callback, void* context) {
    connectionCallback_ = callback;
    connectionCallbackContext_ = context;
    if (connection_)
        connection_->SetLostCallback(callback, context);
}

void CKorvatinCamera::CreateGeniCamTreeFromFile(const char* path) {
    if (!connection_)
        throw CKorvatinException("No camera is connected", QRN_ERR_NOT_CONNECTED);
    connection_->LoadDescriptionFile(path);
}

QRN_ERROR CKorvatinCamera::ClearGvcpReplyBuffer() {
    return QRN_OK;
}

CKorvatinGenICamNodeT CKorvatinCamera::GetNodeByName(const char* name) {
    if (!connection_)
        throw CKorvatinException("No camera is connected", QRN_ERR_NOT_CONNECTED);
    if (name == nullptr)
        throw CKorvatinException("No feature name given", QRN_ERR_INVALID);
    return CKorvatinGenICamNodeT(connection_->Description(), name);
}

CKorvatinGenICamNodeT CKorvatinCamera::GetGENiCAMRoot() {
    return GetNodeByName("Root");
}

namespace {

// True when `name` asks for FrameRate on a camera that only has the float
// AcquisitionFrameRate; the integer accessors then read that one, truncated.
bool useAcquisitionFrameRate(const std::shared_ptr<korvatin::GenicamDescription>& description,
                             const char* name) {
    if (name == nullptr || std::strcmp(name, kFrameRate) != 0)
        return false;
    ArvGcFeatureNode* frameRate = description->FindFeature(kFrameRate);
    if (frameRate != nullptr && ARV_IS_GC_INTEGER(frameRate))
        return false;
    ArvGcFeatureNode* acquisition = description->FindFeature(kAcquisitionFrameRate);
    return acquisition != nullptr && ARV_IS_GC_FLOAT(acquisition);
}

uint32_t truncated(double value) {
    if (!(value > 0.0))
        return 0;
    if (value >= 4294967295.0)
        return 4294967295u;
    return static_cast<uint32_t>(value);
}

} // namespace

uint32_t CKorvatinCamera::GetUInt32(const char* name) {
    if (connection_ && useAcquisitionFrameRate(connection_->Description(), name))
        return truncated(GetNodeByName(kAcquisitionFrameRate).GetDouble());
    return GetNodeByName(name).GetUInt32();
}

uint32_t CKorvatinCamera::GetUInt32Min(const char* name) {
    if (connection_ && useAcquisitionFrameRate(connection_->Description(), name))
        return truncated(GetNodeByName(kAcquisitionFrameRate).GetDoubleMin());
    return GetNodeByName(name).GetUInt32Min();
}

uint32_t CKorvatinCamera::GetUInt32Max(const char* name) {
    if (connection_ && useAcquisitionFrameRate(connection_->Description(), name))
        return truncated(GetNodeByName(kAcquisitionFrameRate).GetDoubleMax());
    return GetNodeByName(name).GetUInt32Max();
}

uint32_t CKorvatinCamera::GetUInt32Inc(const char* name) {
    if (connection_ && useAcquisitionFrameRate(connection_->Description(), name))
        return 1;
    return GetNodeByName(name).GetUInt32Inc();
}

void CKorvatinCamera::SetUInt32(const char* name, uint32_t value) {
    GetNodeByName(name).SetUInt32(value);
}

int32_t CKorvatinCamera::GetInt32(const char* name) {
    return GetNodeByName(name).GetInt32();
}

int32_t CKorvatinCamera::GetInt32Min(const char* name) {
    return GetNodeByName(name).GetInt32Min();
}

int32_t CKorvatinCamera::GetInt32Max(const char* name) {
    return GetNodeByName(name).GetInt32Max();
}

int32_t CKorvatinCamera::GetInt32Inc(const char* name) {
    return GetNodeByName(name).GetInt32Inc();
}

void CKorvatinCamera::SetInt32(const char* name, int32_t value) {
    GetNodeByName(name).SetInt32(value);
}

double CKorvatinCamera::GetDouble(const char* name) {
    return GetNodeByName(name).GetDouble();
}

void CKorvatinCamera::SetDouble(const char* name, double value) {
    GetNodeByName(name).SetDouble(value);
}

bool CKorvatinCamera::GetBool(const char* name) {
    return GetNodeByName(name).GetBool();
}

void CKorvatinCamera::SetBool(const char* name, bool value) {
    GetNodeByName(name).SetBool(value);
}

void CKorvatinCamera::GetString(const char* name, char* buffer, unsigned long size,
                                unsigned long* length) {
    GetNodeByName(name).GetString(buffer, size, length);
}

void CKorvatinCamera::SetString(const char* name, const char* value) {
    GetNodeByName(name).SetString(value);
}

void CKorvatinCamera::GetEnum(const char* name, char* buffer, unsigned long size,
                              unsigned long* length) {
    GetNodeByName(name).GetEnum(buffer, size, length);
}

void CKorvatinCamera::SetEnumByString(const char* name, const char* value) {
    GetNodeByName(name).SetEnumByString(value);
}

void CKorvatinCamera::ExecuteCommand(const char* name) {
    GetNodeByName(name).ExecuteCommand();
}

void CKorvatinCamera::GetParamAttr(const char* name, QrnParamAttribute* attribute) {
    if (attribute == nullptr)
        throw CKorvatinException("GetParamAttr needs an attribute record", QRN_ERR_INVALID);
    std::memset(attribute, 0, sizeof *attribute);
    if (!connection_)
        throw CKorvatinException("No camera is connected", QRN_ERR_NOT_CONNECTED);
    if (name == nullptr || connection_->Description()->FindFeature(name) == nullptr) {
        attribute->dataType = 0xFFFFFFFFu;
        return;
    }
    const CKorvatinGenICamNodeT node = GetNodeByName(name);
    attribute->dataType = static_cast<uint32_t>(node.DataType());
    attribute->accessMode = static_cast<uint32_t>(node.AccessMode());
    attribute->cachable = node.IsCachable() ? 1 : 0;
    node.Name(attribute->name, sizeof attribute->name, nullptr);
    node.DisplayName(attribute->displayName, sizeof attribute->displayName, nullptr);
}

namespace {

// The camera's PayloadSize; 0 when not connected or when the camera has none (a stream buffer is
// then sized from its frame alone).
size_t readPayloadSize(CKorvatinCamera& camera) {
    if (!camera.IsConnected())
        return 0;
    try {
        return camera.GetNodeByName("PayloadSize").GetUInt32();
    } catch (const CKorvatinException&) {
        return 0;
    }
}

} // namespace

QRN_ERROR CKorvatinCamera::AllocateFrameBuffer(CKorvatinFrame* frame, int kind) {
    if (frame == nullptr || (kind != 0 && kind != 1))
        return QRN_ERR_INVALID;
    if (kind == 0)
        return stream_->Allocate(frame, korvatin::StreamChannel::Kind::Conversion, 0);
    // A stream buffer must hold whatever the camera sends: at least its PayloadSize. While a
    // stream runs, the value read when it started: a buffer allocated right after StartStream
    // then costs no round trip to the camera, which is already sending.
    size_t payloadSize = 0;
    if (!stream_->StreamPayloadSize(&payloadSize))
        payloadSize = readPayloadSize(*this);
    return stream_->Allocate(frame, korvatin::StreamChannel::Kind::Stream, payloadSize);
}

QRN_ERROR CKorvatinCamera::ReleaseFrameBuffer(CKorvatinFrame* frame) {
    return stream_->Release(frame);
}

QRN_ERROR CKorvatinCamera::StartStream(void*) {
    if (!connection_)
        return QRN_ERR_NOT_CONNECTED;
    try {
        stream_->Start(connection_->Device(), connection_->Description(), readPayloadSize(*this));
    } catch (const CKorvatinException& e) {
        return e.Code() != QRN_OK ? e.Code() : QRN_ERR_IO;
    }
    return QRN_OK;
}

QRN_ERROR CKorvatinCamera::StopStream() {
    if (!connection_) {
        stream_->Stop(nullptr);
        return QRN_OK;
    }
    // A device that is gone is not asked to stop acquiring, and closing the stream does not
    // wait for it.
    connection_->GiveUpIfLost();
    stream_->Stop(connection_->IsLost() ? nullptr : connection_->Description());
    return QRN_OK;
}

QRN_ERROR CKorvatinCamera::QueueFrame(CKorvatinFrame* frame) {
    return stream_->Queue(frame);
}

QRN_ERROR CKorvatinCamera::GetFrame(CKorvatinFrame* frame, uint32_t timeoutMs) {
    return stream_->Receive(frame, timeoutMs);
}

uint32_t CKorvatinCamera::GetDroppedFrameCount() {
    return stream_->Dropped();
}

void CKorvatinCamera::ClearDroppedFrameCount() {
    stream_->ClearDropped();
}

uint64_t CKorvatinCamera::GetResentPacketCount() {
    return stream_->StreamStatistics().resentPackets;
}

uint64_t CKorvatinCamera::GetIncompleteFrameCount() {
    return stream_->StreamStatistics().incompleteFrames;
}

CKorvatinCamera::StreamTotals CKorvatinCamera::GetStreamTotals() {
    const korvatin::StreamChannel::Counts counts = stream_->StreamTotals();
    StreamTotals totals;
    totals.droppedFrames = counts.lost;
    totals.incompleteFrames = counts.incompleteFrames;
    totals.resentPackets = counts.resentPackets;
    totals.missingPackets = counts.missingPackets;
    return totals;
}

size_t CKorvatinCamera::AllocatedFrameBufferCount() {
    return stream_->BufferCount();
}

void* CKorvatinCamera::ConversionContext() {
    return conversionContext_.get();
}
