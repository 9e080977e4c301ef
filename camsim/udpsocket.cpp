// An owned IPv4 UDP socket (bind, send, receive, closed when destroyed) and address helpers.
#include "udpsocket.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

// The netmask of the interface that holds `address`, or 0 when no interface has it.
uint32_t interfaceMaskOf(uint32_t address) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return 0;
    uint32_t result = 0;
    for (ifaddrs* i = list; i; i = i->ifa_next) {
        if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET || !i->ifa_netmask)
            continue;
        const uint32_t a = ntohl(reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr.s_addr);
        if (a == address)
            result = ntohl(reinterpret_cast<sockaddr_in*>(i->ifa_netmask)->sin_addr.s_addr);
    }
    freeifaddrs(list);
    return result;
}

} // namespace

std::string ipv4ToString(uint32_t address) {
    in_addr a{};
    a.s_addr = htonl(address);
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &a, text, sizeof(text));
    return text;
}

bool ipv4FromString(const std::string& text, uint32_t* address) {
    in_addr a{};
    if (inet_pton(AF_INET, text.c_str(), &a) != 1)
        return false;
    *address = ntohl(a.s_addr);
    return true;
}

sockaddr_in makeSocketAddress(uint32_t address, uint16_t port) {
    sockaddr_in s{};
    s.sin_family = AF_INET;
    s.sin_addr.s_addr = htonl(address);
    s.sin_port = htons(port);
    return s;
}

uint32_t directedBroadcastOf(uint32_t address) {
    if ((address >> 24) == 127)
        return 0x7FFFFFFF;
    const uint32_t mask = interfaceMaskOf(address);
    return mask != 0 && mask != 0xFFFFFFFF ? (address | ~mask) : 0;
}

uint32_t subnetMaskOf(uint32_t address) {
    if ((address >> 24) == 127)
        return 0xFF000000;
    const uint32_t mask = interfaceMaskOf(address);
    return mask != 0 ? mask : 0xFFFFFF00;
}

CUdpSocket::~CUdpSocket() {
    close();
}

CUdpSocket::CUdpSocket(CUdpSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

CUdpSocket& CUdpSocket::operator=(CUdpSocket&& other) noexcept {
    if (this != &other) {
        close();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

std::string CUdpSocket::bind(uint32_t address, uint16_t port, bool shared) {
    close();
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return std::string("socket: ") + std::strerror(errno);
    const int one = 1;
    if (shared)
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &one, sizeof(one));
    const sockaddr_in local = makeSocketAddress(address, port);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
        const std::string error = "bind " + ipv4ToString(address) + ":" + std::to_string(port) +
                                  ": " + std::strerror(errno);
        ::close(fd);
        return error;
    }
    fd_ = fd;
    return {};
}

void CUdpSocket::close() {
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

uint16_t CUdpSocket::localPort() const {
    sockaddr_in local{};
    socklen_t length = sizeof(local);
    if (fd_ < 0 || getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &length) != 0)
        return 0;
    return ntohs(local.sin_port);
}

bool CUdpSocket::sendTo(const void* data, std::size_t size, const sockaddr_in& destination) const {
    if (fd_ < 0)
        return false;
    return ::sendto(fd_, data, size, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&destination),
                    sizeof(destination)) == static_cast<ssize_t>(size);
}
