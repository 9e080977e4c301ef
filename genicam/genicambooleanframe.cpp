// The feature editor of a Boolean node: one check box.
#include "genicambooleanframe.h"

#include "ui_genicambooleanframe.h"

#include <exception>

CGENiCAMBooleanFrame::CGENiCAMBooleanFrame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMFrame(node, parent), ui(new Ui::CGENiCAMBooleanFrame) {
    ui->setupUi(this);
}

CGENiCAMBooleanFrame::~CGENiCAMBooleanFrame() = default;

void CGENiCAMBooleanFrame::InitFromNode() {
    CheckGuiThread("InitFromNode");
}

void CGENiCAMBooleanFrame::UpdateFromNode() {
    CheckGuiThread("UpdateFromNode");
    ui->checkBox->setChecked(m_node.GetBool());
}

void CGENiCAMBooleanFrame::on_checkBox_clicked(bool checked) {
    try {
        m_node.SetBool(checked);
    } catch (const std::exception& e) {
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}
