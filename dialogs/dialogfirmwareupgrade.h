// The dialog that writes a firmware image into the connected camera's flash.
#pragma once

#include "dialogprogressthreadevent.h"

#include <memory>

namespace Ui {
class CDialogFirmwareUpgrade;
}
class CKorvatinCamera;
class QKeyEvent;

// The SDK call reports the job's events itself. Holding Control and Alt together selects the
// alternate flash address for the upgrade started meanwhile; the address label shows which.
class CDialogFirmwareUpgrade : public CDialogProgressThreadEvent {
    Q_OBJECT
public:
    CDialogFirmwareUpgrade(CKorvatinCamera* camera, QWidget* parent);
    ~CDialogFirmwareUpgrade() override;

    // Worker thread: the SDK's firmware upgrade of the file named when the job started.
    void RunInThread() override;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

protected slots:
    void EventHandle(int event, const QString* text) override;

private slots:
    void on_pushButton_browse_clicked();
    void on_pushButton_upgrade_clicked();

private:
    // Control or Alt pressed or released: the flags and, unless a job runs, the label.
    void TrackModifier(int key, bool held);
    void RefreshAddressLabel();

    std::unique_ptr<Ui::CDialogFirmwareUpgrade> ui;
    CKorvatinCamera* m_camera; // borrowed
    bool m_altHeld = false;
    bool m_controlHeld = false;
    bool m_alternate = false;
    // The choice the running job was started with; the worker reads it.
    bool m_jobAlternate = false;
};
