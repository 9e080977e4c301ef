// A floating-point validator that also requires the value, in hundredths, to be a multiple of a
// step.
#pragma once

#include <QDoubleValidator>

// Acceptable means: acceptable to QDoubleValidator (range and decimals) and the value times 100,
// truncated toward zero, a multiple of the step. Numbers are read in the C locale, as the
// editors write them. A text with more decimals than allowed is Intermediate: it stays in the
// field to be corrected and cannot be confirmed.
class CScaleDoubleValidator : public QDoubleValidator {
    Q_OBJECT

public:
    explicit CScaleDoubleValidator(QObject* parent = nullptr);

    State validate(QString& input, int& pos) const override;
    // Leaves the text as it is: QDoubleValidator would round away extra decimals, and the line
    // edit would then confirm the rounded value on Enter.
    void fixup(QString& input) const override;

    int Scale() const { return m_scale; }
    // A step of 0 is taken as 1.
    void SetScale(int scale) { m_scale = scale != 0 ? scale : 1; }

private:
    int m_scale = 1; // the required step, in hundredths
};
