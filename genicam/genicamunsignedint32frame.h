// The integer editor of an unsigned (UInt32) node, its values taken as signed ints.
#pragma once

#include "genicamint32frame.h"

class CGENiCAMUnsignedInt32Frame : public CGENiCAMInt32Frame {
    Q_OBJECT

public:
    explicit CGENiCAMUnsignedInt32Frame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);

    int GetNodeInc() override;
    int GetNodeMin() override;
    int GetNodeMax() override;
    int GetNodeValue() override;
    void SetNodeValue(int value) override;
};
