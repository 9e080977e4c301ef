// The descriptor discovery would give for a simulated camera on the loopback interface, for
// tests and benchmarks that connect to a known address without discovering it first.
#pragma once

#include <korvatin/gigevisiondeviceinfo.h>

#include <cstring>

inline GigEVisionDeviceInfo LoopbackDevice(const char* address) {
    GigEVisionDeviceInfo info;
    std::memset(&info, 0, sizeof(info));
    std::strncpy(info.currentIp, address, sizeof(info.currentIp) - 1);
    std::strncpy(info.currentSubnetMask, "255.0.0.0", sizeof(info.currentSubnetMask) - 1);
    std::strncpy(info.hostInterfaceAddress, "127.0.0.1", sizeof(info.hostInterfaceAddress) - 1);
    std::strncpy(info.hostInterfaceName, "lo", sizeof(info.hostInterfaceName) - 1);
    std::strncpy(info.macAddress, "00-00-00-00-00-00", sizeof(info.macAddress) - 1);
    return info;
}
