// The feature editor of a String node: a line edit whose edit counts only when Enter confirms it.
#include "genicamstringframe.h"

#include "ui_genicamstringframe.h"

#include <cstring>
#include <exception>

CGENiCAMStringFrame::CGENiCAMStringFrame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMFrame(node, parent), ui(new Ui::CGENiCAMStringFrame) {
    ui->setupUi(this);
    // The text field has a fixed place and size; a frame stretched by the tree's value column
    // would draw an empty box beside it.
    setMaximumWidth(sizeHint().width());
}

CGENiCAMStringFrame::~CGENiCAMStringFrame() = default;

QSize CGENiCAMStringFrame::sizeHint() const {
    return QSize(202, 22);
}

void CGENiCAMStringFrame::InitFromNode() {
    CheckGuiThread("InitFromNode");
    m_readOnly = m_node.AccessMode() == CKorvatinGenICamNodeT::RO;
    if (!m_readOnly)
        ui->lineEdit->setMaxLength(m_node.GetStringMaxLength());
}

void CGENiCAMStringFrame::UpdateFromNode() {
    CheckGuiThread("UpdateFromNode");
    // The SDK always ends the text with a zero byte: one byte more than is shown.
    char text[kShownBytes + 1] = {};
    m_node.GetString(text, sizeof text, nullptr, 0);
    m_value = QString::fromUtf8(text, int(strnlen(text, kShownBytes)));
    ui->lineEdit->setText(m_value);
    if (m_readOnly) {
        // setText() leaves the cursor at the end, which scrolls a long text to its end.
        ui->lineEdit->home(false);
        ui->lineEdit->setToolTip(m_value);
    }
}

void CGENiCAMStringFrame::on_lineEdit_returnPressed() {
    const QString text = ui->lineEdit->text();
    if (text == m_value)
        return;
    m_value = text;
    try {
        m_node.SetString(text.toLocal8Bit().constData(), 0);
        ui->lineEdit->clearFocus();
    } catch (const std::exception& e) {
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}

void CGENiCAMStringFrame::on_lineEdit_editingFinished() {
    if (ui->lineEdit->text() != m_value)
        ui->lineEdit->setText(m_value);
}
