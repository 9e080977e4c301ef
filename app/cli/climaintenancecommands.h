// The maintenance commands of viewlane-cli: device settings files, LUT programming, firmware
// upgrade and description programming.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>

class CCliCommands;
class CKorvatinCamera;
class CMaintenanceJobHost;

// Each command connects to the device, runs the same job the viewer's dialog runs, with direct
// writes, and prints the job's final text on `out`. They return false when the job failed;
// failures to reach the device are thrown.
class CCliMaintenanceCommands {
public:
    CCliMaintenanceCommands(CCliCommands& commands, std::ostream& out);

    bool SaveSettings(const std::string& device, const std::string& file);
    bool LoadSettings(const std::string& device, const std::string& file);
    bool ProgramLut(const std::string& device, const std::string& file);
    // The SDK's own transfers, which report through the host's progress callback.
    bool FirmwareUpgrade(const std::string& device, const std::string& file, bool alternate);
    bool ProgramXml(const std::string& device, const std::string& file);

private:
    using Job = std::function<bool(CMaintenanceJobHost& host, CKorvatinCamera& camera)>;
    // Connects to `device` (for reading only when `reading`) and runs `job` there with a host of
    // direct writes.
    bool RunOnDevice(const std::string& device, const Job& job, bool reading = false);

    CCliCommands& commands_;
    std::ostream& out_;
};
