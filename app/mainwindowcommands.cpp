// The main window's commands on the live stream (saving a frame, the auto region) and the small
// settings dialogs: GenICam XML file, device discovery, recording settings, About.
#include "mainwindow.h"

#include "appsettings.h"
#include "ui_mainwindow.h"

#include <devicediscoverythread.h>
#include <dialogabout.h>
#include <dialogdevicediscoverysettings.h>
#include <dialogrecordingsettings.h>
#include <displaytimer.h>
#include <korvatincameraviewlane.h>
#include <korvatinframeconverted.h>

#include <QFileDialog>
#include <QStringList>

#include <algorithm>
#include <cstring>

namespace {

uint32_t AutoRegionValue(CKorvatinCamera& camera, const char* feature, uint32_t value) {
    return MainWindow::AutoRegionRounded(value, camera.GetUInt32Min(feature),
                                         camera.GetUInt32Max(feature),
                                         camera.GetUInt32Inc(feature));
}

} // namespace

uint32_t MainWindow::AutoRegionRounded(uint32_t value, uint32_t min, uint32_t max, uint32_t inc) {
    value = std::max(min, std::min(value, max));
    if (inc != 0) {
        const uint32_t remainder = value % inc;
        value = 2 * remainder >= inc ? value - remainder + inc : value - remainder;
    }
    return value;
}

void MainWindow::on_pushButton_file_save_clicked() {
    static const QStringList kFilters = {"Raw data (*.raw)", "Tiff format (*.tif)",
                                         "BMP format (*.bmp)"};
    const bool displaying = m_displayTimer->isActive();
    if (displaying)
        m_displayTimer->setInterval(1000);
    QString selectedFilter = kFilters.first();
    const QString fileName = QFileDialog::getSaveFileName(this, "Save Frame to File", QString(),
                                                          kFilters.join(";;"), &selectedFilter);
    if (displaying)
        m_displayTimer->setInterval(uint(m_displayInterval));
    if (fileName.isEmpty())
        return;

    CKorvatinFrameConverted* frame = m_session->TakeDisplayFrame();
    if (frame == nullptr) {
        ShowMessage("Fail to get frame to save. Please start streaming.", this);
        return;
    }
    QString message = "Frame was saved to: " + fileName;
    try {
        m_session->SaveFrame(*frame->SourceRawFrame(), fileName.toLocal8Bit().constData(),
                             int(kFilters.indexOf(selectedFilter)),
                             ui->widgetGrabbedFrame->BayerMode());
    } catch (const std::exception& e) {
        message = QString("Frame failed to save: ") + e.what();
    }
    // Given back before the message: while it is open a lost connection releases every
    // holder, this one included.
    m_session->ReturnDisplayFrame(frame);
    ShowMessage(message, this);
}

void MainWindow::autoROIChanged(uint x, uint y, uint width, uint height) {
    try {
        // Offsets at 0 first, so that any size is accepted.
        m_session->SetUInt32("AutoOffsetX", 0);
        m_session->SetUInt32("AutoOffsetY", 0);
        const uint32_t sizeX = AutoRegionValue(*m_session, "AutoSizeX", width);
        const uint32_t sizeY = AutoRegionValue(*m_session, "AutoSizeY", height);
        m_session->SetUInt32("AutoSizeX", sizeX);
        m_session->SetUInt32("AutoSizeY", sizeY);
        const uint32_t offsetX = AutoRegionValue(*m_session, "AutoOffsetX", x);
        const uint32_t offsetY = AutoRegionValue(*m_session, "AutoOffsetY", y);
        m_session->SetUInt32("AutoOffsetX", offsetX);
        m_session->SetUInt32("AutoOffsetY", offsetY);
    } catch (const std::exception& e) {
        ShowMessage(QString("Auto region setting Error: ") + e.what(), this);
    }
}

void MainWindow::autoROIReset() {
    try {
        // Read once before the offsets go to 0, as the camera's range may depend on them; the
        // values written are read again after.
        m_session->GetUInt32Max("AutoSizeX");
        m_session->GetUInt32Max("AutoSizeY");
        m_session->SetUInt32("AutoOffsetX", 0);
        m_session->SetUInt32("AutoOffsetY", 0);
        m_session->SetUInt32("AutoSizeX", m_session->GetUInt32Max("AutoSizeX"));
        m_session->SetUInt32("AutoSizeY", m_session->GetUInt32Max("AutoSizeY"));
    } catch (const std::exception& e) {
        ShowMessage(QString("Auto region reset error: ") + e.what(), this);
    }
}

void MainWindow::on_pushButton_genIcamXmlLoad_clicked() {
    const bool displaying = m_displayTimer->isActive();
    if (displaying)
        m_displayTimer->setInterval(1000);
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Open Xml file"), QString(), tr("XML file (*.xml)"));
    if (displaying)
        m_displayTimer->setInterval(uint(m_displayInterval));
    if (path.isEmpty())
        return;
    try {
        ClearGENiCAMNodeCallbacks();
        m_session->CreateGeniCamTreeFromFile(path.toLocal8Bit().constData());
        LoadGENiCAMTree();
    } catch (const std::exception& e) {
        ShowMessage(QString("Load XML: ") + e.what(), this);
    }
}

void MainWindow::on_pushButton_device_discovery_clicked() {
    CDialogDeviceDiscoverySettings dialog(m_discoveryEnabled,
                                          m_listDevicesSettings.interfaceAddress,
                                          m_listDevicesSettings.broadcast != 0, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    m_discoveryEnabled = dialog.DiscoverEnabled();
    m_listDevicesSettings.broadcast = dialog.Broadcast() ? 1 : 0;
    const QString selected = dialog.SelectedInterface();
    if (!selected.isEmpty()) {
        const QByteArray text = selected.toLocal8Bit();
        std::memset(m_interfaceAddress, 0, sizeof m_interfaceAddress);
        // At most 32 bytes are kept; the last stays NUL so the text always ends.
        std::strncpy(m_interfaceAddress, text.constData(), sizeof m_interfaceAddress - 1);
        m_listDevicesSettings.interfaceAddress = m_interfaceAddress;
    } else {
        m_listDevicesSettings.interfaceAddress = nullptr;
    }
    m_discoveryThread->SetDiscovery(m_discoveryEnabled, m_listDevicesSettings, false);
}

void MainWindow::on_pushButton_about_clicked() {
    CDialogAbout dialog(this);
    dialog.exec();
}

void MainWindow::on_pushButton_recording_settings_clicked() {
    CDialogRecordingSettings dialog(m_settings->aviFileName, m_settings->maxRecordedFrames,
                                    m_displayTimer.get(), this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    m_settings->aviFileName = dialog.FileName();
    m_settings->maxRecordedFrames = dialog.MaxRecordedFrames();
    m_settings->SaveRecordingSettings();
}
