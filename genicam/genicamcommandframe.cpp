// The feature editor of a Command node: a button captioned with the node's display name.
#include "genicamcommandframe.h"

#include "ui_genicamcommandframe.h"

#include <QPushButton>

#include <exception>

CGENiCAMCommandFrame::CGENiCAMCommandFrame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMFrame(node, parent), ui(new Ui::CGENiCAMCommandFrame) {
    ui->setupUi(this);
    connect(ui->pushButton, &QPushButton::clicked, this, &CGENiCAMCommandFrame::pushButton_clicked);
}

CGENiCAMCommandFrame::~CGENiCAMCommandFrame() = default;

void CGENiCAMCommandFrame::InitFromNode() {
    CheckGuiThread("InitFromNode");
    char caption[kCaptionSize] = {};
    m_node.DisplayName(caption, kCaptionSize, nullptr);
    ui->pushButton->setText(QString::fromUtf8(caption));
}

void CGENiCAMCommandFrame::UpdateFromNode() {
    CheckGuiThread("UpdateFromNode");
}

void CGENiCAMCommandFrame::pushButton_clicked(bool /*checked*/) {
    try {
        m_node.ExecuteCommand();
    } catch (const std::exception& e) {
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}
