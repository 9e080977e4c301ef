// The network commands of viewlane-cli on the camera SDK: force-ip, reboot and ip-config.
#include "clinetworkcommands.h"

#include "clicommands.h"
#include "clijson.h"

#include <korvatin/korvatincamera.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <ostream>

namespace {

constexpr const char* kAllZero = "0.0.0.0";

// An address as ReadIpConfigure gives it (network byte order) in dotted text.
std::string dotted(uint32_t networkOrder) {
    in_addr address{};
    address.s_addr = networkOrder;
    return inet_ntoa(address);
}

const char* onOff(bool on) {
    return on ? "on" : "off";
}

} // namespace

CCliNetworkCommands::CCliNetworkCommands(const CCliOptions& options, CCliCommands& commands,
                                         std::ostream& out)
    : options_(options), commands_(commands), out_(out) {}

const char* CCliNetworkCommands::InterfaceAddress() const {
    return options_.interfaceAddress.empty() ? nullptr : options_.interfaceAddress.c_str();
}

void CCliNetworkCommands::ForceIp(const std::string& device, const std::string& ip,
                                  const std::string& mask, const std::string& gateway) {
    CKorvatinCamera::ForceIPEx(device.c_str(), ip.c_str(), mask.c_str(), gateway.c_str(),
                               InterfaceAddress());
    if (ip == kAllZero)
        out_ << device << ": restarting its IP configuration\n";
    else
        out_ << device << ": now at " << ip << ", subnet mask " << mask << ", default gateway "
             << gateway << '\n';
}

void CCliNetworkCommands::Reboot(const std::string& device) {
    try {
        CKorvatinCamera::ForceReboot(device.c_str(), InterfaceAddress());
    } catch (const CKorvatinException& e) {
        if (e.Code() != QRN_ERR_ACCESS)
            throw;
        // Said as every command that writes says it, naming the host in control.
        throw CCliCommands::ControlError(device, commands_.FindDevice(device), e);
    }
    out_ << device << ": reset; the device restarts\n";
}

void CCliNetworkCommands::IpConfig(const std::string& device) {
    const GigEVisionDeviceInfo info = commands_.FindDevice(device);
    const CCliOptions::IpConfig& change = options_.ipConfig;
    CKorvatinCamera camera;
    // Reading the configuration works while another host controls the device; writing it
    // needs control.
    if (change.Writes())
        CCliCommands::ConnectForWriting(device, info, [&] { camera.Connect(info, nullptr); });
    else
        camera.ConnectForReading(info, nullptr);
    bool dhcp = false;
    bool persistent = false;
    uint32_t ip = 0;
    uint32_t mask = 0;
    uint32_t gateway = 0;
    camera.ReadIpConfigure(dhcp, persistent, ip, mask, gateway);

    if (change.Writes()) {
        // What is not given keeps the device's value.
        const bool newDhcp = change.dhcp.empty() ? dhcp : change.dhcp == "on";
        const bool newPersistent =
            change.persistent.empty() ? persistent : change.persistent == "on";
        const std::string newIp = change.ip.empty() ? dotted(ip) : change.ip;
        const std::string newMask = change.mask.empty() ? dotted(mask) : change.mask;
        const std::string newGateway = change.gateway.empty() ? dotted(gateway) : change.gateway;
        camera.WriteIpConfigure(newDhcp, newPersistent, newIp.c_str(), newMask.c_str(),
                                newGateway.c_str());
        camera.ReadIpConfigure(dhcp, persistent, ip, mask, gateway);
    }
    if (options_.json) {
        QJsonObject document{{"dhcp", dhcp},
                             {"persistentIp", persistent},
                             {"persistentIpAddress", CCliJson::Text(dotted(ip))},
                             {"persistentSubnetMask", CCliJson::Text(dotted(mask))},
                             {"persistentDefaultGateway", CCliJson::Text(dotted(gateway))},
                             {"currentIpAddress", CCliJson::Text(info.currentIp)},
                             {"currentSubnetMask", CCliJson::Text(info.currentSubnetMask)},
                             {"currentDefaultGateway", CCliJson::Text(info.defaultGateway)}};
        if (change.apply) {
            ApplyIpConfig(camera, info);
            document.insert("restarted", CCliJson::Text(info.macAddress));
        }
        CCliJson::Write(out_, document);
        return;
    }
    out_ << "DHCP\t" << onOff(dhcp) << '\n'
         << "Persistent IP\t" << onOff(persistent) << '\n'
         << "Persistent IP address\t" << dotted(ip) << '\n'
         << "Persistent subnet mask\t" << dotted(mask) << '\n'
         << "Persistent default gateway\t" << dotted(gateway) << '\n'
         << "Current IP address\t" << info.currentIp << '\n'
         << "Current subnet mask\t" << info.currentSubnetMask << '\n'
         << "Current default gateway\t" << info.defaultGateway << '\n';

    if (change.apply) {
        ApplyIpConfig(camera, info);
        out_ << info.macAddress << ": restarting its IP configuration\n";
    }
}

void CCliNetworkCommands::ApplyIpConfig(CKorvatinCamera& camera, const GigEVisionDeviceInfo& info) {
    // The device drops its connections when it changes address: ours is closed first.
    camera.Disconnect();
    CKorvatinCamera::ForceIPEx(info.macAddress, kAllZero, kAllZero, kAllZero, InterfaceAddress());
}
