// GVCP FORCEIP: a new address, mask and gateway for the device with a given MAC.
#include "gvcpforceip.h"

#include "gvcpsocket.h"
#include "korvatin/korvatinexception.h"

#include <netinet/in.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

namespace korvatin {

namespace {

// FORCEIP_CMD payload: MAC at 2..7, static IP at 20, mask at 36, gateway at 52.
constexpr std::size_t kPayloadSize = 56;
constexpr std::size_t kMacOffset = 2;
constexpr std::size_t kIpOffset = 20;
constexpr std::size_t kMaskOffset = 36;
constexpr std::size_t kGatewayOffset = 52;

struct Sender {
    GvcpSocket socket;
    uint16_t requestId;
};

} // namespace

GvcpForceIp::Result GvcpForceIp::Send(const std::vector<NetworkInterfaceController>& interfaces,
                                      const std::array<uint8_t, 6>& mac, uint32_t ip,
                                      uint32_t subnetMask, uint32_t gateway, int answerTimeoutMs,
                                      int attempts) {
    std::vector<uint8_t> payload(kPayloadSize, 0);
    std::memcpy(payload.data() + kMacOffset, mac.data(), mac.size());
    gvcp::PutBe32(payload.data() + kIpOffset, ip);
    gvcp::PutBe32(payload.data() + kMaskOffset, subnetMask);
    gvcp::PutBe32(payload.data() + kGatewayOffset, gateway);

    std::vector<Sender> senders;
    for (const auto& nic : interfaces) {
        GvcpSocket socket;
        // An interface that went away since it was listed is simply not used.
        if (!socket.Open(nic.address)) {
            if (errno == EADDRNOTAVAIL || errno == EINVAL)
                continue;
            throw CKorvatinException(std::string("Cannot open a UDP socket for FORCEIP: ") +
                                         std::strerror(errno),
                                     QRN_ERR_IO);
        }
        senders.push_back(Sender{std::move(socket), gvcp::NextRequestId()});
    }
    std::vector<const GvcpSocket*> sockets;
    for (const Sender& sender : senders)
        sockets.push_back(&sender.socket);

    Result result;
    uint8_t packet[1500];
    for (int attempt = 0; attempt < attempts; ++attempt) {
        // The same request ids every time: an acknowledgement of an earlier send counts.
        for (const Sender& sender : senders)
            sender.socket.SendTo(INADDR_BROADCAST,
                                 gvcp::Command(gvcp::kFlagAckRequired, gvcp::kForceIpCmd,
                                               sender.requestId, payload));
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(answerTimeoutMs);
        std::vector<bool> ready;
        while (GvcpSocket::WaitAny(sockets, deadline, &ready)) {
            for (std::size_t i = 0; i < senders.size(); ++i) {
                if (!ready[i])
                    continue;
                uint32_t from = 0;
                ssize_t size = 0;
                while ((size = senders[i].socket.Receive(packet, sizeof packet, &from)) >= 0) {
                    if (size < static_cast<ssize_t>(gvcp::kHeaderSize) ||
                        gvcp::Be16(packet + 2) != gvcp::kForceIpAck ||
                        gvcp::Be16(packet + 6) != senders[i].requestId)
                        continue;
                    result.status = gvcp::Be16(packet);
                    result.from = from;
                    result.outcome = result.status == gvcp::kStatusSuccess ? Outcome::Acknowledged
                                                                           : Outcome::Refused;
                    return result;
                }
            }
        }
    }
    return result;
}

} // namespace korvatin
