// One IPv4 network interface of this host, as discovery and the network tools see it.
#pragma once

#include <cstdint>

struct NetworkInterfaceController {
    char name[32];       // the interface's dotted IPv4 address: what discovery settings store
    char systemName[32]; // the system's name for it ("eth0", "lo")
    char subnetMask[16]; // dotted IPv4
    uint8_t mac[6];      // hardware address, zero for loopback
    uint8_t reserved[2];
    uint32_t address; // the address in host byte order
    uint32_t mask;    // the mask in host byte order
};
