// Shared editor of 32-bit integer nodes: a slider in steps of the node's increment beside a text.
#pragma once

#include "genicamframe.h"
#include "scaleintvalidator.h"

#include <memory>

namespace Ui {
class CGENiCAMInt32Frame;
}

// All arithmetic here is signed 32-bit, also for unsigned nodes: an unsigned minimum, maximum,
// increment or value above 2147483647 is taken as the negative int of the same bits. Slider
// position p stands for the value p x increment. The slider writes on every action (each step of
// a drag, each arrow key); the text writes on Enter, which the validator lets through only for
// an in-range multiple of the increment.
class CGENiCAMInt32Frame : public CGENiCAMFrame {
    Q_OBJECT

public:
    explicit CGENiCAMInt32Frame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);
    ~CGENiCAMInt32Frame() override;

    // Slider steps: tick interval 1, single step 1, page step 0 (a click in the groove does
    // not move the slider).
    void InitFromNode() override;
    // Reads increment, minimum, maximum and value, in that order, into slider, validator and
    // text. The text colour is left as it is. The text field widens past its form's width when
    // the minimum, the maximum or the value would not show whole in it, and the editor with it.
    void UpdateFromNode() override;

    // The node's accessors, one SDK call each.
    virtual int GetNodeInc() = 0;
    virtual int GetNodeMin() = 0;
    virtual int GetNodeMax() = 0;
    virtual int GetNodeValue() = 0;
    virtual void SetNodeValue(int value) = 0;

private slots:
    void lineEdit_returnPressed();
    // User typing only: black for acceptable text, red otherwise. Nothing is written.
    void lineEdit_textEdited(const QString& text);
    // Emitted after the slider moved its position and before its value follows.
    void horizontalSlider_actionTriggered(int action);

protected:
    std::unique_ptr<Ui::CGENiCAMInt32Frame> ui;
    int m_inc = 1;                  // the node's increment as last read, never 0
    CScaleIntValidator m_validator; // installed on the line edit
    int m_formMaximumWidth = 0;     // the editor's maximum width as its form sets it
    int m_formTextMaximumWidth = 0; // the text field's maximum width as its form sets it
};
