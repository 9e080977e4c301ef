// One simulated GigE Vision camera: its control channel (GVCP), registers, files and stream.
#include "camera.h"

#include "gvcp.h"
#include "options.h"
#include "registermap.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint16_t kGvcpPort = 3956;
constexpr uint8_t kCommandKey = 0x42;
constexpr uint8_t kFlagAckRequired = 0x01;

// Commands; each acknowledge is the command plus one.
constexpr uint16_t kDiscoveryCmd = 0x0002;
constexpr uint16_t kForceIpCmd = 0x0004;
constexpr uint16_t kPacketResendCmd = 0x0040;
constexpr uint16_t kReadRegCmd = 0x0080;
constexpr uint16_t kWriteRegCmd = 0x0082;
constexpr uint16_t kReadMemCmd = 0x0084;
constexpr uint16_t kWriteMemCmd = 0x0086;

constexpr uint32_t kMaxMemoryAccess = 536;

bool isZip(const std::vector<uint8_t>& bytes) {
    return bytes.size() >= 4 && bytes[0] == 'P' && bytes[1] == 'K' && bytes[2] == 3 &&
           bytes[3] == 4;
}

} // namespace

CCamera::CCamera(const COptions& options, int index, Description description)
    : options_(options), serial_(options.serialOf(index)), mac_(options.macOf(index)),
      startupAddress_(options.addressOf(index)), address_(options.addressOf(index)),
      registers_(options.anyAddress), files_(options.storeDirectory, options.serialOf(index),
                                             options.slotSize, options.failWriteAt),
      description_(std::move(description)) {
    streamer_ = std::make_unique<CStreamer>(
        options.lostRatioPerMille,
        // Stream thread.
        [this](StreamSettings& settings) { readStreamSettings(settings); },
        // Stream thread.
        [this] {
            std::lock_guard<std::mutex> lock(mutex_);
            ++frameCounter_;
        });
    std::lock_guard<std::mutex> lock(mutex_);
    initialiseRegisters(true);
}

CCamera::~CCamera() {
    stop();
}

bool CCamera::deviceRegistersActive() const {
    // A foreign description on any-address memory gives these addresses its own meaning.
    return options_.descriptionFile.empty() || !options_.anyAddress;
}

void CCamera::installDescription() {
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
void CCamera::initialiseRegisters(bool powerOn) {
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
void CCamera::refreshDynamicRegisters() {
    registers_.writeU32(kCurrentIp, address_);
    registers_.writeU32(kControlChannelPrivilege, controller_.active ? controller_.privilege : 0);
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

bool CCamera::isController(const sockaddr_in& from) const {
    return controller_.active && controller_.address == ntohl(from.sin_addr.s_addr) &&
           controller_.port == ntohs(from.sin_port);
}

std::string CCamera::start() {
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0)
        return "eventfd failed";
    std::string error = openControlSockets(address_);
    if (error.empty())
        error = streamer_->bind(address_);
    if (!error.empty()) {
        closeControlSockets();
        return error;
    }
    std::printf("camera %s (MAC %02x:%02x:%02x:%02x:%02x:%02x) listening on %s\n", serial_.c_str(),
                mac_[0], mac_[1], mac_[2], mac_[3], mac_[4], mac_[5],
                ipv4ToString(address_).c_str());
    std::fflush(stdout);
    thread_ = std::thread([this] { run(); });
    return {};
}

void CCamera::stop() {
    if (thread_.joinable()) {
        const uint64_t one = 1;
        if (write(wakeFd_, &one, sizeof(one)) < 0)
            std::perror("korvatin-camsim: eventfd");
        thread_.join();
    }
    streamer_->stop();
    closeControlSockets();
    if (wakeFd_ >= 0)
        close(wakeFd_);
    wakeFd_ = -1;
}

// The control socket answers everything; discovery and FORCEIP also arrive on the broadcast
// addresses, shared with other cameras and simulators.
std::string CCamera::openControlSockets(uint32_t address) {
    closeControlSockets();
    std::string error = control_.bind(address, kGvcpPort, true);
    if (!error.empty())
        return error;
    std::vector<uint32_t> broadcasts{0xFFFFFFFF};
    const uint32_t directed = directedBroadcastOf(address);
    if (directed != 0 && directed != address)
        broadcasts.push_back(directed);
    for (uint32_t b : broadcasts) {
        CUdpSocket socket;
        error = socket.bind(b, kGvcpPort, true);
        if (!error.empty()) {
            closeControlSockets();
            return error;
        }
        broadcast_.push_back(std::move(socket));
    }
    return {};
}

void CCamera::closeControlSockets() {
    control_.close();
    broadcast_.clear();
}

void CCamera::run() {
    std::vector<uint8_t> buffer(65536);
    for (;;) {
        std::vector<pollfd> fds;
        fds.push_back({wakeFd_, POLLIN, 0});
        fds.push_back({control_.fd(), POLLIN, 0});
        for (const CUdpSocket& s : broadcast_)
            fds.push_back({s.fd(), POLLIN, 0});
        const int ready = poll(fds.data(), fds.size(), 100);
        if (ready < 0 && errno != EINTR)
            break;
        if (fds[0].revents & POLLIN)
            break;
        for (std::size_t i = 1; i < fds.size() && ready > 0; ++i) {
            if (!(fds[i].revents & POLLIN))
                continue;
            sockaddr_in from{};
            socklen_t fromLength = sizeof(from);
            const ssize_t size = recvfrom(fds[i].fd, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                          reinterpret_cast<sockaddr*>(&from), &fromLength);
            if (size > 0)
                handleDatagram(buffer.data(), std::size_t(size), from, i > 1);
            // A FORCEIP or reset replaced the sockets: poll the new ones.
            if (fds.size() != 2 + broadcast_.size() || fds[1].fd != control_.fd())
                break;
        }
        checkHeartbeat();
    }
}

void CCamera::reply(const Request& request, uint16_t status, const uint8_t* payload,
                    std::size_t length, const CUdpSocket* socket) {
    std::vector<uint8_t> packet(8 + length);
    put16(packet.data(), status);
    put16(packet.data() + 2, uint16_t(request.command + 1));
    put16(packet.data() + 4, uint16_t(length));
    put16(packet.data() + 6, request.id);
    if (length > 0)
        std::memcpy(packet.data() + 8, payload, length);
    (socket ? *socket : control_).sendTo(packet.data(), packet.size(), request.from);
}

void CCamera::handleDatagram(const uint8_t* data, std::size_t size, const sockaddr_in& from,
                             bool broadcast) {
    // Shorter than a header or not a command: nothing a host could be waiting for.
    if (size < 8 || data[0] != kCommandKey)
        return;
    Request request{data[1], get16(data + 2), get16(data + 6), data + 8, get16(data + 4), from};
    const bool ackRequired = (request.flags & kFlagAckRequired) != 0;
    if (broadcast && request.command != kDiscoveryCmd && request.command != kForceIpCmd)
        return;
    if (request.command % 2 != 0)
        return; // an acknowledge, not a command
    if (request.length > size - 8) {
        if (ackRequired || request.command == kDiscoveryCmd)
            reply(request, kInvalidHeader, nullptr, 0);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (isController(from))
            controller_.lastSeen = std::chrono::steady_clock::now();
    }
    switch (request.command) {
    case kDiscoveryCmd:
        handleDiscovery(request);
        break;
    case kForceIpCmd:
        handleForceIp(request);
        break;
    case kPacketResendCmd:
        handlePacketResend(request);
        break;
    case kReadRegCmd:
        handleReadRegisters(request);
        break;
    case kWriteRegCmd:
        handleWriteRegisters(request);
        break;
    case kReadMemCmd:
        handleReadMemory(request);
        break;
    case kWriteMemCmd:
        handleWriteMemory(request);
        break;
    default:
        if (ackRequired)
            reply(request, kNotImplemented, nullptr, 0);
        break;
    }
}

void CCamera::handleDiscovery(const Request& request) {
    uint8_t payload[kDiscoveryDataSize];
    {
        std::lock_guard<std::mutex> lock(mutex_);
        refreshDynamicRegisters();
        registers_.read(0, payload, kDiscoveryDataSize);
    }
    reply(request, kSuccess, payload, sizeof(payload));
}

void CCamera::handleForceIp(const Request& request) {
    const bool ackRequired = (request.flags & kFlagAckRequired) != 0;
    if (request.length < 56) {
        if (ackRequired)
            reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    const uint8_t* p = request.payload;
    // Only the camera whose MAC the command names takes it; the others stay silent.
    if (get16(p + 2) != (uint32_t(mac_[0]) << 8 | mac_[1]) ||
        get32(p + 4) != get32(mac_.data() + 2))
        return;
    uint32_t address = get32(p + 20);
    uint32_t mask = get32(p + 36);
    uint32_t gateway = get32(p + 52);
    const bool restart = address == 0;
    if (restart) {
        // Address 0 restarts the IP configuration, as after power-on: the persistent address,
        // mask and gateway when persistent IP is on, otherwise the start-up address, which
        // stands for what DHCP or link-local would give (the simulator has no DHCP server).
        std::lock_guard<std::mutex> lock(mutex_);
        const bool persistent = registers_.readU32(kCurrentIpConfig) & kIpConfigPersistent;
        const uint32_t persistentIp = registers_.readU32(kPersistentIp);
        const bool usePersistent = persistent && persistentIp != 0;
        address = usePersistent ? persistentIp : startupAddress_;
        mask = usePersistent ? registers_.readU32(kPersistentMask) : subnetMaskOf(address);
        gateway = usePersistent ? registers_.readU32(kPersistentGateway) : 0;
    }
    if (address == 0xFFFFFFFF || (address >> 24) == 0 || (address >> 28) == 0xE) {
        if (ackRequired)
            reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    dropControl();
    streamer_->stop();
    const uint32_t previous = address_;
    if (address != previous) {
        std::string error = openControlSockets(address);
        if (error.empty())
            error = streamer_->bind(address);
        if (!error.empty()) {
            std::fprintf(stderr, "korvatin-camsim: camera %s cannot move to %s: %s\n",
                         serial_.c_str(), ipv4ToString(address).c_str(), error.c_str());
            openControlSockets(previous);
            streamer_->bind(previous);
            if (ackRequired)
                reply(request, kLocalProblem, nullptr, 0);
            return;
        }
        address_ = address;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        registers_.writeU32(kCurrentIp, address);
        registers_.writeU32(kCurrentMask, mask);
        registers_.writeU32(kCurrentGateway, gateway);
    }
    std::printf("camera %s %s %s\n", serial_.c_str(),
                restart ? "restarted its IP configuration on" : "moved to",
                ipv4ToString(address).c_str());
    std::fflush(stdout);
    if (ackRequired)
        reply(request, kSuccess, nullptr, 0);
}

void CCamera::handlePacketResend(const Request& request) {
    if (request.length < 12)
        return;
    const uint8_t* p = request.payload;
    const uint16_t blockId = uint16_t(get32(p) & 0xFFFF);
    const uint32_t first = get32(p + 4) & 0xFFFFFF;
    const uint32_t last = get32(p + 8) & 0xFFFFFF;
    streamer_->resend(blockId, first, last);
}

void CCamera::handleReadRegisters(const Request& request) {
    if (request.length == 0 || request.length % 4 != 0 || request.length > kMaxMemoryAccess) {
        reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    std::vector<uint8_t> values;
    uint16_t status = kSuccess;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (controller_.active && (controller_.privilege & kPrivilegeExclusive) &&
            !isController(request.from)) {
            status = kAccessDenied;
        } else {
            refreshDynamicRegisters();
            for (uint16_t i = 0; i < request.length; i += 4) {
                const uint32_t address = get32(request.payload + i);
                if (address % 4 != 0) {
                    status = kBadAlignment;
                    break;
                }
                if (!registers_.exists(address, 4)) {
                    status = kInvalidAddress;
                    break;
                }
                uint8_t value[4];
                registers_.read(address, value, 4);
                values.insert(values.end(), value, value + 4);
            }
        }
    }
    reply(request, status, values.data(), values.size());
}

void CCamera::handleWriteRegisters(const Request& request) {
    if (request.length == 0 || request.length % 8 != 0 || request.length > kMaxMemoryAccess) {
        reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    Actions actions;
    uint16_t status = kSuccess;
    uint16_t written = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (uint16_t i = 0; i < request.length; i += 8) {
            status = writeRegister(get32(request.payload + i), get32(request.payload + i + 4),
                                   request.from, &actions);
            if (status != kSuccess)
                break;
            ++written;
        }
    }
    uint8_t payload[4] = {0, 0, 0, 0};
    put16(payload + 2, written);
    if (request.flags & kFlagAckRequired)
        reply(request, status, payload, sizeof(payload));
    performActions(actions);
}

void CCamera::handleReadMemory(const Request& request) {
    if (request.length < 8) {
        reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    const uint32_t address = get32(request.payload);
    const uint16_t count = get16(request.payload + 6);
    if (count == 0 || count > kMaxMemoryAccess) {
        reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    if (address % 4 != 0 || count % 4 != 0) {
        reply(request, kBadAlignment, nullptr, 0);
        return;
    }
    std::vector<uint8_t> payload(4 + count);
    uint16_t status = kSuccess;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (controller_.active && (controller_.privilege & kPrivilegeExclusive) &&
            !isController(request.from)) {
            status = kAccessDenied;
        } else if (!registers_.exists(address, count)) {
            status = kInvalidAddress;
        } else {
            refreshDynamicRegisters();
            put32(payload.data(), address);
            registers_.read(address, payload.data() + 4, count);
        }
    }
    if (status != kSuccess)
        reply(request, status, nullptr, 0);
    else
        reply(request, status, payload.data(), payload.size());
}

void CCamera::handleWriteMemory(const Request& request) {
    if (request.length < 8 || uint32_t(request.length) - 4u > kMaxMemoryAccess) {
        reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    const uint32_t address = get32(request.payload);
    const uint32_t count = request.length - 4u;
    if (address % 4 != 0 || count % 4 != 0) {
        reply(request, kBadAlignment, nullptr, 0);
        return;
    }
    Actions actions;
    uint16_t status = kSuccess;
    uint32_t written = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!registers_.exists(address, count)) {
            status = kInvalidAddress;
        } else {
            for (uint32_t i = 0; i < count; i += 4) {
                status = writeRegister(address + i, get32(request.payload + 4 + i), request.from,
                                       &actions);
                if (status != kSuccess)
                    break;
                written += 4;
            }
        }
    }
    uint8_t payload[4] = {0, 0, 0, 0};
    put16(payload + 2, uint16_t(written));
    if (request.flags & kFlagAckRequired)
        reply(request, status, payload, sizeof(payload));
    performActions(actions);
}

uint16_t CCamera::writeRegister(uint32_t address, uint32_t value, const sockaddr_in& from,
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

uint32_t CCamera::exposureLimit(uint32_t frameRate) {
    return frameRate == 0 ? kExposureLimitUs : std::min(kExposureLimitUs, 1000000 / frameRate);
}

bool CCamera::inRange(const CRange& range, uint32_t value) {
    return value >= range.min && value <= range.max && (value - range.min) % range.inc == 0;
}

std::size_t CCamera::lutEntry(uint32_t index) const {
    const CRange& range = options_.lutIndex;
    const uint32_t clamped = std::max(range.min, std::min(index, range.max));
    return std::min<std::size_t>((clamped - range.min) / range.inc, lut_.size() - 1);
}

void CCamera::limitExposure(uint32_t exposure) {
    registers_.writeU32(kExposure, exposure);
    // The knee points never exceed the exposure.
    const uint32_t p1 = std::min(registers_.readU32(kHdrP1), exposure);
    registers_.writeU32(kHdrP1, p1);
    registers_.writeU32(kHdrP2, std::min(registers_.readU32(kHdrP2), p1));
}

// The device registers check their ranges and act; a refused value leaves the register as it
// was and answers INVALID_PARAMETER.
uint16_t CCamera::writeDeviceRegister(uint32_t address, uint32_t value, Actions* actions) {
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

void CCamera::executeFileOperation() {
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

void CCamera::readStreamSettings(StreamSettings& settings) const {
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

void CCamera::performActions(const Actions& actions) {
    uint32_t destination = 0;
    uint32_t port = 0;
    uint32_t packetSize = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        destination = registers_.readU32(kStreamDestination);
        port = registers_.readU32(kStreamPort);
        packetSize = registers_.readU32(kStreamPacketSize);
    }
    if (actions.doNotFragmentChanged || actions.fireTestPacket)
        streamer_->setDoNotFragment(packetSize & kDoNotFragment);
    if (actions.fireTestPacket)
        streamer_->sendTestPacket(destination, uint16_t(port), packetSize & 0xFFFF);
    if (actions.stopStream)
        streamer_->stop();
    if (actions.startStream)
        streamer_->start();
    if (actions.trigger)
        streamer_->trigger();
    if (actions.reset)
        performReset();
}

void CCamera::dropControl() {
    std::lock_guard<std::mutex> lock(mutex_);
    controller_.active = false;
    registers_.writeU32(kControlChannelPrivilege, 0);
}

// A host that stopped sending anything loses control after the heartbeat time-out; the stream
// stops with it, and another host may take control.
void CCamera::checkHeartbeat() {
    bool expired = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!controller_.active || (registers_.readU32(kGvcpConfiguration) & kHeartbeatDisable))
            return;
        const auto timeout = std::chrono::milliseconds(registers_.readU32(kHeartbeatTimeout));
        expired = std::chrono::steady_clock::now() - controller_.lastSeen > timeout;
        if (expired) {
            controller_.active = false;
            registers_.writeU32(kStreamDestination, 0);
            registers_.writeU32(kStreamPort, 0);
        }
    }
    if (expired) {
        streamer_->stop();
        std::printf("camera %s: heartbeat time-out, control released\n", serial_.c_str());
        std::fflush(stdout);
    }
}

// Silent for about a second, then back as after power-on: the persistent address when the
// persistent IP configuration is on, and a description written through file access.
void CCamera::performReset() {
    streamer_->stop();
    closeControlSockets();
    std::printf("camera %s resetting\n", serial_.c_str());
    std::fflush(stdout);
    pollfd wake{wakeFd_, POLLIN, 0};
    if (poll(&wake, 1, 1000) > 0)
        return; // asked to stop meanwhile; stop() closes what is left
    uint32_t address = startupAddress_;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        files_.closeAll();
        std::vector<uint8_t> written;
        if (files_.takeWrittenDescription(&written)) {
            description_.bytes = written;
            description_.fileName = isZip(written) ? "description.zip" : "description.xml";
        }
        const bool persistent = registers_.readU32(kCurrentIpConfig) & kIpConfigPersistent;
        const uint32_t persistentIp = registers_.readU32(kPersistentIp);
        if (persistent && persistentIp != 0)
            address = persistentIp;
    }
    std::string error = openControlSockets(address);
    if (!error.empty() && address != startupAddress_) {
        std::fprintf(stderr, "korvatin-camsim: camera %s: persistent address unusable (%s)\n",
                     serial_.c_str(), error.c_str());
        address = startupAddress_;
        error = openControlSockets(address);
    }
    if (error.empty())
        error = streamer_->bind(address);
    if (!error.empty())
        std::fprintf(stderr, "korvatin-camsim: camera %s stays silent after reset: %s\n",
                     serial_.c_str(), error.c_str());
    address_ = address;
    streamer_->resetBlockId();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        initialiseRegisters(false);
        if (address != startupAddress_) {
            registers_.writeU32(kCurrentMask, registers_.readU32(kPersistentMask));
            registers_.writeU32(kCurrentGateway, registers_.readU32(kPersistentGateway));
        }
    }
    std::printf("camera %s back on %s\n", serial_.c_str(), ipv4ToString(address).c_str());
    std::fflush(stdout);
}
