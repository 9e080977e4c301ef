// The feature editor of a Boolean node: one check box.
#pragma once

#include "genicamframe.h"

#include <memory>

namespace Ui {
class CGENiCAMBooleanFrame;
}

class CGENiCAMBooleanFrame : public CGENiCAMFrame {
    Q_OBJECT

public:
    explicit CGENiCAMBooleanFrame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);
    ~CGENiCAMBooleanFrame() override;

    // Nothing to configure.
    void InitFromNode() override;
    // The check box shows the node's value.
    void UpdateFromNode() override;

private slots:
    // Writes the state the user gave; a refused write leaves the box as the user set it until
    // the next refresh.
    void on_checkBox_clicked(bool checked);

private:
    std::unique_ptr<Ui::CGENiCAMBooleanFrame> ui;
};
