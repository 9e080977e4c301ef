// The streaming commands of viewlane-cli: grab, record, save-frame and histogram, through the
// viewer's session.
#pragma once

#include "clioptions.h"

#include <iosfwd>
#include <memory>
#include <string>

class CAppSettings;
class CCliCommands;
class CKorvatinCameraViewlane;

// Each command connects through the same camera session the viewer uses (with the viewer's
// settings file or its defaults), streams, and disconnects again, also when it fails. Results go
// to `out`; the first error is thrown (CKorvatinException) and main prints it as one line.
class CCliStreamCommands {
public:
    CCliStreamCommands(const CCliOptions& options, CCliCommands& discovery, std::ostream& out);
    ~CCliStreamCommands();

    // Receives options.frames frames and prints frames received, frames dropped, frames per
    // second and megabytes per second, then the packets resent and the frames incomplete.
    void Grab(const std::string& device);
    // Records options.frames frames (0: until interrupted) into `file` and waits until the
    // recording has ended.
    void Record(const std::string& device, const std::string& file);
    // Takes one received frame and writes it to `file` as raw data, TIFF or BMP.
    void SaveFrame(const std::string& device, const std::string& file);
    // Receives options.frames frames (default 1) and prints one "CHANNEL min max mean stddev
    // clipped-low clipped-high" line per channel, computed as the window's histogram panel
    // computes it, then with --bins one "CHANNEL LEVEL COUNT" line per level that holds pixels.
    void Histogram(const std::string& device);

    // Asks the running command to finish early (stop grabbing, end the recording). Safe to call
    // from a signal handler.
    static void Interrupt();

private:
    // Reads the settings, makes the session, connects and applies --pixel-format.
    CKorvatinCameraViewlane& Connect(const std::string& device);

    const CCliOptions& options_;
    CCliCommands& discovery_;
    std::ostream& out_;
    std::unique_ptr<CAppSettings> settings_;
    std::unique_ptr<CKorvatinCameraViewlane> session_;
};
