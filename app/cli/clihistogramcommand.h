// viewlane-cli histogram: the figures (and with --bins the counts) of the histogram over N
// received frames, computed as the window's histogram panel computes them.
#pragma once

#include "clioptions.h"

#include <iosfwd>
#include <string>

class CCliCommands;

class CCliHistogramCommand {
public:
    CCliHistogramCommand(const CCliOptions& options, CCliCommands& discovery, std::ostream& out);

    // Connects to `device`, streams until --frames frames (default 1) were received, and prints
    // one "CHANNEL min max mean stddev clipped-low clipped-high" line per channel, then with
    // --bins one "CHANNEL LEVEL COUNT" line per level that holds pixels. Throws
    // CKorvatinException when the device cannot be reached, does not stream, or sends a format
    // that cannot be converted.
    void Histogram(const std::string& device);

private:
    const CCliOptions& options_;
    CCliCommands& discovery_;
    std::ostream& out_;
};
