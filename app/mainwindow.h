// The program's only top-level window: side panel, live image, feature tree, menus, toolbar and
// status bar.
#pragma once

#include <streamstatistics.h>

#include <korvatin/gigevisiondeviceinfo.h>
#include <korvatin/korvatingenicamnodet.h>

#include <QList>
#include <QMainWindow>
#include <QMutex>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class CAppSettings;
class CDisplayTimer;
class CGENiCAMFrame;
class CKorvatinCameraViewlane;
class CKorvatinFrame;
class CKorvatinGenICamNodeCallbackExt;
class CPanelFitter;
class CPixelFormatGuard;
class DeviceDiscoveryThread;
class QAction;
class QActionGroup;
class QComboBox;
class QDialog;
class QIntValidator;
class QLabel;
class QTimer;
class QTreeWidgetItem;

class CFeatureTreeFinder;
class CPixelReadout;
class CHistogramPanel;

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
    CKorvatinCameraViewlane* Session() const { return m_session.get(); }
    DeviceDiscoveryThread* DiscoveryThread() const { return m_discoveryThread; }
    QTimer* ReadonlyNodesPollingTimer() const { return m_timerReadonlyNodesPolling; }
    QTimer* FrameRateTimer() const { return m_frameRateTimer; }
    const QList<CGENiCAMFrame*>& ReadonlyPollingFrames() const { return m_readonlyPollingFrames; }
    const QList<CKorvatinGenICamNodeCallbackExt*>& NodeCallbacks() const { return m_nodeCallbacks; }
    const QStringList& SerialNumbers() const { return m_serialNumbers; }
    bool DiscoveryEnabled() const { return m_discoveryEnabled; }
    // What discovery is told: the interface (null: all) and broadcast or subnet-directed.
    const ListDevicesSettings& DiscoverySettings() const { return m_listDevicesSettings; }

    // Data roles of the device table's column-0 items and of the feature tree's column 1.
    static constexpr int DeviceInfoRole = Qt::UserRole + 1; // GigEVisionDeviceInfo
    static constexpr int ConnectedRole = Qt::UserRole + 2;  // bool: the connected camera's row
    static constexpr int NodeErrorRole = Qt::UserRole + 3;  // CKorvatinException climbing the tree

    // An auto-region value for a feature of this range: clamped to [min, max], then rounded to
    // the increment counted from 0, down by the remainder or up when the remainder is at least
    // half the increment. Rounding up may pass the maximum; it is not clamped again.
    static uint32_t AutoRegionRounded(uint32_t value, uint32_t min, uint32_t max, uint32_t inc);

    // Shows `text` in a modal message box with a single Ok button; returns when it is closed.
    static void ShowMessage(const QString& text, QWidget* parent);

    // Disconnects the camera: timers, display, feature tree, captions and counters, then the
    // session. Harmless when nothing is connected.
    void DisconnectCamera();
    // Device-table operations, each under the table's mutex.
    void RemoveDeviceRow(const GigEVisionDeviceInfo& device);
    void UncheckConnectedRow();
    void ClearDeviceList();

    // Rebuilds the feature tree and expands it; rethrows a build error after expanding.
    void LoadGENiCAMTree();
    // Rebuilds the feature tree from the camera's root category; a feature whose editor fails
    // to read its node removes its top-level category and the error is thrown at the end.
    void BuildGENiCAMTree();
    void ClearGENiCAMNodeCallbacks();
    void ClearReadonlyNodesPolling();
    // Measures the widest feature name and the widest editor and hands them to the panel fitter:
    // unless the user has moved the panel's splitter handle, the panel then takes what it needs
    // to show both columns, leaving the display at least a third of the window.
    void FitFeaturePanel();
    // True once the user has moved the splitter handle beside the feature panel: from then on
    // the panel keeps the width they gave it, across disconnects and reconnects.
    bool PanelWidthSetByUser() const;

signals:
    // True after a successful connect, false by every disconnect; switches the widgets that need
    // a camera.
    void CameraConnect(bool connect);
    // Emitted by the SDK's connection-loss callback, from any thread; handled queued.
    void CameraConnectCallbackDisconnected();

public slots:
    // One display tick: show the oldest ready frame, give back the one shown before.
    void DisplayThreadTimout();
    // Every 3 s while connected: capture and display rates and the dropped-frame count.
    void TimerFrameRateCalTimeout();
    // Fills the device table from one discovery result; frees `deviceInfos`.
    void DevicesDiscovered(const GigEVisionDeviceInfo* deviceInfos, int count);
    // One polling tick: refreshes the editors of non-cachable features; stops at the first error.
    void TimerReadonlyNodesPollingTimeout();
    // Shows an editor's error, then clears stale replies of the control channel.
    void GENiCAMNodeErrorOccured(QString message);
    // A rectangle dragged on the live image, in sensor pixels: written as the camera's auto
    // region (sizes first, then offsets), each value clamped and rounded to its feature.
    void autoROIChanged(uint x, uint y, uint width, uint height);
    // The auto region back to the whole sensor.
    void autoROIReset();

private slots:
    void on_tableWidgetDevices_cellClicked(int row, int column);
    void on_CameraConnectCallbackDisconnected();

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
    // The session's RecordStarted: a recording that ended by itself shows why.
    void RecordingStateChanged(bool started);
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
    // The engineer's tools added on top of the window's own widgets: the feature finder above the
    // tree, the pixel read-out in the status bar, and the statistics and histogram panels.
    void SetUpTools();
    void SetUpPixelReadout();
    void SetUpStatisticsPanel();
    void SetUpHistogramPanel();
    // Statistics timer (1000 ms while connected): the panel's figures since the connection.
    void RefreshStatistics();
    void SetUpToolBar();
    void ConnectActions();
    void ConnectCameraSwitch();
    void RefreshRateLabels();
    // Display on: counters from 0, the display timer at the chosen interval.
    void StartDisplay();
    // Display off: the timer stopped, the frame the widget holds given back to the session.
    void StopDisplay();
    // Starts read-only polling when its check box is checked and there is something to poll.
    void StartPollingIfChecked();
    // Runs `dialog` (a maintenance dialog, modal, whose job may use the session from its own
    // thread) with discovery switched off (after a listing in progress has finished) and
    // read-only polling stopped; both come back afterwards as they were, polling only when
    // there is something to poll. While it is open the feature tree reads no node: node changes
    // the job announces wait for its end, and a lost connection is handled once the dialog is
    // closed, so the session outlives the job.
    void RunJobDialog(QDialog& dialog);
    // The SDK's delivery of node changes made on another thread: now, or, while a job dialog
    // is open, when it closes.
    void DeliverNodeChanges(const std::function<void()>& deliver);
    // Adds `node` (and, for a category, its features) as the last child of `parent`; its editor
    // waits in m_pendingEditors until the tree build places it.
    void AddGENiCAMNode(QTreeWidgetItem* parent, CKorvatinGenICamNodeT node);
    // Deletes the pending editors from index `first` on, with their callbacks and polling.
    void DropPendingEditorsFrom(qsizetype first);
    // The connect steps for one clicked row; throws what the connection itself throws.
    void ConnectRow(int row, const GigEVisionDeviceInfo& device,
                    std::optional<QString>& streamError);

    // Checks this host against the connected camera's stream on a worker thread and shows what
    // loses frames, if anything, in the status bar (mainwindowhostcheck.cpp).
    void ShowHostFindings();

    static void ConnectionLostCallback(void* context, void* ignored);
    // Whether `macOrSerial`, as typed in the force-reboot dialog (a MAC with '-', else a serial
    // number), names `device`.
    static bool NamesDevice(const QString& macOrSerial, const GigEVisionDeviceInfo& device);

    std::unique_ptr<CAppSettings> m_settings; // first: every later step reads it
    std::unique_ptr<Ui::MainWindow> ui;
    std::unique_ptr<CKorvatinCameraViewlane> m_session;
    std::unique_ptr<CDisplayTimer> m_displayTimer;
    QTimer* m_frameRateTimer = nullptr;            // 3000 ms while connected
    QTimer* m_timerReadonlyNodesPolling = nullptr; // 1000 ms read-only feature polling

    // The device table: rebuilt, searched and changed only under this mutex.
    QMutex m_deviceListMutex;
    bool m_discoveryEnabled = true;
    ListDevicesSettings m_listDevicesSettings{};
    char m_interfaceAddress[32] = {};          // the text m_listDevicesSettings may point to
    QStringList m_serialNumbers;               // of the last discovery result, in arrival order
    CKorvatinFrame* m_snapshotFrame = nullptr; // conversion target of the display and of saving
    DeviceDiscoveryThread* m_discoveryThread = nullptr;

    // While connected: refuses, by name, a pixel format the display cannot convert.
    std::unique_ptr<CPixelFormatGuard> m_pixelFormatGuard;

    // The feature tree's node-change callbacks (owned) and the editors of non-cachable
    // features (owned by the tree widget).
    QList<CKorvatinGenICamNodeCallbackExt*> m_nodeCallbacks;
    QList<CGENiCAMFrame*> m_readonlyPollingFrames;
    // Rows built by the running tree build and the editors to place in their column 1.
    QList<QPair<QTreeWidgetItem*, CGENiCAMFrame*>> m_pendingEditors;
    // The categories the running tree build is inside, outermost first.
    std::vector<CKorvatinGenICamNodeT> m_categoriesBeingBuilt;

    QActionGroup* m_bayerGroup = nullptr;
    QActionGroup* m_frameRateGroup = nullptr;
    QIntValidator* m_averageValidator = nullptr;
    QIntValidator* m_contrastValidator = nullptr;
    QComboBox* m_toolbarBayer = nullptr;
    QComboBox* m_toolbarDisplay = nullptr;

    CPanelFitter* m_panelFitter = nullptr; // shares the width between the three panels
    QLabel* m_labelConnection = nullptr;
    QLabel* m_labelHostCheck = nullptr; // made by the first connection that has host findings
    QLabel* m_labelRecording = nullptr;
    QLabel* m_labelRateCaption = nullptr;
    QLabel* m_labelRates = nullptr;
    QLabel* m_labelDroppedCaption = nullptr;
    QLabel* m_labelDropped = nullptr;
    QLabel* m_labelZoomCaption = nullptr;
    QLabel* m_labelZoom = nullptr;

    // The engineer's tools (SetUpTools); owned by this window through Qt parents.
    CFeatureTreeFinder* m_featureFinder = nullptr;
    CPixelReadout* m_pixelReadout = nullptr;
    QLabel* m_labelStatistics = nullptr;
    QTimer* m_statisticsTimer = nullptr;
    CStreamStatistics m_statistics;
    CHistogramPanel* m_histogramPanel = nullptr;

    bool m_connected = false;
    bool m_jobDialogOpen = false;                   // RunJobDialog runs its dialog
    bool m_connectionLostMeanwhile = false;         // the connection was lost while it did
    QList<std::function<void()>> m_heldNodeChanges; // node changes announced while it did
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
