// The SDK's own GVCP discovery client: DISCOVERY_CMD on chosen host interfaces, acks parsed.
#include "gvcpdiscovery.h"

#include "korvatin/korvatinexception.h"
#include "korvatin/korvatingigevision.h"
#include "korvatin/qrnutil.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

namespace korvatin {

namespace {

constexpr uint16_t kGvcpPort = 3956;
constexpr uint8_t kGvcpKey = 0x42;
constexpr uint8_t kFlagAckRequired = 0x01;
constexpr uint8_t kFlagAllowBroadcastAck = 0x10;
constexpr uint16_t kDiscoveryCmd = 0x0002;
constexpr uint16_t kDiscoveryAck = 0x0003;
constexpr std::size_t kHeaderSize = 8;
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

// Closes its descriptor on every exit path.
class Socket {
public:
    Socket() = default;
    explicit Socket(int fd) : fd_(fd) {}
    Socket(Socket&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    Socket& operator=(Socket&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    int fd() const { return fd_; }

private:
    int fd_ = -1;
};

struct Probe {
    Socket socket;
    NetworkInterfaceController nic;
    uint16_t requestId;
};

struct Found {
    GigEVisionDeviceInfo info;
    uint32_t deviceIp; // host order
    std::vector<NetworkInterfaceController> answeredOn;
};

uint16_t nextRequestId() {
    // Distinct ids for concurrent passes; 0 is not a valid GVCP request id.
    static std::atomic<uint16_t> counter{static_cast<uint16_t>(::getpid() * 7919u)};
    uint16_t id = 0;
    while (id == 0)
        id = counter.fetch_add(1);
    return id;
}

uint32_t be32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

uint16_t be16(const uint8_t* p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

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
    if (size < kHeaderSize + kBootstrapSize)
        return false;
    if (be16(packet) != 0 || be16(packet + 2) != kDiscoveryAck || be16(packet + 6) != requestId)
        return false;
    if (be16(packet + 4) < kBootstrapSize)
        return false;
    const uint8_t* data = packet + kHeaderSize;
    std::memset(info, 0, sizeof *info);
    info->gevVersionMajor = be16(data + kVersion);
    info->gevVersionMinor = be16(data + kVersion + 2);
    std::memcpy(info->mac, data + kMacHigh + 2, 6);
    char mac[32] = {};
    std::snprintf(mac, sizeof mac, "%02x-%02x-%02x-%02x-%02x-%02x", info->mac[0], info->mac[1],
                  info->mac[2], info->mac[3], info->mac[4], info->mac[5]);
    copyText(info->macAddress, sizeof info->macAddress, std::string(mac));
    info->ipConfigCurrent = be32(data + kIpConfigCurrent);
    *deviceIp = be32(data + kCurrentIp);
    copyText(info->currentIp, sizeof info->currentIp, dotted(*deviceIp));
    copyText(info->currentSubnetMask, sizeof info->currentSubnetMask,
             dotted(be32(data + kCurrentMask)));
    copyText(info->defaultGateway, sizeof info->defaultGateway,
             dotted(be32(data + kCurrentGateway)));
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

unsigned int GvcpDiscovery::Discover(const std::vector<NetworkInterfaceController>& interfaces,
                                     int timeoutMs, bool broadcast, GigEVisionDeviceInfo* buffer,
                                     unsigned int maxCount) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));

    std::vector<Probe> probes;
    for (const auto& nic : interfaces) {
        Socket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (socket.fd() < 0)
            throw CKorvatinException(std::string("Cannot open a UDP socket for discovery: ") +
                                         std::strerror(errno),
                                     QRN_ERR_IO);
        const int on = 1;
        ::setsockopt(socket.fd(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(nic.address);
        local.sin_port = 0;
        // An interface that went away since it was listed is simply not asked.
        if (::bind(socket.fd(), reinterpret_cast<sockaddr*>(&local), sizeof local) != 0)
            continue;

        const uint16_t requestId = nextRequestId();
        uint8_t command[kHeaderSize] = {kGvcpKey,
                                        kFlagAckRequired | kFlagAllowBroadcastAck,
                                        uint8_t(kDiscoveryCmd >> 8),
                                        uint8_t(kDiscoveryCmd & 0xFF),
                                        0,
                                        0,
                                        uint8_t(requestId >> 8),
                                        uint8_t(requestId & 0xFF)};
        sockaddr_in target{};
        target.sin_family = AF_INET;
        target.sin_port = htons(kGvcpPort);
        target.sin_addr.s_addr =
            broadcast ? htonl(INADDR_BROADCAST) : htonl(nic.address | ~nic.mask);
        // A send that fails (no route on that interface) leaves this interface silent.
        if (::sendto(socket.fd(), command, sizeof command, 0, reinterpret_cast<sockaddr*>(&target),
                     sizeof target) < 0)
            continue;
        probes.push_back(Probe{std::move(socket), nic, requestId});
    }

    std::vector<Found> found;
    std::vector<pollfd> fds(probes.size());
    for (std::size_t i = 0; i < probes.size(); ++i)
        fds[i] = pollfd{probes[i].socket.fd(), POLLIN, 0};

    uint8_t packet[1500];
    while (!probes.empty()) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            break;
        const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            break;
        for (std::size_t i = 0; i < probes.size(); ++i) {
            if ((fds[i].revents & POLLIN) == 0)
                continue;
            for (;;) {
                const ssize_t size = ::recv(fds[i].fd, packet, sizeof packet, 0);
                if (size < 0)
                    break;
                GigEVisionDeviceInfo info;
                uint32_t deviceIp = 0;
                if (!parseAck(packet, static_cast<std::size_t>(size), probes[i].requestId, &info,
                              &deviceIp))
                    continue;
                auto same = std::find_if(found.begin(), found.end(), [&](const Found& f) {
                    return f.deviceIp == deviceIp && std::memcmp(f.info.mac, info.mac, 6) == 0;
                });
                if (same == found.end()) {
                    found.push_back(Found{info, deviceIp, {}});
                    same = found.end() - 1;
                }
                const bool known = std::any_of(same->answeredOn.begin(), same->answeredOn.end(),
                                               [&](const NetworkInterfaceController& n) {
                                                   return n.address == probes[i].nic.address;
                                               });
                if (!known)
                    same->answeredOn.push_back(probes[i].nic);
            }
        }
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
