// A floating-point validator that also requires the value, in hundredths, to be a multiple of a
// step.
#include "scaledoublevalidator.h"

#include <QLocale>

#include <cmath>
#include <limits>

namespace {

// The text with its decimals cut to `decimals`, or an empty string when it has no more than
// that (or is not a plain decimal number).
QString WithDecimalsCut(const QString& input, int decimals) {
    const int point = int(input.indexOf(QLatin1Char('.')));
    if (point < 0 || input.contains(QLatin1Char('e'), Qt::CaseInsensitive))
        return QString();
    if (input.size() - point - 1 <= decimals)
        return QString();
    return input.left(point + 1 + decimals);
}

} // namespace

CScaleDoubleValidator::CScaleDoubleValidator(QObject* parent) : QDoubleValidator(parent) {
    QLocale c = QLocale::c();
    c.setNumberOptions(QLocale::RejectGroupSeparator);
    setLocale(c);
}

QValidator::State CScaleDoubleValidator::validate(QString& input, int& pos) const {
    const State state = QDoubleValidator::validate(input, pos);
    if (state == Invalid) {
        // Qt refuses a decimal too many outright, which would drop the keystroke and leave a
        // shorter number that Enter could confirm. Such a text is kept as not yet acceptable
        // when it is fine apart from its extra decimals.
        QString cut = WithDecimalsCut(input, decimals());
        int cutPos = int(cut.size());
        if (!cut.isEmpty() && QDoubleValidator::validate(cut, cutPos) != Invalid)
            return Intermediate;
        return Invalid;
    }
    if (state != Acceptable)
        return state;
    // Truncated toward zero; beyond the int range the value saturates, as the editor's slider
    // positions do.
    const double hundredths = std::trunc(input.toDouble() * 100.0);
    int h = 0;
    if (std::isnan(hundredths))
        h = 0;
    else if (hundredths >= double(std::numeric_limits<int>::max()))
        h = std::numeric_limits<int>::max();
    else if (hundredths <= double(std::numeric_limits<int>::min()))
        h = std::numeric_limits<int>::min();
    else
        h = int(hundredths);
    if (qint64(h) % qint64(m_scale) != 0)
        return Intermediate;
    return Acceptable;
}

void CScaleDoubleValidator::fixup(QString& /*input*/) const {}
