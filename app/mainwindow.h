// The program's only top-level window: side panel, live image, feature tree, menus, toolbar and
// status bar.
#pragma once

#include <QMainWindow>

#include <cstdint>
#include <memory>

class CAppSettings;
class CDisplayTimer;
class CKorvatinCameraViewlane;
class QAction;
class QActionGroup;
class QComboBox;
class QIntValidator;
class QLabel;
class QTimer;

namespace Ui {
class MainWindow;
}

// Everything here runs on the GUI thread. The display timer emits on its own thread and reaches
// DisplayThreadTimout() through a queued connection.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // Reads `settingsFile`, or settings.ini beside the executable when it is empty, builds the
    // window and shows it maximised.
    explicit MainWindow(QWidget* parent = nullptr, const QString& settingsFile = QString());
    ~MainWindow() override;

    // Display intervals in milliseconds, by index of the display-rate choice.
    static constexpr int32_t kDisplayIntervals[3] = {10, 30, 50};
    // Bayer conversion codes, by index of the Bayer choice.
    static constexpr uint32_t kBayerModes[3] = {0, 1, 3};
    // Frames counted over one rate period of the frame-rate timer give the rate per second when
    // divided by this.
    static constexpr uint32_t kRatePeriodSeconds = 3;

    // Growth of `count` since `previous` per second of the rate period, 0 when the count went
    // down (after a reset); `previous` becomes `count`.
    static uint32_t RateSince(uint32_t count, uint32_t& previous);
    // The status-bar texts of the rates and of the dropped-frame count.
    static QString RatesText(uint32_t captureRate, uint32_t displayRate);
    static QString DroppedText(uint32_t dropped);

    const CAppSettings& Settings() const { return *m_settings; }
    CDisplayTimer* DisplayTimer() const { return m_displayTimer.get(); }
    int32_t DisplayInterval() const { return m_displayInterval; }
    uint32_t BayerMode() const { return m_bayerMode; }
    bool IsConnected() const { return m_connected; }
    // Display ticks that brought a frame since the display was last switched on.
    uint32_t DisplayTicks() const { return m_displayTicks; }

signals:
    // True after a successful connect, false by every disconnect; switches the widgets that need
    // a camera.
    void CameraConnect(bool connect);

public slots:
    // One display tick: show the oldest ready frame, give back the one shown before.
    void DisplayThreadTimout();
    // Every 3 s while connected: capture and display rates and the dropped-frame count.
    void TimerFrameRateCalTimeout();

private slots:
    void BayerActionGroupTriggered(QAction* action);
    void FrameRareActionGroupTriggered(QAction* action);

    // Maintenance commands; they open the device dialogs, which come with the maintenance tools.
    void on_pushButton_force_ip_clicked();
    void on_pushButton_force_reboot_clicked();
    void on_pushButton_ip_configuration_clicked();
    void on_pushButton_program_LUT_clicked();
    void on_pushButton_firmware_upgrade_clicked();
    void on_pushButton_programXML_clicked();
    void on_pushButton_genIcamXmlLoad_clicked();
    void on_pushButton_saveDeviceSettings_clicked();
    void on_pushButton_loadDeviceSettings_clicked();
    void on_pushButton_device_discovery_clicked();
    void on_pushButton_about_clicked();
    void on_pushButton_recording_settings_clicked();
    void on_pushButton_record_clicked();
    void on_pushButton_stop_clicked();
    void on_pushButton_file_save_clicked();

    void on_pushButton_clear_dropframecount_clicked();
    void on_pushButton_zoomin_clicked();
    void on_pushButton_zoomout_clicked();
    void on_pushButton_zoomresetview_clicked();
    void on_checkBox_display_toggled(bool checked);
    void on_checkBox_readonly_nodes_polling_toggled(bool checked);
    void on_checkBox_panMode_toggled(bool checked);
    void on_comboBox_bayer_currentIndexChanged(int index);
    void on_comboBox_display_currentIndexChanged(int index);
    void on_lineEdit_fameAve_editingFinished();
    void on_lineEdit_ContrastEnhance_editingFinished();

    void RefreshZoomLabel();

private:
    void SetUpStatusBar();
    void SetUpToolBar();
    void ConnectActions();
    void ConnectCameraSwitch();
    void RefreshRateLabels();

    std::unique_ptr<CAppSettings> m_settings; // first: every later step reads it
    std::unique_ptr<Ui::MainWindow> ui;
    std::unique_ptr<CKorvatinCameraViewlane> m_session;
    std::unique_ptr<CDisplayTimer> m_displayTimer;
    QTimer* m_frameRateTimer = nullptr; // 3000 ms while connected
    QTimer* m_pollingTimer = nullptr;   // 1000 ms read-only feature polling

    QActionGroup* m_bayerGroup = nullptr;
    QActionGroup* m_frameRateGroup = nullptr;
    QIntValidator* m_averageValidator = nullptr;
    QIntValidator* m_contrastValidator = nullptr;
    QComboBox* m_toolbarBayer = nullptr;
    QComboBox* m_toolbarDisplay = nullptr;

    QLabel* m_labelConnection = nullptr;
    QLabel* m_labelRecording = nullptr;
    QLabel* m_labelRateCaption = nullptr;
    QLabel* m_labelRates = nullptr;
    QLabel* m_labelDroppedCaption = nullptr;
    QLabel* m_labelDropped = nullptr;
    QLabel* m_labelZoomCaption = nullptr;
    QLabel* m_labelZoom = nullptr;

    bool m_connected = false;
    bool m_displayEnabled = true;
    uint32_t m_bayerMode = 0;
    int32_t m_displayInterval = 10;
    uint32_t m_captureRate = 0;
    uint32_t m_displayRate = 0;
    uint32_t m_previousCaptured = 0;
    uint32_t m_previousDisplayed = 0;
    uint32_t m_displayTicks = 0;
    uint32_t m_droppedFrames = 0;
};
