// The SDK's own GVCP discovery client: DISCOVERY_CMD on chosen host interfaces, acks parsed.
#pragma once

#include "korvatin/gigevisiondeviceinfo.h"
#include "korvatin/networkinterfacecontroller.h"

#include <vector>

namespace korvatin {

// One discovery pass over UDP sockets, one socket per chosen host interface. Aravis' own
// discovery cannot be limited to one interface nor told to send directed, hence this client.
// Stateless; any thread may run a pass, several passes may run at once.
class GvcpDiscovery {
public:
    // The interfaces a pass (or another host-side job) works on: only the one whose dotted
    // address is `interfaceAddress` when that is given (an unknown address throws), else every
    // up IPv4 interface, limited by KORVATIN_GEV_INTERFACES when that variable is set.
    static std::vector<NetworkInterfaceController> ChooseInterfaces(const char* interfaceAddress);

    // Sends DISCOVERY_CMD on each interface (to 255.255.255.255 when `broadcast`, else to the
    // interface's directed broadcast), collects acknowledgements for `timeoutMs` and fills
    // `buffer` with at most `maxCount` descriptors, one per device. Returns the count.
    static unsigned int Discover(const std::vector<NetworkInterfaceController>& interfaces,
                                 int timeoutMs, bool broadcast, GigEVisionDeviceInfo* buffer,
                                 unsigned int maxCount);
};

} // namespace korvatin
