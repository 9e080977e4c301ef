// The command line of viewlane-cli: the command, its arguments and the discovery options.
#include "clioptions.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace {

int32_t parseTimeout(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || value < 0 || value > INT32_MAX)
        throw CUsageError("--timeout needs a number of milliseconds, not \"" + text + "\"");
    return int32_t(value);
}

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
    return -1;
}

} // namespace

const char* CCliOptions::Usage() {
    return "Usage: viewlane-cli [OPTIONS] COMMAND [ARGUMENTS]\n"
           "\n"
           "Commands:\n"
           "  list                       one line per device found: manufacturer, serial number,\n"
           "                             IP address, model, MAC, host interface (tab-separated)\n"
           "  tree DEVICE                every feature from Root, two spaces of indent per depth:\n"
           "                             display name, name, type, access, value (tab-separated)\n"
           "  get DEVICE FEATURE         the current value of one feature\n"
           "  set DEVICE FEATURE VALUE   writes one feature (integers in decimal or 0x hex,\n"
           "                             booleans true/false, enumerations by entry name,\n"
           "                             commands execute with 1 or execute)\n"
           "\n"
           "DEVICE is a serial number, an IP address or a MAC address (xx-xx-xx-xx-xx-xx).\n"
           "\n"
           "Options:\n"
           "  --interface ADDR   discover on the host interface with this IPv4 address only\n"
           "  --broadcast        send discovery to 255.255.255.255 instead of the subnet\n"
           "  --timeout MS       how long discovery waits for answers (default 1000)\n"
           "  --help             this text\n"
           "\n"
           "KORVATIN_GEV_INTERFACES (comma-separated interface names or addresses) limits which\n"
           "interfaces discovery uses.\n";
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
        } else if (name == "--broadcast" && !hasValue) {
            options.broadcast = true;
        } else if (name == "--interface") {
            options.interfaceAddress = takeValue();
            if (options.interfaceAddress.empty())
                throw CUsageError("--interface needs an IPv4 address");
        } else if (name == "--timeout") {
            options.timeoutMs = parseTimeout(takeValue());
        } else {
            throw CUsageError("unknown option " + arg);
        }
    }
    if (options.help)
        return options;
    if (positional.empty())
        throw CUsageError("no command given");
    options.command = positional.front();
    options.arguments.assign(positional.begin() + 1, positional.end());
    const int expected = expectedArguments(options.command);
    if (expected < 0)
        throw CUsageError("unknown command \"" + options.command + "\"");
    if (int(options.arguments.size()) != expected) {
        static const char* const forms[] = {"list", "tree DEVICE", "get DEVICE FEATURE",
                                            "set DEVICE FEATURE VALUE"};
        throw CUsageError(std::string("wrong number of arguments, expected: ") +
                          forms[options.command == "list"   ? 0
                                : options.command == "tree" ? 1
                                : options.command == "get"  ? 2
                                                            : 3]);
    }
    return options;
}
