// Programming the camera's look-up table from a file of one entry per line.
#pragma once

#include <QString>

#include <cstdint>

class CKorvatinCamera;
class CMaintenanceJobHost;

// The table is addressed through LUTIndex (which entry) and LUTValue (its value); LUTEnable is
// only checked for, never written. Every entry is read and checked against the camera's limits
// before the first write; each entry then takes two writes through the host's CameraSet.
class CLutProgramJob {
public:
    // Each line is read with this limit (at most one byte less per read); a longer line is read
    // in pieces, each counting as the next entry.
    static constexpr int kLinePieceSize = 10;

    CLutProgramJob(CMaintenanceJobHost* host, CKorvatinCamera* camera);

    // The whole job, events 1 to 4. True when every entry was written.
    bool Run(const QString& fileName);

private:
    CMaintenanceJobHost* m_host; // borrowed: the dialog or the command line that runs the job
    CKorvatinCamera* m_camera;   // borrowed: the connected camera
};
