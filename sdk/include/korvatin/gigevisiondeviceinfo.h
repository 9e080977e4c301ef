// Descriptor of one discovered GigE Vision device, and the settings of a discovery pass.
#pragma once

#include <cstddef>
#include <cstdint>

// Filled by CKorvatinCamera::ListDevices. Every text is NUL-terminated; every byte not written
// is zero, so two descriptors of the same answer compare equal byte for byte.
struct GigEVisionDeviceInfo {
    char macAddress[32];        // "xx-xx-xx-xx-xx-xx", lower-case hex
    char currentIp[16];         // dotted IPv4
    char currentSubnetMask[16]; // dotted IPv4
    char defaultGateway[16];    // dotted IPv4
    char manufacturerName[64];
    char modelName[64];
    char deviceVersion[64];
    char manufacturerInfo[64];
    char serialNumber[64];
    char userDefinedName[64];
    char hostInterfaceAddress[16]; // dotted IPv4 of the host interface that reaches the device
    char hostInterfaceName[16];    // system name of that interface ("eth0", "lo")
    uint8_t mac[6];                // the MAC as raw bytes, network order
    uint8_t reserved0[2];
    uint16_t gevVersionMajor; // GigE Vision version the device implements
    uint16_t gevVersionMinor;
    uint32_t ipConfigCurrent; // current IP configuration bits (bit 0 persistent, 1 DHCP,
                              // 2 link-local), as the device reports them
    uint8_t reserved[1208];
};
static_assert(sizeof(GigEVisionDeviceInfo) == 1720, "GigEVisionDeviceInfo is 1720 bytes");

// Parameters of one discovery pass (CKorvatinCamera::ListDevices).
struct ListDevicesSettings {
    int32_t timeoutMs;            // how long acknowledgements are collected
    const char* interfaceAddress; // dotted address of one host interface; null = every interface
    int32_t broadcast;            // nonzero: send to 255.255.255.255, else to the subnet broadcast
    uint64_t reserved;            // keep 0
};
static_assert(sizeof(ListDevicesSettings) == 32, "ListDevicesSettings is 32 bytes");
