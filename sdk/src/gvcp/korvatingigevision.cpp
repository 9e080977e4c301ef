// Host-side GigE Vision helpers: the list of IPv4 interfaces, from getifaddrs.
#include "korvatin/korvatingigevision.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <array>
#include <cstring>
#include <map>
#include <string>

namespace {

void copyText(char* destination, std::size_t size, const char* text) {
    std::memset(destination, 0, size);
    if (text != nullptr)
        std::strncpy(destination, text, size - 1);
}

std::string dotted(uint32_t hostOrder) {
    in_addr address{};
    address.s_addr = htonl(hostOrder);
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

} // namespace

std::vector<NetworkInterfaceController> CKorvatinGigEVision::EnumerateNICs() {
    std::vector<NetworkInterfaceController> result;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return result;

    // Hardware addresses come as separate AF_PACKET entries of the same interface name.
    std::map<std::string, std::array<uint8_t, 6>> macs;
    for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET)
            continue;
        const auto* link = reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
        std::array<uint8_t, 6> mac{};
        if (link->sll_halen == 6)
            std::memcpy(mac.data(), link->sll_addr, 6);
        macs[entry->ifa_name] = mac;
    }

    for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        if ((entry->ifa_flags & IFF_UP) == 0)
            continue;
        NetworkInterfaceController nic;
        std::memset(&nic, 0, sizeof nic);
        nic.address = ntohl(reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr.s_addr);
        nic.mask =
            entry->ifa_netmask != nullptr
                ? ntohl(reinterpret_cast<const sockaddr_in*>(entry->ifa_netmask)->sin_addr.s_addr)
                : 0xFFFFFFFFu;
        copyText(nic.name, sizeof nic.name, dotted(nic.address).c_str());
        copyText(nic.systemName, sizeof nic.systemName, entry->ifa_name);
        copyText(nic.subnetMask, sizeof nic.subnetMask, dotted(nic.mask).c_str());
        if ((entry->ifa_flags & IFF_LOOPBACK) == 0) {
            const auto mac = macs.find(entry->ifa_name);
            if (mac != macs.end())
                std::memcpy(nic.mac, mac->second.data(), 6);
        }
        result.push_back(nic);
    }
    freeifaddrs(list);
    return result;
}
