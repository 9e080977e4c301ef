// GVSP sender of one simulated camera: paced frames, a ring of recent frames for resends.
#include "streamer.h"

#include "bigendian.h"

#include <netinet/ip.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr uint32_t kIpUdpOverhead = 20 + 8;
constexpr uint32_t kGvspHeaderSize = 8;
constexpr uint32_t kLeaderSize = kGvspHeaderSize + 36;
constexpr uint32_t kTrailerSize = kGvspHeaderSize + 8;
constexpr uint8_t kFormatLeader = 1;
constexpr uint8_t kFormatTrailer = 2;
constexpr uint8_t kFormatPayload = 3;
constexpr uint16_t kPayloadTypeImage = 0x0001;
constexpr uint16_t kStatusPacketUnavailable = 0x800C;
constexpr std::size_t kRingBytes = 256u << 20;
constexpr std::size_t kMaxRingSlots = 32;
constexpr int kBatch = 64;
constexpr int64_t kResendPauseNs = 5000000;
// Without a frame rate the stream runs at most at the payload rate of a 10 Gbit/s link: as
// fast as a real camera can be, and a pace that a host on the same machine can take.
constexpr double kLinkBytesPerSecond = 1.25e9;

int64_t steadyNowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void putHeader(uint8_t* p, uint16_t status, uint16_t blockId, uint8_t format, uint32_t packetId) {
    put16(p, status);
    put16(p + 2, blockId);
    put32(p + 4, uint32_t(format) << 24 | (packetId & 0xFFFFFF));
}

} // namespace

CStreamer::CStreamer(int lostRatioPerMille, SettingsSource settings, FrameSent frameSent)
    : lostRatioPerMille_(lostRatioPerMille), settings_(std::move(settings)),
      frameSent_(std::move(frameSent)) {}

CStreamer::~CStreamer() {
    stop();
}

std::string CStreamer::bind(uint32_t address) {
    const std::string error = socket_.bind(address, 0, false);
    if (!error.empty())
        return error;
    // A large send buffer lets one sendmmsg() hand over a whole batch of large packets.
    const int bytes = 8 << 20;
    setsockopt(socket_.fd(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof(bytes));
    setsockopt(socket_.fd(), SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof(bytes));
    return {};
}

void CStreamer::setDoNotFragment(bool enabled) {
    const int mode = enabled ? IP_PMTUDISC_DO : IP_PMTUDISC_DONT;
    if (socket_.isOpen())
        setsockopt(socket_.fd(), IPPROTO_IP, IP_MTU_DISCOVER, &mode, sizeof(mode));
}

void CStreamer::start() {
    if (thread_.joinable())
        return;
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        stopRequested_ = false;
        triggers_ = 0;
    }
    thread_ = std::thread([this] { run(); });
}

void CStreamer::stop() {
    if (!thread_.joinable())
        return;
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        stopRequested_ = true;
    }
    stateChanged_.notify_all();
    thread_.join();
}

void CStreamer::resetBlockId() {
    nextBlockId_ = 1;
}

void CStreamer::trigger() {
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        ++triggers_;
    }
    stateChanged_.notify_all();
}

bool CStreamer::dropNext() {
    if (lostRatioPerMille_ <= 0)
        return false;
    // xorshift64: cheap and good enough to spread the losses.
    random_ ^= random_ << 13;
    random_ ^= random_ >> 7;
    random_ ^= random_ << 17;
    return int(random_ % 1000) < lostRatioPerMille_;
}

// Waits until the next frame is due (frame rate) or triggered.
CStreamer::Wait CStreamer::waitForNextFrame(const StreamSettings& settings,
                                            std::chrono::steady_clock::time_point* due) {
    using namespace std::chrono;
    std::unique_lock<std::mutex> lock(stateMutex_);
    if (settings.triggered) {
        // Re-read the settings now and then, so that switching the trigger mode off takes effect.
        stateChanged_.wait_for(lock, milliseconds(50),
                               [this] { return stopRequested_ || triggers_ > 0; });
        if (stopRequested_)
            return Wait::Stop;
        if (triggers_ == 0)
            return Wait::Skip;
        --triggers_;
        *due = steady_clock::now();
        return Wait::Send;
    }
    if (settings.destination == 0 || settings.port == 0) {
        stateChanged_.wait_for(lock, milliseconds(10), [this] { return stopRequested_; });
        return stopRequested_ ? Wait::Stop : Wait::Skip;
    }
    if (settings.frameRate > 0) {
        const auto period =
            duration_cast<steady_clock::duration>(duration<double>(1.0 / settings.frameRate));
        stateChanged_.wait_until(lock, *due, [this] { return stopRequested_; });
        const auto now = steady_clock::now();
        *due += period;
        // After a stall start the rhythm again instead of sending a burst of late frames.
        if (*due < now)
            *due = now + period;
    }
    return stopRequested_ ? Wait::Stop : Wait::Send;
}

void CStreamer::run() {
    using namespace std::chrono;
    auto due = steady_clock::now();
    StreamSettings settings;
    for (;;) {
        settings_(settings);
        const Wait wait = waitForNextFrame(settings, &due);
        if (wait == Wait::Stop)
            return;
        if (wait == Wait::Skip || settings.destination == 0 || settings.port == 0)
            continue;
        const uint32_t payloadSize = CTestPattern::payloadSize(
            settings.geometry.width, settings.geometry.height, settings.geometry.pixelFormat);
        if (payloadSize == 0 || settings.packetSize <= kIpUdpOverhead + kLeaderSize)
            continue;

        const std::size_t wantedSlots =
            std::clamp<std::size_t>(kRingBytes / payloadSize, 2, kMaxRingSlots);
        Slot* slot = nullptr;
        {
            std::lock_guard<std::mutex> lock(ringMutex_);
            if (slots_.size() != wantedSlots) {
                slots_.assign(wantedSlots, Slot());
                nextSlot_ = 0;
            }
            slot = &slots_[nextSlot_];
            nextSlot_ = (nextSlot_ + 1) % slots_.size();
            slot->valid = false;
        }
        // The slot is invalid, so resends leave it alone while it is refilled.
        if (slot->data.size() < payloadSize)
            slot->data.resize(payloadSize);
        if (settings.seedGeneration != seedGeneration_) {
            seedGeneration_ = settings.seedGeneration;
            step_ = 0;
        }
        pattern_.fill(settings.geometry, settings.seed + step_,
                      settings.lutEnabled ? &settings.lut : nullptr, slot->data.data());
        if (settings.moving)
            ++step_;
        const uint32_t dataPerPacket = settings.packetSize - kIpUdpOverhead - kGvspHeaderSize;
        uint16_t blockId = nextBlockId_.load();
        nextBlockId_ = blockId == 0xFFFF ? 1 : blockId + 1; // block id 0 is not valid
        {
            std::lock_guard<std::mutex> lock(ringMutex_);
            slot->payloadSize = payloadSize;
            slot->geometry = settings.geometry;
            slot->timestamp = uint64_t(
                duration_cast<nanoseconds>(steady_clock::now() - settings.timestampOrigin).count());
            slot->packetSize = settings.packetSize;
            slot->destination = makeSocketAddress(settings.destination, settings.port);
            slot->packetCount = (payloadSize + dataPerPacket - 1) / dataPerPacket + 2;
            slot->blockId = blockId;
            slot->valid = true;
        }
        const int64_t frameStartNs = steadyNowNs();
        sendPackets(*slot, 0, slot->packetCount - 1, true, settings.packetDelayNs);
        frameSent_();
        if (!adaptToHost(frameStartNs, payloadSize))
            return;
    }
}

bool CStreamer::adaptToHost(int64_t frameStartNs, uint32_t payloadSize) {
    const double linkPeriodNs = payloadSize / kLinkBytesPerSecond * 1e9;
    constexpr double kSlowDown = 2.0;
    constexpr double kSpeedUp = 0.997;
    constexpr int64_t kQuietNs = 1000000000;
    constexpr int64_t kSlowDownIntervalNs = 20000000;
    if (lastFrameNs_ != 0) {
        const double period = double(frameStartNs - lastFrameNs_);
        measuredPeriodNs_ =
            measuredPeriodNs_ == 0 ? period : 0.9 * measuredPeriodNs_ + 0.1 * period;
    }
    lastFrameNs_ = frameStartNs;
    const int64_t now = steadyNowNs();
    const int64_t lastResend = lastResendNs_.load();
    if (lastResend > lastSlowDownNs_ && now - lastSlowDownNs_ > kSlowDownIntervalNs) {
        adaptivePeriodNs_ = std::max(adaptivePeriodNs_, measuredPeriodNs_) * kSlowDown;
        lastSlowDownNs_ = now;
    } else if (adaptivePeriodNs_ > 0 && now - lastResend > kQuietNs) {
        adaptivePeriodNs_ *= kSpeedUp;
        if (adaptivePeriodNs_ < 20000)
            adaptivePeriodNs_ = 0;
    }
    const double periodNs = std::max(adaptivePeriodNs_, linkPeriodNs);
    if (periodNs <= 0)
        return true;
    const auto due = std::chrono::steady_clock::time_point(
        std::chrono::nanoseconds(frameStartNs + int64_t(periodNs)));
    std::unique_lock<std::mutex> lock(stateMutex_);
    stateChanged_.wait_until(lock, due, [this] { return stopRequested_; });
    return !stopRequested_;
}

void CStreamer::sendPackets(const Slot& slot, uint32_t first, uint32_t last, bool mayDrop,
                            uint32_t packetDelayNs) {
    mmsghdr messages[kBatch];
    iovec vectors[kBatch][2];
    uint8_t headers[kBatch][kLeaderSize];
    const uint32_t dataPerPacket = slot.packetSize - kIpUdpOverhead - kGvspHeaderSize;
    const uint32_t trailerId = slot.packetCount - 1;
    const int batchLimit = packetDelayNs > 0 ? 1 : kBatch;
    int count = 0;

    auto flush = [&] {
        int sent = 0;
        while (sent < count) {
            const int result = sendmmsg(socket_.fd(), messages + sent, unsigned(count - sent), 0);
            if (result < 0) {
                if (errno == EINTR)
                    continue;
                // EMSGSIZE (packet larger than the path) or a closed socket: the host sees lost
                // packets and asks for them again, or negotiates a smaller packet size.
                break;
            }
            sent += result;
        }
        count = 0;
        if (packetDelayNs > 0)
            std::this_thread::sleep_for(std::chrono::nanoseconds(packetDelayNs));
        if (mayDrop) {
            const int64_t pause = pauseUntilNs_.load() - steadyNowNs();
            if (pause > 0)
                std::this_thread::sleep_for(std::chrono::nanoseconds(pause));
        }
    };

    for (uint32_t id = first; id <= last && id <= trailerId; ++id) {
        if (mayDrop && dropNext())
            continue;
        uint8_t* header = headers[count];
        iovec* iov = vectors[count];
        int iovCount = 1;
        if (id == 0) {
            putHeader(header, 0, slot.blockId, kFormatLeader, 0);
            put16(header + 8, 0);
            put16(header + 10, kPayloadTypeImage);
            put32(header + 12, uint32_t(slot.timestamp >> 32));
            put32(header + 16, uint32_t(slot.timestamp));
            put32(header + 20, slot.geometry.pixelFormat);
            put32(header + 24, slot.geometry.width);
            put32(header + 28, slot.geometry.height);
            put32(header + 32, slot.geometry.offsetX);
            put32(header + 36, slot.geometry.offsetY);
            put16(header + 40, 0);
            put16(header + 42, 0);
            iov[0] = {header, kLeaderSize};
        } else if (id == trailerId) {
            putHeader(header, 0, slot.blockId, kFormatTrailer, id);
            put16(header + 8, 0);
            put16(header + 10, kPayloadTypeImage);
            put32(header + 12, slot.geometry.height);
            iov[0] = {header, kTrailerSize};
        } else {
            const uint32_t offset = (id - 1) * dataPerPacket;
            const uint32_t size = std::min(dataPerPacket, slot.payloadSize - offset);
            putHeader(header, 0, slot.blockId, kFormatPayload, id);
            iov[0] = {header, kGvspHeaderSize};
            iov[1] = {const_cast<uint8_t*>(slot.data.data()) + offset, size};
            iovCount = 2;
        }
        msghdr& message = messages[count].msg_hdr;
        message = msghdr();
        message.msg_name = const_cast<sockaddr_in*>(&slot.destination);
        message.msg_namelen = sizeof(sockaddr_in);
        message.msg_iov = iov;
        message.msg_iovlen = size_t(iovCount);
        messages[count].msg_len = 0;
        if (++count == batchLimit)
            flush();
    }
    if (count > 0)
        flush();
}

void CStreamer::resend(uint16_t blockId, uint32_t firstPacket, uint32_t lastPacket) {
    // Packets dropped on purpose are asked for all the time: no sign of a host falling behind.
    if (lostRatioPerMille_ == 0) {
        const int64_t now = steadyNowNs();
        pauseUntilNs_ = now + kResendPauseNs;
        lastResendNs_ = now;
    }
    std::lock_guard<std::mutex> lock(ringMutex_);
    for (const Slot& slot : slots_) {
        if (!slot.valid || slot.blockId != blockId)
            continue;
        if (firstPacket <= lastPacket && firstPacket < slot.packetCount)
            sendPackets(slot, firstPacket, std::min(lastPacket, slot.packetCount - 1), false, 0);
        return;
    }
    // The block left the ring (or never existed): tell the host, so that it stops asking.
    if (slots_.empty())
        return;
    const Slot& newest = slots_[(nextSlot_ + slots_.size() - 1) % slots_.size()];
    if (!newest.valid)
        return;
    uint8_t header[kGvspHeaderSize];
    putHeader(header, kStatusPacketUnavailable, blockId, kFormatPayload, firstPacket);
    socket_.sendTo(header, sizeof(header), newest.destination);
}

void CStreamer::sendTestPacket(uint32_t destination, uint16_t port, uint32_t packetSize) {
    if (destination == 0 || port == 0 || packetSize <= kIpUdpOverhead + kGvspHeaderSize)
        return;
    std::vector<uint8_t> packet(packetSize - kIpUdpOverhead, 0);
    // A test packet carries an incrementing byte pattern after a header that names it.
    putHeader(packet.data(), 0, 0, 4, 0);
    for (std::size_t i = kGvspHeaderSize; i < packet.size(); ++i)
        packet[i] = uint8_t(i);
    socket_.sendTo(packet.data(), packet.size(), makeSocketAddress(destination, port));
}
