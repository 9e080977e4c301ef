// The main window's maintenance commands that run a progress dialog on the connected camera.
#include "mainwindow.h"

#include "ui_mainwindow.h"

#include <devicediscoverythread.h>
#include <dialogfirmwareupgrade.h>
#include <dialogloaddevicesettings.h>
#include <dialogprogramlut.h>
#include <dialogprogramxml.h>
#include <dialogsavedevicesettings.h>
#include <korvatincameraviewlane.h>

#include <korvatin/korvatingenicamnodecallback.h>

#include <QTimer>

#include <utility>

void MainWindow::RunJobDialog(QDialog& dialog) {
    const bool discoveryWasOn = m_discoveryThread->IsEnabled();
    if (discoveryWasOn)
        m_discoveryThread->SetDiscovery(false, m_listDevicesSettings, true);
    // The action goes off; the check box keeps showing the user's choice. The action reaches
    // the check box only when triggered, so setting it here leaves the box alone.
    const bool pollingWasOn = ui->actionReadonly_Nodes_Polling->isChecked();
    if (pollingWasOn) {
        ui->actionReadonly_Nodes_Polling->setChecked(false);
        m_timerReadonlyNodesPolling->stop();
    }

    // The jobs' writes, made on this thread through the dialog's handshake, would each update
    // their editors, and each update repaint the window beside the live image: they are told
    // once, when the dialog closes, as the writes of the jobs' workers are.
    m_jobDialogOpen = true;
    CKorvatinGenICamNodeCallback::DeferHomeThreadWrites(true);
    dialog.exec();
    CKorvatinGenICamNodeCallback::DeferHomeThreadWrites(false);
    m_jobDialogOpen = false;

    if (m_connectionLostMeanwhile) {
        // The editors go with the connection; what the job changed is not read back.
        m_heldNodeChanges.clear();
    } else {
        // The job's own writes reach the editors now, before polling reads the nodes again.
        const QList<std::function<void()>> held = std::exchange(m_heldNodeChanges, {});
        for (const std::function<void()>& deliver : held)
            deliver();
    }
    if (pollingWasOn) {
        ui->actionReadonly_Nodes_Polling->setChecked(true);
        if (!m_readonlyPollingFrames.isEmpty())
            m_timerReadonlyNodesPolling->start();
    }
    if (discoveryWasOn)
        m_discoveryThread->SetDiscovery(true, m_listDevicesSettings, false);

    if (m_connectionLostMeanwhile) {
        m_connectionLostMeanwhile = false;
        on_CameraConnectCallbackDisconnected();
    }
}

void MainWindow::DeliverNodeChanges(const std::function<void()>& deliver) {
    if (m_jobDialogOpen)
        m_heldNodeChanges.append(deliver);
    else
        deliver();
}

void MainWindow::on_pushButton_program_LUT_clicked() {
    CDialogProgramLUT dialog(m_session.get(), this);
    RunJobDialog(dialog);
}

void MainWindow::on_pushButton_firmware_upgrade_clicked() {
    CDialogFirmwareUpgrade dialog(m_session.get(), this);
    RunJobDialog(dialog);
}

void MainWindow::on_pushButton_programXML_clicked() {
    CDialogProgramXML dialog(m_session.get(), this);
    RunJobDialog(dialog);
}

void MainWindow::on_pushButton_saveDeviceSettings_clicked() {
    CDialogSaveDeviceSettings dialog(m_session.get(), this);
    RunJobDialog(dialog);
}

void MainWindow::on_pushButton_loadDeviceSettings_clicked() {
    CDialogLoadDeviceSettings dialog(m_session.get(), this);
    dialog.SetFeatureTreeRebuild([this] { LoadGENiCAMTree(); });
    RunJobDialog(dialog);
}
