// An owned IPv4 UDP socket (bind, send, receive, closed when destroyed) and address helpers.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <string>

// Addresses are kept in host byte order throughout the simulator, as the registers hold them.
std::string ipv4ToString(uint32_t address);
bool ipv4FromString(const std::string& text, uint32_t* address);
sockaddr_in makeSocketAddress(uint32_t address, uint16_t port);

// The directed broadcast address a host may send discovery to for `address`, or 0. For an
// address added to an interface as /32 that is the address itself, which the control socket
// already receives.
uint32_t directedBroadcastOf(uint32_t address);
// The subnet mask a camera reports: the interface's when the address is on one.
uint32_t subnetMaskOf(uint32_t address);

class CUdpSocket {
public:
    CUdpSocket() = default;
    ~CUdpSocket();
    CUdpSocket(CUdpSocket&& other) noexcept;
    CUdpSocket& operator=(CUdpSocket&& other) noexcept;
    CUdpSocket(const CUdpSocket&) = delete;
    CUdpSocket& operator=(const CUdpSocket&) = delete;

    // Opens a socket bound to address:port (port 0: any). SO_REUSEADDR when shared is set, so that
    // several cameras and other simulators can listen on the same broadcast address. Returns an
    // empty string on success, otherwise why it failed.
    std::string bind(uint32_t address, uint16_t port, bool shared);
    void close();

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    uint16_t localPort() const;

    // Sends one datagram; false when the kernel refused it.
    bool sendTo(const void* data, std::size_t size, const sockaddr_in& destination) const;

private:
    int fd_ = -1;
};
