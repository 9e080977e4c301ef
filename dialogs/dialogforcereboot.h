// The dialog that asks which device (MAC or serial number) to restart.
#pragma once

#include <QDialog>
#include <QStringList>

#include <memory>

namespace Ui {
class CDialogForceReboot;
}

class CDialogForceReboot : public QDialog {
    Q_OBJECT
public:
    // The editable choice starts with `candidates`.
    CDialogForceReboot(const QStringList& candidates, QWidget* parent);
    ~CDialogForceReboot() override;

    QString MacOrSerial() const;

private:
    std::unique_ptr<Ui::CDialogForceReboot> ui;
};
