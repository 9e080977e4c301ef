// The one message box of the program: the text and a single Ok button.
#include "showmessage.h"

#include <QMessageBox>

void ShowMessage(const QString& text, QWidget* parent) {
    QMessageBox box(parent);
    box.setStandardButtons(QMessageBox::Ok);
    box.setText(text);
    box.exec();
}
