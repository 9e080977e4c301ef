// The About dialog: the program's and the SDK's versions and the release notes.
#pragma once

#include <QDialog>

#include <memory>

class QSpacerItem;

namespace Ui {
class CDialogAbout;
}

class CDialogAbout : public QDialog {
    Q_OBJECT
public:
    // The release notes come from $KORVATIN_DIR/Release_Notes.txt when the variable is set and
    // the file can be read; otherwise the box stays empty.
    explicit CDialogAbout(QWidget* parent);
    ~CDialogAbout() override;

    // The height the dialog is fixed at while the release notes are hidden.
    static constexpr int kFoldedHeight = 170;

private slots:
    // Shows or hides the release notes, the dialog growing or folding with them.
    void on_checkBox_toggled(bool checked);

private:
    std::unique_ptr<Ui::CDialogAbout> ui;
    QSpacerItem* m_spacer; // in the layout while the notes are hidden; owned here otherwise
};
