// The command line of viewlane-cli: the command, its arguments and the discovery options.
#include "clioptions.h"

#include <korvatincameraviewlane.h>

#include <korvatin/korvatinfeaturehelp.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <utility>

namespace {

int32_t parseNumber(const std::string& option, const std::string& what, const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || value < 0 || value > INT32_MAX)
        throw CUsageError(option + " needs " + what + ", not \"" + text + "\"");
    return int32_t(value);
}

std::string parseSwitch(const std::string& option, const std::string& text) {
    if (text != "on" && text != "off")
        throw CUsageError(option + " needs on or off, not \"" + text + "\"");
    return text;
}

std::string requireValue(const std::string& option, const std::string& what,
                         const std::string& text) {
    if (text.empty())
        throw CUsageError(option + " needs " + what);
    return text;
}

int32_t parseTimeout(const std::string& text) {
    return parseNumber("--timeout", "a number of milliseconds", text);
}

// The file name's extension from its last dot, in lower case; empty without one.
std::string lowerExtension(const std::string& file) {
    const size_t slash = file.find_last_of('/');
    const size_t dot = file.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return std::string();
    std::string extension = file.substr(dot);
    for (char& c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

// save-frame's format for a file named `file`: raw, tif or bmp, or empty for another name.
std::string formatOfExtension(const std::string& file) {
    const std::string extension = lowerExtension(file);
    if (extension == ".raw")
        return "raw";
    if (extension == ".tif" || extension == ".tiff")
        return "tif";
    if (extension == ".bmp")
        return "bmp";
    return std::string();
}

// The arguments of a command that takes an optional one.
constexpr int kZeroOrOne = 100;

// The number of arguments each command takes.
int expectedArguments(const std::string& command) {
    if (command == "list")
        return 0;
    if (command == "tree")
        return 1;
    if (command == "get")
        return 2;
    if (command == "set")
        return 3;
    if (command == "grab")
        return 1;
    if (command == "record" || command == "save-frame" || command == "save-settings" ||
        command == "load-settings" || command == "program-lut" || command == "firmware-upgrade" ||
        command == "program-xml")
        return 2;
    if (command == "force-ip")
        return 4;
    if (command == "reboot" || command == "ip-config")
        return 1;
    if (command == "doctor")
        return kZeroOrOne;
    if (command == "describe")
        return 2;
    if (command == "histogram")
        return 1;
    return -1;
}

} // namespace

const char* CCliOptions::Usage() {
    return "Usage: viewlane-cli [OPTIONS] COMMAND [ARGUMENTS]\n"
           "\n"
           "Commands:\n"
           "  list                       one line per device found: manufacturer, serial number,\n"
           "                             IP address, model, MAC, host interface (tab-separated),\n"
           "                             after a header line that --no-header leaves out\n"
           "  tree DEVICE                every feature from Root, two spaces of indent per depth:\n"
           "                             display name, name, type, access, value (tab-separated);\n"
           "                             with --visibility only those up to that level\n"
           "  get DEVICE FEATURE         the current value of one feature\n"
           "  describe DEVICE FEATURE    what a feature says about itself, one \"Field: text\"\n"
           "                             line each: name, type, access, description, range,\n"
           "                             increment, unit, representation, address, visibility\n"
           "  histogram DEVICE [--frames N] [--bayer MODE] [--bins]\n"
           "                             per channel (grey, or red, green and blue) one line\n"
           "                             CHANNEL min max mean stddev clipped-low clipped-high\n"
           "                             over N frames (default 1); --bins adds the counts;\n"
           "                             a Bayer mosaic counts as grey with --bayer none, else\n"
           "                             each cell into its colour at the format's depth\n"
           "  set DEVICE FEATURE VALUE   writes one feature (integers in decimal or 0x hex,\n"
           "                             booleans true/false, enumerations by entry name,\n"
           "                             commands execute with 1 or execute)\n"
           "  grab DEVICE --frames N     receives N frames through the viewer's streaming path\n"
           "                             and prints frames received, frames dropped, frames per\n"
           "                             second, megabytes per second, packets resent, frames\n"
           "                             incomplete and packets missing (the last three as\n"
           "                             Aravis counts them)\n"
           "  record DEVICE FILE.avi --frames N\n"
           "                             records N frames into an AVI file (0: until Ctrl+C)\n"
           "  save-frame DEVICE FILE [--format raw|tif|bmp]\n"
           "                             saves one received frame\n"
           "  save-settings DEVICE FILE  saves the device's feature values to a device settings\n"
           "                             file (one \"name type value\" line per feature)\n"
           "  load-settings DEVICE FILE  writes a device settings file's values into the device\n"
           "  program-lut DEVICE FILE.csv\n"
           "                             programs the device's look-up table, one entry per line\n"
           "                             (decimal, 0x hex or 0 octal); LUTEnable is left as it is\n"
           "  firmware-upgrade DEVICE FILE [--alternate]\n"
           "                             writes a firmware image into the device's flash (with\n"
           "                             --alternate at its alternate address) and reads it back\n"
           "                             to verify; the device runs it after a reset\n"
           "  program-xml DEVICE FILE    writes a GenICam description (.xml or .zip) into the\n"
           "                             device, once it loads here; served after a reset\n"
           "  force-ip MAC|SERIAL IP MASK GATEWAY\n"
           "                             gives the device a new IP address, subnet mask and\n"
           "                             default gateway at once (FORCEIP, also to a device\n"
           "                             outside this host's subnets); 0.0.0.0 0.0.0.0 0.0.0.0\n"
           "                             makes it restart its IP configuration\n"
           "  reboot MAC|SERIAL          resets the device (DeviceReset); refused while another\n"
           "                             host controls it\n"
           "  ip-config DEVICE           prints the device's IP configuration: DHCP, persistent\n"
           "                             IP and the persistent address, mask and gateway; with\n"
           "                             --dhcp, --persistent, --ip, --mask or --gateway writes\n"
           "                             them first (what is not given is kept)\n"
           "  doctor [DEVICE]            checks this host for what loses frames: the socket\n"
           "                             receive buffer limit (net.core.rmem_max) against the\n"
           "                             device's stream (without DEVICE, a 5-megapixel camera at\n"
           "                             60 fps), the MTU of the interface that reaches it\n"
           "                             against its packets, that interface's reverse-path\n"
           "                             filter and firewall rules that drop UDP; for each what\n"
           "                             was found, what it should be and the fixing command.\n"
           "                             Exit status 0 when all is well, 1 otherwise\n"
           "\n"
           "DEVICE is a serial number, an IP address or a MAC address (xx-xx-xx-xx-xx-xx). A\n"
           "device named by its IP address is asked directly, on any subnet this host reaches;\n"
           "a lookup by serial number or MAC ends as soon as the device answers.\n"
           "MAC|SERIAL is a MAC address (any text with '-' or ':') or a serial number.\n"
           "\n"
           "Options:\n"
           "  --interface ADDR   discover, force-ip and reboot on the host interface with this\n"
           "                     IPv4 address only\n"
           "  --broadcast        send discovery to 255.255.255.255 instead of the subnet\n"
           "  --no-header        list prints its device lines only\n"
           "  --json             list, tree, get, grab and ip-config print their result as one\n"
           "                     JSON document with the fields of the text form\n"
           "  --timeout MS       how long discovery waits for answers (default 1000)\n"
           "  --frames N         frames to grab or record\n"
           "  --pixel-format F   sets the camera's PixelFormat (Mono8, BayerRG8, ...) first\n"
           "  --bayer MODE       none, nearest or bilinear: how Bayer images are converted for\n"
           "                     record and save-frame (default none: the mosaic as grey)\n"
           "  --format F         raw, tif or bmp: the file format of save-frame (default: from\n"
           "                     the file's extension, .raw, .tif, .tiff or .bmp)\n"
           "  --settings FILE    the viewer's settings.ini (buffers, frame wait, ...); default:\n"
           "                     the viewer's defaults\n"
           "  --stream-timeout MS\n"
           "                     longest wait for a frame before the device counts as not\n"
           "                     streaming (default 5000)\n"
           "  --dhcp on|off      ip-config: enable or disable DHCP\n"
           "  --persistent on|off\n"
           "                     ip-config: enable or disable the persistent IP address\n"
           "  --ip A, --mask M, --gateway G\n"
           "                     ip-config: the persistent IP address, subnet mask and default\n"
           "                     gateway\n"
           "  --apply            ip-config: afterwards make the device restart its IP\n"
           "                     configuration (FORCEIP 0.0.0.0), so it takes it at once\n"
           "  --alternate        firmware-upgrade: write to the alternate flash address\n"
           "  --visibility LEVEL tree: beginner, expert or guru; features above the level are\n"
           "                     left out (default: every feature)\n"
           "  --bins             histogram: also print \"CHANNEL LEVEL COUNT\" per non-empty bin\n"
           "  --help             this text\n"
           "  --version          the versions of viewlane-cli and of the camera SDK\n"
           "\n"
           "KORVATIN_GEV_INTERFACES (comma-separated interface names or addresses) limits which\n"
           "interfaces discovery, force-ip and reboot use.\n";
}

bool CCliOptions::PrintsJson(const std::string& command) {
    return command == "list" || command == "tree" || command == "get" || command == "grab" ||
           command == "ip-config";
}

CCliOptions CCliOptions::Parse(int argc, char** argv) {
    CCliOptions options;
    std::vector<std::string> positional;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-' || arg == "-" ||
            (arg[1] != '-' && arg != "-h")) {
            // Negative numbers ("-5") are values, not options.
            positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        std::string name = arg;
        std::string value;
        bool hasValue = false;
        const auto equals = arg.find('=');
        if (equals != std::string::npos) {
            name = arg.substr(0, equals);
            value = arg.substr(equals + 1);
            hasValue = true;
        }
        auto takeValue = [&]() {
            if (hasValue)
                return value;
            if (i + 1 >= argc)
                throw CUsageError(name + " needs a value");
            return std::string(argv[++i]);
        };
        if (name == "--help" || name == "-h") {
            options.help = true;
        } else if (name == "--version" && !hasValue) {
            options.version = true;
        } else if (name == "--json" && !hasValue) {
            options.json = true;
        } else if (name == "--no-header" && !hasValue) {
            options.noHeader = true;
        } else if (name == "--broadcast" && !hasValue) {
            options.broadcast = true;
        } else if (name == "--interface") {
            options.interfaceAddress = takeValue();
            if (options.interfaceAddress.empty())
                throw CUsageError("--interface needs an IPv4 address");
        } else if (name == "--timeout") {
            options.timeoutMs = parseTimeout(takeValue());
        } else if (name == "--frames") {
            options.frames = parseNumber("--frames", "a number of frames", takeValue());
        } else if (name == "--pixel-format") {
            options.pixelFormat = takeValue();
            if (options.pixelFormat.empty())
                throw CUsageError("--pixel-format needs a PixelFormat entry name");
        } else if (name == "--bayer") {
            const std::string mode = takeValue();
            if (mode == "none")
                options.bayerMode = CKorvatinCameraViewlane::kBayerNone;
            else if (mode == "nearest")
                options.bayerMode = CKorvatinCameraViewlane::kBayerNearest;
            else if (mode == "bilinear")
                options.bayerMode = CKorvatinCameraViewlane::kBayerBilinear;
            else
                throw CUsageError("--bayer needs none, nearest or bilinear, not \"" + mode + "\"");
        } else if (name == "--format") {
            options.format = takeValue();
            if (options.format != "raw" && options.format != "tif" && options.format != "bmp")
                throw CUsageError("--format needs raw, tif or bmp, not \"" + options.format + "\"");
        } else if (name == "--settings") {
            options.settingsFile = takeValue();
            if (options.settingsFile.empty())
                throw CUsageError("--settings needs a file name");
        } else if (name == "--stream-timeout") {
            options.streamTimeoutMs =
                parseNumber("--stream-timeout", "a number of milliseconds", takeValue());
            if (options.streamTimeoutMs == 0)
                throw CUsageError("--stream-timeout needs a number of milliseconds above 0");
        } else if (name == "--dhcp") {
            options.ipConfig.dhcp = parseSwitch(name, takeValue());
        } else if (name == "--persistent") {
            options.ipConfig.persistent = parseSwitch(name, takeValue());
        } else if (name == "--ip") {
            options.ipConfig.ip = requireValue(name, "an IPv4 address", takeValue());
        } else if (name == "--mask") {
            options.ipConfig.mask = requireValue(name, "a subnet mask", takeValue());
        } else if (name == "--gateway") {
            options.ipConfig.gateway = requireValue(name, "an IPv4 address", takeValue());
        } else if (name == "--apply" && !hasValue) {
            options.ipConfig.apply = true;
        } else if (name == "--alternate" && !hasValue) {
            options.alternate = true;
        } else if (name == "--visibility") {
            options.visibility = takeValue();
            if (!CKorvatinFeatureHelp::ParseVisibility(options.visibility, nullptr))
                throw CUsageError("--visibility needs beginner, expert or guru, not \"" +
                                  options.visibility + "\"");
        } else if (name == "--bins" && !hasValue) {
            options.bins = true;
        } else {
            throw CUsageError("unknown option " + arg);
        }
    }
    if (options.help || options.version)
        return options;
    if (positional.empty())
        throw CUsageError("no command given");
    options.command = positional.front();
    options.arguments.assign(positional.begin() + 1, positional.end());
    const int expected = expectedArguments(options.command);
    if (expected < 0)
        throw CUsageError("unknown command \"" + options.command + "\"");
    const bool countRight = expected == kZeroOrOne ? options.arguments.size() <= 1
                                                   : int(options.arguments.size()) == expected;
    if (!countRight) {
        static const std::pair<const char*, const char*> forms[] = {
            {"list", "list"},
            {"tree", "tree DEVICE"},
            {"get", "get DEVICE FEATURE"},
            {"set", "set DEVICE FEATURE VALUE"},
            {"grab", "grab DEVICE --frames N"},
            {"record", "record DEVICE FILE.avi --frames N"},
            {"save-frame", "save-frame DEVICE FILE [--format raw|tif|bmp]"},
            {"save-settings", "save-settings DEVICE FILE"},
            {"load-settings", "load-settings DEVICE FILE"},
            {"program-lut", "program-lut DEVICE FILE.csv"},
            {"firmware-upgrade", "firmware-upgrade DEVICE FILE [--alternate]"},
            {"program-xml", "program-xml DEVICE FILE"},
            {"force-ip", "force-ip MAC|SERIAL IP MASK GATEWAY"},
            {"reboot", "reboot MAC|SERIAL"},
            {"ip-config", "ip-config DEVICE"},
            {"doctor", "doctor [DEVICE]"},
            {"describe", "describe DEVICE FEATURE"},
            {"histogram", "histogram DEVICE [--frames N] [--bayer MODE] [--bins]"}};
        std::string form;
        for (const auto& entry : forms) {
            if (options.command == entry.first)
                form = entry.second;
        }
        throw CUsageError("wrong number of arguments, expected: " + form);
    }
    if (options.json && !PrintsJson(options.command))
        throw CUsageError(options.command +
                          " has no JSON form; --json is for list, tree, get, grab and ip-config");
    if (options.command == "grab" && options.frames < 1)
        throw CUsageError("grab needs --frames N with N at least 1");
    if (options.command == "record" && options.frames < 0)
        throw CUsageError("record needs --frames N (0: until interrupted)");
    if (options.command == "save-frame" && options.format.empty()) {
        options.format = formatOfExtension(options.arguments[1]);
        if (options.format.empty())
            throw CUsageError("save-frame cannot tell the file format from \"" +
                              options.arguments[1] +
                              "\": name the file .raw, .tif or .bmp, or give --format");
    }
    if (options.command == "record" && lowerExtension(options.arguments[1]) != ".avi")
        throw CUsageError("record writes AVI files only: \"" + options.arguments[1] +
                          "\" does not end in .avi");
    return options;
}
