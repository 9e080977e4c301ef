// Widths of the editors' text fields, so that a number or a unit is shown whole.
#include "textfieldwidth.h"

#include <QFontMetrics>
#include <QLineEdit>

#include <algorithm>

namespace textfieldwidth {

namespace {

// A line edit's size hint is room for 17 'x' characters plus its frame and margins: what is left
// after the characters is what the field adds around any text.
constexpr int kHintCharacters = 17;
// The text cursor drawn after the last character, and a pixel for the font's bearing.
constexpr int kCursorWidth = 2;

} // namespace

int Needed(const QLineEdit& edit, const QStringList& texts) {
    const QFontMetrics metrics = edit.fontMetrics();
    const int chrome =
        edit.sizeHint().width() - metrics.horizontalAdvance(QLatin1Char('x')) * kHintCharacters;
    int widest = 0;
    for (const QString& text : texts)
        widest = std::max(widest, metrics.horizontalAdvance(text));
    return widest + chrome + kCursorWidth;
}

bool Fit(QLineEdit& edit, const QStringList& texts, int formMaximumWidth) {
    const int minimum = Needed(edit, texts);
    const int maximum = std::max(formMaximumWidth, minimum);
    if (edit.minimumWidth() == minimum && edit.maximumWidth() == maximum)
        return false;
    edit.setMinimumWidth(minimum);
    edit.setMaximumWidth(maximum);
    return true;
}

} // namespace textfieldwidth
