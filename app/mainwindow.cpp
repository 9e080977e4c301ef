// The program's only top-level window: side panel, live image, feature tree, menus, toolbar and
// status bar.
#include "mainwindow.h"

#include "checkedicon.h"
#include "darkbuttontextstyle.h"
#include "panelfitter.h"

#include "appsettings.h"
#include "connectioncaptions.h"
#include "pixelformatguard.h"
#include "ui_mainwindow.h"

#include <devicediscoverythread.h>
#include <displaytimerprecise.h>
#include <korvatincameraviewlane.h>
#include <korvatinframeconverted.h>
#include <metatypes.h>

#include <korvatin/korvatinframe.h>
#include <korvatin/korvatingenicamnodecallback.h>

#include <QActionGroup>
#include <QComboBox>
#include <QCoreApplication>
#include <QHeaderView>
#include <QIntValidator>
#include <QLabel>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>

MainWindow::MainWindow(QWidget* parent, const QString& settingsFile)
    : QMainWindow(parent),
      m_settings(new CAppSettings(
          settingsFile.isEmpty() ? CAppSettings::FileNameFor(QCoreApplication::applicationDirPath())
                                 : settingsFile)),
      ui(new Ui::MainWindow) {
    ui->setupUi(this);

    ui->qFrameFoldable_devices->InitFoldable();
    ui->qFrameFoldable_device_config->InitFoldable();
    ui->qFrameFoldable_hostSettings->InitFoldable();
    ui->qFrameFoldable_file->InitFoldable();
    ui->qFrameFoldable_recording->InitFoldable();
    ui->qFrameFoldable_help->InitFoldable();

    // Lay the form out at its designed size first, so that the splitter's width is the one the
    // proportions are taken from.
    layout()->activate();
    ui->centralWidget->layout()->activate();
    const int w = ui->splitter->width();
    ui->splitter->setSizes({w / 8, w - 3 * (w / 8), 2 * (w / 8)});
    ui->tableWidgetDevices->setToolTip("Devices");
    ui->tableWidgetDevices->setColumnWidth(0, 80);
    ui->tableWidgetDevices->setColumnWidth(1, 90);
    ui->tableWidgetDevices->setColumnWidth(2, 90);
    ui->tableWidgetDevices->setColumnWidth(3, 80);
    ui->widgetGrabbedFrame->resize(1000, ui->widgetGrabbedFrame->height());
    ui->treeWidgetGenICam->setColumnWidth(0, 250);
    ui->treeWidgetGenICam->setColumnWidth(1, 500);
    // Fitting the name column to its contents measures every row, not only the first thousand.
    ui->treeWidgetGenICam->header()->setResizeContentsPrecision(-1);
    // The central widget's black background cascades to every descendant, the feature editors
    // placed in the tree included; the tree's own rule covers only the tree. The editors sit in
    // its viewport, whose white background they inherit instead.
    // The enumeration editors' lists draw their entries with their combo box's colours, and the
    // white background would also be the highlight of the chosen entry, white text on white: the
    // combo boxes keep a visible selection.
    ui->treeWidgetGenICam->viewport()->setStyleSheet(
        "QWidget { background-color: rgb(255, 255, 255); }\n"
        "QComboBox { selection-background-color: rgb(48, 140, 198); "
        "selection-color: rgb(255, 255, 255); }");

    // The feature editors follow their nodes through the SDK's change callbacks; a write made
    // on a worker (a firmware or XML job, the stream start) is told to them here, on this thread.
    CKorvatinGenICamNodeCallback::SetHomeThread([this](std::function<void()> deliver) {
        QMetaObject::invokeMethod(
            this, [this, deliver = std::move(deliver)] { DeliverNodeChanges(deliver); },
            Qt::QueuedConnection);
    });
    m_session = std::make_unique<CKorvatinCameraViewlane>(*m_settings);
    m_snapshotFrame = new CKorvatinFrame;
    ui->widgetGrabbedFrame->SetOutputFrame(m_snapshotFrame);
    m_displayTimer = std::make_unique<CDisplayTimerPrecise>();
    connect(m_displayTimer.get(), &CDisplayTimer::Timeout, this, &MainWindow::DisplayThreadTimout,
            Qt::QueuedConnection);
    m_frameRateTimer = new QTimer(this);
    m_frameRateTimer->setInterval(int(kRatePeriodSeconds * 1000));
    connect(m_frameRateTimer, &QTimer::timeout, this, &MainWindow::TimerFrameRateCalTimeout);
    m_timerReadonlyNodesPolling = new QTimer(this);
    m_timerReadonlyNodesPolling->setInterval(1000);
    connect(m_timerReadonlyNodesPolling, &QTimer::timeout, this,
            &MainWindow::TimerReadonlyNodesPollingTimeout);
    connect(this, &MainWindow::CameraConnectCallbackDisconnected, this,
            &MainWindow::on_CameraConnectCallbackDisconnected, Qt::QueuedConnection);

    SetUpStatusBar();
    SetUpToolBar();
    ConnectActions();
    ConnectCameraSwitch();
    SetUpTools();
    // Once every panel, button and action is in place.
    for (QAction* action : findChildren<QAction*>())
        if (action->isCheckable() && !action->icon().isNull())
            action->setIcon(WithCheckedState(action->icon()));
    auto* buttonStyle = new CDarkButtonTextStyle();
    buttonStyle->setParent(this);
    for (QPushButton* button : ui->frameLeft->findChildren<QPushButton*>())
        button->setStyle(buttonStyle);
    m_panelFitter = new CPanelFitter(ui->splitter, ui->frameLeft, ui->frameCentral, ui->frameRight,
                                     ui->treeWidgetGenICam, ui->qFrameFoldable_devices,
                                     ui->tableWidgetDevices, this);

    m_averageValidator = new QIntValidator(1, 100, this);
    ui->lineEdit_fameAve->setValidator(m_averageValidator);
    m_contrastValidator = new QIntValidator(0, 256, this);
    ui->lineEdit_ContrastEnhance->setValidator(m_contrastValidator);

    connect(ui->widgetGrabbedFrame, &CQwidgetGrabbedFrame::zoomedPanChanged, this,
            &MainWindow::RefreshZoomLabel);
    connect(ui->widgetGrabbedFrame, &CQwidgetGrabbedFrame::autoROIChanged, this,
            &MainWindow::autoROIChanged);
    connect(ui->widgetGrabbedFrame, &CQwidgetGrabbedFrame::autoROIReset, this,
            &MainWindow::autoROIReset);

    if (!m_settings->programXML) {
        // XML programming is not offered at all: the button and the action (with it its menu
        // and toolbar entries) go.
        delete ui->pushButton_programXML;
        ui->pushButton_programXML = nullptr;
        delete ui->actionProgram_XML;
        ui->actionProgram_XML = nullptr;
    }

    ui->checkBox_readonly_nodes_polling->setChecked(false);
    ui->checkBox_display->setChecked(true);

    RegisterCameraMetaTypes();
    m_discoveryEnabled = true;
    m_listDevicesSettings.timeoutMs = m_settings->discoveryTimeout;
    m_listDevicesSettings.interfaceAddress = nullptr;
    m_listDevicesSettings.broadcast = 0;
    m_listDevicesSettings.reserved = 0;
    m_discoveryThread = new DeviceDiscoveryThread(m_listDevicesSettings);
    connect(m_discoveryThread, &DeviceDiscoveryThread::devicesDiscovered, this,
            &MainWindow::DevicesDiscovered);
    m_discoveryThread->start(QThread::InheritPriority);

    showMaximized();
}

MainWindow::~MainWindow() {
    if (m_connected)
        DisconnectCamera();
    // The display timer's thread ends before the session and the widgets it reaches go.
    StopDisplay();
    ui->widgetGrabbedFrame->SetOutputFrame(nullptr);
    ui->widgetGrabbedFrame->SetConversionContext(nullptr);
    ClearGENiCAMNodeCallbacks();
    CKorvatinGenICamNodeCallback::SetHomeThread({});
    delete m_snapshotFrame;
    m_snapshotFrame = nullptr;
    m_session.reset();
    m_discoveryThread->stop();
    m_discoveryThread->wait();
    delete m_discoveryThread;
    m_displayTimer.reset();
}

void MainWindow::SetUpStatusBar() {
    auto addLabel = [this](int width, const QString& text, Qt::Alignment alignment) {
        auto* label = new QLabel(text, ui->statusBar);
        label->setFixedWidth(width);
        label->setStyleSheet("color: rgb(255, 255, 255);");
        label->setSizePolicy(QSizePolicy::Fixed, label->sizePolicy().verticalPolicy());
        if (alignment)
            label->setAlignment(alignment);
        ui->statusBar->addWidget(label, 0);
        return label;
    };
    const Qt::Alignment right = Qt::AlignRight | Qt::AlignVCenter;
    m_labelConnection = addLabel(110, g_strNotConnected, {});
    m_labelRecording = addLabel(50, QString(), {});
    m_labelRecording->setStyleSheet(
        "background-image: url(:/images/external_resources/images/record.png);"
        "background-repeat: no-repeat;");
    m_labelRecording->hide();
    connect(m_session.get(), &CKorvatinCameraViewlane::RecordStarted, m_labelRecording,
            &QLabel::setVisible);
    connect(m_session.get(), &CKorvatinCameraViewlane::RecordStarted, this,
            &MainWindow::RecordingStateChanged);
    m_labelRateCaption = addLabel(300, "Frame Rate: (Capture, Display) ", right);
    m_labelRates = addLabel(200, RatesText(0, 0), {});
    m_labelDroppedCaption = addLabel(200, "Dropped Frame:", right);
    m_labelDropped = addLabel(50, DroppedText(0), {});
    m_labelZoomCaption = addLabel(50, "Zoom:", right);
    m_labelZoom = addLabel(100, QString(), {});
    RefreshZoomLabel();
    if (!m_settings->showDropFrame) {
        m_labelDroppedCaption->hide();
        m_labelDropped->hide();
    }
}

void MainWindow::SetUpToolBar() {
    QToolBar* bar = ui->mainToolBar;
    bar->addAction(ui->actionIp_Configuration);
    bar->addAction(ui->actionProgram_LUT);
    bar->addAction(ui->actionFirmware_Upgrade);
    bar->addAction(ui->actionProgram_XML);
    bar->addAction(ui->actionLoad_XML_File);
    bar->addAction(ui->actionSave_Device_Settings);
    bar->addAction(ui->actionLoad_Device_Settings);
    bar->addSeparator();

    m_toolbarBayer = new QComboBox(bar);
    m_toolbarBayer->setObjectName("comboBox_toolbar_bayer");
    m_toolbarBayer->addItems({"None", "Nearest Neighbor", "Bilinear"});
    m_toolbarBayer->setToolTip("Bayer Interpolation");
    bar->addWidget(m_toolbarBayer);
    connect(m_toolbarBayer, &QComboBox::activated, ui->comboBox_bayer, &QComboBox::setCurrentIndex);

    bar->addAction(ui->actionDisplay_Frame);

    m_toolbarDisplay = new QComboBox(bar);
    m_toolbarDisplay->setObjectName("comboBox_toolbar_display");
    m_toolbarDisplay->addItems({"60 fps", "30 fps", "20 fps"});
    m_toolbarDisplay->setToolTip("Display Frame Rate");
    bar->addWidget(m_toolbarDisplay);
    connect(m_toolbarDisplay, &QComboBox::activated, ui->comboBox_display,
            &QComboBox::setCurrentIndex);

    bar->addAction(ui->actionDevice_Discovery);
    bar->addAction(ui->actionReadonly_Nodes_Polling);
    bar->addAction(ui->actionClear_Dropframe_Count);
    bar->addSeparator();
    bar->addAction(ui->actionSave_Image);
    bar->addSeparator();
    bar->addAction(ui->actionZoom_In);
    bar->addAction(ui->actionZoom_Out);
    bar->addAction(ui->actionZoom_ResetView);
    bar->addAction(ui->actionPan_Mode);
    bar->addSeparator();
    bar->addAction(ui->actionAbout);
}

void MainWindow::ConnectActions() {
    auto onTrigger = [this](QAction* action, void (MainWindow::*slot)()) {
        connect(action, &QAction::triggered, this, [this, slot] { (this->*slot)(); });
    };
    onTrigger(ui->actionForce_Ip, &MainWindow::on_pushButton_force_ip_clicked);
    onTrigger(ui->actionForce_Reboot, &MainWindow::on_pushButton_force_reboot_clicked);
    onTrigger(ui->actionIp_Configuration, &MainWindow::on_pushButton_ip_configuration_clicked);
    onTrigger(ui->actionProgram_LUT, &MainWindow::on_pushButton_program_LUT_clicked);
    onTrigger(ui->actionFirmware_Upgrade, &MainWindow::on_pushButton_firmware_upgrade_clicked);
    onTrigger(ui->actionProgram_XML, &MainWindow::on_pushButton_programXML_clicked);
    onTrigger(ui->actionLoad_XML_File, &MainWindow::on_pushButton_genIcamXmlLoad_clicked);
    onTrigger(ui->actionSave_Device_Settings,
              &MainWindow::on_pushButton_saveDeviceSettings_clicked);
    onTrigger(ui->actionLoad_Device_Settings,
              &MainWindow::on_pushButton_loadDeviceSettings_clicked);
    onTrigger(ui->actionSave_Image, &MainWindow::on_pushButton_file_save_clicked);
    onTrigger(ui->actionAbout, &MainWindow::on_pushButton_about_clicked);
    onTrigger(ui->actionDevice_Discovery, &MainWindow::on_pushButton_device_discovery_clicked);
    onTrigger(ui->actionClear_Dropframe_Count,
              &MainWindow::on_pushButton_clear_dropframecount_clicked);
    onTrigger(ui->actionZoom_In, &MainWindow::on_pushButton_zoomin_clicked);
    onTrigger(ui->actionZoom_Out, &MainWindow::on_pushButton_zoomout_clicked);
    onTrigger(ui->actionZoom_ResetView, &MainWindow::on_pushButton_zoomresetview_clicked);
    connect(ui->actionExit, &QAction::triggered, this, &QWidget::close);

    // The checkable actions drive their check boxes; the check-box slots mirror back.
    connect(ui->actionDisplay_Frame, &QAction::triggered, ui->checkBox_display,
            &QCheckBox::setChecked);
    connect(ui->actionReadonly_Nodes_Polling, &QAction::triggered,
            ui->checkBox_readonly_nodes_polling, &QCheckBox::setChecked);
    connect(ui->actionPan_Mode, &QAction::triggered, ui->checkBox_panMode, &QCheckBox::setChecked);

    m_bayerGroup = new QActionGroup(this);
    m_bayerGroup->setExclusive(true);
    m_bayerGroup->addAction(ui->actionNone);
    m_bayerGroup->addAction(ui->actionNearest_Neighbor);
    m_bayerGroup->addAction(ui->actionBilinear);
    connect(m_bayerGroup, &QActionGroup::triggered, this, &MainWindow::BayerActionGroupTriggered);

    m_frameRateGroup = new QActionGroup(this);
    m_frameRateGroup->setExclusive(true);
    m_frameRateGroup->addAction(ui->action60_fps);
    m_frameRateGroup->addAction(ui->action30_fps);
    m_frameRateGroup->addAction(ui->action20_fps);
    connect(m_frameRateGroup, &QActionGroup::triggered, this,
            &MainWindow::FrameRareActionGroupTriggered);
}

void MainWindow::ConnectCameraSwitch() {
    auto sw = [this](QObject* target) {
        if (auto* widget = qobject_cast<QWidget*>(target))
            connect(this, &MainWindow::CameraConnect, widget, &QWidget::setEnabled);
        else if (auto* action = qobject_cast<QAction*>(target))
            connect(this, &MainWindow::CameraConnect, action, &QAction::setEnabled);
    };
    for (QObject* target : std::initializer_list<QObject*>{ui->pushButton_ip_configuration,
                                                           ui->actionIp_Configuration,
                                                           ui->pushButton_program_LUT,
                                                           ui->actionProgram_LUT,
                                                           ui->pushButton_firmware_upgrade,
                                                           ui->actionFirmware_Upgrade,
                                                           ui->pushButton_programXML,
                                                           ui->actionProgram_XML,
                                                           ui->pushButton_genIcamXmlLoad,
                                                           ui->actionLoad_XML_File,
                                                           ui->pushButton_saveDeviceSettings,
                                                           ui->actionSave_Device_Settings,
                                                           ui->pushButton_loadDeviceSettings,
                                                           ui->actionLoad_Device_Settings,
                                                           ui->pushButton_file_save,
                                                           ui->actionSave_Image,
                                                           ui->comboBox_bayer,
                                                           ui->pushButton_zoomin,
                                                           ui->actionZoom_In,
                                                           ui->pushButton_zoomout,
                                                           ui->actionZoom_Out,
                                                           ui->pushButton_zoomresetview,
                                                           ui->actionZoom_ResetView,
                                                           ui->pushButton_clear_dropframecount,
                                                           ui->actionClear_Dropframe_Count})
        sw(target);
}

void MainWindow::BayerActionGroupTriggered(QAction* action) {
    // The group holds the actions in the order of the combo box's entries.
    ui->comboBox_bayer->setCurrentIndex(int(m_bayerGroup->actions().indexOf(action)));
}

void MainWindow::FrameRareActionGroupTriggered(QAction* action) {
    ui->comboBox_display->setCurrentIndex(int(m_frameRateGroup->actions().indexOf(action)));
}

void MainWindow::DisplayThreadTimout() {
    // A tick emitted just before the timer was stopped may still be queued: once the display is
    // switched off or the camera disconnected, it must not bring a frame back.
    if (!m_displayTimer->isActive())
        return;
    CKorvatinFrameConverted* frame = m_session->TakeDisplayFrame();
    if (!frame)
        return;
    if (CKorvatinFrameConverted* previous = ui->widgetGrabbedFrame->SetFrame(frame))
        m_session->ReturnDisplayFrame(previous);
    ++m_displayTicks;
    ui->widgetGrabbedFrame->update();
}

uint32_t MainWindow::RateSince(uint32_t count, uint32_t& previous) {
    const int64_t growth = int64_t(count) - int64_t(previous);
    previous = count;
    return growth < 0 ? 0 : uint32_t(growth / kRatePeriodSeconds);
}

QString MainWindow::RatesText(uint32_t captureRate, uint32_t displayRate) {
    return QString("(%1,%2) fps")
        .arg(captureRate, 4, 10, QChar(' '))
        .arg(displayRate, 4, 10, QChar(' '));
}

QString MainWindow::DroppedText(uint32_t dropped) {
    return QString("%1").arg(dropped, 6, 10, QChar(' '));
}

void MainWindow::TimerFrameRateCalTimeout() {
    m_displayRate = RateSince(ui->widgetGrabbedFrame->PaintedFrameCount(), m_previousDisplayed);
    m_captureRate = RateSince(m_session->grabbedFrameCount.load(), m_previousCaptured);
    m_droppedFrames = m_session->GetDroppedFrameCount();
    RefreshRateLabels();
}

void MainWindow::RefreshRateLabels() {
    m_labelRates->setText(RatesText(m_captureRate, m_displayRate));
    m_labelDropped->setText(DroppedText(m_droppedFrames));
}

void MainWindow::RefreshZoomLabel() {
    QRect visible;
    int zoom = 0;
    ui->widgetGrabbedFrame->GetView(visible, zoom);
    m_labelZoom->setText(QString("%1 %").arg(zoom));
}

void MainWindow::on_pushButton_record_clicked() {
    if (!m_connected || m_session->IsRecording())
        return;
    try {
        m_session->StartRecording(m_settings->aviFileName.toLocal8Bit().constData(), m_bayerMode,
                                  m_settings->maxRecordedFrames);
    } catch (const std::exception& e) {
        ShowMessage(QString("Fail to start AVi recording: ") + e.what(), this);
    }
}

void MainWindow::RecordingStateChanged(bool started) {
    if (started)
        return;
    // A recording the camera ended (a new size or format under it) says why and what the file
    // kept; one stopped by the user or by its frame limit says nothing.
    const QString reason = m_session->TakeRecordingEndReason();
    if (!reason.isEmpty())
        ShowMessage("The recording stopped: " + reason + ".", this);
}

void MainWindow::on_pushButton_stop_clicked() {
    try {
        m_session->StopRecording();
    } catch (const std::exception& e) {
        ShowMessage(QString("Fail to stop AVi recording: ") + e.what(), this);
    }
}

void MainWindow::on_pushButton_clear_dropframecount_clicked() {
    m_session->ClearDroppedFrameCount();
    m_droppedFrames = m_session->GetDroppedFrameCount();
    RefreshRateLabels();
}

void MainWindow::on_pushButton_zoomin_clicked() {
    ui->widgetGrabbedFrame->ZoomIn();
    RefreshZoomLabel();
}

void MainWindow::on_pushButton_zoomout_clicked() {
    ui->widgetGrabbedFrame->ZoomOut();
    RefreshZoomLabel();
}

void MainWindow::on_pushButton_zoomresetview_clicked() {
    ui->checkBox_panMode->setChecked(false);
    ui->widgetGrabbedFrame->ResetView();
    RefreshZoomLabel();
}

void MainWindow::on_checkBox_display_toggled(bool checked) {
    m_displayEnabled = checked;
    if (m_connected) {
        if (checked)
            StartDisplay();
        else
            StopDisplay();
    }
    ui->actionDisplay_Frame->setChecked(checked);
}

void MainWindow::StartDisplay() {
    ui->widgetGrabbedFrame->ResetPaintedFrameCount();
    m_previousDisplayed = 0;
    m_displayTicks = 0;
    m_displayTimer->setInterval(uint(m_displayInterval));
    m_displayTimer->start();
}

void MainWindow::StopDisplay() {
    m_displayTimer->stop();
    if (CKorvatinFrameConverted* frame = ui->widgetGrabbedFrame->TakeFrame())
        m_session->ReturnDisplayFrame(frame);
}

void MainWindow::StartPollingIfChecked() {
    // A job dialog's tree rebuild leaves it to the dialog's end.
    if (m_jobDialogOpen)
        return;
    if (ui->checkBox_readonly_nodes_polling->isChecked() && !m_readonlyPollingFrames.isEmpty())
        m_timerReadonlyNodesPolling->start();
}

void MainWindow::on_checkBox_readonly_nodes_polling_toggled(bool checked) {
    ui->actionReadonly_Nodes_Polling->setChecked(checked);
    if (!checked)
        m_timerReadonlyNodesPolling->stop();
    else
        StartPollingIfChecked();
}

void MainWindow::on_checkBox_panMode_toggled(bool checked) {
    ui->widgetGrabbedFrame->SetPanMode(checked);
    ui->actionPan_Mode->setChecked(checked);
}

void MainWindow::on_comboBox_bayer_currentIndexChanged(int index) {
    if (index < 0 || index > 2)
        return;
    m_bayerMode = kBayerModes[index];
    ui->widgetGrabbedFrame->SetBayerMode(m_bayerMode);
    m_bayerGroup->actions().at(index)->setChecked(true);
    m_toolbarBayer->setCurrentIndex(index);
}

void MainWindow::on_comboBox_display_currentIndexChanged(int index) {
    if (index < 0 || index >= 3)
        return;
    m_displayInterval = kDisplayIntervals[index];
    m_displayTimer->setInterval(uint(m_displayInterval));
    m_frameRateGroup->actions().at(index)->setChecked(true);
    m_toolbarDisplay->setCurrentIndex(index);
}

void MainWindow::on_lineEdit_fameAve_editingFinished() {
    ui->widgetGrabbedFrame->SetAverage(ui->lineEdit_fameAve->text().toInt(nullptr, 10));
}

void MainWindow::on_lineEdit_ContrastEnhance_editingFinished() {
    ui->widgetGrabbedFrame->SetContrast(ui->lineEdit_ContrastEnhance->text().toInt(nullptr, 10));
}
