// The About dialog: the program's and the SDK's versions and the release notes.
#include "dialogabout.h"

#include "ui_dialogabout.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/qrnutil.h>

#include <QFile>

namespace {

constexpr const char* kViewlaneVersion = "2.11.04";

} // namespace

CDialogAbout::CDialogAbout(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::CDialogAbout>()) {
    ui->setupUi(this);
    m_spacer = ui->verticalSpacer;
    ui->label_ViewlaneVersion->setText(kViewlaneVersion);
    ui->label_kSDKVersion->setText(QString::fromLocal8Bit(CKorvatinCamera::SDKVersion()));
    bool found = false;
    const std::string directory = CQrnUtil::GetEnv("KORVATIN_DIR", &found);
    if (found) {
        QFile notes(QString::fromLocal8Bit(directory.c_str()) + "/Release_Notes.txt");
        // A missing or unreadable file leaves the box empty, without a word.
        if (notes.open(QIODevice::ReadOnly))
            ui->plainTextEditReleaseNotes->insertPlainText(QString::fromUtf8(notes.readAll()));
        ui->plainTextEditReleaseNotes->moveCursor(QTextCursor::Start);
    }
    on_checkBox_toggled(ui->checkBox->isChecked());
}

CDialogAbout::~CDialogAbout() {
    // The spacer is the layout's while it is in it; taken out, it is ours to delete.
    if (ui->verticalLayout->indexOf(m_spacer) < 0)
        delete m_spacer;
}

void CDialogAbout::on_checkBox_toggled(bool checked) {
    ui->plainTextEditReleaseNotes->setVisible(checked);
    const bool spacerIn = ui->verticalLayout->indexOf(m_spacer) >= 0;
    if (checked) {
        if (spacerIn)
            ui->verticalLayout->removeItem(m_spacer);
        setMinimumHeight(0);
        setMaximumHeight(QWIDGETSIZE_MAX);
    } else {
        if (!spacerIn)
            ui->verticalLayout->insertItem(
                ui->verticalLayout->indexOf(ui->plainTextEditReleaseNotes) + 1, m_spacer);
        setFixedHeight(kFoldedHeight);
    }
    ui->verticalLayout->update();
    adjustSize();
}
