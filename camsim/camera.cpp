// One simulated GigE Vision camera: the life cycle tying its GVCP server, registers and stream.
#include "camera.h"

#include "options.h"
#include "registermap.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>

CCamera::CCamera(const COptions& options, int index, Description description)
    : serial_(options.serialOf(index)), mac_(options.macOf(index)),
      startupAddress_(options.addressOf(index)), address_(options.addressOf(index)) {
    streamer_ = std::make_unique<CStreamer>(
        options.lostRatioPerMille,
        // Stream thread.
        [this](StreamSettings& settings) { model_->readStreamSettings(settings); },
        // Stream thread.
        [this] { model_->countFrame(); });
    model_ = std::make_unique<CRegisterModel>(options, serial_, mac_, address_, streamer_.get(),
                                              std::move(description));
    server_ = std::make_unique<CGvcpServer>(
        serial_, mac_, startupAddress_, address_, model_.get(), streamer_.get(),
        // Control thread, after WRITEREG and WRITEMEM.
        [this](const CRegisterModel::Actions& actions) { performActions(actions); });
}

CCamera::~CCamera() {
    stop();
}

std::string CCamera::start() {
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0)
        return "eventfd failed";
    std::string error = server_->openControlSockets(address_);
    if (error.empty())
        error = streamer_->bind(address_);
    if (!error.empty()) {
        server_->closeControlSockets();
        return error;
    }
    std::printf("camera %s (MAC %02x:%02x:%02x:%02x:%02x:%02x) listening on %s\n", serial_.c_str(),
                mac_[0], mac_[1], mac_[2], mac_[3], mac_[4], mac_[5],
                ipv4ToString(address_).c_str());
    std::fflush(stdout);
    thread_ = std::thread([this] { run(); });
    return {};
}

void CCamera::stop() {
    if (thread_.joinable()) {
        const uint64_t one = 1;
        if (write(wakeFd_, &one, sizeof(one)) < 0)
            std::perror("korvatin-camsim: eventfd");
        thread_.join();
    }
    streamer_->stop();
    server_->closeControlSockets();
    if (wakeFd_ >= 0)
        close(wakeFd_);
    wakeFd_ = -1;
}

void CCamera::run() {
    std::vector<uint8_t> buffer(65536);
    for (;;) {
        std::vector<pollfd> fds;
        fds.push_back({wakeFd_, POLLIN, 0});
        fds.push_back({server_->controlSocket().fd(), POLLIN, 0});
        for (const CUdpSocket& s : server_->broadcastSockets())
            fds.push_back({s.fd(), POLLIN, 0});
        const int ready = poll(fds.data(), fds.size(), 100);
        if (ready < 0 && errno != EINTR)
            break;
        if (fds[0].revents & POLLIN)
            break;
        for (std::size_t i = 1; i < fds.size() && ready > 0; ++i) {
            if (!(fds[i].revents & POLLIN))
                continue;
            sockaddr_in from{};
            socklen_t fromLength = sizeof(from);
            const ssize_t size = recvfrom(fds[i].fd, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                          reinterpret_cast<sockaddr*>(&from), &fromLength);
            if (size > 0)
                server_->handleDatagram(buffer.data(), std::size_t(size), from, i > 1);
            // A FORCEIP or reset replaced the sockets: poll the new ones.
            if (fds.size() != 2 + server_->broadcastSockets().size() ||
                fds[1].fd != server_->controlSocket().fd())
                break;
        }
        checkHeartbeat();
    }
}

void CCamera::performActions(const CRegisterModel::Actions& actions) {
    uint32_t destination = 0;
    uint32_t port = 0;
    uint32_t packetSize = 0;
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        destination = model_->registers().readU32(kStreamDestination);
        port = model_->registers().readU32(kStreamPort);
        packetSize = model_->registers().readU32(kStreamPacketSize);
    }
    if (actions.doNotFragmentChanged || actions.fireTestPacket)
        streamer_->setDoNotFragment(packetSize & kDoNotFragment);
    if (actions.fireTestPacket)
        streamer_->sendTestPacket(destination, uint16_t(port), packetSize & 0xFFFF);
    if (actions.stopStream)
        streamer_->stop();
    if (actions.startStream)
        streamer_->start();
    if (actions.trigger)
        streamer_->trigger();
    if (actions.reset)
        performReset();
}

// A host that stopped sending anything loses control after the heartbeat time-out; the stream
// stops with it, and another host may take control.
void CCamera::checkHeartbeat() {
    bool expired = false;
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        if (!model_->controller().active ||
            (model_->registers().readU32(kGvcpConfiguration) & kHeartbeatDisable))
            return;
        const auto timeout =
            std::chrono::milliseconds(model_->registers().readU32(kHeartbeatTimeout));
        expired = std::chrono::steady_clock::now() - model_->controller().lastSeen > timeout;
        if (expired) {
            model_->controller().active = false;
            model_->registers().writeU32(kStreamDestination, 0);
            model_->registers().writeU32(kStreamPort, 0);
        }
    }
    if (expired) {
        streamer_->stop();
        std::printf("camera %s: heartbeat time-out, control released\n", serial_.c_str());
        std::fflush(stdout);
    }
}

// Silent for about a second, then back as after power-on: the persistent address when the
// persistent IP configuration is on, and a description written through file access.
void CCamera::performReset() {
    streamer_->stop();
    server_->closeControlSockets();
    std::printf("camera %s resetting\n", serial_.c_str());
    std::fflush(stdout);
    pollfd wake{wakeFd_, POLLIN, 0};
    if (poll(&wake, 1, 1000) > 0)
        return; // asked to stop meanwhile; stop() closes what is left
    uint32_t address = startupAddress_;
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        model_->files().closeAll();
        std::vector<uint8_t> written;
        if (model_->files().takeWrittenDescription(&written)) {
            model_->description().bytes = written;
            model_->description().fileName =
                CFileAccess::isZip(written) ? "description.zip" : "description.xml";
        }
        const bool persistent = model_->registers().readU32(kCurrentIpConfig) & kIpConfigPersistent;
        const uint32_t persistentIp = model_->registers().readU32(kPersistentIp);
        if (persistent && persistentIp != 0)
            address = persistentIp;
    }
    std::string error = server_->openControlSockets(address);
    if (!error.empty() && address != startupAddress_) {
        std::fprintf(stderr, "korvatin-camsim: camera %s: persistent address unusable (%s)\n",
                     serial_.c_str(), error.c_str());
        address = startupAddress_;
        error = server_->openControlSockets(address);
    }
    if (error.empty())
        error = streamer_->bind(address);
    if (!error.empty())
        std::fprintf(stderr, "korvatin-camsim: camera %s stays silent after reset: %s\n",
                     serial_.c_str(), error.c_str());
    address_ = address;
    streamer_->resetBlockId();
    {
        std::lock_guard<std::mutex> lock(model_->mutex());
        model_->initialiseRegisters(false);
        if (address != startupAddress_) {
            model_->registers().writeU32(kCurrentMask,
                                         model_->registers().readU32(kPersistentMask));
            model_->registers().writeU32(kCurrentGateway,
                                         model_->registers().readU32(kPersistentGateway));
        }
    }
    std::printf("camera %s back on %s\n", serial_.c_str(), ipv4ToString(address).c_str());
    std::fflush(stdout);
}
