// The editor of a Float node: a slider in hundredths of the unit, a text and the unit.
#pragma once

#include "genicamframe.h"
#include "scaledoublevalidator.h"

#include <memory>

namespace Ui {
class CGENiCAMFloatFrame;
}

// Slider position p stands for the value p / 100. The slider writes on every action (each step
// of a drag, each arrow key); the text writes on Enter, which the validator lets through only
// for an in-range value with at most 2 decimals. A range wider than the slider's int positions
// can hold (about 21 million units) saturates at the ends of the int range.
class CGENiCAMFloatFrame : public CGENiCAMFrame {
    Q_OBJECT

public:
    explicit CGENiCAMFloatFrame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);
    ~CGENiCAMFloatFrame() override;

    // Slider steps: tick interval 1, single step 1, page step 0 (a click in the groove does
    // not move the slider).
    void InitFromNode() override;
    // Reads minimum, maximum, value and unit into slider, validator, text and unit field. The
    // text colour is left as it is. Text and unit fields widen past their form's width when the
    // minimum, the maximum, the value or the unit would not show whole, and the editor with them.
    void UpdateFromNode() override;

private slots:
    void lineEdit_returnPressed();
    // User typing only: black for acceptable text, red otherwise. Nothing is written.
    void lineEdit_textEdited(const QString& text);
    // Emitted after the slider moved its position and before its value follows.
    void horizontalSlider_actionTriggered(int action);

private:
    static constexpr unsigned long kUnitSize = 128;

    std::unique_ptr<Ui::CGENiCAMFloatFrame> ui;
    int m_inc = 1;                     // the slider step divisor, always 1
    CScaleDoubleValidator m_validator; // installed on the line edit
    int m_formMaximumWidth = 0;        // the editor's maximum width as its form sets it
    int m_formTextMaximumWidth = 0;    // the text field's maximum width as its form sets it
    int m_formUnitMaximumWidth = 0;    // the unit field's maximum width as its form sets it
};
