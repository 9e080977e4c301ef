// An integer validator that also requires the value to be a multiple of a step.
#pragma once

#include <QIntValidator>

// Acceptable means: acceptable to QIntValidator's range check and a multiple of the step counted
// from 0 (not from the range's bottom: with bottom 5 and step 2 the acceptable values are 6, 8,
// ...). Numbers are read in the C locale, as the editors write them.
class CScaleIntValidator : public QIntValidator {
    Q_OBJECT

public:
    explicit CScaleIntValidator(QObject* parent = nullptr);

    State validate(QString& input, int& pos) const override;

    int Scale() const { return m_scale; }
    // A step of 0 is taken as 1.
    void SetScale(int scale) { m_scale = scale != 0 ? scale : 1; }

private:
    int m_scale = 1; // the required step
};
