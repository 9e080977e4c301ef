// Programming the camera's look-up table from a file of one entry per line.
#include "lutprogramjob.h"

#include "cameranodesetting.h"
#include "maintenancejobhost.h"

#include <korvatin/korvatincamera.h>

#include <QFile>

#include <cstdio>
#include <vector>

namespace {

struct Limits {
    uint32_t min;
    uint32_t max;
    uint32_t inc;
};

Limits readLimits(CKorvatinCamera& camera, const char* name) {
    const Limits limits{camera.GetUInt32Min(name), camera.GetUInt32Max(name),
                        camera.GetUInt32Inc(name)};
    // A zero step would divide by zero below; no table can be addressed with it.
    if (limits.inc == 0)
        throw CKorvatinException(std::string(name) + " has an increment of 0", QRN_ERR_UNSUPPORTED);
    return limits;
}

} // namespace

CLutProgramJob::CLutProgramJob(CMaintenanceJobHost* host, CKorvatinCamera* camera)
    : m_host(host), m_camera(camera) {}

bool CLutProgramJob::Run(const QString& fileName) {
    m_host->SendThreadEvent(CMaintenanceJobHost::Started, 0, nullptr);
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        m_host->SendThreadEventText(CMaintenanceJobHost::Finished,
                                    "Failed to open file: " + fileName);
        return false;
    }
    auto finish = [this](const QString& message) {
        m_host->SendThreadEventText(CMaintenanceJobHost::Finished, message);
        return false;
    };
    try {
        QrnParamAttribute attribute{};
        m_camera->GetParamAttr("LUTEnable", &attribute);
        if (attribute.dataType == 0xFFFFFFFFu)
            return finish("LUT is not enabled in his camera.");

        const Limits value = readLimits(*m_camera, "LUTValue");
        const Limits index = readLimits(*m_camera, "LUTIndex");
        const uint32_t count = (index.max - index.min) / index.inc + 1;

        // Grown as lines arrive rather than allocated for `count` up front: a camera reporting
        // a huge table then fails on the file's length, not on memory.
        std::vector<uint32_t> entries;
        for (uint32_t k = 0; k < count; ++k) {
            char piece[kLinePieceSize] = {};
            int scanned = 0;
            if (file.readLine(piece, kLinePieceSize) > 0)
                scanned = std::sscanf(piece, "%i", reinterpret_cast<int*>(&entries.emplace_back()));
            if (scanned != 1)
                return finish(
                    QString("No enough entries. Available: %1 Needed: %2.").arg(k).arg(count));
            const uint32_t entry = entries.back();
            if (entry < value.min || entry > value.max)
                return finish(QString("Value(%1) of entry %2 is out of range (%3 - %4).")
                                  .arg(entry)
                                  .arg(k)
                                  .arg(value.min)
                                  .arg(value.max));
            if (entry % value.inc != 0)
                return finish(QString("Value(%1) of entry %2 is invalid. Should be multiple of %3.")
                                  .arg(entry)
                                  .arg(k)
                                  .arg(value.inc));
        }

        uint32_t position = index.min;
        for (uint32_t k = 0; k < count; ++k) {
            QString error;
            if (!m_host->CameraSet(TCameraNodeSetting::UInt32("LUTIndex", position), error) ||
                !m_host->CameraSet(TCameraNodeSetting::UInt32("LUTValue", entries[k]), error))
                return finish(QString("Fail to set LUT. Entry: %1. Error: %2").arg(k).arg(error));
            m_host->SendThreadEventNumber(CMaintenanceJobHost::Progress,
                                          int(uint64_t(k + 1) * 100 / count));
            position += index.inc;
        }
    } catch (const std::exception& e) {
        return finish(QString("LUT program failed: ") + QString::fromLocal8Bit(e.what()));
    }
    m_host->SendThreadEventText(CMaintenanceJobHost::Finished, "Program is completed successfully");
    return true;
}
