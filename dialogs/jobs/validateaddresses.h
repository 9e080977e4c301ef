// The check of the address texts the network tools send to a camera.
#pragma once

// Checks, in this order, the MAC address (only when `mac` is not null), the IP address, the
// subnet mask and the default gateway; the first failure throws CKorvatinException with code
// QRN_ERR_INVALID and "Invalid MAC address.", "Invalid IP address.", "Invalid IP Subnetmask." or
// "Invalid default gateway.".
//
// A MAC is six groups of two hex digits, group i starting at character 3i and followed by '-'
// or the end of the text; anything after the sixth group is ignored, and a text shorter than
// the 17 characters the groups need is malformed. An address must be one inet_addr accepts and
// must not convert to all ones, so "255.255.255.255" is refused for all three.
void ValidateAddresses(const char* mac, const char* ip, const char* subnetMask,
                       const char* gateway);
