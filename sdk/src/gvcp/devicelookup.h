// Finding one device by its MAC address, serial number or IP address through discovery.
#pragma once

#include "korvatin/gigevisiondeviceinfo.h"
#include "korvatin/networkinterfacecontroller.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace korvatin {

// What names one device, parsed from the user's text, and the discovery pass that finds it:
// a device named by its IP address is asked directly (unicast), so it is found on any subnet
// the host can route to and also when it listens only on its own address; a device named by
// its MAC or serial number is asked by broadcast or directed broadcast. Every pass ends as soon
// as the device has answered.
class DeviceLookup {
public:
    enum class Kind { Mac, Serial, Address };

    // A dotted IPv4 address, a MAC (six hex pairs separated by '-' or ':'), else a serial
    // number. Empty text throws (QRN_ERR_INVALID).
    static DeviceLookup ByMacSerialOrAddress(const char* text);
    // The rule of the network tools: a text with '-' is a MAC and must be a well-formed one
    // (QRN_ERR_INVALID otherwise); any other text is a serial number.
    static DeviceLookup ByMacOrSerial(const char* text);
    // A MAC from its six bytes.
    static DeviceLookup ByMac(const uint8_t* mac);

    Kind GetKind() const { return kind_; }
    const std::array<uint8_t, 6>& Mac() const { return mac_; }
    uint32_t Address() const { return address_; }
    // "MAC address 0a-3c-51-06-1a-fb", "serial number 400123", "IP address 192.168.1.70".
    std::string Description() const;
    bool Matches(const GigEVisionDeviceInfo& device) const;

    // Discovers on `interfaces` (unicast for an address, else broadcast or directed as
    // `broadcast` says) until the device answers or `timeoutMs` has passed. True with `device`
    // filled when it answered.
    bool Find(const std::vector<NetworkInterfaceController>& interfaces, int timeoutMs,
              bool broadcast, GigEVisionDeviceInfo* device) const;

    // The system names of `interfaces`, for messages: "lo (127.0.0.1), eth0 (10.0.0.2)".
    static std::string Describe(const std::vector<NetworkInterfaceController>& interfaces);

private:
    Kind kind_ = Kind::Serial;
    std::string serial_;
    std::array<uint8_t, 6> mac_{};
    uint32_t address_ = 0; // host byte order
};

} // namespace korvatin
