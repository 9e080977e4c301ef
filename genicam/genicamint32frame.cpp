// Shared editor of 32-bit integer nodes: a slider in steps of the node's increment beside a text.
#include "genicamint32frame.h"

#include "textfieldwidth.h"
#include "ui_genicamint32frame.h"

#include <QAbstractSlider>

#include <algorithm>
#include <exception>

namespace {

const char* const kBlackText = "color: rgb(0, 0, 0);";
const char* const kRedText = "color: rgb(255, 0, 0);";

// Signed 32-bit division truncating toward zero; the one quotient that does not fit (the
// smallest int divided by -1) wraps instead of trapping.
int Divide(int numerator, int denominator) {
    return int(qint64(numerator) / qint64(denominator));
}

// Signed 32-bit product, wrapping on overflow.
int Multiply(int a, int b) {
    return int(quint32(qint64(a) * qint64(b)));
}

} // namespace

CGENiCAMInt32Frame::CGENiCAMInt32Frame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMFrame(node, parent), ui(new Ui::CGENiCAMInt32Frame) {
    ui->setupUi(this);
    connect(ui->lineEdit, &QLineEdit::returnPressed, this,
            &CGENiCAMInt32Frame::lineEdit_returnPressed);
    connect(ui->lineEdit, &QLineEdit::textEdited, this, &CGENiCAMInt32Frame::lineEdit_textEdited);
    connect(ui->horizontalSlider, &QAbstractSlider::actionTriggered, this,
            &CGENiCAMInt32Frame::horizontalSlider_actionTriggered);
    ui->lineEdit->setValidator(&m_validator);
    m_formMaximumWidth = maximumWidth();
    m_formTextMaximumWidth = ui->lineEdit->maximumWidth();
}

CGENiCAMInt32Frame::~CGENiCAMInt32Frame() {
    // The validator is a member and goes before the line edit does.
    ui->lineEdit->setValidator(nullptr);
}

void CGENiCAMInt32Frame::InitFromNode() {
    CheckGuiThread("InitFromNode");
    ui->horizontalSlider->setTickInterval(1);
    ui->horizontalSlider->setSingleStep(1);
    ui->horizontalSlider->setPageStep(0);
}

void CGENiCAMInt32Frame::UpdateFromNode() {
    CheckGuiThread("UpdateFromNode");
    int inc = GetNodeInc();
    const int min = GetNodeMin();
    const int max = GetNodeMax();
    const int value = GetNodeValue();
    if (inc == 0)
        inc = 1;
    m_inc = inc;

    ui->horizontalSlider->setMaximum(Divide(max, inc));
    ui->horizontalSlider->setMinimum(Divide(min, inc));
    ui->horizontalSlider->setValue(Divide(value, inc));

    m_validator.setRange(min, max);
    m_validator.SetScale(inc);

    ui->lineEdit->setText(QString::number(value));

    if (textfieldwidth::Fit(*ui->lineEdit,
                            {QString::number(min), QString::number(max), QString::number(value)},
                            m_formTextMaximumWidth)) {
        // The layout of an editor not shown yet does not hear of its field's new limits.
        layout()->invalidate();
        setMaximumWidth(std::max(m_formMaximumWidth, sizeHint().width()));
    }
}

void CGENiCAMInt32Frame::lineEdit_returnPressed() {
    const int value = ui->lineEdit->text().toInt(nullptr, 10);
    try {
        SetNodeValue(value);
        ui->horizontalSlider->setValue(Divide(value, m_inc));
    } catch (const std::exception& e) {
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}

void CGENiCAMInt32Frame::lineEdit_textEdited(const QString& /*text*/) {
    ui->lineEdit->setStyleSheet(ui->lineEdit->hasAcceptableInput() ? kBlackText : kRedText);
}

void CGENiCAMInt32Frame::horizontalSlider_actionTriggered(int action) {
    if (action == QAbstractSlider::SliderNoAction)
        return;
    try {
        const int position = ui->horizontalSlider->sliderPosition();
        if (position == ui->horizontalSlider->value())
            return;
        const CKorvatinGenICamNodeT::EAccessMode mode = m_node.AccessMode();
        if (mode != CKorvatinGenICamNodeT::WO && mode != CKorvatinGenICamNodeT::RW)
            return;
        const int value = Multiply(position, m_inc);
        SetNodeValue(value);
        ui->lineEdit->setText(QString::number(value));
        ui->lineEdit->setStyleSheet(kBlackText);
    } catch (const std::exception& e) {
        // The slider stays where the user left it.
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}
