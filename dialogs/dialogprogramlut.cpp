// The dialog that programs the connected camera's look-up table from a file.
#include "dialogprogramlut.h"

#include "ui_dialogprogramlut.h"

#include <lutprogramjob.h>

#include <QFileDialog>

CDialogProgramLUT::CDialogProgramLUT(CKorvatinCamera* camera, QWidget* parent)
    : CDialogProgressThreadEventCameraAccess(camera, parent),
      ui(std::make_unique<Ui::CDialogProgramLUT>()) {
    ui->setupUi(this);
    SetJobControls({ui->pushButton_program, ui->pushButton_browse}, ui->progressBar);
}

CDialogProgramLUT::~CDialogProgramLUT() {
    StopJob();
}

void CDialogProgramLUT::on_pushButton_browse_clicked() {
    const QString name =
        QFileDialog::getOpenFileName(this, "Load LUT File", QString(), "LUT File (*.csv)");
    if (!name.isEmpty())
        ui->lineEdit_fileName->setText(name);
}

void CDialogProgramLUT::on_pushButton_program_clicked() {
    StartWithFile(ui->lineEdit_fileName->text());
}

void CDialogProgramLUT::RunInThread() {
    CLutProgramJob(this, Camera()).Run(JobFileName());
}
