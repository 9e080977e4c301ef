// An integer validator that also requires the value to be a multiple of a step.
#include "scaleintvalidator.h"

#include <QLocale>

CScaleIntValidator::CScaleIntValidator(QObject* parent) : QIntValidator(parent) {
    QLocale c = QLocale::c();
    c.setNumberOptions(QLocale::RejectGroupSeparator);
    setLocale(c);
}

QValidator::State CScaleIntValidator::validate(QString& input, int& pos) const {
    const State state = QIntValidator::validate(input, pos);
    if (state != Acceptable)
        return state;
    const int value = input.toInt(nullptr, 10);
    // In 64 bits, so that the smallest int modulo -1 cannot trap.
    if (qint64(value) % qint64(m_scale) != 0)
        return Intermediate;
    return Acceptable;
}
