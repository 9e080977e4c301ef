// The feature editor of a String node: a line edit whose edit counts only when Enter confirms it.
#pragma once

#include "genicamframe.h"

#include <QString>

#include <memory>

namespace Ui {
class CGENiCAMStringFrame;
}

class CGENiCAMStringFrame : public CGENiCAMFrame {
    Q_OBJECT

public:
    explicit CGENiCAMStringFrame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);
    ~CGENiCAMStringFrame() override;

    // Limits the text to the node's maximum length, except for a read-only node.
    void InitFromNode() override;
    // Shows the node's text, at most its first 128 bytes, and remembers it. A read-only text is
    // shown from its start, with the whole text as the field's tool tip, since a long one does
    // not fit the field.
    void UpdateFromNode() override;

    // The form places the line edit without a layout, so the frame has no size hint of its own:
    // its natural size is the form's, which keeps a tree row or a layout from squeezing it.
    QSize sizeHint() const override;

private slots:
    // Writes a changed text and then gives up the focus.
    void on_lineEdit_returnPressed();
    // Leaving the field without Enter puts the last value back.
    void on_lineEdit_editingFinished();

private:
    static constexpr unsigned long kShownBytes = 128;

    std::unique_ptr<Ui::CGENiCAMStringFrame> ui;
    bool m_readOnly = false; // the node's access mode was RO when the editor was configured
    // The text last read from or committed to the node. It is set before the write, so a
    // refused text stays in the field until the next refresh from the node.
    QString m_value;
};
