// The dialog that edits the recording's AVI file name and frame limit.
#pragma once

#include <QDialog>
#include <QString>

#include <memory>

namespace Ui {
class CDialogRecordingSettings;
}

class CDialogRecordingSettings : public QDialog {
    Q_OBJECT
public:
    // `caller` is kept for the caller and not used here (the main window passes its display
    // timer); not owned.
    CDialogRecordingSettings(const QString& fileName, int maxRecordedFrames, QObject* caller,
                             QWidget* parent);
    ~CDialogRecordingSettings() override;

    QString FileName() const;
    // The frame limit as typed, 0 when it is not a decimal number.
    int MaxRecordedFrames() const;

private slots:
    void on_pushButton_browse_clicked();
    // A name without the .avi suffix (in any case) gets it.
    void on_lineEdit_fileName_editingFinished();

private:
    std::unique_ptr<Ui::CDialogRecordingSettings> ui;
    QObject* m_caller; // borrowed
};
