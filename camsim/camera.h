// One simulated GigE Vision camera: the life cycle tying its GVCP server, registers and stream.
#pragma once

#include "gvcpserver.h"
#include "registermodel.h"
#include "streamer.h"

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
    // Control thread.
    void run();
    void performActions(const CRegisterModel::Actions& actions);
    void performReset();
    void checkHeartbeat();

    const std::string serial_;
    const std::array<uint8_t, 6> mac_;
    const uint32_t startupAddress_;
    std::atomic<uint32_t> address_; // current address; written by the control thread only

    // Control thread only (and start()/stop() while it is not running).
    int wakeFd_ = -1; // eventfd that stop() signals
    std::unique_ptr<CStreamer> streamer_;
    // The registers and the state behind them, shared with the stream thread under
    // model_->mutex(). The model borrows streamer_ and server_ borrows both, so each is declared
    // after what it borrows and goes first.
    std::unique_ptr<CRegisterModel> model_;
    // Control thread only, as above.
    std::unique_ptr<CGvcpServer> server_;
    std::thread thread_;
};
