// GVCP FORCEIP: a new address, mask and gateway for the device with a given MAC.
#pragma once

#include "korvatin/networkinterfacecontroller.h"

#include <array>
#include <cstdint>
#include <vector>

namespace korvatin {

// Sends FORCEIP_CMD to 255.255.255.255 from each chosen interface, so it reaches the device
// whatever its current address (also one outside every subnet of the host), and waits for the
// acknowledgement, which the device sends from its new address. Stateless; any thread.
class GvcpForceIp {
public:
    enum class Outcome {
        Acknowledged, // the device took the command
        Refused,      // the device answered with an error status
        NoAnswer,     // nothing answered on any interface
    };
    struct Result {
        Outcome outcome = Outcome::NoAnswer;
        uint16_t status = 0; // the acknowledgement's status
        uint32_t from = 0;   // the acknowledging address, host byte order
    };

    // Addresses in host byte order. Sends again, up to `attempts` times in all, while nothing
    // answered within `answerTimeoutMs`.
    static Result Send(const std::vector<NetworkInterfaceController>& interfaces,
                       const std::array<uint8_t, 6>& mac, uint32_t ip, uint32_t subnetMask,
                       uint32_t gateway, int answerTimeoutMs, int attempts);
};

} // namespace korvatin
