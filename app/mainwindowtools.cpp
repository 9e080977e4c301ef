// The engineer's tools on top of the main window: the feature finder above the feature tree.
#include "mainwindow.h"

#include "ui_mainwindow.h"

#include <featuretreefinder.h>
#include <korvatincameraviewlane.h>

#include <QBoxLayout>
#include <QTreeWidget>

void MainWindow::SetUpTools() {
    // The finder looks features up on the connection the tree was built from.
    m_featureFinder = new CFeatureTreeFinder(
        ui->treeWidgetGenICam,
        [this](const std::string& name) { return m_session->GetNodeByName(name.c_str()); }, this);
    auto* panel = qobject_cast<QBoxLayout*>(ui->frameRight->layout());
    panel->insertWidget(panel->indexOf(ui->treeWidgetGenICam), m_featureFinder->FilterRow());
}
