// What the simulated camera's registers mean: power-on values, checked writes and what they do.
#include "registermodel.h"

#include "bigendian.h"
#include "gvcp.h"
#include "options.h"
#include "registermap.h"
#include "streamer.h"

#include <cmath>
#include <cstdio>
#include <cstring>

CRegisterModel::CRegisterModel(const COptions& options, std::string serial,
                               std::array<uint8_t, 6> mac, const std::atomic<uint32_t>& address,
                               const CStreamer* streamer, Description description)
    : options_(options), serial_(std::move(serial)), mac_(mac), address_(address),
      streamer_(streamer), registers_(options.anyAddress),
      files_(options.storeDirectory, serial_, options.slotSize, options.failWriteAt),
      description_(std::move(description)) {
    std::lock_guard<std::mutex> lock(mutex_);
    initialiseRegisters(true);
}

bool CRegisterModel::deviceRegistersActive() const {
    // A foreign description on any-address memory gives these addresses its own meaning.
    return options_.descriptionFile.empty() || !options_.anyAddress;
}

void CRegisterModel::installDescription() {
    const uint32_t size = uint32_t(description_.bytes.size());
    registers_.addRange(kDescriptionAddress, (size + 3) / 4 * 4, CRegisterMemory::Access::ReadOnly);
    registers_.write(kDescriptionAddress, description_.bytes.data(), size);
    char url[kUrlSize];
    std::snprintf(url, sizeof(url), "Local:%s;%X;%X", description_.fileName.c_str(),
                  kDescriptionAddress, size);
    registers_.writeString(kSecondUrl, kUrlSize, url);
    if (options_.brokenFirstUrl) {
        // A web address, as some cameras give first: a host cannot load it from the camera and
        // has to use the second URL. The .invalid domain never resolves.
        std::snprintf(url, sizeof(url), "http://camsim.invalid/%s", description_.fileName.c_str());
    }
    registers_.writeString(kFirstUrl, kUrlSize, url);
    files_.setCurrentDescription(description_.bytes);
}

// Power-on (or reset) state. Persistent settings survive a reset: IP configuration, persistent
// address, user name, files.
void CRegisterModel::initialiseRegisters(bool powerOn) {
    using Access = CRegisterMemory::Access;
    uint32_t ipConfig = kIpConfigDhcp | kIpConfigLla;
    uint32_t persistent[3] = {0, 0, 0};
    std::string userName;
    if (!powerOn) {
        ipConfig = registers_.readU32(kCurrentIpConfig);
        persistent[0] = registers_.readU32(kPersistentIp);
        persistent[1] = registers_.readU32(kPersistentMask);
        persistent[2] = registers_.readU32(kPersistentGateway);
        userName = registers_.readString(kUserName, 16);
    }
    registers_ = CRegisterMemory(options_.anyAddress);
    registers_.addRange(0, kBootstrapEnd, Access::ReadOnly);
    for (uint32_t a :
         {kCurrentIpConfig, kPersistentIp, kPersistentMask, kPersistentGateway, kHeartbeatTimeout,
          kTimestampControl, kGvcpConfiguration, kControlChannelPrivilege, kStreamPort,
          kStreamPacketSize, kStreamPacketDelay, kStreamDestination})
        registers_.addRange(a, 4, Access::ReadWrite);
    registers_.addRange(kUserName, 16, Access::ReadWrite);
    if (deviceRegistersActive()) {
        registers_.addRange(kDeviceBase, kDeviceSize, Access::ReadWrite);
        for (uint32_t a :
             {kPayloadSize, kWidthMax, kHeightMax, kFrameCounter, kFileOperationStatus,
              kFileOperationResult, kFileSize, kFileSizeMax, kExposureMax, kLutIndexMin,
              kLutIndexMax, kLutIndexInc, kLutValueMin, kLutValueMax, kLutValueInc})
            registers_.addRange(a, 4, Access::ReadOnly);
        registers_.addRange(kDeviceFirmwareVersion, 32, Access::ReadOnly);
        registers_.addRange(kTemperature, 8, Access::ReadOnly);
        registers_.addRange(kFileAccessBuffer, CFileAccess::kBufferSize, Access::ReadWrite);
    }

    const uint32_t address = address_;
    registers_.writeU32(kVersion, 0x00020000);    // GigE Vision 2.0
    registers_.writeU32(kDeviceMode, 0x80000001); // big-endian registers, UTF-8 strings
    registers_.writeU32(kMacHigh, uint32_t(mac_[0]) << 8 | mac_[1]);
    registers_.writeU32(kMacLow, get32(mac_.data() + 2));
    registers_.writeU32(kSupportedIpConfig, kIpConfigPersistent | kIpConfigDhcp | kIpConfigLla);
    registers_.writeU32(kCurrentIpConfig, ipConfig);
    registers_.writeU32(kCurrentIp, address);
    registers_.writeU32(kCurrentMask, subnetMaskOf(address));
    registers_.writeU32(kCurrentGateway, 0);
    registers_.writeString(kManufacturerName, 32, "Korvatin");
    registers_.writeString(kModelName, 32, "Korvatin Camsim");
    registers_.writeString(kDeviceVersion, 32, "2.11.04");
    registers_.writeString(kManufacturerInfo, 48, "Simulated camera of Korvatin Viewlane");
    registers_.writeString(kSerialNumber, 16, serial_);
    registers_.writeString(kUserName, 16, userName);
    registers_.writeU32(kNetworkInterfaces, 1);
    registers_.writeU32(kPersistentIp, persistent[0]);
    registers_.writeU32(kPersistentMask, persistent[1]);
    registers_.writeU32(kPersistentGateway, persistent[2]);
    registers_.writeU32(kMessageChannels, 0);
    registers_.writeU32(kStreamChannels, 1);
    // Write memory, packet resend, heartbeat disable, serial number and user name registers.
    registers_.writeU32(kGvcpCapability, 1u << 1 | 1u << 2 | 1u << 29 | 1u << 30 | 1u << 31);
    registers_.writeU32(kHeartbeatTimeout, 3000);
    registers_.writeU32(kTickFrequencyHigh, 0);
    registers_.writeU32(kTickFrequencyLow, 1000000000); // timestamps in nanoseconds
    registers_.writeU32(kStreamPacketSize, 1500);
    installDescription();

    if (deviceRegistersActive()) {
        registers_.writeU32(kWidthMax, options_.widthMax);
        registers_.writeU32(kHeightMax, options_.heightMax);
        registers_.writeU32(kWidth, options_.widthMax);
        registers_.writeU32(kHeight, options_.heightMax);
        registers_.writeU32(kPixelFormat, PixelFormat::Mono8);
        registers_.writeU32(kFrameRate, 30);
        registers_.writeU32(kExposure, 10000);
        registers_.writeU32(kHdrP1, 5000);
        registers_.writeU32(kHdrP2, 2500);
        registers_.writeU32(kExposureMax, exposureLimit(30));
        registers_.writeU32(kLutIndexMin, options_.lutIndex.min);
        registers_.writeU32(kLutIndexMax, options_.lutIndex.max);
        registers_.writeU32(kLutIndexInc, options_.lutIndex.inc);
        registers_.writeU32(kLutValueMin, options_.lutValue.min);
        registers_.writeU32(kLutValueMax, options_.lutValue.max);
        registers_.writeU32(kLutValueInc, options_.lutValue.inc);
        registers_.writeU32(kLutIndex, options_.lutIndex.min);
        registers_.writeU32(kFileSizeMax, files_.capacity());
        // The camera runs the image of its Firmware slot; one without a version header (or no
        // image) is the firmware it was built with.
        const std::string firmware = files_.runningFirmwareVersion();
        registers_.writeString(kDeviceFirmwareVersion, 32,
                               firmware.empty() ? kBuiltInFirmwareVersion : firmware);
        registers_.writeU32(kTestPatternMoving, 1);
        registers_.writeU32(kAutoSizeX, options_.widthMax);
        registers_.writeU32(kAutoSizeY, options_.heightMax);
        const uint8_t gain[8] = {0}; // 0.0 dB
        registers_.write(kGain, gain, 8);
    }
    // The table starts as the identity of its ranges: entry k the value k of N - 1 of the way
    // from the smallest to the largest, on the value increment (with the defaults, entry k = k).
    const CRange& values = options_.lutValue;
    const uint64_t entries = options_.lutEntries();
    lut_.assign(std::size_t(entries), 0);
    for (uint64_t k = 0; k < entries; ++k) {
        const uint64_t value = values.min + k * (values.max - values.min) / (entries - 1);
        lut_[std::size_t(k)] = uint16_t(value - (value - values.min) % values.inc);
    }
    controller_ = Controller();
    frameCounter_ = 0;
    timestampOrigin_ = std::chrono::steady_clock::now();
    refreshDynamicRegisters();
}

// Registers whose value the camera computes or that change by themselves.
void CRegisterModel::refreshDynamicRegisters() {
    registers_.writeU32(kCurrentIp, address_);
    registers_.writeU32(kControlChannelPrivilege, controller_.active ? controller_.privilege : 0);
    registers_.writeU32(kPrimaryApplicationPort, controller_.active ? controller_.port : 0);
    registers_.writeU32(kPrimaryApplicationIp, controller_.active ? controller_.address : 0);
    registers_.writeU32(kStreamSourcePort, streamer_ ? streamer_->sourcePort() : 0);
    if (!deviceRegistersActive())
        return;
    registers_.writeU32(kPayloadSize, CTestPattern::payloadSize(registers_.readU32(kWidth),
                                                                registers_.readU32(kHeight),
                                                                registers_.readU32(kPixelFormat)));
    registers_.writeU32(kFrameCounter, frameCounter_);
    registers_.writeU32(kLutValue, lut_[lutEntry(registers_.readU32(kLutIndex))]);
    // The sensor warms up after power-on and then drifts slowly around 45 C.
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - timestampOrigin_).count();
    const double temperature =
        45.0 - 10.0 * std::exp(-seconds / 60.0) + 0.5 * std::sin(seconds / 5.0);
    uint64_t bits = 0;
    std::memcpy(&bits, &temperature, 8);
    registers_.writeU32(kTemperature, uint32_t(bits >> 32));
    registers_.writeU32(kTemperature + 4, uint32_t(bits));
}

bool CRegisterModel::isController(const sockaddr_in& from) const {
    return controller_.active && controller_.address == ntohl(from.sin_addr.s_addr) &&
           controller_.port == ntohs(from.sin_port);
}

uint16_t CRegisterModel::writeRegister(uint32_t address, uint32_t value, const sockaddr_in& from,
                                       Actions* actions) {
    if (address % 4 != 0)
        return kBadAlignment;
    if (!registers_.exists(address, 4))
        return kInvalidAddress;
    if (address == kControlChannelPrivilege) {
        // Taking control needs nobody else to hold it; only the holder may give it up.
        if (controller_.active && !isController(from))
            return kAccessDenied;
        if ((value & (kPrivilegeControl | kPrivilegeExclusive)) == 0) {
            if (controller_.active) {
                controller_.active = false;
                actions->stopStream = true;
            }
        } else {
            controller_.active = true;
            controller_.address = ntohl(from.sin_addr.s_addr);
            controller_.port = ntohs(from.sin_port);
            controller_.privilege = value & (kPrivilegeControl | kPrivilegeExclusive);
            controller_.lastSeen = std::chrono::steady_clock::now();
        }
        registers_.writeU32(address, controller_.active ? controller_.privilege : 0);
        return kSuccess;
    }
    if (!isController(from))
        return kAccessDenied;
    if (!registers_.writable(address, 4))
        return kWriteProtect;
    switch (address) {
    case kCurrentIpConfig:
        registers_.writeU32(address, value & (kIpConfigPersistent | kIpConfigDhcp | kIpConfigLla));
        return kSuccess;
    case kHeartbeatTimeout:
        if (value < 100)
            return kInvalidParameter;
        registers_.writeU32(address, value);
        return kSuccess;
    case kTimestampControl:
        if (value & 0x1)
            timestampOrigin_ = std::chrono::steady_clock::now();
        if (value & 0x2) {
            const uint64_t ns = uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                             std::chrono::steady_clock::now() - timestampOrigin_)
                                             .count());
            registers_.writeU32(kTimestampHigh, uint32_t(ns >> 32));
            registers_.writeU32(kTimestampLow, uint32_t(ns));
        }
        return kSuccess;
    case kStreamPacketSize: {
        const uint32_t previous = registers_.readU32(address);
        uint32_t size = value & 0xFFFF;
        size = std::max(kMinPacketSize, std::min(kMaxPacketSize, size / 4 * 4));
        registers_.writeU32(address, (value & kDoNotFragment) | size);
        actions->fireTestPacket = actions->fireTestPacket || (value & kFireTestPacket);
        actions->doNotFragmentChanged = ((previous ^ value) & kDoNotFragment) != 0;
        return kSuccess;
    }
    case kStreamPort:
        registers_.writeU32(address, value & 0xFFFF);
        return kSuccess;
    default:
        break;
    }
    if (address >= kDeviceBase && deviceRegistersActive())
        return writeDeviceRegister(address, value, actions);
    registers_.writeU32(address, value);
    return kSuccess;
}

uint32_t CRegisterModel::exposureLimit(uint32_t frameRate) {
    return frameRate == 0 ? kExposureLimitUs : std::min(kExposureLimitUs, 1000000 / frameRate);
}

bool CRegisterModel::inRange(const CRange& range, uint32_t value) {
    return value >= range.min && value <= range.max && (value - range.min) % range.inc == 0;
}

std::size_t CRegisterModel::lutEntry(uint32_t index) const {
    const CRange& range = options_.lutIndex;
    const uint32_t clamped = std::max(range.min, std::min(index, range.max));
    return std::min<std::size_t>((clamped - range.min) / range.inc, lut_.size() - 1);
}

void CRegisterModel::limitExposure(uint32_t exposure) {
    registers_.writeU32(kExposure, exposure);
    // The knee points never exceed the exposure.
    const uint32_t p1 = std::min(registers_.readU32(kHdrP1), exposure);
    registers_.writeU32(kHdrP1, p1);
    registers_.writeU32(kHdrP2, std::min(registers_.readU32(kHdrP2), p1));
}

// The device registers check their ranges and act; a refused value leaves the register as it
// was and answers INVALID_PARAMETER.
uint16_t CRegisterModel::writeDeviceRegister(uint32_t address, uint32_t value, Actions* actions) {
    const uint32_t widthMax = options_.widthMax;
    const uint32_t heightMax = options_.heightMax;
    const int32_t signedValue = int32_t(value);
    bool valid = true;
    switch (address) {
    case kWidth:
        valid = value >= 16 && value % 4 == 0 && value <= widthMax - registers_.readU32(kOffsetX);
        break;
    case kHeight:
        valid = value >= 2 && value % 2 == 0 && value <= heightMax - registers_.readU32(kOffsetY);
        break;
    case kOffsetX:
        valid = value % 4 == 0 && value <= widthMax - registers_.readU32(kWidth);
        break;
    case kOffsetY:
        valid = value % 2 == 0 && value <= heightMax - registers_.readU32(kHeight);
        break;
    case kPixelFormat:
        valid = CTestPattern::isSupported(value);
        break;
    case kAcquisitionMode:
        valid = value == 0;
        break;
    case kAcquisitionStart:
        actions->startStream = true;
        return kSuccess;
    case kAcquisitionStop:
        actions->stopStream = true;
        return kSuccess;
    case kFrameRate:
        valid = value <= 10000;
        if (valid) {
            // A shorter frame period shortens a longer exposure, and the knee points with it.
            registers_.writeU32(kExposureMax, exposureLimit(value));
            limitExposure(std::min(registers_.readU32(kExposure), exposureLimit(value)));
        }
        break;
    case kExposure:
        valid = value >= 10 && value <= registers_.readU32(kExposureMax);
        if (valid)
            limitExposure(value);
        break;
    case kHdrP1:
        valid = value <= registers_.readU32(kExposure);
        if (valid)
            registers_.writeU32(kHdrP2, std::min(registers_.readU32(kHdrP2), value));
        break;
    case kHdrP2:
        valid = value <= registers_.readU32(kHdrP1);
        break;
    case kTriggerMode:
    case kTestPatternMoving:
    case kLutEnable:
    case kTlParamsLocked:
        valid = value <= 1;
        break;
    case kTriggerSoftware:
        actions->trigger = registers_.readU32(kTriggerMode) == 1;
        return kSuccess;
    case kDeviceReset:
        actions->reset = true;
        return kSuccess;
    case kBlackLevel:
        valid = signedValue >= -100 && signedValue <= 100;
        break;
    case kFocusPosition:
        valid = signedValue >= -1024 && signedValue <= 1024 && signedValue % 8 == 0;
        break;
    case kTestPatternSeed:
        valid = value <= 255;
        if (valid)
            ++seedGeneration_;
        break;
    case kAutoOffsetX:
        valid = value % 4 == 0 && value <= widthMax - 16;
        break;
    case kAutoOffsetY:
        valid = value % 2 == 0 && value <= heightMax - 2;
        break;
    case kAutoSizeX:
        valid = value >= 16 && value % 4 == 0 && value <= widthMax;
        break;
    case kAutoSizeY:
        valid = value >= 2 && value % 2 == 0 && value <= heightMax;
        break;
    case kLutIndex:
        valid = inRange(options_.lutIndex, value);
        break;
    case kLutValue:
        valid = inRange(options_.lutValue, value);
        if (valid)
            lut_[lutEntry(registers_.readU32(kLutIndex))] = uint16_t(value);
        break;
    case kExposureMax:
    case kLutIndexMin:
    case kLutIndexMax:
    case kLutIndexInc:
    case kLutValueMin:
    case kLutValueMax:
    case kLutValueInc:
        valid = false;
        break;
    case kFileSelector:
        valid = value < CFileAccess::kSlotCount;
        if (valid)
            registers_.writeU32(kFileSize, files_.size(value));
        break;
    case kFileOperationSelector:
        valid = value <= CFileAccess::Delete;
        break;
    case kFileOpenMode:
        valid = value <= CFileAccess::ModeReadWrite;
        break;
    case kFileAccessLength:
        valid = value <= CFileAccess::kBufferSize;
        break;
    case kFileOperationExecute:
        executeFileOperation();
        return kSuccess;
    default:
        break;
    }
    if (!valid)
        return kInvalidParameter;
    registers_.writeU32(address, value);
    return kSuccess;
}

void CRegisterModel::executeFileOperation() {
    const uint32_t slot = registers_.readU32(kFileSelector);
    std::vector<uint8_t> buffer(CFileAccess::kBufferSize);
    registers_.read(kFileAccessBuffer, buffer.data(), CFileAccess::kBufferSize);
    const uint32_t operation = registers_.readU32(kFileOperationSelector);
    const CFileAccess::Result result = files_.execute(
        slot, operation, registers_.readU32(kFileOpenMode), registers_.readU32(kFileAccessOffset),
        registers_.readU32(kFileAccessLength), buffer.data());
    if (operation == CFileAccess::Read && result.success)
        registers_.write(kFileAccessBuffer, buffer.data(), CFileAccess::kBufferSize);
    registers_.writeU32(kFileOperationStatus, result.success ? 0 : 1);
    registers_.writeU32(kFileOperationResult, result.count);
    registers_.writeU32(kFileSize, files_.size(slot));
}

void CRegisterModel::readStreamSettings(StreamSettings& settings) const {
    std::lock_guard<std::mutex> lock(mutex_);
    settings.destination = registers_.readU32(kStreamDestination);
    settings.port = uint16_t(registers_.readU32(kStreamPort));
    settings.packetSize = registers_.readU32(kStreamPacketSize) & 0xFFFF;
    settings.packetDelayNs = registers_.readU32(kStreamPacketDelay);
    settings.timestampOrigin = timestampOrigin_;
    double rate = options_.fps;
    if (deviceRegistersActive()) {
        settings.geometry.width = registers_.readU32(kWidth);
        settings.geometry.height = registers_.readU32(kHeight);
        settings.geometry.offsetX = registers_.readU32(kOffsetX);
        settings.geometry.offsetY = registers_.readU32(kOffsetY);
        settings.geometry.pixelFormat = registers_.readU32(kPixelFormat);
        settings.geometry.colourBars = options_.colourBars;
        const uint32_t featureRate = registers_.readU32(kFrameRate);
        if (featureRate > 0 && (rate <= 0 || featureRate < rate))
            rate = featureRate;
        settings.triggered = registers_.readU32(kTriggerMode) == 1;
        settings.moving = registers_.readU32(kTestPatternMoving) == 1;
        settings.seed = registers_.readU32(kTestPatternSeed);
        settings.seedGeneration = seedGeneration_;
        settings.lutEnabled = registers_.readU32(kLutEnable) == 1;
        if (settings.lutEnabled)
            settings.lut = LutTable{lut_, options_.lutValue.max};
    } else {
        settings.geometry =
            FrameGeometry{options_.widthMax, options_.heightMax, 0, 0, PixelFormat::Mono8};
    }
    settings.frameRate = rate;
}

void CRegisterModel::countFrame() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++frameCounter_;
}

void CRegisterModel::dropControl() {
    std::lock_guard<std::mutex> lock(mutex_);
    controller_.active = false;
    registers_.writeU32(kControlChannelPrivilege, 0);
}
