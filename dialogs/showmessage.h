// The one message box of the program: the text and a single Ok button.
#pragma once

class QString;
class QWidget;

// Shows `text` modally, parented to `parent`, with no title or icon; returns when it is closed.
void ShowMessage(const QString& text, QWidget* parent);
