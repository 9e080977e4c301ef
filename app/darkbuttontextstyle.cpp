// Dark text on the side panel's grey buttons.
#include "darkbuttontextstyle.h"
void CDarkButtonTextStyle::drawItemText(QPainter* painter, const QRect& rect, int flags,
                                        const QPalette& palette, bool enabled, const QString& text,
                                        QPalette::ColorRole textRole) const {
    // A style sheet draws a button's label through its base style's drawItemText, with the
    // cascaded colour as the button text.
    if (enabled && textRole == QPalette::ButtonText) {
        QPalette dark(palette);
        dark.setColor(QPalette::ButtonText, QColor(0, 0, 0));
        QProxyStyle::drawItemText(painter, rect, flags, dark, enabled, text, textRole);
        return;
    }
    QProxyStyle::drawItemText(painter, rect, flags, palette, enabled, text, textRole);
}
