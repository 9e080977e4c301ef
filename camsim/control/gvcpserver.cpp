// The GVCP side of one simulated camera: its control sockets and the answer to each command.
#include "gvcpserver.h"

#include "bigendian.h"
#include "gvcp.h"
#include "registermap.h"
#include "streamer.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

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

} // namespace

CGvcpServer::CGvcpServer(std::string serial, std::array<uint8_t, 6> mac, uint32_t startupAddress,
                         std::atomic<uint32_t>& address, CRegisterModel* model, CStreamer* streamer,
                         ActionsRequested performActions)
    : serial_(std::move(serial)), mac_(mac), startupAddress_(startupAddress), address_(address),
      model_(model), streamer_(streamer), performActions_(std::move(performActions)) {}

// The control socket answers everything; discovery and FORCEIP also arrive on the broadcast
// addresses, shared with other cameras and simulators.
std::string CGvcpServer::openControlSockets(uint32_t address) {
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

void CGvcpServer::closeControlSockets() {
    control_.close();
    broadcast_.clear();
}

void CGvcpServer::reply(const Request& request, uint16_t status, const uint8_t* payload,
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

void CGvcpServer::handleDatagram(const uint8_t* data, std::size_t size, const sockaddr_in& from,
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
        std::lock_guard<std::mutex> lock(model_->mutex());
        if (model_->isController(from))
            model_->controller().lastSeen = std::chrono::steady_clock::now();
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

void CGvcpServer::handleDiscovery(const Request& request) {
    uint8_t payload[kDiscoveryDataSize];
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        model_->refreshDynamicRegisters();
        model_->registers().read(0, payload, kDiscoveryDataSize);
    }
    reply(request, kSuccess, payload, sizeof(payload));
}

void CGvcpServer::handleForceIp(const Request& request) {
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
        std::lock_guard<std::mutex> lock(model_->mutex());
        const bool persistent = model_->registers().readU32(kCurrentIpConfig) & kIpConfigPersistent;
        const uint32_t persistentIp = model_->registers().readU32(kPersistentIp);
        const bool usePersistent = persistent && persistentIp != 0;
        address = usePersistent ? persistentIp : startupAddress_;
        mask = usePersistent ? model_->registers().readU32(kPersistentMask) : subnetMaskOf(address);
        gateway = usePersistent ? model_->registers().readU32(kPersistentGateway) : 0;
    }
    if (address == 0xFFFFFFFF || (address >> 24) == 0 || (address >> 28) == 0xE) {
        if (ackRequired)
            reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    model_->dropControl();
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
        std::lock_guard<std::mutex> lock(model_->mutex());
        model_->registers().writeU32(kCurrentIp, address);
        model_->registers().writeU32(kCurrentMask, mask);
        model_->registers().writeU32(kCurrentGateway, gateway);
    }
    std::printf("camera %s %s %s\n", serial_.c_str(),
                restart ? "restarted its IP configuration on" : "moved to",
                ipv4ToString(address).c_str());
    std::fflush(stdout);
    if (ackRequired)
        reply(request, kSuccess, nullptr, 0);
}

void CGvcpServer::handlePacketResend(const Request& request) {
    if (request.length < 12)
        return;
    const uint8_t* p = request.payload;
    const uint16_t blockId = uint16_t(get32(p) & 0xFFFF);
    const uint32_t first = get32(p + 4) & 0xFFFFFF;
    const uint32_t last = get32(p + 8) & 0xFFFFFF;
    streamer_->resend(blockId, first, last);
}

void CGvcpServer::handleReadRegisters(const Request& request) {
    if (request.length == 0 || request.length % 4 != 0 || request.length > kMaxMemoryAccess) {
        reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    std::vector<uint8_t> values;
    uint16_t status = kSuccess;
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        if (model_->controller().active && (model_->controller().privilege & kPrivilegeExclusive) &&
            !model_->isController(request.from)) {
            status = kAccessDenied;
        } else {
            model_->refreshDynamicRegisters();
            for (uint16_t i = 0; i < request.length; i += 4) {
                const uint32_t address = get32(request.payload + i);
                if (address % 4 != 0) {
                    status = kBadAlignment;
                    break;
                }
                if (!model_->registers().exists(address, 4)) {
                    status = kInvalidAddress;
                    break;
                }
                uint8_t value[4];
                model_->registers().read(address, value, 4);
                values.insert(values.end(), value, value + 4);
            }
        }
    }
    reply(request, status, values.data(), values.size());
}

void CGvcpServer::handleWriteRegisters(const Request& request) {
    if (request.length == 0 || request.length % 8 != 0 || request.length > kMaxMemoryAccess) {
        reply(request, kInvalidParameter, nullptr, 0);
        return;
    }
    CRegisterModel::Actions actions;
    uint16_t status = kSuccess;
    uint16_t written = 0;
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        for (uint16_t i = 0; i < request.length; i += 8) {
            status = model_->writeRegister(get32(request.payload + i),
                                           get32(request.payload + i + 4), request.from, &actions);
            if (status != kSuccess)
                break;
            ++written;
        }
    }
    uint8_t payload[4] = {0, 0, 0, 0};
    put16(payload + 2, written);
    if (request.flags & kFlagAckRequired)
        reply(request, status, payload, sizeof(payload));
    performActions_(actions);
}

void CGvcpServer::handleReadMemory(const Request& request) {
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
        std::lock_guard<std::mutex> lock(model_->mutex());
        if (model_->controller().active && (model_->controller().privilege & kPrivilegeExclusive) &&
            !model_->isController(request.from)) {
            status = kAccessDenied;
        } else if (!model_->registers().exists(address, count)) {
            status = kInvalidAddress;
        } else {
            model_->refreshDynamicRegisters();
            put32(payload.data(), address);
            model_->registers().read(address, payload.data() + 4, count);
        }
    }
    if (status != kSuccess)
        reply(request, status, nullptr, 0);
    else
        reply(request, status, payload.data(), payload.size());
}

void CGvcpServer::handleWriteMemory(const Request& request) {
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
    CRegisterModel::Actions actions;
    uint16_t status = kSuccess;
    uint32_t written = 0;
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        if (!model_->registers().exists(address, count)) {
            status = kInvalidAddress;
        } else {
            for (uint32_t i = 0; i < count; i += 4) {
                status = model_->writeRegister(address + i, get32(request.payload + 4 + i),
                                               request.from, &actions);
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
    performActions_(actions);
}
