// The feature editor of a Command node: a button captioned with the node's display name.
#pragma once

#include "genicamframe.h"

#include <memory>

namespace Ui {
class CGENiCAMCommandFrame;
}

class CGENiCAMCommandFrame : public CGENiCAMFrame {
    Q_OBJECT

public:
    explicit CGENiCAMCommandFrame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);
    ~CGENiCAMCommandFrame() override;

    // Captions the button with the display name.
    void InitFromNode() override;
    // A command has no value to show.
    void UpdateFromNode() override;

private slots:
    // Executes the command without waiting for it to complete.
    void pushButton_clicked(bool checked);

private:
    static constexpr unsigned long kCaptionSize = 64;

    std::unique_ptr<Ui::CGENiCAMCommandFrame> ui;
};
