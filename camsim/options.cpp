// Command line of korvatin-camsim: what to simulate and where.
#include "options.h"

#include "udpsocket.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

bool parseUnsigned(const std::string& text, unsigned long long maximum, unsigned long long* value) {
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || text[0] == '-' || v > maximum)
        return false;
    *value = v;
    return true;
}

bool parseMac(const std::string& text, std::array<uint8_t, 6>* mac) {
    unsigned int b[6];
    char separator[5];
    if (text.size() != 17 || std::sscanf(text.c_str(), "%2x%c%2x%c%2x%c%2x%c%2x%c%2x", &b[0],
                                         &separator[0], &b[1], &separator[1], &b[2], &separator[2],
                                         &b[3], &separator[3], &b[4], &separator[4], &b[5]) != 11)
        return false;
    for (char c : separator) {
        if (c != ':' && c != '-')
            return false;
    }
    for (int i = 0; i < 6; ++i)
        (*mac)[i] = uint8_t(b[i]);
    return true;
}

// "MIN:MAX:INC", each a decimal number up to `maximum`, MIN <= MAX and INC >= 1.
bool parseRange(const std::string& text, unsigned long long maximum, CRange* range) {
    const std::size_t first = text.find(':');
    const std::size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    if (second == std::string::npos)
        return false;
    unsigned long long min = 0;
    unsigned long long max = 0;
    unsigned long long inc = 0;
    if (!parseUnsigned(text.substr(0, first), maximum, &min) ||
        !parseUnsigned(text.substr(first + 1, second - first - 1), maximum, &max) ||
        !parseUnsigned(text.substr(second + 1), maximum, &inc) || min > max || inc < 1)
        return false;
    *range = CRange{uint32_t(min), uint32_t(max), uint32_t(inc)};
    return true;
}

} // namespace

std::string COptions::usage() {
    return "Usage: korvatin-camsim [options]\n"
           "A simulated GigE Vision camera (GVCP and GVSP over UDP).\n"
           "\n"
           "  --address ADDR      IPv4 address of the first camera (default 127.0.0.1)\n"
           "  --serial TEXT       serial number of the first camera; the next ones count up\n"
           "                      (default: derived from the address)\n"
           "  --mac XX:XX:XX:XX:XX:XX  MAC address of the first camera; the next ones count up\n"
           "                      (default: 02:4b:56 followed by the address' last three bytes)\n"
           "  --count N           N cameras on consecutive addresses (default 1)\n"
           "  --width W           sensor width, the largest Width (default 1280, at most 4096)\n"
           "  --height H          sensor height, the largest Height (default 960, at most 3072)\n"
           "  --fps F             frame rate limit on top of the FrameRate feature (default none)\n"
           "  --lost-ratio R      stream packets dropped on purpose, per mille (default 0)\n"
           "  --pattern ramp|bars the image: the moving ramp (default) or still colour bars, in\n"
           "                      every pixel format\n"
           "  --lut-index MIN:MAX:INC\n"
           "                      the indexes LUTIndex takes (default 0:1023:1); the table has\n"
           "                      (MAX - MIN) / INC + 1 entries, 2 to 65536\n"
           "  --lut-value MIN:MAX:INC\n"
           "                      the values LUTValue takes (default 0:1023:1, MAX at most 65535)\n"
           "  --store DIR         directory where firmware and description files written through\n"
           "                      file access are kept\n"
           "  --slot-size BYTES   capacity of each file access slot, reported as FileSize's\n"
           "                      maximum (default 67108864)\n"
           "  --fail-write-at OFFSET  a file write that covers this byte offset fails, as a\n"
           "                      flash write error does; the file keeps its old content\n"
           "  --description FILE  serve this GenICam description (XML or zip) instead of the\n"
           "                      built-in one\n"
           "  --any-address       registers accept every address (sparse memory, zero until\n"
           "                      written), to browse a foreign description\n"
           "  --broken-first-url  the first description URL is a web address no host can load,\n"
           "                      so that hosts fall back to the second URL\n"
           "  --help              show this text\n"
           "  --version           show the program's version\n"
           "\n"
           "Prints \"listening on ADDR\" for each camera once it answers; stops on SIGINT or "
           "SIGTERM.\n";
}

bool COptions::parse(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            help_ = true;
            return true;
        }
        if (option == "--version") {
            version_ = true;
            return true;
        }
        if (option == "--any-address") {
            anyAddress = true;
            continue;
        }
        if (option == "--broken-first-url") {
            brokenFirstUrl = true;
            continue;
        }
        if (i + 1 >= argc) {
            error_ = "missing value after " + option;
            return false;
        }
        const std::string value = argv[++i];
        unsigned long long number = 0;
        if (option == "--address") {
            if (!ipv4FromString(value, &address)) {
                error_ = "invalid address: " + value;
                return false;
            }
        } else if (option == "--serial") {
            if (value.empty() || value.size() > 15) {
                error_ = "a serial number has 1 to 15 characters: " + value;
                return false;
            }
            serial = value;
        } else if (option == "--mac") {
            if (!parseMac(value, &mac)) {
                error_ = "invalid MAC address (expected 6 hexadecimal bytes): " + value;
                return false;
            }
            macGiven = true;
        } else if (option == "--count") {
            if (!parseUnsigned(value, 250, &number) || number < 1) {
                error_ = "--count takes 1 to 250: " + value;
                return false;
            }
            count = int(number);
        } else if (option == "--width") {
            if (!parseUnsigned(value, 4096, &number) || number < 16) {
                error_ = "--width takes 16 to 4096: " + value;
                return false;
            }
            widthMax = uint32_t(number) / 4 * 4;
        } else if (option == "--height") {
            if (!parseUnsigned(value, 3072, &number) || number < 2) {
                error_ = "--height takes 2 to 3072: " + value;
                return false;
            }
            heightMax = uint32_t(number) / 2 * 2;
        } else if (option == "--fps") {
            char* end = nullptr;
            fps = std::strtod(value.c_str(), &end);
            if (value.empty() || *end != '\0' || !(fps >= 0)) {
                error_ = "--fps takes a number of frames per second: " + value;
                return false;
            }
        } else if (option == "--lost-ratio") {
            if (!parseUnsigned(value, 1000, &number)) {
                error_ = "--lost-ratio takes 0 to 1000 (per mille): " + value;
                return false;
            }
            lostRatioPerMille = int(number);
        } else if (option == "--pattern") {
            if (value != "ramp" && value != "bars") {
                error_ = "--pattern takes ramp or bars: " + value;
                return false;
            }
            colourBars = value == "bars";
        } else if (option == "--lut-index") {
            if (!parseRange(value, 0xFFFFFFFFull, &lutIndex) || lutEntries() < 2 ||
                lutEntries() > 65536) {
                error_ = "--lut-index takes MIN:MAX:INC with MIN <= MAX, INC >= 1 and 2 to 65536 "
                         "entries: " +
                         value;
                return false;
            }
        } else if (option == "--lut-value") {
            if (!parseRange(value, 65535, &lutValue)) {
                error_ =
                    "--lut-value takes MIN:MAX:INC with MIN <= MAX <= 65535 and INC >= 1: " + value;
                return false;
            }
        } else if (option == "--store") {
            storeDirectory = value;
        } else if (option == "--slot-size") {
            char* end = nullptr;
            const unsigned long long bytes = std::strtoull(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || bytes == 0 || bytes > (256ull << 20)) {
                error_ = "--slot-size takes a byte count from 1 to 268435456: " + value;
                return false;
            }
            slotSize = uint32_t(bytes);
        } else if (option == "--fail-write-at") {
            char* end = nullptr;
            const unsigned long long offset = std::strtoull(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || offset > 0xFFFFFFFFull) {
                error_ = "--fail-write-at takes a byte offset: " + value;
                return false;
            }
            failWriteAt = int64_t(offset);
        } else if (option == "--description") {
            descriptionFile = value;
        } else {
            error_ = "unknown option " + option;
            return false;
        }
    }
    if (uint64_t(address) + uint64_t(count) - 1 > 0xFFFFFFFFull) {
        error_ = "--count runs past the last IPv4 address";
        return false;
    }
    return true;
}

std::string COptions::serialOf(int index) const {
    if (serial.empty())
        return std::to_string(100000000u + (addressOf(index) & 0xFFFFFFu));
    unsigned long long number = 0;
    if (parseUnsigned(serial, 0xFFFFFFFFFFFFull, &number))
        return std::to_string(number + unsigned(index));
    return index == 0 ? serial : serial + "-" + std::to_string(index);
}

std::array<uint8_t, 6> COptions::macOf(int index) const {
    std::array<uint8_t, 6> result{};
    if (macGiven) {
        uint64_t value = 0;
        for (uint8_t b : mac)
            value = value << 8 | b;
        value += unsigned(index);
        for (int i = 5; i >= 0; --i, value >>= 8)
            result[i] = uint8_t(value);
        return result;
    }
    const uint32_t a = addressOf(index);
    return {0x02, 0x4b, 0x56, uint8_t(a >> 16), uint8_t(a >> 8), uint8_t(a)};
}
