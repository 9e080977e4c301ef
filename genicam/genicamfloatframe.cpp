// The editor of a Float node: a slider in hundredths of the unit, a text and the unit.
#include "genicamfloatframe.h"

#include "textfieldwidth.h"
#include "ui_genicamfloatframe.h"

#include <QAbstractSlider>

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>

namespace {

const char* const kBlackText = "color: rgb(0, 0, 0);";
const char* const kRedText = "color: rgb(255, 0, 0);";

// x converted to int toward zero; beyond the int range it saturates.
int Truncate(double x) {
    if (std::isnan(x))
        return 0;
    if (x >= double(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    if (x <= double(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    return int(x);
}

QString ValueText(double value) {
    return QString::number(value, 'g', 6);
}

} // namespace

CGENiCAMFloatFrame::CGENiCAMFloatFrame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMFrame(node, parent), ui(new Ui::CGENiCAMFloatFrame) {
    ui->setupUi(this);
    connect(ui->lineEdit, &QLineEdit::returnPressed, this,
            &CGENiCAMFloatFrame::lineEdit_returnPressed);
    connect(ui->lineEdit, &QLineEdit::textEdited, this, &CGENiCAMFloatFrame::lineEdit_textEdited);
    connect(ui->horizontalSlider, &QAbstractSlider::actionTriggered, this,
            &CGENiCAMFloatFrame::horizontalSlider_actionTriggered);
    ui->lineEdit->setValidator(&m_validator);
    m_formMaximumWidth = maximumWidth();
    m_formTextMaximumWidth = ui->lineEdit->maximumWidth();
    m_formUnitMaximumWidth = ui->lineEditUnit->maximumWidth();
}

CGENiCAMFloatFrame::~CGENiCAMFloatFrame() {
    // The validator is a member and goes before the line edit does.
    ui->lineEdit->setValidator(nullptr);
}

void CGENiCAMFloatFrame::InitFromNode() {
    CheckGuiThread("InitFromNode");
    ui->horizontalSlider->setTickInterval(1);
    ui->horizontalSlider->setSingleStep(1);
    ui->horizontalSlider->setPageStep(0);
}

void CGENiCAMFloatFrame::UpdateFromNode() {
    CheckGuiThread("UpdateFromNode");
    const double min = m_node.GetDoubleMin();
    const double max = m_node.GetDoubleMax();
    const double value = m_node.GetDouble();
    char unit[kUnitSize] = {};
    m_node.GetDoubleUnit(unit, kUnitSize, nullptr);

    m_inc = 1;
    ui->horizontalSlider->setMaximum(Truncate(max * 100));
    ui->horizontalSlider->setMinimum(Truncate(min * 100) / m_inc);
    ui->horizontalSlider->setValue(Truncate(value * 100) / m_inc);

    const QString unitText = QString::fromUtf8(unit);
    ui->lineEditUnit->setText(unitText);

    m_validator.setRange(min, max, 2);
    m_validator.SetScale(m_inc);

    ui->lineEdit->setText(ValueText(value));

    const bool textFitted = textfieldwidth::Fit(
        *ui->lineEdit, {ValueText(min), ValueText(max), ValueText(value)}, m_formTextMaximumWidth);
    const bool unitFitted =
        textfieldwidth::Fit(*ui->lineEditUnit, {unitText}, m_formUnitMaximumWidth);
    if (textFitted || unitFitted) {
        // The layout of an editor not shown yet does not hear of its fields' new limits.
        layout()->invalidate();
        setMaximumWidth(std::max(m_formMaximumWidth, sizeHint().width()));
    }
}

void CGENiCAMFloatFrame::lineEdit_returnPressed() {
    const QString text = ui->lineEdit->text();
    const double value = text.toDouble();
    try {
        m_node.SetDouble(value);
        ui->horizontalSlider->setValue(Truncate(value * 100) / m_inc);
        ui->lineEdit->setText(text);
    } catch (const std::exception& e) {
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}

void CGENiCAMFloatFrame::lineEdit_textEdited(const QString& /*text*/) {
    ui->lineEdit->setStyleSheet(ui->lineEdit->hasAcceptableInput() ? kBlackText : kRedText);
}

void CGENiCAMFloatFrame::horizontalSlider_actionTriggered(int action) {
    if (action == QAbstractSlider::SliderNoAction)
        return;
    try {
        const int position = ui->horizontalSlider->sliderPosition();
        if (position == ui->horizontalSlider->value())
            return;
        const CKorvatinGenICamNodeT::EAccessMode mode = m_node.AccessMode();
        if (mode != CKorvatinGenICamNodeT::WO && mode != CKorvatinGenICamNodeT::RW)
            return;
        const double value = (qint64(position) * m_inc) / 100.0;
        m_node.SetDouble(value);
        ui->lineEdit->setText(ValueText(value));
        ui->lineEdit->setStyleSheet(kBlackText);
    } catch (const std::exception& e) {
        // The slider stays where the user left it.
        ReportNodeError(QString::fromUtf8(e.what()));
    }
}
