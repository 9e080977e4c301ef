// The command line of viewlane-cli: the command, its arguments and the discovery options.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// A command line that cannot be understood; main prints it with the usage hint.
class CUsageError : public std::runtime_error {
public:
    explicit CUsageError(const std::string& message) : std::runtime_error(message) {}
};

class CCliOptions {
public:
    static constexpr int32_t kDefaultTimeoutMs = 1000;
    static constexpr int32_t kDefaultStreamTimeoutMs = 5000;

    // Throws CUsageError for an unknown option, a missing or malformed option value, an
    // unknown command or the wrong number of arguments for the command.
    static CCliOptions Parse(int argc, char** argv);

    // The usage text printed by --help.
    static const char* Usage();
    // Whether `command` prints its result as JSON with --json.
    static bool PrintsJson(const std::string& command);

    bool help = false;
    bool version = false; // --version: print the program's and the SDK's versions
    // "list", "tree", "get", "set", "grab", "record", "save-frame", "save-settings",
    // "load-settings", "program-lut", "firmware-upgrade", "program-xml", "force-ip", "reboot",
    // "ip-config" or "doctor"
    std::string command;
    std::vector<std::string> arguments; // the command's own arguments
    std::string interfaceAddress;       // empty: every interface
    bool broadcast = false;
    bool noHeader = false; // --no-header: list prints its rows only
    bool json = false;     // --json: the result as one JSON document (commands that print one)
    int32_t timeoutMs = kDefaultTimeoutMs;

    // Streaming commands.
    int32_t frames = -1;      // --frames: frames to grab or record; -1 when not given
    std::string pixelFormat;  // --pixel-format: PixelFormat entry set before streaming
    uint32_t bayerMode = 0;   // --bayer: 0 none, 1 nearest neighbour, 3 bilinear
    std::string format;       // --format of save-frame: "raw", "tif" or "bmp"
    std::string settingsFile; // --settings: INI file of the viewer; empty: defaults
    int32_t streamTimeoutMs = kDefaultStreamTimeoutMs; // --stream-timeout: longest frame wait

    // ip-config: the values to write (empty: keep the device's) and whether to make the device
    // restart its IP configuration afterwards (--apply).
    struct IpConfig {
        std::string dhcp;       // --dhcp: "on", "off" or empty
        std::string persistent; // --persistent: "on", "off" or empty
        std::string ip;         // --ip
        std::string mask;       // --mask
        std::string gateway;    // --gateway
        bool apply = false;     // --apply
        bool Writes() const {
            return !dhcp.empty() || !persistent.empty() || !ip.empty() || !mask.empty() ||
                   !gateway.empty();
        }
    };
    IpConfig ipConfig;

    bool alternate = false; // --alternate: firmware-upgrade writes the alternate flash address

    // Feature tree and image tools.
    std::string visibility; // --visibility of tree: "beginner", "expert", "guru"; empty: all
    bool bins = false;      // --bins: histogram prints its bins after the figures
};
