// The engineer's tools on top of the main window: the feature finder above the feature tree and
// the pixel read-out after the status bar's own fields, the stream statistics and histogram panels
// after Help.
#include "mainwindow.h"

#include "ui_mainwindow.h"

#include <featuretreefinder.h>
#include <histogrampanel.h>
#include <korvatincameraviewlane.h>
#include <pixelreadout.h>
#include <qframefoldable.h>

#include <korvatin/korvatinexception.h>

#include <QBoxLayout>
#include <QLabel>
#include <QStatusBar>
#include <QTimer>
#include <QTreeWidget>

void MainWindow::SetUpTools() {
    // The finder looks features up on the connection the tree was built from.
    m_featureFinder = new CFeatureTreeFinder(
        ui->treeWidgetGenICam,
        [this](const std::string& name) { return m_session->GetNodeByName(name.c_str()); }, this);
    auto* panel = qobject_cast<QBoxLayout*>(ui->frameRight->layout());
    panel->insertWidget(panel->indexOf(ui->treeWidgetGenICam), m_featureFinder->FilterRow());
    SetUpPixelReadout();
    SetUpStatisticsPanel();
    SetUpHistogramPanel();
}

void MainWindow::SetUpPixelReadout() {
    auto* label = new QLabel(ui->statusBar);
    label->setObjectName("label_pixelValue");
    label->setStyleSheet("color: rgb(255, 255, 255);");
    label->setToolTip("Image coordinates and the value the camera sent there");
    // After the status bar's own eight fields, taking what room is left and asking for none: a
    // reading never widens the window (on a small screen the text is cut at the right).
    label->setSizePolicy(QSizePolicy::Ignored, label->sizePolicy().verticalPolicy());
    ui->statusBar->addWidget(label, 1);
    m_pixelReadout = new CPixelReadout(ui->widgetGrabbedFrame, label, this);
}

void MainWindow::SetUpStatisticsPanel() {
    auto* panel = new QFrameFoldable(ui->frameLeft);
    panel->setObjectName("qFrameFoldable_statistics");
    panel->setToolTip("Stream Statistics");
    m_labelStatistics = new QLabel(panel);
    m_labelStatistics->setObjectName("label_streamStatistics");
    // What the panel takes as its foldable content.
    m_labelStatistics->setAccessibleName("label_streamStatistics");
    m_labelStatistics->setToolTip("Since the connection, as the camera SDK counts them");
    m_labelStatistics->setContentsMargins(8, 2, 2, 2);
    m_labelStatistics->setText(QString::fromStdString(CStreamStatistics::Text({})));
    panel->InitFoldable();
    auto* side = qobject_cast<QBoxLayout*>(ui->frameLeft->layout());
    side->insertWidget(side->indexOf(ui->qFrameFoldable_help) + 1, panel);

    m_statisticsTimer = new QTimer(this);
    m_statisticsTimer->setInterval(1000);
    connect(m_statisticsTimer, &QTimer::timeout, this, &MainWindow::RefreshStatistics);
    connect(this, &MainWindow::CameraConnect, this, [this](bool connected) {
        if (connected) {
            m_statistics.Start(*m_session, CStreamStatistics::Clock::now());
            m_labelStatistics->setText(QString::fromStdString(CStreamStatistics::Text({})));
            m_statisticsTimer->start();
        } else {
            // The last figures stay readable after a disconnect.
            m_statisticsTimer->stop();
        }
    });
}

void MainWindow::RefreshStatistics() {
    double payload = 0;
    try {
        payload = CStreamStatistics::PayloadBytes(*m_session);
    } catch (const CKorvatinException&) {
        // The data rate shows 0 while the payload cannot be read; the counts stay right.
    }
    const CStreamStatistics::Figures figures =
        m_statistics.Sample(*m_session, payload, CStreamStatistics::Clock::now());
    m_labelStatistics->setText(QString::fromStdString(CStreamStatistics::Text(figures)));
}

void MainWindow::SetUpHistogramPanel() {
    auto* panel = new QFrameFoldable(ui->frameLeft);
    panel->setObjectName("qFrameFoldable_histogram");
    panel->setToolTip("Histogram");
    m_histogramPanel = new CHistogramPanel(ui->widgetGrabbedFrame, panel);
    m_histogramPanel->setObjectName("widget_histogram");
    // What the panel takes as its foldable content.
    m_histogramPanel->setAccessibleName("widget_histogram");
    panel->InitFoldable();
    auto* side = qobject_cast<QBoxLayout*>(ui->frameLeft->layout());
    side->insertWidget(
        side->indexOf(ui->frameLeft->findChild<QWidget*>("qFrameFoldable_statistics")) + 1, panel);
}
