// A UDP socket for the SDK's own GVCP commands (discovery, FORCEIP, register probes).
#include "gvcpsocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace korvatin {

namespace gvcp {

uint16_t NextRequestId() {
    // Distinct ids for concurrent users in one process; 0 is not a valid GVCP request id.
    static std::atomic<uint16_t> counter{static_cast<uint16_t>(::getpid() * 7919u)};
    uint16_t id = 0;
    while (id == 0)
        id = counter.fetch_add(1);
    return id;
}

std::vector<uint8_t> Command(uint8_t flags, uint16_t command, uint16_t requestId,
                             const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> datagram(kHeaderSize + payload.size());
    datagram[0] = kKey;
    datagram[1] = flags;
    datagram[2] = uint8_t(command >> 8);
    datagram[3] = uint8_t(command & 0xFF);
    datagram[4] = uint8_t(payload.size() >> 8);
    datagram[5] = uint8_t(payload.size() & 0xFF);
    datagram[6] = uint8_t(requestId >> 8);
    datagram[7] = uint8_t(requestId & 0xFF);
    std::copy(payload.begin(), payload.end(), datagram.begin() + kHeaderSize);
    return datagram;
}

uint16_t Be16(const uint8_t* p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

uint32_t Be32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

void PutBe32(uint8_t* p, uint32_t value) {
    p[0] = uint8_t(value >> 24);
    p[1] = uint8_t(value >> 16);
    p[2] = uint8_t(value >> 8);
    p[3] = uint8_t(value);
}

const char* StatusName(uint16_t status, char (&buffer)[8]) {
    switch (status) {
    case 0x0000:
        return "SUCCESS";
    case 0x8001:
        return "NOT_IMPLEMENTED";
    case 0x8002:
        return "INVALID_PARAMETER";
    case 0x8003:
        return "INVALID_ADDRESS";
    case 0x8004:
        return "WRITE_PROTECT";
    case 0x8005:
        return "BAD_ALIGNMENT";
    case 0x8006:
        return "ACCESS_DENIED";
    case 0x8007:
        return "BUSY";
    case 0x8008:
        return "LOCAL_PROBLEM";
    case 0x800E:
        return "INVALID_HEADER";
    case 0x8FFF:
        return "ERROR";
    default:
        std::snprintf(buffer, sizeof buffer, "0x%04X", status);
        return buffer;
    }
}

} // namespace gvcp

GvcpSocket::GvcpSocket(GvcpSocket&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), localAddress_(other.localAddress_) {}

GvcpSocket& GvcpSocket::operator=(GvcpSocket&& other) noexcept {
    std::swap(fd_, other.fd_);
    std::swap(localAddress_, other.localAddress_);
    return *this;
}

GvcpSocket::~GvcpSocket() {
    if (fd_ >= 0)
        ::close(fd_);
}

bool GvcpSocket::Open(uint32_t localAddress) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return false;
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(localAddress);
    local.sin_port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        return false;
    }
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = fd;
    localAddress_ = localAddress;
    return true;
}

bool GvcpSocket::SendTo(uint32_t address, const std::vector<uint8_t>& datagram) const {
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(gvcp::kPort);
    target.sin_addr.s_addr = htonl(address);
    return ::sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&target),
                    sizeof target) == static_cast<ssize_t>(datagram.size());
}

ssize_t GvcpSocket::Receive(uint8_t* buffer, std::size_t size, uint32_t* from) const {
    sockaddr_in sender{};
    socklen_t senderSize = sizeof sender;
    const ssize_t received =
        ::recvfrom(fd_, buffer, size, 0, reinterpret_cast<sockaddr*>(&sender), &senderSize);
    if (received >= 0 && from != nullptr)
        *from = ntohl(sender.sin_addr.s_addr);
    return received;
}

bool GvcpSocket::WaitAny(const std::vector<const GvcpSocket*>& sockets,
                         std::chrono::steady_clock::time_point deadline, std::vector<bool>* ready) {
    std::vector<pollfd> fds;
    fds.reserve(sockets.size());
    for (const GvcpSocket* socket : sockets)
        fds.push_back(pollfd{socket->Fd(), POLLIN, 0});
    ready->assign(sockets.size(), false);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || fds.empty())
            return false;
        const int count = ::poll(fds.data(), fds.size(), static_cast<int>(left.count()));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        for (std::size_t i = 0; i < fds.size(); ++i)
            (*ready)[i] = (fds[i].revents & POLLIN) != 0;
        return true;
    }
}

} // namespace korvatin
