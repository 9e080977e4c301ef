// MainWindow: this host's checks for what loses frames, shown in the status bar when a
// connection starts.
#include "mainwindow.h"

#include "ui_mainwindow.h"

#include <hostcheck.h>
#include <korvatincameraviewlane.h>

#include <QLabel>
#include <QPointer>
#include <QStatusBar>
#include <QThread>

#include <memory>

void MainWindow::ShowHostFindings() {
    // The camera's figures are read here, on the GUI thread that owns the session; the checks
    // themselves read system files and may ask a firewall tool, so they run on a thread of
    // their own and come back through the label's event queue.
    const CHostCheck::Stream stream = CHostCheck::StreamOf(*m_session);
    if (!m_labelHostCheck) {
        m_labelHostCheck = new QLabel(ui->statusBar);
        m_labelHostCheck->setObjectName("labelHostCheck");
        m_labelHostCheck->setStyleSheet("color: rgb(255, 200, 0);");
        // Takes the room left in the status bar and never widens the window.
        m_labelHostCheck->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        ui->statusBar->addWidget(m_labelHostCheck, 1);
    }
    m_labelHostCheck->clear();
    m_labelHostCheck->hide();
    // Only the checks of the latest connection are shown, should an earlier one end later.
    const int round = m_labelHostCheck->property("round").toInt() + 1;
    m_labelHostCheck->setProperty("round", round);
    QPointer<QLabel> label = m_labelHostCheck;
    QThread* worker = QThread::create([stream, label, round] {
        const std::vector<CHostCheck::Finding> findings = CHostCheck::Run(stream);
        const std::string summary = CHostCheck::Summary(findings);
        const std::string details = CHostCheck::Details(findings);
        // Runs on the worker thread; the label is only touched on the GUI thread below, and not
        // at all once it is gone.
        QMetaObject::invokeMethod(
            label,
            [label, summary, details, round] {
                if (!label || summary.empty() || label->property("round").toInt() != round)
                    return;
                label->setText("This host may lose frames: " +
                               QString::fromLocal8Bit(summary.c_str()) + " (viewlane-cli doctor)");
                label->setToolTip(QString::fromLocal8Bit(details.c_str()).trimmed());
                label->show();
            },
            Qt::QueuedConnection);
    });
    connect(worker, &QThread::finished, worker, &QObject::deleteLater);
    worker->start();
}
