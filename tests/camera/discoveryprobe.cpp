// Sees the discovery commands sent on the loopback interface, to know when a discovery pass runs.
#include "discoveryprobe.h"

#include <QDeadlineTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace {

bool isDiscoveryCommand(const uint8_t* packet, ssize_t size) {
    // GVCP command header: key 0x42, flags, command 0x0002 (DISCOVERY_CMD).
    return size >= 8 && packet[0] == 0x42 && packet[2] == 0x00 && packet[3] == 0x02;
}

} // namespace

DiscoveryProbe::DiscoveryProbe() {
    fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0)
        return;
    const int on = 1;
    ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    // The loopback network's broadcast address: Aravis' simulator holds its own address and
    // 255.255.255.255 on this port, which a wildcard bind would collide with.
    local.sin_addr.s_addr = inet_addr("127.255.255.255");
    local.sin_port = htons(3956);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

DiscoveryProbe::~DiscoveryProbe() {
    if (fd_ >= 0)
        ::close(fd_);
}

void DiscoveryProbe::drain() {
    uint8_t packet[1500];
    while (fd_ >= 0 && ::recv(fd_, packet, sizeof packet, 0) >= 0) {
    }
}

bool DiscoveryProbe::waitForDiscovery(int timeoutMs) {
    if (fd_ < 0)
        return false;
    QDeadlineTimer deadline(timeoutMs);
    uint8_t packet[1500];
    for (;;) {
        const ssize_t size = ::recv(fd_, packet, sizeof packet, 0);
        if (size >= 0) {
            if (isDiscoveryCommand(packet, size))
                return true;
            continue;
        }
        const qint64 left = deadline.remainingTime();
        if (left <= 0)
            return false;
        pollfd fd{fd_, POLLIN, 0};
        ::poll(&fd, 1, int(left));
    }
}
