// Saving a camera's feature values to a device settings file and writing them back.
#pragma once

#include "cameranodesetting.h"

#include <korvatin/korvatingenicamnodet.h>

#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>

class CKorvatinCamera;
class CMaintenanceJobHost;

// The file holds one feature per line, "%1 %2 %3" (name, type word, value text), each line ended
// by LF. Reads run on the job's thread straight through the camera; every write goes through the
// host's CameraSet. The host receives the job's events, one event 4 last.
class DeviceSettingsJob {
public:
    // Names never saved and ignored when loading: table selectors and their values, which the
    // LUT tool programs.
    static const QStringList& ExcludedNames();

    DeviceSettingsJob(CMaintenanceJobHost* host, CKorvatinCamera* camera);

    // The save job: walks the feature tree from its root and writes every UInt32, Int32,
    // Boolean, String and Enumeration value to `fileName`. True when the file was written.
    bool Save(const QString& fileName);
    // The load job: reads `fileName`, then writes its values: enumerations first, then the
    // preparation writes, then every other line in file order, with Exposure, HDRp1 and HDRp2
    // last. True when every write succeeded.
    bool Load(const QString& fileName);

    // The steps of the two jobs, for callers that need them alone. Each throws
    // CKorvatinException on the failures the jobs report.
    void Walk(const CKorvatinGenICamNodeT& node);
    void WriteFile(const QString& fileName) const;
    void ReadFile(const QString& fileName);
    void Apply();

    const QList<TCameraNodeSetting>& Settings() const { return m_settings; }
    // The persistent network features (persistent address, mask, gateway, IP configuration
    // flags) whose value the last Apply changed, in the order written.
    const QStringList& NetworkConfigurationChanged() const { return m_networkChanged; }

private:
    // Sends one node's progress: the visited count up to 100, then 0 for every further node.
    void SendWalkProgress();
    // Writes through the host; on failure keeps "name : reason" in `firstError` if it is empty.
    void WriteKeepingFirstError(const TCameraNodeSetting& setting, QString& firstError);

    CMaintenanceJobHost* m_host; // borrowed: the dialog or the command line that runs the job
    CKorvatinCamera* m_camera;   // borrowed: the connected camera
    QList<TCameraNodeSetting> m_settings;
    int32_t m_visited = 0;
    int32_t m_progressTotal = 0;
    QStringList m_networkChanged;
};
