// The feature editor of an Enumeration node: a combo box of the entries' symbolic names.
#pragma once

#include "genicamframe.h"

#include <QString>

#include <memory>

namespace Ui {
class CGENiCAMEnumerationFrame;
}

class CGENiCAMEnumerationFrame : public CGENiCAMFrame {
    Q_OBJECT

public:
    explicit CGENiCAMEnumerationFrame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);
    ~CGENiCAMEnumerationFrame() override;

    // Lists every entry, available or not, in the node's order.
    void InitFromNode() override;
    // Shows the current entry and remembers it.
    void UpdateFromNode() override;

private slots:
    // Writes the chosen entry unless it is the one last read or written.
    void on_comboBox_textActivated(const QString& arg1);

private:
    static constexpr unsigned long kSymbolicSize = 64;

    std::unique_ptr<Ui::CGENiCAMEnumerationFrame> ui;
    // The entry last read from or written to the node. A refused write does not change it, so
    // the combo box may show another entry until the next refresh.
    QString m_value;
};
