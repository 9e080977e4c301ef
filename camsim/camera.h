// One simulated GigE Vision camera: its control channel (GVCP), registers, files and stream.
#pragma once

#include "registermodel.h"
#include "streamer.h"
#include "udpsocket.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

class COptions;

class CCamera {
public:
    CCamera(const COptions& options, int index, Description description);
    ~CCamera();
    CCamera(const CCamera&) = delete;
    CCamera& operator=(const CCamera&) = delete;

    // Binds the control sockets and starts the control thread. Returns an empty string on
    // success, otherwise why the camera cannot run.
    std::string start();
    // Ends the stream and control threads and closes the sockets.
    void stop();

    uint32_t address() const { return address_; }

private:
    struct Request {
        uint8_t flags;
        uint16_t command;
        uint16_t id;
        const uint8_t* payload;
        uint16_t length;
        sockaddr_in from;
    };

    // Control thread.
    void run();
    std::string openControlSockets(uint32_t address);
    void closeControlSockets();
    void handleDatagram(const uint8_t* data, std::size_t size, const sockaddr_in& from,
                        bool broadcast);
    void reply(const Request& request, uint16_t status, const uint8_t* payload, std::size_t length,
               const CUdpSocket* socket = nullptr);
    void handleDiscovery(const Request& request);
    void handleForceIp(const Request& request);
    void handleReadRegisters(const Request& request);
    void handleWriteRegisters(const Request& request);
    void handleReadMemory(const Request& request);
    void handleWriteMemory(const Request& request);
    void handlePacketResend(const Request& request);
    void performActions(const CRegisterModel::Actions& actions);
    void performReset();
    void checkHeartbeat();

    const std::string serial_;
    const std::array<uint8_t, 6> mac_;
    const uint32_t startupAddress_;
    std::atomic<uint32_t> address_; // current address; written by the control thread only

    // Control thread only (and start()/stop() while it is not running).
    CUdpSocket control_;
    std::vector<CUdpSocket> broadcast_;
    int wakeFd_ = -1; // eventfd that stop() signals
    std::unique_ptr<CStreamer> streamer_;
    std::thread thread_;

    // The registers and the state behind them, shared with the stream thread under
    // model_->mutex().
    std::unique_ptr<CRegisterModel> model_;
};
