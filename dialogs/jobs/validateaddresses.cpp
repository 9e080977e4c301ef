// The check of the address texts the network tools send to a camera.
#include "validateaddresses.h"

#include "korvatin/korvatinexception.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int kMacGroups = 6;
constexpr size_t kMacLength = 3 * kMacGroups - 1; // "0a-3c-51-06-1a-fb"

bool MacWellFormed(const char* mac) {
    if (std::strlen(mac) < kMacLength)
        return false;
    for (int i = 0; i < kMacGroups; ++i) {
        const char* group = mac + 3 * i;
        if (group[2] != '-' && group[2] != '\0')
            return false;
        unsigned int value = 0;
        if (std::sscanf(group, "%2x", &value) != 1)
            return false;
    }
    return true;
}

bool AddressAccepted(const char* text) {
    return text && inet_addr(text) != INADDR_NONE;
}

void Refuse(const char* message) {
    throw CKorvatinException(message, QRN_ERR_INVALID);
}

} // namespace

void ValidateAddresses(const char* mac, const char* ip, const char* subnetMask,
                       const char* gateway) {
    if (mac && !MacWellFormed(mac))
        Refuse("Invalid MAC address.");
    if (!AddressAccepted(ip))
        Refuse("Invalid IP address.");
    if (!AddressAccepted(subnetMask))
        Refuse("Invalid IP Subnetmask.");
    if (!AddressAccepted(gateway))
        Refuse("Invalid default gateway.");
}
