// The engineer's tools on top of the main window: the feature finder above the feature tree and
// the pixel read-out after the status bar's own fields.
#include "mainwindow.h"

#include "ui_mainwindow.h"

#include <featuretreefinder.h>
#include <korvatincameraviewlane.h>
#include <pixelreadout.h>

#include <QBoxLayout>
#include <QLabel>
#include <QStatusBar>
#include <QTreeWidget>

void MainWindow::SetUpTools() {
    // The finder looks features up on the connection the tree was built from.
    m_featureFinder = new CFeatureTreeFinder(
        ui->treeWidgetGenICam,
        [this](const std::string& name) { return m_session->GetNodeByName(name.c_str()); }, this);
    auto* panel = qobject_cast<QBoxLayout*>(ui->frameRight->layout());
    panel->insertWidget(panel->indexOf(ui->treeWidgetGenICam), m_featureFinder->FilterRow());
    SetUpPixelReadout();
}

void MainWindow::SetUpPixelReadout() {
    auto* label = new QLabel(ui->statusBar);
    label->setObjectName("label_pixelValue");
    label->setStyleSheet("color: rgb(255, 255, 255);");
    label->setMinimumWidth(0);
    label->setToolTip("Image coordinates and the value the camera sent there");
    // After the described fields, taking what room is left.
    ui->statusBar->addWidget(label, 1);
    m_pixelReadout = new CPixelReadout(ui->widgetGrabbedFrame, label, this);
}
