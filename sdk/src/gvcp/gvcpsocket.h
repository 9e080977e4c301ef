// A UDP socket for the SDK's own GVCP commands (discovery, FORCEIP, register probes).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>
#include <vector>

namespace korvatin {

// GVCP constants shared by the SDK's own clients.
namespace gvcp {
constexpr uint16_t kPort = 3956;
constexpr uint8_t kKey = 0x42;
constexpr uint8_t kFlagAckRequired = 0x01;
constexpr uint8_t kFlagAllowBroadcastAck = 0x10;
constexpr std::size_t kHeaderSize = 8;
constexpr uint16_t kDiscoveryCmd = 0x0002;
constexpr uint16_t kDiscoveryAck = 0x0003;
constexpr uint16_t kForceIpCmd = 0x0004;
constexpr uint16_t kForceIpAck = 0x0005;
constexpr uint16_t kReadRegCmd = 0x0080;
constexpr uint16_t kReadRegAck = 0x0081;
constexpr uint16_t kStatusSuccess = 0x0000;
constexpr uint16_t kStatusAccessDenied = 0x8006;

// A request id for one command: distinct between concurrent users, never 0.
uint16_t NextRequestId();
// The 8-byte command header followed by `payload`.
std::vector<uint8_t> Command(uint8_t flags, uint16_t command, uint16_t requestId,
                             const std::vector<uint8_t>& payload = {});
uint16_t Be16(const uint8_t* p);
uint32_t Be32(const uint8_t* p);
void PutBe32(uint8_t* p, uint32_t value);
// The status word's name ("ACCESS_DENIED"), or its hex value for one this client does not know.
const char* StatusName(uint16_t status, char (&buffer)[8]);
} // namespace gvcp

// One non-blocking UDP socket bound to a host interface address (any port), broadcast allowed.
// Closes its descriptor on every exit path. Not shared between threads.
class GvcpSocket {
public:
    GvcpSocket() = default;
    GvcpSocket(GvcpSocket&& other) noexcept;
    GvcpSocket& operator=(GvcpSocket&& other) noexcept;
    GvcpSocket(const GvcpSocket&) = delete;
    GvcpSocket& operator=(const GvcpSocket&) = delete;
    ~GvcpSocket();

    // Binds to `localAddress` (host byte order). False with errno set when the socket cannot be
    // made or the address cannot be bound (an interface that went away since it was listed).
    bool Open(uint32_t localAddress);
    bool IsOpen() const { return fd_ >= 0; }
    int Fd() const { return fd_; }
    uint32_t LocalAddress() const { return localAddress_; }

    // Sends `datagram` to `address`:3956 (host byte order). False when the system refused it (no
    // route from this interface, for instance).
    bool SendTo(uint32_t address, const std::vector<uint8_t>& datagram) const;
    // One waiting datagram: its size, or -1 when none is waiting. `from` (host byte order) may be
    // null.
    ssize_t Receive(uint8_t* buffer, std::size_t size, uint32_t* from) const;

    // Waits until one of `sockets` has a datagram or `deadline` passes; false on the deadline.
    // The ready flags are stored in `ready`, one per socket.
    static bool WaitAny(const std::vector<const GvcpSocket*>& sockets,
                        std::chrono::steady_clock::time_point deadline, std::vector<bool>* ready);

private:
    int fd_ = -1;
    uint32_t localAddress_ = 0;
};

} // namespace korvatin
