// The dialog that programs the connected camera's look-up table from a file.
#pragma once

#include "dialogprogressthreadeventcameraaccess.h"

#include <memory>

namespace Ui {
class CDialogProgramLUT;
}

class CDialogProgramLUT : public CDialogProgressThreadEventCameraAccess {
    Q_OBJECT
public:
    CDialogProgramLUT(CKorvatinCamera* camera, QWidget* parent);
    ~CDialogProgramLUT() override;

    // Worker thread: the LUT job on the file named when the job started.
    void RunInThread() override;

private slots:
    void on_pushButton_browse_clicked();
    void on_pushButton_program_clicked();

private:
    std::unique_ptr<Ui::CDialogProgramLUT> ui;
};
