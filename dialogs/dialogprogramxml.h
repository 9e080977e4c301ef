// The dialog that writes a GenICam description (plain or zipped) into the connected camera.
#pragma once

#include "dialogprogressthreadevent.h"

#include <memory>

namespace Ui {
class CDialogProgramXML;
}
class CKorvatinCamera;

// The SDK call checks the file and reports the job's events itself.
class CDialogProgramXML : public CDialogProgressThreadEvent {
    Q_OBJECT
public:
    CDialogProgramXML(CKorvatinCamera* camera, QWidget* parent);
    ~CDialogProgramXML() override;

    // Worker thread: the SDK's description programming of the file named when the job started.
    void RunInThread() override;

private slots:
    void on_pushButton_browse_clicked();
    void on_pushButton_program_clicked();

private:
    std::unique_ptr<Ui::CDialogProgramXML> ui;
    CKorvatinCamera* m_camera; // borrowed
};
