// The SDK's own GVCP discovery client: DISCOVERY_CMD on chosen host interfaces, acks parsed.
#include "gvcpdiscovery.h"

#include "gvcpsocket.h"

#include "korvatin/korvatinexception.h"
#include "korvatin/korvatingigevision.h"
#include "korvatin/qrnutil.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

namespace korvatin {

namespace {

// The acknowledgement carries the first 0xF8 bytes of the device's bootstrap registers.
constexpr std::size_t kBootstrapSize = 0xF8;

// Offsets inside the bootstrap block of a DISCOVERY_ACK.
constexpr std::size_t kVersion = 0x00;
constexpr std::size_t kMacHigh = 0x08;
constexpr std::size_t kIpConfigCurrent = 0x14;
constexpr std::size_t kCurrentIp = 0x24;
constexpr std::size_t kCurrentMask = 0x34;
constexpr std::size_t kCurrentGateway = 0x44;
constexpr std::size_t kManufacturerName = 0x48;
constexpr std::size_t kModelName = 0x68;
constexpr std::size_t kDeviceVersion = 0x88;
constexpr std::size_t kManufacturerInfo = 0xA8;
constexpr std::size_t kSerialNumber = 0xD8;
constexpr std::size_t kUserDefinedName = 0xE8;

struct Probe {
    GvcpSocket socket;
    NetworkInterfaceController nic;
    uint16_t requestId;
};

struct Found {
    GigEVisionDeviceInfo info;
    uint32_t deviceIp; // host order
    std::vector<NetworkInterfaceController> answeredOn;
};

std::string dotted(uint32_t hostOrder) {
    in_addr address{};
    address.s_addr = htonl(hostOrder);
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

void copyText(char* destination, std::size_t destinationSize, const char* source,
              std::size_t sourceSize) {
    const std::size_t length =
        std::min(strnlen(source, sourceSize), destinationSize - 1); // always NUL-terminated
    std::memcpy(destination, source, length);
    destination[length] = '\0';
}

void copyText(char* destination, std::size_t destinationSize, const std::string& text) {
    copyText(destination, destinationSize, text.c_str(), text.size());
}

bool parseAck(const uint8_t* packet, std::size_t size, uint16_t requestId,
              GigEVisionDeviceInfo* info, uint32_t* deviceIp) {
    if (size < gvcp::kHeaderSize + kBootstrapSize)
        return false;
    if (gvcp::Be16(packet) != 0 || gvcp::Be16(packet + 2) != gvcp::kDiscoveryAck ||
        gvcp::Be16(packet + 6) != requestId)
        return false;
    if (gvcp::Be16(packet + 4) < kBootstrapSize)
        return false;
    const uint8_t* data = packet + gvcp::kHeaderSize;
    std::memset(info, 0, sizeof *info);
    info->gevVersionMajor = gvcp::Be16(data + kVersion);
    info->gevVersionMinor = gvcp::Be16(data + kVersion + 2);
    std::memcpy(info->mac, data + kMacHigh + 2, 6);
    char mac[32] = {};
    std::snprintf(mac, sizeof mac, "%02x-%02x-%02x-%02x-%02x-%02x", info->mac[0], info->mac[1],
                  info->mac[2], info->mac[3], info->mac[4], info->mac[5]);
    copyText(info->macAddress, sizeof info->macAddress, std::string(mac));
    info->ipConfigCurrent = gvcp::Be32(data + kIpConfigCurrent);
    *deviceIp = gvcp::Be32(data + kCurrentIp);
    copyText(info->currentIp, sizeof info->currentIp, dotted(*deviceIp));
    copyText(info->currentSubnetMask, sizeof info->currentSubnetMask,
             dotted(gvcp::Be32(data + kCurrentMask)));
    copyText(info->defaultGateway, sizeof info->defaultGateway,
             dotted(gvcp::Be32(data + kCurrentGateway)));
    const auto text = [data](std::size_t offset) {
        return reinterpret_cast<const char*>(data + offset);
    };
    copyText(info->manufacturerName, sizeof info->manufacturerName, text(kManufacturerName), 32);
    copyText(info->modelName, sizeof info->modelName, text(kModelName), 32);
    copyText(info->deviceVersion, sizeof info->deviceVersion, text(kDeviceVersion), 32);
    copyText(info->manufacturerInfo, sizeof info->manufacturerInfo, text(kManufacturerInfo), 48);
    copyText(info->serialNumber, sizeof info->serialNumber, text(kSerialNumber), 16);
    copyText(info->userDefinedName, sizeof info->userDefinedName, text(kUserDefinedName), 16);
    return true;
}

int prefixLength(uint32_t mask) {
    int bits = 0;
    while (bits < 32 && (mask & (0x80000000u >> bits)) != 0)
        ++bits;
    return bits;
}

// The interface a connection should use: one whose subnet holds the device (the most specific
// subnet wins), else a loopback interface for a loopback device, else the first that heard it.
const NetworkInterfaceController& reachingInterface(const Found& found) {
    const NetworkInterfaceController* best = nullptr;
    for (const auto& nic : found.answeredOn) {
        if ((nic.address & nic.mask) != (found.deviceIp & nic.mask))
            continue;
        if (best == nullptr || prefixLength(nic.mask) > prefixLength(best->mask))
            best = &nic;
    }
    if (best != nullptr)
        return *best;
    if ((found.deviceIp >> 24) == 127) {
        for (const auto& nic : found.answeredOn)
            if ((nic.address >> 24) == 127)
                return nic;
    }
    return found.answeredOn.front();
}

std::vector<std::string> splitList(const std::string& text) {
    std::vector<std::string> items;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(',', start);
        if (end == std::string::npos)
            end = text.size();
        std::string item = text.substr(start, end - start);
        const auto first = item.find_first_not_of(" \t");
        const auto last = item.find_last_not_of(" \t");
        if (first != std::string::npos)
            items.push_back(item.substr(first, last - first + 1));
        start = end + 1;
    }
    return items;
}

} // namespace

std::vector<NetworkInterfaceController>
GvcpDiscovery::ChooseInterfaces(const char* interfaceAddress) {
    const std::vector<NetworkInterfaceController> all = CKorvatinGigEVision::EnumerateNICs();
    std::vector<NetworkInterfaceController> chosen;
    if (interfaceAddress != nullptr && interfaceAddress[0] != '\0') {
        for (const auto& nic : all)
            if (std::strcmp(nic.name, interfaceAddress) == 0)
                chosen.push_back(nic);
        if (chosen.empty())
            throw CKorvatinException(std::string("No network interface of this host has the "
                                                 "address ") +
                                         interfaceAddress,
                                     QRN_ERR_NOT_FOUND);
        chosen.resize(1);
        return chosen;
    }
    bool limited = false;
    const std::string limit = CQrnUtil::GetEnv("KORVATIN_GEV_INTERFACES", &limited);
    if (!limited)
        return all;
    const std::vector<std::string> wanted = splitList(limit);
    for (const auto& nic : all) {
        for (const auto& item : wanted) {
            if (item == nic.systemName || item == nic.name) {
                chosen.push_back(nic);
                break;
            }
        }
    }
    return chosen;
}

namespace {

uint32_t destinationOf(const DiscoveryRequest& request, const NetworkInterfaceController& nic) {
    switch (request.destination) {
    case DiscoveryRequest::Destination::Broadcast:
        return INADDR_BROADCAST;
    case DiscoveryRequest::Destination::Unicast:
        return request.deviceAddress;
    case DiscoveryRequest::Destination::DirectedBroadcast:
        break;
    }
    return nic.address | ~nic.mask;
}

// Reads every acknowledgement waiting on `probe` into `found`. True when one of them came from
// a device `request.wanted` asks for.
bool readAnswers(const Probe& probe, const DiscoveryRequest& request, std::vector<Found>* found) {
    uint8_t packet[1500];
    bool wantedAnswered = false;
    for (;;) {
        const ssize_t size = probe.socket.Receive(packet, sizeof packet, nullptr);
        if (size < 0)
            return wantedAnswered;
        GigEVisionDeviceInfo info;
        uint32_t deviceIp = 0;
        if (!parseAck(packet, static_cast<std::size_t>(size), probe.requestId, &info, &deviceIp))
            continue;
        auto same = std::find_if(found->begin(), found->end(), [&](const Found& f) {
            return f.deviceIp == deviceIp && std::memcmp(f.info.mac, info.mac, 6) == 0;
        });
        if (same == found->end()) {
            found->push_back(Found{info, deviceIp, {}});
            same = found->end() - 1;
        }
        const bool known = std::any_of(
            same->answeredOn.begin(), same->answeredOn.end(),
            [&](const NetworkInterfaceController& n) { return n.address == probe.nic.address; });
        if (!known)
            same->answeredOn.push_back(probe.nic);
        if (request.wanted && request.wanted(info))
            wantedAnswered = true;
    }
}

} // namespace

unsigned int GvcpDiscovery::Discover(const std::vector<NetworkInterfaceController>& interfaces,
                                     const DiscoveryRequest& request, GigEVisionDeviceInfo* buffer,
                                     unsigned int maxCount) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(request.timeoutMs, 0));

    std::vector<Probe> probes;
    for (const auto& nic : interfaces) {
        GvcpSocket socket;
        // An interface that went away since it was listed is simply not asked.
        if (!socket.Open(nic.address)) {
            if (errno == EADDRNOTAVAIL || errno == EINVAL)
                continue;
            throw CKorvatinException(std::string("Cannot open a UDP socket for discovery: ") +
                                         std::strerror(errno),
                                     QRN_ERR_IO);
        }
        const uint16_t requestId = gvcp::NextRequestId();
        const auto command = gvcp::Command(gvcp::kFlagAckRequired | gvcp::kFlagAllowBroadcastAck,
                                           gvcp::kDiscoveryCmd, requestId);
        // A send that fails (no route on that interface) leaves this interface silent.
        if (!socket.SendTo(destinationOf(request, nic), command))
            continue;
        probes.push_back(Probe{std::move(socket), nic, requestId});
    }

    std::vector<const GvcpSocket*> sockets;
    for (const Probe& probe : probes)
        sockets.push_back(&probe.socket);
    std::vector<Found> found;
    std::vector<bool> ready;
    bool done = false;
    while (!done && GvcpSocket::WaitAny(sockets, deadline, &ready)) {
        for (std::size_t i = 0; i < probes.size(); ++i) {
            if (ready[i] && readAnswers(probes[i], request, &found))
                done = true;
        }
    }
    if (done) {
        // The wanted device answered: what the other interfaces already heard is read too, so
        // the interface that reaches it best can still be chosen, but nobody is waited for.
        for (const Probe& probe : probes)
            readAnswers(probe, request, &found);
    }

    unsigned int count = 0;
    for (auto& device : found) {
        if (count >= maxCount)
            break;
        const NetworkInterfaceController& nic = reachingInterface(device);
        copyText(device.info.hostInterfaceAddress, sizeof device.info.hostInterfaceAddress,
                 std::string(nic.name));
        copyText(device.info.hostInterfaceName, sizeof device.info.hostInterfaceName,
                 std::string(nic.systemName));
        buffer[count++] = device.info;
    }
    return count;
}

} // namespace korvatin
