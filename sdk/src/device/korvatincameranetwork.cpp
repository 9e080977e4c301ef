// CKorvatinCamera's network tools: finding one device, force IP, force reboot, IP configuration.
#include "korvatin/korvatincamera.h"

#include "cameraconnection.h"
#include "devicelookup.h"
#include "gvcpdiscovery.h"
#include "gvcpforceip.h"
#include "gvcpsocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <chrono>
#include <string>

namespace {

using korvatin::DeviceLookup;
using korvatin::GvcpDiscovery;

constexpr int32_t kDefaultFindTimeoutMs = 100;
// How long a serial number or MAC is looked for; the lookup ends when the device answers.
constexpr int kLookupTimeoutMs = 1000;
// FORCEIP is sent up to three times, a second apart, while no acknowledgement came: a device
// may check that its new address is free before it answers.
constexpr int kForceIpAnswerTimeoutMs = 1000;
constexpr int kForceIpAttempts = 3;
// The control-channel privilege probe before a reboot.
constexpr int kProbeAnswerTimeoutMs = 500;
constexpr int kProbeAttempts = 3;

// Bootstrap registers.
constexpr uint32_t kIpConfiguration = 0x0014;
constexpr uint32_t kPersistentIp = 0x064C;
constexpr uint32_t kPersistentMask = 0x065C;
constexpr uint32_t kPersistentGateway = 0x066C;
constexpr uint32_t kControlChannelPrivilege = 0x0A00;
// The primary application's IP address: the host that holds control (optional register).
constexpr uint32_t kPrimaryApplicationIp = 0x0A14;
constexpr uint32_t kIpConfigPersistent = 1u << 0;
constexpr uint32_t kIpConfigDhcp = 1u << 1;
constexpr uint32_t kPrivilegeExclusive = 1u << 0;
constexpr uint32_t kPrivilegeControl = 1u << 1;

constexpr const char* kDeviceReset = "DeviceReset";

// A dotted IPv4 text, four decimal parts (host byte order), or the exception naming `what`.
uint32_t parseAddress(const char* text, const char* what) {
    in_addr parsed{};
    if (text == nullptr || inet_pton(AF_INET, text, &parsed) != 1)
        throw CKorvatinException(std::string("Invalid ") + what + " \"" +
                                     (text != nullptr ? text : "") +
                                     "\": expected four decimal numbers such as 192.168.1.70",
                                 QRN_ERR_INVALID);
    return ntohl(parsed.s_addr);
}

// An address a device may take: not 0.x.x.x, not multicast or reserved, not broadcast.
bool isUnicast(uint32_t address) {
    return (address >> 24) != 0 && (address >> 28) < 0xE;
}

// Ones followed by zeros.
bool isContiguousMask(uint32_t mask) {
    return mask != 0 && (~mask & (~mask + 1)) == 0;
}

void requireUnicast(uint32_t address, const char* text, const char* what) {
    if (!isUnicast(address))
        throw CKorvatinException(std::string("Invalid ") + what + " \"" + text +
                                     "\": not an address a device can take",
                                 QRN_ERR_INVALID);
}

void requireMask(uint32_t mask, const char* text) {
    if (!isContiguousMask(mask))
        throw CKorvatinException(std::string("Invalid subnet mask \"") + text +
                                     "\": expected leading ones, such as 255.255.255.0",
                                 QRN_ERR_INVALID);
}

// A gateway may be left out (0.0.0.0), else it must be an address a device can send to.
void requireGateway(uint32_t gateway, const char* text) {
    if (gateway != 0)
        requireUnicast(gateway, text, "default gateway");
}

std::vector<NetworkInterfaceController> interfacesFor(const char* interfaceAddress,
                                                      const char* job) {
    auto interfaces = GvcpDiscovery::ChooseInterfaces(interfaceAddress);
    if (interfaces.empty())
        throw CKorvatinException(std::string("No network interface to send ") + job +
                                     " on: KORVATIN_GEV_INTERFACES names none of this host's",
                                 QRN_ERR_NOT_FOUND);
    return interfaces;
}

// "device 0a-3c-51-06-1a-fb (serial number 400123, IP address 192.168.1.70)".
std::string deviceText(const GigEVisionDeviceInfo& device) {
    std::string text = std::string("device ") + device.macAddress;
    if (device.serialNumber[0] != '\0')
        text += std::string(" (serial number ") + device.serialNumber + ", IP address " +
                device.currentIp + ")";
    else
        text += std::string(" (IP address ") + device.currentIp + ")";
    return text;
}

GigEVisionDeviceInfo findOrThrow(const DeviceLookup& lookup,
                                 const std::vector<NetworkInterfaceController>& interfaces) {
    GigEVisionDeviceInfo device{};
    if (!lookup.Find(interfaces, kLookupTimeoutMs, true, &device))
        throw CKorvatinException("Unknown device: no device with the " + lookup.Description() +
                                     " answered discovery on " + DeviceLookup::Describe(interfaces),
                                 QRN_ERR_NOT_FOUND);
    return device;
}

enum class Privilege { Free, OtherHost, NoAnswer };

enum class RegisterRead { Value, Denied, Refused, NoAnswer };

// Reads one bootstrap register with a READREG of our own, from a socket that holds no control.
RegisterRead readRegister(const GigEVisionDeviceInfo& device, uint32_t address, uint32_t* value) {
    uint32_t local = 0;
    uint32_t remote = 0;
    try {
        local = parseAddress(device.hostInterfaceAddress, "host interface address");
        remote = parseAddress(device.currentIp, "device address");
    } catch (const CKorvatinException&) {
        return RegisterRead::NoAnswer;
    }
    korvatin::GvcpSocket socket;
    if (!socket.Open(local))
        return RegisterRead::NoAnswer;
    const uint16_t requestId = korvatin::gvcp::NextRequestId();
    std::vector<uint8_t> payload(4);
    korvatin::gvcp::PutBe32(payload.data(), address);
    const auto command = korvatin::gvcp::Command(korvatin::gvcp::kFlagAckRequired,
                                                 korvatin::gvcp::kReadRegCmd, requestId, payload);
    uint8_t packet[600];
    for (int attempt = 0; attempt < kProbeAttempts; ++attempt) {
        if (!socket.SendTo(remote, command))
            return RegisterRead::NoAnswer;
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(kProbeAnswerTimeoutMs);
        std::vector<bool> ready;
        while (korvatin::GvcpSocket::WaitAny({&socket}, deadline, &ready)) {
            ssize_t size = 0;
            while ((size = socket.Receive(packet, sizeof packet, nullptr)) >= 0) {
                if (size < 8 || korvatin::gvcp::Be16(packet + 2) != korvatin::gvcp::kReadRegAck ||
                    korvatin::gvcp::Be16(packet + 6) != requestId)
                    continue;
                const uint16_t status = korvatin::gvcp::Be16(packet);
                if (status == korvatin::gvcp::kStatusAccessDenied)
                    return RegisterRead::Denied;
                if (status != korvatin::gvcp::kStatusSuccess || size < 12)
                    return RegisterRead::Refused;
                *value = korvatin::gvcp::Be32(packet + 8);
                return RegisterRead::Value;
            }
        }
    }
    return RegisterRead::NoAnswer;
}

// Any control or exclusive bit of the control-channel privilege register, read by a host that
// holds no control, belongs to another host; an ACCESS_DENIED answer means another host holds
// exclusive access.
Privilege probePrivilege(const GigEVisionDeviceInfo& device) {
    uint32_t privilege = 0;
    switch (readRegister(device, kControlChannelPrivilege, &privilege)) {
    case RegisterRead::Denied:
        return Privilege::OtherHost;
    case RegisterRead::Refused:
        return Privilege::Free; // the device will say more when control is taken
    case RegisterRead::NoAnswer:
        return Privilege::NoAnswer;
    case RegisterRead::Value:
        break;
    }
    return (privilege & (kPrivilegeControl | kPrivilegeExclusive)) != 0 ? Privilege::OtherHost
                                                                        : Privilege::Free;
}

CKorvatinException controlledElsewhere(const GigEVisionDeviceInfo& device) {
    return CKorvatinException("The " + deviceText(device) +
                                  " is controlled by another host; it was not reset.",
                              QRN_ERR_ACCESS);
}

} // namespace

bool CKorvatinCamera::FindDevice(const char* id, GigEVisionDeviceInfo* device,
                                 const ListDevicesSettings* settings) {
    if (device == nullptr)
        throw CKorvatinException("FindDevice needs a descriptor to fill", QRN_ERR_INVALID);
    const DeviceLookup lookup = DeviceLookup::ByMacSerialOrAddress(id);
    const int32_t timeoutMs = settings != nullptr ? settings->timeoutMs : kDefaultFindTimeoutMs;
    const auto interfaces =
        GvcpDiscovery::ChooseInterfaces(settings != nullptr ? settings->interfaceAddress : nullptr);
    const bool broadcast = settings != nullptr && settings->broadcast != 0;
    return lookup.Find(interfaces, timeoutMs, broadcast, device);
}

void CKorvatinCamera::ForceIPEx(const char* macOrSerial, const char* ip, const char* subnetMask,
                                const char* gateway, const char* interfaceAddress) {
    const DeviceLookup lookup = DeviceLookup::ByMacOrSerial(macOrSerial);
    const uint32_t address = parseAddress(ip, "IP address");
    const uint32_t mask = parseAddress(subnetMask, "subnet mask");
    const uint32_t router = parseAddress(gateway, "default gateway");
    // Address 0.0.0.0 restarts the device's IP configuration; mask and gateway are not used.
    if (address != 0) {
        requireUnicast(address, ip, "IP address");
        requireMask(mask, subnetMask);
        requireGateway(router, gateway);
    }
    const auto interfaces = interfacesFor(interfaceAddress, "FORCEIP");

    std::array<uint8_t, 6> mac = lookup.Mac();
    if (lookup.GetKind() == DeviceLookup::Kind::Serial) {
        const GigEVisionDeviceInfo device = findOrThrow(lookup, interfaces);
        std::copy(device.mac, device.mac + 6, mac.begin());
    }
    const DeviceLookup byMac = DeviceLookup::ByMac(mac.data());
    const auto result = korvatin::GvcpForceIp::Send(interfaces, mac, address, mask, router,
                                                    kForceIpAnswerTimeoutMs, kForceIpAttempts);
    switch (result.outcome) {
    case korvatin::GvcpForceIp::Outcome::Acknowledged:
        return;
    case korvatin::GvcpForceIp::Outcome::Refused: {
        char buffer[8];
        throw CKorvatinException("The device with the " + byMac.Description() +
                                     " refused FORCEIP to " + ip + " (" +
                                     korvatin::gvcp::StatusName(result.status, buffer) + ")",
                                 QRN_ERR_IO);
    }
    case korvatin::GvcpForceIp::Outcome::NoAnswer:
        break;
    }
    // Nothing acknowledged: tell a device that is not there from one that ignores FORCEIP.
    GigEVisionDeviceInfo device{};
    if (!byMac.Find(interfaces, kLookupTimeoutMs, true, &device))
        throw CKorvatinException("Unknown device: no device with the " + byMac.Description() +
                                     " answered FORCEIP or discovery on " +
                                     DeviceLookup::Describe(interfaces),
                                 QRN_ERR_NOT_FOUND);
    throw CKorvatinException("The " + deviceText(device) +
                                 " answers discovery but did not acknowledge FORCEIP to " + ip,
                             QRN_ERR_TIMEOUT);
}

void CKorvatinCamera::ForceReboot(const char* macOrSerial, const char* interfaceAddress) {
    const DeviceLookup lookup = DeviceLookup::ByMacOrSerial(macOrSerial);
    const auto interfaces = interfacesFor(interfaceAddress, "discovery");
    const GigEVisionDeviceInfo device = findOrThrow(lookup, interfaces);

    switch (probePrivilege(device)) {
    case Privilege::OtherHost:
        throw controlledElsewhere(device);
    case Privilege::NoAnswer:
        // Typically a device on a subnet the host has no route to: broadcast reaches it,
        // unicast does not.
        throw CKorvatinException("The " + deviceText(device) +
                                     " answered discovery but not a register read sent to its "
                                     "address; give it an address this host reaches (force IP)",
                                 QRN_ERR_TIMEOUT);
    case Privilege::Free:
        break;
    }

    std::unique_ptr<korvatin::CameraConnection> connection;
    try {
        connection = std::make_unique<korvatin::CameraConnection>(
            device, korvatin::CameraConnection::Options());
    } catch (const CKorvatinException& e) {
        // Another host took control between the probe and the connection.
        if (e.Code() == QRN_ERR_ACCESS)
            throw controlledElsewhere(device);
        throw;
    }
    if (connection->Description()->FindFeature(kDeviceReset) == nullptr) {
        throw CKorvatinException("The " + deviceText(device) + " has no DeviceReset command",
                                 QRN_ERR_UNSUPPORTED);
    }
    CKorvatinGenICamNodeT reset(connection->Description(), kDeviceReset);
    try {
        reset.ExecuteCommand();
    } catch (const CKorvatinException& e) {
        // A device may restart before it acknowledges the write that resets it; silence after
        // the command went out is taken as the restart.
        if (e.Code() != QRN_ERR_TIMEOUT)
            throw;
    }
    connection->ForgetControl();
}

void CKorvatinCamera::ReadIpConfigure(bool& dhcp, bool& persistentIp, uint32_t& ip,
                                      uint32_t& subnetMask, uint32_t& gateway) {
    if (!connection_)
        throw CKorvatinException("No camera is connected", QRN_ERR_NOT_CONNECTED);
    ArvDevice* device = connection_->Device();
    const auto read = [device](uint32_t address, const char* what) {
        guint32 value = 0;
        korvatin::GErrorPtr error;
        if (!arv_device_read_register(device, address, &value, korvatin::Out(error)) || error)
            throw CKorvatinException(
                std::string("Cannot read the ") + what + ": " +
                    (error ? error->message : "no answer"),
                error && error->code == ARV_DEVICE_ERROR_TIMEOUT ? QRN_ERR_TIMEOUT : QRN_ERR_IO);
        return uint32_t(value);
    };
    const uint32_t configuration = read(kIpConfiguration, "IP configuration");
    const uint32_t address = read(kPersistentIp, "persistent IP address");
    const uint32_t mask = read(kPersistentMask, "persistent subnet mask");
    const uint32_t router = read(kPersistentGateway, "persistent default gateway");
    dhcp = (configuration & kIpConfigDhcp) != 0;
    persistentIp = (configuration & kIpConfigPersistent) != 0;
    ip = htonl(address);
    subnetMask = htonl(mask);
    gateway = htonl(router);
}

void CKorvatinCamera::WriteIpConfigure(bool dhcp, bool persistentIp, const char* ip,
                                       const char* subnetMask, const char* gateway) {
    if (!connection_)
        throw CKorvatinException("No camera is connected", QRN_ERR_NOT_CONNECTED);
    const uint32_t address = parseAddress(ip, "IP address");
    const uint32_t mask = parseAddress(subnetMask, "subnet mask");
    const uint32_t router = parseAddress(gateway, "default gateway");
    if (persistentIp) {
        requireUnicast(address, ip, "IP address");
        requireMask(mask, subnetMask);
        requireGateway(router, gateway);
    }
    ArvDevice* device = connection_->Device();
    const auto write = [device](uint32_t registerAddress, uint32_t value, const char* what) {
        korvatin::GErrorPtr error;
        if (!arv_device_write_register(device, registerAddress, value, korvatin::Out(error)) ||
            error)
            throw CKorvatinException(
                std::string("Cannot write the ") + what + ": " +
                    (error ? error->message : "no answer"),
                error && error->code == ARV_DEVICE_ERROR_TIMEOUT ? QRN_ERR_TIMEOUT : QRN_ERR_IO);
    };
    // The addresses first, so the device never has persistent IP enabled with an old address.
    write(kPersistentIp, address, "persistent IP address");
    write(kPersistentMask, mask, "persistent subnet mask");
    write(kPersistentGateway, router, "persistent default gateway");
    guint32 configuration = 0;
    korvatin::GErrorPtr error;
    if (!arv_device_read_register(device, kIpConfiguration, &configuration, korvatin::Out(error)) ||
        error)
        throw CKorvatinException(std::string("Cannot read the IP configuration: ") +
                                     (error ? error->message : "no answer"),
                                 QRN_ERR_IO);
    configuration &= ~(kIpConfigDhcp | kIpConfigPersistent);
    if (dhcp)
        configuration |= kIpConfigDhcp;
    if (persistentIp)
        configuration |= kIpConfigPersistent;
    write(kIpConfiguration, configuration, "IP configuration");
}

std::string CKorvatinCamera::ControllingHost(const GigEVisionDeviceInfo& device) {
    switch (probePrivilege(device)) {
    case Privilege::Free:
        return std::string();
    case Privilege::NoAnswer:
        throw CKorvatinException(std::string("The device at ") + device.currentIp +
                                     " does not answer a register read",
                                 QRN_ERR_TIMEOUT);
    case Privilege::OtherHost:
        break;
    }
    uint32_t address = 0;
    if (readRegister(device, kPrimaryApplicationIp, &address) != RegisterRead::Value ||
        address == 0)
        return "an address the device does not tell";
    in_addr text{};
    text.s_addr = htonl(address);
    return inet_ntoa(text);
}
