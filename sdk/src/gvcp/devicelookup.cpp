// Finding one device by its MAC address, serial number or IP address through discovery.
#include "devicelookup.h"

#include "gvcpdiscovery.h"
#include "korvatin/korvatinexception.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdio>
#include <cstring>

namespace korvatin {

namespace {

// Enough for every device of a large installation that may answer before the one looked for.
constexpr unsigned int kMaxAnswers = 256;

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Six hex pairs with '-' or ':' between them, nothing else.
bool parseMac(const char* text, std::array<uint8_t, 6>* mac) {
    if (std::strlen(text) != 17)
        return false;
    for (int i = 0; i < 6; ++i) {
        const int high = hexDigit(text[3 * i]);
        const int low = hexDigit(text[3 * i + 1]);
        if (high < 0 || low < 0)
            return false;
        if (i < 5 && text[3 * i + 2] != '-' && text[3 * i + 2] != ':')
            return false;
        (*mac)[i] = uint8_t(high << 4 | low);
    }
    return true;
}

// Four decimal parts only: inet_pton's strict form, so a serial number such as "400123" is
// never taken for an address.
bool parseAddress(const char* text, uint32_t* address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, text, &parsed) != 1)
        return false;
    *address = ntohl(parsed.s_addr);
    return true;
}

std::string macText(const std::array<uint8_t, 6>& mac) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x-%02x-%02x-%02x-%02x-%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return text;
}

void requireText(const char* text) {
    if (text == nullptr || text[0] == '\0')
        throw CKorvatinException("No MAC address or serial number given", QRN_ERR_INVALID);
}

} // namespace

DeviceLookup DeviceLookup::ByMacSerialOrAddress(const char* text) {
    requireText(text);
    DeviceLookup lookup;
    if (parseAddress(text, &lookup.address_)) {
        lookup.kind_ = Kind::Address;
    } else if (parseMac(text, &lookup.mac_)) {
        lookup.kind_ = Kind::Mac;
    } else {
        lookup.kind_ = Kind::Serial;
        lookup.serial_ = text;
    }
    return lookup;
}

DeviceLookup DeviceLookup::ByMacOrSerial(const char* text) {
    requireText(text);
    DeviceLookup lookup;
    if (std::strchr(text, '-') != nullptr || std::strchr(text, ':') != nullptr) {
        if (!parseMac(text, &lookup.mac_))
            throw CKorvatinException(std::string("Invalid MAC address \"") + text +
                                         "\": expected six hexadecimal pairs separated by '-', "
                                         "such as 0a-3c-51-06-1a-fb",
                                     QRN_ERR_INVALID);
        lookup.kind_ = Kind::Mac;
    } else {
        lookup.kind_ = Kind::Serial;
        lookup.serial_ = text;
    }
    return lookup;
}

DeviceLookup DeviceLookup::ByMac(const uint8_t* mac) {
    DeviceLookup lookup;
    lookup.kind_ = Kind::Mac;
    std::memcpy(lookup.mac_.data(), mac, 6);
    return lookup;
}

std::string DeviceLookup::Description() const {
    switch (kind_) {
    case Kind::Mac:
        return "MAC address " + macText(mac_);
    case Kind::Address: {
        in_addr address{};
        address.s_addr = htonl(address_);
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &address, text, sizeof text);
        return std::string("IP address ") + text;
    }
    case Kind::Serial:
        break;
    }
    return "serial number " + serial_;
}

bool DeviceLookup::Matches(const GigEVisionDeviceInfo& device) const {
    switch (kind_) {
    case Kind::Mac:
        return std::memcmp(device.mac, mac_.data(), 6) == 0;
    case Kind::Address: {
        uint32_t current = 0;
        return parseAddress(device.currentIp, &current) && current == address_;
    }
    case Kind::Serial:
        break;
    }
    return serial_ == device.serialNumber;
}

bool DeviceLookup::Find(const std::vector<NetworkInterfaceController>& interfaces, int timeoutMs,
                        bool broadcast, GigEVisionDeviceInfo* device) const {
    DiscoveryRequest request;
    if (kind_ == Kind::Address) {
        request.destination = DiscoveryRequest::Destination::Unicast;
        request.deviceAddress = address_;
    } else {
        request.destination = broadcast ? DiscoveryRequest::Destination::Broadcast
                                        : DiscoveryRequest::Destination::DirectedBroadcast;
    }
    request.timeoutMs = timeoutMs;
    request.wanted = [this](const GigEVisionDeviceInfo& answer) { return Matches(answer); };
    std::vector<GigEVisionDeviceInfo> answers(kMaxAnswers);
    const unsigned int count =
        GvcpDiscovery::Discover(interfaces, request, answers.data(), kMaxAnswers);
    for (unsigned int i = 0; i < count; ++i) {
        if (Matches(answers[i])) {
            *device = answers[i];
            return true;
        }
    }
    return false;
}

std::string DeviceLookup::Describe(const std::vector<NetworkInterfaceController>& interfaces) {
    if (interfaces.empty())
        return "no network interface (KORVATIN_GEV_INTERFACES names none of this host's)";
    std::string text;
    for (const auto& nic : interfaces) {
        if (!text.empty())
            text += ", ";
        text += std::string(nic.systemName) + " (" + nic.name + ")";
    }
    return text;
}

} // namespace korvatin
