// The device table and the connection workflow of the main window: discovery results fill the
// table, a click on a row connects or disconnects the camera, a lost connection tears down.
#include "mainwindow.h"

#include "panelfitter.h"

#include "appsettings.h"
#include "connectioncaptions.h"
#include "pixelformatguard.h"
#include "ui_mainwindow.h"

#include <devicediscoverythread.h>
#include <korvatincameraviewlane.h>
#include <metatypes.h>
#include <showmessage.h>

#include <korvatin/korvatinexception.h>
#include <korvatin/korvatinframe.h>

#include <QTableWidgetItem>
#include <QTimer>

#include <cstring>
#include <optional>

namespace {

// The pixel type and conversion parameters the snapshot frame is prepared with: its buffer is
// then large enough for any display conversion of the largest image.
constexpr uint32_t kSnapshotPixelType = 0x02300018;
constexpr uint32_t kSnapshotConversionFirst = 1;
constexpr uint32_t kSnapshotConversionSecond = 8;
// Discovery passes that overlap a connect wait this long for answers.
constexpr int32_t kConnectDiscoveryTimeoutMs = 2000;

bool SameMac(const GigEVisionDeviceInfo& a, const GigEVisionDeviceInfo& b) {
    return std::memcmp(a.mac, b.mac, sizeof a.mac) == 0;
}

void MarkRow(QTableWidgetItem* item, bool connected) {
    item->setCheckState(connected ? Qt::Checked : Qt::Unchecked);
    item->setData(MainWindow::ConnectedRole, connected);
}

} // namespace

void MainWindow::ShowMessage(const QString& text, QWidget* parent) {
    ::ShowMessage(text, parent);
}

void MainWindow::DevicesDiscovered(const GigEVisionDeviceInfo* deviceInfos, int count) {
    std::unique_ptr<const GigEVisionDeviceInfo[]> owned(deviceInfos);
    QMutexLocker lock(&m_deviceListMutex);
    QTableWidget* table = ui->tableWidgetDevices;
    for (int row = table->rowCount() - 1; row >= 0; --row)
        table->removeRow(row);
    table->setRowCount(count < 0 ? 0 : count);
    m_serialNumbers.clear();

    const GigEVisionDeviceInfo* connected = m_session->ConnectedDeviceInfo();
    for (int i = 0; i < count; ++i) {
        const GigEVisionDeviceInfo& device = deviceInfos[i];
        auto* manufacturer = new QTableWidgetItem(QString::fromLocal8Bit(device.manufacturerName));
        auto* serial = new QTableWidgetItem(QString::fromLocal8Bit(device.serialNumber));
        auto* address = new QTableWidgetItem(QString::fromLocal8Bit(device.currentIp));
        address->setToolTip("On " + QString::fromLocal8Bit(device.hostInterfaceAddress));
        auto* model = new QTableWidgetItem(QString::fromLocal8Bit(device.modelName));
        m_serialNumbers.append(serial->text());
        manufacturer->setData(DeviceInfoRole, QVariant::fromValue(device));
        const bool isConnected = connected && SameMac(*connected, device);
        MarkRow(manufacturer, isConnected);
        table->setItem(i, 0, manufacturer);
        table->setItem(i, 1, serial);
        table->setItem(i, 2, address);
        table->setItem(i, 3, model);
        if (isConnected)
            table->selectRow(i);
    }
    table->sortItems(2, Qt::AscendingOrder);
    m_panelFitter->DevicesChanged();
}

void MainWindow::on_tableWidgetDevices_cellClicked(int row, int /*column*/) {
    QTableWidget* table = ui->tableWidgetDevices;
    m_deviceListMutex.lock();
    QTableWidgetItem* clicked = table->item(row, 0);
    const QVariant info = clicked ? clicked->data(DeviceInfoRole) : QVariant();
    if (!info.isValid() || info.isNull()) {
        m_deviceListMutex.unlock();
        ShowMessage("Device Info is not available", this);
        return;
    }
    const GigEVisionDeviceInfo device = info.value<GigEVisionDeviceInfo>();
    const bool clickedConnected = clicked->data(ConnectedRole).toBool();
    table->clearSelection();

    if (m_connected)
        DisconnectCamera();

    if (clickedConnected) {
        MarkRow(clicked, false);
        m_deviceListMutex.unlock();
        return;
    }

    std::optional<QString> streamError;
    QString connectError;
    bool connectFailed = false;
    for (int r = 0; r < table->rowCount(); ++r) {
        QTableWidgetItem* item = table->item(r, 0);
        if (r != row) {
            if (item)
                MarkRow(item, false);
            continue;
        }
        try {
            ConnectRow(r, device, streamError);
        } catch (const std::exception& e) {
            connectError = QString::fromLocal8Bit(e.what());
            connectFailed = true;
            break;
        }
    }
    m_deviceListMutex.unlock();

    if (m_session->XmlIndexLoaded() != 0)
        ShowMessage("Reverted to Second XML.", this);
    if (streamError)
        ShowMessage(*streamError, this);
    if (connectFailed) {
        DisconnectCamera();
        ShowMessage(connectError, this);
    } else if (m_connected && m_pixelFormatGuard) {
        // The connection stays, so that another PixelFormat can be chosen in the feature panel.
        const QString refusal = m_pixelFormatGuard->CurrentRefusal();
        if (!refusal.isEmpty())
            ShowMessage(refusal, this);
    }
}

void MainWindow::ConnectRow(int row, const GigEVisionDeviceInfo& device,
                            std::optional<QString>& streamError) {
    m_discoveryThread->SetDiscoveryTimeout(kConnectDiscoveryTimeoutMs);

    m_session->SetConnectionCallBackFunc(&MainWindow::ConnectionLostCallback, this);
    m_session->ConnectDevice(device);
    m_snapshotFrame->SetWidth(m_session->MaxWidth());
    m_snapshotFrame->SetHeight(m_session->MaxHeight());
    m_snapshotFrame->SetPixelType(kSnapshotPixelType);
    m_snapshotFrame->SetConversionAttributes(kSnapshotConversionFirst, kSnapshotConversionSecond);
    if (const QRN_ERROR error = m_session->AllocateFrameBuffer(m_snapshotFrame, 0))
        throw CKorvatinException("fail to allocate memory.", error);

    ui->widgetGrabbedFrame->SetConversionContext(m_session->ConversionContext());

    try {
        LoadGENiCAMTree(); // builds and expands the tree
    } catch (const std::exception&) {
        // The connection goes on with whatever part of the tree was built.
    }

    try {
        m_session->StartAcquisition();
        ShowHostFindings(); // the stream's packet size is negotiated now
    } catch (const std::exception& e) {
        streamError = QString::fromLocal8Bit(e.what());
    }

    // The stream's buffers were sized when acquisition started; a format whose frames are larger
    // would only be lost, frame after frame.
    CKorvatinCameraViewlane* session = m_session.get();
    m_pixelFormatGuard =
        std::make_unique<CPixelFormatGuard>(*m_session, [session](uint64_t payload) {
            const CKorvatinFrame* buffer = session->RawFrame(0);
            if (!buffer || payload <= buffer->BufferSize())
                return QString();
            const uint64_t pixels = uint64_t(session->MaxWidth()) * session->MaxHeight();
            const uint64_t bitsNeeded = pixels ? (payload * 8 + pixels - 1) / pixels : 0;
            return QString("a frame takes %1 bytes, but the stream buffers hold %2 "
                           "(resource/maxBitsPerPixel %3 is too low for it; %4 or more is needed)")
                .arg(payload)
                .arg(buffer->BufferSize())
                .arg(session->MaxBitsPerPixel())
                .arg(bitsNeeded);
        });
    connect(m_pixelFormatGuard.get(), &CPixelFormatGuard::Refused, this,
            [this](const QString& message) { ShowMessage(message, this); });

    QTableWidgetItem* item = ui->tableWidgetDevices->item(row, 0);
    MarkRow(item, true);
    ui->tableWidgetDevices->selectRow(row);
    m_labelConnection->setText(g_strConnected);
    m_connected = true;
    emit CameraConnect(true);
    m_frameRateTimer->start();
    m_previousCaptured = 0;

    if (m_displayEnabled)
        StartDisplay();
    StartPollingIfChecked();
}

void MainWindow::DisconnectCamera() {
    m_pixelFormatGuard.reset();
    StopDisplay();
    ui->widgetGrabbedFrame->ClearImage();

    m_frameRateTimer->stop();
    ui->widgetGrabbedFrame->SetConversionContext(nullptr);

    ui->treeWidgetGenICam->clear();
    ClearGENiCAMNodeCallbacks();
    ClearReadonlyNodesPolling();

    m_labelConnection->setText(g_strNotConnected);
    m_connected = false;
    emit CameraConnect(false);

    m_captureRate = 0;
    m_displayRate = 0;
    m_previousCaptured = 0;
    m_previousDisplayed = 0;
    m_displayTicks = 0;
    ui->widgetGrabbedFrame->ResetPaintedFrameCount();
    m_droppedFrames = 0;
    RefreshRateLabels();

    if (m_session->ConnectedDeviceInfo()) {
        try {
            m_session->ExecuteCommand("AcquisitionStop");
        } catch (const std::exception&) {
            // The camera may already be gone; the session closes the connection regardless.
        }
    }

    m_session->ReleaseFrameBuffer(m_snapshotFrame);
    m_session->DisconnectDevice();

    ui->checkBox_panMode->setChecked(false);
    ui->widgetGrabbedFrame->ResetView();
    RefreshZoomLabel();

    m_discoveryThread->SetDiscoveryTimeout(m_settings->discoveryTimeout);
}

void MainWindow::ConnectionLostCallback(void* context, void* /*ignored*/) {
    emit static_cast<MainWindow*>(context)->CameraConnectCallbackDisconnected();
}

void MainWindow::on_CameraConnectCallbackDisconnected() {
    const GigEVisionDeviceInfo* connected = m_session->ConnectedDeviceInfo();
    if (!connected)
        return;
    // A maintenance job may be using the session on its thread; its own failure tells the
    // user first, and the session goes when that dialog is closed.
    if (m_jobDialogOpen) {
        m_connectionLostMeanwhile = true;
        return;
    }
    const GigEVisionDeviceInfo device = *connected;
    DisconnectCamera();
    RemoveDeviceRow(device);
    ShowMessage("Device is disconnected!", this);
}

void MainWindow::RemoveDeviceRow(const GigEVisionDeviceInfo& device) {
    QMutexLocker lock(&m_deviceListMutex);
    QTableWidget* table = ui->tableWidgetDevices;
    for (int row = table->rowCount() - 1; row >= 0; --row) {
        QTableWidgetItem* item = table->item(row, 0);
        const QVariant info = item ? item->data(DeviceInfoRole) : QVariant();
        if (!info.isValid() || info.isNull()) {
            ShowMessage("Device Info is not available", this);
            continue;
        }
        if (SameMac(info.value<GigEVisionDeviceInfo>(), device)) {
            table->removeRow(row);
            break;
        }
    }
}

void MainWindow::UncheckConnectedRow() {
    QMutexLocker lock(&m_deviceListMutex);
    QTableWidget* table = ui->tableWidgetDevices;
    for (int row = 0; row < table->rowCount(); ++row) {
        QTableWidgetItem* item = table->item(row, 0);
        if (item && item->data(ConnectedRole).toBool()) {
            MarkRow(item, false);
            break;
        }
    }
}

void MainWindow::ClearDeviceList() {
    m_discoveryThread->SkipNextResult();
    QMutexLocker lock(&m_deviceListMutex);
    QTableWidget* table = ui->tableWidgetDevices;
    for (int row = table->rowCount() - 1; row >= 0; --row)
        table->removeRow(row);
}
