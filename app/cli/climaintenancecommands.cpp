// The maintenance commands of viewlane-cli: device settings files, LUT programming, firmware
// upgrade and description programming.
#include "climaintenancecommands.h"

#include "clicommands.h"
#include "clijobhost.h"

#include <devicesettingsjob.h>
#include <lutprogramjob.h>

#include <korvatin/korvatincamera.h>
#include <korvatincameraviewlane.h>

#include <QString>

CCliMaintenanceCommands::CCliMaintenanceCommands(CCliCommands& commands, std::ostream& out)
    : commands_(commands), out_(out) {}

bool CCliMaintenanceCommands::RunOnDevice(const std::string& device, const Job& job, bool reading) {
    CKorvatinCamera camera;
    if (reading)
        commands_.ConnectForReading(camera, device);
    else
        commands_.ConnectTo(camera, device);
    CCliJobHost host(camera, out_);
    return job(host, camera);
}

bool CCliMaintenanceCommands::SaveSettings(const std::string& device, const std::string& file) {
    // Said before the device is asked anything, in one line naming the file.
    const std::string reason = CKorvatinCameraViewlane::WhyCannotWrite(file.c_str());
    if (!reason.empty())
        throw CKorvatinException("cannot write \"" + file + "\": " + reason, QRN_ERR_IO);
    // Saving only reads the device, so it works while another host controls it.
    return RunOnDevice(
        device,
        [&](CMaintenanceJobHost& host, CKorvatinCamera& camera) {
            return DeviceSettingsJob(&host, &camera).Save(QString::fromLocal8Bit(file));
        },
        true);
}

bool CCliMaintenanceCommands::LoadSettings(const std::string& device, const std::string& file) {
    return RunOnDevice(device, [&](CMaintenanceJobHost& host, CKorvatinCamera& camera) {
        return DeviceSettingsJob(&host, &camera).Load(QString::fromLocal8Bit(file));
    });
}

bool CCliMaintenanceCommands::ProgramLut(const std::string& device, const std::string& file) {
    return RunOnDevice(device, [&](CMaintenanceJobHost& host, CKorvatinCamera& camera) {
        return CLutProgramJob(&host, &camera).Run(QString::fromLocal8Bit(file));
    });
}

bool CCliMaintenanceCommands::FirmwareUpgrade(const std::string& device, const std::string& file,
                                              bool alternate) {
    return RunOnDevice(device, [&](CMaintenanceJobHost& host, CKorvatinCamera& camera) {
        return camera.FirmwareUpgrade(file.c_str(), alternate, &CCliJobHost::ProgressCallback,
                                      static_cast<CCliJobHost*>(&host)) == 0;
    });
}

bool CCliMaintenanceCommands::ProgramXml(const std::string& device, const std::string& file) {
    return RunOnDevice(device, [&](CMaintenanceJobHost& host, CKorvatinCamera& camera) {
        return camera.ProgramXML(file.c_str(), &CCliJobHost::ProgressCallback,
                                 static_cast<CCliJobHost*>(&host)) == 0;
    });
}
