// Host-side GigE Vision helpers that need no connected camera.
#pragma once

#include "networkinterfacecontroller.h"

#include <vector>

class CKorvatinGigEVision {
public:
    // The host's IPv4 interfaces that are up, loopback included, in the system's order.
    static std::vector<NetworkInterfaceController> EnumerateNICs();
};
