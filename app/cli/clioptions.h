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

    // Throws CUsageError for an unknown option, a missing or malformed option value, an
    // unknown command or the wrong number of arguments for the command.
    static CCliOptions Parse(int argc, char** argv);

    // The usage text printed by --help.
    static const char* Usage();

    bool help = false;
    std::string command;                // "list", "tree", "get" or "set"
    std::vector<std::string> arguments; // the command's own arguments
    std::string interfaceAddress;       // empty: every interface
    bool broadcast = false;
    int32_t timeoutMs = kDefaultTimeoutMs;
};
