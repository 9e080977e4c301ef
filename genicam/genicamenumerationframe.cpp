// The feature editor of an Enumeration node: a combo box of the entries' symbolic names.
#include "genicamenumerationframe.h"

#include "ui_genicamenumerationframe.h"

#include <exception>
#include <list>

CGENiCAMEnumerationFrame::CGENiCAMEnumerationFrame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMFrame(node, parent), ui(new Ui::CGENiCAMEnumerationFrame) {
    ui->setupUi(this);
}

CGENiCAMEnumerationFrame::~CGENiCAMEnumerationFrame() = default;

void CGENiCAMEnumerationFrame::InitFromNode() {
    CheckGuiThread("InitFromNode");
    std::list<CKorvatinGenICamNodeT> entries;
    m_node.GetEnumEntries(&entries);
    for (const CKorvatinGenICamNodeT& entry : entries) {
        char symbolic[kSymbolicSize] = {};
        entry.GetEnumEntrySymbolic(symbolic, kSymbolicSize, nullptr);
        ui->comboBox->addItem(QString::fromUtf8(symbolic));
    }
}

void CGENiCAMEnumerationFrame::UpdateFromNode() {
    CheckGuiThread("UpdateFromNode");
    char symbolic[kSymbolicSize] = {};
    m_node.GetEnum(symbolic, kSymbolicSize, nullptr);
    const QString current = QString::fromUtf8(symbolic);
    ui->comboBox->setCurrentText(current);
    m_value = current;
}

void CGENiCAMEnumerationFrame::on_comboBox_textActivated(const QString& arg1) {
    if (arg1 == m_value)
        return;
    try {
        m_node.SetEnumByString(arg1.toLocal8Bit().constData());
        m_value = arg1;
    } catch (const std::exception& e) {
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}
