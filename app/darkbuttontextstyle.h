// Dark text on the side panel's grey buttons.
#pragma once

#include <QProxyStyle>

// The side panel's white text colour cascades to its buttons, whose own style sheet gives them a
// light grey background and black text only when disabled: enabled, they would show white on
// grey. Set on those buttons, this style draws their enabled labels in black and leaves
// everything else, their style sheets included, as it is.
class CDarkButtonTextStyle : public QProxyStyle {
    Q_OBJECT

public:
    using QProxyStyle::QProxyStyle;

    void drawItemText(QPainter* painter, const QRect& rect, int flags, const QPalette& palette,
                      bool enabled, const QString& text,
                      QPalette::ColorRole textRole = QPalette::NoRole) const override;
};
