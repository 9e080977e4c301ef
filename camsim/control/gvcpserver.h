// The GVCP side of one simulated camera: its control sockets and the answer to each command.
#pragma once

#include "registermodel.h"
#include "udpsocket.h"

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class CStreamer;

// Runs on the camera's control thread (and in start()/stop() while that thread is not running).
class CGvcpServer {
public:
    // Called after WRITEREG and WRITEMEM, with the lock on the registers released, for what the
    // writes asked of the camera.
    using ActionsRequested = std::function<void(const CRegisterModel::Actions&)>;

    // Borrows the camera's current address (FORCEIP moves it), its registers and its streamer;
    // the camera keeps them alive as long as the server.
    CGvcpServer(std::string serial, std::array<uint8_t, 6> mac, uint32_t startupAddress,
                std::atomic<uint32_t>& address, CRegisterModel* model, CStreamer* streamer,
                ActionsRequested performActions);
    CGvcpServer(const CGvcpServer&) = delete;
    CGvcpServer& operator=(const CGvcpServer&) = delete;

    std::string openControlSockets(uint32_t address);
    void closeControlSockets();
    // For the control thread's poll(); FORCEIP and reset replace them.
    const CUdpSocket& controlSocket() const { return control_; }
    const std::vector<CUdpSocket>& broadcastSockets() const { return broadcast_; }

    // One datagram from a control socket, or from a broadcast socket when broadcast is set.
    void handleDatagram(const uint8_t* data, std::size_t size, const sockaddr_in& from,
                        bool broadcast);

private:
    struct Request {
        uint8_t flags;
        uint16_t command;
        uint16_t id;
        const uint8_t* payload;
        uint16_t length;
        sockaddr_in from;
    };

    void reply(const Request& request, uint16_t status, const uint8_t* payload, std::size_t length,
               const CUdpSocket* socket = nullptr);
    void handleDiscovery(const Request& request);
    void handleForceIp(const Request& request);
    void handleReadRegisters(const Request& request);
    void handleWriteRegisters(const Request& request);
    void handleReadMemory(const Request& request);
    void handleWriteMemory(const Request& request);
    void handlePacketResend(const Request& request);

    const std::string serial_;
    const std::array<uint8_t, 6> mac_;
    const uint32_t startupAddress_;
    std::atomic<uint32_t>& address_; // the camera's; written by the control thread only
    CRegisterModel* model_;          // the camera's; locked through its mutex()
    CStreamer* streamer_;            // the camera's
    ActionsRequested performActions_;

    CUdpSocket control_;
    std::vector<CUdpSocket> broadcast_;
};
