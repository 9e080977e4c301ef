// The SDK's own GVCP discovery client: DISCOVERY_CMD on chosen host interfaces, acks parsed.
#pragma once

#include "korvatin/gigevisiondeviceinfo.h"
#include "korvatin/networkinterfacecontroller.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace korvatin {

// What one discovery pass sends, and when it may end early.
struct DiscoveryRequest {
    enum class Destination {
        DirectedBroadcast, // each interface's subnet broadcast (address | ~mask)
        Broadcast,         // 255.255.255.255
        Unicast,           // `deviceAddress` itself, from each interface
    };
    Destination destination = Destination::DirectedBroadcast;
    uint32_t deviceAddress = 0; // host byte order; Unicast only
    int timeoutMs = 100;
    // When set, the pass ends as soon as a device for which it is true has answered (after the
    // answers already waiting have been read), instead of at the time-out.
    std::function<bool(const GigEVisionDeviceInfo&)> wanted;
};

// One discovery pass over UDP sockets, one socket per chosen host interface. Aravis' own
// discovery cannot be limited to one interface nor told to send directed, hence this client.
// Stateless; any thread may run a pass, several passes may run at once.
class GvcpDiscovery {
public:
    // The interfaces a pass (or another host-side job) works on: only the one whose dotted
    // address is `interfaceAddress` when that is given (an unknown address throws), else every
    // up IPv4 interface, limited by KORVATIN_GEV_INTERFACES when that variable is set.
    static std::vector<NetworkInterfaceController> ChooseInterfaces(const char* interfaceAddress);

    // Sends DISCOVERY_CMD on each interface as `request` says, collects acknowledgements until
    // its time-out (or until the wanted device answered) and fills `buffer` with at most
    // `maxCount` descriptors, one per device. Returns the count.
    static unsigned int Discover(const std::vector<NetworkInterfaceController>& interfaces,
                                 const DiscoveryRequest& request, GigEVisionDeviceInfo* buffer,
                                 unsigned int maxCount);
};

} // namespace korvatin
