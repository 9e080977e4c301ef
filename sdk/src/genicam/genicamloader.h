// Fetches GenICam description text from a device's URLs or from a file, unzipping as needed.
#pragma once

#include <arv.h>

#include <string>

namespace korvatin {

class GenicamLoader {
public:
    // Bootstrap addresses of the device's first and second description URL.
    static constexpr uint64_t kFirstUrlAddress = 0x0200;
    static constexpr uint64_t kSecondUrlAddress = 0x0400;

    // The URL text stored at `urlAddress` of the device. Throws when it cannot be read.
    static std::string ReadUrl(ArvDevice* device, uint64_t urlAddress);

    // The description the URL points to ("Local:name;address;length" in device memory, or
    // "File:" on this host), unzipped when the name ends in .zip. Throws with the reason.
    static std::string Fetch(ArvDevice* device, const std::string& url);

    // The description held in `path`, a plain XML file or a zip holding one. Throws.
    static std::string FromFile(const char* path);
};

} // namespace korvatin
