// Command line of korvatin-camsim: what to simulate and where.
#pragma once

#include <array>
#include <cstdint>
#include <string>

// A feature range the command line sets: minimum, maximum and increment.
struct CRange {
    uint32_t min = 0;
    uint32_t max = 0;
    uint32_t inc = 1;
};

class COptions {
public:
    // Parses argv. Returns false with error() set for bad input; helpRequested() after --help.
    bool parse(int argc, char** argv);
    static std::string usage();

    const std::string& error() const { return error_; }
    bool helpRequested() const { return help_; }
    bool versionRequested() const { return version_; }

    uint32_t address = 0x7F000001; // 127.0.0.1, host byte order
    std::string serial;            // empty: derived from the address
    std::array<uint8_t, 6> mac{};
    bool macGiven = false;
    int count = 1;
    uint32_t widthMax = 1280;
    uint32_t heightMax = 960;
    double fps = 0; // 0: no limit beyond the FrameRate feature
    int lostRatioPerMille = 0;
    std::string storeDirectory;
    uint32_t slotSize = 64u << 20; // capacity of each file access slot, in bytes
    int64_t failWriteAt = -1;      // a file write covering this offset fails; -1: none
    std::string descriptionFile;
    bool anyAddress = false;
    bool brokenFirstUrl = false; // the first description URL cannot be loaded
    bool colourBars = false;     // --pattern bars: still colour bars instead of the ramp
    // The look-up table: the indexes LUTIndex takes and the values LUTValue takes.
    CRange lutIndex{0, 1023, 1};
    CRange lutValue{0, 1023, 1};
    // Entries of the look-up table: (MAX - MIN) / INC + 1 of lutIndex.
    uint64_t lutEntries() const {
        return (uint64_t(lutIndex.max) - lutIndex.min) / lutIndex.inc + 1;
    }

    // Identity of camera number `index` (0-based) of a --count run.
    uint32_t addressOf(int index) const { return address + uint32_t(index); }
    std::string serialOf(int index) const;
    std::array<uint8_t, 6> macOf(int index) const;

private:
    std::string error_;
    bool help_ = false;
    bool version_ = false;
};
