// Widths of the editors' text fields, so that a number or a unit is shown whole.
#pragma once

#include <QStringList>

class QLineEdit;

namespace textfieldwidth {

// The width `edit` needs, in pixels, to show the widest of `texts` whole in its font and style,
// its frame, margins and the cursor included.
int Needed(const QLineEdit& edit, const QStringList& texts);

// Makes `edit` at least as wide as Needed(edit, texts), and lets it grow past
// `formMaximumWidth`, the widest its form allows, only when that is too narrow for the texts.
// Returns whether its width limits changed.
bool Fit(QLineEdit& edit, const QStringList& texts, int formMaximumWidth);

} // namespace textfieldwidth
