// The network commands of viewlane-cli on the camera SDK: force-ip, reboot and ip-config.
#pragma once

#include "clioptions.h"

#include <iosfwd>
#include <string>

class CCliCommands;
class CKorvatinCamera;
struct GigEVisionDeviceInfo;

// Each command writes its result to `out` and throws (CKorvatinException) on the first error;
// main turns that into one line on standard error.
class CCliNetworkCommands {
public:
    // `commands` finds devices for ip-config; both must outlive this object.
    CCliNetworkCommands(const CCliOptions& options, CCliCommands& commands, std::ostream& out);

    // FORCEIP to the device named by MAC or serial number.
    void ForceIp(const std::string& device, const std::string& ip, const std::string& mask,
                 const std::string& gateway);
    // Executes the device's DeviceReset.
    void Reboot(const std::string& device);
    // Prints the IP configuration, after writing what the ip-config options give; with
    // --apply the device then restarts its IP configuration.
    void IpConfig(const std::string& device);

private:
    const char* InterfaceAddress() const;
    // --apply: closes `camera` and makes the device restart its IP configuration.
    void ApplyIpConfig(CKorvatinCamera& camera, const GigEVisionDeviceInfo& info);

    const CCliOptions& options_;
    CCliCommands& commands_;
    std::ostream& out_;
};
